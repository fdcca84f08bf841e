// Seams of the reference host: the places where a test (or the qira-wifi
// program) observes and steers what the host does for a module. Each seam has
// a real default; installing a replacement affects the whole process.
#ifndef QIRA_HOST_SEAMS_H
#define QIRA_HOST_SEAMS_H

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "qira/variant/variant.h"

namespace qira::host {

// ---- Logging ---------------------------------------------------------------

struct LogRecord {
  std::string module;
  std::string file;
  std::string function;
  int line = 0;
  int level = 0;
  int error_number = 0;
  int reserved = 0;
  std::string message;  // the formatted text
  std::string format;   // the printf format as the caller passed it
};

using LogSink = std::function<void(const LogRecord&)>;

// Installs `sink` for every later logInternal call; an empty sink restores the
// default (one line on stderr and one syslog record per call).
void set_log_sink(LogSink sink);
// One line of text for a record, as the default sink writes it: outside
// text in the message is escaped for a terminal (qira/host/outside_text.h).
std::string format_log_record(const LogRecord& record);
// Whether the default sink also writes to stderr (default true).
void set_log_to_stderr(bool enabled);
// Installs `tap`, which sees every record before the sink does, whatever sink
// is installed (a LogCapture replaces the sink, not the tap); an empty tap
// removes it. Returns the tap it replaces. The unit suite's message ledger
// listens here.
LogSink set_log_tap(LogSink tap);

// Collects every record while alive (and restores the previous sink after).
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<LogRecord> records() const;
  std::vector<std::string> messages() const;
  void clear();

 private:
  mutable std::mutex mutex_;
  std::vector<LogRecord> records_;
  LogSink previous_;
};

// ---- Processes -------------------------------------------------------------

struct ProcessCall {
  enum Kind { kShell, kExec, kDaemon, kSignal };
  Kind kind = kExec;
  std::string program;            // the command line for kShell, the name for kSignal
  std::vector<std::string> args;  // arguments after the program
  int signal = 0;                 // kSignal only
};

// Runs, starts and signals processes for the qira::utils process functions.
class ProcessRunner {
 public:
  virtual ~ProcessRunner() = default;
  virtual int run_shell(const std::string& command) = 0;
  virtual int run(const std::string& program, const std::vector<std::string>& args) = 0;
  // Nonzero on success, like runDaemon.
  virtual int start_daemon(const std::string& program, const std::vector<std::string>& args,
                           const std::string* working_directory, const __sigset_t* signal_mask,
                           int* pid) = 0;
  virtual int signal_by_name(const std::string& name, int signal) = 0;
};

// The runner that really forks, executes and signals.
ProcessRunner& real_process_runner();
// Installs `runner` (null restores the real one).
void set_process_runner(ProcessRunner* runner);

// Records every call and answers with programmable results instead of running
// anything (unless pass-through is on, then the real runner also acts).
class ProcessRecorder : public ProcessRunner {
 public:
  ProcessRecorder();            // installs itself
  ~ProcessRecorder() override;  // restores the previous runner

  int run_shell(const std::string& command) override;
  int run(const std::string& program, const std::vector<std::string>& args) override;
  int start_daemon(const std::string& program, const std::vector<std::string>& args,
                   const std::string* working_directory, const __sigset_t* signal_mask,
                   int* pid) override;
  int signal_by_name(const std::string& name, int signal) override;

  // Result for calls of `program` (path, command line or process name):
  // run/run_shell default 0, start_daemon default 1, signal_by_name default 0.
  void set_result(const std::string& program, int result);
  void set_pass_through(bool enabled);
  // Chooses results by the whole call (kind, program and arguments), for
  // programs run several times with different arguments: a value it answers
  // wins over set_result and pass-through; std::nullopt leaves the call to
  // them. An empty responder (the default) answers nothing.
  using Responder = std::function<std::optional<int>(const ProcessCall& call)>;
  void set_responder(Responder responder);

  std::vector<ProcessCall> calls() const;
  void clear();

 private:
  int result_for(const std::string& program, int fallback) const;
  std::optional<int> respond(const ProcessCall& call) const;

