// netlib_libscan_results over whole scans of the simulated scanning kernel:
// dump sizes, the list's bound, element blocks, hidden networks, duplicates,
// consumption, and the recovery after an aborted scan.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "qira/host/seams.h"
#include "qira/network/netlib_netm.h"
#include "support/wpa_supplicant_sim.h"
#include "unit/netlib_scan/scan_test_util.h"

namespace qira::test::scan {
namespace {

using qira::host::LogCapture;
using qira::network::ap_info;

const Line kRecoverLine = {kResultsFile, "netlib_libscan_results", kWarning,
                           "Scan was aborted: results may be incomplete or missing. Try to "
                           "recover"};
const Line kRecoverFailedLine = {kResultsFile, "netlib_libscan_results", kWarning,
                                 "Failed to recover scan ap"};

// The hostapd file of a camera whose setup access point runs on ap0: what the
// recovery after an aborted scan in access-point mode reads.
void write_access_point_file() {
  std::ofstream file("/etc/hostapd.conf");
  file << "interface=ap0\n";
}

class ScanResults : public ScanTest {};

TEST_F(ScanResults, EmptyDumpGivesNoRecord) {
  run_scan({});
  LogCapture log;
  bool ok = false;
  ap_info stale{};
  std::vector<ap_info> out{stale};
  ok = qira::network::netlib_libscan_results(ctx(), "wlan0", out, false);
  EXPECT_TRUE(ok);
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(state()->scan_list, nullptr);
  expect_lines(log, {});
}

TEST_F(ScanResults, OneAccessPointBecomesOneRecord) {
  BssAttributes bss;
  bss.bssid = std::array<std::uint8_t, 6>{0x0a, 0xb1, 0xc2, 0xd3, 0xe4, 0xf5};
  bss.frequency = 5180;
  bss.capability = 0x0011;  // ESS, privacy
  bss.signal_unspecified = 70;
  const Bytes rsn = element(
      48, {1, 0, 0x00, 0x0f, 0xac, 4, 1, 0, 0x00, 0x0f, 0xac, 4, 1, 0, 0x00, 0x0f, 0xac, 2, 0, 0});
  bss.ies = join({ssid_element("Home Net"), rsn});
  bss.beacon_ies = join({ssid_element("Home Net"), element(3, {36})});
  run_scan({bss});
  bool ok = false;
  const std::vector<ap_info> out = results(ok);
  ASSERT_TRUE(ok);
  ASSERT_EQ(out.size(), 1u);
  const ap_info& record = out[0];
  EXPECT_EQ(record.bssid, "0a:b1:c2:d3:e4:f5");
  EXPECT_EQ(record.ssid, "Home Net");
  EXPECT_EQ(record.frequency, 5180);
  EXPECT_EQ(record.channel, 36);
  EXPECT_EQ(record.signal, 70);
  EXPECT_EQ(record.quality, 70);
  EXPECT_EQ(record.encrypted, 1);
  EXPECT_EQ(record.wpa_version, 2);
  EXPECT_EQ(record.reserved_a, 0u);
  EXPECT_EQ(record.reserved_b, 0u);
  EXPECT_EQ(record.ies, *bss.ies);
  EXPECT_EQ(record.beacon_ies, *bss.beacon_ies);
  EXPECT_TRUE(record.children.empty());
  EXPECT_EQ(state()->scan_list, nullptr);
}

TEST_F(ScanResults, HundredAccessPointsAreAllDelivered) {
  std::vector<BssAttributes> table;
  for (int n = 0; n < 100; ++n) {
    table.push_back(generated_bss(n));
  }
  run_scan(table);
  ASSERT_NE(state()->scan_list, nullptr);
  EXPECT_EQ(state()->scan_list->count, 100);
  bool ok = false;
  const std::vector<ap_info> out = results(ok);
  ASSERT_TRUE(ok);
  ASSERT_EQ(out.size(), 100u);
  // Ascending by SSID, byte-wise.
  for (std::size_t i = 1; i < out.size(); ++i) {
    EXPECT_LT(out[i - 1].ssid, out[i].ssid);
  }
}

TEST_F(ScanResults, HundredAndFiftyAccessPointsKeepTheHundredStrongest) {
  // The first 100 are weak (figure 10); the 50 that follow are strong (90)
  // and each replaces a weak one when the list is full.
  std::vector<BssAttributes> table;
  for (int n = 0; n < 150; ++n) {
    table.push_back(generated_bss(n, n < 100 ? 10 : 90));
  }
  run_scan(table);
  ASSERT_NE(state()->scan_list, nullptr);
  EXPECT_EQ(state()->scan_list->count, 100);
  bool ok = false;
  const std::vector<ap_info> out = results(ok);
  ASSERT_TRUE(ok);
  ASSERT_EQ(out.size(), 100u);
  int strong = 0;
  std::set<std::string> names;
  for (const ap_info& record : out) {
    names.insert(record.ssid);
    if (record.signal == 90) {
      ++strong;
    }
  }
  EXPECT_EQ(strong, 50);
  EXPECT_EQ(names.size(), 100u);
  for (int n = 100; n < 150; ++n) {
    EXPECT_EQ(names.count("net-" + std::to_string(n)), 1u) << n;
  }
}

TEST_F(ScanResults, ElementBlocksOf1024BytesAreKeptAnd1025Dropped) {
  BssAttributes fits = generated_bss(1);
  Bytes block = ssid_element("net-1");
  while (block.size() < 1024) {
    const std::size_t room = 1024 - block.size() - 2;
    block = join({block, element(221, Bytes(std::min<std::size_t>(room, 255), 0x5a))});
  }
  ASSERT_EQ(block.size(), 1024u);
  fits.ies = block;
  fits.beacon_ies = block;
  BssAttributes too_long = generated_bss(2);
  // The same elements under the SSID "net-2", and one byte more.
  const Bytes longer =
      join({ssid_element("net-2"), Bytes(block.begin() + 7, block.end()), Bytes{0}});
  ASSERT_EQ(longer.size(), 1025u);
  too_long.ies = longer;
  too_long.beacon_ies = longer;
  run_scan({fits, too_long});
  bool ok = false;
  const std::vector<ap_info> out = results(ok);
  ASSERT_TRUE(ok);
  ASSERT_EQ(out.size(), 2u);
  EXPECT_EQ(out[0].ssid, "net-1");
  EXPECT_EQ(out[0].ies, block);
  EXPECT_EQ(out[0].beacon_ies, block);
  EXPECT_EQ(out[1].ssid, "net-2");
  EXPECT_TRUE(out[1].ies.empty());
  EXPECT_TRUE(out[1].beacon_ies.empty());
}

TEST_F(ScanResults, HiddenNetworksAreSkipped) {
  BssAttributes hidden = generated_bss(7);
  hidden.ies = ssid_element("");
  BssAttributes no_element = generated_bss(8);
  no_element.ies = element(3, {1});
  run_scan({hidden, generated_bss(1), no_element});
  bool ok = false;
  const std::vector<ap_info> out = results(ok);
  ASSERT_TRUE(ok);
  ASSERT_EQ(out.size(), 1u);
  EXPECT_EQ(out[0].ssid, "net-1");
  EXPECT_EQ(state()->scan_list, nullptr);
}

TEST_F(ScanResults, OnlyHiddenNetworksGiveNothingAndFreeTheList) {
  BssAttributes hidden = generated_bss(7);
  hidden.ies = ssid_element("");
  run_scan({hidden});
  ASSERT_NE(state()->scan_list, nullptr);
  bool ok = false;
  EXPECT_TRUE(results(ok).empty());
  EXPECT_TRUE(ok);
  EXPECT_EQ(state()->scan_list, nullptr);
}

TEST_F(ScanResults, DuplicatesAreReducedToOneAccessPoint) {
  // Three radios of one network on one channel, and one BSS reported twice.
  BssAttributes weak = generated_bss(1, 20);
  BssAttributes strong = generated_bss(2, 80);
  strong.ies = ssid_element("net-1");
  BssAttributes middle = generated_bss(3, 50);
  middle.ies = ssid_element("net-1");
  run_scan({weak, strong, middle, generated_bss(9), generated_bss(9)});
  bool ok = false;
  const std::vector<ap_info> out = results(ok);
  ASSERT_TRUE(ok);
  ASSERT_EQ(out.size(), 2u);
  EXPECT_EQ(out[0].ssid, "net-1");
  // Equal SSID, channel and frequency compare equal in the sort: which of
  // the three radios stays is the sort's choice, not the ranking's.
  const std::set<std::string> radios = {"02:00:00:00:00:01", "02:00:00:00:00:02",
                                        "02:00:00:00:00:03"};
  EXPECT_EQ(radios.count(out[0].bssid), 1u) << out[0].bssid;
  EXPECT_EQ(out[1].ssid, "net-9");
  EXPECT_EQ(out[1].bssid, "02:00:00:00:00:09");
}

TEST_F(ScanResults, SecondCallForOneScanIsEmpty) {
  run_scan({generated_bss(1), generated_bss(2)});
  bool ok = false;
  EXPECT_EQ(results(ok).size(), 2u);
  EXPECT_TRUE(ok);
  LogCapture log;
  ok = false;
  EXPECT_TRUE(results(ok).empty());
  EXPECT_TRUE(ok);
  expect_lines(log, {});
}

TEST_F(ScanResults, BeforeAnyScanEndedIsNotFinishedAndClearsOut) {
  start_scan();
  LogCapture log;
  std::vector<ap_info> out(2);
  EXPECT_FALSE(qira::network::netlib_libscan_results(ctx(), "wlan0", out, false));
  EXPECT_TRUE(out.empty());
  expect_lines(log, {{kResultsFile, "netlib_libscan_results", kError, "Scan is not finished"}});
}

TEST_F(ScanResults, UnusableContextLeavesOutUntouched) {
  LogCapture log;
  std::vector<ap_info> out(2);
  EXPECT_FALSE(qira::network::netlib_libscan_results(nullptr, "wlan0", out, false));
  state()->initialised = 0;
  EXPECT_FALSE(qira::network::netlib_libscan_results(ctx(), "wlan0", out, false));
  state()->initialised = 1;
  EXPECT_EQ(out.size(), 2u);
  expect_lines(log, {{kResultsFile, "check", kError, "library context is null"},
                     {kResultsFile, "check", kError, "library is not initialized"}});
}

TEST_F(ScanResults, AbortedScanInStationModeReassociates) {
  WpaSupplicantSim daemon("wlan0");
  daemon.reply("REASSOCIATE", "OK");
  run_scan({generated_bss(1)}, true);
  LogCapture log;
  bool ok = false;
  const std::vector<ap_info> out = results(ok, "wlan0", false);
  EXPECT_TRUE(ok);
  ASSERT_EQ(out.size(), 1u);
  EXPECT_EQ(daemon.requests(), std::vector<std::string>{"REASSOCIATE"});
  expect_lines(log, {kRecoverLine});
}

TEST_F(ScanResults, AbortedScanInStationModeWithoutDaemonStillDelivers) {
  run_scan({generated_bss(1)}, true);
  LogCapture log;
  bool ok = false;
  const std::vector<ap_info> out = results(ok, "wlan0", false);
  EXPECT_TRUE(ok);
  EXPECT_EQ(out.size(), 1u);
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{
                kRecoverLine.message, "connect() failed", "Failed to initialize control interface",
                "Failed to do wpa_cli reassociate", kRecoverFailedLine.message}));
  const std::vector<qira::host::LogRecord> records = log.records();
  ASSERT_EQ(records.size(), 5u);
  EXPECT_EQ(records[4].file, kResultsFile);
  EXPECT_EQ(records[4].function, "netlib_libscan_results");
  EXPECT_EQ(records[4].level, kWarning);
  EXPECT_EQ(records[4].error_number, 0);
}

