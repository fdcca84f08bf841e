// A long run of the scan path: 10,000 whole scans (trigger, its
// acknowledgement and trigger_scan event, the end of the scan, the dump and
// the records) through the simulated scanning kernel, each giving exactly
// the table's access points, and the heap and the descriptors as they were
// after the warm-up.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "support/endurance_check.h"
#include "unit/netlib_scan/scan_test_util.h"

namespace qira::test::scan {
namespace {

using qira::network::ap_info;
using qira::network::scan_status;

constexpr int kWarmUp = 100;
constexpr int kScans = 10000;
constexpr int kAccessPoints = 5;

class ScanEndurance : public ScanTest {
 protected:
  // One whole scan; false at the first step that went wrong, named in `step`.
  bool one_scan(std::vector<ap_info>& out, std::string& step) {
    bool in_progress = true;
    if (!trigger(in_progress) || in_progress) {
      step = "trigger";
      return false;
    }
    kernel_.announce_trigger(ifindex_);
    if (!service_until([this] { return state()->scan_acked == 1; })) {
      step = "trigger_scan event";
      return false;
    }
    kernel_.finish_scan(ifindex_);
    if (!service_until([this] { return state()->scan_finished == 1; })) {
      step = "new_scan_results event";
      return false;
    }
    if (!qira::network::netlib_libscan_results(ctx(), "wlan0", out, false)) {
      step = "results";
      return false;
    }
    // The simulation records every request; a long run must not keep them.
    kernel_.forget_requests();
    return true;
  }
};

// What the records of the table below must say, field by field.
std::string differences(const std::vector<ap_info>& out) {
  if (out.size() != static_cast<std::size_t>(kAccessPoints)) {
    return "records: " + std::to_string(out.size());
  }
  std::string found;
  for (int n = 0; n < kAccessPoints; ++n) {
    const ap_info& record = out[static_cast<std::size_t>(n)];
    const int figure = 40 + 10 * n;
    char bssid[18];
    std::snprintf(bssid, sizeof bssid, "02:00:00:00:%02x:%02x", n >> 8, n & 0xff);
    if (record.bssid != bssid || record.ssid != "net-" + std::to_string(n) ||
        record.frequency != 2412 || record.channel != 1 || record.signal != figure ||
        record.quality != figure || record.encrypted != 0 || record.wpa_version != 0 ||
        record.ies != ssid_element("net-" + std::to_string(n)) || !record.beacon_ies.empty() ||
        !record.children.empty()) {
      found += " record " + std::to_string(n) + " (" + record.bssid + " " + record.ssid + ")";
    }
  }
  return found;
}

TEST_F(ScanEndurance, TenThousandScansKeepHeapAndDescriptorsFlat) {
  std::vector<BssAttributes> table;
  for (int n = 0; n < kAccessPoints; ++n) {
    table.push_back(generated_bss(n, static_cast<std::uint8_t>(40 + 10 * n)));
  }
  kernel_.set_bss_table(table);
  std::vector<ap_info> out;
  int done = 0;
  int wrong = 0;
  std::string first_failure;
  auto run = [&](int count) {
    for (int i = 0; i < count; ++i) {
      std::string step;
      if (!one_scan(out, step)) {
        first_failure = "scan " + std::to_string(done) + ": " + step;
        return false;
      }
      const std::string found = differences(out);
      if (!found.empty() && wrong++ == 0) {
        first_failure = "scan " + std::to_string(done) + ":" + found;
      }
      ++done;
    }
    return true;
  };

  ASSERT_TRUE(run(kWarmUp)) << first_failure;
  const ResourceCounts warm = resource_counts();
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(run(kScans)) << first_failure;
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const ResourceCounts end = resource_counts();

  EXPECT_EQ(done, kWarmUp + kScans);
  EXPECT_EQ(wrong, 0) << first_failure;
  EXPECT_EQ(kernel_.refused_triggers(), 0);
  EXPECT_FALSE(kernel_.scanning());
  expect_flat_resources("10000 scans", warm, end, seconds);
}

}  // namespace
}  // namespace qira::test::scan
