// What a coefficient file is made of, and how its numbers are written: what the module reads without
// remark, so that lint can remark on the rest.
#ifndef TOOLS_TUNE_FILE_LAYOUT_H_
#define TOOLS_TUNE_FILE_LAYOUT_H_

#include <string>
#include <string_view>
#include <vector>

namespace tune {

// An element that is read, with its attributes and children.
struct ElementKind {
  const char* name;
  const char* parent;
  std::vector<std::string> attributes;
  std::vector<std::string> children;
};

// Null for a name that is no element's.
const ElementKind* KindOf(std::string_view name);

// Whether the text is a plain decimal inside 32 bits. Blanks around it are as good as none.
bool IsReadAsWritten(const std::string& text);

// The text between the commas, empty ones too.
std::vector<std::string> Fields(const char* list);

}  // namespace tune

#endif  // TOOLS_TUNE_FILE_LAYOUT_H_
