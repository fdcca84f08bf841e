// The end of every endurance test: its figures printed and recorded, and the
// check that the long run left the process as it found it.
#ifndef QIRA_TESTS_SUPPORT_ENDURANCE_CHECK_H
#define QIRA_TESTS_SUPPORT_ENDURANCE_CHECK_H

#include <cstddef>
#include <string>

#include "support/resource_counts.h"

namespace qira::test {

// Heap in use may differ by this much between the two readings without a
// leak: nothing in the loops keeps memory, but the allocator's count is read
// while the host's and libnl's lazily grown buffers settle. A leak of one
// byte per call shows as 10,000 to 100,000.
inline constexpr std::size_t kEnduranceHeapSlack = 1024;

// Prints "<what>: ... ; <seconds> s", records the four counts as properties
// of the running test, and expects the same descriptors (more than the three
// standard ones) and, where the heap can be measured, at most
// kEnduranceHeapSlack more heap at the end than after the warm-up.
void expect_flat_resources(const std::string& what, const ResourceCounts& warm,
                           const ResourceCounts& end, double seconds);

}  // namespace qira::test

#endif  // QIRA_TESTS_SUPPORT_ENDURANCE_CHECK_H
