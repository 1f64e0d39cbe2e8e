// The recorder's run of the module; see the header.
#include "tools/record/module_session.h"

#include <dlfcn.h>

#include "platform/host/binaural_host.h"
#include "platform/host/host_loader.h"
#include "tools/common/failure.h"
#include "tools/common/log_sink.h"
#include "tools/common/paths.h"
#include "tools/record/exit_codes.h"
#include "tools/record/failures.h"
#include "tools/record/module_watch.h"

namespace tools {
namespace {

constexpr char kModuleName[] = "audio.binaural_record.default.so";

// The folder that a loader of this width searches on a device, and the one the module takes its 2.0
// library from: both lead to the folder of the module in use.
#ifdef __LP64__
constexpr char kModuleFolder[] = "/odm/lib64/hw";
#else
constexpr char kModuleFolder[] = "/odm/lib/hw";
#endif
constexpr char kLibraryFolder[] = "/odm/lib64/hw";

}  // namespace

int StreamFormat::Channels() const {
  return static_cast<int>(audio_channel_count_from_in_mask(channel_mask));
}

bool StreamFormat::operator==(const StreamFormat& other) const {
  return rate_hz == other.rate_hz && channel_mask == other.channel_mask && format == other.format;
}

std::string StreamFormat::Text() const {
  const int channels = Channels();
  return std::to_string(rate_hz) + " Hz, " + std::to_string(channels) +
         (channels == 1 ? " channel, " : " channels, ") +
         std::to_string(audio_bytes_per_sample(format) * 8) + " bit";
}

ModuleSession::ModuleSession(const std::string& module_file) {
  std::string folder;
  if (module_file.empty()) {
    const std::string found = FindBeside({"../lib", "../lib/binaural-record"}, kModuleName);
    if (found.empty()) {
      throw Failure(kModuleNotLoadable,
                    std::string("no ") + kModuleName + " lies beside this program",
                    "build it, or name a module with --module FILE");
    }
    folder = FolderOf(found);
  } else {
    folder = FolderOf(module_file);
  }
  host_redirect(kLibraryFolder, folder.c_str());
  host_redirect(kModuleFolder, folder.c_str());
  module_file_ = module_file.empty() ? folder + "/" + kModuleName : module_file;
  // A bare name would be searched for in the system's library folders.
  const std::string path =
      module_file_.find('/') == std::string::npos ? "./" + module_file_ : module_file_;
  const int result =
      module_file.empty()
          ? hw_get_module_by_class(AUDIO_HARDWARE_MODULE_ID, "binaural_record", &module_)
          : host_load_module(path.c_str(), AUDIO_HARDWARE_MODULE_ID, &module_);
  if (result != 0) {
    throw Failure(kModuleNotLoadable,
                  "the module cannot be loaded: " + std::string(host_loader_error()),
                  "check the file and that every library it needs is installed (ldd FILE)");
  }
}

ModuleSession::~ModuleSession() {
  CloseStream();
  if (device_ != nullptr) {
    device_->common.close(&device_->common);
  }
}

void ModuleSession::OpenDevice() {
  hw_device_t* device = nullptr;
  const int result = module_->methods->open(module_, AUDIO_HARDWARE_INTERFACE, &device);
  if (result != 0 || device == nullptr) {
    throw Failure(kDeviceRefused,
                  "the module does not open its device (" + std::to_string(result) + ")",
                  "run again with -v and look at the module's own messages");
  }
  device_ = reinterpret_cast<audio_hw_device*>(device);
  const int check = device_->init_check(device_);
  if (check != 0) {
    throw Failure(kDeviceRefused, "the device failed its own check (" + std::to_string(check) + ")",
                  "run again with -v and look at the module's own messages");
  }
}

void ModuleSession::OpenStream() {
  config_.sample_rate = 48000;
  config_.channel_mask = AUDIO_CHANNEL_IN_STEREO;
  config_.format = AUDIO_FORMAT_PCM_16_BIT;
  const int result =
      device_->open_input_stream(device_, 1, AUDIO_DEVICE_IN_PROXY, &config_, &stream_,
                                 AUDIO_INPUT_FLAG_NONE, "", AUDIO_SOURCE_CAMCORDER);
  opened_format_ = {config_.sample_rate, config_.channel_mask, config_.format};
  if (result != 0 || stream_ == nullptr) {
    CloseStream();  // a refused open may leave a stream, and nobody else would close it
    throw StreamRefused(result, opened_format_);
  }
}

void ModuleSession::CloseStream() {
  if (stream_ != nullptr && !stream_closed_) {
    stream_closed_ = true;
    device_->close_input_stream(device_, stream_);
  }
}

int ModuleSession::SetParameters(const std::string& text) {
  return device_->set_parameters(device_, text.c_str());
}

StreamFormat ModuleSession::CurrentFormat() const {
  const MuteLogScope mute;
  const audio_stream& stream = stream_->common;
  return {stream.get_sample_rate(&stream), stream.get_channels(&stream),
          stream.get_format(&stream)};
}

size_t ModuleSession::PeriodBytes() const {
  const MuteLogScope mute;
  return stream_->common.get_buffer_size(&stream_->common);
}

size_t ModuleSession::DeviceBufferBytes() const {
  return device_->get_input_buffer_size(device_, &config_);
}

std::string ModuleSession::PortState() const {
  // The stream has no query for it, but names it in the INFO line of this one.
  PeriodBytes();
  return LastPortState();
}

std::string ModuleSession::Generation() const {
  Dl_info code{};
  Dl_info module{};
  const bool known = ::dladdr(reinterpret_cast<void*>(stream_->read), &code) != 0 &&
                     ::dladdr(module_, &module) != 0;
  return known && code.dli_fbase == module.dli_fbase ? "1.0" : "2.0";
}

}  // namespace tools
