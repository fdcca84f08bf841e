// Every command's --json answer, in the shape --help gives it, read by a
// strict parser: one object, or JSON Lines, also when what the command
// reports holds bytes from outside that are not UTF-8 (a network name from
// the air, a daemon's reply). The interface is "ifname" everywhere.
#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "commands.h"
#include "qira/host/seams.h"
#include "support/nl80211_sim.h"
#include "support/sandbox.h"
#include "support/scan_kernel.h"
#include "support/strict_json.h"
#include "support/wext_sim.h"
#include "support/wpa_supplicant_sim.h"
#include "unit/tools/program_run.h"

namespace qira::wifi {
namespace {

using qira::test::read_file;
using qira::test::WpaSupplicantSim;
using qira::test::write_file;
using Answer = WpaSupplicantSim::Answer;

// Bytes that are no UTF-8, and a terminal escape.
const std::string kForeign = "\xff\xfe\x1b[2J";

// The answer parses as one object and names the interface under "ifname".
void expect_one_object(const ProgramRun& run, const std::string& ifname) {
  std::string error;
  ASSERT_TRUE(test::is_strict_json(run.out, error)) << error << "\n" << run.out;
  const nlohmann::json answer = nlohmann::json::parse(run.out);
  ASSERT_TRUE(answer.is_object()) << run.out;
  ASSERT_TRUE(answer.contains("ifname")) << run.out;
  EXPECT_EQ(answer["ifname"], ifname) << run.out;
  EXPECT_FALSE(answer.contains("interface")) << run.out;
}

// The answer parses as JSON Lines; gives each line's object.
std::vector<nlohmann::json> expect_json_lines(const ProgramRun& run) {
  std::string error;
  EXPECT_TRUE(test::is_strict_json_lines(run.out, error)) << error << "\n" << run.out;
  std::vector<nlohmann::json> lines;
  for (std::size_t start = 0; start < run.out.size();) {
    const std::size_t end = run.out.find('\n', start);
    lines.push_back(nlohmann::json::parse(run.out.substr(start, end - start)));
    start = end == std::string::npos ? run.out.size() : end + 1;
  }
  return lines;
}

qira::variant::Variant identity() {
  qira::variant::Variant record;
  record["sysid"] = 0x62A0ULL;
  record["name"] = "Cam";
  record["hwaddr"] = "00000000ABCD";
  return record;
}

TEST(JsonAnswers, InfoWithANameFromTheAirThatIsNoUtf8) {
  qira::test::SimulatedWext driver;
  driver.interface("wlan7").essid = kForeign;
  const ProgramRun run = run_args({"--json", "info", "wlan7"});
  EXPECT_EQ(run.status, kExitOk) << run.err;
  expect_one_object(run, "wlan7");
  EXPECT_NE(run.out.find("\"value_hex\": \"fffe1b5b324a\""), std::string::npos) << run.out;
}

TEST(JsonAnswers, ScanWithANameFromTheAirThatIsNoUtf8) {
  qira::test::scan::ScanKernel kernel;
  kernel.end_scans_at_once();
  qira::test::BssAttributes bss;
  bss.bssid = std::array<std::uint8_t, 6>{0x0a, 0, 0, 0, 0, 1};
  bss.frequency = 2412;
  bss.capability = 0x0001;
  bss.signal_mbm = -4500;
  bss.ies = qira::test::ssid_element(kForeign);
  kernel.set_bss_table({bss});
  const ProgramRun run = run_args({"--json", "scan", "lo"});
  EXPECT_EQ(run.status, kExitOk) << run.err;
  expect_one_object(run, "lo");
  const nlohmann::json point = nlohmann::json::parse(run.out)["access_points"][0];
  EXPECT_TRUE(point["ssid"].is_null());
  EXPECT_EQ(point["ssid_hex"], "fffe1b5b324a");
  EXPECT_EQ(point["signal"], -45);
  EXPECT_EQ(point["signal_raw"], 211);
}

TEST(JsonAnswers, WriteSta) {
  unlink("/etc/wlan0.conf");
  const ProgramRun run = run_args({"--json", "write-sta", "wlan0", "Home", "none"});
  EXPECT_EQ(run.status, kExitOk) << run.err;
  expect_one_object(run, "wlan0");
}

TEST(JsonAnswers, WpaWithAReplyThatIsNoUtf8) {
  WpaSupplicantSim daemon("qs0");
  daemon.reply("STATUS", "ssid=" + kForeign + "\n");
  const ProgramRun run = run_args({"--json", "wpa", "qs0", "STATUS"});
  EXPECT_EQ(run.status, kExitOk) << run.err;
  expect_one_object(run, "qs0");
  const nlohmann::json answer = nlohmann::json::parse(run.out);
  EXPECT_EQ(answer["command"], "STATUS");
  EXPECT_TRUE(answer["reply"].is_null());
  EXPECT_EQ(answer["reply_hex"], "737369643dfffe1b5b324a0a");
}

TEST(JsonAnswers, ActionsSuccessfulOrFailed) {
  qira::host::ProcessRecorder processes;
  ProgramRun run = run_args({"--json", "connect", "wlan0", "--vendor"});
  EXPECT_EQ(run.status, kExitOk) << run.err;
  expect_one_object(run, "wlan0");
  // A failure keeps its object on stdout, with the module's lines.
  run = run_args({"--json", "disconnect", "wlan0"});
  EXPECT_EQ(run.status, kExitActionFailed);
  expect_one_object(run, "wlan0");
  EXPECT_EQ(nlohmann::json::parse(run.out)["ok"], false);
  EXPECT_EQ(run.err, "");
}

TEST(JsonAnswers, EventsAreJsonLines) {
  qira::test::SimulatedNl80211 kernel;
  kernel.notify_on_join({qira::test::Nl80211Notification{
      NL80211_CMD_CONNECT, {qira::test::attr_u16(NL80211_ATTR_STATUS_CODE, 0)}}});
  const ProgramRun run = run_args({"--json", "events", "--count", "1", "--timeout", "20000"});
  EXPECT_EQ(run.status, kExitOk) << run.err;
  const std::vector<nlohmann::json> lines = expect_json_lines(run);
  ASSERT_EQ(lines.size(), 1u) << run.out;
  EXPECT_EQ(lines[0]["type"], 23);
  EXPECT_EQ(lines[0]["name"], "connect");
  EXPECT_EQ(lines[0]["payload"]["status_str"], "connected");
  EXPECT_TRUE(lines[0]["payload"].contains("ifname")) << run.out;
}

TEST(JsonAnswers, ScanAgain) {
  qira::test::scan::ScanKernel kernel;
  kernel.end_scans_at_once();
  const ProgramRun run = run_args({"--json", "--again", "scan", "lo"});
  EXPECT_EQ(run.status, kExitOk) << run.err;
  expect_one_object(run, "lo");
  const nlohmann::json answer = nlohmann::json::parse(run.out);
  EXPECT_TRUE(answer["access_points"].is_array());
  EXPECT_TRUE(answer["again"].is_array());
}

class JsonNetworkAnswers : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* path : {"/etc/wlan0.conf", "/etc/hostapd.conf", "/etc/dnsmasq.conf"}) {
      unlink(path);
    }
    write_file("/etc/hosts", "127.0.0.1 localhost\n");
    qira::host::set_identity_record(identity());
  }
  void TearDown() override { qira::host::clear_identity_record(); }

  qira::test::SimulatedNl80211 nl80211_;
  qira::host::ProcessRecorder processes_;
  qira::host::NetlibRecorder netlib_;
};

