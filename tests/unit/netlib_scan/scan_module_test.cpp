// The scan module's init and close: the host's entry rules, the state they
// create in the context's scan slot and what close releases.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "netlib_events/events_state.h"
#include "netlib_scan/scan_state.h"
#include "qira/host/loader.h"
#include "qira/host/seams.h"
#include "qira/netlib/context.h"
#include "qira/network/ap_selection.h"
#include "qira/network/netlib_events.h"
#include "qira/network/netlib_scan.h"
#include "support/nl80211_sim.h"

namespace qira::test {
namespace {

using qira::host::LogCapture;
using qira::network::scan::scan_state;

constexpr const char* kScanFile = "src/netlib_scan/scan_module.cpp";

// Exactly one line, level 3 and errno 0, from `function` of the scan module.
void expect_one_line(const LogCapture& log, const std::string& function,
                     const std::string& message) {
  const std::vector<qira::host::LogRecord> records = log.records();
  ASSERT_EQ(records.size(), 1u) << ::testing::PrintToString(log.messages());
  EXPECT_EQ(records[0].module, "qira_network_utils_wireless");
  EXPECT_EQ(records[0].file, kScanFile);
  EXPECT_EQ(records[0].function, function);
  EXPECT_EQ(records[0].level, 3);
  EXPECT_EQ(records[0].error_number, 0);
  EXPECT_EQ(records[0].message, message);
}

void ignore_event(qira::network::event_type, const qira::variant::Variant&, void*) {}

// A context as the host builds it, with the event module started on the
// simulated nl80211 kernel.
class ScanModule : public ::testing::Test {
 protected:
  ScanModule() {
    iface_.initialised = 1;
    iface_.ioctl_fd = -1;
    context_.iface = &iface_;
  }
  ~ScanModule() override {
    context_.internal_call = 1;
    qira::network::netlib_libscan_wireless_close(ctx());
    qira::network::netlib_libevents_wireless_close(ctx());
  }

  void* ctx() { return &context_; }
  scan_state* state() { return static_cast<scan_state*>(context_.wireless_scan); }
  qira::network::events::events_state* events() {
    return static_cast<qira::network::events::events_state*>(context_.wireless_events);
  }

  // The host's calls: internal-call flag set around each.
  bool host_call(bool (*routine)(void*)) {
    context_.internal_call = 1;
    const bool ok = routine(ctx());
    context_.internal_call = 0;
    return ok;
  }
  void start_events() { ASSERT_TRUE(host_call(qira::network::netlib_libevents_wireless_init)); }
  bool init() { return host_call(qira::network::netlib_libscan_wireless_init); }
  bool close() { return host_call(qira::network::netlib_libscan_wireless_close); }

