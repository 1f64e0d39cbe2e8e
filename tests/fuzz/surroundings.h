// The module for a fuzz target: a log that keeps nothing, a scripted session, and no waiting. A wait
// with a deadline, on this one thread, can only run into it: the clock is moved there at once.
#pragma once

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

}  // namespace fuzz
