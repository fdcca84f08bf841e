// The host's view of the last scan: the collected scan list, de-duplicated
// and ranked, turned into ap_info records, after recovering the radio from
// an aborted scan.
#include <cstring>
#include <iterator>
#include <vector>

#include "frame/context.h"
#include "frame/module_log.h"
#include "netlib_events/events_state.h"
#include "netlib_events/mac_text.h"
#include "netlib_scan/scan_state.h"
#include "qira/network/ap_selection.h"
#include "qira/network/netlib_netm.h"
#include "qira/network/netlib_scan.h"

namespace qira::network {

namespace {

using frame::kLogError;
using frame::kLogWarning;
using scan::scan_state;

scan_state* state_of(void* ctx) {
  return static_cast<scan_state*>(frame::as_context(ctx)->wireless_scan);
}

// The scan module's context test (this file's copy): the context, the event
// module, then the scan state.
bool check(void* ctx) {
  if (ctx == nullptr) {
    NETLIB_LOG(kLogError, 0, "library context is null");
    return false;
  }
  const auto* events =
      static_cast<const events::events_state*>(frame::as_context(ctx)->wireless_events);
  if (events == nullptr) {
    NETLIB_LOG(kLogError, 0, "library context is null");
    return false;
  }
  if (events->initialised == 0) {
    NETLIB_LOG(kLogError, 0, "library is not initialized");
    return false;
  }
  const scan_state* state = state_of(ctx);
  if (state == nullptr) {
    NETLIB_LOG(kLogError, 0, "library context is null");
    return false;
  }
  if (state->initialised == 0) {
    NETLIB_LOG(kLogError, 0, "library is not initialized");
    return false;
  }
  return true;
}

// Fills every member of `record` from `node` but the reserved words and the
// children.
void fill_record(const ap_node& node, ap_info& record) {
  char bssid[events::kMacTextSize];
  events::write_mac(node.bssid, bssid);
  record.bssid.assign(bssid, events::kMacTextLength);
  record.ssid.assign(node.ssid, strnlen(node.ssid, sizeof(node.ssid)));
  record.mode = node.mode;
  record.channel = node.channel;
  record.frequency = node.frequency;
  record.signal = node.signal;
  record.link_byte_1 = node.link_byte_1;
  record.quality = node.quality;
  record.link_byte_3 = node.link_byte_3;
  record.encrypted = node.encrypted;
  record.wpa_version = node.wpa_version;
  std::memcpy(record.cipher_bytes, node.cipher_bytes, sizeof(record.cipher_bytes));
  record.ies.assign(node.ies, node.ies + node.ie_len);
  record.beacon_ies.assign(node.beacon_ies, node.beacon_ies + node.beacon_ie_len);
}

// Walks the reported nodes, presenting each as a record, so that the host's
// vector is built by copying records only. Growing a vector would instead
// relocate records with ap_info's move constructor, which the module must
// not define: only the copy constructor and the destructor belong to its
// interface.
class record_reader {
 public:
  using iterator_category = std::forward_iterator_tag;
  using value_type = ap_info;
  using difference_type = std::ptrdiff_t;
  using pointer = const ap_info*;
  using reference = const ap_info&;

  explicit record_reader(std::vector<const ap_node*>::const_iterator position)
      : position_(position) {}

  const ap_info& operator*() {
    // Every member but the reserved words and the children is assigned
    // afresh for each node; those stay as value-initialised below.
    fill_record(**position_, record_);
    return record_;
  }
  record_reader& operator++() {
    ++position_;
    return *this;
  }
  bool operator==(const record_reader& other) const { return position_ == other.position_; }
  bool operator!=(const record_reader& other) const { return position_ != other.position_; }

 private:
  std::vector<const ap_node*>::const_iterator position_;
  // Value-initialised, so that the two reserved words, which the scan path
  // never assigns, read as 0 rather than as uninitialised memory, and the
  // children stay empty.
  ap_info record_{};
};

}  // namespace

bool netlib_libscan_results(void* ctx, const std::string& ifname, std::vector<ap_info>& out,
                            bool ap_mode) {
  if (!check(ctx)) {
    return false;
  }
  out.clear();
  scan_state* state = state_of(ctx);
  if (state->scan_finished == 0) {
    NETLIB_LOG(kLogError, 0, "Scan is not finished");
    return false;
  }
  if (state->scan_aborted != 0 && state->recovery_enabled != 0) {
    NETLIB_LOG(kLogWarning, 0,
               "Scan was aborted: results may be incomplete or missing. Try to recover");
    // Whatever was collected is delivered, recovered or not.
    if (!netlib_netm_recover_scan_ap(ctx, ifname, ap_mode)) {
      NETLIB_LOG(kLogWarning, 0, "Failed to recover scan ap");
    }
  }
  dedup_scanlist(&state->scan_list);
  const ::scan_list* list = state->scan_list;
  std::vector<const ap_node*> reported;
  if (list != nullptr) {
    for (std::uint16_t i = 0; i < list->count; ++i) {
      if (list->items[i]->ssid[0] != '\0') {  // hidden networks are never reported
        reported.push_back(list->items[i]);
      }
    }
  }
  std::vector<ap_info> records(record_reader(reported.cbegin()), record_reader(reported.cend()));
  out.swap(records);
  // Consumed: a second call for the same scan delivers nothing.
  free_scanlist(&state->scan_list);
  return true;
}

}  // namespace qira::network
