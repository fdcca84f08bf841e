// The floor of a control request: the least that any wpa_supplicant control
// client does for one request and its reply, against the same simulated
// wpa_supplicant as the client benchmark: one send, one wait for the socket
// to become readable, one receive into a buffer, and a look at the reply.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "support/alloc_counter.h"
#include "support/bench_checks.h"
#include "support/measurement.h"
#include "support/wpa_supplicant_sim.h"

namespace qira::bench::floor {
namespace {

constexpr const char* kInterface = "wlan0";
constexpr char kRequest[] = "PING";
constexpr char kReply[] = "PONG\n";
constexpr long kTimeoutSeconds = 1;
// wpa_supplicant's replies fit in 4096 bytes (its own client's buffer).
constexpr std::size_t kReplyBufferSize = 4096;

// A connected, non-blocking client socket bound to a unique path; removes
// the path and closes the socket when destroyed.
class ControlSocket {
 public:
  explicit ControlSocket(const std::string& server) {
    fd_ = socket(AF_UNIX, SOCK_DGRAM, 0);
    if (fd_ < 0) {
      return;
    }
    char path[] = "/tmp/floor-XXXXXX";
    const int file = mkstemp(path);
    if (file < 0) {
      return;
    }
    close(file);
    unlink(path);
    sockaddr_un local{};
    local.sun_family = AF_UNIX;
    std::strcpy(local.sun_path, path);
    sockaddr_un remote{};
    remote.sun_family = AF_UNIX;
    std::strncpy(remote.sun_path, server.c_str(), sizeof(remote.sun_path) - 1);
    if (bind(fd_, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) != 0) {
      return;
    }
    local_path_ = path;
    connected_ = connect(fd_, reinterpret_cast<const sockaddr*>(&remote), sizeof(remote)) == 0 &&
                 fcntl(fd_, F_SETFL, fcntl(fd_, F_GETFL) | O_NONBLOCK) == 0;
  }
  ~ControlSocket() {
    if (!local_path_.empty()) {
      unlink(local_path_.c_str());
    }
    if (fd_ >= 0) {
      close(fd_);
    }
  }
  ControlSocket(const ControlSocket&) = delete;
  ControlSocket& operator=(const ControlSocket&) = delete;

  bool connected() const { return connected_; }

  // One request and its reply; true when the reply is kReply.
  bool ping() const {
    if (send(fd_, kRequest, sizeof(kRequest) - 1, 0) < 0) {
      return false;
    }
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd_, &readable);
    timeval wait{kTimeoutSeconds, 0};
    if (select(fd_ + 1, &readable, nullptr, nullptr, &wait) != 1) {
      return false;
    }
    char reply[kReplyBufferSize];
    const ssize_t received = recv(fd_, reply, sizeof(reply), 0);
    return received == static_cast<ssize_t>(sizeof(kReply) - 1) &&
           std::memcmp(reply, kReply, sizeof(kReply) - 1) == 0;
  }

 private:
  int fd_ = -1;
  std::string local_path_;
  bool connected_ = false;
};

void wpa_client_floor(benchmark::State& state) {
  qira::test::WpaSupplicantSim daemon(kInterface);
  const ControlSocket client(daemon.path());
  if (!client.connected() || !client.ping()) {
    fail(state, "the floor does not reach the simulated wpa_supplicant");
    return;
  }
  const Measurement measurement;
  for (auto _ : state) {
    bool answered = false;
    {
      const CountedRegion counted;
      answered = client.ping();
    }
    if (!answered) {
      fail(state, "PING was not answered with PONG");
      return;
    }
  }
  state.SetItemsProcessed(state.iterations());
  measurement.finish(state, "floor/wpa_client/ping");
}

BENCHMARK(wpa_client_floor)->Apply(fixed_iterations);

}  // namespace
}  // namespace qira::bench::floor
