// Interposed pwrite() of the test process, for the positioned writes whose
// short or failed outcome a test must choose (a real file only ever accepts
// the whole write or fails with a size limit whose errno the test cannot
// pin down).
//
// qira_test_support comes before libc in every test binary's symbol search
// order, so pwrite (and pwrite64, its 64-bit offset name) arrive at
// pwrite_interpose.cpp. While a PwriteInterposer lives, each call is offered
// to it; a call it does not answer, and every call while none lives, goes to
// libc. Only one interposer is active at a time (the newest).
#ifndef QIRA_TESTS_SUPPORT_PWRITE_INTERPOSE_H
#define QIRA_TESTS_SUPPORT_PWRITE_INTERPOSE_H

#include <sys/types.h>

#include <optional>

namespace qira::test {

// libc's own pwrite, for interposers that write part of a buffer for real.
ssize_t libc_pwrite(int fd, const void* buffer, size_t count, off_t offset);

class PwriteInterposer {
 public:
  PwriteInterposer();           // becomes the active interposer
  virtual ~PwriteInterposer();  // the previous one becomes active again
  PwriteInterposer(const PwriteInterposer&) = delete;
  PwriteInterposer& operator=(const PwriteInterposer&) = delete;

  // The result of one call, or std::nullopt to pass it to libc. An answer of
  // -1 must come with errno set.
  virtual std::optional<ssize_t> on_pwrite(int fd, const void* buffer, size_t count,
                                           off_t offset) = 0;

 private:
  PwriteInterposer* previous_;
};

}  // namespace qira::test

#endif  // QIRA_TESTS_SUPPORT_PWRITE_INTERPOSE_H
