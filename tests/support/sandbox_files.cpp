// File helpers for tests that run inside the sandbox root.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "support/directories.h"
#include "support/sandbox.h"

namespace qira::test {
namespace detail {

int create_directories(const std::string& path, mode_t mode) {
  std::string::size_type end = 0;
  while (end != std::string::npos) {
    end = path.find('/', end + 1);
    const std::string prefix = path.substr(0, end);
    if (prefix.empty() || prefix == "/") {
      continue;
    }
    if (mkdir(prefix.c_str(), mode) == 0) {
      continue;
    }
    const int error_number = errno;
    struct stat status {};
    if (error_number == EEXIST && stat(prefix.c_str(), &status) == 0) {
      if (S_ISDIR(status.st_mode)) {
        continue;
      }
      return ENOTDIR;  // what the kernel answers for a path through a file
    }
    return error_number;
  }
  return 0;
}

}  // namespace detail

namespace {

// Closes the descriptor on every path out of the helpers below.
class ScopedFd {
 public:
  explicit ScopedFd(int fd) : fd_(fd) {}
  ~ScopedFd() {
    if (fd_ >= 0) {
      close(fd_);
    }
  }
  ScopedFd(const ScopedFd&) = delete;
  ScopedFd& operator=(const ScopedFd&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

}  // namespace

void make_dirs(const std::string& path) {
  const int error_number = detail::create_directories(path, 0755);
  if (error_number != 0) {
    ADD_FAILURE() << "cannot create folder " << path << ": " << std::strerror(error_number);
  }
}

void write_file(const std::string& path, const std::string& content) {
  const std::string::size_type slash = path.rfind('/');
  if (slash != std::string::npos && slash != 0) {
    make_dirs(path.substr(0, slash));
  }
  ScopedFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  if (file.get() < 0) {
    ADD_FAILURE() << "cannot create " << path << ": " << std::strerror(errno);
    return;
  }
  std::string::size_type written = 0;
  while (written < content.size()) {
    const ssize_t count = write(file.get(), content.data() + written, content.size() - written);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      ADD_FAILURE() << "cannot write " << path << ": " << std::strerror(errno);
      return;
    }
    written += static_cast<std::string::size_type>(count);
  }
}

std::string read_file(const std::string& path) {
  ScopedFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.get() < 0) {
    ADD_FAILURE() << "cannot open " << path << ": " << std::strerror(errno);
    return {};
  }
  std::string content;
  char buffer[4096];
  for (;;) {
    const ssize_t count = read(file.get(), buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      ADD_FAILURE() << "cannot read " << path << ": " << std::strerror(errno);
      return {};
    }
    if (count == 0) {
      return content;
    }
    content.append(buffer, static_cast<std::string::size_type>(count));
  }
}

}  // namespace qira::test
