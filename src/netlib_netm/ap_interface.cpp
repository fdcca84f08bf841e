// The setup access point's network interface: a stale copy removed, "wlan0"
// set up or down for the board, the interface created on the first radio
// with iw (unless the board's driver provides it), power saving switched off
// on both interfaces, and its IPv4 address configured through the host.
#include <cstdint>
#include <string>
#include <vector>

#include "frame/context.h"
#include "frame/module_log.h"
#include "netlib_netm/board_rules.h"
#include "netlib_netm/netm_shared.h"
#include "qira/network/netlib_host.h"
#include "qira/network/netlib_netm.h"
#include "qira/utils/process.h"
#include "qira/utils/strings.h"
#include "qira/variant/camera_info.h"

namespace qira::network {

namespace {

using frame::kLogError;

// The radio the access-point interface is created on.
constexpr const char* kFirstRadio = "phy0";
// The interface named by the first power-save command, whatever the caller's
// name for the access-point interface.
constexpr const char* kPowerSaveApInterface = "ap0";
// The access point routes nothing: its address has no gateway.
constexpr const char* kNoGateway = "";

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

// Arguments of "/bin/iw dev IFNAME set power_save off".
void power_save_off_arguments(std::vector<std::string>& args, const std::string& ifname) {
  args = {"dev", ifname, "set", "power_save", "off"};
}

}  // namespace

bool netlib_netm_configure_ap_interface(void* ctx, const std::string& ifname,
                                        const std::string& address, const std::string& netmask) {
  if (!check(ctx)) {
    return false;
  }
  if (ifname.empty()) {
    NETLIB_LOG(kLogError, 0, "invalid network interface");
    return false;
  }
  qira::variant::CameraInfo identity;
  if (!identity.Init()) {
    NETLIB_LOG(kLogError, 0, "Failed to initialize camera info manager");
    return false;
  }
  // A missing or ill-typed "sysid" ends the process inside the accessor.
  const std::uint32_t board = netm::interface_board(identity.sysid());
  const bool station_up = netm::station_interface_up(board);

  // One argument vector, emptied and refilled for each command.
  std::vector<std::string> args;
  // Removes a stale copy; the interface usually does not exist yet, so the
  // result does not matter.
  args = {"dev", ifname, "del"};
  qira::utils::sysExecSimple(netm::kIwProgram, args);

  if (!netlib_iface_set_up(ctx, netm::kStationInterface, station_up)) {
    NETLIB_LOG(kLogError, 0, "Failed to change interface \"%s\" state", netm::kStationInterface);
    return false;
  }
  if (netm::adds_ap_interface(board)) {
    args = {"phy", kFirstRadio, "interface", "add", ifname, "type", "__ap"};
    if (qira::utils::sysExecSimple(netm::kIwProgram, args) != 0) {
      NETLIB_LOG(kLogError, 0, "Failed to run iw tool");
      return false;
    }
  }
  // Both commands switch power saving off; the messages' "turn on" wording
  // is the log's established text, kept as it is on purpose.
  power_save_off_arguments(args, kPowerSaveApInterface);
  if (qira::utils::sysExecSimple(netm::kIwProgram, args) != 0) {
    NETLIB_LOG(kLogError, 0, "Cannot turn on ap0 interface power save state");
  }
  power_save_off_arguments(args, netm::kStationInterface);
  if (qira::utils::sysExecSimple(netm::kIwProgram, args) != 0) {
    NETLIB_LOG(kLogError, 0, "Cannot turn on wlan0 interface power save state");
  }

  if (qira::utils::ipv4_address_valid(address, true, false) &&
      qira::utils::ipv4_netmask_valid(netmask, true)) {
    return netlib_netm_configure_ip_addr(ctx, ifname, address, netmask, kNoGateway);
  }
  // The host decides what invalid values become.
  return netlib_netm_configure_static_fallback(ctx, ifname, address, netmask, kNoGateway);
}

}  // namespace qira::network
