// Compile-time layout of every record the module shares with its host, for
// both word sizes the cameras run: 32-bit ARM (ILP32, armhf) and 64-bit
// targets (LP64: arm64, and x86-64 where the suite also runs). Each check
// writes out both offsets, so a change that moves a member on either target
// fails the build of that target, and the 32-bit numbers are readable here
// without a 32-bit compiler at hand.
#include <sys/un.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "qira/netlib/context.h"
#include "qira/network/ap_info.h"
#include "qira/network/ap_selection.h"
#include "qira/network/wpa_client.h"

namespace qira::test {
namespace {

using qira::netlib::iface_state;
using qira::netlib::library_context;
using qira::network::ap_info;
using qira::network::WpaClient;

static_assert(sizeof(void*) == 4 || sizeof(void*) == 8, "a 32-bit or a 64-bit target");

// The number for this target: `ilp32` on a 32-bit one, `lp64` on a 64-bit one.
constexpr std::size_t at(std::size_t ilp32, std::size_t lp64) {
  return sizeof(void*) == 4 ? ilp32 : lp64;
}

// The library types inside the records (libstdc++'s layouts).
static_assert(sizeof(std::string) == at(24, 32), "std::string: pointer, length, 16-byte buffer");
static_assert(sizeof(std::vector<unsigned char>) == at(12, 24), "std::vector: three pointers");
static_assert(sizeof(sockaddr_un) == 110, "sockaddr_un: family and a 108-byte path");

// scan_entry: the platform decoder's 60-byte record, the same on every target.
static_assert(sizeof(scan_entry) == 60, "scan_entry is 60 bytes");
static_assert(offsetof(scan_entry, bssid) == 0, "scan_entry::bssid");
static_assert(offsetof(scan_entry, ssid) == 6, "scan_entry::ssid");
static_assert(offsetof(scan_entry, padding_0) == 39, "scan_entry::padding_0");
static_assert(offsetof(scan_entry, mode) == 40, "scan_entry::mode");
static_assert(offsetof(scan_entry, frequency) == 44, "scan_entry::frequency");
static_assert(offsetof(scan_entry, channel) == 46, "scan_entry::channel");
static_assert(offsetof(scan_entry, signal) == 47, "scan_entry::signal");
static_assert(offsetof(scan_entry, link_byte_1) == 48, "scan_entry::link_byte_1");
static_assert(offsetof(scan_entry, quality) == 49, "scan_entry::quality");
static_assert(offsetof(scan_entry, link_byte_3) == 50, "scan_entry::link_byte_3");
static_assert(offsetof(scan_entry, encrypted) == 51, "scan_entry::encrypted");
static_assert(offsetof(scan_entry, wpa_version) == 52, "scan_entry::wpa_version");
static_assert(offsetof(scan_entry, cipher_bytes) == 53, "scan_entry::cipher_bytes");
static_assert(offsetof(scan_entry, padding_1) == 57, "scan_entry::padding_1");

// The decoder's cursor and the scan list hold pointers.
static_assert(sizeof(scan_cursor) == at(8, 16), "scan_cursor");
static_assert(offsetof(scan_cursor, count) == at(4, 8), "scan_cursor::count");
static_assert(sizeof(scan_list) == at(12, 16), "scan_list");
static_assert(offsetof(scan_list, count) == at(4, 8), "scan_list::count");
static_assert(offsetof(scan_list, capacity) == at(6, 10), "scan_list::capacity");
static_assert(offsetof(scan_list, growth) == at(8, 12), "scan_list::growth");
// ap_node holds no pointer: the same on every target.
static_assert(sizeof(ap_node) == 2112, "ap_node");
static_assert(offsetof(ap_node, cipher_bytes) == 50, "ap_node::cipher_bytes");
static_assert(offsetof(ap_node, ie_len) == 56, "ap_node::ie_len");
static_assert(offsetof(ap_node, beacon_ie_len) == 60, "ap_node::beacon_ie_len");
static_assert(offsetof(ap_node, ies) == 64, "ap_node::ies");
static_assert(offsetof(ap_node, beacon_ies) == 1088, "ap_node::beacon_ies");

// ap_info: the host copies and destroys these records with its own code.
static_assert(std::is_standard_layout<ap_info>::value, "ap_info's members are all its own");
static_assert(sizeof(ap_info) == at(108, 160), "ap_info");
static_assert(alignof(ap_info) == at(4, 8), "ap_info alignment");
static_assert(offsetof(ap_info, bssid) == 0, "ap_info::bssid");
static_assert(offsetof(ap_info, ssid) == at(24, 32), "ap_info::ssid");
static_assert(offsetof(ap_info, mode) == at(48, 64), "ap_info::mode");
static_assert(offsetof(ap_info, channel) == at(49, 65), "ap_info::channel");
static_assert(offsetof(ap_info, frequency) == at(50, 66), "ap_info::frequency");
static_assert(offsetof(ap_info, signal) == at(52, 68), "ap_info::signal");
static_assert(offsetof(ap_info, link_byte_1) == at(53, 69), "ap_info::link_byte_1");
static_assert(offsetof(ap_info, quality) == at(54, 70), "ap_info::quality");
static_assert(offsetof(ap_info, link_byte_3) == at(55, 71), "ap_info::link_byte_3");
static_assert(offsetof(ap_info, encrypted) == at(56, 72), "ap_info::encrypted");
static_assert(offsetof(ap_info, wpa_version) == at(57, 73), "ap_info::wpa_version");
static_assert(offsetof(ap_info, cipher_bytes) == at(58, 74), "ap_info::cipher_bytes");
static_assert(offsetof(ap_info, reserved_a) == at(64, 80), "ap_info::reserved_a");
static_assert(offsetof(ap_info, reserved_b) == at(68, 84), "ap_info::reserved_b");
static_assert(offsetof(ap_info, ies) == at(72, 88), "ap_info::ies");
static_assert(offsetof(ap_info, beacon_ies) == at(84, 112), "ap_info::beacon_ies");
static_assert(offsetof(ap_info, children) == at(96, 136), "ap_info::children");

// WpaClient: the host constructs it (often on the stack), so its size and
// member order are the host's. The members are private: this record repeats
// them in order (the library types as bytes of their size and alignment, so
// that offsetof applies), and its size must be the class's.
template <typename Type>
struct Slot {
  alignas(Type) unsigned char bytes[sizeof(Type)];
};
using EventSubscribers = std::list<std::pair<qira::network::event_callback, void*>>;
using TypeSubscribers =
    std::multimap<qira::network::event_type, std::pair<qira::network::event_callback, void*>>;
static_assert(sizeof(EventSubscribers) == at(12, 24), "std::list: two pointers and a count");
static_assert(sizeof(TypeSubscribers) == at(24, 48), "std::multimap: comparator, header, count");
struct WpaClientMembers {
  bool initialised;
  bool subscribed;
  int socket_fd;
  sockaddr_un local_address;
  Slot<std::string> ifname;
  Slot<EventSubscribers> event_subscribers;
  Slot<TypeSubscribers> type_subscribers;
};
static_assert(sizeof(WpaClient) == sizeof(WpaClientMembers), "WpaClient has these members");
static_assert(alignof(WpaClient) == alignof(WpaClientMembers), "WpaClient alignment");
static_assert(sizeof(WpaClient) == at(180, 224), "WpaClient");
static_assert(offsetof(WpaClientMembers, initialised) == 0, "WpaClient::initialised_");
static_assert(offsetof(WpaClientMembers, subscribed) == 1, "WpaClient::subscribed_");
static_assert(offsetof(WpaClientMembers, socket_fd) == 4, "WpaClient::socket_fd_");
static_assert(offsetof(WpaClientMembers, local_address) == 8, "WpaClient::local_address_");
static_assert(offsetof(WpaClientMembers, ifname) == 120, "WpaClient::ifname_");
static_assert(offsetof(WpaClientMembers, event_subscribers) == at(144, 152),
              "WpaClient::event_subscribers_");
static_assert(offsetof(WpaClientMembers, type_subscribers) == at(156, 176),
              "WpaClient::type_subscribers_");

// The library context and the interface state it points to.
static_assert(sizeof(library_context) == at(24, 48), "library_context");
static_assert(offsetof(library_context, internal_call) == 0, "library_context::internal_call");
static_assert(offsetof(library_context, iface) == at(4, 8), "library_context::iface");
static_assert(offsetof(library_context, host_slots) == at(8, 16), "library_context::host_slots");
static_assert(offsetof(library_context, wireless_events) == at(16, 32),
              "library_context::wireless_events");
static_assert(offsetof(library_context, wireless_scan) == at(20, 40),
              "library_context::wireless_scan");
static_assert(sizeof(iface_state) == at(12, 16), "iface_state");
static_assert(offsetof(iface_state, initialised) == 0, "iface_state::initialised");
static_assert(offsetof(iface_state, ioctl_fd) == 4, "iface_state::ioctl_fd");
static_assert(offsetof(iface_state, hostapd_conf_hook) == 8, "iface_state::hostapd_conf_hook");

}  // namespace
}  // namespace qira::test
