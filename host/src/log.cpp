// logInternal, forceCrash and the log sink seam.
#include <execinfo.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

#include "host_internal.h"
#include "qira/host/outside_text.h"

namespace qira::host {

namespace {

std::mutex& seam_mutex() {
  static std::mutex mutex;
  return mutex;
}

LogSink& installed_sink() {
  static LogSink sink;
  return sink;
}

LogSink& installed_tap() {
  static LogSink tap;
  return tap;
}

std::function<void()>& installed_crash_observer() {
  static std::function<void()> observer;
  return observer;
}

std::atomic<bool> log_to_stderr{true};

// write(2) all of `text` to stderr; diagnostics must not depend on stdio state.
void write_stderr(const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    ssize_t n = ::write(STDERR_FILENO, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      return;
    }
    done += static_cast<std::size_t>(n);
  }
}

void default_sink(const LogRecord& record) {
  std::string line = format_log_record(record);
  if (log_to_stderr.load()) {
    write_stderr(line + "\n");
  }
  int priority = (record.level >= LOG_EMERG && record.level <= LOG_DEBUG) ? record.level : LOG_ERR;
  ::syslog(LOG_USER | priority, "%s", line.c_str());
}

std::string vformat(const char* fmt, va_list args) {
  if (fmt == nullptr) {
    return std::string();
  }
  va_list copy;
  va_copy(copy, args);
  int length = std::vsnprintf(nullptr, 0, fmt, copy);
  va_end(copy);
  if (length <= 0) {
    return std::string();
  }
  std::string text(static_cast<std::size_t>(length) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), fmt, args);
  text.resize(static_cast<std::size_t>(length));
  return text;
}

}  // namespace

// Messages quote outside values (interface names, daemon replies): the
// line is escaped for a terminal and stays one line.
std::string format_log_record(const LogRecord& record) {
  std::string line = "<" + std::to_string(record.level) + "> " + record.module + " " + record.file +
                     ":" + std::to_string(record.line) + " " + record.function +
                     "(): " + record.message;
  if (record.error_number != 0) {
    line += " (errno " + std::to_string(record.error_number) + ": " +
            std::strerror(record.error_number) + ")";
  }
  return terminal_line(line);
}

void set_log_sink(LogSink sink) {
  internal::exchange_log_sink(std::move(sink));
}

void set_log_to_stderr(bool enabled) {
  log_to_stderr.store(enabled);
}

LogSink set_log_tap(LogSink tap) {
  std::lock_guard<std::mutex> lock(seam_mutex());
  return std::exchange(installed_tap(), std::move(tap));
}

void set_crash_observer(std::function<void()> observer) {
  std::lock_guard<std::mutex> lock(seam_mutex());
  installed_crash_observer() = std::move(observer);
}

LogSink internal::exchange_log_sink(LogSink sink) {
  std::lock_guard<std::mutex> lock(seam_mutex());
  return std::exchange(installed_sink(), std::move(sink));
}

LogCapture::LogCapture() {
  previous_ = internal::exchange_log_sink([this](const LogRecord& record) {
    std::lock_guard<std::mutex> lock(mutex_);
    records_.push_back(record);
  });
}

LogCapture::~LogCapture() {
  internal::exchange_log_sink(std::move(previous_));
}

std::vector<LogRecord> LogCapture::records() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return records_;
}

std::vector<std::string> LogCapture::messages() const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<std::string> messages;
  messages.reserve(records_.size());
  for (const LogRecord& record : records_) {
    messages.push_back(record.message);
  }
  return messages;
}

void LogCapture::clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  records_.clear();
}

}  // namespace qira::host

int logInternal(const char* module, const char* file, const char* function, int line, int level,
                int error_number, int reserved, const char* fmt, ...) {
  // Callers often log right after a failed call and then look at errno.
  int saved_errno = errno;
  qira::host::LogRecord record;
  record.module = module != nullptr ? module : "";
  record.file = file != nullptr ? file : "";
  record.function = function != nullptr ? function : "";
  record.line = line;
  record.level = level;
  record.error_number = error_number;
  record.reserved = reserved;
  record.format = fmt != nullptr ? fmt : "";
  va_list args;
  va_start(args, fmt);
  record.message = qira::host::vformat(fmt, args);
  va_end(args);

  qira::host::LogSink tap;
  qira::host::LogSink sink;
  {
    std::lock_guard<std::mutex> lock(qira::host::seam_mutex());
    tap = qira::host::installed_tap();
    sink = qira::host::installed_sink();
  }
  if (tap) {
    tap(record);
  }
  if (sink) {
    sink(record);
  } else {
    qira::host::default_sink(record);
  }
  errno = saved_errno;
  return static_cast<int>(record.message.size());
}

void forceCrash() {
  static const char kDiagnostic[] = "forceCrash: ending the process on an unrecoverable fault\n";
  qira::host::write_stderr(kDiagnostic);
  ::syslog(LOG_USER | LOG_CRIT, "%s", kDiagnostic);
  void* frames[64];
  int depth = ::backtrace(frames, 64);
  ::backtrace_symbols_fd(frames, depth, STDERR_FILENO);

  std::function<void()> observer;
  {
    std::lock_guard<std::mutex> lock(qira::host::seam_mutex());
    observer = qira::host::installed_crash_observer();
  }
  if (observer) {
    observer();
  }
  std::abort();
}
