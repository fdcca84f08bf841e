// The client's transport against the simulated wpa_supplicant: set-up,
// requests and replies, time-outs, events met on the way, termination and
// tear-down.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <fstream>
#include <string>
#include <thread>
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
using Answer = WpaSupplicantSim::Answer;

constexpr const char kConnected[] =
    "<3>CTRL-EVENT-CONNECTED - Connection to 00:11:22:33:44:55 completed [id=0 id_str=]";
constexpr const char kDisconnected[] =
    "<3>CTRL-EVENT-DISCONNECTED bssid=00:11:22:33:44:55 reason=3 locally_generated=1";

bool is_socket(const char* path) {
  struct stat status {};
  return ::stat(path, &status) == 0 && S_ISSOCK(status.st_mode);
}

TEST(WpaClientIdle, ConstructedClientIsIdleWithDescriptorZero) {
  LogCapture log;
  WpaClient client;
  const ClientBytes bytes = client_bytes(client);
  EXPECT_FALSE(bytes.initialised);
  EXPECT_FALSE(bytes.subscribed);
  EXPECT_EQ(bytes.socket_fd, 0);
  EXPECT_FALSE(client.IsInitialized());
  std::string out = "kept";
  EXPECT_FALSE(client.Send("PING", 10));
  EXPECT_FALSE(client.Receive(out, 10));
  EXPECT_FALSE(client.Request("PING", out, 10));
  EXPECT_EQ(out, "kept");
  EXPECT_FALSE(client.Service(10));
  EXPECT_FALSE(client.Subscribe());
  EXPECT_FALSE(client.Unsubscribe());
  client.Close();
  EXPECT_EQ(client_fd(client), 0);  // Close of an idle client does nothing
  EXPECT_TRUE(log.records().empty());
}

// The host builds the client on its own stack with the size its headers
// give: flags, descriptor, sockaddr_un (110), std::string, std::list,
// std::multimap. One expectation per camera ABI, so that every target runs
// the same test.
#if defined(__x86_64__) || defined(__aarch64__)
constexpr std::size_t kHostsWpaClientSize = 224;  // LP64
#elif defined(__arm__)
constexpr std::size_t kHostsWpaClientSize = 180;  // 32-bit ARM EABI
#endif
#if defined(__x86_64__) || defined(__aarch64__) || defined(__arm__)
TEST(WpaClientIdle, SizeIsTheHosts) {
  EXPECT_EQ(sizeof(WpaClient), kHostsWpaClientSize);
}
#endif

TEST(WpaClientIdle, WpaSupplicantIsRunningAsksForTheControlFolder) {
  EXPECT_FALSE(WpaClient::WpaSupplicantIsRunning());
  make_dirs("/var/run/wpa_supplicant");
  EXPECT_TRUE(WpaClient::WpaSupplicantIsRunning());
}

TEST(WpaClientInit, BindsAUniqueClientPathAndConnects) {
  WpaSupplicantSim daemon("qs0");
  LogCapture log;
  WpaClient client;
  ASSERT_TRUE(client.Init("qs0"));
  EXPECT_TRUE(client.IsInitialized());
  const ClientBytes bytes = client_bytes(client);
  EXPECT_TRUE(bytes.initialised);
  EXPECT_FALSE(bytes.subscribed);
  EXPECT_GT(bytes.socket_fd, 2);
  EXPECT_EQ(bytes.local_address.sun_family, AF_UNIX);
  const std::string path = bytes.local_address.sun_path;
  ASSERT_EQ(path.size(), 17u);
  EXPECT_EQ(path.substr(0, 11), "/tmp/wpacl-");
  EXPECT_TRUE(is_socket(path.c_str()));
  EXPECT_EQ(client_socket_files(), std::vector<std::string>{path.substr(5)});
  EXPECT_NE(::fcntl(bytes.socket_fd, F_GETFL) & O_NONBLOCK, 0);
  std::string reply;
  EXPECT_TRUE(client.Request("PING", reply, 1000));
  EXPECT_EQ(reply, "PONG\n");
  EXPECT_EQ(daemon.requests(), std::vector<std::string>{"PING"});
  EXPECT_TRUE(log.records().empty());
}

