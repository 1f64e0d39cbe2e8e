// peq; see equalizer.h. Real time: no allocation, lock, log, wait or file.
#include "equalizer.h"

#include "decibels.h"

namespace bcap {

void Equalizer::Configure(const Parameters& parameters) {
  flat_ = true;
  const float share = static_cast<float>(parameters.peq_amount) * (1.0f / 16.0f);
  for (size_t band = 0; band < kMaxBands; ++band) {
    const float db = share * sixteenths_to_db(parameters.peq_band_gain.values[band]);
    gains_[band] = db == 0.0f ? 1.0f : db_to_gain(db);
    flat_ = flat_ && db == 0.0f;
  }
}

}  // namespace bcap
