// The scan module when the process runs out of memory: its state, its
// callback set and its netlink messages, each with its message.
#include <gtest/gtest.h>

#include "netlib_scan/scan_state.h"
#include "qira/host/seams.h"
#include "qira/netlib/context.h"
#include "qira/network/netlib_events.h"
#include "qira/network/netlib_scan.h"
#include "support/alloc_faults.h"
#include "support/nl80211_sim.h"
#include "unit/netlib_scan/scan_test_util.h"

namespace qira::test::scan {
namespace {

using Faults = AllocationFaults;

constexpr const char* kModuleFile = "src/netlib_scan/scan_module.cpp";

// A context with the event module started and no scan module yet.
class ScanInitMemory : public ::testing::Test {
 protected:
  ScanInitMemory() {
    iface_.initialised = 1;
    iface_.ioctl_fd = -1;
    context_.iface = &iface_;
  }
  void SetUp() override { ASSERT_TRUE(host_call(qira::network::netlib_libevents_wireless_init)); }
  ~ScanInitMemory() override {
    host_call(qira::network::netlib_libscan_wireless_close);
    host_call(qira::network::netlib_libevents_wireless_close);
  }
  bool host_call(bool (*routine)(void*)) {
    context_.internal_call = 1;
    const bool ok = routine(&context_);
    context_.internal_call = 0;
    return ok;
  }

  SimulatedNl80211 kernel_;
  qira::netlib::iface_state iface_{};
  qira::netlib::library_context context_{};
};

TEST_F(ScanInitMemory, NoMemoryForTheStateIsAnAllocationError) {
  if (!Faults::effective(Faults::kNothrowNew)) {
    GTEST_SKIP() << "the sanitizer runtime owns operator new in this build";
  }
  Faults faults;
  faults.fail(Faults::kNothrowNew);
  qira::host::LogCapture log;
  EXPECT_FALSE(host_call(qira::network::netlib_libscan_wireless_init));
  expect_lines(log, {{kModuleFile, "netlib_libscan_wireless_init", kError,
                      "netlib: memory allocation error"}});
  EXPECT_EQ(context_.wireless_scan, nullptr);
}

TEST_F(ScanInitMemory, NoCallbackSetFailsAndLeavesTheSlotAsItWas) {
  Faults faults;
  faults.fail(Faults::kNlCbAlloc);
  qira::host::LogCapture log;
  EXPECT_FALSE(host_call(qira::network::netlib_libscan_wireless_init));
  expect_lines(log, {{kModuleFile, "netlib_libscan_wireless_init", kError,
                      "netlib: failed to allocate netlink callback"}});
  // Deliberately the freed state's address: the host does not call the
  // module again after a failed init. Forget it before teardown.
  EXPECT_NE(context_.wireless_scan, nullptr);
  context_.wireless_scan = nullptr;
}

TEST_F(ScanTest, TriggerWithoutEitherMessageFailsBeforeSending) {
  // A first trigger prepares the event module (whose group lookups make
  // messages of their own) and subscribes; it is never acknowledged, so the
  // next triggers are not refused as "in progress".
  bool in_progress = true;
  ASSERT_TRUE(trigger(in_progress));
  // Then the request, and the SSID list, fail in turn.
  for (const int skip : {0, 1}) {
    SCOPED_TRACE(skip);
    const std::size_t sent_before = kernel_.triggers().size();
    Faults faults;
    faults.fail(Faults::kNlmsgAlloc, 1, skip);
    qira::host::LogCapture log;
    EXPECT_FALSE(trigger(in_progress));
    EXPECT_FALSE(in_progress);
    EXPECT_EQ(faults.failures(Faults::kNlmsgAlloc), 1);
    expect_lines(log, {trigger_line(kError, "Failed to allocate netlink message")});
    EXPECT_EQ(kernel_.triggers().size(), sent_before);
  }
}

TEST_F(ScanTest, AResultsRequestWithoutAMessageIsAFailedRetrieval) {
  kernel_.set_bss_table({generated_bss(1)});
  start_scan();
  Faults faults;
  faults.fail(Faults::kNlmsgAlloc);
  kernel_.finish_scan(ifindex_);
  qira::host::LogCapture log;
  ASSERT_TRUE(service_until([this] { return state()->scan_finished == 1; }));
  expect_lines(log,
               {handler_line(kDebug, "Scan was finished"),
                {kTriggerFile, "receive_results", kError, "Failed to allocate netlink message"},
                handler_line(kError, "Failed to retrieve scan results")});
}

}  // namespace
}  // namespace qira::test::scan
