// Send's retries while the socket is busy, driven through the host clock and
// an interposed send, so that the deadline arithmetic is checked exactly and
// nothing sleeps for real.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "qira/host/seams.h"
#include "qira/network/wpa_client.h"
#include "support/socket_interpose.h"
#include "support/wpa_supplicant_sim.h"
#include "unit/wpa_client/wpa_test_util.h"

namespace qira::test::wpa {
namespace {

using namespace qira::network;
using qira::host::FakeClock;
using qira::host::LogCapture;

// Answers `send` on one descriptor with -1 and the queued errno values, one
// per call (forever with the last one when `forever`), then lets it through.
struct BusySocket : SocketInterposer {
  int fd = -1;
  std::deque<int> errors;
  bool forever = false;
  int calls = 0;
  std::optional<ssize_t> on_send(int call_fd, const void*, size_t, int) override {
    if (call_fd != fd) {
      return std::nullopt;
    }
    ++calls;
    if (errors.empty()) {
      return std::nullopt;
    }
    errno = errors.front();
    if (!forever || errors.size() > 1) {
      errors.pop_front();
    }
    return -1;
  }
};

// A clock that reads scripted times and does not move when slept on.
class ScriptedClock : public qira::host::Clock {
 public:
  explicit ScriptedClock(std::vector<unsigned long long> reads)
      : reads_(reads.begin(), reads.end()) {
    qira::host::set_clock(this);
  }
  ~ScriptedClock() override { qira::host::set_clock(nullptr); }
  unsigned long long now_ms() override {
    if (reads_.empty()) {
      ADD_FAILURE() << "clock read once too often";
      return 0;
    }
    const unsigned long long now = reads_.front();
    reads_.pop_front();
    return now;
  }
  void sleep_ms(unsigned int ms) override { sleeps.push_back(ms); }
  std::vector<unsigned int> sleeps;

 private:
  std::deque<unsigned long long> reads_;
};

class BusyClient : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(client_.Init("qs0"));
    busy_.fd = client_fd(client_);
  }

  WpaSupplicantSim daemon_{"qs0"};
  WpaClient client_;
  BusySocket busy_;
};

TEST_F(BusyClient, TimeOutZeroGivesUpOnceTheClockMoves) {
  FakeClock clock(1000);
  clock.set_step_per_read(1);
  busy_.errors = {EAGAIN};
  busy_.forever = true;
  LogCapture log;
  EXPECT_FALSE(client_.Send("PING", 0));
  EXPECT_EQ(clock.sleeps(), std::vector<unsigned int>{0});
  EXPECT_EQ(busy_.calls, 2);
  EXPECT_TRUE(log.records().empty());
  EXPECT_TRUE(daemon_.requests().empty());
}

TEST_F(BusyClient, TimeOutZeroKeepsTryingWhileTheClockStands) {
  FakeClock clock(1000);
  busy_.errors = {EAGAIN, EAGAIN, EAGAIN};
  LogCapture log;
  EXPECT_TRUE(client_.Send("PING", 0));
  EXPECT_EQ(clock.sleeps(), (std::vector<unsigned int>{0, 0, 0}));
  EXPECT_EQ(busy_.calls, 4);
  EXPECT_TRUE(log.records().empty());
  ASSERT_TRUE(daemon_.wait_for_requests(1, 5000));
  EXPECT_EQ(daemon_.requests(), std::vector<std::string>{"PING"});
}

TEST_F(BusyClient, FirstRetrySleepsTheWholeTimeOut) {
  FakeClock clock(1000);
  busy_.errors = {EAGAIN};
  EXPECT_TRUE(client_.Send("PING", 250));
  EXPECT_EQ(clock.sleeps(), std::vector<unsigned int>{250});
  EXPECT_EQ(busy_.calls, 2);
}

TEST_F(BusyClient, BusyForeverEndsAfterTheThirdTryWithoutALine) {
  // The first retry sleeps the whole 100 ms (the clock then reads 1100, the
  // deadline itself, which is not below it): a second retry with 0 ms left,
  // then 1000 + 0 < 1100 ends it.
  FakeClock clock(1000);
  busy_.errors = {EAGAIN};
  busy_.forever = true;
  LogCapture log;
  EXPECT_FALSE(client_.Send("PING", 100));
  EXPECT_EQ(clock.sleeps(), (std::vector<unsigned int>{100, 0}));
  EXPECT_EQ(busy_.calls, 3);
  EXPECT_TRUE(log.records().empty());
}

TEST_F(BusyClient, EbusyAndEintrAreRetriedToo) {
  FakeClock clock(5000);
  busy_.errors = {EBUSY};
  EXPECT_TRUE(client_.Send("PING", 40));
  busy_.errors = {EINTR};
  EXPECT_TRUE(client_.Send("PING", 30));
  EXPECT_EQ(clock.sleeps(), (std::vector<unsigned int>{40, 30}));
  EXPECT_EQ(busy_.calls, 4);
}

