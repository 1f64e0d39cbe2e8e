#include "tests/tools/tune/tune_test_support.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/wait.h>

#include <android/log.h>

namespace {

// As in the program, the module's lines end nowhere.
const bool kSilent = [] {
  __android_log_set_logger([](const __android_logger_data*, const char*) {});
  return true;
}();

}  // namespace

ScratchFolder::ScratchFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "tune_test.XXXXXX").string();
  path_ = ::mkdtemp(pattern.data());
}

ScratchFolder::~ScratchFolder() {
  std::filesystem::remove_all(path_);
}

std::string ScratchFolder::Write(const std::string& name, const std::string& text) const {
  std::ofstream(Path(name), std::ios::binary) << text;
  return Path(name);
}

std::string Expand(std::string text) {
  for (size_t at = text.find('@'); at != std::string::npos; at = text.find('@', at)) {
    const size_t end = text.find('@', at + 1);
    const int count = std::stoi(text.substr(at + 1, end - at - 1));
    std::string list;
    for (int i = 0; i < count; ++i) {
      list += (i == 0 ? "" : ",") + std::to_string(-160 - i);
    }
    text.replace(at, end + 1 - at, list);
  }
  return text;
}

std::string FileWith(const std::string& inside) {
  return Expand(R"(<?xml version="1.0" encoding="UTF-8"?>
<tuning bnc_verson="1.1.0">
<module name="m"><mode value="0"><param name="rnn_amount" value="4"/></mode></module>
<btheadset name="H"><nfm_band_energy_tuning value="@73@"/>
<profile name="a"><include module_name="m"/><peq_band_gain_tuning mode="0" value="@73@"/></profile>
<profile name="b"><include module_name="m"/><peq_band_gain_tuning mode="0" value="@73@"/></profile>
<profile name="c"><include module_name="m"/><peq_band_gain_tuning mode="0" value="@73@"/></profile></btheadset>
)" + inside + "</tuning>\n");
}

std::string Replaced(std::string text, const std::string& what, const std::string& with) {
  return text.replace(text.find(what), what.size(), with);
}

std::string ReadFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

RunResult RunProgram(const std::string& command) {
  const ScratchFolder folder;
  const int status =
      std::system((command + " >" + folder.Path("out") + " 2>" + folder.Path("err")).c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(folder.Path("out")),
          ReadFile(folder.Path("err"))};
}

RunResult Tune(const std::string& arguments) {
  return RunProgram("timeout 300 " PROGRAM " " + arguments);
}
