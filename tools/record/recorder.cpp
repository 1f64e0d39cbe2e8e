// One recording. The main thread sets everything up, then watches: signals, the end of the capture
// thread, changes of the headset's session, and the time without audio. It closes the stream itself
// to end a capture thread that waits for the headset.
#include "tools/record/recorder.h"

#include <cmath>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <poll.h>
#include <sstream>
#include <sys/signalfd.h>
#include <unistd.h>

#include "platform/host/binaural_host.h"
#include "platform/virtual_headset/virtual_headset.h"
#include "tools/common/console.h"
#include "tools/common/failure.h"
#include "tools/common/log_sink.h"
#include "tools/common/paths.h"
#include "tools/common/wav_header.h"
#include "tools/record/capture.h"
#include "tools/record/exit_codes.h"
#include "tools/record/failures.h"
#include "tools/record/meter.h"
#include "tools/record/module_session.h"
#include "tools/record/module_watch.h"
#include "tools/record/parameters.h"
#include "tools/record/pcm_output.h"
#include "tools/record/report.h"

namespace tools {
namespace {

using Clock = Capture::Clock;

constexpr char kCoefficientFileOnDevice[] = "/odm/etc/binaural_record_algo_coeffs.xml";
constexpr char kCoefficientFile[] = "binaural_record_algo_coeffs.xml";
constexpr int kTickMs = 100;  // of the status line and of every check of the main thread
constexpr auto kSessionCheckPeriod = std::chrono::seconds(1);
constexpr auto kPlainProgressPeriod = std::chrono::seconds(10);
constexpr auto kLogPatience = std::chrono::milliseconds(500);  // with whoever reads standard error
constexpr int kThreadPatienceMs = 1000;  // with a capture thread whose stream is closed

double Seconds(Clock::duration time) {
  return std::chrono::duration<double>(time).count();
}

// Ending signals, as a descriptor: blocked everywhere, read by the main thread. A second one ends the
// program at once; the file is valid at any time.
class EndingSignals {
 public:
  EndingSignals() {
    ::signal(SIGPIPE, SIG_IGN);  // writes say EPIPE
    ::signal(SIGXFSZ, SIG_IGN);  // and EFBIG
    ::sigemptyset(&set_);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
      ::sigaddset(&set_, signal);
    }
    ::pthread_sigmask(SIG_BLOCK, &set_, nullptr);
    fd_ = ::signalfd(-1, &set_, SFD_CLOEXEC);
  }
  ~EndingSignals() { ::close(fd_); }
  EndingSignals(const EndingSignals&) = delete;
  EndingSignals& operator=(const EndingSignals&) = delete;

  int fd() const { return fd_; }
  void Take() {
    signalfd_siginfo info{};
    if (::read(fd_, &info, sizeof(info)) > 0) {
      ::pthread_sigmask(SIG_UNBLOCK, &set_, nullptr);
    }
  }

 private:
  sigset_t set_{};
  int fd_ = -1;
};

class Recorder {
 public:
  explicit Recorder(const RecordOptions& options) : options_(options) {}
  int Run();

 private:
  // The steps of a recording, in order.
  void CheckOutputs();
  void CheckInputs() const;
  void ConfigureHeadset() const;
  void ChooseCoefficients();
  void OpenModule();
  void CheckTuning();
  void CheckFormat() const;
  void StartCapture();
  void Watch();
  void End();

  uint64_t FramesWanted() const;
  int RateHz() const { return static_cast<int>(report_.format.rate_hz); }
  void CheckSession();
  void ShowNotices();
  void ShowProgress();
  void Say(const std::string& text) const;
  void Warn(const std::string& text) const { Say("warning: " + text); }
  void Fail(const Failure& failure);

