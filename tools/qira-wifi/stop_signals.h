// SIGINT and SIGTERM as a stop request for the commands that listen until
// interrupted.
#ifndef QIRA_TOOLS_QIRA_WIFI_STOP_SIGNALS_H
#define QIRA_TOOLS_QIRA_WIFI_STOP_SIGNALS_H

#include <signal.h>

#include <chrono>

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

 private:
  int pipe_[2] = {-1, -1};
  bool stopped_ = false;
  struct sigaction previous_interrupt_ {};
  struct sigaction previous_terminate_ {};
};

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_STOP_SIGNALS_H
