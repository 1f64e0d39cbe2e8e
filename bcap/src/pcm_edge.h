// The one place where 16-bit samples become floats and floats become 16-bit samples.
#pragma once

#include "bcap.h"
#include "delay_line.h"

namespace bcap {

// sample / 32768, so [-1, 1).
void load_pcm(const bcap_buffer_desc_t& in, StereoBlock block);

// sample * 32768, rounded to nearest (halves away from zero), saturated to 16 bits; a value that is not
// finite makes the result false and its ear's block 0. Writes the first two channels of `out`, or as many as there
// are.
bool store_pcm(StereoBlock block, const bcap_buffer_desc_t& out);

}  // namespace bcap
