// Layouts and numbers that the host and the module share in memory: a host
// built against other headers must see the same bytes at the same places.
#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "qira/netlib/context.h"
#include "qira/network/ap_selection.h"
#include "qira/network/event_type.h"
#include "qira/network/netlib_scan.h"

namespace qira::test {
namespace {

using qira::netlib::iface_state;
using qira::netlib::library_context;
namespace network = qira::network;

constexpr std::size_t kPointer = sizeof(void*);

constexpr std::size_t round_up(std::size_t value, std::size_t alignment) {
  return (value + alignment - 1) / alignment * alignment;
}

static_assert(sizeof(scan_entry) == 60, "scan_entry is the platform decoder's 60-byte record");
static_assert(sizeof(network::scan_status) == 2, "scan_status is two booleans");
static_assert(sizeof(network::event_type) == 4, "event_type is passed as a 32-bit value");
static_assert(std::is_standard_layout<library_context>::value, "the context is plain data");
static_assert(std::is_standard_layout<iface_state>::value, "the shared state is plain data");

TEST(Layout, ScanEntryFieldOffsets) {
  EXPECT_EQ(sizeof(scan_entry), 60u);
  EXPECT_EQ(offsetof(scan_entry, bssid), 0u);
  EXPECT_EQ(offsetof(scan_entry, ssid), 6u);
  EXPECT_EQ(offsetof(scan_entry, padding_0), 39u);
  EXPECT_EQ(offsetof(scan_entry, mode), 40u);
  EXPECT_EQ(offsetof(scan_entry, frequency), 44u);
  EXPECT_EQ(offsetof(scan_entry, channel), 46u);
  EXPECT_EQ(offsetof(scan_entry, signal), 47u);
  EXPECT_EQ(offsetof(scan_entry, padding_1), 57u);
}

TEST(Layout, ScanStatusIsFinishedThenAborted) {
  EXPECT_EQ(sizeof(network::scan_status), 2u);
  EXPECT_EQ(offsetof(network::scan_status, finished), 0u);
  EXPECT_EQ(offsetof(network::scan_status, aborted), 1u);
}

TEST(Layout, EventTypeNumbers) {
  EXPECT_EQ(sizeof(network::event_type), 4u);
  EXPECT_EQ(network::unspec, 0);
  EXPECT_EQ(network::new_wiphy, 6);
  EXPECT_EQ(network::del_wiphy, 7);
  EXPECT_EQ(network::trigger_scan, 8);
  EXPECT_EQ(network::new_scan_results, 9);
  EXPECT_EQ(network::scan_aborted, 10);
  EXPECT_EQ(network::scan_failed, 11);
  EXPECT_EQ(network::reg_change, 12);
  EXPECT_EQ(network::network_not_found, 13);
  EXPECT_EQ(network::ssid_temp_disabled, 14);
  EXPECT_EQ(network::new_station, 15);
  EXPECT_EQ(network::del_station, 16);
  EXPECT_EQ(network::authenticate, 17);
  EXPECT_EQ(network::associate, 18);
  EXPECT_EQ(network::deauthenticate, 19);
  EXPECT_EQ(network::disassociate, 20);
  EXPECT_EQ(network::unprot_deauthenticate, 21);
  EXPECT_EQ(network::unprot_disassociate, 22);
  EXPECT_EQ(network::connect, 23);
  EXPECT_EQ(network::disconnect, 24);
  EXPECT_EQ(network::connected_to_ap, 25);
  EXPECT_EQ(network::disconnected_from_ap, 26);
}

// The internal-call byte, then pointer-sized slots: the interface state, two
// host slots, the events state and the scan state.
TEST(Layout, LibraryContextFieldOrder) {
  EXPECT_EQ(offsetof(library_context, internal_call), 0u);
  EXPECT_EQ(sizeof(library_context::internal_call), 1u);
  EXPECT_EQ(offsetof(library_context, iface), 1 * kPointer);
  EXPECT_EQ(offsetof(library_context, host_slots), 2 * kPointer);
  EXPECT_EQ(sizeof(library_context::host_slots), 2 * kPointer);
  EXPECT_EQ(offsetof(library_context, wireless_events), 4 * kPointer);
  EXPECT_EQ(offsetof(library_context, wireless_scan), 5 * kPointer);
  EXPECT_EQ(sizeof(library_context), 6 * kPointer);
}

// The initialised byte, the 32-bit ioctl socket, then the hook pointer.
TEST(Layout, InterfaceStateFieldOrder) {
  EXPECT_EQ(offsetof(iface_state, initialised), 0u);
  EXPECT_EQ(sizeof(iface_state::initialised), 1u);
  EXPECT_EQ(offsetof(iface_state, ioctl_fd), alignof(int));
  EXPECT_EQ(sizeof(iface_state::ioctl_fd), 4u);
  EXPECT_EQ(offsetof(iface_state, hostapd_conf_hook),
            round_up(alignof(int) + sizeof(int), alignof(qira::netlib::hostapd_conf_handler)));
  EXPECT_EQ(sizeof(iface_state::hostapd_conf_hook), kPointer);
}

}  // namespace
}  // namespace qira::test
