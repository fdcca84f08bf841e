// The event module's frame: the entry rule of init and close, its check on
// every other function, init's steps and their failures, close, and the
// subscription identifiers.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "unit/netlib_events/events_test_util.h"

namespace qira::test::events {
namespace {

using namespace qira::network;

void ignore_event(event_type, const qira::variant::Variant&, void*) {}

// ---- entry rule of init and close ----

TEST_F(EventsTest, InitWithANullContextFails) {
  qira::host::LogCapture log;
  EXPECT_FALSE(netlib_libevents_wireless_init(nullptr));
  expect_records(log, {{"netlib_libevents_wireless_init", "library context is null"}});
  EXPECT_EQ(kernel_.sockets_created(), 0);
}

TEST_F(EventsTest, InitFromAnApplicationFailsAndLeavesTheContextUnchanged) {
  void* const marker = reinterpret_cast<void*>(0x1234);
  context_.wireless_events = marker;
  context_.internal_call = 0;
  qira::host::LogCapture log;
  EXPECT_FALSE(netlib_libevents_wireless_init(ctx()));
  expect_records(
      log, {{"netlib_libevents_wireless_init", "netlib: you may not call this function directly"}});
  EXPECT_EQ(context_.wireless_events, marker);
  EXPECT_EQ(context_.internal_call, 0);
  EXPECT_EQ(kernel_.sockets_created(), 0);
  context_.wireless_events = nullptr;
}

TEST_F(EventsTest, CloseWithANullContextFails) {
  qira::host::LogCapture log;
  EXPECT_FALSE(netlib_libevents_wireless_close(nullptr));
  expect_records(log, {{"netlib_libevents_wireless_close", "library context is null"}});
}

TEST_F(EventsTest, CloseFromAnApplicationFailsAndKeepsTheModule) {
  ASSERT_TRUE(init());
  void* const state = context_.wireless_events;
  qira::host::LogCapture log;
  EXPECT_FALSE(netlib_libevents_wireless_close(ctx()));
  expect_records(log, {{"netlib_libevents_wireless_close",
                        "netlib: you may not call this function directly"}});
  EXPECT_EQ(context_.wireless_events, state);
  EXPECT_EQ(kernel_.sockets().size(), 1u);
  unsigned int id = 0;
  EXPECT_TRUE(netlib_libevents_wireless_subscribe(ctx(), ignore_event, id, nullptr));
}

// ---- check of every other function ----

TEST_F(EventsTest, EveryFunctionChecksForANullContext) {
  qira::host::LogCapture log;
  unsigned int id = 77;
  EXPECT_FALSE(netlib_libevents_wireless_subscribe(nullptr, ignore_event, id, nullptr));
  EXPECT_EQ(id, 77u);
  EXPECT_FALSE(netlib_libevents_wireless_unsubscribe(nullptr, 0));
  EXPECT_FALSE(netlib_libevents_wireless_service(nullptr));
  expect_records(log, {{"check", "library context is null"},
                       {"check", "library context is null"},
                       {"check", "library context is null"}});
}

TEST_F(EventsTest, EveryFunctionChecksForAMissingState) {
  qira::host::LogCapture log;
  unsigned int id = 77;
  EXPECT_FALSE(netlib_libevents_wireless_subscribe(ctx(), ignore_event, id, nullptr));
  EXPECT_EQ(id, 77u);
  EXPECT_FALSE(netlib_libevents_wireless_unsubscribe(ctx(), 0));
  EXPECT_FALSE(netlib_libevents_wireless_service(ctx()));
  expect_records(log, {{"check", "library context is null"},
                       {"check", "library context is null"},
                       {"check", "library context is null"}});
}

TEST_F(EventsTest, EveryFunctionChecksThatTheStateIsInitialised) {
  ASSERT_TRUE(init());
  // The state's first member is its initialised flag.
  auto* flag = static_cast<std::uint8_t*>(context_.wireless_events);
  *flag = 0;
  qira::host::LogCapture log;
  unsigned int id = 77;
  EXPECT_FALSE(netlib_libevents_wireless_subscribe(ctx(), ignore_event, id, nullptr));
  EXPECT_EQ(id, 77u);
  EXPECT_FALSE(netlib_libevents_wireless_unsubscribe(ctx(), 0));
  EXPECT_FALSE(netlib_libevents_wireless_service(ctx()));
  expect_records(log, {{"check", "library is not initialized"},
                       {"check", "library is not initialized"},
                       {"check", "library is not initialized"}});
  // Nothing was joined: the service stopped at its check.
  EXPECT_TRUE(kernel_.memberships().empty());
  // Close of a state that is not initialised does nothing.
  EXPECT_TRUE(close());
  EXPECT_EQ(context_.wireless_events, static_cast<void*>(flag));
  *flag = 1;
  EXPECT_TRUE(close());
  EXPECT_EQ(context_.wireless_events, nullptr);
}

// ---- init ----

TEST_F(EventsTest, InitOpensOneNonBlockingSocketAndResolvesNl80211) {
  qira::host::LogCapture log;
  ASSERT_TRUE(init());
  EXPECT_TRUE(log.records().empty()) << ::testing::PrintToString(log.messages());
  ASSERT_NE(context_.wireless_events, nullptr);
  EXPECT_EQ(*static_cast<std::uint8_t*>(context_.wireless_events), 1);
  ASSERT_EQ(kernel_.sockets().size(), 1u);
  const int fd = kernel_.sockets().begin()->first;
  EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, O_NONBLOCK);
  const std::vector<ControllerRequest>& requests = kernel_.controller_requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].family, "nl80211");
  // Nothing is joined before the first service.
  EXPECT_TRUE(kernel_.memberships().empty());
  int buffer = 0;
  socklen_t length = sizeof(buffer);
  ASSERT_EQ(getsockopt(fd, SOL_SOCKET, SO_RCVBUF, &buffer, &length), 0);
  // The 8192-byte sizes are set before genl_connect, when libnl has no
  // descriptor yet: it refuses them (result not examined) and connects with
  // its own 32 KiB, which Linux reports doubled.
  EXPECT_EQ(buffer, 65536);
}

