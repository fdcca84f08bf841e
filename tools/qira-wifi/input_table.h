// Every value qira-wifi takes from its user (the command line, the
// configuration file of `apply`) that reaches a generated file, a command
// line or a control request, in one table: the value, where it goes, and the
// rule it must pass (qira/host/input_rules.h). Every command checks its
// values through this table, before it loads the module, so that a refused
// value writes no file and runs no program; the module itself writes what
// it is given. Pure functions.
#ifndef QIRA_TOOLS_QIRA_WIFI_INPUT_TABLE_H
#define QIRA_TOOLS_QIRA_WIFI_INPUT_TABLE_H

#include <optional>
#include <string>
#include <vector>

#include "qira/host/input_rules.h"
#include "qira/variant/variant.h"

namespace qira::wifi {

struct InputValue {
  const char* name;   // as the usage or the configuration names it
  const char* where;  // the file, command line or request it reaches
  qira::host::InputRule rule;
};

// Names of the table's rows that the commands check.
inline constexpr char kIfnameValue[] = "IFNAME";
inline constexpr char kSsidValue[] = "SSID";
inline constexpr char kKeyValue[] = "KEY";
inline constexpr char kAuthValue[] = "AUTH";
inline constexpr char kPskValue[] = "PSK";
inline constexpr char kAddressValue[] = "--address";
inline constexpr char kNetmaskValue[] = "--netmask";
inline constexpr char kHookKeyValue[] = "hook KEY";
inline constexpr char kHookValue[] = "hook VALUE";
inline constexpr char kWpaCommandValue[] = "wpa COMMAND";

const std::vector<InputValue>& input_table();

// The table's row called `name`, or null.
const InputValue* find_input(const std::string& name);

// `value` checked against the rule of the row called `name`: std::nullopt,
// or "invalid NAME: why". A name the table lacks is refused as well, so that
// a check can never pass by mistake.
std::optional<std::string> check_input(const std::string& name, const std::string& value);

// The value of hostapd option `key` set by `hook`: "interface" must be an
// interface name, any other option one line ("hook ssid" and the like have
// rows of their own when they need more).
std::optional<std::string> check_hook_setting(const std::string& key, const std::string& value);

// Every row named by a configuration key path ("wifi/ssid") whose key holds
// a string in `config`: the first refusal, or std::nullopt. A key that is
// absent, or not a string, gives the module's default, which passes.
std::optional<std::string> check_network_config(const qira::variant::Variant& config);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_INPUT_TABLE_H
