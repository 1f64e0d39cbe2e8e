// module-soak [SECONDS [COEFFICIENT_FILE]]: the storm for as long as asked (60 s), a line every ten
// seconds. 0 when the module still works and every result was a documented one, else 1.
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "platform/host/binaural_host.h"
#include "tests/robustness/storm.h"

namespace {

void Print(int64_t seconds, const StormCounts& counts) {
  std::printf("%lld s: %llu streams, %llu of %llu reads delivered, %llu parameter calls, %llu "
              "control calls, %llu devices, %llu faults\n",
              static_cast<long long>(seconds), static_cast<unsigned long long>(counts.opens),
              static_cast<unsigned long long>(counts.periods_read),
              static_cast<unsigned long long>(counts.reads),
              static_cast<unsigned long long>(counts.parameter_calls),
              static_cast<unsigned long long>(counts.control_calls),
              static_cast<unsigned long long>(counts.devices),
              static_cast<unsigned long long>(counts.faults));
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  const std::chrono::seconds wanted(argc > 1 ? std::atoi(argv[1]) : 60);
  host_redirect("/odm/etc/binaural_record_algo_coeffs.xml", argc > 2 ? argv[2] : COEFFICIENT_FILE);
  const auto begin = std::chrono::steady_clock::now();
  const auto elapsed = [begin] {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() -
                                                            begin);
  };
  std::chrono::seconds next_line(10);
  const StormCounts counts = RunStorm(static_cast<uint32_t>(begin.time_since_epoch().count()),
                                      [&](const StormCounts& so_far) {
                                        if (elapsed() >= next_line) {
                                          Print(elapsed().count(), so_far);
                                          next_line += std::chrono::seconds(10);
                                        }
                                        return elapsed() < wanted && so_far.undocumented.empty();
                                      });
  Print(elapsed().count(), counts);
  if (!counts.undocumented.empty()) {
    std::printf("%s\n", counts.undocumented.c_str());
    return 1;
  }
  return 0;
}