  const RecordOptions& options_;
  EndingSignals signals_;
  Report report_;
  std::unique_ptr<ModuleSession> session_;
  std::unique_ptr<Meter> meter_;
  std::unique_ptr<PcmOutput> output_;
  std::unique_ptr<Capture> capture_;  // uses the three above and goes before them
  StreamFormat last_format_;
  uint64_t frames_wanted_ = 0;
  Clock::time_point next_session_check_;
  Clock::time_point next_progress_;
  bool interrupted_ = false;
  bool gave_up_ = false;
  bool may_report_ = false;
};

void Recorder::Say(const std::string& text) const {
  if (!options_.quiet) {
    TheConsole().Line(text);
  }
}

void Recorder::Fail(const Failure& failure) {
  TheConsole().EndStatus();
  FlushLogSink(kLogPatience);
  TheConsole().Line(std::string("binaural-record: ") + failure.what());
  const std::string module_error = LastModuleError();
  const bool of_module = failure.exit_code() >= kDeviceRefused && failure.exit_code() <= kNoAudio;
  if (of_module && !module_error.empty()) {
    TheConsole().Line("  the module's last error: " + module_error);
  }
  if (!failure.try_next().empty()) {
    TheConsole().Line("  try: " + failure.try_next());
  }
  report_.exit_code = failure.exit_code();
  report_.error = failure.what();
}

// Nothing that exists is overwritten, the report of a failure included.
void Recorder::CheckOutputs() {
  if (options_.json == options_.out || SameFile(options_.json, options_.out)) {
    throw Failure(kUsage, "the recording and the report have the same name", "choose two names");
  }
  for (const std::string& read : {options_.input, options_.coefficients, options_.fault}) {
    for (const std::string& written : {options_.out, options_.json}) {
      if (SameFile(read, written)) {
        throw Failure(kUsage, "\"" + written + "\" would be overwritten while it is read",
                      "choose another name");
      }
    }
  }
  for (const std::string& written : {options_.json, options_.out}) {
    if (!options_.force && written != "-" && ::access(written.c_str(), F_OK) == 0) {
      throw AlreadyExists(written);
    }
  }
  if (options_.out == "-" && ::isatty(STDOUT_FILENO) == 1) {
    throw Failure(kUsage, "raw PCM would go to the terminal", "send it on: ... - | aplay -f dat");
  }
  may_report_ = !options_.json.empty();
}

void Recorder::CheckInputs() const {
  for (const std::string& read : {options_.input, options_.coefficients, options_.fault}) {
    if (!read.empty() && !std::ifstream(read).good()) {
      throw Failure(kUsage, "cannot read \"" + read + "\"", "check the name and its permissions");
    }
  }
}

void Recorder::ConfigureHeadset() const {
  namespace session = vendor::corva::bluetooth_audio_extend;
  virtual_headset::Settings settings;
  if (!options_.input.empty()) {
    settings.source = virtual_headset::Source::kWavFile;
    settings.wav_path = options_.input;
  } else {
    settings.source = options_.source == "tone"      ? virtual_headset::Source::kTone
                      : options_.source == "silence" ? virtual_headset::Source::kSilence
                                                     : virtual_headset::Source::kScene;
    settings.parameters =
        session::PcmParameters{options_.rate_hz == 44100 ? session::SampleRate::RATE_44100
                                                         : session::SampleRate::RATE_48000,
                               session::ChannelMode::STEREO, session::BitsPerSample::BITS_16};
  }
  settings.pacing =
      options_.fast ? virtual_headset::Pacing::kAsFastAsRead : virtual_headset::Pacing::kRealTime;
  std::string error;
  if (!virtual_headset::Configure(settings, &error)) {
    throw Failure(kUsage, error, "give a WAV file of 44100 or 48000 Hz, or use --source scene");
  }
  if (!options_.fault.empty()) {
    std::ostringstream text;
    text << std::ifstream(options_.fault).rdbuf();
    if (!virtual_headset::LoadScript(text.str(), options_.fault, &error)) {
      throw Failure(kUsage, error, "see the fault language in the virtual headset's guide");
    }
  }
}

// Without a file the module works with its built-in tuning.
void Recorder::ChooseCoefficients() {
  report_.coefficients = options_.coefficients.empty()
                             ? FindBeside({"../etc", "../share/binaural-record"}, kCoefficientFile)
                             : options_.coefficients;
  host_redirect(kCoefficientFileOnDevice, report_.coefficients.c_str());
}

// Parameters go before the stream: the module takes them up when it opens one.
void Recorder::OpenModule() {
  for (const std::string& warning : ParameterWarnings(options_)) {
    Warn(warning);
  }
  if (const std::string shortfall = WavShortfall(options_.input); !shortfall.empty()) {
    Warn(shortfall);
  }
  session_ = std::make_unique<ModuleSession>(options_.module);
  report_.module = session_->module_file();
  session_->OpenDevice();
  for (const std::string& text : InitialParameters(options_)) {
    const int result = session_->SetParameters(text);
    if (result != 0) {
      Warn("\"" + text + "\" was refused with " + std::to_string(result));
    }
  }
  session_->OpenStream();
  report_.generation = session_->Generation();
  last_format_ = report_.format = session_->opened_format();
  report_.period_bytes = session_->PeriodBytes();
  report_.request_bytes = report_.period_bytes * static_cast<size_t>(options_.periods);
  report_.device_buffer_bytes = session_->DeviceBufferBytes();
  CheckTuning();
  CheckFormat();
}

// The module says only in its log that it works from its built-in tuning.
void Recorder::CheckTuning() {
  if (report_.coefficients.empty()) {
    return;
  }
  report_.coefficients_refused = CoefficientRefusal();
  const bool taken = report_.coefficients_refused.empty();
  report_.tuned_from_file = taken && (report_.generation != "1.0" || TunedFromFile());
  const std::string file = "\"" + report_.coefficients + "\"";
  if (!taken) {
    Warn("the module does not use " + file + " but its built-in tuning (" +
         report_.coefficients_refused +
         "); \"binaural-tune lint\" says what is wrong with the file");
  } else if (!report_.tuned_from_file &&
             (!options_.headset.empty() || !options_.coefficients.empty())) {
    Warn(file + " has no tuning for " +
         (options_.headset.empty() ? "a headset without a name"
                                   : "the headset \"" + options_.headset + "\"") +
         " in this scene and mode, so the module uses its built-in one; \"binaural-tune show\" " +
         "lists the headsets of the file");
  }
}

void Recorder::CheckFormat() const {
  const int channels = report_.format.Channels();
  if (report_.period_bytes == 0 || channels < 1 || channels > 2) {
    throw Failure(kStreamRefused,
                  "the stream offers " + report_.format.Text() + ", which is no audio",
                  "use a stereo session");
  }
  if (channels == 1) {
    Warn("the headset's session is mono, whose audio the module's buffers never deliver");
  }
  if (report_.format.format != AUDIO_FORMAT_PCM_16_BIT) {
    const std::string what = "the headset's session delivers " + report_.format.Text() +
                             ", which the module processes as 16 bit: noise at full scale";
    if (!options_.force) {
      throw Failure(kStreamRefused, what, "use a session of 16 bits; --force records the noise");
    }
    Warn(what);
  }
}

uint64_t Recorder::FramesWanted() const {
  const std::optional<uint64_t> in_file = virtual_headset::FramesLeft();
  if (!options_.duration_s && in_file) {
    return *in_file;
  }
  const double seconds = options_.duration_s.value_or(kDefaultDurationS);
  const auto frames = static_cast<uint64_t>(std::llround(seconds * RateHz()));
  if (in_file && frames > *in_file) {
    Warn("\"" + options_.input + "\" is shorter than the recording; silence follows it");
  }
  return frames;
}

void Recorder::StartCapture() {
  const int channels = report_.format.Channels();
  frames_wanted_ = FramesWanted();
  if (frames_wanted_ == 0) {
    throw Failure(kNoAudio, "there is nothing to record: the input or the duration is empty",
                  "give another --input or a longer --duration");
  }
  meter_ = std::make_unique<Meter>(channels, RateHz());
  if (options_.out == "-") {
    output_ = std::make_unique<RawOutput>(STDOUT_FILENO, channels);
  } else {
    output_ = std::make_unique<WavOutput>(options_.out, RateHz(), channels, frames_wanted_,
                                          options_.force);
  }
  Say("Recording " + TimeText(static_cast<double>(frames_wanted_) / RateHz()) + " of " +
      (options_.input.empty() ? "the built-in " + options_.source : options_.input) + " to " +
      (options_.out == "-" ? "standard output" : options_.out) + ": " + report_.format.Text() +
      ", algorithm " + report_.generation + ", tuning " +
      (report_.tuned_from_file ? report_.coefficients : "built in"));
  capture_ = std::make_unique<Capture>(
      CapturePlan{frames_wanted_, report_.request_bytes, RateHz(), channels, options_.at},
      *session_, *output_, *meter_);
  next_session_check_ = Clock::now() + kSessionCheckPeriod;
  next_progress_ = Clock::now() + kPlainProgressPeriod;
  capture_->Start();
}

void Recorder::Watch() {
  while (!capture_->ended() && !interrupted_ && !gave_up_) {
    pollfd events[] = {{signals_.fd(), POLLIN, 0}, {capture_->ended_fd(), POLLIN, 0}};
    ::poll(events, 2, kTickMs);
    if ((events[0].revents & POLLIN) != 0) {
      signals_.Take();
      interrupted_ = true;
    }
    gave_up_ = !capture_->ended() && Clock::now() - capture_->last_audio() >
                                         std::chrono::duration<double>(options_.give_up_s);
    CheckSession();
    ShowNotices();
    ShowProgress();
  }
}

// The module tells nobody that the headset's session has changed; its getters do.
void Recorder::CheckSession() {
  if (Clock::now() < next_session_check_ && !capture_->ended()) {
    return;
  }
  next_session_check_ = Clock::now() + kSessionCheckPeriod;
  const StreamFormat format = session_->CurrentFormat();
  if (!(format == last_format_)) {
    Warn("the headset's session changed from " + last_format_.Text() + " to " + format.Text() +
         "; the recording goes on as " + report_.format.Text() +
         ", so its pitch and sound may be wrong: start a new one");
    last_format_ = format;
    ++report_.session_changes;
  }
}

void Recorder::ShowNotices() {
  for (const std::string& notice : capture_->TakeNotices()) {
    Say(notice);
  }
}

void Recorder::ShowProgress() {
  if (options_.quiet) {
    return;
  }
  const double wanted_s = static_cast<double>(frames_wanted_) / RateHz();
  if (TheConsole().terminal()) {
    TheConsole().Status(StatusLine(*capture_, *meter_, wanted_s, RateHz(), session_->PortState(),
                                   TheConsole().Width()));
  } else if (Clock::now() >= next_progress_) {
    next_progress_ += kPlainProgressPeriod;
    Say(ProgressText(*capture_, *meter_, wanted_s, RateHz()));
  }
}

void Recorder::End() {
  report_.port_state = session_->PortState();
  const bool nothing_in_writing = capture_->Stop();
  session_->CloseStream();  // makes a waiting read return
  pollfd ended{capture_->ended_fd(), POLLIN, 0};
  ::poll(&ended, 1, kThreadPatienceMs);
  ShowNotices();
  TheConsole().EndStatus();
  if (nothing_in_writing) {
    output_->Close();
  }
  if (capture_->ended()) {
    capture_->Join();
  }
  if (gave_up_ && !interrupted_) {
    throw NoAudio(report_.format, ModeInEffect(options_, capture_->parameters_sent()),
                  report_.port_state, LastEmptyRead() > capture_->last_audio(),
                  static_cast<double>(capture_->frames()) / RateHz());
  }
  for (size_t i = capture_->parameters_sent(); i < options_.at.size(); ++i) {
    Warn("the recording ended before \"" + options_.at[i].parameters + "\" was due");
  }
  report_.outcome = interrupted_ ? "interrupted" : "done";
  Say((interrupted_ ? "Interrupted: " : "Done: ") + Summary(*capture_, *meter_, RateHz()));
}

int Recorder::Run() {
  InstallLogSink(options_.verbose > 1    ? LogShown::kEverything
                 : options_.verbose == 1 ? LogShown::kInfoAndAbove
                                         : LogShown::kNothing,
                 WatchModuleLog);
  const Clock::time_point began = Clock::now();
  try {
    CheckOutputs();
    CheckInputs();
    ConfigureHeadset();
    ChooseCoefficients();
    OpenModule();
    StartCapture();
    Watch();
    End();
  } catch (const Failure& failure) {
    Fail(failure);
  } catch (const std::exception& error) {
    Fail(Failure(kOutputError, std::string("cannot go on: ") + error.what()));
  }
  report_.elapsed_s = Seconds(Clock::now() - began);
  try {
    if (may_report_) {
      WriteJsonReport(options_, report_, capture_.get(), meter_.get());
    }
  } catch (const Failure& failure) {
    Fail(failure);
  }
  if (capture_ != nullptr && !capture_->ended()) {
    // The headset, or whoever reads standard output, never let the capture thread go. Nothing may be
    // destroyed under it, and a WAV file is complete already.
    FlushLogSink(kLogPatience);
    std::_Exit(report_.exit_code);
  }
  capture_.reset();
  session_.reset();
  FlushLogSink(kLogPatience);
  return report_.exit_code;
}

}  // namespace

int Record(const RecordOptions& options) {
  return Recorder(options).Run();
}

}  // namespace tools
