// A fixed piece of the storm; module-soak runs it for as long as asked.
#include <gtest/gtest.h>

#include "platform/host/binaural_host.h"
#include "tests/robustness/storm.h"

namespace {

TEST(Storm, LeavesTheModuleWorking) {
  host_redirect("/odm/etc/binaural_record_algo_coeffs.xml", COEFFICIENT_FILE);
  const StormCounts counts =
      RunStorm(1, [](const StormCounts& so_far) { return so_far.opens < 150; });
  EXPECT_EQ(counts.undocumented, "");
  // Each thread had its part.
  EXPECT_GT(counts.reads, 0u);
  EXPECT_GT(counts.parameter_calls, 0u);
  EXPECT_GT(counts.control_calls, 0u);
  EXPECT_GT(counts.devices, 0u);
  EXPECT_GT(counts.faults, 0u);
}

}  // namespace
