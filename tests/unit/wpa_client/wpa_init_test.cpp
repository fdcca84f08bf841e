// Init's failures, one per step, each with its exact log line, the
// descriptor it leaves in the object and no client socket file left behind;
// and 10,000 Init/Close cycles that leave nothing behind either.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "qira/network/wpa_client.h"
#include "support/sandbox.h"
#include "support/socket_interpose.h"
#include "support/wpa_supplicant_sim.h"
#include "unit/wpa_client/wpa_test_util.h"

namespace qira::test::wpa {
namespace {

using namespace qira::network;
using qira::host::LogCapture;

bool is_client_path(const sockaddr* address) {
  const sockaddr_un* unix_address = reinterpret_cast<const sockaddr_un*>(address);
  return unix_address->sun_family == AF_UNIX &&
         std::strncmp(unix_address->sun_path, "/tmp/wpacl-", 11) == 0;
}

// Where descriptor `fd` leads ("" when it is not open).
std::string descriptor_target(int fd) {
  char target[256] = "";
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  const ssize_t length = ::readlink(link.c_str(), target, sizeof(target) - 1);
  return length > 0 ? std::string(target, static_cast<std::size_t>(length)) : std::string();
}

// A failed Init: false, these lines, the socket closed but its number kept,
// and no client socket file.
void expect_failed_init(WpaClient& client, const std::string& ifname,
                        const std::vector<ExpectedRecord>& lines) {
  const std::size_t descriptors = open_descriptor_count();
  LogCapture log;
  EXPECT_FALSE(client.Init(ifname));
  expect_records(log, lines);
  EXPECT_FALSE(client.IsInitialized());
  EXPECT_TRUE(client_socket_files().empty());
  EXPECT_EQ(open_descriptor_count(), descriptors);
}

TEST(WpaClientInitFailure, SocketFailure) {
  struct FailingSocket : SocketInterposer {
    std::optional<int> on_socket(int domain, int type, int) override {
      if (domain != AF_UNIX || type != SOCK_DGRAM) {
        return std::nullopt;
      }
      errno = EMFILE;
      return -1;
    }
  } failing;
  WpaClient client;
  expect_failed_init(client, "qs0", {{kClientFile, "Init", 3, EMFILE, "socket() failed"}});
  EXPECT_EQ(client_fd(client), -1);
}

TEST(WpaClientInitFailure, MkstempFailureClosesTheSocket) {
  // A read-only file system over /tmp (this test process's own mount).
  ASSERT_EQ(0, ::mount("qira-readonly-tmp", "/tmp", "tmpfs", MS_RDONLY, "mode=1777"))
      << std::strerror(errno);
  WpaClient client;
  expect_failed_init(client, "qs0", {{kClientFile, "Init", 3, EROFS, "mkstemp failed"}});
  const int fd = client_fd(client);
  EXPECT_GT(fd, 2);
  EXPECT_EQ(::fcntl(fd, F_GETFD), -1);  // closed, its number kept
  ASSERT_EQ(0, ::umount("/tmp")) << std::strerror(errno);
}

// Sees the close of the temporary file that mkstemp made: closes it for
// real, then reports `close_error` (0: success) and, when asked, removes the
// file first so that the client's own removal fails.
struct TemporaryFileTamper : SocketInterposer {
  int close_error = 0;
  bool remove_file = false;
  std::vector<std::string> seen;
  std::optional<int> on_close(int fd) override {
    const std::string target = descriptor_target(fd);
    if (target.rfind("/tmp/wpacl-", 0) != 0) {
      return std::nullopt;
    }
    seen.push_back(target);
    libc::close(fd);
    if (remove_file) {
      ::unlink(target.c_str());
    }
    if (close_error != 0) {
      errno = close_error;
      return -1;
    }
    return 0;
  }
};

TEST(WpaClientInitWarning, FailedCloseOfTheTemporaryFileIsAWarning) {
  WpaSupplicantSim daemon("qs0");
  TemporaryFileTamper tamper;
  tamper.close_error = EIO;
  WpaClient client;
  LogCapture log;
  EXPECT_TRUE(client.Init("qs0"));
  expect_records(log, {{kClientFile, "Init", 4, EIO, "close failed"}});
  ASSERT_EQ(tamper.seen.size(), 1u);
  EXPECT_EQ(tamper.seen[0], client_bytes(client).local_address.sun_path);
}

TEST(WpaClientInitWarning, FailedRemovalOfTheTemporaryFileIsAWarning) {
  WpaSupplicantSim daemon("qs0");
  TemporaryFileTamper tamper;
  tamper.remove_file = true;
  WpaClient client;
  LogCapture log;
  EXPECT_TRUE(client.Init("qs0"));
  expect_records(log, {{kClientFile, "Init", 4, ENOENT, "unlink failed"}});
  std::string reply;
  EXPECT_TRUE(client.Request("PING", reply, 1000));
  EXPECT_EQ(reply, "PONG\n");
}

// Answers bind on client socket paths with -1 and errno from `errors` (one
// per call, then the real bind), recording every path asked for.
struct BindFailures : SocketInterposer {
  std::vector<int> errors;
  std::vector<std::string> paths;
  std::vector<socklen_t> lengths;
  std::optional<int> on_bind(int, const sockaddr* address, socklen_t length) override {
    if (!is_client_path(address)) {
      return std::nullopt;
    }
    paths.push_back(reinterpret_cast<const sockaddr_un*>(address)->sun_path);
    lengths.push_back(length);
    if (paths.size() > errors.size()) {
      return std::nullopt;
    }
    errno = errors[paths.size() - 1];
    return -1;
  }
};

TEST(WpaClientInit, AddressInUseOnceTriesAFreshName) {
  WpaSupplicantSim daemon("qs0");
  BindFailures binds;
  binds.errors = {EADDRINUSE};
  WpaClient client;
  LogCapture log;
  EXPECT_TRUE(client.Init("qs0"));
  EXPECT_TRUE(log.records().empty());
  ASSERT_EQ(binds.paths.size(), 2u);
  EXPECT_NE(binds.paths[0], binds.paths[1]);
  EXPECT_EQ(binds.lengths, (std::vector<socklen_t>{110, 110}));
  EXPECT_EQ(binds.paths[1], client_bytes(client).local_address.sun_path);
  EXPECT_EQ(client_socket_files(), std::vector<std::string>{binds.paths[1].substr(5)});
  std::string reply;
  EXPECT_TRUE(client.Request("PING", reply, 1000));
  EXPECT_EQ(reply, "PONG\n");
}

TEST(WpaClientInit, AddressInUseTwiceStillConnects) {
  WpaSupplicantSim daemon("qs0");
  BindFailures binds;
  binds.errors = {EADDRINUSE, EADDRINUSE};
  WpaClient client;
  LogCapture log;
  EXPECT_TRUE(client.Init("qs0"));
  EXPECT_TRUE(client.IsInitialized());
  EXPECT_TRUE(log.records().empty());
  EXPECT_EQ(binds.paths.size(), 2u);
  EXPECT_TRUE(client_socket_files().empty());
  client.Close();
  EXPECT_TRUE(client_socket_files().empty());
}

TEST(WpaClientInitFailure, OtherBindErrorFails) {
  BindFailures binds;
  binds.errors = {EACCES};
  WpaClient client;
  expect_failed_init(client, "qs0", {{kClientFile, "Init", 3, EACCES, "bind() failed"}});
  EXPECT_EQ(binds.paths.size(), 1u);
  EXPECT_EQ(::fcntl(client_fd(client), F_GETFD), -1);
}

TEST(WpaClientInitFailure, AddressInUseThenOtherErrorFails) {
  BindFailures binds;
  binds.errors = {EADDRINUSE, ENOMEM};
  WpaClient client;
  expect_failed_init(client, "qs0", {{kClientFile, "Init", 3, ENOMEM, "bind() failed"}});
  EXPECT_EQ(binds.paths.size(), 2u);
}

TEST(WpaClientInitFailure, InterfaceNameOf84CharactersIsTooLong) {
  WpaClient client;
  expect_failed_init(client, std::string(84, 'a'),
                     {{kClientFile, "Init", 3, 0, "Control path is too long"}});
  EXPECT_EQ(::fcntl(client_fd(client), F_GETFD), -1);
}

TEST(WpaClientInit, InterfaceNameOf83CharactersIsAccepted) {
  const std::string ifname(83, 'a');
  WpaSupplicantSim daemon(ifname);
  WpaClient client;
  LogCapture log;
  EXPECT_TRUE(client.Init(ifname));
  EXPECT_TRUE(log.records().empty());
  std::string reply;
  EXPECT_TRUE(client.Request("PING", reply, 1000));
  EXPECT_EQ(reply, "PONG\n");
}

TEST(WpaClientInitFailure, NoDaemonListening) {
  WpaClient client;
  expect_failed_init(client, "qs0", {{kClientFile, "Init", 3, ENOENT, "connect() failed"}});
  EXPECT_EQ(::fcntl(client_fd(client), F_GETFD), -1);
}

TEST(WpaClientInitFailure, StaleControlSocketRefusesTheConnection) {
  { WpaSupplicantSim daemon("qs0"); }
  // A socket file whose daemon is gone.
  const int stale = libc::socket(AF_UNIX, SOCK_DGRAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, "/var/run/wpa_supplicant/qs0");
  ASSERT_EQ(0, libc::bind(stale, reinterpret_cast<sockaddr*>(&address), sizeof(address)));
  libc::close(stale);
  WpaClient client;
  expect_failed_init(client, "qs0", {{kClientFile, "Init", 3, ECONNREFUSED, "connect() failed"}});
}

TEST(WpaClientInitFailure, NonBlockingModeFailure) {
  WpaSupplicantSim daemon("qs0");
  // Connects for real, then puts a descriptor of another kind in the
  // socket's place: one whose status flags cannot be changed.
  struct PathInPlaceOfSocket : SocketInterposer {
    std::optional<int> on_connect(int fd, const sockaddr* address, socklen_t length) override {
      const int result = libc::connect(fd, address, length);
      const int path_fd = ::open("/", O_PATH | O_CLOEXEC);
      ::dup2(path_fd, fd);
      libc::close(path_fd);
      return result;
    }
  } replace;
  WpaClient client;
  expect_failed_init(client, "qs0",
                     {{kClientFile, "Init", 3, 0, "Failed to switch to non-blocking mode"}});
  EXPECT_EQ(::fcntl(client_fd(client), F_GETFD), -1);
}

TEST(WpaClientInit, FailedInitCanBeRetried) {
  WpaClient client;
  {
    LogCapture log;
    EXPECT_FALSE(client.Init("qs0"));
  }
  WpaSupplicantSim daemon("qs0");
  EXPECT_TRUE(client.Init("qs0"));
  std::string reply;
  EXPECT_TRUE(client.Request("PING", reply, 1000));
  EXPECT_EQ(reply, "PONG\n");
}

TEST(WpaClientInit, TenThousandCyclesLeaveNothingBehind) {
  WpaSupplicantSim daemon("qs0");
  const std::size_t descriptors = open_descriptor_count();
  LogCapture log;
  WpaClient client;
  for (int cycle = 0; cycle < 10000; ++cycle) {
    ASSERT_TRUE(client.Init("qs0")) << "cycle " << cycle;
    client.Close();
  }
  EXPECT_TRUE(client_socket_files().empty());
  EXPECT_EQ(open_descriptor_count(), descriptors);
  EXPECT_TRUE(log.records().empty());
  EXPECT_TRUE(daemon.requests().empty());
}

}  // namespace
}  // namespace qira::test::wpa
