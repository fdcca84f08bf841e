// The results dump on the shared event socket: notifications queued ahead
// of it or arriving with it are read past to the dump's end, with one
// request; a refused dump, an overrun or an empty read before the end, and
// a dump without its end fail as a single read would, without waiting.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

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

TEST_F(ScanDump, NotificationsAheadOfTheDumpRepliesAreReadPast) {
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

// What the read on does not change: the one request, and a failure for
// whatever would fail a single read. The kernel answers a dump it cannot
// start (no room in the queue, a dump of the socket still running, a bad
// request) with an error reply: one request, no second, and the failure
// logged; the scan has ended all the same, with an empty list.
TEST_F(ScanDump, RefusedDumpFailsWithoutAskingAgain) {
  for (const int error : {-ENOBUFS, -EBUSY, -EINVAL}) {
    SCOPED_TRACE(error);
    kernel_.forget_requests();
    start_with({generated_bss(1)});
    kernel_.finish_scan(ifindex_);
    kernel_.refuse_dumps(1, error);
    LogCapture log;
    service_the_end();
    EXPECT_EQ(kernel_.dumps().size(), 1u);
    EXPECT_EQ(collected(), 0);
    expect_lines(log, {kFinishedLine, kDumpFailedLine, kHandlerFailedLine});
    EXPECT_TRUE(ssids().empty());
  }
}

TEST_F(ScanDump, OverrunBeforeTheDumpsEndFailsTheRequest) {
  start_with({generated_bss(1), generated_bss(2)});
  kernel_.finish_scan(ifindex_);
  LogCapture log;
  // The first read after the request reports that notifications were lost.
  kernel_.fail_receive_after_next_dump(ENOBUFS);
  service_the_end();
  EXPECT_EQ(kernel_.dumps().size(), 1u);
  EXPECT_EQ(collected(), 0);
  expect_lines(log, {kFinishedLine, kDumpFailedLine, kHandlerFailedLine});
}

// The read never waits: a read that finds the socket empty before the
// dump's end fails the request at once, as it would fail a single read.
TEST_F(ScanDump, EmptyReadBeforeTheRepliesFailsWithoutWaiting) {
  start_with({generated_bss(1), generated_bss(2)});
  kernel_.finish_scan(ifindex_);
  LogCapture log;
  kernel_.fail_receive_after_next_dump(EAGAIN);
  service_the_end();
  EXPECT_EQ(kernel_.dumps().size(), 1u);
  EXPECT_EQ(collected(), 0);
  expect_lines(log, {kFinishedLine, kDumpFailedLine, kHandlerFailedLine});
}

TEST_F(ScanDump, DumpWithoutItsEndFailsKeepingWhatArrived) {
  start_with({generated_bss(1), generated_bss(2)});
  kernel_.finish_scan(ifindex_);
  kernel_.leave_dumps_open(true);
  LogCapture log;
  service_the_end();
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
