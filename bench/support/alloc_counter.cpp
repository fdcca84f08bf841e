#include "support/alloc_counter.h"

#include <pthread.h>

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

// The thread being counted, as pthread_self() gives it; 0 when none. A
// thread-local flag would do the same, but reaching a shared library's
// thread-local storage may itself allocate.
std::atomic<unsigned long> counted_thread{0};
std::atomic<std::uint64_t> counted_calls{0};
std::atomic<std::uint64_t> counted_bytes{0};

}  // namespace

// Called by the allocation functions below, outside this namespace.
void note_allocation(std::size_t bytes) {
  if (counting()) {
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

bool counting() {
  const unsigned long thread = counted_thread.load(std::memory_order_relaxed);
  return thread != 0 && thread == static_cast<unsigned long>(pthread_self());
}

CountedRegion::CountedRegion() {
  counted_thread.store(static_cast<unsigned long>(pthread_self()));
}

CountedRegion::~CountedRegion() {
  counted_thread.store(0);
}

// Only the counted thread's own regions touch the state: another thread's
// uncounted work must not pause or resume the counted one.
UncountedRegion::UncountedRegion() : resumed_thread_(0) {
  if (counting()) {
    resumed_thread_ = counted_thread.exchange(0);
  }
}

UncountedRegion::~UncountedRegion() {
  if (resumed_thread_ != 0) {
    counted_thread.store(resumed_thread_);
  }
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
