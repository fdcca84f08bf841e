// Attaching and detaching, and the translation and dispatch of event lines,
// with exact log lines, payloads and delivery orders.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qira/network/wpa_client.h"
#include "support/wpa_supplicant_sim.h"
#include "unit/wpa_client/wpa_test_util.h"

namespace qira::test::wpa {
namespace {

using namespace qira::network;
using qira::host::LogCapture;
using Answer = WpaSupplicantSim::Answer;

constexpr const char kConnected[] =
    "<3>CTRL-EVENT-CONNECTED - Connection to 00:11:22:33:44:55 completed";

class Events : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(client_.Init("qs0")); }

  ExpectedRecord received(const std::string& message) {
    return {kEventsFile, "ProcessEvent", 7, 0, "Event received: " + message};
  }
  ExpectedRecord invalid(const std::string& message) {
    return {kEventsFile, "ProcessEvent", 4, 0, "Invalid event: " + message};
  }

  WpaSupplicantSim daemon_{"qs0"};
  WpaClient client_;
  EventRecorder recorder_;
};

TEST_F(Events, SubscribeTwiceAttachesOnce) {
  LogCapture log;
  EXPECT_TRUE(client_.Subscribe());
  EXPECT_TRUE(client_bytes(client_).subscribed);
  EXPECT_TRUE(client_.Subscribe());
  EXPECT_TRUE(client_.Subscribe(&EventRecorder::callback, recorder_.subscriber("all")));
  EXPECT_EQ(daemon_.requests(), std::vector<std::string>{"ATTACH"});
  EXPECT_EQ(daemon_.monitor_count(), 1u);
  EXPECT_TRUE(log.records().empty());
}

TEST_F(Events, AttachRefusedRegistersNothing) {
  daemon_.reply("ATTACH", "FAIL\n");
  daemon_.reply("ATTACH", "O");
  daemon_.reply("ATTACH", "ok\n");
  EXPECT_FALSE(client_.Subscribe(&EventRecorder::callback, recorder_.subscriber("all")));
  EXPECT_FALSE(
      client_.Subscribe(connected_to_ap, &EventRecorder::callback, recorder_.subscriber("typed")));
  EXPECT_FALSE(client_.Subscribe());
  EXPECT_FALSE(client_bytes(client_).subscribed);
  client_.ProcessEvent(kConnected);
  EXPECT_TRUE(recorder_.deliveries.empty());
  EXPECT_EQ(daemon_.requests(), (std::vector<std::string>{"ATTACH", "ATTACH", "ATTACH"}));
}

TEST_F(Events, AttachAnsweredWithOkAndMoreIsAccepted) {
  daemon_.reply("ATTACH", "OKAY");
  EXPECT_TRUE(client_.Subscribe());
}

TEST_F(Events, UnansweredAttachFailsAfterOneSecond) {
  daemon_.script("ATTACH", Answer{});
  EXPECT_FALSE(client_.Subscribe(&EventRecorder::callback, recorder_.subscriber("all")));
  EXPECT_FALSE(client_bytes(client_).subscribed);
  client_.ProcessEvent(kConnected);
  EXPECT_TRUE(recorder_.deliveries.empty());
}

TEST_F(Events, UnsubscribeWhenNotSubscribedSendsNothing) {
  EXPECT_TRUE(client_.Unsubscribe());
  EXPECT_TRUE(daemon_.requests().empty());
}

TEST_F(Events, UnsubscribeDetachesAndKeepsCallbacks) {
  ASSERT_TRUE(client_.Subscribe(&EventRecorder::callback, recorder_.subscriber("all")));
  EXPECT_TRUE(client_.Unsubscribe());
  EXPECT_FALSE(client_bytes(client_).subscribed);
  EXPECT_EQ(daemon_.monitor_count(), 0u);
  client_.ProcessEvent(kConnected);
  EXPECT_EQ(recorder_.names(), std::vector<std::string>{"all"});
  EXPECT_EQ(daemon_.requests(), (std::vector<std::string>{"ATTACH", "DETACH"}));
}

