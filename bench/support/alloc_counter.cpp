#include "support/alloc_counter.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>

// glibc's allocator under its own names: forwarding to them, unlike a dlsym
// lookup of the next malloc, never allocates.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* pointer, std::size_t size);
}

namespace qira::bench {
namespace {

std::atomic<std::uint64_t> counted_calls{0};
std::atomic<std::uint64_t> counted_bytes{0};

}  // namespace

// Called by the allocation functions below, outside this namespace.
void note_allocation(std::size_t bytes) {
  if (detail::counted_here) {
    counted_calls.fetch_add(1, std::memory_order_relaxed);
    counted_bytes.fetch_add(bytes, std::memory_order_relaxed);
  }
}

AllocationCount allocations() {
  AllocationCount count;
  count.calls = counted_calls.load();
  count.bytes = counted_bytes.load();
  return count;
}

// The collection switch is flipped last on entry and first on exit, so that
// the region's own bookkeeping stays out of the count.
CountedRegion::CountedRegion() {
  detail::counted_here = true;
  CALLGRIND_TOGGLE_COLLECT;
}

CountedRegion::~CountedRegion() {
  CALLGRIND_TOGGLE_COLLECT;
  detail::counted_here = false;
}

}  // namespace qira::bench

// Declared as <stdlib.h> declares them.
extern "C" {

void* malloc(std::size_t size) __THROW {
  qira::bench::note_allocation(size);
  return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) __THROW {
  qira::bench::note_allocation(count * size);
  return __libc_calloc(count, size);
}

void* realloc(void* pointer, std::size_t size) __THROW {
  qira::bench::note_allocation(size);
  return __libc_realloc(pointer, size);
}

}  // extern "C"
