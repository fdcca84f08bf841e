// WpaClient's events: attaching as a monitor, the subscriber lists, and the
// translation and dispatch of each unsolicited event line.
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "frame/module_log.h"
#include "qira/network/wpa_client.h"
#include "wpa_client/event_line.h"

namespace qira::network {

namespace {

using frame::kLogDebug;
using frame::kLogWarning;

constexpr const char kAttach[] = "ATTACH";
constexpr const char kDetach[] = "DETACH";
constexpr unsigned long long kMonitorRequestTimeoutMs = 1000;

// wpa_supplicant answers a monitor request with "OK\n"; only the first two
// characters are compared.
bool is_ok_reply(const std::string& reply) {
  return reply.size() >= 2 && reply.compare(0, 2, "OK") == 0;
}

}  // namespace

bool WpaClient::Subscribe() {
  if (!initialised_) {
    return false;
  }
  if (subscribed_) {
    return true;
  }
  std::string reply;
  if (!Request(kAttach, reply, kMonitorRequestTimeoutMs) || !is_ok_reply(reply)) {
    return false;
  }
  subscribed_ = true;
  return true;
}

bool WpaClient::Subscribe(event_callback callback, void* data) {
  if (!Subscribe()) {
    return false;
  }
  event_subscribers_.emplace_back(callback, data);
  return true;
}

bool WpaClient::Subscribe(event_type type, event_callback callback, void* data) {
  if (!Subscribe()) {
    return false;
  }
  // A multimap inserts after the entries already under the same key.
  type_subscribers_.emplace(type, std::make_pair(callback, data));
  return true;
}

bool WpaClient::Unsubscribe() {
  if (!initialised_) {
    return false;
  }
  if (!subscribed_) {
    return true;
  }
  std::string reply;
  if (!Request(kDetach, reply, kMonitorRequestTimeoutMs) || !is_ok_reply(reply)) {
    return false;
  }
  subscribed_ = false;
  return true;
}

void WpaClient::ProcessEvent(const std::string& msg) {
  NETLIB_LOG(kLogDebug, 0, "Event received: %s", msg.c_str());
  const std::optional<wpa::event_line> line = wpa::parse_event_line(msg);
  if (!line) {
    NETLIB_LOG(kLogWarning, 0, "Invalid event: %s", msg.c_str());
    return;
  }
  if (IsInternalEvent(line->name)) {
    HandleInternalEvent(line->name, line->args);
    return;
  }
  const std::optional<event_type> type = wpa::translate_event_name(line->name);
  if (!type) {
    return;
  }
  const qira::variant::Variant payload = wpa::build_event_payload(*type, ifname_, line->args);
  // The subscribers are copied first: a callback may Close() this client,
  // which empties the all-event list while it is being walked.
  const std::vector<std::pair<event_callback, void*>> everything(event_subscribers_.begin(),
                                                                 event_subscribers_.end());
  std::vector<std::pair<event_callback, void*>> of_type;
  const auto range = type_subscribers_.equal_range(*type);
  for (auto entry = range.first; entry != range.second; ++entry) {
    of_type.push_back(entry->second);
  }
  for (const auto& [callback, data] : everything) {
    callback(*type, payload, data);
  }
  for (const auto& [callback, data] : of_type) {
    callback(*type, payload, data);
  }
}

bool WpaClient::IsInternalEvent(const std::string& name) {
  return name == wpa::kEventTerminating;
}

void WpaClient::HandleInternalEvent(const std::string& name, const std::string& /*args*/) {
  // wpa_supplicant is shutting down: its control socket is going away.
  if (name == wpa::kEventTerminating) {
    Close();
  }
}

}  // namespace qira::network