TEST_F(Events, RefusedDetachStaysSubscribed) {
  ASSERT_TRUE(client_.Subscribe());
  daemon_.reply("DETACH", "FAIL\n");
  EXPECT_FALSE(client_.Unsubscribe());
  EXPECT_TRUE(client_bytes(client_).subscribed);
  EXPECT_TRUE(client_.Unsubscribe());
  EXPECT_EQ(daemon_.requests(), (std::vector<std::string>{"ATTACH", "DETACH", "DETACH"}));
}

TEST(EventsIdle, UnsubscribeOfAnIdleClientFails) {
  WpaClient client;
  EXPECT_FALSE(client.Unsubscribe());
}

TEST_F(Events, ConnectedLine) {
  ASSERT_TRUE(client_.Subscribe(&EventRecorder::callback, recorder_.subscriber("all")));
  LogCapture log;
  client_.ProcessEvent(kConnected);
  ASSERT_EQ(recorder_.deliveries.size(), 1u);
  EXPECT_EQ(static_cast<int>(recorder_.deliveries[0].type), 25);
  EXPECT_EQ(recorder_.deliveries[0].payload,
            string_map({{"ifname", "qs0"}, {"eventName", "connected_to_ap"}}));
  expect_records(log, {received(kConnected)});
}

TEST_F(Events, ScanFailedWithoutSpace) {
  ASSERT_TRUE(client_.Subscribe(&EventRecorder::callback, recorder_.subscriber("all")));
  client_.ProcessEvent("<3>CTRL-EVENT-SCAN-FAILED");
  ASSERT_EQ(recorder_.deliveries.size(), 1u);
  EXPECT_EQ(static_cast<int>(recorder_.deliveries[0].type), 11);
  EXPECT_EQ(recorder_.deliveries[0].payload,
            string_map({{"ifname", "qs0"}, {"eventName", "scan_failed"}}));
}

TEST_F(Events, DisconnectedAndNetworkNotFound) {
  ASSERT_TRUE(client_.Subscribe(&EventRecorder::callback, recorder_.subscriber("all")));
  client_.ProcessEvent("<3>CTRL-EVENT-DISCONNECTED bssid=00:11:22:33:44:55 reason=3");
  client_.ProcessEvent("<3>CTRL-EVENT-NETWORK-NOT-FOUND");
  ASSERT_EQ(recorder_.deliveries.size(), 2u);
  EXPECT_EQ(static_cast<int>(recorder_.deliveries[0].type), 26);
  EXPECT_EQ(recorder_.deliveries[0].payload,
            string_map({{"ifname", "qs0"}, {"eventName", "disconnected_from_ap"}}));
  EXPECT_EQ(static_cast<int>(recorder_.deliveries[1].type), 13);
  EXPECT_EQ(recorder_.deliveries[1].payload,
            string_map({{"ifname", "qs0"}, {"eventName", "network_not_found"}}));
}

TEST_F(Events, SsidTempDisabled) {
  ASSERT_TRUE(client_.Subscribe(ssid_temp_disabled, &EventRecorder::callback,
                                recorder_.subscriber("typed")));
  client_.ProcessEvent(
      "<3>CTRL-EVENT-SSID-TEMP-DISABLED id=0 ssid=\"cam\" auth_failures=2 duration=20 "
      "reason=WRONG_KEY");
  ASSERT_EQ(recorder_.deliveries.size(), 1u);
  EXPECT_EQ(static_cast<int>(recorder_.deliveries[0].type), 14);
  EXPECT_EQ(recorder_.deliveries[0].payload, string_map({{"ifname", "qs0"},
                                                         {"eventName", "ssid_temp_disabled"},
                                                         {"id", "0"},
                                                         {"ssid", "cam"},
                                                         {"auth_failures", "2"},
                                                         {"duration", "20"},
                                                         {"reason", "WRONG_KEY"}}));
}

