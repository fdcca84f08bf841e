// Texts of the network manager's configuration files, built from values
// alone: the wpa_supplicant station file and its security block, the hostapd
// settings file, the dnsmasq file, the "/etc/hosts" line and the setup SSID.
// No I/O here; the entry points write what these functions return.
#ifndef QIRA_SRC_NETLIB_NETM_CONFIG_TEXT_H
#define QIRA_SRC_NETLIB_NETM_CONFIG_TEXT_H

#include <map>
#include <string>

namespace qira::network::netm {

// ---- Station file ("/etc/wlan0.conf") ---------------------------------------

// Security kinds selected by the station's key algorithm setting. The
// comparison is exact and case-sensitive: "WPA2" is invalid.
enum class key_algorithm {
  open,     // "none"
  wpa,      // "wpa", "wpa2" or "rsn", all alike
  invalid,  // anything else
};
key_algorithm classify_key_algorithm(const std::string& key);

// The whole block of an open network: "\tauth_alg=OPEN\n\tkey_mgmt=NONE\n".
std::string open_security_block();
// The first line of every WPA block: "\tproto=WPA RSN\n".
std::string wpa_protocol_line();

// The first WPA setting found missing or wrong, in the order they are checked.
enum class wpa_block_fault {
  none,
  missing_auth,   // empty auth
  missing_psk,    // auth "psk" with an empty psk
  missing_ident,  // auth "eap" with an empty anonymous identity
  missing_user,   // auth "eap" with an empty user name
  missing_pass,   // auth "eap" with an empty password
  unknown_auth,   // auth neither "psk" nor "eap"
};

// Appends the WPA lines that follow the proto line to `block`, checking the
// settings on the way; at the first fault it stops and returns it, leaving
// the lines already appended in `block`. The pre-shared key is written
// without quotes and unchanged; every other value is quoted, never escaped.
wpa_block_fault append_wpa_block(std::string& block, const std::string& auth,
                                 const std::string& psk, const std::string& ident,
                                 const std::string& user, const std::string& pass,
                                 const std::string& bgscan);

// "\t" NAME "=\"" VALUE "\"\n", the value unescaped.
std::string quoted_line(const std::string& name, const std::string& value);

// The station file for `ssid` (written between quotes, unescaped) with its
// security block. The text is printf-formatted, so it ends at an embedded NUL.
std::string station_file_text(const std::string& ssid, const std::string& security_block);

// ---- Setup access point -------------------------------------------------------

// "Setup " NAME " (" HWADDR-from-index-8 ")". Throws std::out_of_range for a
// hardware address shorter than 8 characters: deliberately not caught by the
// access point's configuration, whose callers rely on seeing it.
std::string setup_ssid(const std::string& name, const std::string& hwaddr);

// One "key=value\n" line per setting, in the map's (byte-wise) key order.
std::string hostapd_text(const std::map<std::string, std::string>& settings);

// The dnsmasq file: every name resolves to `address`; leases on `ifname` in
// 192.168.1.50-192.168.1.150 for 12 hours.
std::string dnsmasq_text(const std::string& address, const std::string& ifname);

// The host alias of the setup pages, "config.zem".
extern const char* const kSetupHostAlias;
// Whether "/etc/hosts" text already names the alias anywhere.
bool hosts_has_setup_alias(const std::string& hosts_text);
// The line appended to "/etc/hosts": ADDRESS "\tconfig.zem\t\tconfig\n".
std::string hosts_line(const std::string& address);

}  // namespace qira::network::netm

#endif  // QIRA_SRC_NETLIB_NETM_CONFIG_TEXT_H
