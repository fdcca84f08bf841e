// Network initialisation from the stored configuration: the link's daemons
// stopped, then the setup access point's files and interface, or the station
// file and the IPv4 side (DHCP, static, or the fallback address). No daemon
// is started here: the host connects afterwards.
#include <csignal>
#include <string>
#include <vector>

#include "netlib_netm/daemons.h"
#include "qira/network/netlib_host.h"
#include "qira/network/netlib_netm.h"
#include "qira/utils/process.h"
#include "qira/utils/strings.h"
#include "qira/variant/variant.h"

namespace qira::network {

namespace {

using qira::variant::Variant;

constexpr const char* kDefaultFallbackAddress = "192.168.1.20";
constexpr const char* kDefaultFallbackNetmask = "255.255.255.0";
// "dhcp/status" of a DHCP configuration, and its default.
constexpr long long kDhcpEnabled = 1;
// The two host settings of a static configuration this module leaves alone.
constexpr const char* kNoSearchDomain = "";
constexpr const char* kNoHostname = "";

// The text under `path`, or `fallback` when it is absent or not a string.
std::string read_text(const Variant& config, const char* path, const std::string& fallback) {
  const Variant* value = config.GetKeyChain(qira::variant::V_STRING, path, true);
  return value == nullptr ? fallback : static_cast<const std::string&>(*value);
}

// The integer (of any width) under `path`, or `fallback`.
long long read_integer(const Variant& config, const char* path, long long fallback) {
  const Variant* value = config.GetKeyChain(qira::variant::V_INT64, path, true);
  return value == nullptr ? fallback : static_cast<long long>(*value);
}

bool valid_address(const std::string& address) {
  return qira::utils::ipv4_address_valid(address, true, false);
}

// Stops whatever holds the radio; every result is ignored.
void stop_link_daemons(const std::string& ifname) {
  // udhcpc releases its lease on SIGUSR2, then is stopped.
  qira::utils::kill_process_by_name("udhcpc", SIGUSR2);
  qira::utils::kill_process_by_name("udhcpc", SIGTERM);
  net_exec_wpactrl_cmd(ifname, "TERMINATE");
  // For an instance that did not answer on its control socket.
  qira::utils::kill_process_by_name("wpa_supplicant", SIGTERM);
}

bool prepare_access_point(void* ctx, const std::string& ifname, const Variant& config) {
  qira::utils::kill_process_by_name("hostapd", SIGTERM);
  qira::utils::kill_process_by_name("dnsmasq", SIGTERM);
  const std::string address = read_text(config, "dhcp/fallbackIP", kDefaultFallbackAddress);
  const std::string netmask = read_text(config, "dhcp/fallbackNetmask", kDefaultFallbackNetmask);
  return netlib_netm_configure_ap(ctx, ifname, address, netmask);
}

// The static branch of station mode.
bool configure_static(void* ctx, const std::string& ifname, const Variant& config) {
  std::string address = read_text(config, "statik/ip", kDefaultFallbackAddress);
  std::string netmask = read_text(config, "statik/netmask", kDefaultFallbackNetmask);
  const std::string gateway = read_text(config, "routes/gateway", "");
  const std::string first_server = read_text(config, "dns/ns1/ip", "");
  const std::string second_server = read_text(config, "dns/ns2/ip", "");
  const long long first_server_used = read_integer(config, "dns/ns1/status", 0);
  const long long second_server_used = read_integer(config, "dns/ns2/status", 0);

  std::vector<std::string> servers;
  if (first_server_used != 0 && valid_address(first_server)) {
    servers.push_back(first_server);
  }
  if (second_server_used != 0 && valid_address(second_server)) {
    servers.push_back(second_server);
  }
  // Invalid stored values are not an error: they select the fallback
  // address, taken as it is; the gateway and the name servers stay.
  bool fallback = false;
  if (!valid_address(address) || !qira::utils::ipv4_netmask_valid(netmask, true)) {
    address = read_text(config, "dhcp/fallbackIP", kDefaultFallbackAddress);
    netmask = read_text(config, "dhcp/fallbackNetmask", kDefaultFallbackNetmask);
    fallback = true;
  }
  return netlib_netm_configure_static(ctx, ifname, address, netmask, gateway, servers,
                                      kNoSearchDomain, kNoHostname, fallback);
}

bool prepare_station(void* ctx, const std::string& ifname, const Variant& config) {
  const std::string ssid = read_text(config, "wifi/ssid", "");
  const int freq = static_cast<int>(read_integer(config, "wifi/freq", 0));
  const std::string key = read_text(config, "wifi/key", "");
  const std::string auth = read_text(config, "wifi/wpa/auth", "");
  const std::string psk = read_text(config, "wifi/wpa/psk", "");
  const std::string ident = read_text(config, "wifi/wpa/ident", "");
  const std::string user = read_text(config, "wifi/wpa/username", "");
  const std::string pass = read_text(config, "wifi/wpa/password", "");
  const std::string bgscan = read_text(config, "experiments/bgscan", "");

  if (!netlib_netm_configure_interface(ctx, ifname)) {
    return false;
  }
  if (!netlib_netm_configure_sta(ctx, ifname, ssid, freq, key, auth, psk, ident, user, pass,
                                 bgscan)) {
    return false;
  }
  // Old addresses go; whether there were any does not matter.
  netlib_netm_flush_iface(ctx, ifname);
  if (read_integer(config, "dhcp/status", kDhcpEnabled) == kDhcpEnabled) {
    return netlib_netm_configure_dhcp(ctx, ifname);
  }
  return configure_static(ctx, ifname, config);
}

}  // namespace

// Runs no context check of its own: the functions it calls check and log.
bool netlib_netm_wireless_init_network(void* ctx, const std::string& ifname,
                                       const qira::variant::Variant& config, bool ap_mode) {
  stop_link_daemons(ifname);
  if (ap_mode) {
    return prepare_access_point(ctx, ifname, config);
  }
  return prepare_station(ctx, ifname, config);
}

}  // namespace qira::network
