#include "support/endurance_check.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace qira::test {

void expect_flat_resources(const std::string& what, const ResourceCounts& warm,
                           const ResourceCounts& end, double seconds) {
  const std::string figures = describe_counts(what, warm, end);
  std::printf("%s; %.2f s\n", figures.c_str(), seconds);
  testing::Test::RecordProperty("heap_after_warm_up", std::to_string(warm.heap_bytes));
  testing::Test::RecordProperty("heap_at_end", std::to_string(end.heap_bytes));
  testing::Test::RecordProperty("descriptors_after_warm_up", std::to_string(warm.descriptors));
  testing::Test::RecordProperty("descriptors_at_end", std::to_string(end.descriptors));
  EXPECT_GT(warm.descriptors, 2u) << figures;
  EXPECT_EQ(end.descriptors, warm.descriptors) << figures;
  if (heap_measurable()) {
    EXPECT_LE(end.heap_bytes, warm.heap_bytes + kEnduranceHeapSlack) << figures;
  } else {
    // Under valgrind: its leak search at exit answers for the heap instead.
    std::printf("heap not compared (%s)\n", heap_counter_name());
  }
}

}  // namespace qira::test
