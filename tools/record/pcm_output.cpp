// WAV and raw outputs of the recorder; see the header.
#include "tools/record/pcm_output.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/common/failure.h"
#include "tools/record/exit_codes.h"

namespace tools {
namespace {

// Sizes in a WAV header are 32 bits; what is left below them is room for the header itself.
constexpr uint64_t kWavDataLimitBytes = 0xFFFFFFFFull - 4096;

std::string Reason(int error) {
  return std::strerror(error);
}

int OpenFile(const std::string& path, bool overwrite) {
  const int fd =
      ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | (overwrite ? O_TRUNC : O_EXCL), 0666);
  if (fd >= 0) {
    return fd;
  }
  if (errno == EEXIST) {
    throw AlreadyExists(path);
  }
  throw Failure(kOutputError, "cannot create \"" + path + "\": " + Reason(errno),
                "check the folder, its permissions and the free space");
}

}  // namespace

Failure AlreadyExists(const std::string& path) {
  return {kOutputError, "\"" + path + "\" exists and is left as it is",
          "choose another name, or give --force to overwrite it"};
}

WavOutput::WavOutput(const std::string& path, int sample_rate_hz, int channels,
                     uint64_t expected_frames, bool overwrite)
    : path_(path), frame_bytes_(channels * 2), fd_(OpenFile(path, overwrite)) {
  struct stat status {};
  if (::fstat(fd_, &status) != 0 || !S_ISREG(status.st_mode)) {
    ::close(fd_);
    throw Failure(kOutputError,
                  "\"" + path + "\" is not an ordinary file, and a WAV header needs one",
                  "write raw PCM with \"-\" instead");
  }
  const bool large = expected_frames * static_cast<uint64_t>(frame_bytes_) > kWavDataLimitBytes;
  SF_INFO info{};
  info.samplerate = sample_rate_hz;
  info.channels = channels;
  info.format = (large ? SF_FORMAT_RF64 : SF_FORMAT_WAV) | SF_FORMAT_PCM_16;
  file_ = ::sf_open_fd(fd_, SFM_WRITE, &info, SF_FALSE);
  if (file_ == nullptr) {
    const std::string why = ::sf_strerror(nullptr);
    ::close(fd_);
    ::unlink(path_.c_str());
    throw Failure(kOutputError, "cannot begin \"" + path + "\": " + why, "check the free space");
  }
  if (large) {
    ::sf_command(file_, SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
  }
  ::sf_command(file_, SFC_UPDATE_HEADER_NOW, nullptr, 0);
  data_offset_ = ::lseek(fd_, 0, SEEK_END);
}

WavOutput::~WavOutput() {
  try {
    Close();
  } catch (const Failure&) {  // the header was valid after the last write already
  }
}

void WavOutput::Write(const int16_t* samples, size_t frames) {
  if (::sf_writef_short(file_, samples, static_cast<sf_count_t>(frames)) !=
      static_cast<sf_count_t>(frames)) {
    FailRepaired(::sf_strerror(file_));
  }
  frames_ += frames;
  ::sf_command(file_, SFC_UPDATE_HEADER_NOW, nullptr, 0);
  if (::sf_error(file_) != SF_ERR_NO_ERROR) {
    FailRepaired(::sf_strerror(file_));
  }
}

// Takes back what a failed write has left, header included. Neither step needs space on the disk.
void WavOutput::CutToWholeFrames() {
  const int64_t data_bytes = ::lseek(fd_, 0, SEEK_END) - data_offset_;
  frames_ = data_bytes > 0 ? static_cast<uint64_t>(data_bytes / frame_bytes_) : 0;
  const auto whole_bytes = static_cast<int64_t>(frames_) * frame_bytes_;
  if (::ftruncate(fd_, data_offset_ + whole_bytes) == 0) {
    ::sf_command(file_, SFC_UPDATE_HEADER_NOW, nullptr, 0);
  }
}

void WavOutput::FailRepaired(const std::string& why) {
  const int error = errno;
  CutToWholeFrames();
  throw Failure(kOutputError,
                "cannot write \"" + path_ + "\" further: " + (error != 0 ? Reason(error) : why),
                "make room and record again; the " + std::to_string(frames_) +
                    " frames written so far are a valid file");
}

void WavOutput::Close() {
  if (file_ == nullptr) {
    return;
  }
  const int result = ::sf_close(file_);
  file_ = nullptr;
  const int closed = ::close(fd_);
  if (frames_ == 0) {
    ::unlink(path_.c_str());
  } else if (result != 0 || closed != 0) {
    throw Failure(kOutputError, "cannot complete \"" + path_ + "\"", "check the free space");
  }
}

void RawOutput::Write(const int16_t* samples, size_t frames) {
  const char* data = reinterpret_cast<const char*>(samples);
  size_t left = frames * static_cast<size_t>(channels_) * sizeof(int16_t);
  while (left > 0) {
    const ssize_t written = ::write(fd_, data, left);
    if (written > 0) {
      data += written;
      left -= static_cast<size_t>(written);
    } else if (errno == EAGAIN) {
      pollfd ready{fd_, POLLOUT, 0};
      ::poll(&ready, 1, -1);
    } else if (errno != EINTR) {
      throw Failure(kOutputError, "cannot write to standard output: " + Reason(errno),
                    errno == EPIPE ? "the program that was reading has ended; check it"
                                   : "check where it leads");
    }
  }
}

}  // namespace tools
