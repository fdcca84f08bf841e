// Texts of the network manager's configuration files.
#include "netlib_netm/config_text.h"

#include "qira/utils/strings.h"

namespace qira::network::netm {

namespace {

// The DHCP range served by the setup access point.
constexpr const char* kDhcpRangeStart = "192.168.1.50";
constexpr const char* kDhcpRangeEnd = "192.168.1.150";
// Characters of the hardware address that the setup SSID leaves out.
constexpr std::string::size_type kHwaddrSkipped = 8;

}  // namespace

const char* const kSetupHostAlias = "config.zem";

key_algorithm classify_key_algorithm(const std::string& key) {
  if (key == "none") {
    return key_algorithm::open;
  }
  if (key == "wpa" || key == "wpa2" || key == "rsn") {
    return key_algorithm::wpa;
  }
  return key_algorithm::invalid;
}

std::string open_security_block() {
  return "\tauth_alg=OPEN\n\tkey_mgmt=NONE\n";
}

std::string wpa_protocol_line() {
  return "\tproto=WPA RSN\n";
}

std::string quoted_line(const std::string& name, const std::string& value) {
  return "\t" + name + "=\"" + value + "\"\n";
}

wpa_block_fault append_wpa_block(std::string& block, const std::string& auth,
                                 const std::string& psk, const std::string& ident,
                                 const std::string& user, const std::string& pass,
                                 const std::string& bgscan) {
  if (auth.empty()) {
    return wpa_block_fault::missing_auth;
  }
  if (auth == "psk") {
    block += "\tkey_mgmt=WPA-PSK\n";
    if (psk.empty()) {
      return wpa_block_fault::missing_psk;
    }
    // Deliberately unquoted and unchanged, unlike every other value of the
    // block: the stored setting goes into the file exactly as it is stored.
    block += "\tpsk=" + psk + "\n";
  } else if (auth == "eap") {
    block += "\tkey_mgmt=WPA-EAP\n";
    block += "\teap=TTLS PEAP\n";
    if (ident.empty()) {
      return wpa_block_fault::missing_ident;
    }
    block += quoted_line("anonymous_identity", ident);
    if (user.empty()) {
      return wpa_block_fault::missing_user;
    }
    block += quoted_line("identity", user);
    if (pass.empty()) {
      return wpa_block_fault::missing_pass;
    }
    block += quoted_line("password", pass);
    block += "\tphase2=\"auth=MSCHAPV2\"\n";
  } else {
    return wpa_block_fault::unknown_auth;
  }
  block += "\tpairwise=CCMP TKIP\n";
  block += "\tgroup=CCMP TKIP\n";
  block += "\tauth_alg=OPEN\n";
  if (!bgscan.empty()) {
    block += quoted_line("bgscan", bgscan);
  }
  return wpa_block_fault::none;
}

std::string station_file_text(const std::string& ssid, const std::string& security_block) {
  return qira::utils::format(
      "ctrl_interface=/var/run/wpa_supplicant\nupdate_config=1\nwowlan_triggers=any\nnetwork={\n"
      "\tssid=\"%s\"\n\tscan_ssid=1\n%s}\n",
      ssid.c_str(), security_block.c_str());
}

std::string setup_ssid(const std::string& name, const std::string& hwaddr) {
  return "Setup " + name + " (" + hwaddr.substr(kHwaddrSkipped) + ")";
}

std::string hostapd_text(const std::map<std::string, std::string>& settings) {
  std::string text;
  for (const auto& [key, value] : settings) {
    text += key + "=" + value + "\n";
  }
  return text;
}

std::string dnsmasq_text(const std::string& address, const std::string& ifname) {
  return qira::utils::format(
      "domain-needed\nbogus-priv\naddress=/#/%s\ninterface=%s\ndhcp-range=%s,%s,12h\n",
      address.c_str(), ifname.c_str(), kDhcpRangeStart, kDhcpRangeEnd);
}

bool hosts_has_setup_alias(const std::string& hosts_text) {
  return hosts_text.find(kSetupHostAlias) != std::string::npos;
}

std::string hosts_line(const std::string& address) {
  return address + "\t" + kSetupHostAlias + "\t\tconfig\n";
}

}  // namespace qira::network::netm
