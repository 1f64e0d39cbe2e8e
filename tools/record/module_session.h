// One run of the module as the audio service drives it: load, open the device, set parameters, open
// the stream, read, close. What it opened it closes, a stream whose open failed included.
//
// Threads: Read() belongs to the capture thread. CloseStream() may run while Read() does and makes it
// return; everything else is for the thread that made the object, SetParameters() for either.
#ifndef TOOLS_RECORD_MODULE_SESSION_H
#define TOOLS_RECORD_MODULE_SESSION_H

#include <cstddef>
#include <cstdint>
#include <hardware/audio.h>
#include <hardware/hardware.h>
#include <string>

namespace tools {

struct StreamFormat {
  uint32_t rate_hz = 0;
  audio_channel_mask_t channel_mask = 0;
  audio_format_t format = AUDIO_FORMAT_INVALID;

  int Channels() const;
  bool operator==(const StreamFormat& other) const;
  std::string Text() const;  // "48000 Hz, 2 channels, 16 bit"
};

class ModuleSession {
 public:
  // Loads the file; with an empty name the platform's search does, in the folder of the module built
  // with this program. Throws a Failure (module not loadable).
  explicit ModuleSession(const std::string& module_file);
  ~ModuleSession();
  ModuleSession(const ModuleSession&) = delete;
  ModuleSession& operator=(const ModuleSession&) = delete;

  void OpenDevice();  // throws a Failure (device refused)
  void OpenStream();  // throws a Failure (stream refused)
  void CloseStream();

  int SetParameters(const std::string& text);
  ssize_t Read(void* buffer, size_t bytes) { return stream_->read(stream_, buffer, bytes); }

  // The session's values that the stream was opened with; the module keeps its sizes and tuning for
  // these even when the session changes.
  const StreamFormat& opened_format() const { return opened_format_; }
  StreamFormat CurrentFormat() const;
  // Bytes of one 20 ms period: the stream's own answer, and the device's for the opened format.
  size_t PeriodBytes() const;
  size_t DeviceBufferBytes() const;
  // State of the Bluetooth port by its name in the module's log; empty before the first answer.
  std::string PortState() const;

  const std::string& module_file() const { return module_file_; }
  // "1.0" when the module itself serves the stream, "2.0" when another library does.
  std::string Generation() const;

 private:
  std::string module_file_;
  const hw_module_t* module_ = nullptr;
  audio_hw_device* device_ = nullptr;
  // Kept after closing: the module lets a late call on a closed stream return without harm, and the
  // capture thread may be about to make one.
  audio_stream_in* stream_ = nullptr;
  bool stream_closed_ = false;
  audio_config config_{};
  StreamFormat opened_format_;
};

}  // namespace tools

#endif
