// `scan`: the ranking, table and JSON of its output by table, and the command
// against the simulated scanning kernel in this process.
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "commands.h"
#include "qira/host/bss_decoder.h"
#include "qira/host/seams.h"
#include "scan_table.h"
#include "support/scan_kernel.h"
#include "unit/tools/program_run.h"

namespace qira::wifi {
namespace {

using qira::network::ap_info;
using qira::test::BssAttributes;
using qira::test::scan::ScanKernel;

// A record as the host's decoder fills it: by default from the kernel's mBm
// figure, so that the signal byte stands for dBm (226 is -30 dBm).
ap_info record(const std::string& bssid, const std::string& ssid, unsigned short frequency,
               unsigned char channel, unsigned char signal, unsigned char encrypted,
               unsigned char wpa_version, unsigned char source = qira::host::kSignalSourceMbm) {
  ap_info info{};
  info.bssid = bssid;
  info.ssid = ssid;
  info.frequency = frequency;
  info.channel = channel;
  info.signal = signal;
  info.quality = signal;
  info.link_byte_3 = source;
  info.encrypted = encrypted;
  info.wpa_version = wpa_version;
  return info;
}

std::vector<std::string> bssids(const std::vector<ap_info>& records) {
  std::vector<std::string> out;
  for (const ap_info& info : records) {
    out.push_back(info.bssid);
  }
  return out;
}

TEST(ScanSecurityText, EveryKind) {
  EXPECT_EQ(security_text(record("a", "s", 2412, 1, 50, 0, 2)), "open");
  EXPECT_EQ(security_text(record("a", "s", 2412, 1, 50, 1, 0)), "WEP");
  EXPECT_EQ(security_text(record("a", "s", 2412, 1, 50, 1, 1)), "WPA");
  EXPECT_EQ(security_text(record("a", "s", 2412, 1, 50, 1, 2)), "WPA2");
  EXPECT_EQ(security_text(record("a", "s", 2412, 1, 50, 1, 3)), "WPA/WPA2");
}

TEST(ScanBandText, KnownAndUnknownFrequencies) {
  EXPECT_EQ(band_text(2412), "2.4 GHz");
  EXPECT_EQ(band_text(5180), "5 GHz");
  EXPECT_EQ(band_text(0), "unknown");
}

TEST(RankAccessPoints, Wpa2ThenEncryptedThenSignal) {
  const std::vector<ap_info> ranked = rank_access_points({
      record("open-weak", "a", 2412, 1, 20, 0, 0),
      record("wpa2", "b", 2412, 1, 10, 1, 2),
      record("open-strong", "c", 2412, 1, 90, 0, 0),
      record("wep", "d", 2412, 1, 5, 1, 0),
  });
  EXPECT_EQ(bssids(ranked), (std::vector<std::string>{"wpa2", "wep", "open-strong", "open-weak"}));
}

TEST(RankAccessPoints, CloseSignalsPrefer5GhzAndEqualOnesKeepTheirOrder) {
  const std::vector<ap_info> ranked = rank_access_points({
      record("first", "a", 2412, 1, 50, 0, 0),
      record("second", "b", 2437, 6, 50, 0, 0),
      record("five", "c", 5180, 36, 48, 0, 0),
  });
  EXPECT_EQ(bssids(ranked), (std::vector<std::string>{"five", "first", "second"}));
}

TEST(RenderScanText, HeaderAndAlignedRowsWithEscapedSsid) {
  const std::string text = render_scan_text({
      record("0a:00:00:00:00:01", "Home", 5180, 36, 226, 1, 2),
      record("0a:00:00:00:00:02", " lead", 2412, 1, 196, 0, 0),
  });
  EXPECT_EQ(text,
            "BSSID              SSID     CHANNEL FREQUENCY BAND       SIGNAL SECURITY\n"
            "0a:00:00:00:00:01  Home          36      5180 5 GHz     -30 dBm WPA2\n"
            "0a:00:00:00:00:02  \\x20lead       1      2412 2.4 GHz   -60 dBm open\n");
}

// The byte is shown as dBm only where it stands for dBm: a driver's own
// 0..100 figure is shown as such, and a BSS without any figure as "-".
TEST(RenderScanText, SignalInDbmOrAsTheDriversFigure) {
  EXPECT_EQ(
      render_scan_text({
          record("0a:00:00:00:00:01", "a", 2412, 1, 255, 0, 0),
          record("0a:00:00:00:00:02", "b", 2412, 1, 1, 0, 0),
          record("0a:00:00:00:00:03", "c", 2412, 1, 42, 0, 0, qira::host::kSignalSourceUnspecified),
          record("0a:00:00:00:00:04", "d", 2412, 1, 0, 0, 0, qira::host::kSignalSourceNone),
      }),
      "BSSID              SSID CHANNEL FREQUENCY BAND       SIGNAL SECURITY\n"
      "0a:00:00:00:00:01  a          1      2412 2.4 GHz    -1 dBm open\n"
      "0a:00:00:00:00:02  b          1      2412 2.4 GHz  -255 dBm open\n"
      "0a:00:00:00:00:03  c          1      2412 2.4 GHz    42/100 open\n"
      "0a:00:00:00:00:04  d          1      2412 2.4 GHz         - open\n");
}

TEST(ScanSignal, DbmOnlyFromAnMbmFigure) {
  EXPECT_EQ(signal_dbm(record("0a:00:00:00:00:01", "a", 2412, 1, 226, 0, 0)), -30);
  EXPECT_EQ(signal_dbm(record("0a:00:00:00:00:01", "a", 2412, 1, 42, 0, 0,
                              qira::host::kSignalSourceUnspecified)),
            std::nullopt);
  EXPECT_EQ(signal_text(record("0a:00:00:00:00:01", "a", 2412, 1, 226, 0, 0)), "-30 dBm");
}

// Names from the air: an escape sequence never reaches the terminal raw, a
// UTF-8 name stays readable and the columns stay aligned in characters.
TEST(RenderScanText, NamesAreEscapedAsIwShowsThemAndAligned) {
  const std::string text = render_scan_text({
      record("0a:00:00:00:00:01", "\x1B[2J\x1B]0;pwned\x07", 2412, 1, 226, 1, 2),
      record("0a:00:00:00:00:02",
             "Caf\xC3\xA9-\xC3\x91"
             "and\xC3\xBA",
             2412, 1, 216, 1, 2),
      record("0a:00:00:00:00:03", "say \"hi\" \\ back", 2412, 1, 206, 1, 2),
      record("0a:00:00:00:00:04", "bad \xC3(", 2412, 1, 196, 1, 2),
  });
  EXPECT_EQ(
      text,
      "BSSID              SSID                    CHANNEL FREQUENCY BAND       SIGNAL SECURITY\n"
      "0a:00:00:00:00:01  \\x1b[2J\\x1b]0;pwned\\x07       1      2412 2.4 GHz   -30 dBm WPA2\n"
      "0a:00:00:00:00:02  Caf\xC3\xA9-\xC3\x91"
      "and\xC3\xBA                    1      2412 2.4 GHz   -40 dBm "
      "WPA2\n"
      "0a:00:00:00:00:03  say \"hi\" \\x5c back            1      2412 2.4 GHz   -50 dBm WPA2\n"
      "0a:00:00:00:00:04  bad \\xc3(                     1      2412 2.4 GHz   -60 dBm WPA2\n");
  EXPECT_EQ(text.find('\x1B'), std::string::npos);
  EXPECT_EQ(text.find('\x07'), std::string::npos);
}

TEST(RenderScanText, NoRecordIsTheHeaderAlone) {
  EXPECT_EQ(render_scan_text({}),
            "BSSID              SSID CHANNEL FREQUENCY BAND       SIGNAL SECURITY\n");
}

TEST(ScanToVariant, OneObjectWithTheAccessPoints) {
  EXPECT_EQ(
      scan_to_variant("wlan0", true, {record("0a:00:00:00:00:01", "Home", 5180, 36, 226, 1, 2)})
          .ToJSON(),
      "{\"aborted\":true,\"access_points\":[{\"band\":\"5 GHz\",\"bssid\":"
      "\"0a:00:00:00:00:01\",\"channel\":36,\"frequency\":5180,\"quality\":226,"
      "\"security\":\"WPA2\",\"signal\":-30,\"signal_raw\":226,\"ssid\":\"Home\",\"ssid_hex\":"
      "\"486f6d65\"}],\"ifname\":\"wlan0\"}");
  // A figure that is no dBm: null, with the byte beside it.
  EXPECT_EQ(access_points_variant({record("0a:00:00:00:00:01", "Home", 5180, 36, 42, 1, 2,
                                          qira::host::kSignalSourceUnspecified)})
                .ToJSON(),
            "[{\"band\":\"5 GHz\",\"bssid\":\"0a:00:00:00:00:01\",\"channel\":36,\"frequency\":"
            "5180,\"quality\":42,\"security\":\"WPA2\",\"signal\":null,\"signal_raw\":42,\"ssid\":"
            "\"Home\",\"ssid_hex\":\"486f6d65\"}]");
}

TEST(ScanToVariant, NameIsAStringOnlyWhenUtf8AndAlwaysHex) {
  const qira::variant::Variant list = access_points_variant({
      record("0a:00:00:00:00:01", "Caf\xC3\xA9", 2412, 1, 70, 1, 2),
      record("0a:00:00:00:00:02", "\xFF\x1B[2J", 2412, 1, 70, 1, 2),
  });
  const std::string json = list.ToJSON();
  EXPECT_NE(json.find("\"ssid\":\"Caf\xC3\xA9\",\"ssid_hex\":\"436166c3a9\""), std::string::npos)
      << json;
  EXPECT_NE(json.find("\"ssid\":null,\"ssid_hex\":\"ff1b5b324a\""), std::string::npos) << json;
  qira::variant::Variant parsed;
  std::string error;
  EXPECT_TRUE(qira::variant::Variant::FromJSON(json, parsed, &error)) << error;
}

BssAttributes bss(std::uint8_t last, const std::string& ssid, std::uint32_t frequency,
                  std::uint8_t figure) {
  BssAttributes attributes;
  attributes.bssid = std::array<std::uint8_t, 6>{0x0a, 0, 0, 0, 0, last};
  attributes.frequency = frequency;
  attributes.capability = 0x0001;
  attributes.signal_unspecified = figure;
  attributes.ies = qira::test::ssid_element(ssid);
  return attributes;
}

TEST(ScanCommand, PrintsTheRankedTableOfTheScan) {
  ScanKernel kernel;
  kernel.end_scans_at_once();
  kernel.set_bss_table({bss(1, "alpha", 2412, 40), bss(2, "beta", 5180, 80)});
  const ProgramRun result = run_args({"scan", "lo"});
  EXPECT_EQ(result.status, kExitOk) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out,
            "BSSID              SSID  CHANNEL FREQUENCY BAND       SIGNAL SECURITY\n"
            "0a:00:00:00:00:02  beta       36      5180 5 GHz      80/100 open\n"
            "0a:00:00:00:00:01  alpha       1      2412 2.4 GHz    40/100 open\n");
  ASSERT_EQ(kernel.dumps().size(), 1u);
}

TEST(ScanCommand, JsonReportsAnAbortedScan) {
  ScanKernel kernel;
  kernel.end_scans_at_once(true);
  kernel.set_bss_table({bss(1, "alpha", 2412, 40)});
  qira::host::ProcessRecorder processes;  // recovery would restart hostapd with --ap
  std::remove("/etc/hostapd.conf");       // the sandbox's, left by an earlier test of this process
  const ProgramRun result = run_args({"--json", "scan", "lo", "--ap"});
  EXPECT_EQ(result.status, kExitOk) << result.err;
  qira::variant::Variant expected =
      scan_to_variant("lo", true,
                      {record("0a:00:00:00:00:01", "alpha", 2412, 1, 40, 0, 0,
                              qira::host::kSignalSourceUnspecified)});
  EXPECT_EQ(result.out, expected.ToJSON(2) + "\n");
  ASSERT_EQ(processes.calls().size(), 1u);  // hostapd stopped; no configuration to restart it
  EXPECT_EQ(processes.calls()[0].program, "hostapd");
}

// A kernel that gives mBm (as cfg80211 drivers do): the table shows dBm, and
// the JSON both the dBm and the record's byte.
TEST(ScanCommand, SignalFromTheKernelsMbmIsShownInDbm) {
  ScanKernel kernel;
  kernel.end_scans_at_once();
  BssAttributes strong = bss(1, "alpha", 2412, 0);
  strong.signal_unspecified.reset();
  strong.signal_mbm = -3000;
  kernel.set_bss_table({strong});
  ProgramRun result = run_args({"scan", "lo"});
  EXPECT_EQ(result.status, kExitOk) << result.err;
  EXPECT_EQ(result.out,
            "BSSID              SSID  CHANNEL FREQUENCY BAND       SIGNAL SECURITY\n"
            "0a:00:00:00:00:01  alpha       1      2412 2.4 GHz   -30 dBm open\n");
  result = run_args({"--json", "scan", "lo"});
  qira::variant::Variant json;
  ASSERT_TRUE(qira::variant::Variant::FromJSON(result.out, json)) << result.out;
  const qira::variant::Variant& first = (*json["access_points"].AsArray())[0];
  EXPECT_EQ(static_cast<long long>(first["signal"]), -30);
  EXPECT_EQ(static_cast<long long>(first["signal_raw"]), 226);
}

TEST(ScanCommand, AgainShowsThatASecondResultsCallIsEmpty) {
  ScanKernel kernel;
  kernel.end_scans_at_once();
  kernel.set_bss_table({bss(1, "alpha", 2412, 40)});
  const ProgramRun result = run_args({"scan", "lo", "--again"});
  EXPECT_EQ(result.status, kExitOk) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out,
            "BSSID              SSID  CHANNEL FREQUENCY BAND       SIGNAL SECURITY\n"
            "0a:00:00:00:00:01  alpha       1      2412 2.4 GHz    40/100 open\n"
            "results asked again: 0 access points\n");
  EXPECT_EQ(kernel.dumps().size(), 1u);
}

