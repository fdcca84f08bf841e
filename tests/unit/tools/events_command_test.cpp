// `events`: the names and lines it prints, its listener against the
// simulated nl80211 kernel in this process, and the built program on the
// machine's own kernel.
#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include <sstream>

#include "child_process.h"
#include "commands.h"
#include "event_names.h"
#include "events_command.h"
#include "module_session.h"
#include "support/nl80211_sim.h"

namespace qira::wifi {
namespace {

using qira::test::Nl80211Notification;
using qira::test::SimulatedNl80211;
using qira::variant::Variant;

TEST(EventTypeName, EveryValue) {
  const std::vector<std::string> names = {"unspec",
                                          "reserved",
                                          "reserved",
                                          "reserved",
                                          "reserved",
                                          "reserved",
                                          "new_wiphy",
                                          "del_wiphy",
                                          "trigger_scan",
                                          "new_scan_results",
                                          "scan_aborted",
                                          "scan_failed",
                                          "reg_change",
                                          "network_not_found",
                                          "ssid_temp_disabled",
                                          "new_station",
                                          "del_station",
                                          "authenticate",
                                          "associate",
                                          "deauthenticate",
                                          "disassociate",
                                          "unprot_deauthenticate",
                                          "unprot_disassociate",
                                          "connect",
                                          "disconnect",
                                          "connected_to_ap",
                                          "disconnected_from_ap"};
  for (std::size_t type = 0; type < names.size(); ++type) {
    EXPECT_EQ(event_type_name(static_cast<int>(type)), names[type]) << type;
  }
  EXPECT_EQ(event_type_name(27), "unknown");
  EXPECT_EQ(event_type_name(-1), "unknown");
}

Variant connect_payload() {
  Variant payload;
  payload["eventId"] = 46;
  payload["eventName"] = "connect";
  payload["ifname"] = "";
  payload["ifindex"] = -1;
  payload["status"] = static_cast<unsigned short>(0);
  payload["status_str"] = "connected";
  return payload;
}

TEST(RenderEventLine, TextIsTypeNameAndCompactPayload) {
  EXPECT_EQ(render_event_line(23, connect_payload(), false),
            "23 connect {\"eventId\":46,\"eventName\":\"connect\",\"ifindex\":-1,\"ifname\":\"\","
            "\"status\":0,\"status_str\":\"connected\"}");
}

TEST(RenderEventLine, JsonIsOneObjectPerLine) {
  EXPECT_EQ(render_event_line(23, connect_payload(), true),
            "{\"name\":\"connect\",\"payload\":{\"eventId\":46,\"eventName\":\"connect\","
            "\"ifindex\":-1,\"ifname\":\"\",\"status\":0,\"status_str\":\"connected\"},"
            "\"type\":23}");
}

class EventListening : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(session_.open("", error, qira::host::kEventsSubsystem)) << error;
  }

  SimulatedNl80211 kernel_;
  ModuleSession session_;
};

TEST_F(EventListening, StartJoinsTheGroupsAndEachServiceTakesOneRead) {
  EventListener listener(session_);
  std::string error;
  ASSERT_TRUE(listener.start(error)) << error;
  EXPECT_EQ(kernel_.memberships(),
            (std::vector<std::uint32_t>{
                SimulatedNl80211::kConfigGroup, SimulatedNl80211::kScanGroup,
                SimulatedNl80211::kRegulatoryGroup, SimulatedNl80211::kMlmeGroup}));
  ASSERT_EQ(kernel_.notify(Nl80211Notification{NL80211_CMD_TRIGGER_SCAN, {}},
                           SimulatedNl80211::kScanGroup),
            1);
  ASSERT_EQ(kernel_.notify(Nl80211Notification{
                NL80211_CMD_CONNECT, {qira::test::attr_u16(NL80211_ATTR_STATUS_CODE, 0)}}),
            1);
  std::vector<ReceivedEvent> events;
  std::vector<qira::host::LogRecord> log;
  ASSERT_TRUE(listener.service_once(events, log));
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].type, 8);
  EXPECT_EQ(static_cast<const std::string&>(events[0].payload["eventName"]), "trigger_scan");
  ASSERT_TRUE(listener.service_once(events, log));
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(events[1].type, 23);
  EXPECT_EQ(events[1].payload, connect_payload()) << events[1].payload.ToJSON();
  ASSERT_TRUE(listener.service_once(events, log));
  EXPECT_EQ(events.size(), 2u);
  EXPECT_TRUE(log.empty());
}

TEST_F(EventListening, OneReadOfTwoNotificationsGivesTheLast) {
  EventListener listener(session_);
  std::string error;
  ASSERT_TRUE(listener.start(error)) << error;
  ASSERT_EQ(
      kernel_.notify({Nl80211Notification{NL80211_CMD_DISCONNECT, {}},
                      Nl80211Notification{NL80211_CMD_CONNECT,
                                          {qira::test::attr_u16(NL80211_ATTR_STATUS_CODE, 0)}}}),
      1);
  std::vector<ReceivedEvent> events;
  std::vector<qira::host::LogRecord> log;
  ASSERT_TRUE(listener.service_once(events, log));
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].payload, connect_payload()) << events[0].payload.ToJSON();
  ASSERT_TRUE(listener.service_once(events, log));
  EXPECT_EQ(events.size(), 1u);
}