TEST_F(ScanResults, AbortedScanInAccessPointModeRestartsHostapd) {
  qira::host::ProcessRecorder processes;
  write_access_point_file();
  run_scan({generated_bss(1)}, true);
  LogCapture log;
  bool ok = false;
  const std::vector<ap_info> out = results(ok, "ap0", true);
  EXPECT_TRUE(ok);
  EXPECT_EQ(out.size(), 1u);
  const std::vector<qira::host::ProcessCall> calls = processes.calls();
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[0].kind, qira::host::ProcessCall::kSignal);
  EXPECT_EQ(calls[0].program, "hostapd");
  EXPECT_EQ(calls[0].signal, 15);
  EXPECT_EQ(calls[1].kind, qira::host::ProcessCall::kDaemon);
  EXPECT_EQ(calls[1].program, "/bin/hostapd");
  EXPECT_EQ(calls[1].args, (std::vector<std::string>{"-B", "-d", "-f", "/var/log/hostapd.log",
                                                     "/etc/hostapd.conf"}));
  expect_lines(log, {kRecoverLine});
}

TEST_F(ScanResults, FailedHostapdRestartIsWarnedAndResultsDelivered) {
  qira::host::ProcessRecorder processes;
  std::remove("/etc/hostapd.conf");  // the sandbox's, left by an earlier test of this process
  run_scan({generated_bss(1)}, true);
  LogCapture log;
  bool ok = false;
  const std::vector<ap_info> out = results(ok, "ap0", true);
  EXPECT_TRUE(ok);
  EXPECT_EQ(out.size(), 1u);
  expect_lines(log, {kRecoverLine,
                     {"src/netlib_netm/daemons.cpp", "net_exec_hostapd", kError,
                      "Failed to access file \"/etc/hostapd.conf\"", ENOENT},
                     {"src/netlib_netm/recovery.cpp", "netlib_netm_recover_scan_ap", kError,
                      "Failed to restart hostapd"},
                     kRecoverFailedLine});
}

