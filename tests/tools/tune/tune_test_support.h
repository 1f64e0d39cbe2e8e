// Coefficient files and program runs for the tuning tool's tests.
#ifndef TESTS_TOOLS_TUNE_TUNE_TEST_SUPPORT_H_
#define TESTS_TOOLS_TUNE_TUNE_TEST_SUPPORT_H_

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/wait.h>

#include <android/log.h>

// As in the program, the module's lines end nowhere.
inline const bool kSilent = [] {
  __android_log_set_logger([](const __android_logger_data*, const char*) {});
  return true;
}();

// A folder of its own, gone with the object.
class ScratchFolder {
 public:
  ScratchFolder() { ::mkdtemp(path_.data()); }
  ~ScratchFolder() { std::filesystem::remove_all(path_); }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  std::string Path(const std::string& name) const { return path_ + "/" + name; }
  // Returns the file's path.
  std::string Write(const std::string& name, const std::string& text) const {
    std::ofstream(Path(name), std::ios::binary) << text;
    return Path(name);
  }

 private:
  std::string path_ = std::filesystem::temp_directory_path() / "tune_test.XXXXXX";
};

inline std::string Times(size_t count, const std::string& text) {
  std::string all;
  for (; count > 0; --count) {
    all += text;
  }
  return all;
}

// The first `what` of a text by `with`.
inline std::string Replaced(std::string text, const std::string& what, const std::string& with) {
  return text.replace(text.find(what), what.size(), with);
}

// "@N@" becomes a list of N numbers that suit gains and energies alike: -160, -161, ...
inline std::string Expand(std::string text) {
  for (size_t at = text.find('@'); at != std::string::npos; at = text.find('@', at)) {
    const size_t end = text.find('@', at + 1);
    const int count = std::stoi(text.substr(at + 1, end - at - 1));
    std::string list = "-160";
    for (int i = 1; i < count; ++i) {
      list += "," + std::to_string(-160 - i);
    }
    text.replace(at, end + 1 - at, list);
  }
  return text;
}

// A whole file that lints clean, with `inside` added at the end of its <tuning>, from line 8 on.
inline std::string FileWith(const std::string& inside) {
  return Expand(R"(<?xml version="1.0" encoding="UTF-8"?>
<tuning bnc_verson="1.1.0">
<module name="m"><mode value="0"><param name="rnn_amount" value="4"/></mode></module>
<btheadset name="H"><nfm_band_energy_tuning value="@73@"/>
<profile name="a"><include module_name="m"/><peq_band_gain_tuning mode="0" value="@73@"/></profile>
<profile name="b"><include module_name="m"/><peq_band_gain_tuning mode="0" value="@73@"/></profile>
<profile name="c"><include module_name="m"/><peq_band_gain_tuning mode="0" value="@73@"/></profile></btheadset>
)" + inside + "</tuning>\n");
}

inline std::string ReadFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

struct RunResult {
  int exit_code;
  std::string out;
  std::string err;
};
// `command`: for the shell.
inline RunResult RunProgram(const std::string& command) {
  const ScratchFolder folder;
  const std::string out = folder.Path("out"), err = folder.Path("err");
  const int status = std::system((command + " >" + out + " 2>" + err).c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(out), ReadFile(err)};
}
// The tuning program.
inline RunResult Tune(const std::string& arguments) {
  return RunProgram("timeout 300 " PROGRAM " " + arguments);
}

#endif  // TESTS_TOOLS_TUNE_TUNE_TEST_SUPPORT_H_
