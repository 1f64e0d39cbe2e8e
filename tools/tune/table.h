// A text table with aligned columns.
#ifndef TOOLS_TUNE_TABLE_H_
#define TOOLS_TUNE_TABLE_H_

#include <iosfwd>
#include <string>
#include <vector>

namespace tune {

class Table {
 public:
  // One letter per column: "l" aligned left, "r" aligned right.
  explicit Table(std::string columns) : columns_(std::move(columns)) {}
  void Row(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
  void Print(std::ostream& out, const std::string& indent) const;

 private:
  const std::string columns_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace tune

#endif  // TOOLS_TUNE_TABLE_H_
