// Paths of the host programs; see the header.
#include "tools/common/paths.h"

#include <filesystem>

namespace tools {

namespace fs = std::filesystem;

std::string FindBeside(const std::vector<std::string>& folders, const std::string& name) {
  std::error_code error;
  const fs::path program = fs::read_symlink("/proc/self/exe", error);
  for (const std::string& folder : folders) {
    const fs::path file = program.parent_path() / folder / name;
    if (!error && fs::exists(file, error)) {
      return fs::canonical(file, error).string();
    }
    error.clear();
  }
  return "";
}

std::string FolderOf(const std::string& file) {
  std::error_code error;
  const fs::path folder = fs::canonical(fs::absolute(file, error).parent_path(), error);
  return error ? "." : folder.string();
}

bool SameFile(const std::string& one, const std::string& other) {
  std::error_code error;
  return fs::equivalent(one, other, error) && !error;
}

}  // namespace tools