TEST(WpaClientInit, SecondInitDoesNotTouchTheSocket) {
  WpaSupplicantSim daemon("qs0");
  WpaClient client;
  ASSERT_TRUE(client.Init("qs0"));
  const ClientBytes before = client_bytes(client);
  const std::size_t descriptors = open_descriptor_count();
  LogCapture log;
  EXPECT_TRUE(client.Init("other0"));
  const ClientBytes after = client_bytes(client);
  EXPECT_EQ(after.socket_fd, before.socket_fd);
  EXPECT_STREQ(after.local_address.sun_path, before.local_address.sun_path);
  EXPECT_EQ(open_descriptor_count(), descriptors);
  EXPECT_EQ(client_socket_files().size(), 1u);
  std::string reply;
  EXPECT_TRUE(client.Request("PING", reply, 1000));
  EXPECT_EQ(reply, "PONG\n");
  EXPECT_EQ(daemon.requests(), std::vector<std::string>{"PING"});
  EXPECT_TRUE(log.records().empty());
}

class ConnectedClient : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(client_.Init("qs0")); }

  WpaSupplicantSim daemon_{"qs0"};
  WpaClient client_;
  EventRecorder recorder_;
};

TEST_F(ConnectedClient, ReplyIsExactlyTheReceivedBytes) {
  daemon_.reply("GET x", std::string("a\0b", 3));
  std::string reply = "old";
  EXPECT_TRUE(client_.Request("GET x", reply, 1000));
  EXPECT_EQ(reply, std::string("a\0b", 3));
}

TEST_F(ConnectedClient, RequestWithoutAnswerIsTrueWithEmptyReply) {
  daemon_.script("STATUS", Answer{});
  std::string reply = "old";
  EXPECT_TRUE(client_.Request("STATUS", reply, 100));
  EXPECT_EQ(reply, "");
  EXPECT_EQ(daemon_.requests(), std::vector<std::string>{"STATUS"});
}

TEST_F(ConnectedClient, ReceiveTimeOutLeavesOutUnchanged) {
  std::string out = "kept";
  EXPECT_TRUE(client_.Receive(out, 50));
  EXPECT_EQ(out, "kept");
  EXPECT_TRUE(client_.Service(0));
}

TEST_F(ConnectedClient, EmptyDatagramIsTrueWithOutUnchanged) {
  daemon_.reply("EMPTY", "");
  ASSERT_TRUE(client_.Send("EMPTY", 1000));
  std::string out = "kept";
  EXPECT_TRUE(client_.Receive(out, 1000));
  EXPECT_EQ(out, "kept");
}

TEST_F(ConnectedClient, LongDatagramIsCutAtTheBufferSize) {
  daemon_.reply("BIG", std::string(70000, 'x'));
  std::string reply;
  EXPECT_TRUE(client_.Request("BIG", reply, 1000));
  EXPECT_EQ(reply, std::string(65536, 'x'));
}

TEST_F(ConnectedClient, CommandIsSentAsOneDatagram) {
  std::string reply;
  EXPECT_TRUE(client_.Request("SET_NETWORK 0 ssid \"my cam\"", reply, 1000));
  EXPECT_EQ(reply, "UNKNOWN COMMAND\n");
  EXPECT_EQ(daemon_.requests(), std::vector<std::string>{"SET_NETWORK 0 ssid \"my cam\""});
}

TEST_F(ConnectedClient, EventsBeforeTheReplyAreProcessedInOrder) {
  ASSERT_TRUE(client_.Subscribe(&EventRecorder::callback, recorder_.subscriber("all")));
  Answer answer;
  answer.events_before = {kConnected, kDisconnected};
  answer.reply = "wpa_state=COMPLETED\n";
  daemon_.script("STATUS", answer);
  LogCapture log;
  std::string reply;
  EXPECT_TRUE(client_.Request("STATUS", reply, 1000));
  EXPECT_EQ(reply, "wpa_state=COMPLETED\n");
  ASSERT_EQ(recorder_.deliveries.size(), 2u);
  EXPECT_EQ(recorder_.deliveries[0].type, connected_to_ap);
  EXPECT_EQ(recorder_.deliveries[1].type, disconnected_from_ap);
  EXPECT_EQ(recorder_.deliveries[0].payload,
            string_map({{"ifname", "qs0"}, {"eventName", "connected_to_ap"}}));
  expect_records(
      log, {{kEventsFile, "ProcessEvent", 7, 0, std::string("Event received: ") + kConnected},
            {kEventsFile, "ProcessEvent", 7, 0, std::string("Event received: ") + kDisconnected}});
}

TEST_F(ConnectedClient, EventsAfterTheReplyWaitForTheNextReceive) {
  ASSERT_TRUE(client_.Subscribe(&EventRecorder::callback, recorder_.subscriber("all")));
  Answer answer;
  answer.reply = "OK\n";
  answer.events_after = {kConnected};
  daemon_.script("RECONNECT", answer);
  std::string reply;
  EXPECT_TRUE(client_.Request("RECONNECT", reply, 1000));
  EXPECT_EQ(reply, "OK\n");
  EXPECT_TRUE(recorder_.deliveries.empty());
  EXPECT_TRUE(client_.Service(1000));
  ASSERT_EQ(recorder_.names(), std::vector<std::string>{"all"});
  EXPECT_EQ(recorder_.deliveries[0].type, connected_to_ap);
}

