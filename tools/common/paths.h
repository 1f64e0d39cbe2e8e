// Finds what belongs to a program by where the program itself lies, in the build tree and installed
// alike, so that neither needs a path compiled in.
#ifndef TOOLS_COMMON_PATHS_H
#define TOOLS_COMMON_PATHS_H

#include <string>
#include <vector>

namespace tools {

// The first existing FOLDER/NAME among the folders, which are relative to the running program's own
// folder; empty when there is none.
std::string FindBeside(const std::vector<std::string>& folders, const std::string& name);

// Canonical folder of a file; "." where it has none that exists.
std::string FolderOf(const std::string& file);

// True when both names lead to the same existing file.
bool SameFile(const std::string& one, const std::string& other);

}  // namespace tools

#endif
