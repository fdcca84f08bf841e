// The event module's service: preparation (groups joined in order, and its
// failures), receiving (nothing waiting, "try again", a receive error) and
// dispatch to the subscribers.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>

#include "netlib_events/events_state.h"
#include "unit/netlib_events/events_test_util.h"

namespace qira::test::events {
namespace {

using namespace qira::network;

const Nl80211Notification kTriggerScan{NL80211_CMD_TRIGGER_SCAN, {}};

std::vector<std::uint32_t> all_groups() {
  return {SimulatedNl80211::kConfigGroup, SimulatedNl80211::kScanGroup,
          SimulatedNl80211::kRegulatoryGroup, SimulatedNl80211::kMlmeGroup};
}

TEST_F(EventsTest, FirstServiceJoinsTheFourGroupsInOrderAndCallsNobody) {
  Recorder recorder;
  ASSERT_TRUE(init());
  unsigned int id = 0;
  ASSERT_TRUE(netlib_libevents_wireless_subscribe(ctx(), Recorder::callback, id, &recorder));
  qira::host::LogCapture log;
  EXPECT_TRUE(netlib_libevents_wireless_service(ctx()));
  EXPECT_TRUE(log.records().empty()) << ::testing::PrintToString(log.messages());
  EXPECT_EQ(kernel_.memberships(), all_groups());
  EXPECT_TRUE(recorder.events.empty());
  // One controller request for nl80211 at init; then, per group, one for
  // "nlctrl" and one for "nl80211".
  const std::vector<ControllerRequest>& requests = kernel_.controller_requests();
  ASSERT_EQ(requests.size(), 9u);
  for (std::size_t i = 1; i < requests.size(); i += 2) {
    EXPECT_EQ(requests[i].family, "nlctrl");
    EXPECT_EQ(requests[i + 1].family, "nl80211");
  }
}

TEST_F(EventsTest, PreparationRunsOnlyOnce) {
  Recorder recorder;
  start(recorder);
  const std::size_t requests = kernel_.controller_requests().size();
  EXPECT_TRUE(netlib_libevents_wireless_service(ctx()));
  EXPECT_TRUE(netlib_libevents_wireless_service(ctx()));
  EXPECT_EQ(kernel_.controller_requests().size(), requests);
  EXPECT_EQ(kernel_.memberships(), all_groups());
}

// A group missing from nl80211's list stops the preparation at that group.
class MissingGroup : public EventsTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(MissingGroup, PreparationFailsWithMinusTwoAndRetriesNextTime) {
  const std::string missing = GetParam();
  auto& groups = kernel_.family("nl80211").groups;
  const auto saved = groups;
  std::vector<std::uint32_t> joined_before;
  for (auto it = groups.begin(); it != groups.end();) {
    if (it->first == missing) {
      it = groups.erase(it);
      break;
    }
    joined_before.push_back(it->second);
    ++it;
  }
  ASSERT_TRUE(init());
  qira::host::LogCapture log;
  EXPECT_FALSE(netlib_libevents_wireless_service(ctx()));
  // No "Failed to receive an event" after a failed preparation.
  expect_records(log, {{"prepare_listen_events", "nl_get_multicast_id() failed: -2"}});
  EXPECT_EQ(kernel_.memberships(), joined_before);