  mutable std::mutex mutex_;
  std::vector<ProcessCall> calls_;
  std::vector<std::pair<std::string, int>> results_;
  bool pass_through_ = false;
  Responder responder_;
  ProcessRunner* previous_;
};

// ---- Wired netlib functions -------------------------------------------------

// One call of a wired netlib function of qira/network/netlib_host.h.
struct NetlibCall {
  std::string function;                   // its name, e.g. "netlib_iface_set_up"
  void* ctx = nullptr;                    // the context passed
  std::vector<std::string> args;          // the text arguments after the context, in
                                          // order; a bool as "true" or "false"
  std::vector<std::string> name_servers;  // netlib_netm_configure_static only
};

// While alive, every wired netlib function records its call and answers the
// result chosen for it (default true) without touching any interface, route
// or file: the module's calls are observed and steered, and the machine's
// network stays as it is. Only one recorder acts at a time (the newest).
class NetlibRecorder {
 public:
  NetlibRecorder();   // installs itself
  ~NetlibRecorder();  // restores the previous recorder, or the real functions
  NetlibRecorder(const NetlibRecorder&) = delete;
  NetlibRecorder& operator=(const NetlibRecorder&) = delete;

  // Result of every later call of `function` (a name as in NetlibCall).
  void set_result(const std::string& function, bool result);
  std::vector<NetlibCall> calls() const;
  void clear();

  // Records `call` and returns its chosen result (used by the host functions).
  bool record(NetlibCall call);

 private:
  mutable std::mutex mutex_;
  std::vector<NetlibCall> calls_;
  std::vector<std::pair<std::string, bool>> results_;
  NetlibRecorder* previous_;
};

// ---- Clock -----------------------------------------------------------------

class Clock {
 public:
  virtual ~Clock() = default;
  virtual unsigned long long now_ms() = 0;
  virtual void sleep_ms(unsigned int ms) = 0;
};

Clock& real_clock();
void set_clock(Clock* clock);  // null restores the real clock

// A clock that only moves when slept on or advanced; records every sleep.
class FakeClock : public Clock {
 public:
  explicit FakeClock(unsigned long long start_ms = 1000);  // installs itself
  ~FakeClock() override;                                   // restores the previous clock

  unsigned long long now_ms() override;
  void sleep_ms(unsigned int ms) override;
  void advance(unsigned long long ms);
  // Added to the time after every now_ms() call (0 by default).
  void set_step_per_read(unsigned long long ms);
  std::vector<unsigned int> sleeps() const;

 private:
  mutable std::mutex mutex_;
  unsigned long long now_;
  unsigned long long step_ = 0;
  std::vector<unsigned int> sleeps_;
  Clock* previous_;
};

// ---- Identity --------------------------------------------------------------

// Makes CameraInfo::Init() load `record` instead of reading the identity file.
void set_identity_record(const qira::variant::Variant& record);
// Back to the identity file.
void clear_identity_record();

// ---- Configuration reads ---------------------------------------------------

// One Variant::GetKeyChain call: the value asked and the key path.
struct KeyPathRead {
  const qira::variant::Variant* value = nullptr;
  std::string path;
};

// Records every Variant::GetKeyChain call while it lives, in order: what the
// module reads of a configuration it is handed. Installs itself; restores the
// previous recorder when destroyed.
class KeyPathRecorder {
 public:
  KeyPathRecorder();
  ~KeyPathRecorder();
  KeyPathRecorder(const KeyPathRecorder&) = delete;
  KeyPathRecorder& operator=(const KeyPathRecorder&) = delete;

  // Called by GetKeyChain.
  void record(const qira::variant::Variant* value, const char* path);
  // The paths asked of `value`, in order.
  std::vector<std::string> paths_of(const qira::variant::Variant* value) const;

 private:
  mutable std::mutex mutex_;
  std::vector<KeyPathRead> reads_;
  KeyPathRecorder* previous_;
};

// ---- Crash -----------------------------------------------------------------

// Called by forceCrash() before the process ends (default: none).
void set_crash_observer(std::function<void()> observer);

}  // namespace qira::host

#endif  // QIRA_HOST_SEAMS_H
