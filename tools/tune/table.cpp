// Tables; see the header.
#include "tools/tune/table.h"

#include <algorithm>
#include <ostream>

#include "tools/tune/words.h"

namespace tune {

void Table::Print(std::ostream& out, const std::string& indent) const {
  std::vector<size_t> widths(columns_.size());
  for (const auto& row : rows_) {
    for (size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], CodePoints(row[i]));
    }
  }
  for (const auto& row : rows_) {
    std::string line = indent;
    for (size_t i = 0; i < row.size(); ++i) {
      line += (i == 0 ? "" : "  ");
      line += columns_[i] == 'r' ? PadLeft(row[i], widths[i]) : PadRight(row[i], widths[i]);
    }
    out << line.substr(0, line.find_last_not_of(' ') + 1) << "\n";
  }
}

}  // namespace tune
