// The event module's notification handler through the simulated nl80211
// kernel: the input becomes one generic netlink notification that the kernel
// delivers to the module's event socket, then one service call reads,
// decodes and dispatches it to a subscriber.
//
// Input: the nl80211 command byte, a mode byte, then the attributes. Mode bit
// 0 set: the rest is the attribute area verbatim (malformed attributes
// included). Otherwise the rest is a list of (type: 16 bits little-endian,
// flags included; length: 8 bits; payload) records, each laid out as a
// well-formed attribute, so that the fuzzer reaches every command's keys.
// Mode bit 1 set: the message ends inside its generic netlink header (after
// 0 to 3 of its bytes, from the next input byte), which the kernel never
// sends but a netlink reader accepts.
#include <linux/genetlink.h>
#include <linux/netlink.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "netlib_events/events_state.h"
#include "qira/netlib/context.h"
#include "qira/network/netlib_events.h"
#include "qira/variant/variant.h"
#include "support/nl80211_sim.h"

namespace {

using qira::network::event_type;
using qira::test::SimulatedNl80211;

constexpr std::uint8_t kRawAttributes = 0x01;
constexpr std::uint8_t kTruncatedHeader = 0x02;

struct Fixture {
  SimulatedNl80211 kernel;
  qira::netlib::iface_state iface{};
  qira::netlib::library_context context{};
  int event_socket = -1;
  std::size_t deliveries = 0;
  int last_command = -1;

  static void subscriber(event_type /*type*/, const qira::variant::Variant& payload, void* user) {
    auto* self = static_cast<Fixture*>(user);
    ++self->deliveries;
    const qira::variant::Variant* id = payload.GetKeyChain(qira::variant::V_INT32, "eventId", true);
    const qira::variant::Variant* name =
        payload.GetKeyChain(qira::variant::V_STRING, "eventName", true);
    if (id == nullptr || name == nullptr || !payload.HasKey("ifname") ||
        !payload.HasKey("ifindex")) {
      std::abort();
    }
    self->last_command = static_cast<int>(id->AsDouble());
    static_cast<void>(payload.ToJSON());
  }

  Fixture() {
    iface.initialised = 1;
    iface.ioctl_fd = -1;
    context.iface = &iface;
    context.internal_call = 1;
    const bool initialised = qira::network::netlib_libevents_wireless_init(&context);
    context.internal_call = 0;
    unsigned int id = 0;
    if (!initialised ||
        !qira::network::netlib_libevents_wireless_subscribe(&context, subscriber, id, this) ||
        !qira::network::netlib_libevents_wireless_service(&context)) {
      std::abort();
    }
    // The one socket that joined nl80211's groups.
    for (const auto& [fd, socket] : kernel.sockets()) {
      if (!socket.memberships.empty()) {
        event_socket = fd;
      }
    }
    if (event_socket < 0) {
      std::abort();
    }
  }

  std::uint16_t family() const {
    return static_cast<std::uint16_t>(
        static_cast<const qira::network::events::events_state*>(context.wireless_events)
            ->nl80211_id);
  }
};

Fixture& fixture() {
  // Never destroyed: the module's state lives as long as the process.
  static Fixture* instance = new Fixture();
  return *instance;
}

std::vector<std::uint8_t> attribute_area(qira::fuzz::InputReader& input, bool raw) {
  if (raw) {
    return input.rest();
  }
  std::vector<std::uint8_t> area;
  while (!input.empty()) {
    const std::uint16_t type = input.u16();
    const std::vector<std::uint8_t> payload = input.bytes(input.byte());
    nlattr header{};
    header.nla_len = static_cast<std::uint16_t>(NLA_HDRLEN + payload.size());
    header.nla_type = type;
    const std::size_t start = area.size();
    area.resize(start + NLA_ALIGN(header.nla_len), 0);
    std::memcpy(area.data() + start, &header, sizeof header);
    if (!payload.empty()) {
      std::memcpy(area.data() + start + NLA_HDRLEN, payload.data(), payload.size());
    }
  }
  return area;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fixture& state = fixture();
  qira::fuzz::InputReader input(data, size);
  const std::uint8_t command = input.byte();
  const std::uint8_t mode = input.byte();
  const bool truncated = (mode & kTruncatedHeader) != 0;
  const std::size_t header_bytes = truncated ? input.byte() % GENL_HDRLEN : GENL_HDRLEN;
  const std::vector<std::uint8_t> attributes =
      truncated ? std::vector<std::uint8_t>() : attribute_area(input, (mode & kRawAttributes) != 0);

  const std::size_t length = NLMSG_HDRLEN + header_bytes + attributes.size();
  if (length > 0xFFFF) {
    return -1;
  }
  std::vector<std::uint8_t> datagram(NLMSG_ALIGN(length), 0);
  nlmsghdr header{};
  header.nlmsg_len = static_cast<std::uint32_t>(length);
  header.nlmsg_type = state.family();
  genlmsghdr generic{};
  generic.cmd = command;
  generic.version = 1;
  std::memcpy(datagram.data(), &header, sizeof header);
  std::memcpy(datagram.data() + NLMSG_HDRLEN, &generic, header_bytes);
  if (!attributes.empty()) {
    std::memcpy(datagram.data() + NLMSG_HDRLEN + GENL_HDRLEN, attributes.data(), attributes.size());
  }

  state.deliveries = 0;
  state.last_command = -1;
  if (!state.kernel.send_raw(state.event_socket, datagram) ||
      !qira::network::netlib_libevents_wireless_service(&state.context)) {
    std::abort();
  }
  // Every notification, whatever its attributes, reaches the subscriber once
  // with its own command number; one without a whole generic header has no
  // command to read (0).
  if (state.deliveries != 1 || state.last_command != (truncated ? 0 : command)) {
    std::abort();
  }
  return 0;
}
