// `qira-wifi apply IFNAME CONFIG.json [--ap]`: the stored network
// configuration (a JSON object, e.g. {"wifi":{"ssid":...},"dhcp":{...}})
// turned into the configuration Variant and handed to the module's
// netlib_netm_wireless_init_network, which stops the link's daemons and
// prepares station mode (or, with --ap, the setup access point). Connect
// afterwards. Meant for the camera or its VM, as root.
#ifndef QIRA_TOOLS_QIRA_WIFI_APPLY_COMMAND_H
#define QIRA_TOOLS_QIRA_WIFI_APPLY_COMMAND_H

#include <optional>
#include <string>

#include "module_session.h"
#include "network_action.h"
#include "qira/variant/variant.h"

namespace qira::wifi {

// Parses `text` (strict JSON) into `config` and checks, in every mode, each
// value the module reads from it against the input table (input_table.h).
// std::nullopt, or the message refusing the configuration.
std::optional<std::string> parse_network_config(const std::string& text,
                                                qira::variant::Variant& config);

// Calls the opened module's netlib_netm_wireless_init_network. False, with
// `error` set, when the module lacks it.
bool apply_network_config(ModuleSession& session, const std::string& ifname,
                          const qira::variant::Variant& config, bool ap_mode, ActionResult& result,
                          std::string& error);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_APPLY_COMMAND_H
