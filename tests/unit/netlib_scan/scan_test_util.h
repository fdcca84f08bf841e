// Shared pieces of the scan path's tests: a library context with the event
// and scan modules started on the simulated scanning kernel, the calls an
// application makes, generated BSS tables and exact log assertions.
#ifndef QIRA_TESTS_UNIT_NETLIB_SCAN_SCAN_TEST_UTIL_H
#define QIRA_TESTS_UNIT_NETLIB_SCAN_SCAN_TEST_UTIL_H

#include <gtest/gtest.h>
#include <net/if.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "netlib_scan/scan_state.h"
#include "qira/host/seams.h"
#include "qira/netlib/context.h"
#include "qira/network/netlib_events.h"
#include "qira/network/netlib_scan.h"
#include "support/bss_message.h"
#include "support/scan_kernel.h"

namespace qira::test::scan {

inline constexpr const char* kModule = "qira_network_utils_wireless";
inline constexpr const char* kTriggerFile = "src/netlib_scan/scan_trigger.cpp";
inline constexpr const char* kResultsFile = "src/netlib_scan/scan_results.cpp";
// The interface scanned: the loopback interface exists on every machine.
inline constexpr const char* kInterface = "lo";
inline constexpr int kError = 3;
inline constexpr int kWarning = 4;
inline constexpr int kInfo = 6;
inline constexpr int kDebug = 7;

struct Line {
  std::string file;
  std::string function;
  int level;
  std::string message;
  int error_number = 0;
};

// Exactly these lines (module, errno as given, 0 by default), in this order.
inline void expect_lines(const qira::host::LogCapture& log, const std::vector<Line>& expected) {
  const std::vector<qira::host::LogRecord> records = log.records();
  ASSERT_EQ(records.size(), expected.size()) << ::testing::PrintToString(log.messages());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(records[i].module, kModule);
    EXPECT_EQ(records[i].file, expected[i].file);
    EXPECT_EQ(records[i].function, expected[i].function);
    EXPECT_EQ(records[i].level, expected[i].level);
    EXPECT_EQ(records[i].error_number, expected[i].error_number);
    EXPECT_EQ(records[i].message, expected[i].message);
  }
}

inline Line trigger_line(int level, const std::string& message) {
  return {kTriggerFile, "netlib_libscan_trigger", level, message};
}
inline Line handler_line(int level, const std::string& message) {
  return {kTriggerFile, "event_handler", level, message};
}

// Access point `n` of a generated table: BSSID 02:00:00:00:hi:lo, SSID
// "net-<n>", 2412 MHz, signal by the unspecified figure `figure`.
inline BssAttributes generated_bss(int n, std::uint8_t figure = 50) {
  BssAttributes bss;
  bss.bssid = std::array<std::uint8_t, 6>{
      0x02, 0, 0, 0, static_cast<std::uint8_t>(n >> 8), static_cast<std::uint8_t>(n & 0xff)};
  bss.frequency = 2412;
  bss.capability = 0x0001;  // ESS, open
  bss.signal_unspecified = figure;
  bss.ies = ssid_element("net-" + std::to_string(n));
  return bss;
}

class ScanTest : public ::testing::Test {
 protected:
  ScanTest() {
    iface_.initialised = 1;
    iface_.ioctl_fd = -1;
    context_.iface = &iface_;
  }
  void SetUp() override {
    ifindex_ = if_nametoindex(kInterface);
    ASSERT_GT(ifindex_, 0u);
    ASSERT_TRUE(host_call(qira::network::netlib_libevents_wireless_init));
    ASSERT_TRUE(host_call(qira::network::netlib_libscan_wireless_init));
  }
  ~ScanTest() override {
    host_call(qira::network::netlib_libscan_wireless_close);
    host_call(qira::network::netlib_libevents_wireless_close);
  }

  void* ctx() { return &context_; }
  qira::network::scan::scan_state* state() {
    return static_cast<qira::network::scan::scan_state*>(context_.wireless_scan);
  }
  bool host_call(bool (*routine)(void*)) {
    context_.internal_call = 1;
    const bool ok = routine(ctx());
    context_.internal_call = 0;
    return ok;
  }

  bool trigger(bool& in_progress, const unsigned char* ies = nullptr, unsigned int ies_len = 0) {
    return qira::network::netlib_libscan_trigger(ctx(), kInterface, ies, ies_len, in_progress);
  }
  bool service(qira::network::scan_status& status) {
    return qira::network::netlib_libscan_service(ctx(), kInterface, status);
  }
  // Services until `done` holds, at most `limit` calls (each reads one
  // datagram); false when it never held.
  bool service_until(const std::function<bool()>& done, int limit = 10) {
    qira::network::scan_status status{};
    for (int i = 0; i < limit; ++i) {
      if (!service(status)) {
        return false;
      }
      if (done()) {
        return true;
      }
    }
    return done();
  }
  // Trigger, acknowledgement by the kernel, and its trigger_scan event.
  void start_scan() {
    bool in_progress = true;
    ASSERT_TRUE(trigger(in_progress));
    ASSERT_FALSE(in_progress);
    kernel_.announce_trigger(ifindex_);
    ASSERT_TRUE(service_until([this] { return state()->scan_acked == 1; }));
  }
  // A whole scan that ends normally (or by abort) with `table` in the kernel.
  void run_scan(std::vector<BssAttributes> table, bool aborted = false) {
    kernel_.set_bss_table(std::move(table));
    start_scan();
    if (aborted) {
      kernel_.abort_scan(ifindex_);
    } else {
      kernel_.finish_scan(ifindex_);
    }
    ASSERT_TRUE(service_until([this] { return state()->scan_finished == 1; }));
  }
  std::vector<qira::network::ap_info> results(bool& ok, const std::string& ifname = "wlan0",
                                              bool ap_mode = false) {
    std::vector<qira::network::ap_info> out;
    ok = qira::network::netlib_libscan_results(ctx(), ifname, out, ap_mode);
    return out;
  }

  ScanKernel kernel_;
  qira::netlib::iface_state iface_{};
  qira::netlib::library_context context_{};
  unsigned int ifindex_ = 0;
};

}  // namespace qira::test::scan

#endif  // QIRA_TESTS_UNIT_NETLIB_SCAN_SCAN_TEST_UTIL_H
