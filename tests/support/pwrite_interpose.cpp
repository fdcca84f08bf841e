// The process's pwrite() and pwrite64(): offered to the active
// PwriteInterposer first, then passed to libc.
#include "support/pwrite_interpose.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

namespace {

using PwriteFunction = ssize_t (*)(int, const void*, size_t, off_t);

std::mutex& active_mutex() {
  static std::mutex mutex;
  return mutex;
}

qira::test::PwriteInterposer*& active() {
  static qira::test::PwriteInterposer* interposer = nullptr;
  return interposer;
}

PwriteFunction libc_function(const char* name) {
  return reinterpret_cast<PwriteFunction>(dlsym(RTLD_NEXT, name));
}

ssize_t interposed(const char* libc_name, int fd, const void* buffer, size_t count, off_t offset) {
  qira::test::PwriteInterposer* interposer = nullptr;
  {
    std::lock_guard<std::mutex> lock(active_mutex());
    interposer = active();
  }
  if (interposer != nullptr) {
    if (std::optional<ssize_t> answer = interposer->on_pwrite(fd, buffer, count, offset)) {
      return *answer;
    }
  }
  const PwriteFunction next = libc_function(libc_name);
  if (next == nullptr) {
    errno = ENOSYS;
    return -1;
  }
  return next(fd, buffer, count, offset);
}

}  // namespace

namespace qira::test {

ssize_t libc_pwrite(int fd, const void* buffer, size_t count, off_t offset) {
  static const PwriteFunction next = libc_function("pwrite");
  if (next == nullptr) {
    errno = ENOSYS;
    return -1;
  }
  return next(fd, buffer, count, offset);
}

PwriteInterposer::PwriteInterposer() {
  std::lock_guard<std::mutex> lock(active_mutex());
  previous_ = active();
  active() = this;
}

PwriteInterposer::~PwriteInterposer() {
  std::lock_guard<std::mutex> lock(active_mutex());
  active() = previous_;
}

}  // namespace qira::test

// Declared exactly as <unistd.h> declares them; off_t and off64_t are the
// same 64-bit type on the 64-bit targets the tests run on.
extern "C" ssize_t pwrite(int fd, const void* buffer, size_t count, off_t offset) {
  return interposed("pwrite", fd, buffer, count, offset);
}

extern "C" ssize_t pwrite64(int fd, const void* buffer, size_t count, off64_t offset) {
  return interposed("pwrite64", fd, buffer, count, static_cast<off_t>(offset));
}
