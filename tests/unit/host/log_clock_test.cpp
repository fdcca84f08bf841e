// logInternal and its sinks, forceCrash, and the clock seam.
#include <gtest/gtest.h>
#include <time.h>

#include <cerrno>
#include <string>
#include <vector>

#include "qira/host/seams.h"
#include "qira/host_globals.h"

namespace {

using qira::host::LogCapture;
using qira::host::LogRecord;

TEST(LogTest, CaptureGetsEveryField) {
  LogCapture capture;
  errno = EAGAIN;
  const int line = __LINE__ + 1;
  int length = logInternal("qira_network_utils_wireless", __FILE__, __func__, line, 4, 22, 0,
                           "netlib: ioctl(%X) failed", 0x8B1B);
  EXPECT_EQ(EAGAIN, errno);  // logging keeps the caller's errno
  EXPECT_EQ(static_cast<int>(std::string("netlib: ioctl(8B1B) failed").size()), length);
  std::vector<LogRecord> records = capture.records();
  ASSERT_EQ(1U, records.size());
  EXPECT_EQ("qira_network_utils_wireless", records[0].module);
  EXPECT_EQ("tests/unit/host/log_clock_test.cpp", records[0].file);
  EXPECT_EQ("TestBody", records[0].function);
  EXPECT_EQ(line, records[0].line);
  EXPECT_EQ(4, records[0].level);
  EXPECT_EQ(22, records[0].error_number);
  EXPECT_EQ(0, records[0].reserved);
  EXPECT_EQ("netlib: ioctl(8B1B) failed", records[0].message);
  EXPECT_EQ(std::vector<std::string>{"netlib: ioctl(8B1B) failed"}, capture.messages());
  capture.clear();
  EXPECT_TRUE(capture.records().empty());
}

TEST(LogTest, NestedCapturesRestoreThePreviousSink) {
  LogCapture outer;
  {
    LogCapture inner;
    logInternal("m", "f", "fn", 1, 3, 0, 0, "inner");
    EXPECT_EQ(std::vector<std::string>{"inner"}, inner.messages());
  }
  logInternal("m", "f", "fn", 1, 3, 0, 0, "outer %d", 2);
  EXPECT_EQ(std::vector<std::string>{"outer 2"}, outer.messages());
}

TEST(LogTest, FormatLogRecordWithAndWithoutErrno) {
  LogRecord record;
  record.module = "qira_network_utils_wireless";
  record.file = "src/netlib_iface/netlib_iface.cpp";
  record.function = "check";
  record.line = 31;
  record.level = 3;
  record.message = "library context is null";
  EXPECT_EQ(
      "<3> qira_network_utils_wireless src/netlib_iface/netlib_iface.cpp:31 check(): library "
      "context is null",
      qira::host::format_log_record(record));
  record.error_number = ENODEV;
  EXPECT_EQ(
      "<3> qira_network_utils_wireless src/netlib_iface/netlib_iface.cpp:31 check(): library "
      "context is null (errno 19: No such device)",
      qira::host::format_log_record(record));
}

TEST(LogTest, DefaultSinkWritesOneLineToStderr) {
  testing::internal::CaptureStderr();
  logInternal("qira_host", "host/src/x.cpp", "run", 7, 6, 0, 0, "hello %s", "world");
  EXPECT_EQ("<6> qira_host host/src/x.cpp:7 run(): hello world\n",
            testing::internal::GetCapturedStderr());
  qira::host::set_log_to_stderr(false);
  testing::internal::CaptureStderr();
  logInternal("qira_host", "host/src/x.cpp", "run", 7, 6, 0, 0, "quiet");
  EXPECT_EQ("", testing::internal::GetCapturedStderr());
  qira::host::set_log_to_stderr(true);
}

TEST(LogTest, InstalledSinkReplacesTheDefaultUntilReset) {
  std::vector<std::string> seen;
  qira::host::set_log_sink([&seen](const LogRecord& r) { seen.push_back(r.message); });
  testing::internal::CaptureStderr();
  logInternal("m", "f", "fn", 1, 7, 0, 0, "to sink");
  EXPECT_EQ("", testing::internal::GetCapturedStderr());
  qira::host::set_log_sink(nullptr);
  testing::internal::CaptureStderr();
  logInternal("m", "f", "fn", 1, 7, 0, 0, "to stderr");
  EXPECT_EQ("<7> m f:1 fn(): to stderr\n", testing::internal::GetCapturedStderr());
  EXPECT_EQ(std::vector<std::string>{"to sink"}, seen);
}

TEST(LogTest, TapSeesEveryRecordBeforeWhicheverSinkIsInstalled) {
  std::vector<std::string> order;
  qira::host::LogSink previous = qira::host::set_log_tap(
      [&order](const LogRecord& r) { order.push_back("tap " + r.file + " " + r.message); });
  {
    qira::host::LogCapture capture;
    logInternal("m", "src/a.cpp", "fn", 3, 6, 0, 0, "first %d", 1);
    for (const std::string& message : capture.messages()) {
      order.push_back("capture " + message);
    }
  }
  qira::host::set_log_sink([&order](const LogRecord& r) { order.push_back("sink " + r.message); });
  logInternal("m", "src/b.cpp", "fn", 4, 6, 0, 0, "second");
  qira::host::set_log_sink(nullptr);
  qira::host::LogSink mine = qira::host::set_log_tap(std::move(previous));
  EXPECT_TRUE(static_cast<bool>(mine));
  qira::host::set_log_to_stderr(false);
  logInternal("m", "src/c.cpp", "fn", 5, 6, 0, 0, "after removal");
  qira::host::set_log_to_stderr(true);
  EXPECT_EQ((std::vector<std::string>{"tap src/a.cpp first 1", "capture first 1",
                                      "tap src/b.cpp second", "sink second"}),
            order);
}

TEST(ForceCrashDeathTest, EndsTheProcessWithADiagnosticAfterTheObserver) {
  EXPECT_DEATH(
      {
        qira::host::set_crash_observer([] { fprintf(stderr, "observer ran\n"); });
        forceCrash();
      },
      "^forceCrash: ending the process on an unrecoverable fault\n(.|\n)*observer ran\n");
}

TEST(ForceCrashDeathTest, EndsWithAbort) {
  EXPECT_EXIT(forceCrash(), testing::KilledBySignal(SIGABRT), "forceCrash: ");
}

TEST(ClockTest, FakeClockMovesOnlyWhenSleptOnOrAdvanced) {
  qira::host::FakeClock clock(5000);
  EXPECT_EQ(5000ULL, nowMs());
  EXPECT_EQ(5000ULL, nowMs());
  sleepMs(250);
  sleepMs(0);
  EXPECT_EQ(5250ULL, nowMs());
  clock.advance(1000);
  EXPECT_EQ(6250ULL, nowMs());
  EXPECT_EQ((std::vector<unsigned int>{250, 0}), clock.sleeps());
  clock.set_step_per_read(10);
  EXPECT_EQ(6250ULL, nowMs());
  EXPECT_EQ(6260ULL, nowMs());
}

TEST(ClockTest, FakeClockDefaultStartAndRestore) {
  unsigned long long real_before = nowMs();
  {
    qira::host::FakeClock outer;
    EXPECT_EQ(1000ULL, nowMs());
    {
      qira::host::FakeClock inner(7);
      EXPECT_EQ(7ULL, nowMs());
    }
    EXPECT_EQ(1000ULL, nowMs());
  }
  EXPECT_GE(nowMs(), real_before);
}

TEST(ClockTest, RealClockIsMonotonicMillisecondsAndSleepsAtLeastTheTime) {
  struct timespec now {};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  unsigned long long expected = static_cast<unsigned long long>(now.tv_sec) * 1000ULL +
                                static_cast<unsigned long long>(now.tv_nsec) / 1000000ULL;
  unsigned long long start = nowMs();
  EXPECT_GE(start, expected);
  EXPECT_LT(start, expected + 1000);
  sleepMs(30);
  EXPECT_GE(nowMs() - start, 30ULL);
  EXPECT_EQ(&qira::host::real_clock(), &qira::host::real_clock());
}

TEST(ClockTest, SetClockInstallsAndNullRestoresTheRealClock) {
  struct FixedClock : qira::host::Clock {
    unsigned long long now_ms() override { return 42; }
    void sleep_ms(unsigned int) override {}
  } fixed;
  qira::host::set_clock(&fixed);
  EXPECT_EQ(42ULL, nowMs());
  qira::host::set_clock(nullptr);
  EXPECT_NE(42ULL, nowMs());
}

}  // namespace
