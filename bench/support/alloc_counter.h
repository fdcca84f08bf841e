// Heap allocations made inside a measured region.
//
// qira_bench_support comes before libc in every benchmark program's symbol
// search order, so the malloc, calloc and realloc calls of the module, of
// libnl, of the reference host and of libstdc++'s operator new all arrive at
// its definitions. They count the calls made by the thread that holds a
// CountedRegion and pass every call on to libc's allocator. The simulated
// peers' own threads (the simulated wpa_supplicant) are never counted.
#ifndef QIRA_BENCH_SUPPORT_ALLOC_COUNTER_H
#define QIRA_BENCH_SUPPORT_ALLOC_COUNTER_H

#include <cstddef>
#include <cstdint>

namespace qira::bench {

struct AllocationCount {
  std::uint64_t calls = 0;  // malloc, calloc and realloc calls
  std::uint64_t bytes = 0;  // bytes asked for by those calls
};

// Totals counted so far in this process.
AllocationCount allocations();
// Whether the calling thread's allocations are being counted now.
bool counting();

// Adds one call of `bytes` to the totals when the calling thread is counted
// (used by the allocation functions).
void note_allocation(std::size_t bytes);

// Counts the calling thread's allocations while alive. Regions do not nest.
class CountedRegion {
 public:
  CountedRegion();
  ~CountedRegion();
  CountedRegion(const CountedRegion&) = delete;
  CountedRegion& operator=(const CountedRegion&) = delete;
};

// Stops counting while alive (the simulated kernel's work inside a counted
// module call), and resumes on destruction if a region was counting.
class UncountedRegion {
 public:
  UncountedRegion();
  ~UncountedRegion();
  UncountedRegion(const UncountedRegion&) = delete;
  UncountedRegion& operator=(const UncountedRegion&) = delete;

 private:
  unsigned long resumed_thread_;
};

}  // namespace qira::bench

#endif  // QIRA_BENCH_SUPPORT_ALLOC_COUNTER_H
