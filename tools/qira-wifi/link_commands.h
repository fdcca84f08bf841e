// `qira-wifi connect IFNAME [--ap|--vendor]`, `disconnect IFNAME
// [--ap|--vendor]` and `recover IFNAME [--ap]`: one call of the module's
// netlib_netm_wireless_connect, netlib_netm_wireless_disconnect or
// netlib_netm_recover_scan_ap. They start and stop the machine's daemons
// (hostapd, dnsmasq, wpa_supplicant): meant for the camera or its VM, as root.
#ifndef QIRA_TOOLS_QIRA_WIFI_LINK_COMMANDS_H
#define QIRA_TOOLS_QIRA_WIFI_LINK_COMMANDS_H

#include <optional>
#include <string>

#include "module_session.h"
#include "network_action.h"
#include "options.h"

namespace qira::wifi {

// Which call, and with which flags.
enum class LinkAction { kConnect, kDisconnect, kRecover };

struct LinkRequest {
  LinkAction action = LinkAction::kConnect;
  std::string ifname;
  bool ap_mode = false;
  bool vendor_tools = false;
};

// The request for `action` on `ifname` with the --ap/--vendor flags of
// `options` (run_program has checked IFNAME, and refused --vendor to
// recover, which does not take it).
LinkRequest link_request(LinkAction action, const std::string& ifname,
                         const GlobalOptions& options);

// The command's name ("connect", "disconnect", "recover").
const char* link_action_name(LinkAction action);

// Calls the opened module's function for `request`. False, with `error` set,
// when the module lacks it.
bool run_link_action(ModuleSession& session, const LinkRequest& request, ActionResult& result,
                     std::string& error);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_LINK_COMMANDS_H
