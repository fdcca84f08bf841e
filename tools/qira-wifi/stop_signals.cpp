#include "stop_signals.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace qira::wifi {

namespace {

volatile sig_atomic_t signal_pipe_write = -1;

// poll() takes an int of milliseconds; longer waits are taken in turns.
constexpr long long kLongestPoll = 24LL * 3600 * 1000;

void on_stop_signal(int /*signal*/) {
  const int saved = errno;
  const char byte = 1;
  if (signal_pipe_write >= 0) {
    [[maybe_unused]] const ssize_t written = ::write(signal_pipe_write, &byte, 1);
  }
  errno = saved;
}

}  // namespace

StopSignals::StopSignals() {
  if (::pipe2(pipe_, O_CLOEXEC | O_NONBLOCK) != 0) {
    pipe_[0] = pipe_[1] = -1;
    return;
  }
  signal_pipe_write = pipe_[1];
  struct sigaction action {};
  action.sa_handler = on_stop_signal;
  sigemptyset(&action.sa_mask);
  ::sigaction(SIGINT, &action, &previous_interrupt_);
  ::sigaction(SIGTERM, &action, &previous_terminate_);
}

StopSignals::~StopSignals() {
  if (pipe_[0] < 0) {
    return;
  }
  ::sigaction(SIGINT, &previous_interrupt_, nullptr);
  ::sigaction(SIGTERM, &previous_terminate_, nullptr);
  signal_pipe_write = -1;
  ::close(pipe_[0]);
  ::close(pipe_[1]);
}

bool StopSignals::wait(std::chrono::milliseconds timeout) {
  if (stopped_ || pipe_[0] < 0) {
    return stopped_;
  }
  pollfd waiting{pipe_[0], POLLIN, 0};
  stopped_ = ::poll(&waiting, 1, static_cast<int>(timeout.count())) > 0;
  return stopped_;
}

StopSignals::Wake StopSignals::wait_readable(int fd,
                                             std::optional<std::chrono::milliseconds> timeout) {
  std::vector<Readiness> ready;
  const Wake wake = wait_any({fd}, timeout, ready);
  if (wake == Wake::readable && ready.front().failed) {
    return Wake::failed;
  }
  return wake;
}

StopSignals::Wake StopSignals::wait_any(const std::vector<int>& fds,
                                        std::optional<std::chrono::milliseconds> timeout,
                                        std::vector<Readiness>& ready) {
  using clock = std::chrono::steady_clock;
  // A flag and a plain time point rather than an optional one: gcc 12 for
  // 32-bit ARM takes the optional's value for possibly uninitialised.
  const bool has_deadline = timeout.has_value();
  const clock::time_point deadline = has_deadline ? clock::now() + *timeout : clock::time_point();
  // The pipe first (poll() skips it when it could not be made: a negative
  // descriptor is not watched), then the caller's descriptors.
  std::vector<pollfd> waiting;
  waiting.push_back({pipe_[0], POLLIN, 0});
  for (int fd : fds) {
    waiting.push_back({fd, POLLIN, 0});
  }
  while (true) {
    if (stopped_) {
      return Wake::stop;
    }
    int wait_ms = -1;
    if (has_deadline) {
      // Rounded up: a wait cut short by rounding would only come round again.
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - clock::now());
      wait_ms = static_cast<int>(std::clamp<long long>(left.count(), 0, kLongestPoll));
    }
    const int count = ::poll(waiting.data(), waiting.size(), wait_ms);
    if (count < 0) {
      if (errno == EINTR) {
        continue;
      }
      return Wake::failed;
    }
    if (waiting[0].revents != 0) {
      stopped_ = true;
      return Wake::stop;
    }
    ready.assign(fds.size(), Readiness{});
    bool any = false;
    for (std::size_t i = 0; i < fds.size(); ++i) {
      const short events = waiting[i + 1].revents;
      ready[i].failed =
          (events & POLLNVAL) != 0 || ((events & POLLHUP) != 0 && (events & POLLIN) == 0);
      ready[i].readable = !ready[i].failed && (events & (POLLIN | POLLERR)) != 0;
      any = any || ready[i].failed || ready[i].readable;
    }
    if (any) {
      return Wake::readable;
    }
    if (count == 0 && has_deadline && clock::now() >= deadline) {
      return Wake::timeout;
    }
  }
}

}  // namespace qira::wifi