TEST(ScanCommand, JsonAgainAddsTheSecondAnswerAsAnEmptyArray) {
  ScanKernel kernel;
  kernel.end_scans_at_once();
  kernel.set_bss_table({bss(1, "alpha", 2412, 40)});
  const ProgramRun result = run_args({"--json", "--again", "scan", "lo"});
  EXPECT_EQ(result.status, kExitOk) << result.err;
  qira::variant::Variant expected =
      scan_to_variant("lo", false,
                      {record("0a:00:00:00:00:01", "alpha", 2412, 1, 40, 0, 0,
                              qira::host::kSignalSourceUnspecified)});
  expected["again"] = access_points_variant({});
  EXPECT_EQ(result.out, expected.ToJSON(2) + "\n");
  EXPECT_NE(result.out.find("\"again\": []"), std::string::npos) << result.out;
}

TEST(ScanToVariant, NoRecordIsAnEmptyArray) {
  EXPECT_EQ(scan_to_variant("wlan1", false, {}).ToJSON(),
            "{\"aborted\":false,\"access_points\":[],\"ifname\":\"wlan1\"}");
  EXPECT_EQ(access_points_variant({}).ToJSON(), "[]");
}

TEST(ScanCommand, AScanThatNeverEndsTimesOut) {
  ScanKernel kernel;
  const ProgramRun result = run_args({"scan", "lo", "--timeout", "150"});
  EXPECT_EQ(result.status, kExitActionFailed);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "qira-wifi: the scan on lo did not end within 150 ms\n");
}

TEST(ScanCommand, UnknownInterfaceIsReportedWithTheModulesLine) {
  ScanKernel kernel;
  const ProgramRun result = run_args({"scan", "nosuch0"});
  EXPECT_EQ(result.status, kExitActionFailed);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err.rfind("qira-wifi: scan trigger failed: failed (", 0), 0u) << result.err;
  EXPECT_NE(result.err.find("Failed to get interface index (nosuch0)"), std::string::npos)
      << result.err;
}

}  // namespace
}  // namespace qira::wifi
