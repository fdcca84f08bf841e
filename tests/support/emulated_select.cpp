// The process's select(), for cross-built suites under qemu-user.
//
// Linux leaves in select's timeval what is left of the wait, also when a
// signal interrupts it (EINTR), and the wpa_supplicant client relies on that
// to resume an interrupted wait with the rest of its time-out. qemu-user
// copies the timeval back only when select succeeds, so after EINTR the
// caller would wait its whole time-out again. While QIRA_TEST_EMULATOR is set
// (cross builds only, see emulated_exec.cpp), this select writes the rest of
// the wait into the timeval after EINTR, as the target's kernel does; in
// every other case it is libc's select unchanged.
#include <dlfcn.h>
#include <sys/select.h>
#include <time.h>

#include <cerrno>
#include <cstdlib>

namespace {

using SelectFunction = int (*)(int, fd_set*, fd_set*, fd_set*, timeval*);

struct Emulation {
  SelectFunction libc_select = nullptr;
  bool emulated = false;
};

Emulation& emulation() {
  static Emulation state;
  return state;
}

__attribute__((constructor)) void read_emulation() {
  Emulation& state = emulation();
  state.libc_select = reinterpret_cast<SelectFunction>(dlsym(RTLD_NEXT, "select"));
  state.emulated = std::getenv("QIRA_TEST_EMULATOR") != nullptr;
}

long long monotonic_us() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long long>(now.tv_sec) * 1000000LL + now.tv_nsec / 1000;
}

}  // namespace

// Declared exactly as <sys/select.h> declares it.
extern "C" int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional,
                      timeval* timeout) {
  const Emulation& state = emulation();
  if (state.libc_select == nullptr) {
    errno = ENOSYS;
    return -1;
  }
  if (!state.emulated || timeout == nullptr) {
    return state.libc_select(count, readable, writable, exceptional, timeout);
  }
  const long long wait_us = static_cast<long long>(timeout->tv_sec) * 1000000LL + timeout->tv_usec;
  const long long started = monotonic_us();
  const int ready = state.libc_select(count, readable, writable, exceptional, timeout);
  if (ready < 0 && errno == EINTR) {
    const long long left = wait_us - (monotonic_us() - started);
    timeout->tv_sec = static_cast<time_t>(left > 0 ? left / 1000000LL : 0);
    timeout->tv_usec = static_cast<suseconds_t>(left > 0 ? left % 1000000LL : 0);
    errno = EINTR;
  }
  return ready;
}