TEST_F(ScanResults, AbortedScanWithRecoveryDisabledDeliversWithoutWarning) {
  qira::host::ProcessRecorder processes;
  run_scan({generated_bss(1)}, true);
  state()->recovery_enabled = 0;
  LogCapture log;
  bool ok = false;
  const std::vector<ap_info> out = results(ok, "ap0", true);
  EXPECT_TRUE(ok);
  EXPECT_EQ(out.size(), 1u);
  EXPECT_TRUE(processes.calls().empty());
  expect_lines(log, {});
}

// The identity record of a camera of board `sysid`.
qira::variant::Variant board_identity(std::uint64_t sysid) {
  qira::variant::Variant record;
  record["sysid"] = static_cast<unsigned long long>(sysid);
  record["name"] = "Cam";
  record["hwaddr"] = "00000000ABCD";
  return record;
}

// Taking the setup access point down through the network manager, with the
// processes and the interface calls observed rather than made.
class ScanResultsAfterDisconnect : public ScanResults {
 protected:
  void TearDown() override { qira::host::clear_identity_record(); }
  bool disconnect_access_point(std::uint64_t sysid) {
    qira::host::set_identity_record(board_identity(sysid));
    // Where the Broadcom board's disconnect writes the station firmware path.
    std::filesystem::create_directories("/sys/module/bcmdhd/parameters");
    qira::host::NetlibRecorder interfaces;
    return qira::network::netlib_netm_wireless_disconnect(ctx(), "ap0", true, false);
  }
  std::vector<std::string> restarts(const qira::host::ProcessRecorder& processes) {
    std::vector<std::string> calls;
    for (const qira::host::ProcessCall& call : processes.calls()) {
      calls.push_back(call.kind == qira::host::ProcessCall::kSignal
                          ? "signal " + std::to_string(call.signal) + " " + call.program
                          : "start " + call.program);
    }
    return calls;
  }
};

