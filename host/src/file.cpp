// File, FdReaderWriter, SetFdNonBlock and fileExists.
#include "qira/utils/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host_internal.h"
#include "qira/utils/fd.h"

namespace qira::utils {

namespace {

// Files the network manager writes hold network secrets.
constexpr mode_t kDefaultPermissions = 0600;

bool open_flags(const FILE_OPEN_MODE& mode, int& flags) {
  // A caller may pass any number as the mode (an unknown one fails with
  // EINVAL): read the number the object holds instead of loading it as an
  // enumerator it may not be (hence also the reference).
  static_assert(sizeof mode == sizeof(int), "FILE_OPEN_MODE holds an int");
  int number = 0;
  std::memcpy(&number, &mode, sizeof number);
  switch (number) {
    case FILE_OPEN_READ:
      flags = O_RDONLY;
      return true;
    case FILE_OPEN_READ_WRITE:
      flags = O_RDWR | O_CREAT;
      return true;
    case FILE_OPEN_WRITE:
      flags = O_WRONLY | O_CREAT | O_TRUNC;
      return true;
    case FILE_OPEN_APPEND:
      flags = O_WRONLY | O_CREAT | O_APPEND;
      return true;
  }
  return false;
}

bool read_to_end(int fd, std::string& out) {
  out.clear();
  char buffer[4096];
  while (true) {
    ssize_t n = ::read(fd, buffer, sizeof(buffer));
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n < 0) {
      return false;
    }
    if (n == 0) {
      return true;
    }
    out.append(buffer, static_cast<std::size_t>(n));
  }
}

}  // namespace

FdReaderWriter::FdReaderWriter() : fd_(-1) {}

FdReaderWriter::~FdReaderWriter() = default;

bool FdReaderWriter::WriteString(const std::string& text) {
  if (fd_ < 0) {
    errno = EBADF;
    return false;
  }
  std::size_t done = 0;
  while (done < text.size()) {
    ssize_t n = ::write(fd_, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n < 0) {
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  return true;
}

bool FdReaderWriter::ReadString(std::string& out) {
  if (fd_ < 0) {
    errno = EBADF;
    return false;
  }
  return read_to_end(fd_, out);
}

File::File() = default;

File::~File() {
  Close();
}

bool File::Initialize(const std::string& path, FILE_OPEN_MODE mode, unsigned int permissions) {
  Close();
  int flags = 0;
  if (!open_flags(mode, flags)) {
    errno = EINVAL;
    return false;
  }
  mode_t create_mode = permissions == 0 ? kDefaultPermissions : static_cast<mode_t>(permissions);
  int fd;
  do {
    fd = ::open(path.c_str(), flags | O_CLOEXEC, create_mode);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) {
    return false;
  }
  fd_ = fd;
  return true;
}

void File::Close() {
  if (fd_ >= 0) {
    ::close(fd_);
    fd_ = -1;
  }
}

bool File::ReadStringAll(const std::string& path, std::string& out) {
  int fd;
  do {
    fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) {
    return false;
  }
  qira::host::internal::unique_fd holder(fd);
  return read_to_end(holder.get(), out);
}

bool SetFdNonBlock(int fd) {
  int flags = ::fcntl(fd, F_GETFL);
  if (flags < 0) {
    return false;
  }
  return (flags & O_NONBLOCK) != 0 || ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

}  // namespace qira::utils

bool fileExists(const char* path, bool regular_only) {
  if (path == nullptr) {
    return false;
  }
  struct stat status {};
  if (::stat(path, &status) != 0) {
    return false;
  }
  return !regular_only || S_ISREG(status.st_mode);
}
