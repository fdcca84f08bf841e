// How `events` and `scan` wait: in poll() on the event module's socket, with
// one service per readable socket and none while nothing arrives. The reads
// of the module's socket are watched below the module, at the simulated
// kernel, and the kernel's notifications are queued from the test's thread
// while the program runs in another.
#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <net/if.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <optional>
#include <thread>

#include "commands.h"
#include "events_command.h"
#include "support/nl80211_sim.h"
#include "support/scan_kernel.h"
#include "unit/tools/program_run.h"

namespace qira::wifi {
namespace {

using qira::test::SimulatedNl80211;
using namespace std::chrono_literals;

constexpr std::size_t kGroupsJoined = 4;

// Counts the reads of the module's socket once it has joined nl80211's four
// groups (the controller's answers before that are not counted): reads that
// took a datagram (peeks aside) and reads that found nothing. The simulated
// kernel below answers them.
class ReadWatch : public qira::test::SocketInterposer {
 public:
  explicit ReadWatch(SimulatedNl80211& kernel) : kernel_(kernel) {}

  std::optional<ssize_t> on_recvmsg(int fd, msghdr* message, int flags) override {
    const auto found = kernel_.sockets().find(fd);
    if (found == kernel_.sockets().end() || found->second.memberships.size() < kGroupsJoined) {
      return std::nullopt;
    }
    const int kernel_end = found->second.kernel_end;
    if (const int error = read_error_.load(); error != 0) {
      std::lock_guard<std::mutex> lock(mutex_);
      ++failed_reads_;
      errno = error;
      return -1;
    }
    const std::optional<ssize_t> result = kernel_.on_recvmsg(fd, message, flags);
    const int saved_errno = errno;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      kernel_end_ = kernel_end;
      if (result && *result < 0 && saved_errno == EAGAIN) {
        ++empty_reads_;
      } else if (result && *result > 0 && (flags & MSG_PEEK) == 0) {
        ++datagram_reads_;
      }
    }
    changed_.notify_all();
    errno = saved_errno;
    return result;
  }

  // Waits (at most 10 s) until `enough` holds; false on the deadline.
  template <typename Condition>
  bool wait_until(Condition enough) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, 10s, [&] { return enough(empty_reads_, datagram_reads_); });
  }
  int empty_reads() {
    std::lock_guard<std::mutex> lock(mutex_);
    return empty_reads_;
  }
  int datagram_reads() {
    std::lock_guard<std::mutex> lock(mutex_);
    return datagram_reads_;
  }
  int failed_reads() {
    std::lock_guard<std::mutex> lock(mutex_);
    return failed_reads_;
  }
  // From now on every read of the watched socket fails with `error` and
  // takes nothing (0: they pass again).
  void fail_reads(int error) { read_error_ = error; }
  // The simulated kernel's end of the watched socket: a datagram written
  // there arrives as a notification.
  int kernel_end() {
    std::lock_guard<std::mutex> lock(mutex_);
    return kernel_end_;
  }

 private:
  SimulatedNl80211& kernel_;
  std::mutex mutex_;
  std::condition_variable changed_;
  int empty_reads_ = 0;
  int datagram_reads_ = 0;
  int failed_reads_ = 0;
  int kernel_end_ = -1;
  std::atomic<int> read_error_{0};
};

// Queues one notification of nl80211 on the watched socket, as the kernel
// does: one datagram, written from this thread.
void queue_notification(int kernel_end, std::uint8_t command,
                        const std::vector<qira::test::NlAttribute>& attributes) {
  const std::vector<std::uint8_t> datagram =
      qira::test::genl_message(SimulatedNl80211::kDefaultNl80211Id, command, attributes);
  ASSERT_EQ(qira::test::libc::send(kernel_end, datagram.data(), datagram.size(), MSG_DONTWAIT),
            static_cast<ssize_t>(datagram.size()));
}

TEST(EventsWait, NothingArrivingMeansNoServiceUntilTheTimeout) {
  SimulatedNl80211 kernel;
  ReadWatch reads(kernel);
  const auto started = std::chrono::steady_clock::now();
  const ProgramRun result = run_args({"events", "--timeout", "300"});
  const auto took = std::chrono::steady_clock::now() - started;
  EXPECT_EQ(result.status, kExitOk);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, std::string(kEventsReadyLine) + "\n");
  // The first service, which joined the groups, read once and found
  // nothing; 300 ms of silence called nothing more.
  EXPECT_EQ(reads.empty_reads(), 1);
  EXPECT_EQ(reads.datagram_reads(), 0);
  EXPECT_GE(took, 300ms);
}

TEST(EventsWait, NotificationsQueuedWhileWaitingArePrintedEachByOneService) {
  SimulatedNl80211 kernel;
  ReadWatch reads(kernel);
  ProgramRun result{};
  std::thread program([&] { result = run_args({"events", "--count", "2", "--timeout", "20000"}); });
  // The first service has joined the groups and read nothing: the program
  // now waits on the socket.
  const bool waiting = reads.wait_until([](int empty, int) { return empty >= 1; });
  if (waiting) {
    queue_notification(reads.kernel_end(), NL80211_CMD_TRIGGER_SCAN, {});
    queue_notification(reads.kernel_end(), NL80211_CMD_CONNECT,
                       {qira::test::attr_u16(NL80211_ATTR_STATUS_CODE, 0)});
  }
  program.join();
  ASSERT_TRUE(waiting);
  EXPECT_EQ(result.status, kExitOk) << result.err;
  EXPECT_EQ(result.out,
            "8 trigger_scan {\"eventId\":33,\"eventName\":\"trigger_scan\",\"ifindex\":-1,"
            "\"ifname\":\"\"}\n"
            "23 connect {\"eventId\":46,\"eventName\":\"connect\",\"ifindex\":-1,\"ifname\":\"\","
            "\"status\":0,\"status_str\":\"connected\"}\n");
  EXPECT_EQ(result.err, std::string(kEventsReadyLine) + "\n");
  // Each wake had a datagram to read: no service found nothing.
  EXPECT_EQ(reads.empty_reads(), 1);
  EXPECT_EQ(reads.datagram_reads(), 2);
}

