#include "support/resource_counts.h"

#include <dirent.h>
#include <malloc.h>

#include <cstdio>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QIRA_HEAP_FROM_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) && !defined(QIRA_HEAP_FROM_ASAN)
#define QIRA_HEAP_FROM_ASAN 1
#endif

#ifdef QIRA_HEAP_FROM_ASAN
// The sanitizer runtimes of gcc and clang both define it; only clang ships
// the header that declares it (sanitizer/allocator_interface.h).
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace qira::test {

#ifndef QIRA_HEAP_FROM_ASAN
namespace {

// Whether malloc is glibc's: valgrind replaces it, and then no reading of
// the heap is a count of bytes in use. mallinfo2() answers zeros (glibc's
// own arena is never empty once the process has allocated), and the older
// mallinfo() counts the freed blocks that memcheck holds back to catch uses
// after free.
bool allocator_is_glibc() {
  return mallinfo2().arena != 0;
}

}  // namespace
#endif

bool heap_measurable() {
#ifdef QIRA_HEAP_FROM_ASAN
  return true;
#else
  return allocator_is_glibc();
#endif
}

std::size_t heap_in_use() {
#ifdef QIRA_HEAP_FROM_ASAN
  return __sanitizer_get_current_allocated_bytes();
#else
  return allocator_is_glibc() ? mallinfo2().uordblks : 0;
#endif
}

const char* heap_counter_name() {
#ifdef QIRA_HEAP_FROM_ASAN
  return "__sanitizer_get_current_allocated_bytes";
#else
  return allocator_is_glibc() ? "mallinfo2().uordblks" : "no heap count: malloc is not glibc's";
#endif
}

std::size_t open_descriptors() {
  DIR* folder = opendir("/proc/self/fd");
  if (folder == nullptr) {
    return 0;
  }
  std::size_t count = 0;
  while (const dirent* entry = readdir(folder)) {
    if (entry->d_name[0] != '.') {
      ++count;
    }
  }
  closedir(folder);
  return count - 1;
}

ResourceCounts resource_counts() {
  ResourceCounts counts;
  // Descriptors first: opendir allocates, and its buffer is freed again
  // before the heap is read.
  counts.descriptors = open_descriptors();
  counts.heap_bytes = heap_in_use();
  return counts;
}

std::string describe_counts(const std::string& what, const ResourceCounts& warm,
                            const ResourceCounts& end) {
  char line[256];
  std::snprintf(line, sizeof line,
                ": after warm-up heap %zu bytes, %zu descriptors; at the end heap %zu bytes, "
                "%zu descriptors (%s)",
                warm.heap_bytes, warm.descriptors, end.heap_bytes, end.descriptors,
                heap_counter_name());
  return what + line;
}

}  // namespace qira::test
