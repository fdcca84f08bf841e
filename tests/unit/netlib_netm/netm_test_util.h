// Shared pieces of the network manager's tests: the module loaded as the
// host loads it, with every log line, process call and wired netlib call
// observed; the device identity; exact log assertions; and scoped changes of
// the sandbox (mounts, file-size limit) that undo themselves.
#ifndef QIRA_TESTS_UNIT_NETLIB_NETM_NETM_TEST_UTIL_H
#define QIRA_TESTS_UNIT_NETLIB_NETM_NETM_TEST_UTIL_H

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "qira/host/seams.h"
#include "qira/netlib/context.h"
#include "qira/variant/variant.h"

namespace qira::test::netm {

inline constexpr const char* kModule = "qira_network_utils_wireless";
inline constexpr const char* kStationFile = "src/netlib_netm/station_file.cpp";
inline constexpr const char* kApFilesFile = "src/netlib_netm/ap_files.cpp";
inline constexpr const char* kApInterfaceFile = "src/netlib_netm/ap_interface.cpp";
inline constexpr int kLevelError = 3;

// The fields of one expected log line of the module (level 3, reserved 0).
struct ExpectedLine {
  std::string file;
  std::string function;
  int error_number;
  std::string message;
};

// Exactly these lines were logged, in this order, with every field checked.
void expect_lines(const qira::host::LogCapture& log, const std::vector<ExpectedLine>& expected);

// Every process call, in order, as "program arg arg..." with its kind
// ("run", "shell", "daemon", "signal N").
std::vector<std::string> describe_calls(const std::vector<qira::host::ProcessCall>& calls);
// Every wired netlib call, in order, as "function(arg, arg, ...)" ("[a b]"
// for a name-server list); the context must be `ctx`.
std::vector<std::string> describe_netlib_calls(const std::vector<qira::host::NetlibCall>& calls,
                                               void* ctx);

// An identity record with these members.
qira::variant::Variant identity(std::uint64_t sysid, const std::string& name,
                                const std::string& hwaddr);

// Names in "/tmp" that begin "wlan0.conf.".
std::vector<std::string> temporary_station_files();

// Removes `path` if it exists (file or empty folder).
void remove_path(const std::string& path);

// A file system mounted at `target` for the life of the object (detached on
// destruction). `options` as for mount(2), e.g. "size=1m".
class ScopedMount {
 public:
  ScopedMount(const std::string& target, unsigned long flags, const std::string& options);
  ~ScopedMount();
  ScopedMount(const ScopedMount&) = delete;
  ScopedMount& operator=(const ScopedMount&) = delete;
  bool mounted() const { return mounted_; }

 private:
  std::string target_;
  bool mounted_ = false;
};

// `path` (an existing file) made read-only by a bind mount of itself.
class ScopedReadOnlyFile {
 public:
  explicit ScopedReadOnlyFile(const std::string& path);
  ~ScopedReadOnlyFile();
  ScopedReadOnlyFile(const ScopedReadOnlyFile&) = delete;
  ScopedReadOnlyFile& operator=(const ScopedReadOnlyFile&) = delete;
  bool mounted() const { return mounted_; }

 private:
  std::string path_;
  bool mounted_ = false;
};

// Writes past `bytes` fail with EFBIG (SIGXFSZ ignored) while alive.
class ScopedFileSizeLimit {
 public:
  explicit ScopedFileSizeLimit(unsigned long bytes);
  ~ScopedFileSizeLimit();
  ScopedFileSizeLimit(const ScopedFileSizeLimit&) = delete;
  ScopedFileSizeLimit& operator=(const ScopedFileSizeLimit&) = delete;

 private:
  unsigned long previous_soft_ = 0;
  unsigned long previous_hard_ = 0;
  void (*previous_handler_)(int) = nullptr;
};

// A library context as the host sets it up (shared interface state
// initialised, no hook, the module states absent: the network manager reads
// only the shared state), the files of the network manager removed, and the
// log, processes and wired netlib calls observed from then on. The functions
// called are those of the module this binary links (the build's module).
class NetmTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  void* ctx() { return &context_; }
  void set_identity(std::uint64_t sysid, const std::string& name, const std::string& hwaddr);
  std::vector<std::string> process_calls() const { return describe_calls(processes_.calls()); }
  std::vector<std::string> netlib_calls() { return describe_netlib_calls(netlib_.calls(), ctx()); }

  qira::netlib::iface_state state_{1, -1, nullptr};
  qira::netlib::library_context context_{0, &state_, {nullptr, nullptr}, nullptr, nullptr};
  qira::host::LogCapture log_;
  qira::host::ProcessRecorder processes_;
  qira::host::NetlibRecorder netlib_;
};

}  // namespace qira::test::netm

#endif  // QIRA_TESTS_UNIT_NETLIB_NETM_NETM_TEST_UTIL_H
