// The results dump on the shared event socket: notifications queued ahead
// of it or arriving with it, a dump the kernel refuses for want of room, an
// overrun or an empty read in the middle, and a dump that never ends. Every
// case ends with the whole table collected, or with the failure logged
// within a bounded time.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <vector>

#include "netlib_scan/scan_dump.h"
#include "qira/host/seams.h"
#include "unit/netlib_scan/scan_test_util.h"

namespace qira::test::scan {
namespace {

using qira::host::LogCapture;
using qira::network::ap_info;
using qira::network::scan_status;

const Line kFinishedLine = handler_line(kDebug, "Scan was finished");
const Line kDumpFailedLine = {kTriggerFile, "receive_results", kError,
                              "Failed to retrieve scan results"};
const Line kHandlerFailedLine = handler_line(kError, "Failed to retrieve scan results");

// A notification of the station's own link, as wpa_supplicant's work on
// another interface makes them: nothing the scan module reacts to.
Nl80211Notification disconnect_notification() {
  return {NL80211_CMD_DISCONNECT, {attr_u32(NL80211_ATTR_IFINDEX, 1), attr_flag(71)}};
}

class ScanDump : public ScanTest {
 protected:
  // A scan acknowledged by the kernel, whose table is `table`; the test then
  // ends it and arranges the socket before the service call that reads it.
  void start_with(std::vector<BssAttributes> table) {
    kernel_.set_bss_table(std::move(table));
    start_scan();
  }
  // One service call: it reads the end of the scan and runs the dump.
  void service_the_end() {
    scan_status status{};
    ASSERT_TRUE(service(status));
    EXPECT_TRUE(status.finished);
    EXPECT_FALSE(status.aborted);
  }
  std::vector<std::string> ssids() {
    bool ok = false;
    const std::vector<ap_info> out = results(ok);
    EXPECT_TRUE(ok);
    std::vector<std::string> names;
    for (const ap_info& record : out) {
      names.push_back(record.ssid);
    }
    return names;
  }
  int collected() const {
    const auto* state = static_cast<const qira::network::scan::scan_state*>(context_.wireless_scan);
    return state->scan_list == nullptr ? 0 : state->scan_list->count;
  }
};

TEST_F(ScanDump, NotificationQueuedBehindTheScanEndIsNotTakenForTheDump) {
  start_with({generated_bss(1), generated_bss(2)});
  kernel_.finish_scan(ifindex_);
  // Queued before the dump is requested: a single read would return with it
  // and leave the dump in the queue.
  ASSERT_EQ(kernel_.notify(disconnect_notification()), 1);
  LogCapture log;
  service_the_end();
  EXPECT_EQ(kernel_.dumps().size(), 1u);
  EXPECT_EQ(collected(), 2);
  EXPECT_EQ(ssids(), (std::vector<std::string>{"net-1", "net-2"}));
  expect_lines(log, {kFinishedLine});
}

TEST_F(ScanDump, NotificationsAheadOfTheDumpRepliesAreSkipped) {
  start_with({generated_bss(1), generated_bss(2), generated_bss(3)});
  kernel_.finish_scan(ifindex_);
  // Arrive between the request and its replies, so they lie ahead of them.
  kernel_.notify_before_next_dump(disconnect_notification());
  kernel_.notify_before_next_dump(
      {NL80211_CMD_NEW_SCAN_RESULTS, {attr_u32(NL80211_ATTR_IFINDEX, ifindex_)}});
  LogCapture log;
  service_the_end();
  EXPECT_EQ(kernel_.dumps().size(), 1u);
  EXPECT_EQ(ssids(), (std::vector<std::string>{"net-1", "net-2", "net-3"}));
  expect_lines(log, {kFinishedLine});
}

TEST_F(ScanDump, DumpRefusedForWantOfRoomIsAskedForAgain) {
  start_with({generated_bss(1), generated_bss(2)});
  kernel_.finish_scan(ifindex_);
  kernel_.refuse_dumps(1, -ENOBUFS);
  LogCapture log;
  service_the_end();
  ASSERT_EQ(kernel_.dumps().size(), 2u);
  for (const DumpRequest& dump : kernel_.dumps()) {
    EXPECT_EQ(dump.ifindex, ifindex_);
    EXPECT_EQ(dump.flags & NLM_F_DUMP, NLM_F_DUMP);
  }
  EXPECT_EQ(ssids(), (std::vector<std::string>{"net-1", "net-2"}));
  expect_lines(log, {kFinishedLine});
}

TEST_F(ScanDump, DumpRefusedWhileBusyIsAskedForAgain) {
  start_with({generated_bss(7)});
  kernel_.finish_scan(ifindex_);
  kernel_.refuse_dumps(2, -EBUSY);
  LogCapture log;
  service_the_end();
  EXPECT_EQ(kernel_.dumps().size(), 3u);
  EXPECT_EQ(ssids(), (std::vector<std::string>{"net-7"}));
  expect_lines(log, {kFinishedLine});
}

TEST_F(ScanDump, DumpRefusedAtEveryRequestFailsAfterTheLastAttempt) {
  start_with({generated_bss(1)});
  kernel_.finish_scan(ifindex_);
  kernel_.refuse_dumps(100, -ENOBUFS);
  LogCapture log;
  service_the_end();
  EXPECT_EQ(kernel_.dumps().size(), static_cast<std::size_t>(qira::network::scan::kDumpAttempts));
  EXPECT_EQ(qira::network::scan::kDumpAttempts, 3);
  EXPECT_EQ(collected(), 0);
  expect_lines(log, {kFinishedLine, kDumpFailedLine, kHandlerFailedLine});
  // The scan has ended all the same; its results are simply empty.
  EXPECT_TRUE(ssids().empty());
}

TEST_F(ScanDump, OtherErrorReplyFailsWithoutAskingAgain) {
  start_with({generated_bss(1)});
  kernel_.finish_scan(ifindex_);
  kernel_.refuse_dumps(1, -EINVAL);
  LogCapture log;
  service_the_end();
  EXPECT_EQ(kernel_.dumps().size(), 1u);
  EXPECT_EQ(collected(), 0);
  expect_lines(log, {kFinishedLine, kDumpFailedLine, kHandlerFailedLine});
}

TEST_F(ScanDump, OverrunReportedDuringTheDumpIsReadPast) {
  start_with({generated_bss(1), generated_bss(2)});
  kernel_.finish_scan(ifindex_);
  LogCapture log;
  // The first read after the request reports that notifications were lost.
  kernel_.fail_receive_after_next_dump(ENOBUFS);
  service_the_end();
  EXPECT_EQ(kernel_.dumps().size(), 1u);
  EXPECT_EQ(ssids(), (std::vector<std::string>{"net-1", "net-2"}));
  expect_lines(log, {kFinishedLine});
}

TEST_F(ScanDump, EmptyReadBeforeTheRepliesWaitsForThem) {
  start_with({generated_bss(1), generated_bss(2)});
  kernel_.finish_scan(ifindex_);
  LogCapture log;
  kernel_.fail_receive_after_next_dump(EAGAIN);
  service_the_end();
  EXPECT_EQ(kernel_.dumps().size(), 1u);
  EXPECT_EQ(ssids(), (std::vector<std::string>{"net-1", "net-2"}));
  expect_lines(log, {kFinishedLine});
}

TEST_F(ScanDump, DumpThatNeverEndsFailsAtTheDeadlineKeepingWhatArrived) {
  start_with({generated_bss(1), generated_bss(2)});
  kernel_.finish_scan(ifindex_);
  kernel_.leave_dumps_open(true);
  LogCapture log;
  const auto started = std::chrono::steady_clock::now();
  service_the_end();
  const auto took = std::chrono::steady_clock::now() - started;
  EXPECT_GE(took, qira::network::scan::kDumpReplyWait);
  EXPECT_LT(took, qira::network::scan::kDumpReplyWait + std::chrono::seconds(5));
  EXPECT_EQ(kernel_.dumps().size(), 1u);
  EXPECT_EQ(collected(), 2);
  expect_lines(log, {kFinishedLine, kDumpFailedLine, kHandlerFailedLine});
}

TEST_F(ScanDump, LaterScansStillReadTheirNotifications) {
  // The dump's handlers are removed again: the next scan's events reach the
  // scan module through the event module as before.
  start_with({generated_bss(1)});
  kernel_.finish_scan(ifindex_);
  kernel_.notify_before_next_dump(disconnect_notification());
  service_the_end();
  EXPECT_EQ(ssids(), (std::vector<std::string>{"net-1"}));
  run_scan({generated_bss(4), generated_bss(5)});
  EXPECT_EQ(kernel_.dumps().size(), 2u);
  EXPECT_EQ(ssids(), (std::vector<std::string>{"net-4", "net-5"}));
}

}  // namespace
}  // namespace qira::test::scan
