// WpaClient::ProcessEvent on arbitrary lines: the input is one datagram's text
// as the client reads it from wpa_supplicant. The client is attached to the
// simulated daemon with a subscriber for every event and one per translated
// kind, so that every line that names a known event builds its payload and
// is dispatched. A "CTRL-EVENT-TERMINATING" line closes the client, as it
// should; the next input then starts on a freshly attached one.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "qira/network/event_type.h"
#include "qira/network/wpa_client.h"
#include "qira/variant/variant.h"
#include "support/wpa_supplicant_sim.h"

namespace {

using qira::network::event_type;
using qira::network::WpaClient;

constexpr const char kInterface[] = "fuzz0";
constexpr event_type kTranslatedKinds[] = {
    qira::network::connected_to_ap, qira::network::disconnected_from_ap, qira::network::scan_failed,
    qira::network::network_not_found, qira::network::ssid_temp_disabled};

// Every payload names the interface and the event. The key=value arguments
// of ssid_temp_disabled are merged after "ifname" (and may replace it, as
// wpa_supplicant's own text says), but before "eventName".
void check_payload(event_type type, const qira::variant::Variant& payload, void* user) {
  const qira::variant::Variant* ifname =
      payload.GetKeyChain(qira::variant::V_STRING, "ifname", true);
  const qira::variant::Variant* name =
      payload.GetKeyChain(qira::variant::V_STRING, "eventName", true);
  if (ifname == nullptr || name == nullptr || static_cast<const std::string&>(*name).empty()) {
    std::abort();
  }
  if (type != qira::network::ssid_temp_disabled &&
      static_cast<const std::string&>(*ifname) != kInterface) {
    std::abort();
  }
  static_cast<void>(payload.ToJSON());
  ++*static_cast<std::size_t*>(user);
}

struct Fixture {
  qira::test::WpaSupplicantSim daemon{kInterface};
  std::unique_ptr<WpaClient> client;
  std::size_t deliveries = 0;

  void attach() {
    client = std::make_unique<WpaClient>();
    if (!client->Init(kInterface) || !client->Subscribe(check_payload, &deliveries)) {
      std::abort();
    }
    for (const event_type kind : kTranslatedKinds) {
      if (!client->Subscribe(kind, check_payload, &deliveries)) {
        std::abort();
      }
    }
  }
};

Fixture& fixture() {
  // Never destroyed: the daemon's thread and the client live as long as the
  // process, and stay reachable for the leak check at exit.
  static Fixture* instance = [] {
    auto* created = new Fixture();
    created->attach();
    return created;
  }();
  return *instance;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fixture& state = fixture();
  if (!state.client->IsInitialized()) {
    state.attach();
  }
  const std::string line(reinterpret_cast<const char*>(data), size);
  state.deliveries = 0;
  state.client->ProcessEvent(line);
  // A translated event reaches the all-events subscriber and its kind's.
  if (state.deliveries != 0 && state.deliveries != 2) {
    std::abort();
  }
  return 0;
}