// The give-up test of a later retry reads the deadline as it stood before
// that retry reduces the remaining time: start + remaining below now ends
// the sending, else remaining becomes remaining + start - now.

TEST_F(BusyClient, SecondRetryExactlyAtTheDeadlineTriesOnceMore) {
  // First retry: start 5000, sleep 40 (the clock reads 5040 after it).
  // Second: 40 + 5000 is not below 5040, so remaining = 0, a sleep of 0 and
  // a third send, which goes through.
  FakeClock clock(5000);
  busy_.errors = {EAGAIN, EBUSY};
  LogCapture log;
  EXPECT_TRUE(client_.Send("PING", 40));
  EXPECT_EQ(clock.sleeps(), (std::vector<unsigned int>{40, 0}));
  EXPECT_EQ(busy_.calls, 3);
  EXPECT_TRUE(log.records().empty());
  ASSERT_TRUE(daemon_.wait_for_requests(1, 5000));
  EXPECT_EQ(daemon_.requests(), std::vector<std::string>{"PING"});
}

TEST_F(BusyClient, SecondRetryPastTheDeadlineGivesUp) {
  // First retry: start 5000, sleep 40; the clock then reads 5041, one past
  // the deadline 5040: false without a line, after two sends.
  ScriptedClock clock({5000, 5041});
  busy_.errors = {EAGAIN, EBUSY};
  LogCapture log;
  EXPECT_FALSE(client_.Send("PING", 40));
  EXPECT_EQ(clock.sleeps, std::vector<unsigned int>{40});
  EXPECT_EQ(busy_.calls, 2);
  EXPECT_TRUE(log.records().empty());
}

TEST_F(BusyClient, DeadlineShrinksFasterThanTheClockAfterTheSecondRetry) {
  // The clock advances 10 ms per retry whatever is slept. Each round first
  // tests start + remaining against now, then reduces remaining: 100;
  // 1100 >= 1010, 90; 1090 >= 1020, 70; 1070 >= 1030, 40; 1040 >= 1040, 0;
  // then 1000 < 1050 ends it, at 1050: long before 1000 + 100.
  ScriptedClock clock({1000, 1010, 1020, 1030, 1040, 1050});
  busy_.errors = {EAGAIN};
  busy_.forever = true;
  LogCapture log;
  EXPECT_FALSE(client_.Send("PING", 100));
  EXPECT_EQ(clock.sleeps, (std::vector<unsigned int>{100, 90, 70, 40, 0}));
  EXPECT_EQ(busy_.calls, 6);
  EXPECT_TRUE(log.records().empty());
}

TEST_F(BusyClient, ClockBehindTheStartWrapsTheRemainingTime) {
  // Unsigned arithmetic: 100 + 1000 - 990 = 110, and 110 + 1000 is not
  // below 990, so the next sleep is 110.
  ScriptedClock clock({1000, 990});
  busy_.errors = {EAGAIN, EAGAIN};
  EXPECT_TRUE(client_.Send("PING", 100));
  EXPECT_EQ(clock.sleeps, (std::vector<unsigned int>{100, 110}));
}

TEST_F(BusyClient, SleepTakesTheLow32BitsOfAHugeTimeOut) {
  FakeClock clock(1000);
  busy_.errors = {EAGAIN};
  EXPECT_TRUE(client_.Send("PING", (1ULL << 32) + 7));
  EXPECT_EQ(clock.sleeps(), std::vector<unsigned int>{7});
}

TEST_F(BusyClient, OtherErrorFailsWithOneLine) {
  FakeClock clock(1000);
  busy_.errors = {EPIPE};
  LogCapture log;
  EXPECT_FALSE(client_.Send("PING", 100));
  expect_records(log, {{kClientFile, "Send", 3, EPIPE, "send() failed"}});
  EXPECT_TRUE(clock.sleeps().empty());
  EXPECT_EQ(busy_.calls, 1);
}

TEST_F(BusyClient, ErrorAfterRetriesIsLogged) {
  FakeClock clock(1000);
  busy_.errors = {EAGAIN, ENOBUFS};
  LogCapture log;
  EXPECT_FALSE(client_.Send("PING", 100));
  expect_records(log, {{kClientFile, "Send", 3, ENOBUFS, "send() failed"}});
  EXPECT_EQ(clock.sleeps(), std::vector<unsigned int>{100});
}

TEST_F(BusyClient, RequestStopsWhenSendGivesUp) {
  FakeClock clock(1000);
  busy_.errors = {EAGAIN};
  busy_.forever = true;
  std::string reply = "old";
  EXPECT_FALSE(client_.Request("PING", reply, 100));
  EXPECT_EQ(reply, "");
  EXPECT_TRUE(daemon_.requests().empty());
}

}  // namespace
}  // namespace qira::test::wpa
