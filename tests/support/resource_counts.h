// What a long run must leave as it found it: bytes of heap in use and open
// descriptors, read the same way in every build of the suite.
#ifndef QIRA_TESTS_SUPPORT_RESOURCE_COUNTS_H
#define QIRA_TESTS_SUPPORT_RESOURCE_COUNTS_H

#include <cstddef>
#include <string>

namespace qira::test {

// Whether heap_in_use() counts anything in this process: not under
// valgrind, whose memcheck keeps freed blocks back and reports leaks itself
// at exit.
bool heap_measurable();
// Bytes the process's allocator hands out right now (allocated and not yet
// freed). In a build with AddressSanitizer that is the sanitizer's own
// count, since its allocator replaces malloc; otherwise glibc's
// mallinfo2().uordblks; 0 where !heap_measurable().
std::size_t heap_in_use();
// Which of the two counts heap_in_use() reads, for the printed figures.
const char* heap_counter_name();

// Open descriptors of the process, listing /proc/self/fd (the listing's own
// descriptor not counted).
std::size_t open_descriptors();

// Heap and descriptors at one moment.
struct ResourceCounts {
  std::size_t heap_bytes = 0;
  std::size_t descriptors = 0;
};
ResourceCounts resource_counts();

// One line for the test's output and its XML report: "<what>: after warm-up
// heap H bytes, D descriptors; at the end heap H bytes, D descriptors
// (<counter>)".
std::string describe_counts(const std::string& what, const ResourceCounts& warm,
                            const ResourceCounts& end);

}  // namespace qira::test

#endif  // QIRA_TESTS_SUPPORT_RESOURCE_COUNTS_H
