// `qira-wifi hook IFNAME KEY=VALUE... [--address ADDR] [--netmask MASK]`:
// installs a hostapd configuration hook that applies the given overrides to
// the module's hostapd settings (KEY=VALUE sets or replaces a setting, KEY=
// with nothing after the '=' removes it), then lets the module write the
// setup access point's files and interface for IFNAME with
// netlib_netm_configure_ap (address "192.168.1.1"/"255.255.255.0" unless
// given). The hook is removed again afterwards. Meant for the camera or its
// VM, as root.
#ifndef QIRA_TOOLS_QIRA_WIFI_HOOK_COMMAND_H
#define QIRA_TOOLS_QIRA_WIFI_HOOK_COMMAND_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "module_session.h"
#include "network_action.h"

namespace qira::wifi {

inline constexpr const char* kDefaultApAddress = "192.168.1.1";
inline constexpr const char* kDefaultApNetmask = "255.255.255.0";

struct HookRequest {
  std::string ifname;
  std::string address;
  std::string netmask;
  // Settings to set (a value) or remove (std::nullopt), by hostapd option.
  std::map<std::string, std::optional<std::string>> overrides;
};

// The request of `args` (IFNAME, then at least one KEY=VALUE) and the
// address options, or the message refusing it: a word without '=', or a
// value the input table refuses (--address, --netmask, "hook KEY", "hook
// interface", "hook VALUE"). IFNAME is checked for every command by
// run_program.
std::optional<std::string> parse_hook_request(const std::vector<std::string>& args,
                                              const GlobalOptions& options, HookRequest& request);

// Applies `overrides` to `settings` (the hook's work, a pure function).
void apply_overrides(const std::map<std::string, std::optional<std::string>>& overrides,
                     std::map<std::string, std::string>& settings);

// Installs the hook with `request`'s overrides in the opened module, calls
// its netlib_netm_configure_ap and puts the previous hook back. False, with
// `error` set, when the module lacks a function.
bool configure_ap_with_hook(ModuleSession& session, const HookRequest& request,
                            ActionResult& result, std::string& error);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_HOOK_COMMAND_H
