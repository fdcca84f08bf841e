// `monitor`: its lines by table, the wpa_supplicant source that survives its
// daemon (simulated), and the whole command in this process over the
// simulated nl80211 kernel and daemon.
#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include <algorithm>
#include <sstream>

#include "commands.h"
#include "monitor_timeline.h"
#include "qira/host/seams.h"
#include "support/nl80211_sim.h"
#include "support/strict_json.h"
#include "support/wpa_supplicant_sim.h"
#include "unit/tools/program_run.h"
#include "wpa_event_source.h"

namespace qira::wifi {
namespace {

using qira::test::Nl80211Notification;
using qira::test::SimulatedNl80211;
using qira::test::WpaSupplicantSim;
using qira::variant::Variant;
using Answer = WpaSupplicantSim::Answer;
using Change = WpaEventSource::Change;

TimelineEntry connect_entry() {
  TimelineEntry entry;
  entry.ms = 1834;
  entry.source = kNl80211Source;
  entry.type = 23;
  entry.name = "connect";
  entry.payload["eventId"] = 46;
  entry.payload["eventName"] = "connect";
  entry.payload["ifname"] = "wlan0";
  entry.payload["ifindex"] = 3U;
  entry.payload["status"] = static_cast<unsigned short>(0);
  entry.payload["status_str"] = "connected";
  entry.payload["mac"] = "02:00:00:00:03:00";
  return entry;
}

TimelineEntry note_entry(const std::string& name) {
  TimelineEntry entry;
  entry.ms = 7;
  entry.source = kMonitorSource;
  entry.name = name;
  entry.payload["ifname"] = "wlan0";
  return entry;
}

TEST(MonitorTimeline, AnEventAsText) {
  EXPECT_EQ(render_timeline_text(connect_entry()),
            "    1834 nl80211        connect eventId=46 ifindex=3 ifname=wlan0 "
            "mac=02:00:00:00:03:00 status=0 status_str=connected");
}

TEST(MonitorTimeline, ANoteAsText) {
  EXPECT_EQ(render_timeline_text(note_entry("wpa_reattached")),
            "       7 monitor        wpa_reattached ifname=wlan0");
}

TEST(MonitorTimeline, TextValuesThatNeedItAreQuotedAndEscaped) {
  TimelineEntry entry = note_entry("wpa_waiting");
  entry.source = kWpaSource;
  entry.payload["reason"] = "no control socket";
  entry.payload["ssid"] = "a\"b\x1b";
  entry.payload["empty"] = "";
  entry.payload["by"] = "a=b";
  EXPECT_EQ(render_timeline_text(entry),
            "       7 wpa_supplicant wpa_waiting by=\"a=b\" empty=\"\" ifname=wlan0 "
            "reason=\"no control socket\" ssid=\"a\\x22b\\x1b\"");
}

TEST(MonitorTimeline, AnEventAsJson) {
  const std::string line = render_timeline_json(connect_entry());
  EXPECT_EQ(line,
            "{\"ms\":1834,\"name\":\"connect\",\"payload\":{\"eventId\":46,\"eventName\":"
            "\"connect\",\"ifindex\":3,\"ifname\":\"wlan0\",\"mac\":\"02:00:00:00:03:00\","
            "\"status\":0,\"status_str\":\"connected\"},\"source\":\"nl80211\",\"type\":23}");
  std::string error;
  EXPECT_TRUE(test::is_strict_json(line, error)) << error;
}

TEST(MonitorTimeline, ANoteAsJsonHasNoType) {
  EXPECT_EQ(render_timeline_json(note_entry("listening")),
            "{\"ms\":7,\"name\":\"listening\",\"payload\":{\"ifname\":\"wlan0\"},\"source\":"
            "\"monitor\"}");
  TimelineEntry empty = note_entry("x");
  empty.payload = Variant();
  EXPECT_EQ(render_timeline_json(empty),
            "{\"ms\":7,\"name\":\"x\",\"payload\":{},\"source\":\"monitor\"}");
}

TEST(WpaSource, ChangeNames) {
  EXPECT_EQ(wpa_change_name(Change::kNone), "");
  EXPECT_EQ(wpa_change_name(Change::kAttached), "wpa_attached");
  EXPECT_EQ(wpa_change_name(Change::kReattached), "wpa_reattached");
  EXPECT_EQ(wpa_change_name(Change::kStopped), "wpa_stopped");
  EXPECT_EQ(wpa_change_name(Change::kLost), "wpa_lost");
}

TEST(WpaSource, WithoutADaemonItWaits) {
  WpaEventSource source("qs0");
  std::vector<ReceivedEvent> events;
  EXPECT_EQ(source.watch(events), Change::kNone);
  EXPECT_FALSE(source.attached());
  EXPECT_FALSE(source.last_refused());
  EXPECT_EQ(source.fd(), -1);
  EXPECT_EQ(source.poll_interval(), kWpaDetachedPoll);
  EXPECT_EQ(source.last_failure(), "failed (connect() failed: No such file or directory)");
  const std::vector<qira::host::LogRecord> log = source.take_log();
  ASSERT_EQ(log.size(), 1u);
  EXPECT_EQ(log[0].message, "connect() failed");
  EXPECT_TRUE(source.take_log().empty());
}

TEST(WpaSource, AttachesAndReceivesEventsInOrder) {
  WpaSupplicantSim daemon("qs0");
  WpaEventSource source("qs0");
  std::vector<ReceivedEvent> events;
  ASSERT_EQ(source.watch(events), Change::kAttached);
  EXPECT_GE(source.fd(), 0);
  EXPECT_EQ(source.poll_interval(), kWpaAttachedPoll);
  EXPECT_EQ(daemon.monitor_count(), 1u);
  daemon.send_event("<3>CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:03:00 completed");
  daemon.send_event("<3>CTRL-EVENT-DISCONNECTED bssid=02:00:00:00:03:00 reason=3");
  EXPECT_EQ(source.service(events), Change::kNone);
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(events[0].type, 25);
  EXPECT_EQ(static_cast<const std::string&>(events[0].payload["ifname"]), "qs0");
  EXPECT_EQ(events[1].type, 26);
  // Within its second no PING is sent.
  EXPECT_EQ(source.watch(events), Change::kNone);
  EXPECT_EQ(daemon.requests(), std::vector<std::string>{"ATTACH"});
}

TEST(WpaSource, ADaemonThatTerminatesIsAttachedAgain) {
  WpaSupplicantSim daemon("qs0");
  WpaEventSource source("qs0");
  std::vector<ReceivedEvent> events;
  ASSERT_EQ(source.watch(events), Change::kAttached);
  daemon.send_event("<3>CTRL-EVENT-TERMINATING");
  EXPECT_EQ(source.service(events), Change::kStopped);
  EXPECT_TRUE(events.empty());
  EXPECT_FALSE(source.attached());
  EXPECT_EQ(source.fd(), -1);
  // The simulated daemon keeps its socket: the next watch finds it. (The
  // client's Close on the terminating event sends its DETACH.)
  EXPECT_EQ(source.watch(events), Change::kReattached);
  EXPECT_TRUE(source.attached());
  EXPECT_EQ(daemon.requests(), (std::vector<std::string>{"ATTACH", "DETACH", "ATTACH"}));
}

TEST(WpaSource, ADaemonWhoseSocketGoesAwayIsNoticedAndTheNextOneAttached) {
  auto daemon = std::make_unique<WpaSupplicantSim>("qs0");
  WpaEventSource source("qs0");
  std::vector<ReceivedEvent> events;
  ASSERT_EQ(source.watch(events), Change::kAttached);
  daemon->terminate();  // no event: the socket file is simply gone
  EXPECT_EQ(source.watch(events), Change::kLost);
  EXPECT_FALSE(source.attached());
  EXPECT_EQ(source.watch(events), Change::kNone);
  daemon = std::make_unique<WpaSupplicantSim>("qs0");
  EXPECT_EQ(source.watch(events), Change::kReattached);
}

TEST(WpaSource, ADaemonReplacedUnderItIsNoticed) {
  auto daemon = std::make_unique<WpaSupplicantSim>("qs0");
  WpaEventSource source("qs0");
  std::vector<ReceivedEvent> events;
  ASSERT_EQ(source.watch(events), Change::kAttached);
  daemon.reset();
  daemon = std::make_unique<WpaSupplicantSim>("qs0");  // a new socket file at the same path
  EXPECT_EQ(source.watch(events), Change::kLost);
  EXPECT_EQ(source.watch(events), Change::kReattached);
  EXPECT_EQ(daemon->requests(), std::vector<std::string>{"ATTACH"});
}

// A daemon that keeps its socket file but no longer answers as it should is
// found out by the PING sent once a second has passed.
TEST(WpaSource, APingEachSecondFindsADaemonThatStoppedAnswering) {
  qira::host::FakeClock clock;
  WpaSupplicantSim daemon("qs0");
  Answer pong;
  pong.events_before = {"<3>CTRL-EVENT-SCAN-FAILED"};
  pong.reply = "PONG\n";
  daemon.script("PING", pong);
  daemon.script("PING", Answer{{}, std::string("FAIL\n"), {}, {}, false});
  WpaEventSource source("qs0");
  std::vector<ReceivedEvent> events;
  ASSERT_EQ(source.watch(events), Change::kAttached);
  clock.advance(999);
  EXPECT_EQ(source.watch(events), Change::kNone);
  clock.advance(1);
  EXPECT_EQ(source.watch(events), Change::kNone);
  // The event that came before the PONG is not lost.
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].type, 11);
  clock.advance(1000);
  EXPECT_EQ(source.watch(events), Change::kLost);
  EXPECT_EQ(daemon.requests(), (std::vector<std::string>{"ATTACH", "PING", "PING", "DETACH"}));
}

