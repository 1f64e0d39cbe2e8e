// Recordings by libsndfile; see the header.
#include "tools/tune/audio_file.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <sys/stat.h>

#include <sndfile.h>

#include "tools/common/failure.h"
#include "tools/tune/exit_codes.h"

namespace tune {
namespace {

constexpr size_t kChunkFrames = 65536;

struct CloseFile {
  void operator()(SNDFILE* file) const { sf_close(file); }
};
using File = std::unique_ptr<SNDFILE, CloseFile>;

int16_t Rounded(float sample) {
  const float scaled = std::isfinite(sample) ? sample * 32768.0f : 0.0f;
  return static_cast<int16_t>(std::lrint(std::clamp(scaled, -32768.0f, 32767.0f)));
}

// libsndfile's view of a growing text.
struct Memory {
  std::string bytes;
  sf_count_t at = 0;
};

SF_VIRTUAL_IO MemoryFunctions() {
  SF_VIRTUAL_IO io{};
  io.get_filelen = [](void* data) {
    return static_cast<sf_count_t>(static_cast<Memory*>(data)->bytes.size());
  };
  io.seek = [](sf_count_t offset, int whence, void* data) {
    auto* memory = static_cast<Memory*>(data);
    const auto size = static_cast<sf_count_t>(memory->bytes.size());
    memory->at = offset + (whence == SEEK_CUR ? memory->at : whence == SEEK_END ? size : 0);
    return memory->at;
  };
  io.read = [](void* to, sf_count_t count, void* data) {
    auto* memory = static_cast<Memory*>(data);
    const auto size = static_cast<sf_count_t>(memory->bytes.size());
    const sf_count_t got = std::clamp<sf_count_t>(size - memory->at, 0, count);
    std::memcpy(to, memory->bytes.data() + memory->at, static_cast<size_t>(got));
    memory->at += got;
    return got;
  };
  io.write = [](const void* from, sf_count_t count, void* data) {
    auto* memory = static_cast<Memory*>(data);
    const auto end = static_cast<size_t>(memory->at + count);
    memory->bytes.resize(std::max(memory->bytes.size(), end));
    std::memcpy(&memory->bytes[static_cast<size_t>(memory->at)], from, static_cast<size_t>(count));
    memory->at += count;
    return count;
  };
  io.tell = [](void* data) { return static_cast<Memory*>(data)->at; };
  return io;
}

}  // namespace

Recording ReadRecording(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    throw tools::Failure(kIo, path + ": not a regular file");
  }
  SF_INFO info{};
  const File file(sf_open(path.c_str(), SFM_READ, &info));
  if (file == nullptr) {
    throw tools::Failure(kIo, path + ": " + sf_strerror(nullptr));
  }
  if (info.channels != 2) {
    throw tools::Failure(kIo, path + " has " + std::to_string(info.channels) + " channel(s)",
                         "the library takes the two of a binaural recording");
  }
  if (info.samplerate != 48000 && info.samplerate != 44100) {
    throw tools::Failure(kIo, path + " has " + std::to_string(info.samplerate) + " Hz",
                         "convert it to 48000 or 44100 Hz");
  }
  if (info.frames > sf_count_t{kMostMinutes} * 60 * info.samplerate) {
    throw tools::Failure(kIo, path + " is longer than " + std::to_string(kMostMinutes) + " minutes",
                         "cut out the part to listen to");
  }
  Recording recording;
  recording.sample_rate_hz = static_cast<uint32_t>(info.samplerate);
  std::vector<float> chunk(2 * kChunkFrames);
  sf_count_t got = 0;
  while ((got = sf_readf_float(file.get(), chunk.data(), kChunkFrames)) > 0) {
    std::transform(chunk.begin(), chunk.begin() + 2 * got, std::back_inserter(recording.samples),
                   Rounded);
  }
  if (recording.samples.empty()) {
    throw tools::Failure(kIo, path + " holds no sound");
  }
  return recording;
}

void WriteRecording(const std::string& path, const Recording& recording, bool overwrite) {
  if (!overwrite && std::filesystem::exists(path)) {
    throw tools::Failure(kIo, path + " exists already", "choose another name, or --force");
  }
  SF_INFO info{};
  info.samplerate = static_cast<int>(recording.sample_rate_hz);
  info.channels = 2;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  const File file(sf_open(path.c_str(), SFM_WRITE, &info));
  if (file == nullptr) {
    throw tools::Failure(kIo, path + ": " + sf_strerror(nullptr));
  }
  const auto frames = static_cast<sf_count_t>(recording.frames());
  const bool written = sf_writef_short(file.get(), recording.samples.data(), frames) == frames;
  sf_write_sync(file.get());
  if (!written || sf_error(file.get()) != SF_ERR_NO_ERROR) {
    throw tools::Failure(kIo, path + " cannot be written: " + sf_strerror(file.get()));
  }
}

std::string EncodeFlac(const Recording& recording, size_t frames) {
  SF_INFO info{};
  info.samplerate = static_cast<int>(recording.sample_rate_hz);
  info.channels = 2;
  info.format = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
  Memory memory;
  SF_VIRTUAL_IO io = MemoryFunctions();
  {
    const File file(sf_open_virtual(&io, SFM_WRITE, &info, &memory));
    if (file == nullptr) {
      throw tools::Failure(kIo, std::string("FLAC: ") + sf_strerror(nullptr));
    }
    sf_writef_short(file.get(), recording.samples.data(),
                    static_cast<sf_count_t>(std::min(frames, recording.frames())));
  }
  return std::move(memory.bytes);
}

}  // namespace tune
