// Shared pieces of the network manager's tests.
#include "unit/netlib_netm/netm_test_util.h"
#include "support/recorded_calls.h"

#include <dirent.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace qira::test::netm {

void expect_lines(const qira::host::LogCapture& log, const std::vector<ExpectedLine>& expected) {
  const std::vector<qira::host::LogRecord> records = log.records();
  ASSERT_EQ(records.size(), expected.size())
      << "lines: " << ::testing::PrintToString(log.messages());
  for (std::size_t index = 0; index < expected.size(); ++index) {
    SCOPED_TRACE("line " + std::to_string(index) + ": " + expected[index].message);
    const qira::host::LogRecord& record = records[index];
    EXPECT_EQ(record.module, kModule);
    EXPECT_EQ(record.file, expected[index].file);
    EXPECT_EQ(record.function, expected[index].function);
    EXPECT_GT(record.line, 0);
    EXPECT_EQ(record.level, kLevelError);
    EXPECT_EQ(record.error_number, expected[index].error_number);
    EXPECT_EQ(record.reserved, 0);
    EXPECT_EQ(record.message, expected[index].message);
  }
}

std::vector<std::string> describe_calls(const std::vector<qira::host::ProcessCall>& calls) {
  return describe_process_calls(calls);
}

std::vector<std::string> describe_netlib_calls(const std::vector<qira::host::NetlibCall>& calls,
                                               void* ctx) {
  for (const qira::host::NetlibCall& call : calls) {
    EXPECT_EQ(call.ctx, ctx) << call.function;
  }
  return qira::test::describe_netlib_calls(calls);
}

qira::variant::Variant identity(std::uint64_t sysid, const std::string& name,
                                const std::string& hwaddr) {
  qira::variant::Variant record;
  record["sysid"] = static_cast<unsigned long long>(sysid);
  record["name"] = name;
  record["hwaddr"] = hwaddr;
  return record;
}

std::vector<std::string> temporary_station_files() {
  std::vector<std::string> names;
  DIR* folder = opendir("/tmp");
  if (folder == nullptr) {
    ADD_FAILURE() << "cannot list /tmp: " << std::strerror(errno);
    return names;
  }
  while (const dirent* entry = readdir(folder)) {
    const std::string name = entry->d_name;
    if (name.rfind("wlan0.conf.", 0) == 0) {
      names.push_back(name);
    }
  }
  closedir(folder);
  std::sort(names.begin(), names.end());
  return names;
}

void remove_path(const std::string& path) {
  if (unlink(path.c_str()) != 0 && errno == EISDIR) {
    rmdir(path.c_str());
  }
}

ScopedMount::ScopedMount(const std::string& target, unsigned long flags, const std::string& options)
    : target_(target) {
  mounted_ = mount("tmpfs", target.c_str(), "tmpfs", flags, options.c_str()) == 0;
  EXPECT_TRUE(mounted_) << "mount tmpfs on " << target << ": " << std::strerror(errno);
}

ScopedMount::~ScopedMount() {
  if (mounted_) {
    EXPECT_EQ(umount2(target_.c_str(), MNT_DETACH), 0) << std::strerror(errno);
  }
}

ScopedReadOnlyFile::ScopedReadOnlyFile(const std::string& path) : path_(path) {
  // The type is ignored for a bind and a remount; "none" rather than a null
  // pointer, which valgrind's memcheck would read as a string.
  mounted_ = mount(path.c_str(), path.c_str(), "none", MS_BIND, nullptr) == 0;
  EXPECT_TRUE(mounted_) << "bind " << path << ": " << std::strerror(errno);
  if (mounted_) {
    EXPECT_EQ(mount(nullptr, path.c_str(), "none", MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0)
        << "remount " << path << " read-only: " << std::strerror(errno);
  }
}

ScopedReadOnlyFile::~ScopedReadOnlyFile() {
  if (mounted_) {
    EXPECT_EQ(umount2(path_.c_str(), MNT_DETACH), 0) << std::strerror(errno);
  }
}

ScopedFileSizeLimit::ScopedFileSizeLimit(unsigned long bytes) {
  previous_handler_ = signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
  previous_soft_ = limit.rlim_cur;
  previous_hard_ = limit.rlim_max;
  limit.rlim_cur = bytes;
  EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0) << std::strerror(errno);
}

ScopedFileSizeLimit::~ScopedFileSizeLimit() {
  rlimit limit{};
  limit.rlim_cur = previous_soft_;
  limit.rlim_max = previous_hard_;
  EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0) << std::strerror(errno);
  signal(SIGXFSZ, previous_handler_);
}

void NetmTest::SetUp() {
  for (const char* path :
       {"/etc/wlan0.conf", "/etc/hostapd.conf", "/etc/dnsmasq.conf", "/etc/hosts"}) {
    remove_path(path);
  }
  // Temporary station files that earlier tests of this process left behind.
  for (const std::string& name : temporary_station_files()) {
    remove_path("/tmp/" + name);
  }
  qira::host::clear_identity_record();
  log_.clear();
}

void NetmTest::TearDown() {
  qira::host::clear_identity_record();
}

void NetmTest::set_identity(std::uint64_t sysid, const std::string& name,
                            const std::string& hwaddr) {
  qira::host::set_identity_record(identity(sysid, name, hwaddr));
}

}  // namespace qira::test::netm
