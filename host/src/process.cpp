// The qira::utils process functions, the process runner seam and the
// ProcessRecorder. The real runner is in process_runner.cpp.
#include "qira/utils/process.h"

#include <atomic>
#include <cstdarg>
#include <optional>
#include <utility>

#include "host_internal.h"

namespace qira::host {

namespace {

std::atomic<ProcessRunner*> installed_runner{nullptr};

}  // namespace

void set_process_runner(ProcessRunner* runner) {
  internal::exchange_process_runner(runner);
}

ProcessRunner& internal::current_process_runner() {
  ProcessRunner* runner = installed_runner.load();
  return runner != nullptr ? *runner : real_process_runner();
}

ProcessRunner* internal::exchange_process_runner(ProcessRunner* runner) {
  ProcessRunner* previous = installed_runner.exchange(runner);
  return previous != nullptr ? previous : &real_process_runner();
}

ProcessRecorder::ProcessRecorder() {
  previous_ = internal::exchange_process_runner(this);
}

ProcessRecorder::~ProcessRecorder() {
  internal::exchange_process_runner(previous_);
}

// With pass-through the real runner acts and its result is returned, unless a
// result was set for that program, which then wins.
int ProcessRecorder::run_shell(const std::string& command) {
  bool pass_through = false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    pass_through = pass_through_;
    calls_.push_back(ProcessCall{ProcessCall::kShell, command, {}, 0});
  }
  if (std::optional<int> chosen = respond(ProcessCall{ProcessCall::kShell, command, {}, 0})) {
    return *chosen;
  }
  if (pass_through) {
    int real = real_process_runner().run_shell(command);
    return result_for(command, real);
  }
  return result_for(command, 0);
}

int ProcessRecorder::run(const std::string& program, const std::vector<std::string>& args) {
  bool pass_through = false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    pass_through = pass_through_;
    calls_.push_back(ProcessCall{ProcessCall::kExec, program, args, 0});
  }
  if (std::optional<int> chosen = respond(ProcessCall{ProcessCall::kExec, program, args, 0})) {
    return *chosen;
  }
  if (pass_through) {
    int real = real_process_runner().run(program, args);
    return result_for(program, real);
  }
  return result_for(program, 0);
}

int ProcessRecorder::start_daemon(const std::string& program, const std::vector<std::string>& args,
                                  const std::string* working_directory,
                                  const __sigset_t* signal_mask, int* pid) {
  bool pass_through = false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    pass_through = pass_through_;
    calls_.push_back(ProcessCall{ProcessCall::kDaemon, program, args, 0});
  }
  if (std::optional<int> chosen = respond(ProcessCall{ProcessCall::kDaemon, program, args, 0})) {
    if (pid != nullptr) {
      *pid = 0;  // nothing was started
    }
    return *chosen;
  }
  if (pass_through) {
    int real =
        real_process_runner().start_daemon(program, args, working_directory, signal_mask, pid);
    return result_for(program, real);
  }
  if (pid != nullptr) {
    *pid = 0;  // nothing was started
  }
  return result_for(program, 1);
}

int ProcessRecorder::signal_by_name(const std::string& name, int signal) {
  bool pass_through = false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    pass_through = pass_through_;
    calls_.push_back(ProcessCall{ProcessCall::kSignal, name, {}, signal});
  }
  if (std::optional<int> chosen = respond(ProcessCall{ProcessCall::kSignal, name, {}, signal})) {
    return *chosen;
  }
  if (pass_through) {
    int real = real_process_runner().signal_by_name(name, signal);
    return result_for(name, real);
  }
  return result_for(name, 0);
}

void ProcessRecorder::set_result(const std::string& program, int result) {
  std::lock_guard<std::mutex> lock(mutex_);
  results_.emplace_back(program, result);
}

void ProcessRecorder::set_responder(Responder responder) {
  std::lock_guard<std::mutex> lock(mutex_);
  responder_ = std::move(responder);
}

// The responder runs without the lock held, so that it may itself look at
// the recorder.
std::optional<int> ProcessRecorder::respond(const ProcessCall& call) const {
  Responder responder;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    responder = responder_;
  }
  return responder ? responder(call) : std::nullopt;
}

void ProcessRecorder::set_pass_through(bool enabled) {
  std::lock_guard<std::mutex> lock(mutex_);
  pass_through_ = enabled;
}

std::vector<ProcessCall> ProcessRecorder::calls() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return calls_;
}

void ProcessRecorder::clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  calls_.clear();
}

int ProcessRecorder::result_for(const std::string& program, int fallback) const {
  std::lock_guard<std::mutex> lock(mutex_);
  for (auto it = results_.rbegin(); it != results_.rend(); ++it) {
    if (it->first == program) {
      return it->second;
    }
  }
  return fallback;
}

}  // namespace qira::host

namespace qira::utils {

int sysExecSimple(const char* cmd) {
  if (cmd == nullptr) {
    return -1;
  }
  return qira::host::internal::current_process_runner().run_shell(cmd);
}

int sysExecSimple(const char* program, const std::vector<std::string>& args) {
  if (program == nullptr) {
    return -1;
  }
  return qira::host::internal::current_process_runner().run(program, args);
}

int runDaemon(const std::string* working_directory, const __sigset_t* signal_mask, int* pid,
              const std::string& program, int count, ...) {
  std::vector<std::string> args;
  va_list list;
  va_start(list, count);
  for (int i = 0; i < count; ++i) {
    const char* arg = va_arg(list, const char*);
    args.emplace_back(arg != nullptr ? arg : "");
  }
  va_end(list);
  return qira::host::internal::current_process_runner().start_daemon(
      program, args, working_directory, signal_mask, pid);
}

int kill_process_by_name(const std::string& name, int signal) {
  return qira::host::internal::current_process_runner().signal_by_name(name, signal);
}

}  // namespace qira::utils
