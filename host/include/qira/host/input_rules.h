// The rules a value from outside (the command line, a configuration file,
// the device identity) must pass before it reaches a generated file or a
// command line. The module writes what it is given into its files, on
// purpose, and the daemons that read those files run as root: a line break
// in a network name would add a line of the writer's choosing to
// dnsmasq's or hostapd's file. The host and its programs check each value
// once, at the edge, with one of these rules. Pure functions.
#ifndef QIRA_HOST_INPUT_RULES_H
#define QIRA_HOST_INPUT_RULES_H

#include <optional>
#include <string>

namespace qira::host {

enum class InputRule {
  // What the kernel accepts as a network device name: 1 to 15 bytes, not
  // "." or "..", no '/', ':', NUL or white space.
  kInterfaceName,
  // One line of a file: no line feed, carriage return or NUL.
  kLineText,
  // A value written between double quotes: kLineText, and no double quote.
  kQuotedText,
  // The station file's passphrase, written unquoted as it is: kLineText, and
  // a double quote only as a pair around the whole value (wpa_supplicant's
  // form of a passphrase, as opposed to a 64-digit hexadecimal key).
  kPassphrase,
  // An IPv4 address in dotted-quad form, as inet_pton reads it.
  kIpv4Address,
  // kIpv4Address, or empty (no such address).
  kIpv4AddressOrEmpty,
  // An IPv4 netmask: inet_pton's dotted quad of contiguous ones, not 0.0.0.0.
  kIpv4Netmask,
  // A configuration option name: letters, digits and '_', at least one.
  kOptionName,
  // A hardware address as text: hexadecimal digits, ':' and '-' only.
  kHardwareAddress,
  // A control request: no control character (C0 or DEL).
  kControlRequest,
};

// std::nullopt when `value` passes `rule`, else why not, in a few words
// ("line breaks are not allowed"). The value itself is never quoted: it may
// be a passphrase.
std::optional<std::string> check_input_rule(InputRule rule, const std::string& value);

// The rule in words, for tables and documentation.
const char* input_rule_text(InputRule rule);

}  // namespace qira::host

#endif  // QIRA_HOST_INPUT_RULES_H
