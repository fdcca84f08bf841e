#include "wpa_client/event_line.h"

#include <cctype>
#include <cstddef>

#include "qira/utils/strings.h"

namespace qira::network::wpa {

namespace {

using qira::variant::Variant;
using qira::variant::VariantType;

// The string type as GetKeyChain is asked for it (0x100E).
constexpr VariantType kStringType = qira::variant::V_STRING;

struct translation {
  const char* event_name;
  event_type type;
  const char* payload_name;
};

constexpr translation kTranslations[] = {
    {kEventConnected, connected_to_ap, "connected_to_ap"},
    {kEventDisconnected, disconnected_from_ap, "disconnected_from_ap"},
    {kEventScanFailed, scan_failed, "scan_failed"},
    {kEventNetworkNotFound, network_not_found, "network_not_found"},
    {kEventSsidTempDisabled, ssid_temp_disabled, "ssid_temp_disabled"},
};

void trim_trailing_space(std::string& text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())) != 0) {
    text.pop_back();
  }
}

// Removes the first and then the last character (the double quotes that
// wpa_supplicant puts around an SSID), each only if something is left.
std::string strip_quotes(std::string value) {
  if (!value.empty()) {
    value.erase(0, 1);
  }
  if (!value.empty()) {
    value.pop_back();
  }
  return value;
}

}  // namespace

std::optional<event_line> parse_event_line(const std::string& message) {
  const std::size_t priority_end = message.find('>');
  if (priority_end == std::string::npos || priority_end + 1 >= message.size()) {
    return std::nullopt;
  }
  const std::size_t space = message.find(' ');
  event_line line;
  if (space != std::string::npos && space > priority_end) {
    line.name = message.substr(priority_end + 1, space - priority_end);
  } else {
    line.name = message.substr(priority_end + 1);
  }
  trim_trailing_space(line.name);
  // Unsigned on purpose: npos + 1 is 0, the start of the message.
  const std::size_t args_start = space + 1;
  if (args_start < message.size()) {
    line.args = message.substr(args_start);
  }
  return line;
}

std::optional<event_type> translate_event_name(const std::string& name) {
  for (const translation& entry : kTranslations) {
    if (name == entry.event_name) {
      return entry.type;
    }
  }
  return std::nullopt;
}

std::string translated_event_name(event_type type) {
  for (const translation& entry : kTranslations) {
    if (type == entry.type) {
      return entry.payload_name;
    }
  }
  return std::string();
}

Variant build_event_payload(event_type type, const std::string& ifname, const std::string& args) {
  Variant payload;
  payload["ifname"] = ifname;
  if (type == ssid_temp_disabled) {
    std::string pairs = args;
    qira::utils::replaceAll(pairs, " ", "\n");
    payload.FromKVP(pairs, true, false, false);
  }
  payload["eventName"] = translated_event_name(type);
  if (type == ssid_temp_disabled) {
    Variant* ssid = payload.GetKeyChain(kStringType, "ssid", true);
    if (ssid != nullptr) {
      const std::string& quoted = *ssid;
      *ssid = strip_quotes(quoted);
    }
  }
  return payload;
}

}  // namespace qira::network::wpa
