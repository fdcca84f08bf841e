// Only system calls here: this runs in a forked child of a process that may
// have threads, where nothing that allocates or locks is allowed.
#include "descriptors.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>

namespace qira::host::internal {

namespace {

constexpr int kFirstInherited = STDERR_FILENO + 1;
constexpr const char* kOwnDescriptors = "/proc/self/fd";

// One record of getdents64 (the kernel's struct linux_dirent64).
struct directory_entry {
  std::uint64_t inode;
  std::int64_t offset;
  unsigned short length;
  unsigned char type;
  char name[1];
};

// close_range(first, last, 0) through the system call itself: a C library
// may lack the wrapper, and a kernel older than 5.9 answers ENOSYS.
bool close_range_call(unsigned int first, unsigned int last) {
#ifdef SYS_close_range
  return ::syscall(SYS_close_range, first, last, 0) == 0;
#else
  (void)first;
  (void)last;
  return false;
#endif
}

// Closes [first, last] except `keep`; false when close_range is missing.
bool close_ranges(int first, int keep) {
  constexpr unsigned int kLastDescriptor = ~0U;
  if (keep < first) {
    return close_range_call(static_cast<unsigned int>(first), kLastDescriptor);
  }
  if (keep > first &&
      !close_range_call(static_cast<unsigned int>(first), static_cast<unsigned int>(keep - 1))) {
    return false;
  }
  return close_range_call(static_cast<unsigned int>(keep + 1), kLastDescriptor);
}

// The descriptor number an entry of /proc/self/fd names, or -1 ("." and "..").
int entry_number(const char* name) {
  if (*name == '\0') {
    return -1;
  }
  int number = 0;
  for (; *name != '\0'; ++name) {
    if (*name < '0' || *name > '9') {
      return -1;
    }
    number = number * 10 + (*name - '0');
  }
  return number;
}

// Closes what /proc/self/fd lists; false when it cannot be read (no /proc).
// Entries keep coming while descriptors close: the kernel reads the table
// as it stands at each call.
bool close_listed(int keep) {
  const int directory = ::open(kOwnDescriptors, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory < 0) {
    return false;
  }
  alignas(directory_entry) char buffer[4096];
  while (true) {
    const long length = ::syscall(SYS_getdents64, directory, buffer, sizeof(buffer));
    if (length <= 0) {
      break;
    }
    for (long offset = 0; offset < length;) {
      const auto* entry = reinterpret_cast<const directory_entry*>(buffer + offset);
      const int fd = entry_number(entry->name);
      if (fd >= kFirstInherited && fd != keep && fd != directory) {
        ::close(fd);
      }
      offset += entry->length;
    }
  }
  ::close(directory);
  return true;
}

// The last resort: every number below the soft descriptor limit.
void close_every_number(int keep) {
  rlimit limit{};
  rlim_t last = 1024;
  if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY) {
    last = limit.rlim_cur;
  }
  for (rlim_t fd = kFirstInherited; fd < last; ++fd) {
    if (static_cast<int>(fd) != keep) {
      ::close(static_cast<int>(fd));
    }
  }
}

}  // namespace

void close_inherited_descriptors(int keep) {
  if (close_ranges(kFirstInherited, keep)) {
    return;
  }
  if (close_listed(keep)) {
    return;
  }
  close_every_number(keep);
}

}  // namespace qira::host::internal