TEST_F(JsonNetworkAnswers, ApplyStationAndAccessPoint) {
  WpaSupplicantSim daemon("wlan0");
  daemon.reply("TERMINATE", "OK\n");
  write_file("/tmp/network.json", R"({"wifi":{"ssid":"Home","key":"none"},"dhcp":{"status":1}})");
  ProgramRun run = run_args({"--json", "apply", "wlan0", "/tmp/network.json"});
  EXPECT_EQ(run.status, kExitOk) << run.err;
  expect_one_object(run, "wlan0");
  EXPECT_EQ(nlohmann::json::parse(run.out)["action"], "apply");
  EXPECT_EQ(nlohmann::json::parse(run.out)["ok"], true);
  run = run_args({"--json", "apply", "ap0", "/tmp/network.json", "--ap"});
  EXPECT_EQ(run.status, kExitOk) << run.err;
  expect_one_object(run, "ap0");
  EXPECT_EQ(nlohmann::json::parse(run.out)["ok"], true);
}

TEST_F(JsonNetworkAnswers, RecoverWithADaemonReplyThatIsNoUtf8) {
  WpaSupplicantSim daemon("wlan0");
  daemon.reply("REASSOCIATE", kForeign + "\n");
  const ProgramRun run = run_args({"--json", "recover", "wlan0"});
  // The reply is not "OK": the module fails the request and logs it.
  EXPECT_EQ(run.status, kExitActionFailed) << run.err;
  expect_one_object(run, "wlan0");
  EXPECT_EQ(nlohmann::json::parse(run.out)["action"], "recover");
  EXPECT_EQ(nlohmann::json::parse(run.out)["ok"], false);
}

TEST_F(JsonNetworkAnswers, Hook) {
  const ProgramRun run = run_args({"--json", "hook", "ap0", "channel=11"});
  EXPECT_EQ(run.status, kExitOk) << run.err;
  expect_one_object(run, "ap0");
  EXPECT_EQ(nlohmann::json::parse(run.out)["action"], "hook");
  EXPECT_NE(read_file("/etc/hostapd.conf").find("channel=11\n"), std::string::npos);
}

TEST(JsonAnswers, Doctor) {
  const ProgramRun run = run_args({"--json", "doctor", "lo"});
  expect_one_object(run, "lo");
  const nlohmann::json answer = nlohmann::json::parse(run.out);
  EXPECT_EQ(answer["checks"].size(), 31u);
  EXPECT_EQ(answer["ok"], run.status == kExitOk);
}

TEST(JsonAnswers, WpaEventsAreJsonLines) {
  WpaSupplicantSim daemon("qs0");
  Answer attach;
  attach.reply = "OK\n";
  attach.events_after = {"<3>CTRL-EVENT-CONNECTED - Connection to 00:11:22:33:44:55 completed",
                         "<3>CTRL-EVENT-SSID-TEMP-DISABLED id=0 ssid=\"" + kForeign +
                             "\" auth_failures=1 duration=10 reason=WRONG_KEY"};
  daemon.script("ATTACH", attach);
  const ProgramRun run = run_args({"--json", "wpa-events", "qs0", "--timeout", "300"});
  EXPECT_EQ(run.status, kExitOk) << run.err;
  std::string error;
  ASSERT_TRUE(test::is_strict_json_lines(run.out, error)) << error << "\n" << run.out;
  std::vector<std::string> names;
  for (std::size_t start = 0; start < run.out.size();) {
    const std::size_t end = run.out.find('\n', start);
    const nlohmann::json line = nlohmann::json::parse(run.out.substr(start, end - start));
    names.push_back(line["name"].get<std::string>());
    EXPECT_EQ(line["payload"]["ifname"], "qs0");
    start = end + 1;
  }
  EXPECT_EQ(names, (std::vector<std::string>{"connected_to_ap", "ssid_temp_disabled"}));
}

}  // namespace
}  // namespace qira::wifi
