// The scan-result path through the simulated scanning kernel: the input is a
// table of BSS entries with arbitrary nested attributes, which the kernel
// answers the scan dump with. Each entry goes through the module's
// get_scanlist_cb and the reference host's decoder (nl80211_get_scanlist_cb),
// then the results call de-duplicates the list (dedup_scanlist) and turns it
// into ap_info records.
//
// Input: a flags byte (bit 0: the scan ends by abort), then the entries, each
// an attribute count byte (low four bits) followed by that many (type: 8
// bits; length: 16 bits little-endian, taken modulo kLargestAttribute;
// payload) records.
#include <net/if.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "netlib_scan/scan_state.h"
#include "qira/netlib/context.h"
#include "qira/network/netlib_events.h"
#include "qira/network/netlib_scan.h"
#include "support/scan_kernel.h"

namespace {

using qira::test::BssAttributes;
using qira::test::scan::ScanKernel;

// The loopback interface exists on every machine.
constexpr const char kInterface[] = "lo";
constexpr std::uint8_t kAbortScan = 0x01;
// One scan result message holds every attribute of its entry in 8 KiB: two
// element blocks a little over the 1024 bytes a node keeps, and the rest.
constexpr std::size_t kLargestAttribute = 1500;
constexpr std::size_t kLargestEntry = 6000;
// The service calls one scan may take: the acknowledgement, the trigger
// notification and the end notification, with room to spare.
constexpr int kServiceLimit = 10;
// The scan list keeps at most this many access points.
constexpr std::size_t kLargestList = 100;

struct Fixture {
  ScanKernel kernel;
  qira::netlib::iface_state iface{};
  qira::netlib::library_context context{};
  std::uint32_t ifindex = 0;

  bool host_call(bool (*routine)(void*)) {
    context.internal_call = 1;
    const bool ok = routine(&context);
    context.internal_call = 0;
    return ok;
  }

  qira::network::scan::scan_state* state() {
    return static_cast<qira::network::scan::scan_state*>(context.wireless_scan);
  }

  Fixture() {
    iface.initialised = 1;
    iface.ioctl_fd = -1;
    context.iface = &iface;
    ifindex = if_nametoindex(kInterface);
    if (ifindex == 0 || !host_call(qira::network::netlib_libevents_wireless_init) ||
        !host_call(qira::network::netlib_libscan_wireless_init)) {
      std::abort();
    }
    // An aborted scan then delivers what it collected without restarting
    // the daemons (processes are no part of this path).
    state()->recovery_enabled = 0;
  }

  bool service_until(bool (*done)(qira::network::scan::scan_state&)) {
    for (int i = 0; i < kServiceLimit; ++i) {
      qira::network::scan_status status{};
      if (!qira::network::netlib_libscan_service(&context, kInterface, status)) {
        return false;
      }
      if (done(*state())) {
        return true;
      }
    }
    return false;
  }
};

Fixture& fixture() {
  // Never destroyed: the module's state lives as long as the process.
  static Fixture* instance = new Fixture();
  return *instance;
}

std::vector<BssAttributes> read_table(qira::fuzz::InputReader& input) {
  std::vector<BssAttributes> table;
  while (!input.empty()) {
    BssAttributes bss;
    const int count = input.byte() & 0x0F;
    std::size_t entry_size = 0;
    for (int i = 0; i < count && !input.empty(); ++i) {
      const std::uint8_t type = input.byte();
      const std::size_t length = input.u16() % kLargestAttribute;
      std::vector<std::uint8_t> payload = input.bytes(length);
      entry_size += payload.size() + 4;
      if (entry_size > kLargestEntry) {
        break;
      }
      bss.extra.emplace_back(type, std::move(payload));
    }
    table.push_back(std::move(bss));
  }
  return table;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fixture& state = fixture();
  qira::fuzz::InputReader input(data, size);
  const bool aborted = (input.byte() & kAbortScan) != 0;
  std::vector<BssAttributes> table = read_table(input);
  const std::size_t entries = table.size();
  // Every allocation of a run is released by the next at the latest, so
  // that libFuzzer's leak check stays quiet on a run that leaks nothing.
  state.kernel.forget_requests();
  state.kernel.set_bss_table(std::move(table));

  bool in_progress = true;
  if (!qira::network::netlib_libscan_trigger(&state.context, kInterface, nullptr, 0, in_progress) ||
      in_progress) {
    std::abort();
  }
  state.kernel.announce_trigger(state.ifindex);
  if (!state.service_until([](qira::network::scan::scan_state& s) { return s.scan_acked == 1; })) {
    std::abort();
  }
  if (aborted) {
    state.kernel.abort_scan(state.ifindex);
  } else {
    state.kernel.finish_scan(state.ifindex);
  }
  if (!state.service_until(
          [](qira::network::scan::scan_state& s) { return s.scan_finished == 1; })) {
    std::abort();
  }

  std::vector<qira::network::ap_info> results;
  if (!qira::network::netlib_libscan_results(&state.context, "wlan0", results, false)) {
    std::abort();
  }
  // What the results promise whatever the dump held: no more records than
  // entries nor than a full list holds, no hidden network, element blocks
  // within a node's, and nothing left for a second call.
  if (results.size() > entries || results.size() > kLargestList) {
    std::abort();
  }
  for (const qira::network::ap_info& record : results) {
    if (record.ssid.empty() || record.ssid.size() > 32 || record.bssid.size() != 17 ||
        record.ies.size() > 1024 || record.beacon_ies.size() > 1024) {
      std::abort();
    }
  }
  std::vector<qira::network::ap_info> again;
  if (!qira::network::netlib_libscan_results(&state.context, "wlan0", again, false) ||
      !again.empty()) {
    std::abort();
  }
  return 0;
}
