// The page's parts in the order in which they appear; see the header.
#include "tools/tune/report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>

#include "tools/common/failure.h"
#include "tools/tune/chart.h"
#include "tools/tune/exit_codes.h"
#include "tools/tune/words.h"

namespace tune {
namespace {

constexpr double kWidth = 960.0;
constexpr double kPngScale = 1.5;
constexpr double kSpectrogramSpanDb = 90.0;
constexpr double kPlayedSeconds = 180.0;  // more would make the page too heavy to open

constexpr char kStyle[] = R"(
  body { font: 15px/1.5 system-ui, "Segoe UI", "DejaVu Sans", sans-serif; color: #1a1a1a; background: #fff;
         max-width: 1000px; margin: 2rem auto; padding: 0 1rem; }
  h1 { font-size: 1.5rem; margin: 0 0 .3rem; } h2 { font-size: 1.1rem; margin: 2rem 0 .5rem; }
  p { margin: .3rem 0; } .quiet { color: #555; }
  table { border-collapse: collapse; margin: .5rem 0; font-variant-numeric: tabular-nums; }
  th, td { padding: .2rem .8rem; text-align: right; border-bottom: 1px solid #ddd; }
  th:first-child, td:first-child { text-align: left; } th { background: #f4f4f4; font-weight: 600; }
  td.words { text-align: left; }
  img { width: 100%; height: auto; display: block; margin: .4rem 0; }
  .players { display: grid; grid-template-columns: 1fr 1fr; gap: 1rem; } audio { width: 100%; }
  button { font: inherit; padding: .3rem 1rem; margin-top: .6rem; }
  .clamped { background: #fff0d8; }
  @media print { .players, button { display: none; } }
)";

// Both players run from one position, so that the ear compares the same moment.
constexpr char kScript[] = R"(
  const players = [document.getElementById("before"), document.getElementById("after")];
  let heard = 0;
  document.getElementById("change").onclick = () => {
    const from = players[heard], to = players[1 - heard];
    const playing = !from.paused;
    to.currentTime = from.currentTime;
    from.pause();
    if (playing) to.play();
    heard = 1 - heard;
  };
  players.forEach((player, index) => player.addEventListener("play", () => {
    heard = index;
    players[1 - index].pause();
  }));
)";

std::string Base64(const std::string& bytes) {
  constexpr char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve(bytes.size() / 3 * 4 + 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    uint32_t group = 0;
    const size_t count = std::min<size_t>(3, bytes.size() - i);
    for (size_t k = 0; k < 3; ++k) {
      group = group << 8 | (k < count ? static_cast<unsigned char>(bytes[i + k]) : 0u);
    }
    for (size_t k = 0; k < 4; ++k) {
      text += k <= count ? kLetters[group >> (18 - 6 * k) & 63] : '=';
    }
  }
  return text;
}

std::string Image(const std::string& kind, const std::string& bytes,
                  const std::string& alternative) {
  return "<img alt=\"" + EscapedForXml(alternative) + "\" src=\"data:image/" + kind + ";base64," +
         Base64(bytes) + "\">\n";
}

// A chart as a vector picture of its own, so that ids inside it meet no others.
std::string ChartImage(const Chart& chart, double height) {
  return Image("svg+xml",
               RenderSvg(kWidth, height,
                         [&](cairo_t* cairo) {
                           DrawChart(cairo, {0, 0, kWidth, height}, chart);
                         }),
               chart.title);
}

Axis TimeAxis(const Recording& recording) {
  return {"time in s", 0.0, std::max(recording.seconds(), 0.1), false};
}

std::string Spectrograms(const ReportContent& content) {
  const Spectrogram before(content.input);
  const Spectrogram after(content.processed.recording);
  const double top = std::ceil(std::max(before.highest(), after.highest()) / 10.0) * 10.0;
  std::string html;
  for (const auto& [name, spectrogram] :
       {std::pair("before", &before), std::pair("after", &after)}) {
    const HeatMap map{std::string("Spectrogram ") + name + ", both ears",
                      TimeAxis(content.input),
                      {"frequency in Hz", 50.0, 20000.0, true},
                      {"dB of full scale", top - kSpectrogramSpanDb, top, false},
                      [s = spectrogram](double seconds, double hz) { return s->At(seconds, hz); }};
    constexpr double kHeight = 300.0;
    html += Image("png",
                  RenderPng(kWidth, kHeight, kPngScale,
                            [&](cairo_t* cairo) {
                              DrawHeatMap(cairo, {0, 0, kWidth, kHeight}, map);
                            }),
                  map.title);
  }
  return html;
}

std::string AverageSpectra(const ReportContent& content) {
  Chart chart{
      "Average spectrum in thirds of an octave", {"frequency in Hz", 40.0, 20000.0, true}, {}, {}};
  size_t style = 0;
  for (const auto& [name, recording] :
       {std::pair("before", &content.input), std::pair("after", &content.processed.recording)}) {
    for (const size_t channel : {0, 1}) {
      const Course course = AverageSpectrum(*recording, channel);
      chart.curves.push_back({std::string(name) + (channel == 0 ? ", left" : ", right"), course.x,
                              course.y, style++, false});
    }
  }
  chart.y = AxisAround("dB of full scale", chart.curves, 30.0);
  chart.y.low = std::max(chart.y.low, chart.y.high - 100.0);
  return ChartImage(chart, 320.0);
}

using Measure = Course (*)(const Recording&);

// As many points as a picture can show: of each group of points the lowest and the highest.
void Thin(Curve* curve) {
  constexpr size_t kMostPoints = 2400;
  const size_t group = curve->y.size() / (kMostPoints / 2) + 1;
  if (curve->y.size() <= kMostPoints) {
    return;
  }
  Curve thin{curve->name, {}, {}, curve->style, false};
  for (size_t begin = 0; begin < curve->y.size(); begin += group) {
    const auto first = curve->y.begin() + static_cast<std::ptrdiff_t>(begin);
    const auto last =
        curve->y.begin() + static_cast<std::ptrdiff_t>(std::min(begin + group, curve->y.size()));
    const auto [lowest, highest] = std::minmax_element(first, last);
    for (const auto& extreme : {std::min(lowest, highest), std::max(lowest, highest)}) {
      thin.x.push_back(curve->x[static_cast<size_t>(extreme - curve->y.begin())]);
      thin.y.push_back(*extreme);
    }
  }
  *curve = std::move(thin);
}

std::string OverTime(const ReportContent& content, const std::string& title,
                     const std::string& label, Measure measure, double least_span) {
  Chart chart{title, TimeAxis(content.input), {}, {}};
  for (const auto& [name, recording] :
       {std::pair("before", &content.input), std::pair("after", &content.processed.recording)}) {
    const Course course = measure(*recording);
    chart.curves.push_back({name, course.x, course.y, chart.curves.size(), false});
    Thin(&chart.curves.back());
  }
  chart.y = AxisAround(label, chart.curves, least_span);
  return ChartImage(chart, 260.0);
}

struct StageCourse {
  const char* name;
  float bcap::BlockReport::*value;
  float sign;
};

std::string StageActivity(const ReportContent& content, const std::string& title,
                          const std::vector<StageCourse>& courses) {
  Chart chart{title, TimeAxis(content.input), {}, {}};
  const double block_seconds = static_cast<double>(kBcapBlockFrames) / content.input.sample_rate_hz;
  for (const StageCourse& course : courses) {
    Curve curve{course.name, {}, {}, chart.curves.size(), false};
    for (size_t i = 0; i < content.processed.blocks.size(); ++i) {
      curve.x.push_back(static_cast<double>(i) * block_seconds - content.processed.delay_seconds);
      curve.y.push_back(course.sign * (content.processed.blocks[i].*course.value));
    }
    Thin(&curve);
    chart.curves.push_back(std::move(curve));
  }
  chart.y = AxisAround("gain in dB", chart.curves, 10.0);
  return ChartImage(chart, 240.0);
}

std::string LevelTable(const ReportContent& content) {
  std::string html = "<table><tr><th></th><th>before, left</th><th>right</th><th>both</th>"
                     "<th>after, left</th><th>right</th><th>both</th></tr>\n";
  const auto row = [&](const char* name, double ChannelLevels::*value, double Levels::*both) {
    html += std::string("<tr><td>") + name + "</td>";
    for (const Levels* levels : {&content.before, &content.after}) {
      for (const ChannelLevels& channel : levels->channels) {
        html += "<td>" + (value == nullptr ? "" : OneDecimal(channel.*value)) + "</td>";
      }
      html += "<td>" + (both == nullptr ? "" : OneDecimal(levels->*both)) + "</td>";
    }
    html += "</tr>\n";
  };
  row("loudness, LUFS", &ChannelLevels::loudness_lufs, &Levels::loudness_lufs);
  row("loudness range, LU", nullptr, &Levels::range_lu);
  row("true peak, dBTP", &ChannelLevels::true_peak_dbtp, nullptr);
  row("noise floor, dBFS", &ChannelLevels::noise_floor_dbfs, nullptr);
  return html + "</table>\n";
}

std::string TuningTable(const ReportContent& content) {
  std::string html = "<table><tr><th>parameter</th><th>asked</th><th>applied</th><th></th></tr>\n";
  for (size_t i = 0; i < kAlgoAppliedParams; ++i) {
    const int32_t wanted = content.wanted.*kAlgoParamItems[i].field;
    const int32_t value = content.stored.*kAppliedParams[i].stored;
    html += std::string(value != wanted ? "<tr class=\"clamped\">" : "<tr>") + "<td>" +
            kAlgoParamItems[i].name + "</td><td>" + std::to_string(wanted) + "</td><td>" +
            std::to_string(value) + "</td><td class=\"words\">" +
            InUnit(kAppliedParams[i].unit, value) + "</td></tr>\n";
  }
  return html + "</table>\n";
}

std::string Player(const char* id, const std::string& name, const Recording& recording) {
  const auto frames = static_cast<size_t>(kPlayedSeconds * recording.sample_rate_hz);
  return std::string("<div><p><strong>") + id + "</strong> <span class=\"quiet\">" +
         EscapedForXml(name) + "</span></p><audio controls preload=\"metadata\" id=\"" + id +
         "\" src=\"data:audio/flac;base64," + Base64(EncodeFlac(recording, frames)) +
         "\"></audio></div>\n";
}

}  // namespace

void WriteReport(const std::string& path, const ReportContent& content) {
  std::ofstream file(path, std::ios::binary);
  file << "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
       << "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>"
       << EscapedForXml(content.input_name) << ", before and after</title>\n<style>" << kStyle
       << "</style></head><body>\n<h1>Before and after</h1>\n<p>" << EscapedForXml(content.choice)
       << "</p>\n<p class=\"quiet\">" << EscapedForXml(content.speed)
       << "; the library's delay is removed.</p>\n";
  file << "<h2>Listen</h2>\n<div class=\"players\">\n"
       << Player("before", content.input_name, content.input)
       << Player("after", content.output_name, content.processed.recording)
       << "</div>\n<button id=\"change\">Change over at the same moment</button>\n<p "
          "class=\"quiet\">"
       << (content.matched ? "Both play at the same loudness; the pictures show the output so, the "
                             "table as it was before."
                           : "Levels are as processed: the louder one often seems the better one.")
       << (content.input.seconds() > kPlayedSeconds ? " The players hold the first three minutes."
                                                    : "")
       << "</p>\n";
  file << "<h2>Levels</h2>\n" << LevelTable(content);
  file << "<h2>Pictures</h2>\n"
       << Spectrograms(content) << AverageSpectra(content)
       << OverTime(content, "Loudness over time (short-term, 3 s)", "LUFS", ShortTermLoudness, 20.0)
       << OverTime(content, "Level difference between the ears over time", "left over right in dB",
                   LevelDifference, 10.0)
       << StageActivity(content, "Limiter activity",
                        {{"behind the gain before", &bcap::BlockReport::pregain_limiter_db, 1.0f},
                         {"at the end", &bcap::BlockReport::postgain_limiter_db, 1.0f}})
       << StageActivity(content, "What other stages did",
                        {{"make-up gain", &bcap::BlockReport::make_up_gain_db, 1.0f},
                         {"noise reduction", &bcap::BlockReport::noise_reduction_db, -1.0f},
                         {"wearer's voice held", &bcap::BlockReport::near_field_db,
                          -static_cast<float>(content.stored.nfm_amount) / 16.0f}});
  file << "<h2>Tuning</h2>\n"
       << TuningTable(content) << "<script>" << kScript << "</script>\n</body></html>\n";
  file.close();
  if (!file) {
    throw tools::Failure(kIo, path + " cannot be written");
  }
}

}  // namespace tune