TEST(EventsWait, AStopSignalEndsTheWaitAtOnce) {
  SimulatedNl80211 kernel;
  ReadWatch reads(kernel);
  ProgramRun result{};
  std::thread program([&] { result = run_args({"events", "--timeout", "20000"}); });
  const bool waiting = reads.wait_until([](int empty, int) { return empty >= 1; });
  const auto started = std::chrono::steady_clock::now();
  if (waiting) {
    // Sent to the process, taken by the program's handler in whichever
    // thread: the wait ends through its pipe.
    std::raise(SIGTERM);
  }
  program.join();
  ASSERT_TRUE(waiting);
  EXPECT_LT(std::chrono::steady_clock::now() - started, 10s);
  EXPECT_EQ(result.status, kExitInterrupted) << result.err;
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(reads.empty_reads(), 1);
}

// A socket that stays readable while every read of it fails: the failures
// are reported and the listening goes on, but after two in a row the loop
// pauses, so 300 ms hold a few failed services, not thousands.
TEST(EventsWait, ReadsThatKeepFailingPauseTheLoopInsteadOfSpinning) {
  SimulatedNl80211 kernel;
  ReadWatch reads(kernel);
  ProgramRun result{};
  std::thread program([&] { result = run_args({"events", "--timeout", "300"}); });
  const bool waiting = reads.wait_until([](int empty, int) { return empty >= 1; });
  if (waiting) {
    reads.fail_reads(EIO);
    queue_notification(reads.kernel_end(), NL80211_CMD_TRIGGER_SCAN, {});
  }
  program.join();
  ASSERT_TRUE(waiting);
  EXPECT_EQ(result.status, kExitOk);
  EXPECT_EQ(result.out, "");
  const int failed = reads.failed_reads();
  EXPECT_GE(failed, 2);
  // Two per pause of 100 ms, and the two before the first pause.
  EXPECT_LE(failed, 2 + 2 * static_cast<int>(300 / kEventRetryPause.count()));
  // Each failed service reports the module's two lines.
  std::size_t lines = 0;
  for (std::size_t at = result.err.find("qira-wifi: <3> "); at != std::string::npos;
       at = result.err.find("qira-wifi: <3> ", at + 1)) {
    ++lines;
  }
  EXPECT_EQ(lines, 2u * static_cast<std::size_t>(failed)) << result.err;
  EXPECT_NE(result.err.find("netlib: Failed to receive an event"), std::string::npos) << result.err;
}

TEST(ScanWait, AScanThatEndsLaterIsServicedWhenItsNotificationsArrive) {
  qira::test::scan::ScanKernel kernel;
  ReadWatch reads(kernel);
  ProgramRun result{};
  std::thread program([&] { result = run_args({"scan", "lo", "--timeout", "20000"}); });
  // The trigger's acknowledgement has been read: the program waits.
  const bool waiting = reads.wait_until([](int, int datagrams) { return datagrams >= 1; });
  if (waiting) {
    const std::uint32_t lo = if_nametoindex("lo");
    queue_notification(reads.kernel_end(), NL80211_CMD_TRIGGER_SCAN,
                       {qira::test::attr_u32(NL80211_ATTR_IFINDEX, lo)});
    queue_notification(reads.kernel_end(), NL80211_CMD_NEW_SCAN_RESULTS,
                       {qira::test::attr_u32(NL80211_ATTR_IFINDEX, lo)});
  }
  program.join();
  ASSERT_TRUE(waiting);
  EXPECT_EQ(result.status, kExitOk) << result.err;
  EXPECT_EQ(result.out, "BSSID              SSID CHANNEL FREQUENCY BAND       SIGNAL SECURITY\n");
  EXPECT_EQ(result.err, "");
  // The acknowledgement, the two notifications and the empty dump's reply.
  EXPECT_EQ(reads.datagram_reads(), 4);
  // Only the trigger's own first service found nothing: every later one was
  // woken by a datagram.
  EXPECT_EQ(reads.empty_reads(), 1);
}

TEST(ScanWait, AStopSignalInterruptsTheScan) {
  qira::test::scan::ScanKernel kernel;
  ReadWatch reads(kernel);
  ProgramRun result{};
  std::thread program([&] { result = run_args({"scan", "lo", "--timeout", "20000"}); });
  const bool waiting = reads.wait_until([](int, int datagrams) { return datagrams >= 1; });
  if (waiting) {
    std::raise(SIGINT);
  }
  program.join();
  ASSERT_TRUE(waiting);
  EXPECT_EQ(result.status, kExitInterrupted);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "qira-wifi: interrupted\n");
}

}  // namespace
}  // namespace qira::wifi