TEST_F(EventsTest, InitFailsWhenGenericNetlinkCannotBeConnected) {
  kernel_.fail_sockets(EAFNOSUPPORT);
  qira::host::LogCapture log;
  EXPECT_FALSE(init());
  expect_records(
      log, {{"netlib_libevents_wireless_init", "netlib: failed to connect to generic netlink"}});
  // The freed state stays in the slot, deliberately.
  EXPECT_NE(context_.wireless_events, nullptr);
  EXPECT_TRUE(kernel_.sockets().empty());
  context_.wireless_events = nullptr;
}

TEST_F(EventsTest, InitFailsWhenNl80211IsNotFound) {
  kernel_.remove_family("nl80211");
  qira::host::LogCapture log;
  EXPECT_FALSE(init());
  expect_records(log, {{"netlib_libevents_wireless_init", "netlib: nl80211 not found"}});
  EXPECT_NE(context_.wireless_events, nullptr);
  // The socket was freed.
  EXPECT_EQ(kernel_.sockets_created(), 1);
  EXPECT_TRUE(kernel_.sockets().empty());
  context_.wireless_events = nullptr;
}

TEST_F(EventsTest, InitFailsWhenTheSocketCannotBeMadeNonBlocking) {
  kernel_.close_descriptor_after_lookup("nl80211");
  qira::host::LogCapture log;
  EXPECT_FALSE(init());
  expect_records(log, {{"netlib_libevents_wireless_init",
                        "netlib: failed to set socket to non-blocking mode"}});
  EXPECT_NE(context_.wireless_events, nullptr);
  context_.wireless_events = nullptr;
}

TEST_F(EventsTest, AFailedInitLeavesTheSlotPointingAtTheFreedState) {
  kernel_.remove_family("nl80211");
  context_.wireless_events = nullptr;
  EXPECT_FALSE(init());
  // Whatever the slot holds now must not be used: the host stops calling
  // the module. It is not reset to null.
  EXPECT_NE(context_.wireless_events, nullptr);
  context_.wireless_events = nullptr;
}

// ---- close ----

TEST_F(EventsTest, CloseOfAModuleNeverInitialisedReturnsTrue) {
  qira::host::LogCapture log;
  EXPECT_TRUE(close());
  EXPECT_TRUE(log.records().empty());
}

TEST_F(EventsTest, CloseFreesTheSocketAndEmptiesTheSlot) {
  ASSERT_TRUE(init());
  ASSERT_EQ(kernel_.sockets().size(), 1u);
  EXPECT_TRUE(close());
  EXPECT_EQ(context_.wireless_events, nullptr);
  EXPECT_TRUE(kernel_.sockets().empty());
  EXPECT_TRUE(close());
}

TEST_F(EventsTest, CloseAfterPreparationAlsoSucceeds) {
  Recorder recorder;
  start(recorder);
  EXPECT_TRUE(close());
  EXPECT_EQ(context_.wireless_events, nullptr);
  EXPECT_TRUE(kernel_.sockets().empty());
}

TEST_F(EventsTest, InitAgainAfterCloseStartsAFreshModule) {
  ASSERT_TRUE(init());
  unsigned int id = 0;
  ASSERT_TRUE(netlib_libevents_wireless_subscribe(ctx(), ignore_event, id, nullptr));
  ASSERT_TRUE(netlib_libevents_wireless_subscribe(ctx(), ignore_event, id, nullptr));
  EXPECT_EQ(id, 1u);
  ASSERT_TRUE(close());
  ASSERT_TRUE(init());
  ASSERT_TRUE(netlib_libevents_wireless_subscribe(ctx(), ignore_event, id, nullptr));
  EXPECT_EQ(id, 0u);
}

// ---- subscriptions ----

TEST_F(EventsTest, IdentifiersCountFromZeroAndAreNotReused) {
  ASSERT_TRUE(init());
  unsigned int id = 99;
  ASSERT_TRUE(netlib_libevents_wireless_subscribe(ctx(), ignore_event, id, nullptr));
  EXPECT_EQ(id, 0u);
  ASSERT_TRUE(netlib_libevents_wireless_subscribe(ctx(), ignore_event, id, nullptr));
  EXPECT_EQ(id, 1u);
  ASSERT_TRUE(netlib_libevents_wireless_unsubscribe(ctx(), 1));
  ASSERT_TRUE(netlib_libevents_wireless_subscribe(ctx(), ignore_event, id, nullptr));
  EXPECT_EQ(id, 2u);
}

TEST_F(EventsTest, UnsubscribingAnUnknownIdentifierIsTrueAndChangesNothing) {
  Recorder recorder;
  start(recorder);
  qira::host::LogCapture log;
  EXPECT_TRUE(netlib_libevents_wireless_unsubscribe(ctx(), 12345));
  EXPECT_TRUE(log.records().empty());
  ASSERT_EQ(kernel_.notify(Nl80211Notification{NL80211_CMD_TRIGGER_SCAN, {}}, kernel_.kScanGroup),
            1);
  ASSERT_TRUE(netlib_libevents_wireless_service(ctx()));
  EXPECT_EQ(recorder.events.size(), 1u);
}

}  // namespace
}  // namespace qira::test::events