  SimulatedNl80211 kernel_;
  qira::netlib::iface_state iface_{};
  qira::netlib::library_context context_{};
};

TEST_F(ScanModule, InitWithoutTheEventModuleIsLibraryContextIsNull) {
  LogCapture log;
  EXPECT_FALSE(init());
  expect_one_line(log, "netlib_libscan_wireless_init", "library context is null");
  EXPECT_EQ(context_.wireless_scan, nullptr);
}

TEST_F(ScanModule, InitWithAnUninitialisedEventModuleIsNotInitialized) {
  qira::network::events::events_state events;  // initialised 0
  context_.wireless_events = &events;
  LogCapture log;
  EXPECT_FALSE(init());
  expect_one_line(log, "netlib_libscan_wireless_init", "library is not initialized");
  EXPECT_EQ(context_.wireless_scan, nullptr);
  context_.wireless_events = nullptr;
}

TEST_F(ScanModule, InitFromAnApplicationIsRefusedAndLeavesTheContextAsItWas) {
  start_events();
  qira::netlib::library_context before = context_;
  LogCapture log;
  EXPECT_FALSE(qira::network::netlib_libscan_wireless_init(ctx()));  // flag clear
  expect_one_line(log, "netlib_libscan_wireless_init",
                  "netlib: you may not call this function directly");
  EXPECT_EQ(std::memcmp(&before, &context_, sizeof(context_)), 0);
}

TEST_F(ScanModule, InitCreatesAnIdleStateWithRecoveryEnabled) {
  start_events();
  LogCapture log;
  ASSERT_TRUE(init());
  EXPECT_TRUE(log.records().empty());
  ASSERT_NE(state(), nullptr);
  EXPECT_EQ(state()->initialised, 1);
  EXPECT_EQ(state()->subscribed, 0);
  EXPECT_EQ(state()->scan_acked, 0);
  EXPECT_EQ(state()->scan_finished, 0);
  EXPECT_EQ(state()->scan_aborted, 0);
  EXPECT_EQ(state()->recovery_enabled, 1);
  EXPECT_EQ(state()->scan_list, nullptr);
  EXPECT_NE(state()->callbacks, nullptr);
}

TEST_F(ScanModule, CloseWithANullContextIsLibraryContextIsNull) {
  LogCapture log;
  EXPECT_FALSE(qira::network::netlib_libscan_wireless_close(nullptr));
  expect_one_line(log, "netlib_libscan_wireless_close", "library context is null");
}

TEST_F(ScanModule, CloseFromAnApplicationIsRefusedAndKeepsTheState) {
  start_events();
  ASSERT_TRUE(init());
  scan_state* kept = state();
  LogCapture log;
  EXPECT_FALSE(qira::network::netlib_libscan_wireless_close(ctx()));  // flag clear
  expect_one_line(log, "netlib_libscan_wireless_close",
                  "netlib: you may not call this function directly");
  EXPECT_EQ(state(), kept);
  EXPECT_EQ(kept->initialised, 1);
}

TEST_F(ScanModule, CloseOfAModuleNeverInitialisedIsTrue) {
  LogCapture log;
  EXPECT_TRUE(close());
  EXPECT_TRUE(log.records().empty());
  EXPECT_EQ(context_.wireless_scan, nullptr);
}

TEST_F(ScanModule, CloseReleasesTheStateAndEmptiesTheSlot) {
  start_events();
  ASSERT_TRUE(init());
  EXPECT_TRUE(close());
  EXPECT_EQ(context_.wireless_scan, nullptr);
  // A second close finds nothing to do.
  EXPECT_TRUE(close());
}

TEST_F(ScanModule, CloseWithoutATriggerDoesNotUnsubscribe) {
  start_events();
  // An application's subscription takes identifier 0, the value the scan
  // state's identifier also holds while the module never subscribed.
  unsigned int id = 99;
  ASSERT_TRUE(qira::network::netlib_libevents_wireless_subscribe(ctx(), ignore_event, id, nullptr));
  ASSERT_EQ(id, 0u);
  ASSERT_TRUE(init());
  ASSERT_EQ(state()->subscription_id, 0u);
  EXPECT_TRUE(close());
  EXPECT_EQ(events()->subscribers.count(0), 1u);
}

TEST_F(ScanModule, CloseGivesBackItsSubscription) {
  start_events();
  ASSERT_TRUE(init());
  unsigned int id = 99;
  ASSERT_TRUE(qira::network::netlib_libevents_wireless_subscribe(ctx(), ignore_event, id, ctx()));
  state()->subscribed = 1;
  state()->subscription_id = id;
  EXPECT_TRUE(close());
  EXPECT_EQ(events()->subscribers.count(id), 0u);
}

TEST_F(ScanModule, CloseFreesACollectedScanList) {
  start_events();
  ASSERT_TRUE(init());
  // A list as the results dump leaves it: nodes and slots from malloc. A
  // sanitized or valgrind run of this test fails if close leaks them.
  auto* list = static_cast<scan_list*>(std::calloc(1, sizeof(scan_list)));
  ASSERT_NE(list, nullptr);
  list->capacity = 8;
  list->growth = 2;
  list->items = static_cast<ap_node**>(std::calloc(list->capacity, sizeof(ap_node*)));
  ASSERT_NE(list->items, nullptr);
  for (int i = 0; i < 3; ++i) {
    list->items[list->count++] = static_cast<ap_node*>(std::calloc(1, sizeof(ap_node)));
  }
  state()->scan_list = list;
  EXPECT_TRUE(close());
  EXPECT_EQ(context_.wireless_scan, nullptr);
}

TEST(ScanModuleLoader, TheHostStartsInterfaceEventsAndScanInOrderAndClosesThem) {
  SimulatedNl80211 kernel;
  qira::host::WirelessModule module;
  std::string error;
  ASSERT_TRUE(module.open(
      "", &error,
      qira::host::kInterfaceSubsystem | qira::host::kEventsSubsystem | qira::host::kScanSubsystem))
      << error;
  EXPECT_TRUE(module.events_started());
  EXPECT_TRUE(module.scan_started());
  ASSERT_NE(module.layout().wireless_scan, nullptr);
  EXPECT_EQ(static_cast<scan_state*>(module.layout().wireless_scan)->initialised, 1);
  EXPECT_EQ(module.layout().internal_call, 0);
  module.close();
}

}  // namespace
}  // namespace qira::test
