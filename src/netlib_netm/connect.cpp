// Bringing the wireless link up and down in its three uses: the setup access
// point (dnsmasq and hostapd), the vendor tools, and station mode
// (wpa_supplicant). Nothing here waits for a stopped process.
#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

#include "frame/context.h"
#include "frame/module_log.h"
#include "netlib_netm/daemons.h"
#include "netlib_netm/firmware_switch.h"
#include "netlib_netm/netm_shared.h"
#include "netlib_scan/scan_state.h"
#include "qira/network/netlib_host.h"
#include "qira/network/netlib_netm.h"
#include "qira/utils/process.h"
#include "qira/variant/camera_info.h"

namespace qira::network {

namespace {

using frame::kLogError;

// Every stop of this file uses this signal and no harder one.
constexpr int kTerminate = SIGTERM;
constexpr const char* kVendorSetupScript = "/bin/wifi_setup.sh";
constexpr const char* kVendorTool = "/bin/wl";

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

void stop_process(const char* name) {
  qira::utils::kill_process_by_name(name, kTerminate);
}

// Keeps an aborted scan from restarting hostapd once the access point is
// gone. The scan module fills its slot only when the host initialised it; a
// host that runs the network manager without the scan module leaves the slot
// null, so the write is guarded rather than done unconditionally.
void disable_scan_recovery(void* ctx) {
  auto* scan = static_cast<scan::scan_state*>(frame::as_context(ctx)->wireless_scan);
  if (scan != nullptr) {
    scan->recovery_enabled = 0;
  }
}

}  // namespace

bool netlib_netm_wireless_connect(void* ctx, const std::string& ifname, bool ap_mode,
                                  bool use_vendor_tools) {
  if (!check(ctx)) {
    return false;
  }
  if (ifname.empty()) {
    NETLIB_LOG(kLogError, 0, "invalid network interface");
    return false;
  }
  if (ap_mode) {
    if (!net_exec_dnsmasq()) {
      return false;
    }
    // dnsmasq stays running when hostapd cannot start; nothing is undone.
    if (!net_exec_hostapd()) {
      return false;
    }
    // The setup web server gives way to the access point's own.
    stop_process("lighttpd");
    return true;
  }
  if (use_vendor_tools) {
    if (qira::utils::sysExecSimple(kVendorSetupScript) != 0) {
      NETLIB_LOG(kLogError, 0, "Failed to run wifi_setup.sh");
      return false;
    }
    return true;
  }
  // At most one wpa_supplicant may hold the control socket.
  stop_process("wpa_supplicant");
  if (!net_exec_wpa_supplicant(ifname)) {
    NETLIB_LOG(kLogError, 0, "Failed to execute wpa_supplicant");
    return false;
  }
  return net_exec_wpactrl_cmd(ifname, "RECONNECT");
}

bool netlib_netm_wireless_disconnect(void* ctx, const std::string& ifname, bool ap_mode,
                                     bool use_vendor_tools) {
  if (!check(ctx)) {
    return false;
  }
  if (ifname.empty()) {
    NETLIB_LOG(kLogError, 0, "invalid network interface");
    return false;
  }
  if (ap_mode) {
    qira::variant::CameraInfo identity;
    if (!identity.Init()) {
      NETLIB_LOG(kLogError, 0, "Failed to initialize camera info manager");
      return false;
    }
    // A missing or ill-typed "sysid" ends the process inside the accessor.
    if (identity.sysid() == netm::kBoardBcmdhd) {
      disable_scan_recovery(ctx);
    }
    stop_process("hostapd");
    stop_process("dnsmasq");
    stop_process("udhcpc");
    const std::vector<std::string> delete_args = {"dev", ifname, "del"};
    qira::utils::sysExecSimple(netm::kIwProgram, delete_args);

    // Read again rather than reusing the first answer.
    if (identity.sysid() != netm::kBoardBcmdhd) {
      return true;
    }
    // "wlan0" is left down on every path: bringing it up on the new firmware
    // is the caller's business.
    if (!netlib_iface_set_up(ctx, netm::kStationInterface, false)) {
      NETLIB_LOG(kLogError, 0, "Failed to change interface \"%s\" state", netm::kStationInterface);
      return false;
    }
    const netm::firmware_switch_result firmware = netm::write_station_firmware_path();
    switch (firmware.result) {
      case netm::firmware_switch_result::open_failed:
        NETLIB_LOG(kLogError, firmware.error_number, "Failed to open proc entry '%s'",
                   netm::kFirmwareParameterPath);
        return false;
      case netm::firmware_switch_result::short_write:
        // The message calls the descriptor number an entry, in hexadecimal.
        NETLIB_LOG(kLogError, firmware.error_number, "Failed to write '%s' to proc entry 0x%x",
                   netm::kStationFirmwarePath, static_cast<unsigned int>(firmware.fd));
        return false;
      case netm::firmware_switch_result::written:
        break;
    }
    return true;
  }
  if (use_vendor_tools) {
    // Results ignored: the radio is released whether or not the tool ran.
    qira::utils::sysExecSimple(kVendorTool, {"ap", "0"});
    qira::utils::sysExecSimple(kVendorTool, {"disassoc"});
    return true;
  }
  return net_exec_wpactrl_cmd(ifname, "DISCONNECT");
}

}  // namespace qira::network
