// The process's syscall(): see syscall_interpose.h. It runs in forked
// children between fork and exec, so it only reads a flag and calls libc's
// syscall, found once when the library is loaded.
#include "support/syscall_interpose.h"

#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>

namespace {

using SyscallFunction = long (*)(long, ...);

std::atomic<bool> refuse_close_range{false};

SyscallFunction libc_syscall() {
  static const auto function = reinterpret_cast<SyscallFunction>(dlsym(RTLD_NEXT, "syscall"));
  return function;
}

// Resolved before any test forks.
[[maybe_unused]] const SyscallFunction resolved_at_load = libc_syscall();

}  // namespace

namespace qira::test {

CloseRangeRefusal::CloseRangeRefusal() {
  refuse_close_range.store(true);
}

CloseRangeRefusal::~CloseRangeRefusal() {
  refuse_close_range.store(false);
}

}  // namespace qira::test

// A system call takes at most six arguments, passed as machine words. The
// caller passes only those its call takes, and nothing says how many: like
// libc's own syscall(), this reads six and the kernel ignores the rest. The
// words past the last passed one lie in the caller's frame, so the address
// sanitizer, which would report reading them, is kept out of this function.
extern "C" __attribute__((no_sanitize("address"))) long syscall(long number, ...) __THROW {
#ifdef SYS_close_range
  if (number == SYS_close_range && refuse_close_range.load()) {
    errno = ENOSYS;
    return -1;
  }
#endif
  va_list list;
  va_start(list, number);
  long arguments[6];
  for (long& argument : arguments) {
    argument = va_arg(list, long);
  }
  va_end(list);
  return libc_syscall()(number, arguments[0], arguments[1], arguments[2], arguments[3],
                        arguments[4], arguments[5]);
}
