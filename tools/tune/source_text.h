// Where things stand in a coefficient file's text. The XML library tells the line of an element; the exact
// place of an element, an attribute's value or a number in it comes from a scan of the text for tags.
#ifndef TOOLS_TUNE_SOURCE_TEXT_H_
#define TOOLS_TUNE_SOURCE_TEXT_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace tinyxml2 {
class XMLDocument;
class XMLElement;
}  // namespace tinyxml2

namespace tune {

// Gives every element of `document`, which was read from `text`, the offset of its "<" as user data.
void MarkOffsets(std::string_view text, tinyxml2::XMLDocument* document);

// Offset of an element marked so; 0 for null.
size_t OffsetOf(const tinyxml2::XMLElement* element);

// Offset of the first character of the attribute's value, or of the element where it lacks the attribute.
size_t OffsetOfValue(std::string_view text, const tinyxml2::XMLElement* element,
                     const char* attribute);

// Offset of the `index`-th non-empty field of the comma list in the attribute, or of the value where
// references such as &#44; hide the fields.
size_t OffsetOfField(std::string_view text, const tinyxml2::XMLElement* element,
                     const char* attribute, size_t index);

// Offset of the first character of a line, counted from 1.
size_t OffsetOfLine(std::string_view text, int line);

// Elements named `name` in the text, at least: comments are counted too.
size_t CountTags(std::string_view text, const std::string& name);

// The most attributes that one element has: the XML library's time grows with their square.
size_t MostAttributes(std::string_view text);

struct Position {
  int line;    // from 1
  int column;  // from 1, in code points
};

// Turns offsets into positions; quick as long as the offsets grow.
class PositionFinder {
 public:
  explicit PositionFinder(std::string_view text) : text_(text) {}
  Position Find(size_t offset);

 private:
  std::string_view text_;
  size_t offset_ = 0;
  Position position_{1, 1};
};

}  // namespace tune

#endif  // TOOLS_TUNE_SOURCE_TEXT_H_