TEST_F(Events, PriorityPrefixAloneIsInvalid) {
  ASSERT_TRUE(client_.Subscribe(&EventRecorder::callback, recorder_.subscriber("all")));
  LogCapture log;
  client_.ProcessEvent("<3>");
  expect_records(log, {received("<3>"), invalid("<3>")});
  EXPECT_TRUE(recorder_.deliveries.empty());
}

TEST_F(Events, LineWithoutPriorityEndIsInvalid) {
  ASSERT_TRUE(client_.Subscribe(&EventRecorder::callback, recorder_.subscriber("all")));
  LogCapture log;
  client_.ProcessEvent("CTRL-EVENT-CONNECTED - x");
  expect_records(log, {received("CTRL-EVENT-CONNECTED - x"), invalid("CTRL-EVENT-CONNECTED - x")});
  EXPECT_TRUE(recorder_.deliveries.empty());
}

TEST_F(Events, InvalidEventArrivingOnTheSocketIsDropped) {
  ASSERT_TRUE(client_.Subscribe(&EventRecorder::callback, recorder_.subscriber("all")));
  daemon_.send_event("<3");
  daemon_.send_event(kConnected);
  LogCapture log;
  EXPECT_TRUE(client_.Service(200));
  expect_records(log, {received("<3"), invalid("<3"), received(kConnected)});
  EXPECT_EQ(recorder_.names(), std::vector<std::string>{"all"});
}

TEST_F(Events, UnknownAndDifferentlyCasedNamesAreIgnored) {
  ASSERT_TRUE(client_.Subscribe(&EventRecorder::callback, recorder_.subscriber("all")));
  LogCapture log;
  client_.ProcessEvent("<3>CTRL-EVENT-SCAN-STARTED ");
  client_.ProcessEvent("<3>ctrl-event-connected - x");
  expect_records(
      log, {received("<3>CTRL-EVENT-SCAN-STARTED "), received("<3>ctrl-event-connected - x")});
  EXPECT_TRUE(recorder_.deliveries.empty());
  EXPECT_TRUE(client_.IsInitialized());
}

TEST_F(Events, TerminatingClosesTheClientAndCallsNoSubscriber) {
  ASSERT_TRUE(client_.Subscribe(&EventRecorder::callback, recorder_.subscriber("all")));
  LogCapture log;
  client_.ProcessEvent("<0>CTRL-EVENT-TERMINATING");
  EXPECT_FALSE(client_.IsInitialized());
  EXPECT_TRUE(recorder_.deliveries.empty());
  expect_records(log, {received("<0>CTRL-EVENT-TERMINATING")});
  EXPECT_EQ(daemon_.requests(), (std::vector<std::string>{"ATTACH", "DETACH"}));
  EXPECT_TRUE(client_socket_files().empty());
}

TEST_F(Events, TerminatingWithArgumentsAndAnotherPriorityCloses) {
  client_.ProcessEvent("<4>CTRL-EVENT-TERMINATING reason=anything");
  EXPECT_FALSE(client_.IsInitialized());
  EXPECT_TRUE(daemon_.requests().empty());  // not attached: no DETACH
}

TEST_F(Events, InternalEventNames) {
  EXPECT_TRUE(client_.IsInternalEvent("CTRL-EVENT-TERMINATING"));
  EXPECT_FALSE(client_.IsInternalEvent("CTRL-EVENT-TERMINATING "));
  EXPECT_FALSE(client_.IsInternalEvent("CTRL-EVENT-CONNECTED"));
  EXPECT_FALSE(client_.IsInternalEvent(""));
  client_.HandleInternalEvent("CTRL-EVENT-CONNECTED", "");
  EXPECT_TRUE(client_.IsInitialized());
  client_.HandleInternalEvent("CTRL-EVENT-TERMINATING", "ignored");
  EXPECT_FALSE(client_.IsInitialized());
}

