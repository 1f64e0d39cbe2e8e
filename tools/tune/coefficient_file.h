// A coefficient file as the module reads it, with what the tool adds: the text, for places, and every
// fault instead of the first. The model that all commands share.
#ifndef TOOLS_TUNE_COEFFICIENT_FILE_H_
#define TOOLS_TUNE_COEFFICIENT_FILE_H_

#include <memory>
#include <string>
#include <vector>

#include <tinyxml2.h>

#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_config.h"

namespace tune {

// Beyond these a file is refused unread, so that a hostile one costs neither time nor memory.
inline constexpr size_t kMostFileBytes = 8u << 20;
inline constexpr size_t kMostHeadsets = 4096;
inline constexpr size_t kMostModules = 4096;
inline constexpr size_t kMostAttributes = 256;
// After so many faults reading ends.
inline constexpr size_t kMostFaults = 1000;

// A fault of the module's parser. `element` is null for the document.
struct Fault {
  CoefficientRule rule;
  const tinyxml2::XMLElement* element;
  std::string name;  // the child or attribute concerned, or empty
};

class CoefficientFile {
 public:
  explicit CoefficientFile(const std::string& path);
  ~CoefficientFile();
  CoefficientFile(const CoefficientFile&) = delete;
  CoefficientFile& operator=(const CoefficientFile&) = delete;

  const std::string& path() const { return path_; }
  // Why the tool did not read the file at all (no file, a folder, a pipe, too large), or empty.
  const std::string& refusal() const { return refusal_; }
  const std::string& text() const { return text_; }
  const tinyxml2::XMLDocument& document() const { return document_; }
  const tinyxml2::XMLElement* tuning() const { return document_.FirstChildElement("tuning"); }
  // 1 when the built-in algorithm reads the file, 2 the library beside it, 0 none.
  int generation() const { return generation_; }
  const std::vector<Fault>& faults() const { return faults_; }

  // As far as it was read: record i belongs to the i-th element of its name under `tuning`.
  const AlgoConfigCoeff& store() const { return store_; }
  // What the module works from: empty when it refuses the file or does not read it.
  const AlgoConfigCoeff& effective() const { return Accepted() ? store_ : empty_; }
  bool Accepted() const { return refusal_.empty() && faults_.empty() && generation_ == 1; }

  // The i-th element of that name under `tuning`, or null.
  const tinyxml2::XMLElement* HeadsetElement(size_t index) const;
  const tinyxml2::XMLElement* ModuleElement(size_t index) const;

 private:
  bool ReadText();

  const std::string path_;
  std::string refusal_;
  std::string text_;
  tinyxml2::XMLDocument document_;
  AlgoConfigCoeff store_{};
  const AlgoConfigCoeff empty_{};
  std::vector<Fault> faults_;
  int generation_ = 0;
  std::vector<const tinyxml2::XMLElement*> headsets_;
  std::vector<const tinyxml2::XMLElement*> modules_;
};

}  // namespace tune

#endif  // TOOLS_TUNE_COEFFICIENT_FILE_H_
