// The scan trigger, the service call and the event handler's state machine
// against the simulated scanning kernel.
#include <gtest/gtest.h>

#include <netlink/netlink.h>

#include "netlib_events/events_state.h"
#include "unit/netlib_scan/scan_test_util.h"

namespace qira::test::scan {
namespace {

using qira::host::LogCapture;
using qira::network::scan_status;

class ScanTrigger : public ScanTest {};

TEST_F(ScanTrigger, RequestNamesTheInterfaceAndTheWildcardSsidOnly) {
  LogCapture log;
  bool in_progress = true;
  ASSERT_TRUE(trigger(in_progress));
  EXPECT_FALSE(in_progress);
  ASSERT_EQ(kernel_.triggers().size(), 1u);
  const TriggerRequest& request = kernel_.triggers()[0];
  ASSERT_TRUE(request.ifindex.has_value());
  EXPECT_EQ(*request.ifindex, ifindex_);
  EXPECT_FALSE(request.ies.has_value());
  EXPECT_TRUE(request.has_ssids);
  ASSERT_EQ(request.ssids.size(), 1u);
  EXPECT_EQ(request.ssids[0].first, 1);
  EXPECT_TRUE(request.ssids[0].second.empty());
  EXPECT_EQ(request.flags & NLM_F_DUMP, 0);
  EXPECT_EQ(state()->ifindex, static_cast<int>(ifindex_));
  EXPECT_EQ(state()->subscribed, 1);
  expect_lines(log, {trigger_line(kDebug, "Scan was triggered. Waiting ack")});
}

TEST_F(ScanTrigger, ExtraInformationElementsAreSentAsTheyAre) {
  const unsigned char ies[] = {0xdd, 0x04, 0x00, 0x50, 0xf2, 0x04, 0x7f, 0x00};
  bool in_progress = true;
  ASSERT_TRUE(trigger(in_progress, ies, sizeof(ies)));
  ASSERT_EQ(kernel_.triggers().size(), 1u);
  ASSERT_TRUE(kernel_.triggers()[0].ies.has_value());
  EXPECT_EQ(*kernel_.triggers()[0].ies, Bytes(ies, ies + sizeof(ies)));
  EXPECT_EQ(kernel_.triggers()[0].ssids.size(), 1u);
}

TEST_F(ScanTrigger, OnlyTheLengthDecidesWhetherElementsAreSent) {
  const unsigned char ies[] = {0xdd, 0x00};
  bool in_progress = true;
  ASSERT_TRUE(trigger(in_progress, ies, 0));
  ASSERT_EQ(kernel_.triggers().size(), 1u);
  EXPECT_FALSE(kernel_.triggers()[0].ies.has_value());
}

TEST_F(ScanTrigger, ElementsTooLargeForTheMessageAreLeftOutWithAWarning) {
  // A trigger message has room for one page; a block this size does not fit,
  // and the scan goes ahead without it.
  const Bytes ies(5000, 0xdd);
  LogCapture log;
  bool in_progress = true;
  ASSERT_TRUE(trigger(in_progress, ies.data(), ies.size()));
  EXPECT_FALSE(in_progress);
  ASSERT_EQ(kernel_.triggers().size(), 1u);
  EXPECT_FALSE(kernel_.triggers()[0].ies.has_value());
  EXPECT_EQ(kernel_.triggers()[0].ssids.size(), 1u);
  expect_lines(log, {trigger_line(kWarning, "failed to add IEs"),
                     trigger_line(kDebug, "Scan was triggered. Waiting ack")});
}

TEST_F(ScanTrigger, AcknowledgedThenFinishedScan) {
  LogCapture log;
  bool in_progress = true;
  ASSERT_TRUE(trigger(in_progress));
  scan_status status{true, true};
  ASSERT_TRUE(service(status));  // reads the kernel's acknowledgement
  EXPECT_FALSE(status.finished);
  EXPECT_FALSE(status.aborted);
  EXPECT_EQ(state()->scan_acked, 0);
  kernel_.announce_trigger(ifindex_);
  ASSERT_TRUE(service(status));
  EXPECT_EQ(state()->scan_acked, 1);
  EXPECT_FALSE(status.finished);
  kernel_.set_bss_table({generated_bss(1)});
  kernel_.finish_scan(ifindex_);
  ASSERT_TRUE(service(status));
  EXPECT_TRUE(status.finished);
  EXPECT_FALSE(status.aborted);
  ASSERT_EQ(kernel_.dumps().size(), 1u);
  EXPECT_EQ(kernel_.dumps()[0].flags & NLM_F_DUMP, NLM_F_DUMP);
  ASSERT_TRUE(kernel_.dumps()[0].ifindex.has_value());
  EXPECT_EQ(*kernel_.dumps()[0].ifindex, ifindex_);
  ASSERT_NE(state()->scan_list, nullptr);
  EXPECT_EQ(state()->scan_list->count, 1);
  expect_lines(
      log, {trigger_line(kDebug, "Scan was triggered. Waiting ack"),
            handler_line(kDebug, "Scan trigger ack"), handler_line(kDebug, "Scan was finished")});
}

TEST_F(ScanTrigger, AbortedScanStillCollectsResults) {
  start_scan();
  kernel_.set_bss_table({generated_bss(1), generated_bss(2)});
  LogCapture log;
  kernel_.abort_scan(ifindex_);
  scan_status status{};
  ASSERT_TRUE(service(status));
  EXPECT_TRUE(status.finished);
  EXPECT_TRUE(status.aborted);
  ASSERT_NE(state()->scan_list, nullptr);
  EXPECT_EQ(state()->scan_list->count, 2);
  expect_lines(log, {handler_line(kWarning, "Scan was aborted")});
}

TEST_F(ScanTrigger, ResultsWithoutAcknowledgementStillEndTheScan) {
  bool in_progress = true;
  ASSERT_TRUE(trigger(in_progress));
  kernel_.finish_scan(ifindex_);
  ASSERT_TRUE(service_until([this] { return state()->scan_finished == 1; }));
  EXPECT_EQ(state()->scan_acked, 0);
  EXPECT_EQ(state()->scan_aborted, 0);
}

TEST_F(ScanTrigger, TriggerWhileAScanRunsIsRefusedAndSendsNothing) {
  start_scan();
  LogCapture log;
  bool in_progress = false;
  EXPECT_TRUE(trigger(in_progress));
  EXPECT_TRUE(in_progress);
  EXPECT_EQ(kernel_.triggers().size(), 1u);
  EXPECT_EQ(state()->scan_acked, 1);
  expect_lines(log, {trigger_line(kInfo,
                                  "Another scan is in process, cannot trigger another "
                                  "scan...")});
}

TEST_F(ScanTrigger, RequestedButUnacknowledgedScanDoesNotCountAsRunning) {
  bool in_progress = true;
  ASSERT_TRUE(trigger(in_progress));
  ASSERT_TRUE(trigger(in_progress));
  EXPECT_FALSE(in_progress);
  // The kernel itself refuses the second request while its scan runs.
  ASSERT_EQ(kernel_.triggers().size(), 2u);
  EXPECT_EQ(kernel_.refused_triggers(), 1);
}

TEST_F(ScanTrigger, KernelRefusalOfAForeignScanReadsAsNothingWaiting) {
  kernel_.start_foreign_scan();
  LogCapture log;
  bool in_progress = true;
  ASSERT_TRUE(trigger(in_progress));
  EXPECT_EQ(kernel_.refused_triggers(), 1);
  // libnl reports the -EBUSY answer as -NLE_BUSY, the value the event
  // module takes for the camera's "nothing to read": the service passes and
  // the scan simply never starts.
  scan_status status{true, true};
  EXPECT_TRUE(service(status));
  EXPECT_FALSE(status.finished);
  EXPECT_FALSE(status.aborted);
  EXPECT_EQ(state()->scan_acked, 0);
  expect_lines(log, {trigger_line(kDebug, "Scan was triggered. Waiting ack")});
}

TEST_F(ScanTrigger, TriggerAfterAFinishedScanStartsANewOneAndResetsTheFlags) {
  run_scan({generated_bss(1)});
  // Finished normally: acknowledged and finished, not aborted.
  ASSERT_EQ(state()->scan_acked, 1);
  ASSERT_EQ(state()->scan_finished, 1);
  ASSERT_EQ(state()->scan_aborted, 0);
  LogCapture log;
  bool in_progress = true;
  ASSERT_TRUE(trigger(in_progress));
  EXPECT_FALSE(in_progress);
  EXPECT_EQ(state()->scan_acked, 0);
  EXPECT_EQ(state()->scan_finished, 0);
  EXPECT_EQ(state()->scan_aborted, 0);
  EXPECT_EQ(kernel_.triggers().size(), 2u);
  expect_lines(log, {trigger_line(kDebug, "Scan was triggered. Waiting ack")});
  // The new scan runs to its end like the first.
  kernel_.announce_trigger(ifindex_);
  kernel_.finish_scan(ifindex_);
  ASSERT_TRUE(service_until([this] { return state()->scan_finished == 1; }));
  EXPECT_EQ(state()->scan_acked, 1);
  EXPECT_EQ(kernel_.dumps().size(), 2u);
}

TEST_F(ScanTrigger, TriggerAfterAnAbortedScanStartsANewOneAndResetsTheFlags) {
  run_scan({generated_bss(1)}, true);
  ASSERT_EQ(state()->scan_acked, 1);
  ASSERT_EQ(state()->scan_finished, 1);
  ASSERT_EQ(state()->scan_aborted, 1);
  bool in_progress = true;
  ASSERT_TRUE(trigger(in_progress));
  EXPECT_FALSE(in_progress);
  EXPECT_EQ(state()->scan_acked, 0);
  EXPECT_EQ(state()->scan_finished, 0);
  EXPECT_EQ(state()->scan_aborted, 0);
  EXPECT_EQ(kernel_.triggers().size(), 2u);
  // Subscribed once, for good.
  const auto* events = static_cast<qira::network::events::events_state*>(context_.wireless_events);
  EXPECT_EQ(events->subscribers.size(), 1u);
}

TEST_F(ScanTrigger, EventsAfterTheEndAreIgnored) {
  run_scan({generated_bss(1)});
  LogCapture log;
  kernel_.announce_trigger(ifindex_);
  kernel_.abort_scan(ifindex_);
  scan_status status{};
  ASSERT_TRUE(service(status));
  ASSERT_TRUE(service(status));
  EXPECT_TRUE(status.finished);
  EXPECT_FALSE(status.aborted);
  EXPECT_EQ(kernel_.dumps().size(), 1u);
  expect_lines(log, {});
}

TEST_F(ScanTrigger, UnknownInterfaceIsReported) {
  LogCapture log;
  bool in_progress = true;
  EXPECT_FALSE(qira::network::netlib_libscan_trigger(ctx(), "nosuch0", nullptr, 0, in_progress));
  EXPECT_FALSE(in_progress);
  EXPECT_TRUE(kernel_.triggers().empty());
  // The subscription stays in place.
  EXPECT_EQ(state()->subscribed, 1);
  expect_lines(log, {trigger_line(kError, "Failed to get interface index (nosuch0)")});
}

TEST_F(ScanTrigger, FailedSendIsReportedAndLeavesTheFlagsCleared) {
  run_scan({}, true);
  kernel_.fail_sends(ENOBUFS);
  LogCapture log;
  bool in_progress = true;
  EXPECT_FALSE(trigger(in_progress));
  EXPECT_EQ(state()->scan_finished, 0);
  EXPECT_EQ(state()->scan_aborted, 0);
  expect_lines(log, {trigger_line(kError, "Failed to send a SCAN_TRIGGER message")});
}

TEST_F(ScanTrigger, FailedDumpIsReportedTwice) {
  start_scan();
  kernel_.finish_scan(ifindex_);
  LogCapture log;
  kernel_.fail_sends(EPERM);
  scan_status status{};
  ASSERT_TRUE(service(status));
  EXPECT_TRUE(status.finished);
  EXPECT_EQ(state()->scan_list, nullptr);
  expect_lines(log, {handler_line(kDebug, "Scan was finished"),
                     {kTriggerFile, "receive_results", kError, "Failed to retrieve scan results"},
                     handler_line(kError, "Failed to retrieve scan results")});
}

TEST_F(ScanTrigger, HandlerThatIsNotSubscribedWarnsAndChangesNothing) {
  start_scan();
  state()->subscribed = 0;
  LogCapture log;
  kernel_.finish_scan(ifindex_);
  scan_status status{};
  ASSERT_TRUE(service(status));
  EXPECT_FALSE(status.finished);
  EXPECT_TRUE(kernel_.dumps().empty());
  expect_lines(log, {handler_line(kWarning, "Event handler is called, but we're not subscribed")});
  state()->subscribed = 1;  // so that close gives the subscription back
}

TEST_F(ScanTrigger, ServiceBeforeAnyTriggerReportsNothingEnded) {
  LogCapture log;
  scan_status status{true, true};
  EXPECT_TRUE(service(status));
  EXPECT_FALSE(status.finished);
  EXPECT_FALSE(status.aborted);
  expect_lines(log, {});
}

TEST_F(ScanTrigger, UnusableContextIsRefusedByEveryCall) {
  LogCapture log;
  bool in_progress = true;
  scan_status status{true, true};
  EXPECT_FALSE(qira::network::netlib_libscan_trigger(nullptr, kInterface, nullptr, 0, in_progress));
  EXPECT_TRUE(in_progress);
  EXPECT_FALSE(qira::network::netlib_libscan_service(nullptr, kInterface, status));
  state()->initialised = 0;
  EXPECT_FALSE(trigger(in_progress));
  state()->initialised = 1;
  void* scan_slot = context_.wireless_scan;
  context_.wireless_scan = nullptr;
  EXPECT_FALSE(service(status));
  context_.wireless_scan = scan_slot;
  void* events_slot = context_.wireless_events;
  context_.wireless_events = nullptr;
  EXPECT_FALSE(trigger(in_progress));
  context_.wireless_events = events_slot;
  auto* events = static_cast<qira::network::events::events_state*>(events_slot);
  events->initialised = 0;
  EXPECT_FALSE(service(status));
  events->initialised = 1;
  EXPECT_TRUE(in_progress);
  EXPECT_TRUE(status.finished);
  EXPECT_TRUE(kernel_.triggers().empty());
  const Line null = {kTriggerFile, "check", kError, "library context is null"};
  const Line uninitialised = {kTriggerFile, "check", kError, "library is not initialized"};
  expect_lines(log, {null, null, uninitialised, null, null, uninitialised});
}

}  // namespace
}  // namespace qira::test::scan