TEST_F(Events, AllEventSubscribersFirstThenTypedOnesInOrder) {
  ASSERT_TRUE(client_.Subscribe(connected_to_ap, &EventRecorder::callback,
                                recorder_.subscriber("typed 1")));
  ASSERT_TRUE(client_.Subscribe(&EventRecorder::callback, recorder_.subscriber("all 1")));
  ASSERT_TRUE(client_.Subscribe(disconnected_from_ap, &EventRecorder::callback,
                                recorder_.subscriber("other type")));
  ASSERT_TRUE(client_.Subscribe(connected_to_ap, &EventRecorder::callback,
                                recorder_.subscriber("typed 2")));
  ASSERT_TRUE(client_.Subscribe(&EventRecorder::callback, recorder_.subscriber("all 2")));
  client_.ProcessEvent(kConnected);
  EXPECT_EQ(recorder_.names(), (std::vector<std::string>{"all 1", "all 2", "typed 1", "typed 2"}));
  for (const Delivery& delivery : recorder_.deliveries) {
    EXPECT_EQ(delivery.type, connected_to_ap);
    EXPECT_EQ(delivery.payload_address, recorder_.deliveries[0].payload_address);
  }
}

TEST_F(Events, SameCallbackWithDifferentDataIsCalledForEach) {
  EventRecorder::Subscriber* first = recorder_.subscriber("first");
  EventRecorder::Subscriber* second = recorder_.subscriber("second");
  ASSERT_TRUE(client_.Subscribe(scan_failed, &EventRecorder::callback, first));
  ASSERT_TRUE(client_.Subscribe(scan_failed, &EventRecorder::callback, second));
  ASSERT_TRUE(client_.Subscribe(scan_failed, &EventRecorder::callback, first));
  client_.ProcessEvent("<3>CTRL-EVENT-SCAN-FAILED ret=-16");
  EXPECT_EQ(recorder_.names(), (std::vector<std::string>{"first", "second", "first"}));
}

// A subscriber that closes the client it was given.
struct Closer {
  WpaClient* client;
  int calls = 0;
};

void close_client(event_type, const qira::variant::Variant&, void* user) {
  Closer* closer = static_cast<Closer*>(user);
  ++closer->calls;
  closer->client->Close();
}

TEST_F(Events, SubscriberThatClosesEndsTheReceiveLoop) {
  Closer closer{&client_};
  ASSERT_TRUE(client_.Subscribe(&close_client, &closer));
  Answer answer;
  answer.events_before = {kConnected};  // and no reply
  daemon_.script("REASSOCIATE", answer);
  std::string reply = "old";
  EXPECT_TRUE(client_.Request("REASSOCIATE", reply, 1000));
  EXPECT_EQ(reply, "");
  EXPECT_EQ(closer.calls, 1);
  EXPECT_FALSE(client_.IsInitialized());
  EXPECT_EQ(daemon_.requests(), (std::vector<std::string>{"ATTACH", "REASSOCIATE", "DETACH"}));
}

TEST_F(Events, CloseInsideDispatchStillReachesTheOtherSubscribersOfThisEvent) {
  Closer closer{&client_};
  ASSERT_TRUE(client_.Subscribe(&close_client, &closer));
  ASSERT_TRUE(client_.Subscribe(&EventRecorder::callback, recorder_.subscriber("all")));
  ASSERT_TRUE(
      client_.Subscribe(connected_to_ap, &EventRecorder::callback, recorder_.subscriber("typed")));
  client_.ProcessEvent(kConnected);
  EXPECT_EQ(closer.calls, 1);
  EXPECT_EQ(recorder_.names(), (std::vector<std::string>{"all", "typed"}));
  EXPECT_FALSE(client_.IsInitialized());
}

}  // namespace
}  // namespace qira::test::wpa
