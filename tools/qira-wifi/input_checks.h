// Checks of the values qira-wifi takes from its user before they reach a
// generated configuration file. The module writes names and passphrases into
// its files as they are, on purpose; the program refuses what would break a
// file or inject lines into it, with a message saying why. Pure functions.
#ifndef QIRA_TOOLS_QIRA_WIFI_INPUT_CHECKS_H
#define QIRA_TOOLS_QIRA_WIFI_INPUT_CHECKS_H

#include <optional>
#include <string>

namespace qira::wifi {

// The file a value is written to.
enum class TargetFile {
  kStation,      // /etc/wlan0.conf: the SSID is written between double quotes
  kAccessPoint,  // /etc/hostapd.conf, /etc/dnsmasq.conf: one key=value per line
};

// Each returns std::nullopt when the value may be written, else the message.
// Every file refuses a line break ("\n", "\r") and a NUL byte (a value given
// in a configuration file may hold one; argv cannot). The station file also
// refuses a double quote in the SSID, which would end the quoted value early.
std::optional<std::string> check_ssid(const std::string& ssid, TargetFile file);
// The station file writes the passphrase unquoted, as it is given: a quote is
// allowed only as a pair around the whole value (wpa_supplicant's form of a
// passphrase, as opposed to a 64-digit hexadecimal key).
std::optional<std::string> check_passphrase(const std::string& passphrase, TargetFile file);
// A network device name (written into the access point's files).
std::optional<std::string> check_device_name(const std::string& name);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_INPUT_CHECKS_H
