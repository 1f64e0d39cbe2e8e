// Summary, status line and JSON report of the recorder; see the header.
#include "tools/record/report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tools/common/failure.h"
#include "tools/record/capture.h"
#include "tools/record/exit_codes.h"
#include "tools/record/meter.h"

namespace tools {
namespace {

using Json = nlohmann::ordered_json;

// JSON has no infinity: silence has no level.
Json Level(double decibels) {
  return std::isfinite(decibels) ? Json(decibels) : Json(nullptr);
}
Json TextOrNull(const std::string& text) {
  return text.empty() ? Json(nullptr) : Json(text);
}

double Milliseconds(Capture::Clock::duration time) {
  return std::chrono::duration<double, std::milli>(time).count();
}

std::string LevelText(double decibels) {
  char text[16] = "-inf";
  if (std::isfinite(decibels)) {
    std::snprintf(text, sizeof(text), "%.1f", decibels);
  }
  return text;
}

// A bar of `width` columns for -60 to 0 dB.
std::string Bar(double decibels, int width) {
  const double part = std::clamp((decibels + 60.0) / 60.0, 0.0, 1.0);
  const int filled = static_cast<int>(std::lround(part * width));
  return std::string(static_cast<size_t>(filled), '=') +
         std::string(static_cast<size_t>(width - filled), ' ');
}

Json Peaks(const Meter& meter) {
  Json peaks = Json::array();
  for (int channel = 0; channel < meter.channels(); ++channel) {
    peaks.push_back(Level(DbFullScale(meter.peak(static_cast<size_t>(channel)))));
  }
  return peaks;
}

}  // namespace

std::string TimeText(double seconds) {
  const auto tenths = static_cast<int64_t>(seconds * 10.0 + 1e-6);
  const int64_t whole = tenths / 10;
  char text[40];
  if (whole >= 3600) {
    std::snprintf(text, sizeof(text), "%lld:%02lld:%02lld.%lld",
                  static_cast<long long>(whole / 3600), static_cast<long long>(whole / 60 % 60),
                  static_cast<long long>(whole % 60), static_cast<long long>(tenths % 10));
  } else {
    std::snprintf(text, sizeof(text), "%02lld:%02lld.%lld", static_cast<long long>(whole / 60),
                  static_cast<long long>(whole % 60), static_cast<long long>(tenths % 10));
  }
  return text;
}

std::string StatusLine(const Capture& capture, Meter& meter, double wanted_s, int rate_hz,
                       const std::string& port_state, int width) {
  const double recorded_s = static_cast<double>(capture.frames()) / rate_hz;
  const int percent = static_cast<int>(std::min(100.0, 100.0 * recorded_s / wanted_s));
  std::array<double, 2> peak{};
  for (size_t channel = 0; channel < peak.size(); ++channel) {
    peak[channel] = DbFullScale(meter.TakePeak(std::min(channel, size_t(meter.channels()) - 1)));
  }
  char head[64];
  std::snprintf(head, sizeof(head), "%s/%s %3d%%", TimeText(recorded_s).c_str(),
                TimeText(wanted_s).c_str(), percent);
  char tail[96];
  std::snprintf(tail, sizeof(tail), " clips %llu  failed %llu  %s",
                static_cast<unsigned long long>(meter.clipped_samples()),
                static_cast<unsigned long long>(capture.failed_reads()), port_state.c_str());
  const std::string left = head;
  const std::string right = tail;
  const int levels = 2 * 11;  // " L[", "]" and five columns of number and blank, twice
  const int room = width - 1 - static_cast<int>(left.size() + right.size()) - levels;
  const int bar = std::clamp(room / 2, 0, 24);
  std::string line = left;
  for (size_t channel = 0; channel < peak.size(); ++channel) {
    char level[8];
    std::snprintf(level, sizeof(level), "%5s", LevelText(peak[channel]).c_str());
    line += std::string(channel == 0 ? " L[" : " R[") + Bar(peak[channel], bar) + "] " + level;
  }
  line += right;
  return line.substr(0, static_cast<size_t>(std::max(0, width - 1)));
}

std::string ProgressText(const Capture& capture, const Meter& meter, double wanted_s, int rate_hz) {
  return TimeText(static_cast<double>(capture.frames()) / rate_hz) + " of " + TimeText(wanted_s) +
         ", " + std::to_string(meter.clipped_samples()) + " clipped samples, " +
         std::to_string(capture.failed_reads()) + " failed reads";
}

std::string Summary(const Capture& capture, const Meter& meter, int rate_hz) {
  std::string peaks;
  for (int channel = 0; channel < meter.channels(); ++channel) {
    peaks += (channel == 0 ? " L " : " R ") + LevelText(DbFullScale(meter.peak(size_t(channel))));
  }
  char text[64];
  std::snprintf(text, sizeof(text), "%.2f s, %llu frames",
                static_cast<double>(capture.frames()) / rate_hz,
                static_cast<unsigned long long>(capture.frames()));
  return text + (", peak" + peaks) + " dBFS, loudness " +
         LevelText(meter.IntegratedLoudnessLufs()) + " LUFS, " +
         std::to_string(meter.clipped_samples()) + " clipped samples, " +
         std::to_string(capture.failed_reads()) + " failed reads";
}

void WriteJsonReport(const RecordOptions& options, const Report& report, const Capture* capture,
                     const Meter* meter) {
  Json json;
  json["program"] = "binaural-record " BINAURAL_VERSION;
  json["outcome"] = report.outcome;
  json["exit_code"] = report.exit_code;
  json["error"] = TextOrNull(report.error);
  json["output"] = options.out;
  json["source"] = options.input.empty() ? options.source : options.input;
  json["pacing"] = options.fast ? "fast" : "real time";
  json["module"] = TextOrNull(report.module);
  json["generation"] = TextOrNull(report.generation);
  json["coefficients"] = TextOrNull(report.coefficients);
  json["coefficients_refused"] = TextOrNull(report.coefficients_refused);
  json["tuned_from_file"] = report.tuned_from_file;
  json["sample_rate_hz"] = report.format.rate_hz;
  json["channels"] = report.format.Channels();
  json["sizes"] = {{"period_bytes", report.period_bytes},
                   {"request_bytes", report.request_bytes},
                   {"device_buffer_bytes", report.device_buffer_bytes}};
  json["elapsed_s"] = report.elapsed_s;
  json["session_changes"] = report.session_changes;
  json["port_state"] = TextOrNull(report.port_state);
  // The same keys in every report, also in one of a recording that never began.
  const bool began = capture != nullptr && meter != nullptr;
  const uint64_t frames = began ? capture->frames() : 0;
  json["frames"] = frames;
  json["duration_s"] = frames > 0 ? static_cast<double>(frames) / report.format.rate_hz : 0.0;
  json["reads"] = began ? capture->reads() : 0;
  json["failed_reads"] = began ? capture->failed_reads() : 0;
  json["time_to_first_sample_ms"] =
      frames > 0 ? Json(Milliseconds(capture->time_to_first_sample())) : Json(nullptr);
  json["peak_dbfs"] = began ? Peaks(*meter) : Json::array();
  json["clipped_samples"] = began ? meter->clipped_samples() : 0;
  json["integrated_loudness_lufs"] = began ? Level(meter->IntegratedLoudnessLufs()) : Json(nullptr);
  std::ofstream file(options.json, std::ios::trunc);
  // Names come from the command line and need not be UTF-8.
  file << json.dump(2, ' ', false, Json::error_handler_t::replace) << "\n";
  file.close();
  if (!file) {
    throw Failure(kOutputError, "cannot write the report \"" + options.json + "\"",
                  "check the folder and the free space; the recording itself is not affected");
  }
}

}  // namespace tools
