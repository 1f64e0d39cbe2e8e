// Places in the text; see the header. The scan follows the XML library's rules for what begins a tag.
#include "tools/tune/source_text.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include <tinyxml2.h>

namespace tune {
namespace {

constexpr std::string_view kBlanks = " \t\r\n\v\f";

// Behind the next `end` from `from` on, or the end of the text.
size_t Behind(std::string_view text, size_t from, std::string_view end) {
  const size_t found = text.find(end, from);
  return found == std::string_view::npos ? text.size() : found + end.size();
}

// Behind the ">" of the tag that begins at `offset`; quoted values may hold one.
size_t BehindTag(std::string_view text, size_t offset) {
  char quote = 0;
  for (size_t i = offset; i < text.size(); ++i) {
    if (quote != 0) {
      quote = text[i] == quote ? '\0' : quote;
    } else if (text[i] == '"' || text[i] == '\'') {
      quote = text[i];
    } else if (text[i] == '>') {
      return i + 1;
    }
  }
  return text.size();
}

// Offsets of all start tags, in document order, by the rules of the XML library.
std::vector<size_t> StartTags(std::string_view text) {
  constexpr struct {
    std::string_view begin, end;
  } kOther[] = {{"<?", "?>"}, {"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<!", ">"}};
  std::vector<size_t> tags;
  size_t at = text.find('<');
  while (at != std::string_view::npos) {
    const auto* other = std::find_if(std::begin(kOther), std::end(kOther), [&](const auto& kind) {
      return text.substr(at, kind.begin.size()) == kind.begin;
    });
    if (other != std::end(kOther)) {
      at = Behind(text, at + other->begin.size(), other->end);
    } else {
      const size_t name = text.find_first_not_of(kBlanks, at + 1);
      if (name != std::string_view::npos && text[name] != '/') {
        tags.push_back(at);
      }
      at = BehindTag(text, at);
    }
    at = text.find('<', at);
  }
  return tags;
}

const tinyxml2::XMLElement* NextInDocument(const tinyxml2::XMLElement* element) {
  if (const auto* child = element->FirstChildElement()) {
    return child;
  }
  while (element != nullptr && element->NextSiblingElement() == nullptr) {
    const auto* parent = element->Parent();
    element = parent == nullptr ? nullptr : parent->ToElement();
  }
  return element == nullptr ? nullptr : element->NextSiblingElement();
}

// Where the value of the attribute begins inside the tag at `offset`, or npos.
size_t FindValue(std::string_view text, size_t offset, std::string_view attribute) {
  const size_t end = BehindTag(text, offset);
  size_t at = text.find_first_of(kBlanks, text.find_first_not_of(kBlanks, offset + 1));
  while (at < end) {
    const size_t name = text.find_first_not_of(kBlanks, at);
    const size_t name_end = text.find_first_of(" \t\r\n\v\f=>", name);
    const size_t quote = text.find_first_of("\"'", name_end);
    if (quote == std::string_view::npos || quote >= end) {
      break;
    }
    if (text.substr(name, name_end - name) == attribute) {
      return quote + 1;
    }
    const size_t closing = text.find(text[quote], quote + 1);
    at = closing == std::string_view::npos ? end : closing + 1;
  }
  return std::string_view::npos;
}

}  // namespace

void MarkOffsets(std::string_view text, tinyxml2::XMLDocument* document) {
  const std::vector<size_t> tags = StartTags(text);
  size_t index = 0;
  for (const tinyxml2::XMLElement* element = document->FirstChildElement(); element != nullptr;
       element = NextInDocument(element), ++index) {
    const size_t offset = index < tags.size() ? tags[index] : text.size();
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a number is all that an element can carry.
    void* mark = reinterpret_cast<void*>(static_cast<uintptr_t>(offset));
    const_cast<tinyxml2::XMLElement*>(element)->SetUserData(mark);
  }
}

size_t OffsetOf(const tinyxml2::XMLElement* element) {
  return element == nullptr ? 0 : reinterpret_cast<uintptr_t>(element->GetUserData());
}

size_t OffsetOfValue(std::string_view text, const tinyxml2::XMLElement* element,
                     const char* attribute) {
  const size_t offset = OffsetOf(element);
  if (element == nullptr || attribute == nullptr) {
    return offset;
  }
  const size_t value = FindValue(text, offset, attribute);
  return value == std::string_view::npos ? offset : value;
}

size_t OffsetOfField(std::string_view text, const tinyxml2::XMLElement* element,
                     const char* attribute, size_t index) {
  const size_t begin = OffsetOfValue(text, element, attribute);
  const char* value = element->Attribute(attribute);
  if (value == nullptr || text.substr(begin, std::strlen(value)) != value) {
    return begin;
  }
  const size_t end = begin + std::strlen(value);
  size_t at = text.find_first_not_of(',', begin);
  for (; index > 0 && at < end; --index) {
    at = text.find_first_not_of(',', text.find(',', at));
  }
  return at < end ? std::min(text.find_first_not_of(kBlanks, at), end) : begin;
}

size_t OffsetOfLine(std::string_view text, int line) {
  size_t offset = 0;
  for (; line > 1; --line) {
    const size_t feed = text.find('\n', offset);
    if (feed == std::string_view::npos) {
      break;
    }
    offset = feed + 1;
  }
  return offset;
}

size_t CountTags(std::string_view text, const std::string& name) {
  size_t count = 0;
  for (size_t at = text.find("<" + name); at != std::string_view::npos;
       at = text.find("<" + name, at + 1)) {
    const size_t behind = at + 1 + name.size();
    if (behind < text.size() && std::strchr(" \t\r\n/>", text[behind]) != nullptr) {
      ++count;
    }
  }
  return count;
}

size_t MostAttributes(std::string_view text) {
  size_t most = 0;
  for (const size_t tag : StartTags(text)) {
    const size_t end = BehindTag(text, tag);
    size_t count = 0;
    char quote = 0;
    for (size_t i = tag; i < end; ++i) {
      if (quote != 0) {
        quote = text[i] == quote ? '\0' : quote;
      } else if (text[i] == '"' || text[i] == '\'') {
        quote = text[i];
      } else if (text[i] == '=') {
        ++count;
      }
    }
    most = std::max(most, count);
  }
  return most;
}

Position PositionFinder::Find(size_t offset) {
  offset = std::min(offset, text_.size());
  if (offset < offset_) {
    offset_ = 0;
    position_ = {1, 1};
  }
  for (; offset_ < offset; ++offset_) {
    const char byte = text_[offset_];
    if (byte == '\n') {
      ++position_.line;
      position_.column = 1;
    } else if ((static_cast<unsigned char>(byte) & 0xC0) != 0x80) {
      ++position_.column;
    }
  }
  return position_;
}

}  // namespace tune
