// A picture of a tuning as the library holds it: the response of the fixed stages, band gains and band
// energies over frequency.
#include <algorithm>
#include <cmath>
#include <fstream>

#include "tools/common/console.h"
#include "tools/common/failure.h"
#include "tools/tune/chart.h"
#include "tools/tune/commands.h"
#include "tools/tune/exit_codes.h"
#include "tools/tune/response.h"
#include "tools/tune/situation.h"
#include "tools/tune/words.h"

namespace tune {
namespace {

constexpr size_t kMostSubjects = 6;
constexpr double kWidth = 820.0;
constexpr double kHeight = 1010.0;
constexpr double kPngScale = 2.0;

// What is drawn in one style.
struct Subject {
  std::string name;
  bcap::Parameters stored;
  Response response;
};

bool LooksAlike(const Subject& a, const Subject& b) {
  return a.stored.peq_band_gain.values == b.stored.peq_band_gain.values &&
         a.stored.nfm_band_energy.values == b.stored.nfm_band_energy.values &&
         std::all_of(kAppliedParams.begin() + 1, kAppliedParams.end(),  // but for left and right
                     [&](const AppliedParam& param) {
                       return a.stored.*param.stored == b.stored.*param.stored;
                     });
}

void AddSubject(const AlgoConfigCoeff& store, const TuningRequest& request, const std::string& name,
                std::vector<Subject>* subjects) {
  TunedRuntime runtime(store, request);
  Subject subject{name, runtime.Stored(), {}};
  const bool built_in = runtime.choice().step != TuningStep::kMatched && store.btConfig != nullptr;
  subject.name += built_in ? " (built-in values)" : "";
  for (Subject& other : *subjects) {
    if (LooksAlike(other, subject)) {
      other.name += " = " + subject.name;
      return;
    }
  }
  subject.response = MeasureResponse(&runtime, request.sample_rate_hz);
  subjects->push_back(std::move(subject));
}

// Headsets and scenes that the command line means: without a headset all of the file, without a scene all
// three for one headset.
std::vector<TuningRequest> Requests(const CoefficientFile& file, const PlotOptions& options) {
  std::vector<TuningRequest> requests;
  if (options.situation.headset && !options.scene_given) {
    for (size_t scene = 0; scene < kScenes; ++scene) {
      requests.push_back(RequestForSceneIndex(*options.situation.headset, scene));
    }
  } else if (options.situation.headset) {
    requests.push_back(RequestOf(options.situation));
  } else {
    for (const std::string& name : HeadsetNames(file)) {
      TuningRequest request = RequestOf(options.situation);
      request.headset = name;
      requests.push_back(request);
    }
  }
  for (TuningRequest& request : requests) {
    request.sample_rate_hz = options.sample_rate_hz;
  }
  return requests;
}

std::vector<Subject> Subjects(const PlotOptions& options, bool* accepted) {
  const auto file = LoadForUse(options.file);
  *accepted = file->Accepted();
  std::vector<TuningRequest> requests = Requests(*file, options);
  if (requests.size() > kMostSubjects) {
    tools::TheConsole().Line("drawing the first " + std::to_string(kMostSubjects) + " of " +
                             Count(requests.size(), "headset") + "; choose with --headset");
    requests.resize(kMostSubjects);
  }
  std::vector<Subject> subjects;
  if (requests.empty()) {
    TuningRequest request = RequestOf(options.situation);
    request.sample_rate_hz = options.sample_rate_hz;
    AddSubject({}, request, "built-in values", &subjects);
  }
  for (const TuningRequest& request : requests) {
    AddSubject(file->effective(), request,
               request.headset + ", " + SceneName(static_cast<size_t>(request.scene_index())),
               &subjects);
  }
  if (options.against == "default") {
    for (const TuningRequest& request : requests) {
      AddSubject({}, request,
                 std::string("built-in, ") + SceneName(static_cast<size_t>(request.scene_index())),
                 &subjects);
    }
  } else if (!options.against.empty()) {
    const auto other = LoadForUse(options.against);
    *accepted = *accepted && other->Accepted();
    for (const TuningRequest& request : requests) {
      AddSubject(other->effective(), request,
                 request.headset + ", " + SceneName(static_cast<size_t>(request.scene_index())) +
                     " in " + options.against,
                 &subjects);
    }
  }
  return subjects;
}

// The band values as drawn: `value` of each band at its centre. The band at 0 Hz has no place on the axis.
template <typename Value>
Curve BandCurve(const std::string& name, size_t style, uint32_t rate_hz, const Value& value) {
  Curve curve{name, {}, {}, style, true};
  for (size_t band = 1; band < bcap::inspect_band_count(rate_hz); ++band) {
    curve.x.push_back(bcap::inspect_band(rate_hz, band).centre_hz);
    curve.y.push_back(value(band));
  }
  return curve;
}

std::string Summary(const Subject& subject) {
  std::string text = subject.name + ":";
  for (size_t i = 1; i < kAlgoAppliedParams; ++i) {
    const AppliedParam& param = kAppliedParams[i];
    text += std::string(i == 1 ? " " : ", ") + kAlgoParamItems[i].name + " " +
            InUnit(param.unit, subject.stored.*param.stored);
  }
  return text;
}

// Broken at blanks into lines that fit.
void AddWrapped(const std::string& text, std::vector<std::string>* lines) {
  constexpr size_t kLineLetters = 128;
  std::string rest = text;
  while (rest.size() > kLineLetters) {
    size_t end = rest.rfind(", ", kLineLetters);
    end = end == std::string::npos ? kLineLetters : end + 1;
    lines->push_back(rest.substr(0, end));
    rest = "   " + rest.substr(end);
  }
  lines->push_back(rest);
}

void DrawAll(cairo_t* cairo, const std::vector<Subject>& subjects, uint32_t rate_hz) {
  const Axis frequency{"frequency in Hz", 20.0, 20000.0, true};
  Chart response{"Response of high-pass, gain before and equaliser, measured", frequency, {}, {}};
  Chart gains{"Equaliser: band gains times amount", frequency, {}, {}};
  Chart energies{"Near-field management: band energies", frequency, {}, {}};
  std::vector<std::string> lines;
  for (size_t i = 0; i < subjects.size(); ++i) {
    const Subject& subject = subjects[i];
    response.curves.push_back({subject.name, subject.response.hz, subject.response.db, i, false});
    gains.curves.push_back(BandCurve(subject.name, i, rate_hz, [&](size_t band) {
      return subject.stored.peq_band_gain.values[band] / 16.0 * subject.stored.peq_amount / 16.0;
    }));
    // Bands at rest are left alone: a gap.
    energies.curves.push_back(BandCurve(subject.name, i, rate_hz, [&](size_t band) {
      const int32_t energy = subject.stored.nfm_band_energy.values[band];
      return energy == -2080 ? NAN : energy / 16.0;
    }));
    AddWrapped(Summary(subject), &lines);
  }
  // A high-pass goes down without end.
  Axis response_axis = AxisAround("dB", response.curves, 30.0);
  response_axis.low = std::max(response_axis.low, response_axis.high - 60.0);
  response.y = response_axis;
  gains.y = AxisAround("dB", gains.curves, 20.0);
  energies.y = AxisAround("dB of full scale", energies.curves, 20.0);
  DrawChart(cairo, {0, 0, kWidth, 340}, response);
  DrawChart(cairo, {0, 340, kWidth, 280}, gains);
  DrawChart(cairo, {0, 620, kWidth, 260}, energies);
  DrawText(cairo, {20, 888, kWidth - 40, kHeight - 888}, lines);
}

}  // namespace

int RunPlot(const PlotOptions& options) {
  const bool png =
      options.output.size() > 4 && options.output.substr(options.output.size() - 4) == ".png";
  bool accepted = false;
  const std::vector<Subject> subjects = Subjects(options, &accepted);
  // Several subjects take more lines of words.
  const double height =
      kHeight + (subjects.size() > 3 ? 48.0 * static_cast<double>(subjects.size() - 3) : 0.0);
  const Draw draw = [&](cairo_t* cairo) { DrawAll(cairo, subjects, options.sample_rate_hz); };
  const std::string picture =
      png ? RenderPng(kWidth, height, kPngScale, draw) : RenderSvg(kWidth, height, draw);
  std::ofstream file(options.output, std::ios::binary);
  file << picture;
  file.close();
  if (!file) {
    throw tools::Failure(kIo, options.output + " cannot be written");
  }
  return accepted ? kClean : kFileErrors;
}

}  // namespace tune
