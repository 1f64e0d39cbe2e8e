// Coefficient files and program runs for the tuning tool's tests.
#ifndef TESTS_TOOLS_TUNE_TUNE_TEST_SUPPORT_H_
#define TESTS_TOOLS_TUNE_TUNE_TEST_SUPPORT_H_

#include <string>

// A folder of its own, gone with the object.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  std::string Path(const std::string& name) const { return path_ + "/" + name; }
  // Returns the file's path.
  std::string Write(const std::string& name, const std::string& text) const;

 private:
  std::string path_;
};

// "@N@" becomes a list of N numbers that suit gains and energies alike: -160, -161, ...
std::string Expand(std::string text);

// A whole file that lints clean, with `inside` added at the end of its <tuning>, from line 8 on.
std::string FileWith(const std::string& inside);

// The first `what` of a text by `with`.
std::string Replaced(std::string text, const std::string& what, const std::string& with);

struct RunResult {
  int exit_code;
  std::string out;
  std::string err;
};
// `command`: for the shell.
RunResult RunProgram(const std::string& command);
// The tuning program.
RunResult Tune(const std::string& arguments);

std::string ReadFile(const std::string& path);

#endif  // TESTS_TOOLS_TUNE_TUNE_TEST_SUPPORT_H_
