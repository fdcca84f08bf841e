// The host's view of the events state (qira/netlib/events_view.h) against
// the module's own state: the leading members a host reads must lie where
// the module keeps them, and the descriptor the view answers must be the
// module's socket.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "netlib_events/events_state.h"
#include "qira/host/loader.h"
#include "qira/netlib/events_view.h"
#include "support/nl80211_sim.h"

namespace qira::test {
namespace {

using qira::netlib::events_view;
using qira::network::events::events_state;

// The module's state holds a map and a Variant, so it is not a standard-layout
// type and offsetof() on it is only conditionally supported; gcc and clang
// both give its members' offsets as constants, which is what is compared.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(offsetof(events_view, initialised) == offsetof(events_state, initialised),
              "the initialised byte is where the module keeps it");
static_assert(offsetof(events_view, prepared) == offsetof(events_state, prepared),
              "the prepared byte is where the module keeps it");
static_assert(offsetof(events_view, sock) == offsetof(events_state, sock),
              "the socket is where the module keeps it");
constexpr std::size_t kStateInitialised = offsetof(events_state, initialised);
constexpr std::size_t kStatePrepared = offsetof(events_state, prepared);
constexpr std::size_t kStateSock = offsetof(events_state, sock);
#pragma GCC diagnostic pop

static_assert(sizeof(events_view::initialised) == sizeof(events_state::initialised), "one byte");
static_assert(sizeof(events_view::prepared) == sizeof(events_state::prepared), "one byte");
static_assert(sizeof(events_view::sock) == sizeof(events_state::sock), "one pointer");

// The initialised byte, the prepared byte, then the socket pointer.
TEST(EventsView, LeadingMembersMatchTheModulesState) {
  EXPECT_EQ(offsetof(events_view, initialised), 0u);
  EXPECT_EQ(offsetof(events_view, prepared), 1u);
  EXPECT_EQ(offsetof(events_view, sock), sizeof(void*));
  EXPECT_EQ(kStateInitialised, 0u);
  EXPECT_EQ(kStatePrepared, 1u);
  EXPECT_EQ(kStateSock, sizeof(void*));
}

TEST(EventsView, NoContextOrNoEventsStateHasNoDescriptor) {
  EXPECT_EQ(qira::netlib::wireless_events_fd(nullptr), -1);
  qira::netlib::library_context context{};
  EXPECT_EQ(qira::netlib::wireless_events_fd(&context), -1);
}

TEST(EventsView, AnUninitialisedStateHasNoDescriptor) {
  events_state state;
  qira::netlib::library_context context{};
  context.wireless_events = &state;
  EXPECT_EQ(qira::netlib::wireless_events_fd(&context), -1);
}

// The module loaded as a host loads it, over the simulated kernel: the view
// answers the one generic netlink socket the module's init made.
TEST(EventsView, TheInitialisedModulesSocketIsItsDescriptor) {
  SimulatedNl80211 kernel;
  qira::host::WirelessModule module;
  std::string reason;
  ASSERT_TRUE(module.open(qira::host::WirelessModule::default_path(), &reason,
                          qira::host::kEventsSubsystem))
      << reason;
  ASSERT_EQ(kernel.sockets().size(), 1u);
  const int module_socket = kernel.sockets().begin()->first;
  EXPECT_EQ(qira::netlib::wireless_events_fd(module.context()), module_socket);
  const auto* view = static_cast<const events_view*>(
      static_cast<const qira::netlib::library_context*>(module.context())->wireless_events);
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(view->initialised, 1u);
  EXPECT_EQ(view->prepared, 0u);
}

}  // namespace
}  // namespace qira::test
