// The stream's own operations, as installed into the platform record by open; internal to the stream's
// three sources: configuration (binaural_stream_apis), control (binaural_stream_control), reading
// (binaural_stream_read).
//
// Every operation enters the stream through the registry first and answers its neutral value (0, null)
// for a pointer that is not an open stream. Any thread; `in_read` belongs to the capture thread.
#ifndef BINAURAL_RECORD_HIDL_2CH_RECORD_1_0_BINAURAL_STREAM_OPS_H_
#define BINAURAL_RECORD_HIDL_2CH_RECORD_1_0_BINAURAL_STREAM_OPS_H_

#include <stdint.h>
#include <sys/types.h>

#include <iosfwd>

#include <hardware/audio.h>

#include "binaural_record/hidl/2ch-record/1.0/binaural_stream_apis.h"
#include "binaural_record/utils/locks.h"

// Frames are 4 bytes throughout the stream's positions and sizes, whatever the session's format.
constexpr uint32_t kBytesPerFrame = 4;

// Leaf locks of the read path: every port read, every access to a ring buffer. Never nested.
extern vendor::corva::binaural_record::utils::StaticMutex gPortReadMutex;
extern vendor::corva::binaural_record::utils::StaticMutex gPreBuffMutex;
extern vendor::corva::binaural_record::utils::StaticMutex gPostBuffMutex;

// --- Configuration (binaural_stream_apis.cpp) -----------------------------------------------------
// "audio_config[sample_rate=<rate>, channels=0x<mask in hex>, format=<format>]", for the log.
std::ostream& operator<<(std::ostream& out, const audio_config& config);
// Bytes of one buffer period: frames_count_ * 4.
size_t in_get_buffer_size(const audio_stream* stream) noexcept;

// --- Control (binaural_stream_control.cpp) --------------------------------------------------------
// Starts the port of gStreamIn. 0; -5 when the port refuses, which takes up to 4.5 s.
int in_start(const audio_stream_in* stream) noexcept;
// Stops the port of gStreamIn and empties both ring buffers. Always 0.
int in_stop(const audio_stream_in* stream) noexcept;
// Stops a started port, keeps the ring buffers. 0, or -16 while the port is STARTING.
int in_standby(audio_stream* stream) noexcept;
// Writes nothing to `fd`; 0.
int in_dump(const audio_stream* stream, int fd) noexcept;
// "RecordSuspended", "routing", and the "sup_..." keys, which reload the configuration. Always 0.
int in_set_parameters(audio_stream* stream, const char* kvpairs) noexcept;
// "key=value;" for each "sup_..." key asked for; the caller frees the text. Null without memory.
char* in_get_parameters(const audio_stream* stream, const char* keys) noexcept;
// Oldest position saved by a supplementary read, else that of the port. Always 0.
int in_get_capture_position(const audio_stream_in* stream, int64_t* frames, int64_t* time) noexcept;
// Position of the port (ns), or frame counter and boot-time clock. The caller has entered `stream`.
void obtain_bluetooth_capture_position(const audio_stream_in* stream, int64_t* frames,
                                       int64_t* time) noexcept;

// --- Reading (binaural_stream_read.cpp) -----------------------------------------------------------
// Fills `buffer` with `bytes` bytes of processed PCM and returns `bytes`, or 0 on every failure.
// Deliberate: what the port did not deliver of the bytes asked for is taken from what the buffer
// held before, so a caller that must not disclose it clears the buffer first.
ssize_t in_read(audio_stream_in* stream, void* buffer, size_t bytes) noexcept;

#endif  // BINAURAL_RECORD_HIDL_2CH_RECORD_1_0_BINAURAL_STREAM_OPS_H_
