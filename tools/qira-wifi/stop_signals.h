// SIGINT and SIGTERM as a stop request for the commands that listen until
// interrupted.
#ifndef QIRA_TOOLS_QIRA_WIFI_STOP_SIGNALS_H
#define QIRA_TOOLS_QIRA_WIFI_STOP_SIGNALS_H

#include <signal.h>

#include <chrono>
#include <optional>
#include <vector>

namespace qira::wifi {

// While alive, SIGINT and SIGTERM write to a pipe instead of ending the
// process (the previous handlers come back afterwards), so a loop can wait
// for a signal with poll() and never miss one that arrives between checks.
class StopSignals {
 public:
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  // False when the pipe could not be made (the handlers are then not set).
  bool ok() const { return pipe_[0] >= 0; }
  // Waits up to `timeout` for a stop signal; true once one has come.
  bool wait(std::chrono::milliseconds timeout);
  // Whether a stop signal has come, without waiting.
  bool requested() { return wait(std::chrono::milliseconds(0)); }

  enum class Wake {
    stop,      // a stop signal has come (it wins over a readable descriptor)
    readable,  // `fd` has something to read, or a pending error to report
    timeout,   // neither within the time given
    failed,    // `fd` is not open or its peer hung up (or poll() failed): waiting
               // on it cannot go on
  };
  // Waits until a stop signal comes, `fd` is readable or `timeout` has passed
  // (no limit when unset). Level-triggered: as long as `fd` holds unread
  // data it wakes at once, so a caller that reads one batch per wake never
  // misses the rest, and one that reads nothing when it is readable would
  // spin (which a socket that is readable never lets happen). A signal that
  // interrupts poll() is waited through with the time that is left.
  Wake wait_readable(int fd, std::optional<std::chrono::milliseconds> timeout);

  // What wait_any() saw of one descriptor.
  struct Readiness {
    bool readable = false;  // something to read, or a pending error to report
    bool failed = false;    // not open, or its peer hung up: waiting on it cannot go on
  };
  // wait_readable() for several descriptors at once (a negative one is not
  // watched): Wake::readable when at least one is readable or failed, with
  // `ready` telling which, one entry per descriptor; Wake::failed only when
  // poll() itself fails.
  Wake wait_any(const std::vector<int>& fds, std::optional<std::chrono::milliseconds> timeout,
                std::vector<Readiness>& ready);

 private:
  int pipe_[2] = {-1, -1};
  bool stopped_ = false;
  struct sigaction previous_interrupt_ {};
  struct sigaction previous_terminate_ {};
};

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_STOP_SIGNALS_H
