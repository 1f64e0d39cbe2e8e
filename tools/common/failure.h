// How a host program fails: an exit code, what went wrong in words, and what to try next. Thrown
// where the failure is found, shown once in main().
#ifndef TOOLS_COMMON_FAILURE_H
#define TOOLS_COMMON_FAILURE_H

#include <stdexcept>
#include <string>
#include <utility>

namespace tools {

class Failure : public std::runtime_error {
 public:
  Failure(int exit_code, const std::string& what, std::string try_next = "")
      : std::runtime_error(what), exit_code_(exit_code), try_next_(std::move(try_next)) {}
  int exit_code() const { return exit_code_; }
  const std::string& try_next() const { return try_next_; }

 private:
  int exit_code_;
  std::string try_next_;
};

}  // namespace tools

#endif
