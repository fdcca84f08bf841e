// Interposed syscall() of the test process, for the system calls whose
// absence on an older kernel a test must show: while a CloseRangeRefusal
// lives, close_range answers ENOSYS, as on a kernel before Linux 5.9, so
// that the host's fallback (walking /proc/self/fd) is what closes a child's
// descriptors. Every other call, and every call while none lives, goes to
// libc. The refusal is a flag in memory: a child forked meanwhile inherits
// it, which is what the tests need.
#ifndef QIRA_TESTS_SUPPORT_SYSCALL_INTERPOSE_H
#define QIRA_TESTS_SUPPORT_SYSCALL_INTERPOSE_H

namespace qira::test {

class CloseRangeRefusal {
 public:
  CloseRangeRefusal();
  ~CloseRangeRefusal();
  CloseRangeRefusal(const CloseRangeRefusal&) = delete;
  CloseRangeRefusal& operator=(const CloseRangeRefusal&) = delete;
};

}  // namespace qira::test

#endif  // QIRA_TESTS_SUPPORT_SYSCALL_INTERPOSE_H