  // The groups joined stay joined; the next service starts again from the first.
  groups = saved;
  log.clear();
  EXPECT_TRUE(netlib_libevents_wireless_service(ctx()));
  EXPECT_TRUE(log.records().empty()) << ::testing::PrintToString(log.messages());
  std::vector<std::uint32_t> expected = joined_before;
  for (std::uint32_t group : all_groups()) {
    expected.push_back(group);
  }
  EXPECT_EQ(kernel_.memberships(), expected);
}

INSTANTIATE_TEST_SUITE_P(EachGroup, MissingGroup,
                         ::testing::Values("config", "scan", "regulatory", "mlme"));

TEST_F(EventsTest, AnUnknownFamilyAtPreparationLogsTheControllersError) {
  ASSERT_TRUE(init());
  kernel_.refuse_family("nl80211", -EPERM);
  qira::host::LogCapture log;
  EXPECT_FALSE(netlib_libevents_wireless_service(ctx()));
  expect_records(log, {{"prepare_listen_events", "nl_get_multicast_id() failed: -1"}});
  EXPECT_TRUE(kernel_.memberships().empty());
}

// Joining one group fails: the message carries libnl's code for the errno.
class MembershipFailure : public EventsTest, public ::testing::WithParamInterface<std::size_t> {};

TEST_P(MembershipFailure, PreparationStopsAtThatGroup) {
  const std::vector<std::uint32_t> groups = all_groups();
  const std::size_t failing = GetParam();
  kernel_.fail_membership(groups[failing], EPERM);
  ASSERT_TRUE(init());
  qira::host::LogCapture log;
  EXPECT_FALSE(netlib_libevents_wireless_service(ctx()));
  // libnl reports EPERM as -NLE_PERM (-28).
  expect_records(log, {{"prepare_listen_events", "nl_socket_add_membership() failed: -28"}});
  EXPECT_EQ(kernel_.memberships(),
            std::vector<std::uint32_t>(groups.begin(), groups.begin() + failing));
  kernel_.fail_membership(groups[failing], 0);
  EXPECT_TRUE(netlib_libevents_wireless_service(ctx()));
}

INSTANTIATE_TEST_SUITE_P(EachGroup, MembershipFailure, ::testing::Values(0u, 1u, 2u, 3u));

TEST_F(EventsTest, NothingWaitingIsTheTryAgainResultAndNotAnError) {
  Recorder recorder;
  start(recorder);
  qira::host::LogCapture log;
  EXPECT_TRUE(netlib_libevents_wireless_service(ctx()));
  EXPECT_TRUE(log.records().empty()) << ::testing::PrintToString(log.messages());
  EXPECT_TRUE(recorder.events.empty());
}

TEST_F(EventsTest, AnInjectedTryAgainIsNotAnErrorAndKeepsWhatWaits) {
  Recorder recorder;
  start(recorder);
  ASSERT_EQ(kernel_.notify(kTriggerScan, SimulatedNl80211::kScanGroup), 1);
  kernel_.fail_next_receive(EAGAIN);
  qira::host::LogCapture log;
  EXPECT_TRUE(netlib_libevents_wireless_service(ctx()));
  EXPECT_TRUE(log.records().empty()) << ::testing::PrintToString(log.messages());
  EXPECT_TRUE(recorder.events.empty());
  EXPECT_TRUE(netlib_libevents_wireless_service(ctx()));
  ASSERT_EQ(recorder.events.size(), 1u);
  EXPECT_EQ(recorder.events[0].type, trigger_scan);
}

TEST_F(EventsTest, AReceiveErrorIsLoggedTwiceAndCallsNobody) {
  Recorder recorder;
  start(recorder);
  ASSERT_EQ(kernel_.notify(kTriggerScan, SimulatedNl80211::kScanGroup), 1);
  kernel_.fail_next_receive(ENOBUFS);
  qira::host::LogCapture log;
  EXPECT_FALSE(netlib_libevents_wireless_service(ctx()));
  // libnl reports ENOBUFS as -NLE_NOMEM (-5).
  expect_records(log,
                 {{"receive_event", "netlib: nl_recvmsg() failed: -5"},
                  {"netlib_libevents_wireless_service", "netlib: Failed to receive an event"}});
  EXPECT_TRUE(recorder.events.empty());
  // The module goes on: what waited is read by the next service.
  EXPECT_TRUE(netlib_libevents_wireless_service(ctx()));
  ASSERT_EQ(recorder.events.size(), 1u);
}

TEST_F(EventsTest, SeveralNotificationsInOneReadGiveOneCallWithTheLast) {
  Recorder recorder;
  start(recorder);
  ASSERT_EQ(kernel_.notify({kTriggerScan,
                            {NL80211_CMD_NEW_SCAN_RESULTS, {attr_u32(NL80211_ATTR_WIPHY, 1)}},
                            {NL80211_CMD_SCAN_ABORTED, {attr_u32(NL80211_ATTR_WIPHY, 2)}}},
                           SimulatedNl80211::kScanGroup),
            1);
  EXPECT_TRUE(netlib_libevents_wireless_service(ctx()));
  ASSERT_EQ(recorder.events.size(), 1u);
  EXPECT_EQ(recorder.events[0].type, scan_aborted);
  qira::variant::Variant expected;
  expected["eventId"] = 35;
  expected["eventName"] = "scan_aborted";
  expected["ifname"] = "";
  expected["ifindex"] = -1;
  expected["wiphy"] = 2u;
  EXPECT_EQ(recorder.events[0].payload, expected) << recorder.events[0].payload.ToJSON();
}

TEST_F(EventsTest, EachDatagramNeedsItsOwnService) {
  Recorder recorder;
  start(recorder);
  ASSERT_EQ(kernel_.notify(kTriggerScan, SimulatedNl80211::kScanGroup), 1);
  ASSERT_EQ(kernel_.notify(Nl80211Notification{NL80211_CMD_NEW_SCAN_RESULTS, {}},
                           SimulatedNl80211::kScanGroup),
            1);
  EXPECT_TRUE(netlib_libevents_wireless_service(ctx()));
  ASSERT_EQ(recorder.events.size(), 1u);
  EXPECT_EQ(recorder.events[0].type, trigger_scan);
  EXPECT_TRUE(netlib_libevents_wireless_service(ctx()));
  ASSERT_EQ(recorder.events.size(), 2u);
  EXPECT_EQ(recorder.events[1].type, new_scan_results);
  EXPECT_TRUE(netlib_libevents_wireless_service(ctx()));
  EXPECT_EQ(recorder.events.size(), 2u);
}

TEST_F(EventsTest, NotificationsOfEveryJoinedGroupArrive) {
  Recorder recorder;
  start(recorder);
  for (std::uint32_t group : all_groups()) {
    ASSERT_EQ(kernel_.notify(kTriggerScan, group), 1) << group;
    EXPECT_TRUE(netlib_libevents_wireless_service(ctx()));
  }
  EXPECT_EQ(recorder.events.size(), 4u);
  // A group the module did not join reaches nobody.
  EXPECT_EQ(kernel_.notify(kTriggerScan, 9), 0);
}

TEST_F(EventsTest, SubscribersAreCalledInOrderWithTheirOwnUserPointer) {
  ASSERT_TRUE(init());
  std::vector<std::pair<int, event_type>> calls;
  struct Tagged {
    int tag;
    std::vector<std::pair<int, event_type>>* calls;
  };
  Tagged first{1, &calls}, second{2, &calls}, third{3, &calls};
  auto callback = [](event_type type, const qira::variant::Variant&, void* user) {
    auto* tagged = static_cast<Tagged*>(user);
    tagged->calls->emplace_back(tagged->tag, type);
  };
  unsigned int id = 0;
  ASSERT_TRUE(netlib_libevents_wireless_subscribe(ctx(), callback, id, &first));
  ASSERT_TRUE(netlib_libevents_wireless_subscribe(ctx(), callback, id, &second));
  ASSERT_TRUE(netlib_libevents_wireless_subscribe(ctx(), callback, id, &third));
  ASSERT_TRUE(netlib_libevents_wireless_unsubscribe(ctx(), 1));
  ASSERT_TRUE(netlib_libevents_wireless_service(ctx()));
  ASSERT_EQ(kernel_.notify(kTriggerScan, SimulatedNl80211::kScanGroup), 1);
  ASSERT_TRUE(netlib_libevents_wireless_service(ctx()));
  const std::vector<std::pair<int, event_type>> expected = {{1, trigger_scan}, {3, trigger_scan}};
  EXPECT_EQ(calls, expected);
}

// Unsubscribes itself, and the subscription named in `other`, when called.
struct Leaver {
  unsigned int own_id = 0;
  unsigned int other_id = 0;
  bool remove_other = false;
  void* ctx = nullptr;
  int calls = 0;
  static void callback(event_type, const qira::variant::Variant&, void* user) {
    auto* leaver = static_cast<Leaver*>(user);
    ++leaver->calls;
    netlib_libevents_wireless_unsubscribe(leaver->ctx, leaver->own_id);
    if (leaver->remove_other) {
      netlib_libevents_wireless_unsubscribe(leaver->ctx, leaver->other_id);
    }
  }
};

TEST_F(EventsTest, ASubscriberMayUnsubscribeItselfDuringDispatch) {
  ASSERT_TRUE(init());
  Leaver leaver;
  leaver.ctx = ctx();
  Recorder after;
  ASSERT_TRUE(netlib_libevents_wireless_subscribe(ctx(), Leaver::callback, leaver.own_id, &leaver));
  unsigned int id = 0;
  ASSERT_TRUE(netlib_libevents_wireless_subscribe(ctx(), Recorder::callback, id, &after));
  ASSERT_TRUE(netlib_libevents_wireless_service(ctx()));
  ASSERT_EQ(kernel_.notify(kTriggerScan, SimulatedNl80211::kScanGroup), 1);
  ASSERT_TRUE(netlib_libevents_wireless_service(ctx()));
  EXPECT_EQ(leaver.calls, 1);
  EXPECT_EQ(after.events.size(), 1u);
  ASSERT_EQ(kernel_.notify(kTriggerScan, SimulatedNl80211::kScanGroup), 1);
  ASSERT_TRUE(netlib_libevents_wireless_service(ctx()));
  EXPECT_EQ(leaver.calls, 1);
  EXPECT_EQ(after.events.size(), 2u);
}

TEST_F(EventsTest, ASubscriberRemovedDuringDispatchIsNotCalledAfterwards) {
  ASSERT_TRUE(init());
  Leaver leaver;
  leaver.ctx = ctx();
  leaver.remove_other = true;
  Recorder removed;
  ASSERT_TRUE(netlib_libevents_wireless_subscribe(ctx(), Leaver::callback, leaver.own_id, &leaver));
  ASSERT_TRUE(
      netlib_libevents_wireless_subscribe(ctx(), Recorder::callback, leaver.other_id, &removed));
  ASSERT_TRUE(netlib_libevents_wireless_service(ctx()));
  ASSERT_EQ(kernel_.notify(kTriggerScan, SimulatedNl80211::kScanGroup), 1);
  ASSERT_TRUE(netlib_libevents_wireless_service(ctx()));
  EXPECT_EQ(leaver.calls, 1);
  EXPECT_TRUE(removed.events.empty());
}

TEST_F(EventsTest, SubscriptionsBeforeTheFirstServiceReceiveNothingUntilThen) {
  Recorder recorder;
  ASSERT_TRUE(init());
  unsigned int id = 0;
  ASSERT_TRUE(netlib_libevents_wireless_subscribe(ctx(), Recorder::callback, id, &recorder));
  // Not joined yet: the notification reaches no socket.
  EXPECT_EQ(kernel_.notify(kTriggerScan, SimulatedNl80211::kScanGroup), 0);
  ASSERT_TRUE(netlib_libevents_wireless_service(ctx()));
  EXPECT_TRUE(recorder.events.empty());
}

TEST_F(EventsTest, AfterTheCounterWrapsATakenIdentifierIsReplaced) {
  Recorder first;
  Recorder second;
  ASSERT_TRUE(init());
  unsigned int id = 99;
  ASSERT_TRUE(netlib_libevents_wireless_subscribe(ctx(), Recorder::callback, id, &first));
  ASSERT_EQ(id, 0u);
  auto* state = static_cast<qira::network::events::events_state*>(context_.wireless_events);
  state->next_subscription_id = UINT_MAX;
  ASSERT_TRUE(netlib_libevents_wireless_subscribe(ctx(), Recorder::callback, id, &second));
  EXPECT_EQ(id, UINT_MAX);
  ASSERT_TRUE(netlib_libevents_wireless_subscribe(ctx(), Recorder::callback, id, &second));
  EXPECT_EQ(id, 0u);
  EXPECT_EQ(state->subscribers.size(), 2u);
  ASSERT_TRUE(netlib_libevents_wireless_service(ctx()));
  ASSERT_EQ(kernel_.notify(kTriggerScan, SimulatedNl80211::kScanGroup), 1);
  ASSERT_TRUE(netlib_libevents_wireless_service(ctx()));
  EXPECT_TRUE(first.events.empty());
  EXPECT_EQ(second.events.size(), 2u);
}

}  // namespace
}  // namespace qira::test::events
