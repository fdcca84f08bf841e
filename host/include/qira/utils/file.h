// Files of the host library.
#ifndef QIRA_UTILS_FILE_H
#define QIRA_UTILS_FILE_H

#include <string>

namespace qira::utils {

enum FILE_OPEN_MODE {
  FILE_OPEN_READ = 0,        // read only; the file must exist
  FILE_OPEN_READ_WRITE = 1,  // read and write; created when missing
  FILE_OPEN_WRITE = 2,       // create, or replace the content of, a file and write it
  FILE_OPEN_APPEND = 3,      // write at the end; created when missing
};

// A descriptor that can be written and read whole.
class FdReaderWriter {
 public:
  FdReaderWriter();
  virtual ~FdReaderWriter();
  FdReaderWriter(const FdReaderWriter&) = delete;
  FdReaderWriter& operator=(const FdReaderWriter&) = delete;

  // Writes all of `text`, retrying short writes and EINTR. True on success.
  bool WriteString(const std::string& text);
  // Reads from the current position to the end into `out`. True on success.
  bool ReadString(std::string& out);
  int GetFd() const { return fd_; }

 protected:
  int fd_;
};

class File : public FdReaderWriter {
 public:
  File();
  ~File() override;

  // Opens `path` in `mode`. `permissions` applies to a file the call creates;
  // 0 means 0600, because the files the network manager writes hold network
  // secrets. Closes a file opened before. True on success (errno tells why not).
  bool Initialize(const std::string& path, FILE_OPEN_MODE mode, unsigned int permissions);
  void Close();

  // Reads the whole file at `path` into `out`. True on success.
  static bool ReadStringAll(const std::string& path, std::string& out);
};

}  // namespace qira::utils

#endif  // QIRA_UTILS_FILE_H
