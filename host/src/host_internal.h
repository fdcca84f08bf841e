// Private plumbing shared by the reference host's source files: the current
// seam objects, the host's own logging macro and a descriptor holder.
#ifndef QIRA_HOST_SRC_HOST_INTERNAL_H
#define QIRA_HOST_SRC_HOST_INTERNAL_H

#include <unistd.h>

#include <utility>

#include "qira/host/seams.h"
#include "qira/host_globals.h"

namespace qira::host::internal {

// The installed seams. exchange_* install a replacement and return the one it
// replaces; a null runner/clock or an empty sink means the real default.
ProcessRunner& current_process_runner();
ProcessRunner* exchange_process_runner(ProcessRunner* runner);
Clock& current_clock();
Clock* exchange_clock(Clock* clock);
LogSink exchange_log_sink(LogSink sink);
// Copies the installed identity record into `out`; false when none is installed.
bool copy_identity_record(qira::variant::Variant& out);
// The installed NetlibRecorder, or null when the wired functions act.
NetlibRecorder* current_netlib_recorder();
// The installed KeyPathRecorder, or null.
KeyPathRecorder* current_key_path_recorder();

// Owns one descriptor; closes it on destruction.
class unique_fd {
 public:
  unique_fd() = default;
  explicit unique_fd(int fd) : fd_(fd) {}
  ~unique_fd() { reset(); }
  unique_fd(const unique_fd&) = delete;
  unique_fd& operator=(const unique_fd&) = delete;
  unique_fd(unique_fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  unique_fd& operator=(unique_fd&& other) noexcept {
    if (this != &other) {
      reset(std::exchange(other.fd_, -1));
    }
    return *this;
  }

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  int release() { return std::exchange(fd_, -1); }
  void reset(int fd = -1) {
    if (fd_ >= 0) {
      ::close(fd_);
    }
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

}  // namespace qira::host::internal

// HOST_LOG(module name, level, errno value or 0, printf format, arguments...)
#define HOST_LOG(module, level, error_number, ...) \
  ::logInternal((module), __FILE__, __func__, __LINE__, (level), (error_number), 0, __VA_ARGS__)

namespace qira::host::internal {
// Module names of the host's own log lines.
constexpr const char* kHostModule = "qira_host";
constexpr const char* kVariantModule = "qira_variant";
constexpr int kLogError = 3;
constexpr int kLogWarning = 4;
constexpr int kLogInfo = 6;
}  // namespace qira::host::internal

#endif  // QIRA_HOST_SRC_HOST_INTERNAL_H
