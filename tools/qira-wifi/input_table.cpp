#include "input_table.h"

#include <algorithm>

namespace qira::wifi {

namespace {

using qira::host::InputRule;
using qira::variant::Variant;

constexpr char kHookInterfaceValue[] = "hook interface";
constexpr char kHookInterfaceKey[] = "interface";

}  // namespace

const std::vector<InputValue>& input_table() {
  static const std::vector<InputValue> table = {
      {kIfnameValue,
       "every command: wpa_supplicant's -i and its control socket "
       "/var/run/wpa_supplicant/IFNAME, iw dev IFNAME, udhcpc -i, interface= of hostapd's and "
       "dnsmasq's files, the interface ioctls",
       InputRule::kInterfaceName},
      {kSsidValue, "write-sta: /etc/wlan0.conf, ssid=\"SSID\"", InputRule::kQuotedText},
      {kKeyValue, "write-sta: chooses the station file's security block", InputRule::kLineText},
      {kAuthValue, "write-sta: chooses the station file's WPA lines", InputRule::kLineText},
      {kPskValue, "write-sta: /etc/wlan0.conf, psk=PSK (unquoted)", InputRule::kPassphrase},
      {"wifi/ssid", "apply: /etc/wlan0.conf, ssid=\"...\"", InputRule::kQuotedText},
      {"wifi/key", "apply: chooses the station file's security block", InputRule::kLineText},
      {"wifi/wpa/auth", "apply: chooses the station file's WPA lines", InputRule::kLineText},
      {"wifi/wpa/psk", "apply: /etc/wlan0.conf, psk=... (unquoted)", InputRule::kPassphrase},
      {"wifi/wpa/ident", "apply: /etc/wlan0.conf, anonymous_identity=\"...\"",
       InputRule::kQuotedText},
      {"wifi/wpa/username", "apply: /etc/wlan0.conf, identity=\"...\"", InputRule::kQuotedText},
      {"wifi/wpa/password", "apply: /etc/wlan0.conf, password=\"...\"", InputRule::kQuotedText},
      {"experiments/bgscan", "apply: /etc/wlan0.conf, bgscan=\"...\"", InputRule::kQuotedText},
      {"dhcp/fallbackIP",
       "apply --ap: /etc/dnsmasq.conf address=/#/..., the /etc/hosts line, the access point's "
       "address; apply: the fallback address",
       InputRule::kIpv4Address},
      {"dhcp/fallbackNetmask",
       "apply --ap: the access point's netmask; apply: the fallback netmask",
       InputRule::kIpv4Netmask},
      {"statik/ip", "apply: the interface's static address", InputRule::kIpv4Address},
      {"statik/netmask", "apply: the interface's static netmask", InputRule::kIpv4Netmask},
      {"routes/gateway", "apply: the default route", InputRule::kIpv4AddressOrEmpty},
      {"dns/ns1/ip", "apply: /etc/resolv.conf, nameserver ...", InputRule::kIpv4AddressOrEmpty},
      {"dns/ns2/ip", "apply: /etc/resolv.conf, nameserver ...", InputRule::kIpv4AddressOrEmpty},
      {kAddressValue,
       "hook: /etc/dnsmasq.conf address=/#/..., the /etc/hosts line, the access point's address",
       InputRule::kIpv4Address},
      {kNetmaskValue, "hook: the access point's netmask", InputRule::kIpv4Netmask},
      {kHookKeyValue, "hook: /etc/hostapd.conf, KEY=VALUE", InputRule::kOptionName},
      {kHookInterfaceValue, "hook: /etc/hostapd.conf, interface=...", InputRule::kInterfaceName},
      {kHookValue, "hook: /etc/hostapd.conf, KEY=VALUE (every other option)", InputRule::kLineText},
      {kWpaCommandValue, "wpa: one request on wpa_supplicant's control socket",
       InputRule::kControlRequest},
  };
  return table;
}

const InputValue* find_input(const std::string& name) {
  const std::vector<InputValue>& table = input_table();
  const auto found = std::find_if(table.begin(), table.end(),
                                  [&name](const InputValue& row) { return name == row.name; });
  return found == table.end() ? nullptr : &*found;
}

std::optional<std::string> check_input(const std::string& name, const std::string& value) {
  const InputValue* row = find_input(name);
  if (row == nullptr) {
    return "invalid " + name + ": not a value qira-wifi knows";
  }
  if (std::optional<std::string> fault = qira::host::check_input_rule(row->rule, value)) {
    return "invalid " + name + ": " + *fault;
  }
  return std::nullopt;
}

std::optional<std::string> check_hook_setting(const std::string& key, const std::string& value) {
  return check_input(key == kHookInterfaceKey ? kHookInterfaceValue : kHookValue, value);
}

std::optional<std::string> check_network_config(const Variant& config) {
  for (const InputValue& row : input_table()) {
    if (std::string(row.name).find('/') == std::string::npos) {
      continue;  // not a configuration key
    }
    const Variant* value = config.GetKeyChain(qira::variant::V_STRING, row.name, true);
    if (value == nullptr) {
      continue;
    }
    if (std::optional<std::string> fault =
            check_input(row.name, static_cast<const std::string&>(*value))) {
      return fault;
    }
  }
  return std::nullopt;
}

}  // namespace qira::wifi
