// Reads a coefficient file within limits; see the header.
#include "tools/tune/coefficient_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/tune/source_text.h"
#include "tools/tune/words.h"

namespace tune {
namespace {

std::vector<const tinyxml2::XMLElement*> Children(const tinyxml2::XMLElement* parent,
                                                  const char* name) {
  std::vector<const tinyxml2::XMLElement*> children;
  const auto* child = parent == nullptr ? nullptr : parent->FirstChildElement(name);
  for (; child != nullptr; child = child->NextSiblingElement(name)) {
    children.push_back(child);
  }
  return children;
}

}  // namespace

CoefficientFile::CoefficientFile(const std::string& path) : path_(path) {
  if (!ReadText()) {
    return;
  }
  ParseCoefficients(path_.c_str(), &document_, &store_, [this](const CoefficientFault& fault) {
    faults_.push_back({fault.rule, fault.element, fault.name == nullptr ? "" : fault.name});
    return faults_.size() < kMostFaults;
  });
  MarkOffsets(text_, &document_);
  if (tuning() != nullptr) {
    generation_ = AlgoGenerationOfVersion(tuning()->Attribute(kAlgoVersionAttribute));
  }
  headsets_ = Children(tuning(), "btheadset");
  modules_ = Children(tuning(), "module");
}

CoefficientFile::~CoefficientFile() {
  ReleaseCoefficients(&store_);
}

bool CoefficientFile::ReadText() {
  // Without waiting for a pipe's writer; what is no regular file is refused next.
  const int fd = ::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  struct stat status {};
  if (fd < 0 || ::fstat(fd, &status) != 0) {
    refusal_ = std::strerror(errno);
  } else if (!S_ISREG(status.st_mode)) {
    refusal_ = S_ISDIR(status.st_mode) ? "a folder, not a file" : "not a regular file";
  } else if (static_cast<uint64_t>(status.st_size) > kMostFileBytes) {
    refusal_ = "too large to check: " + std::to_string(status.st_size >> 20) + " MiB, at most " +
               std::to_string(kMostFileBytes >> 20);
  } else {
    text_.resize(static_cast<size_t>(status.st_size));
    size_t filled = 0;
    ssize_t got = 1;
    while (filled < text_.size() && got > 0) {
      got = ::read(fd, &text_[filled], text_.size() - filled);
      filled += got > 0 ? static_cast<size_t>(got) : 0;
    }
    text_.resize(filled);
    if (got < 0) {
      refusal_ = std::strerror(errno);
    }
  }
  if (fd >= 0) {
    ::close(fd);
  }
  if (!refusal_.empty()) {
    return false;
  }
  if (CountTags(text_, "btheadset") > kMostHeadsets) {
    refusal_ = "not checked: more than " + Count(kMostHeadsets, "headset");
  } else if (CountTags(text_, "module") > kMostModules) {
    refusal_ = "not checked: more than " + Count(kMostModules, "module");
  } else if (MostAttributes(text_) > kMostAttributes) {
    refusal_ = "not checked: an element with more than " + Count(kMostAttributes, "attribute");
  }
  return refusal_.empty();
}

const tinyxml2::XMLElement* CoefficientFile::HeadsetElement(size_t index) const {
  return index < headsets_.size() ? headsets_[index] : nullptr;
}

const tinyxml2::XMLElement* CoefficientFile::ModuleElement(size_t index) const {
  return index < modules_.size() ? modules_[index] : nullptr;
}

}  // namespace tune
