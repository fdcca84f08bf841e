// `wpa` and `wpa-events`: their text pieces by table, both commands in this
// process against the simulated wpa_supplicant, and `wpa` through the built
// program.
#include "wpa_command.h"
#include "event_names.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "commands.h"
#include "events_command.h"
#include "support/wpa_supplicant_sim.h"
#include "unit/tools/child_process.h"
#include "unit/tools/program_run.h"

namespace qira::wifi {
namespace {

using namespace qira::network;
using qira::test::WpaSupplicantSim;
using Answer = WpaSupplicantSim::Answer;

TEST(WpaCommandText, EventTypeNames) {
  EXPECT_EQ(event_type_name(unspec), "unspec");
  EXPECT_EQ(event_type_name(new_wiphy), "new_wiphy");
  EXPECT_EQ(event_type_name(scan_failed), "scan_failed");
  EXPECT_EQ(event_type_name(network_not_found), "network_not_found");
  EXPECT_EQ(event_type_name(ssid_temp_disabled), "ssid_temp_disabled");
  EXPECT_EQ(event_type_name(connect), "connect");
  EXPECT_EQ(event_type_name(connected_to_ap), "connected_to_ap");
  EXPECT_EQ(event_type_name(disconnected_from_ap), "disconnected_from_ap");
  EXPECT_EQ(event_type_name(static_cast<event_type>(3)), "reserved");
  EXPECT_EQ(event_type_name(static_cast<event_type>(27)), "unknown");
}

// wpa-events prints its lines as events does.
TEST(WpaCommandText, EventLine) {
  qira::variant::Variant payload;
  payload["ifname"] = "wlan0";
  payload["eventName"] = "connected_to_ap";
  EXPECT_EQ(render_event_line(connected_to_ap, payload, false),
            "25 connected_to_ap {\"eventName\":\"connected_to_ap\",\"ifname\":\"wlan0\"}");
  EXPECT_EQ(render_event_line(connected_to_ap, payload, true),
            "{\"name\":\"connected_to_ap\",\"payload\":{\"eventName\":\"connected_to_ap\","
            "\"ifname\":\"wlan0\"},\"type\":25}");
}

TEST(WpaCommandText, JoinCommand) {
  EXPECT_EQ(join_command({"PING"}), "PING");
  EXPECT_EQ(join_command({"SET_NETWORK", "0", "ssid", "\"my cam\""}),
            "SET_NETWORK 0 ssid \"my cam\"");
  EXPECT_EQ(join_command({}), "");
}

TEST(WpaCommandTable, Rows) {
  const Command* wpa = find_command("wpa");
  ASSERT_NE(wpa, nullptr);
  EXPECT_STREQ(wpa->arguments, "IFNAME COMMAND...");
  EXPECT_EQ(wpa->min_args, 2u);
  EXPECT_EQ(wpa->run, &run_wpa);
  const Command* events = find_command("wpa-events");
  ASSERT_NE(events, nullptr);
  EXPECT_STREQ(events->arguments, "IFNAME");
  EXPECT_EQ(events->options, static_cast<unsigned int>(kOptionTimeout));
  EXPECT_EQ(events->json, JsonShape::kLines);
  EXPECT_EQ(events->min_args, 1u);
  EXPECT_EQ(events->max_args, 1u);
  EXPECT_EQ(events->run, &run_wpa_events);
}

TEST(WpaCommand, PrintsTheReplyExactly) {
  WpaSupplicantSim daemon("qs0");
  const ProgramRun result = run_args({"wpa", "qs0", "PING"});
  EXPECT_EQ(result.status, kExitOk);
  EXPECT_EQ(result.out, "PONG\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(daemon.requests(), std::vector<std::string>{"PING"});
}

TEST(WpaCommand, JoinsTheCommandWordsIntoOneRequest) {
  WpaSupplicantSim daemon("qs0");
  daemon.reply("SET_NETWORK 0 ssid \"cam\"", "OK\n");
  const ProgramRun result = run_args({"wpa", "qs0", "SET_NETWORK", "0", "ssid", "\"cam\""});
  EXPECT_EQ(result.status, kExitOk);
  EXPECT_EQ(result.out, "OK\n");
  EXPECT_EQ(daemon.requests(), std::vector<std::string>{"SET_NETWORK 0 ssid \"cam\""});
}

TEST(WpaCommand, ReplyWithoutNewlineIsPrintedAsIs) {
  WpaSupplicantSim daemon("qs0");
  daemon.reply("STATUS", "wpa_state=DISCONNECTED");
  const ProgramRun result = run_args({"wpa", "qs0", "STATUS"});
  EXPECT_EQ(result.status, kExitOk);
  EXPECT_EQ(result.out, "wpa_state=DISCONNECTED");
}

// The reply is the daemon's text and may quote names from the air: it is
// printed line by line with every control byte and invalid sequence escaped.
TEST(WpaCommand, ReplyIsEscapedForTheTerminal) {
  WpaSupplicantSim daemon("qs0");
  daemon.reply("STATUS", "ssid=\x1B[2J\x1B]0;x\x07\xFF\nid_str=Caf\xC3\xA9\r\n");
  const ProgramRun result = run_args({"wpa", "qs0", "STATUS"});
  EXPECT_EQ(result.status, kExitOk);
  EXPECT_EQ(result.out, "ssid=\\x1b[2J\\x1b]0;x\\x07\\xff\nid_str=Caf\xC3\xA9\\x0d\n");
}

// The longest time-out taken (a day) waits as long as it says, also where
// seconds and milliseconds are 32-bit (this test runs on armhf too): a reply
// 300 ms late arrives, where a wrapped wait would have given up at once.
TEST(WpaCommand, TheLongestTimeOutWaitsForALateReply) {
  WpaSupplicantSim daemon("qs0");
  Answer late;
  late.delay_ms = 300;
  late.reply = "PONG\n";
  daemon.script("PING", late);
  daemon.script("PING", late);
  ProgramRun result = run_args({"--timeout", "86400000", "wpa", "qs0", "PING"});
  EXPECT_EQ(result.status, kExitOk) << result.err;
  EXPECT_EQ(result.out, "PONG\n");
  // The same late reply misses a short wait: the delay is real.
  result = run_args({"--timeout", "50", "wpa", "qs0", "PING"});
  EXPECT_EQ(result.status, kExitActionFailed);
  EXPECT_EQ(result.err, "qira-wifi: no reply from the wpa_supplicant of qs0 within 50 ms\n");
  result = run_args({"--timeout", "86400001", "wpa", "qs0", "PING"});
  EXPECT_EQ(result.status, kExitUsage);
}

TEST(WpaCommand, NoDaemonIsAFailedAction) {
  const ProgramRun result = run_args({"wpa", "qs0", "PING"});
  EXPECT_EQ(result.status, kExitActionFailed);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err,
            "qira-wifi: cannot reach the wpa_supplicant of qs0: failed (connect() failed: No such "
            "file or directory)\n");
}

TEST(WpaCommand, SilenceUntilTheTimeOutIsAFailedAction) {
  WpaSupplicantSim daemon("qs0");
  daemon.script("STATUS", Answer{});
  const ProgramRun result = run_args({"wpa", "--timeout", "100", "qs0", "STATUS"});
  EXPECT_EQ(result.status, kExitActionFailed);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "qira-wifi: no reply from the wpa_supplicant of qs0 within 100 ms\n");
}

TEST(WpaCommand, VerboseEchoesTheModuleLines) {
  WpaSupplicantSim daemon("qs0");
  Answer answer;
  answer.events_before = {"<3>CTRL-EVENT-SCAN-FAILED"};
  answer.reply = "PONG\n";
  daemon.script("PING", answer);
  const ProgramRun result = run_args({"--verbose", "wpa", "qs0", "PING"});
  EXPECT_EQ(result.status, kExitOk);
  EXPECT_EQ(result.out, "PONG\n");
  EXPECT_NE(result.err.find("Event received: <3>CTRL-EVENT-SCAN-FAILED\n"), std::string::npos)
      << result.err;
}

TEST(WpaCommand, MissingCommandIsAUsageError) {
  const ProgramRun result = run_args({"wpa", "qs0"});
  EXPECT_EQ(result.status, kExitUsage);
  EXPECT_EQ(result.err, "usage: qira-wifi wpa [--timeout MS] IFNAME COMMAND...\n");
}

TEST(WpaCommand, BadTimeOutIsAUsageError) {
  const ProgramRun result = run_args({"wpa", "qs0", "PING", "--timeout", "1s"});
  EXPECT_EQ(result.status, kExitUsage);
  EXPECT_EQ(result.err.rfind("qira-wifi: option --timeout needs a number of milliseconds\n", 0), 0u)
      << result.err;
}

TEST(WpaEventsCommand, PrintsEachTranslatedEventUntilTheTimeOut) {
  WpaSupplicantSim daemon("qs0");
  Answer attach;
  attach.reply = "OK\n";
  attach.events_after = {
      "<3>CTRL-EVENT-CONNECTED - Connection to 00:11:22:33:44:55 completed",
      "<3>CTRL-EVENT-SCAN-STARTED ",
      "<3>CTRL-EVENT-SSID-TEMP-DISABLED id=0 ssid=\"cam\" auth_failures=1 duration=10 "
      "reason=WRONG_KEY",
      "<3>CTRL-EVENT-DISCONNECTED bssid=00:11:22:33:44:55 reason=3",
  };
  daemon.script("ATTACH", attach);
  const ProgramRun result = run_args({"wpa-events", "qs0", "--timeout=300"});
  EXPECT_EQ(result.status, kExitOk);
  EXPECT_EQ(
      result.out,
      "25 connected_to_ap {\"eventName\":\"connected_to_ap\",\"ifname\":\"qs0\"}\n"
      "14 ssid_temp_disabled {\"auth_failures\":\"1\",\"duration\":\"10\","
      "\"eventName\":\"ssid_temp_disabled\",\"id\":\"0\",\"ifname\":\"qs0\","
      "\"reason\":\"WRONG_KEY\",\"ssid\":\"cam\"}\n"
      "26 disconnected_from_ap {\"eventName\":\"disconnected_from_ap\",\"ifname\":\"qs0\"}\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(daemon.requests(), (std::vector<std::string>{"ATTACH", "DETACH"}));
}

// A network name in an event payload: valid JSON whatever its bytes, with
// control characters escaped and bytes that are not UTF-8 given in hex.
TEST(WpaEventsCommand, NamesInEventsStayValidJson) {
  WpaSupplicantSim daemon("qs0");
  Answer attach;
  attach.reply = "OK\n";
  attach.events_after = {
      "<3>CTRL-EVENT-SSID-TEMP-DISABLED id=0 ssid=\"\x1B[2J\" auth_failures=1 duration=10 "
      "reason=WRONG_KEY",
      "<3>CTRL-EVENT-SSID-TEMP-DISABLED id=1 ssid=\"\xFF\xFE\" auth_failures=1 duration=10 "
      "reason=WRONG_KEY",
  };
  daemon.script("ATTACH", attach);
  const ProgramRun result = run_args({"wpa-events", "qs0", "--timeout=300"});
  EXPECT_EQ(result.status, kExitOk);
  EXPECT_EQ(result.out,
            "14 ssid_temp_disabled {\"auth_failures\":\"1\",\"duration\":\"10\","
            "\"eventName\":\"ssid_temp_disabled\",\"id\":\"0\",\"ifname\":\"qs0\","
            "\"reason\":\"WRONG_KEY\",\"ssid\":\"\\u001b[2J\"}\n"
            "14 ssid_temp_disabled {\"auth_failures\":\"1\",\"duration\":\"10\","
            "\"eventName\":\"ssid_temp_disabled\",\"id\":\"1\",\"ifname\":\"qs0\","
            "\"reason\":\"WRONG_KEY\",\"ssid\":null,\"ssid_hex\":\"fffe\"}\n");
}

TEST(WpaEventsCommand, WaitsForTheDaemonAfterItTerminatesUntilTheTimeOut) {
  WpaSupplicantSim daemon("qs0");
  Answer attach;
  attach.reply = "OK\n";
  attach.events_after = {"<3>CTRL-EVENT-SCAN-FAILED", "<3>CTRL-EVENT-TERMINATING "};
  attach.terminate = true;
  daemon.script("ATTACH", attach);
  const ProgramRun result = run_args({"wpa-events", "qs0", "--timeout=600"});
  EXPECT_EQ(result.status, kExitOk);
  EXPECT_EQ(result.out, "11 scan_failed {\"eventName\":\"scan_failed\",\"ifname\":\"qs0\"}\n");
  EXPECT_EQ(result.err, "qira-wifi: the wpa_supplicant of qs0 is terminating\n");
  EXPECT_EQ(daemon.requests(), std::vector<std::string>{"ATTACH"});
}

// Runs `wpa-events qs0` while a second daemon takes the place of the first
// once its script has ended it: the second answers ATTACH with `events` and
// then interrupts the command. Gives the command's run and the second
// daemon's requests.
std::pair<ProgramRun, std::vector<std::string>> run_across_restart(
    WpaSupplicantSim& first, const std::vector<std::string>& events) {
  std::unique_ptr<WpaSupplicantSim> second;
  std::thread restarter([&] {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!first.terminated()) {
      if (std::chrono::steady_clock::now() > deadline) {
        return;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    second = std::make_unique<WpaSupplicantSim>("qs0");
    Answer attach;
    attach.reply = "OK\n";
    attach.events_after = events;
    attach.action = [] { ::kill(::getpid(), SIGINT); };
    second->script("ATTACH", attach);
  });
  ProgramRun result = run_args({"wpa-events", "qs0", "--timeout=10000"});
  restarter.join();
  return {result, second ? second->requests() : std::vector<std::string>{}};
}

TEST(WpaEventsCommand, AttachesAgainWhenTheDaemonComesBackAfterTerminating) {
  WpaSupplicantSim first("qs0");
  Answer attach;
  attach.reply = "OK\n";
  attach.events_after = {"<3>CTRL-EVENT-SCAN-FAILED", "<3>CTRL-EVENT-TERMINATING "};
  attach.terminate = true;
  first.script("ATTACH", attach);
  const auto [result, second_requests] =
      run_across_restart(first, {"<3>CTRL-EVENT-NETWORK-NOT-FOUND"});
  EXPECT_EQ(result.status, kExitInterrupted);
  EXPECT_EQ(result.out,
            "11 scan_failed {\"eventName\":\"scan_failed\",\"ifname\":\"qs0\"}\n"
            "13 network_not_found {\"eventName\":\"network_not_found\",\"ifname\":\"qs0\"}\n");
  EXPECT_EQ(result.err,
            "qira-wifi: the wpa_supplicant of qs0 is terminating\n"
            "qira-wifi: the wpa_supplicant of qs0 is back: attached again\n");
  EXPECT_EQ(second_requests, (std::vector<std::string>{"ATTACH", "DETACH"}));
}

// A daemon killed outright sends nothing: the command's PING finds it gone.
TEST(WpaEventsCommand, NoticesADaemonThatVanishedSilentlyAndAttachesAgain) {
  WpaSupplicantSim first("qs0");
  Answer attach;
  attach.reply = "OK\n";
  attach.terminate = true;
  first.script("ATTACH", attach);
  const auto [result, second_requests] = run_across_restart(
      first, {"<3>CTRL-EVENT-CONNECTED - Connection to 00:11:22:33:44:55 completed"});
  EXPECT_EQ(result.status, kExitInterrupted);
  EXPECT_EQ(result.out,
            "25 connected_to_ap {\"eventName\":\"connected_to_ap\",\"ifname\":\"qs0\"}\n");
  EXPECT_EQ(result.err,
            "qira-wifi: the wpa_supplicant of qs0 does not answer: waiting for it to come back\n"
            "qira-wifi: the wpa_supplicant of qs0 is back: attached again\n");
  EXPECT_EQ(second_requests, (std::vector<std::string>{"ATTACH", "DETACH"}));
  EXPECT_EQ(first.requests(), std::vector<std::string>{"ATTACH"});
}

TEST(WpaEventsCommand, EndsOnInterrupt) {
  WpaSupplicantSim daemon("qs0");
  Answer attach;
  attach.reply = "OK\n";
  attach.events_after = {"<3>CTRL-EVENT-NETWORK-NOT-FOUND"};
  attach.action = [] { ::kill(::getpid(), SIGINT); };
  daemon.script("ATTACH", attach);
  const ProgramRun result = run_args({"wpa-events", "qs0"});
  EXPECT_EQ(result.status, kExitInterrupted);
  EXPECT_EQ(result.out,
            "13 network_not_found {\"eventName\":\"network_not_found\",\"ifname\":\"qs0\"}\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(daemon.requests(), (std::vector<std::string>{"ATTACH", "DETACH"}));
  // The previous disposition is back once the command returned.
  struct sigaction current {};
  ::sigaction(SIGINT, nullptr, &current);
  EXPECT_EQ(current.sa_handler, SIG_DFL);
}

TEST(WpaEventsCommand, RefusedAttachIsAFailedAction) {
  WpaSupplicantSim daemon("qs0");
  daemon.reply("ATTACH", "FAIL\n");
  const ProgramRun result = run_args({"wpa-events", "qs0", "--timeout", "0"});
  EXPECT_EQ(result.status, kExitActionFailed);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "qira-wifi: the wpa_supplicant of qs0 refused ATTACH\n");
}

TEST(WpaEventsCommand, NoDaemonIsAFailedAction) {
  const ProgramRun result = run_args({"wpa-events", "qs0"});
  EXPECT_EQ(result.status, kExitActionFailed);
  EXPECT_EQ(result.err,
            "qira-wifi: cannot reach the wpa_supplicant of qs0: failed (connect() failed: No such "
            "file or directory)\n");
}

TEST(WpaProgram, BuiltProgramSendsOneCommand) {
  WpaSupplicantSim daemon("qs0");
  daemon.reply("STATUS", "wpa_state=COMPLETED\nssid=cam\n");
  const qira::test::ChildResult result =
      qira::test::run_child({QIRA_WIFI_PROGRAM, "wpa", "qs0", "STATUS"}, 20000);
  ASSERT_TRUE(result.finished);
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.out, "wpa_state=COMPLETED\nssid=cam\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(daemon.requests(), std::vector<std::string>{"STATUS"});
}

}  // namespace
}  // namespace qira::wifi
