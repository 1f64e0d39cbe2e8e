// The module for a fuzz target: a log that keeps nothing, a scripted session, and no waiting. A wait
// with a deadline, on this one thread, can only run into it: the clock is moved there at once.
#ifndef TESTS_FUZZ_SURROUNDINGS_H_
#define TESTS_FUZZ_SURROUNDINGS_H_

#include <cstddef>

#include "tests/robustness/module_calls.h"

namespace fuzz {

// Quiet log at INFO, session in its first state, module as at load; for the length of one run, which has
// then given back all its memory.
class Surroundings {
 public:
  Surroundings();
  ~Surroundings();
  Surroundings(const Surroundings&) = delete;
  Surroundings& operator=(const Surroundings&) = delete;
};

// Makes `text` the coefficient file of the next device open.
void SetCoefficientFile(const void* text, size_t size);
const char* CoefficientPath();

}  // namespace fuzz

#endif  // TESTS_FUZZ_SURROUNDINGS_H_