TEST_F(EventListening, SocketFdIsTheModulesSocket) {
  EventListener listener(session_);
  ASSERT_EQ(kernel_.sockets().size(), 1u);
  EXPECT_EQ(listener.socket_fd(), kernel_.sockets().begin()->first);
}

TEST_F(EventListening, AFailedReadIsReportedWithTheModulesLines) {
  EventListener listener(session_);
  std::string error;
  ASSERT_TRUE(listener.start(error)) << error;
  kernel_.fail_next_receive(ENOBUFS);
  std::vector<ReceivedEvent> events;
  std::vector<qira::host::LogRecord> log;
  EXPECT_FALSE(listener.service_once(events, log));
  EXPECT_TRUE(events.empty());
  ASSERT_EQ(log.size(), 2u);
  EXPECT_EQ(log[0].message, "netlib: nl_recvmsg() failed: -5");
  EXPECT_EQ(log[1].message, "netlib: Failed to receive an event");
}

TEST_F(EventListening, StartFailsWhenTheGroupsCannotBeJoined) {
  kernel_.fail_membership(SimulatedNl80211::kScanGroup, EPERM);
  EventListener listener(session_);
  std::string error;
  EXPECT_FALSE(listener.start(error));
  const std::string head =
      "the event module could not join nl80211's groups\n"
      "  <3> qira_network_utils_wireless src/netlib_events/netlib_events.cpp:";
  const std::string tail = " prepare_listen_events(): nl_socket_add_membership() failed: -28";
  ASSERT_GT(error.size(), head.size() + tail.size()) << error;
  EXPECT_EQ(error.substr(0, head.size()), head) << error;
  EXPECT_EQ(error.substr(error.size() - tail.size()), tail) << error;
  // One line of the module only, and the line number between.
  const std::string line = error.substr(head.size(), error.size() - head.size() - tail.size());
  EXPECT_EQ(line.find_first_not_of("0123456789"), std::string::npos) << line;
}

TEST(RunEvents, WithATimeoutOfZeroItPrintsNothingAndSucceeds) {
  SimulatedNl80211 kernel;
  GlobalOptions options;
  options.timeout_ms = 0;
  std::ostringstream out;
  std::ostringstream err;
  Streams streams{out, err};
  EXPECT_EQ(run_events(options, {}, streams), kExitOk);
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(err.str(), std::string(kEventsReadyLine) + "\n");
  // The groups were joined on one socket, closed again at the end.
  EXPECT_EQ(kernel.controller_requests().size(), 9u);
  EXPECT_EQ(kernel.sockets_created(), 1);
  EXPECT_TRUE(kernel.sockets().empty());
}

TEST(RunEvents, ACountOfZeroStopsAtOnce) {
  SimulatedNl80211 kernel;
  GlobalOptions options;
  options.count = 0;
  std::ostringstream out;
  std::ostringstream err;
  Streams streams{out, err};
  EXPECT_EQ(run_events(options, {}, streams), kExitOk);
  EXPECT_EQ(out.str(), "");
}

TEST(RunEvents, WithoutNl80211TheModuleErrorExitsWithOne) {
  SimulatedNl80211 kernel;
  kernel.remove_family("nl80211");
  GlobalOptions options;
  options.timeout_ms = 0;
  std::ostringstream out;
  std::ostringstream err;
  Streams streams{out, err};
  EXPECT_EQ(run_events(options, {}, streams), kExitModuleError);
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(err.str(), "qira-wifi: netlib_libevents_wireless_init failed (module " +
                           qira::host::WirelessModule::default_path() + ")\n");
}

// The machine's own kernel: with nl80211 (a cfg80211 driver) the program
// listens until the time-out and prints what came; without it, it says why.
TEST(EventsProgram, RunsOnTheMachinesKernelUntilItsTimeout) {
  const qira::test::ChildResult result =
      qira::test::run_child({QIRA_WIFI_PROGRAM, "events", "--timeout", "100"}, 10000);
  ASSERT_TRUE(result.finished);
  if (result.exit_status == kExitModuleError) {
    EXPECT_NE(result.err.find("qira-wifi: netlib_libevents_wireless_init failed (module "),
              std::string::npos)
        << result.err;
    EXPECT_EQ(result.out, "");
  } else {
    EXPECT_EQ(result.exit_status, kExitOk) << result.err;
  }
}

TEST(EventsProgram, TakesNoArguments) {
  const qira::test::ChildResult result =
      qira::test::run_child({QIRA_WIFI_PROGRAM, "events", "wlan0"}, 10000);
  ASSERT_TRUE(result.finished);
  EXPECT_EQ(result.exit_status, kExitUsage);
  EXPECT_EQ(result.err, "usage: qira-wifi events [--timeout MS] [--count N]\n");
}

}  // namespace
}  // namespace qira::wifi
