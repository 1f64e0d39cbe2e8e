// Words and numbers; see the header.
#include "tools/tune/words.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>

#include "tools/common/console.h"

namespace tune {
namespace {

constexpr size_t kLongestQuote = 80;
constexpr size_t kLongestCompared = 64;
constexpr size_t kShortestPart = 4;  // a name inside the other one is near, from this length on

bool IsContinuation(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

std::string Lower(std::string_view text) {
  std::string lower(text);
  for (char& letter : lower) {
    letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  }
  return lower;
}

// Insertions, deletions, replacements and exchanges of neighbours that lead from `a` to `b`: the
// restricted form of F. Damerau, "A technique for computer detection and correction of spelling errors",
// Communications of the ACM 7, 1964.
size_t EditDistance(const std::string& a, const std::string& b) {
  std::vector<size_t> before_last;
  std::vector<size_t> last(b.size() + 1);
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) {
    last[j] = j;
  }
  for (size_t i = 1; i <= a.size(); ++i) {
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t replaced = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, replaced});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        row[j] = std::min(row[j], before_last[j - 2] + 1);
      }
    }
    before_last = last;
    last = row;
  }
  return last[b.size()];
}

}  // namespace

std::string Quoted(std::string_view text) {
  if (text.size() <= kLongestQuote) {
    return "\"" + tools::EscapeControls(text) + "\"";
  }
  size_t end = kLongestQuote;
  while (end > 0 && IsContinuation(text[end])) {
    --end;
  }
  return "\"" + tools::EscapeControls(text.substr(0, end)) + "...\"";
}

std::string Count(size_t number, const std::string& singular) {
  return std::to_string(number) + " " + singular + (number == 1 ? "" : "s");
}

std::string SixteenthDb(int32_t value) {
  char text[32];
  std::snprintf(text, sizeof(text), "%+.1f dB", static_cast<double>(value) / 16.0);
  return text;
}

std::string OneDecimal(double value) {
  if (!std::isfinite(value)) {
    return "silence";
  }
  char text[32];
  std::snprintf(text, sizeof(text), "%.1f", value);
  return text;
}

std::string EscapedForXml(const std::string& text) {
  std::string escaped;
  for (const char letter : text) {
    switch (letter) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += letter;
    }
  }
  return escaped;
}

std::string NearestName(std::string_view name, const std::vector<std::string>& candidates) {
  if (name.size() > kLongestCompared) {
    return "";
  }
  const std::string wanted = Lower(name);
  std::string nearest;
  const size_t most = std::max<size_t>(2, name.size() / 3);
  size_t least = most + 1;
  for (const std::string& candidate : candidates) {
    if (candidate.size() > kLongestCompared || candidate == name) {
      continue;
    }
    const std::string other = Lower(candidate);
    size_t distance = EditDistance(wanted, other);
    const bool is_part =
        std::min(wanted.size(), other.size()) >= kShortestPart &&
        (other.find(wanted) != std::string::npos || wanted.find(other) != std::string::npos);
    if (is_part) {
      distance = std::min(distance, most);
    }
    if (distance < least && distance < std::max(name.size(), candidate.size())) {
      least = distance;
      nearest = candidate;
    }
  }
  return nearest;
}

std::string DidYouMean(std::string_view name, const std::vector<std::string>& candidates) {
  const std::string nearest = NearestName(name, candidates);
  return nearest.empty() ? "" : "; did you mean " + Quoted(nearest) + "?";
}

size_t CodePoints(std::string_view text) {
  return static_cast<size_t>(
      std::count_if(text.begin(), text.end(), [](char byte) { return !IsContinuation(byte); }));
}

std::string PadRight(const std::string& text, size_t width) {
  const size_t length = CodePoints(text);
  return text + std::string(width > length ? width - length : 0, ' ');
}

std::string PadLeft(const std::string& text, size_t width) {
  const size_t length = CodePoints(text);
  return std::string(width > length ? width - length : 0, ' ') + text;
}

size_t FirstInvalidUtf8(std::string_view text) {
  for (size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const size_t bytes = lead < 0x80   ? 1
                         : lead < 0xC2 ? 0
                         : lead < 0xE0 ? 2
                         : lead < 0xF0 ? 3
                         : lead < 0xF5 ? 4
                                       : 0;
    if (bytes == 0 || i + bytes > text.size()) {
      return i;
    }
    for (size_t k = 1; k < bytes; ++k) {
      if (!IsContinuation(text[i + k])) {
        return i;
      }
    }
    const auto second = bytes > 1 ? static_cast<unsigned char>(text[i + 1]) : 0;
    const bool overlong_or_surrogate =
        (lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
        (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F);
    if (overlong_or_surrogate) {
      return i;
    }
    i += bytes;
  }
  return std::string_view::npos;
}

}  // namespace tune