TEST_F(ConnectedClient, ServiceDispatchesUntilTheTimeOut) {
  ASSERT_TRUE(client_.Subscribe(disconnected_from_ap, &EventRecorder::callback,
                                recorder_.subscriber("disconnect")));
  daemon_.send_event(kDisconnected);
  daemon_.send_event(kConnected);
  EXPECT_TRUE(client_.Service(200));
  EXPECT_EQ(recorder_.names(), std::vector<std::string>{"disconnect"});
  EXPECT_TRUE(client_.IsInitialized());
}

TEST_F(ConnectedClient, ServiceStopsAtANonEventDatagram) {
  ASSERT_TRUE(client_.Subscribe(&EventRecorder::callback, recorder_.subscriber("all")));
  Answer answer;
  answer.reply = "OK\n";
  answer.events_after = {kDisconnected};
  daemon_.script("RECONNECT", answer);
  ASSERT_TRUE(client_.Send("RECONNECT", 1000));
  EXPECT_TRUE(client_.Service(1000));  // takes the reply only
  EXPECT_TRUE(recorder_.deliveries.empty());
  EXPECT_TRUE(client_.Service(1000));
  EXPECT_EQ(recorder_.names(), std::vector<std::string>{"all"});
}

TEST_F(ConnectedClient, TerminatingEventWhileWaitingClosesTheClient) {
  ASSERT_TRUE(client_.Subscribe(&EventRecorder::callback, recorder_.subscriber("all")));
  ASSERT_TRUE(
      client_.Subscribe(connected_to_ap, &EventRecorder::callback, recorder_.subscriber("typed")));
  Answer status;
  status.events_before = {"<3>CTRL-EVENT-TERMINATING"};
  daemon_.script("STATUS", status);
  Answer detach;
  detach.reply = "OK\n";
  detach.terminate = true;
  daemon_.script("DETACH", detach);
  ASSERT_TRUE(client_.Send("STATUS", 1000));
  std::string out = "kept";
  EXPECT_TRUE(client_.Receive(out, 1000));
  EXPECT_EQ(out, "kept");
  EXPECT_FALSE(client_.IsInitialized());
  EXPECT_EQ(client_fd(client_), -1);
  EXPECT_TRUE(recorder_.deliveries.empty());
  EXPECT_EQ(daemon_.requests(), (std::vector<std::string>{"ATTACH", "STATUS", "DETACH"}));
  EXPECT_TRUE(client_socket_files().empty());
}

TEST_F(ConnectedClient, TerminationMidRequestLeavesTheRequestUnanswered) {
  Answer answer;
  answer.terminate = true;
  daemon_.script("STATUS", answer);
  std::string reply = "old";
  EXPECT_TRUE(client_.Request("STATUS", reply, 200));
  EXPECT_EQ(reply, "");
  EXPECT_TRUE(daemon_.terminated());
  EXPECT_FALSE(is_socket(daemon_.path().c_str()));
  LogCapture log;
  EXPECT_FALSE(client_.Request("PING", reply, 200));
  expect_records(log, {{kClientFile, "Send", 3, ECONNREFUSED, "send() failed"}});
  EXPECT_TRUE(client_.IsInitialized());
}

TEST_F(ConnectedClient, FailedReceiveIsFalse) {
  struct FailingRecv : SocketInterposer {
    int fd = -1;
    std::optional<ssize_t> on_recv(int call_fd, void*, size_t, int) override {
      if (call_fd != fd) {
        return std::nullopt;
      }
      errno = EIO;
      return -1;
    }
  } failing;
  failing.fd = client_fd(client_);
  LogCapture log;
  std::string reply = "old";
  EXPECT_FALSE(client_.Request("PING", reply, 1000));
  EXPECT_EQ(reply, "");
  EXPECT_TRUE(log.records().empty());
}

TEST_F(ConnectedClient, CloseDetachesRemovesTheFileAndClosesTheSocket) {
  const std::string path = client_bytes(client_).local_address.sun_path;
  const int fd = client_fd(client_);
  ASSERT_TRUE(client_.Subscribe());
  EXPECT_TRUE(client_bytes(client_).subscribed);
  LogCapture log;
  client_.Close();
  EXPECT_FALSE(client_.IsInitialized());
  const ClientBytes bytes = client_bytes(client_);
  EXPECT_FALSE(bytes.subscribed);
  EXPECT_EQ(bytes.socket_fd, -1);
  EXPECT_EQ(::fcntl(fd, F_GETFD), -1);
  EXPECT_FALSE(is_socket(path.c_str()));
  EXPECT_TRUE(client_socket_files().empty());
  EXPECT_EQ(daemon_.requests(), (std::vector<std::string>{"ATTACH", "DETACH"}));
  EXPECT_TRUE(log.records().empty());
  client_.Close();
  EXPECT_EQ(daemon_.requests().size(), 2u);
}

