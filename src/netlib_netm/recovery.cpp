// Putting the radio back into service after an aborted scan, and the
// application's hostapd configuration hook.
#include <csignal>
#include <string>

#include "frame/context.h"
#include "frame/module_log.h"
#include "netlib_netm/daemons.h"
#include "qira/network/netlib_netm.h"
#include "qira/utils/process.h"

namespace qira::network {

namespace {

using frame::kLogError;

// The network manager's context test (this file's copy): false, after one log
// line, when the context or its shared interface state is missing or not
// initialised.
bool check(void* ctx) {
  if (ctx == nullptr) {
    NETLIB_LOG(kLogError, 0, "library context is null");
    return false;
  }
  const qira::netlib::iface_state* state = frame::as_context(ctx)->iface;
  if (state == nullptr) {
    NETLIB_LOG(kLogError, 0, "library context is null");
    return false;
  }
  if (state->initialised == 0) {
    NETLIB_LOG(kLogError, 0, "library is not initialized");
    return false;
  }
  return true;
}

}  // namespace

// The context is neither used nor checked: the scan results path calls this
// with whatever context it has.
bool netlib_netm_recover_scan_ap(void* /*ctx*/, const std::string& ifname, bool ap_mode) {
  if (ap_mode) {
    // Restarted at once, without waiting for the old instance to exit.
    qira::utils::kill_process_by_name("hostapd", SIGTERM);
    if (!net_exec_hostapd()) {
      NETLIB_LOG(kLogError, 0, "Failed to restart hostapd");
      return false;
    }
    return true;
  }
  if (!net_exec_wpactrl_cmd(ifname, "REASSOCIATE")) {
    NETLIB_LOG(kLogError, 0, "Failed to do wpa_cli reassociate");
    return false;
  }
  return true;
}

// Not locked: installed from the application's thread and read by
// netlib_netm_configure_ap, which must not run at the same time.
hostapd_conf_handler netlib_netm_wireless_set_hostapd_conf_handler(void* ctx,
                                                                   hostapd_conf_handler handler) {
  if (!check(ctx)) {
    return nullptr;
  }
  qira::netlib::iface_state* state = frame::as_context(ctx)->iface;
  const hostapd_conf_handler previous = state->hostapd_conf_hook;
  state->hostapd_conf_hook = handler;
  return previous;
}

}  // namespace qira::network
