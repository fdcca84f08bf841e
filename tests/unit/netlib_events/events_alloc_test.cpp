// The event module when the process runs out of memory: every allocation
// the module makes without throwing fails in turn, with its message.
#include <gtest/gtest.h>

#include <netlink/socket.h>

#include <memory>

#include "qira/host/seams.h"
#include "qira/network/netlib_events.h"
#include "qira/network/nl_helpers.h"
#include "support/alloc_faults.h"
#include "unit/netlib_events/events_test_util.h"

namespace qira::test::events {
namespace {

using Faults = AllocationFaults;

TEST_F(EventsTest, InitWithoutMemoryForTheStateEmptiesTheSlot) {
  if (!Faults::effective(Faults::kNothrowNew)) {
    GTEST_SKIP() << "the sanitizer runtime owns operator new in this build";
  }
  Faults faults;
  faults.fail(Faults::kNothrowNew);
  qira::host::LogCapture log;
  EXPECT_FALSE(init());
  expect_records(log, {{"netlib_libevents_wireless_init", "netlib: memory allocation error"}});
  EXPECT_EQ(context_.wireless_events, nullptr);
}

TEST_F(EventsTest, InitWithoutASocketFailsWithItsMessage) {
  Faults faults;
  faults.fail(Faults::kNlSocketAlloc);
  qira::host::LogCapture log;
  EXPECT_FALSE(init());
  EXPECT_EQ(faults.failures(Faults::kNlSocketAlloc), 1);
  expect_records(log,
                 {{"netlib_libevents_wireless_init", "netlib: failed to allocate netlink socket"}});
  // The slot deliberately keeps the freed state's address: a host does not
  // call the module again after a failed init. Forget it before teardown.
  EXPECT_NE(context_.wireless_events, nullptr);
  context_.wireless_events = nullptr;
}

// Callback sets made by a whole, successful preparation on a context of its
// own: the group lookups' (libnl makes some of its own for them), then the
// one for the notifications, last.
int callback_sets_of_a_preparation() {
  qira::netlib::iface_state iface{};
  iface.initialised = 1;
  qira::netlib::library_context context{};
  context.iface = &iface;
  context.internal_call = 1;
  EXPECT_TRUE(qira::network::netlib_libevents_wireless_init(&context));
  context.internal_call = 0;
  AllocationFaults counting;
  EXPECT_TRUE(qira::network::netlib_libevents_wireless_service(&context));
  const int sets = counting.calls(AllocationFaults::kNlCbAlloc);
  context.internal_call = 1;
  qira::network::netlib_libevents_wireless_close(&context);
  return sets;
}

TEST_F(EventsTest, PreparationWithoutACallbackSetFailsAndIsRetried) {
  ASSERT_TRUE(init());
  const int sets = callback_sets_of_a_preparation();
  ASSERT_GE(sets, 5);  // four group lookups at least, then the module's own
  Faults faults;
  faults.fail(Faults::kNlCbAlloc, 1, sets - 1);
  qira::host::LogCapture log;
  EXPECT_FALSE(qira::network::netlib_libevents_wireless_service(ctx()));
  EXPECT_EQ(faults.failures(Faults::kNlCbAlloc), 1);
  expect_records(log, {{"prepare_listen_events", "netlib: failed to allocate netlink callback"}});
  log.clear();
  // Memory is back: the next service prepares from the first group again.
  EXPECT_TRUE(qira::network::netlib_libevents_wireless_service(ctx()));
  EXPECT_TRUE(log.records().empty()) << ::testing::PrintToString(log.messages());
}

TEST_F(EventsTest, AGroupLookupWithoutMemoryIsMinusTwelve) {
  ASSERT_TRUE(init());
  for (const Faults::Function function : {Faults::kNlmsgAlloc, Faults::kNlCbAlloc}) {
    SCOPED_TRACE(function);
    Faults faults;
    faults.fail(function);
    qira::host::LogCapture log;
    EXPECT_FALSE(qira::network::netlib_libevents_wireless_service(ctx()));
    expect_records(log, {{"prepare_listen_events", "nl_get_multicast_id() failed: -12"}});
  }
}

TEST(MulticastIdMemory, NoMessageOrNoCallbackSetIsMinusTwelveWithNothingSent) {
  SimulatedNl80211 kernel;
  std::unique_ptr<nl_sock, void (*)(nl_sock*)> sock(nl_socket_alloc(), nl_socket_free);
  ASSERT_NE(sock, nullptr);
  ASSERT_EQ(genl_connect(sock.get()), 0);
  const std::size_t asked_before = kernel.controller_requests().size();
  for (const Faults::Function function : {Faults::kNlmsgAlloc, Faults::kNlCbAlloc}) {
    SCOPED_TRACE(function);
    Faults faults;
    faults.fail(function);
    EXPECT_EQ(nl_get_multicast_id(sock.get(), "nl80211", "scan"), -12);
    EXPECT_EQ(faults.failures(function), 1);
  }
  EXPECT_EQ(kernel.controller_requests().size(), asked_before);
}

}  // namespace
}  // namespace qira::test::events
