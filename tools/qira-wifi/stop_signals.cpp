#include "stop_signals.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace qira::wifi {

namespace {

volatile sig_atomic_t signal_pipe_write = -1;

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

}  // namespace qira::wifi
