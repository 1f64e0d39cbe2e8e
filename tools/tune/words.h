// Words and numbers for people: quoting, units, the nearest name.
#ifndef TOOLS_TUNE_WORDS_H_
#define TOOLS_TUNE_WORDS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tune {

// Text of a file in quotes, made safe for a terminal and cut at a readable length.
std::string Quoted(std::string_view text);

// "1 band", "2 bands".
std::string Count(size_t number, const std::string& singular);

// 256 -> "+16.0 dB".
std::string SixteenthDb(int32_t value);

// A level; "silence" where there is none.
std::string OneDecimal(double value);

// For text and double-quoted attributes of XML and HTML.
std::string EscapedForXml(const std::string& text);

// The candidate that differs from `name` least, or holds it, or is held by it, if it is near enough to be
// meant; else empty. Upper and lower case count as the same.
std::string NearestName(std::string_view name, const std::vector<std::string>& candidates);

// `, did you mean "x"?` for the nearest candidate, or nothing.
std::string DidYouMean(std::string_view name, const std::vector<std::string>& candidates);

// Number of code points, for column counts and padding. Bytes that are no UTF-8 count one each.
size_t CodePoints(std::string_view text);

// `text` padded with blanks to `width` code points, on the right, or on the left for numbers.
std::string PadRight(const std::string& text, size_t width);
std::string PadLeft(const std::string& text, size_t width);

// Offset of the first byte that is not UTF-8 (RFC 3629), or npos.
size_t FirstInvalidUtf8(std::string_view text);

}  // namespace tune

#endif  // TOOLS_TUNE_WORDS_H_