TEST_F(ScanResultsAfterDisconnect, OnTheBroadcomBoardAnAbortedScanIsNotRecovered) {
  qira::host::ProcessRecorder processes;
  ASSERT_EQ(state()->recovery_enabled, 1);
  EXPECT_TRUE(disconnect_access_point(0x62B7));
  EXPECT_EQ(state()->recovery_enabled, 0);
  processes.clear();
  write_access_point_file();
  run_scan({generated_bss(1), generated_bss(2)}, true);
  LogCapture log;
  bool ok = false;
  const std::vector<ap_info> out = results(ok, "ap0", true);
  EXPECT_TRUE(ok);
  ASSERT_EQ(out.size(), 2u);
  EXPECT_EQ(out[0].ssid, "net-1");
  EXPECT_EQ(out[1].ssid, "net-2");
  // hostapd, stopped by the disconnect, is not started again by the results.
  EXPECT_TRUE(processes.calls().empty()) << ::testing::PrintToString(restarts(processes));
  expect_lines(log, {});
}

TEST_F(ScanResultsAfterDisconnect, OnOtherBoardsTheResultsStillRestartHostapd) {
  qira::host::ProcessRecorder processes;
  EXPECT_TRUE(disconnect_access_point(0x62A0));
  EXPECT_EQ(state()->recovery_enabled, 1);
  processes.clear();
  write_access_point_file();
  run_scan({generated_bss(1)}, true);
  LogCapture log;
  bool ok = false;
  const std::vector<ap_info> out = results(ok, "ap0", true);
  EXPECT_TRUE(ok);
  EXPECT_EQ(out.size(), 1u);
  EXPECT_EQ(restarts(processes),
            (std::vector<std::string>{"signal 15 hostapd", "start /bin/hostapd"}));
  expect_lines(log, {kRecoverLine});
}

}  // namespace
}  // namespace qira::test::scan
