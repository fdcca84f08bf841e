// Shared pieces of the interface module's tests: the module loaded as the
// host loads it, the simulated driver under it, and exact log assertions.
#ifndef QIRA_TESTS_UNIT_NETLIB_IFACE_IFACE_TEST_UTIL_H
#define QIRA_TESTS_UNIT_NETLIB_IFACE_IFACE_TEST_UTIL_H

#include <gtest/gtest.h>
#include <linux/wireless.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "qira/host/loader.h"
#include "qira/host/seams.h"
#include "qira/network/netlib_iface.h"
#include "support/wext_sim.h"

namespace qira::test::iface {

inline constexpr const char* kModule = "qira_network_utils_wireless";
inline constexpr const char* kIfaceFile = "src/netlib_iface/netlib_iface.cpp";
inline constexpr int kLevelError = 3;

// The raw 16-byte name field a request should carry for `bytes`.
inline std::array<char, IFNAMSIZ> name_field(const std::string& bytes) {
  std::array<char, IFNAMSIZ> field{};
  std::memcpy(field.data(), bytes.data(), std::min<std::size_t>(bytes.size(), IFNAMSIZ));
  return field;
}

// One log line of the interface module, level 3, with exactly these fields.
inline void expect_record(const qira::host::LogRecord& record, const std::string& function,
                          int error_number, const std::string& message) {
  EXPECT_EQ(record.module, kModule);
  EXPECT_EQ(record.file, kIfaceFile);
  EXPECT_EQ(record.function, function);
  EXPECT_GT(record.line, 0);
  EXPECT_EQ(record.level, kLevelError);
  EXPECT_EQ(record.error_number, error_number);
  EXPECT_EQ(record.reserved, 0);
  EXPECT_EQ(record.message, message);
}

// Exactly one line was logged, and it is this one.
inline void expect_one_record(const qira::host::LogCapture& log, const std::string& function,
                              int error_number, const std::string& message) {
  const std::vector<qira::host::LogRecord> records = log.records();
  ASSERT_EQ(records.size(), 1u) << "lines: " << ::testing::PrintToString(log.messages());
  expect_record(records[0], function, error_number, message);
}

// One query of the interface module called with a sentinel in its output.
struct QueryCase {
  std::string name;
  // Returns the query's result for `ifname`; `untouched` tells whether the
  // output kept the sentinel.
  std::function<bool(void* ctx, const std::string& ifname, bool& untouched)> call;
};

// Parameterised tests print the query's name rather than its bytes.
inline void PrintTo(const QueryCase& query, std::ostream* out) {
  *out << query.name;
}

template <typename Output>
QueryCase make_case(const std::string& name, bool (*query)(void*, const std::string&, Output&),
                    Output sentinel) {
  return {name, [query, sentinel](void* ctx, const std::string& ifname, bool& untouched) {
            Output output = sentinel;
            const bool result = query(ctx, ifname, output);
            untouched = output == sentinel;
            return result;
          }};
}

// Every query that runs the interface check (all but the noise level).
inline std::vector<QueryCase> checked_queries() {
  return {
      make_case<std::string>("essid", &qira::network::netlib_iface_iw_get_essid, "before"),
      make_case<std::string>("bssid", &qira::network::netlib_iface_iw_get_bssid, "before"),
      make_case<int>("freq", &qira::network::netlib_iface_iw_get_freq, 12345),
      make_case<int>("channel", &qira::network::netlib_iface_iw_get_channel, 12345),
      make_case<int>("bitrate", &qira::network::netlib_iface_iw_get_bitrate, 12345),
      make_case<int>("txpower", &qira::network::netlib_iface_iw_get_txpower, 12345),
      make_case<int>("quality", &qira::network::netlib_iface_iw_get_quality, 12345),
      make_case<int>("quality_max", &qira::network::netlib_iface_iw_get_quality_max, 12345),
      make_case<int>("signal_level", &qira::network::netlib_iface_iw_get_signal_level, 12345),
      make_case<unsigned char>("wireless_mode", &qira::network::netlib_iface_iw_get_wireless_mode,
                               0xA5),
  };
}

// The module loaded through the reference host (ioctl socket, dlopen of
// QIRA_WIRELESS_MODULE, init with the internal-call flag set) over the
// simulated driver, with every log line captured from then on.
class LoadedModule : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(module_.open("", &error)) << error;
    ASSERT_NE(module_.layout().iface, nullptr);
    ASSERT_NE(module_.layout().iface->ioctl_fd, -1);
    log_.clear();
    wext_.clear_requests();
  }

  void* ctx() { return module_.context(); }
  int ioctl_fd() { return module_.layout().iface->ioctl_fd; }
  WextInterfaceModel& wlan0() { return wext_.interface("wlan0"); }

  // The requests issued, in order, each on the context's socket for "wlan0".
  void expect_requests(const std::vector<unsigned long>& expected) {
    std::vector<unsigned long> seen;
    for (const WextRequest& request : wext_.requests()) {
      seen.push_back(request.request);
      EXPECT_EQ(request.fd, ioctl_fd());
      EXPECT_EQ(request.name, name_field("wlan0"));
    }
    EXPECT_EQ(seen, expected);
  }

  SimulatedWext wext_;
  qira::host::LogCapture log_;
  qira::host::WirelessModule module_;
};

}  // namespace qira::test::iface

#endif  // QIRA_TESTS_UNIT_NETLIB_IFACE_IFACE_TEST_UTIL_H