TEST(WpaSource, ARefusedAttachIsRetried) {
  WpaSupplicantSim daemon("qs0");
  daemon.reply("ATTACH", "FAIL\n");
  WpaEventSource source("qs0");
  std::vector<ReceivedEvent> events;
  EXPECT_EQ(source.watch(events), Change::kNone);
  EXPECT_TRUE(source.last_refused());
  EXPECT_EQ(source.last_failure(), "the daemon refused ATTACH");
  EXPECT_EQ(source.watch(events), Change::kAttached);
  EXPECT_FALSE(source.last_refused());
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

// The "name" and "ms" of each JSON line, checked to rise.
std::vector<std::string> names_in_order(const std::string& out) {
  std::vector<std::string> names;
  unsigned long long last = 0;
  for (const std::string& line : lines_of(out)) {
    Variant value;
    std::string error;
    EXPECT_TRUE(Variant::FromJSON(line, value, &error)) << error;
    const auto ms = static_cast<unsigned long long>(value["ms"]);
    EXPECT_GE(ms, last) << line;
    last = ms;
    names.push_back(static_cast<const std::string&>(value["source"]) + " " +
                    static_cast<const std::string&>(value["name"]));
  }
  return names;
}

class MonitorRun : public ::testing::Test {
 protected:
  SimulatedNl80211 kernel_;
};

TEST_F(MonitorRun, BothSourcesInOneTimelineOfJsonLines) {
  WpaSupplicantSim daemon("qs0");
  Answer attach;
  attach.reply = "OK\n";
  attach.events_after = {"<3>CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:03:00 completed"};
  attach.action = [this] {
    kernel_.notify(Nl80211Notification{NL80211_CMD_CONNECT,
                                       {qira::test::attr_u16(NL80211_ATTR_STATUS_CODE, 0)}});
  };
  daemon.script("ATTACH", attach);
  const ProgramRun result =
      run_args({"--json", "monitor", "qs0", "--count", "2", "--timeout", "20000"});
  EXPECT_EQ(result.status, kExitOk) << result.err;
  EXPECT_EQ(result.err, "");
  std::string error;
  ASSERT_TRUE(test::is_strict_json_lines(result.out, error)) << error << "\n" << result.out;
  std::vector<std::string> names = names_in_order(result.out);
  ASSERT_EQ(names.size(), 4u) << result.out;
  EXPECT_EQ(names[0], "monitor listening");
  EXPECT_EQ(names[1], "monitor wpa_attached");
  // Both arrived in one wake: nl80211 is serviced first.
  std::sort(names.begin() + 2, names.end());
  EXPECT_EQ(names[2], "nl80211 connect");
  EXPECT_EQ(names[3], "wpa_supplicant connected_to_ap");
  EXPECT_NE(result.out.find("\"type\":23"), std::string::npos);
  EXPECT_NE(result.out.find("\"type\":25"), std::string::npos);
}

TEST_F(MonitorRun, SaysWhenWpaSupplicantStopsAndAttachesAgain) {
  WpaSupplicantSim daemon("qs0");
  Answer attach;
  attach.reply = "OK\n";
  attach.events_after = {"<3>CTRL-EVENT-TERMINATING"};
  daemon.script("ATTACH", attach);
  const ProgramRun result = run_args({"monitor", "qs0", "--timeout", "1500"});
  EXPECT_EQ(result.status, kExitOk) << result.err;
  const std::vector<std::string> lines = lines_of(result.out);
  ASSERT_EQ(lines.size(), 4u) << result.out;
  EXPECT_EQ(lines[0].substr(8), " monitor        listening ifname=qs0");
  EXPECT_EQ(lines[1].substr(8), " monitor        wpa_attached ifname=qs0");
  EXPECT_EQ(lines[2].substr(8), " monitor        wpa_stopped ifname=qs0");
  EXPECT_EQ(lines[3].substr(8), " monitor        wpa_reattached ifname=qs0");
  // Attached again, it may have sent its PING once a second had passed.
  std::vector<std::string> requests = daemon.requests();
  requests.erase(std::remove(requests.begin(), requests.end(), "PING"), requests.end());
  EXPECT_EQ(requests, (std::vector<std::string>{"ATTACH", "DETACH", "ATTACH", "DETACH"}));
}

TEST_F(MonitorRun, SaysWhenTheDaemonsSocketVanishes) {
  WpaSupplicantSim daemon("qs0");
  Answer attach;
  attach.reply = "OK\n";
  attach.terminate = true;
  daemon.script("ATTACH", attach);
  const ProgramRun result = run_args({"--json", "monitor", "qs0", "--timeout", "1500"});
  EXPECT_EQ(result.status, kExitOk) << result.err;
  EXPECT_EQ(
      names_in_order(result.out),
      (std::vector<std::string>{"monitor listening", "monitor wpa_attached", "monitor wpa_lost"}));
}

TEST_F(MonitorRun, WaitsForADaemonThatIsNotThere) {
  const ProgramRun result = run_args({"monitor", "qs0", "--timeout", "300"});
  EXPECT_EQ(result.status, kExitOk) << result.err;
  const std::vector<std::string> lines = lines_of(result.out);
  ASSERT_EQ(lines.size(), 2u) << result.out;
  EXPECT_EQ(lines[1].substr(8),
            " monitor        wpa_waiting ifname=qs0 reason=\"failed (connect() failed: No such "
            "file or directory)\"");
}

TEST(MonitorCommand, NeedsAnInterface) {
  const ProgramRun result = run_args({"monitor"});
  EXPECT_EQ(result.status, kExitUsage);
  EXPECT_EQ(result.out, "");
}

}  // namespace
}  // namespace qira::wifi