TEST_F(ConnectedClient, CloseClearsSubscribedEvenWhenDetachFails) {
  ASSERT_TRUE(client_.Subscribe());
  daemon_.reply("DETACH", "FAIL\n");
  client_.Close();
  EXPECT_FALSE(client_bytes(client_).subscribed);
  ASSERT_TRUE(client_.Init("qs0"));
  EXPECT_TRUE(client_.Subscribe());
  EXPECT_EQ(daemon_.requests(), (std::vector<std::string>{"ATTACH", "DETACH", "ATTACH"}));
}

TEST_F(ConnectedClient, CloseDropsAllEventSubscribersButKeepsTypedOnes) {
  ASSERT_TRUE(client_.Subscribe(&EventRecorder::callback, recorder_.subscriber("all")));
  ASSERT_TRUE(
      client_.Subscribe(connected_to_ap, &EventRecorder::callback, recorder_.subscriber("typed")));
  client_.Close();
  ASSERT_TRUE(client_.Init("qs0"));
  ASSERT_TRUE(client_.Subscribe());
  daemon_.send_event(kConnected);
  EXPECT_TRUE(client_.Service(200));
  EXPECT_EQ(recorder_.names(), std::vector<std::string>{"typed"});
}

TEST(WpaClientDestructor, ClosesTheClient) {
  WpaSupplicantSim daemon("qs0");
  int fd = -1;
  {
    WpaClient client;
    ASSERT_TRUE(client.Init("qs0"));
    ASSERT_TRUE(client.Subscribe());
    fd = client_fd(client);
    EXPECT_EQ(client_socket_files().size(), 1u);
  }
  EXPECT_EQ(daemon.requests(), (std::vector<std::string>{"ATTACH", "DETACH"}));
  EXPECT_TRUE(client_socket_files().empty());
  EXPECT_EQ(::fcntl(fd, F_GETFD), -1);
}

// Waits (polling, with a deadline) until thread `tid` sleeps in select.
bool blocked_in_select(pid_t tid, unsigned int deadline_ms) {
  const std::string path = "/proc/self/task/" + std::to_string(tid) + "/syscall";
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(deadline_ms);
  while (std::chrono::steady_clock::now() < deadline) {
    std::ifstream file(path);
    long number = -1;
    file >> number;
    // select (23) or pselect6 (270) on x86-64; pselect6 (72) on arm64.
    if (number == 23 || number == 270 || number == 72) {
      return true;
    }
    std::this_thread::yield();
  }
  return false;
}

std::atomic<int> interruptions{0};

void count_interruption(int) {
  interruptions.fetch_add(1);
}

TEST_F(ConnectedClient, InterruptedWaitKeepsWaitingForWhatIsLeft) {
  struct sigaction action {};
  action.sa_handler = count_interruption;
  sigemptyset(&action.sa_mask);
  struct sigaction previous {};
  ASSERT_EQ(0, ::sigaction(SIGUSR1, &action, &previous));
  const pid_t client_thread = ::gettid();
  const pthread_t client_handle = ::pthread_self();
  const auto started = std::chrono::steady_clock::now();
  // No reply: the daemon interrupts the client's wait 400 ms into it.
  Answer answer;
  answer.action = [client_thread, client_handle, started] {
    ASSERT_TRUE(blocked_in_select(client_thread, 5000));
    while (std::chrono::steady_clock::now() - started < std::chrono::milliseconds(400)) {
      std::this_thread::yield();
    }
    ::pthread_kill(client_handle, SIGUSR1);
  };
  daemon_.script("STATUS", answer);
  std::string reply = "old";
  // The interrupted wait resumes with what is left of the 600 ms, so the
  // call ends 600 ms after its start, not 600 ms after the interruption.
  EXPECT_TRUE(client_.Request("STATUS", reply, 600));
  const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
                           std::chrono::steady_clock::now() - started)
                           .count();
  EXPECT_EQ(reply, "");
  EXPECT_EQ(interruptions.load(), 1);
  EXPECT_GE(elapsed, 590);
  EXPECT_LT(elapsed, 950);
  ::sigaction(SIGUSR1, &previous, nullptr);
}

}  // namespace
}  // namespace qira::test::wpa
