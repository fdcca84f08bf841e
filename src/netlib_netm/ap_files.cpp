// The setup access point's files: "/etc/hostapd.conf" from the board's
// settings (after the application's hook), "/etc/dnsmasq.conf" and the
// "config.zem" line of "/etc/hosts"; then the access-point interface.
#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "frame/context.h"
#include "frame/module_log.h"
#include "netlib_netm/board_rules.h"
#include "netlib_netm/config_text.h"
#include "netlib_netm/netm_shared.h"
#include "qira/network/netlib_netm.h"
#include "qira/utils/file.h"
#include "qira/variant/camera_info.h"

namespace qira::network {

namespace {

using frame::kLogError;

// Open modes of the host's files: 2 creates or replaces, 3 appends.
constexpr auto kCreateOrReplace = static_cast<qira::utils::FILE_OPEN_MODE>(2);
constexpr auto kAppend = static_cast<qira::utils::FILE_OPEN_MODE>(3);
constexpr unsigned int kDefaultPermissions = 0;

// The lines of this file carry the failing call's result in the errno slot,
// not errno. Every call that can fail here (CameraInfo::Init,
// File::Initialize, WriteString, ReadStringAll) answers a bool, so that
// result is false, which the slot shows as 0; the empty interface name has no
// call and shows 0 as well.
constexpr int kFailedCallResult = static_cast<int>(false);

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

// How writing one whole file ended.
enum class file_write { done, open_failed, write_failed };

// Opens `path` in `mode` and writes `text`; the file is closed on return.
file_write write_file(const std::string& path, qira::utils::FILE_OPEN_MODE mode,
                      const std::string& text) {
  qira::utils::File file;
  if (!file.Initialize(path, mode, kDefaultPermissions)) {
    return file_write::open_failed;
  }
  return file.WriteString(text) ? file_write::done : file_write::write_failed;
}

}  // namespace

bool netlib_netm_configure_ap(void* ctx, const std::string& ifname, const std::string& address,
                              std::string netmask) {
  if (!check(ctx)) {
    return false;
  }
  qira::variant::CameraInfo identity;
  if (!identity.Init()) {
    NETLIB_LOG(kLogError, kFailedCallResult, "Failed to initialize camera info manager");
    return false;
  }
  // A missing or ill-typed identity key ends the process inside the accessor.
  const std::uint64_t sysid = identity.sysid();
  const std::string ap_ifname = netm::setup_ap_interface(sysid, ifname);
  if (ap_ifname.empty()) {
    NETLIB_LOG(kLogError, kFailedCallResult, "invalid network interface");
    return false;
  }
  const std::string name = identity.name();
  const std::string hwaddr = identity.hwaddr();
  // Throws std::out_of_range for a hardware address under 8 characters; it
  // leaves this function uncaught, deliberately.
  const std::string ssid = netm::setup_ssid(name, hwaddr);

  std::map<std::string, std::string> settings = netm::setup_ap_settings(sysid, ap_ifname, ssid);
  if (qira::netlib::hostapd_conf_handler hook = frame::as_context(ctx)->iface->hostapd_conf_hook;
      hook != nullptr) {
    hook(settings);
  }

  // hostapd's file, then dnsmasq's; a failure keeps what was written before.
  const std::pair<const std::string*, std::string> config_files[] = {
      {&netm::kHostapdConfPath, netm::hostapd_text(settings)},
      {&netm::kDnsmasqConfPath, netm::dnsmasq_text(address, ap_ifname)},
  };
  for (const auto& [path, text] : config_files) {
    switch (write_file(*path, kCreateOrReplace, text)) {
      case file_write::done:
        break;
      case file_write::open_failed:
        NETLIB_LOG(kLogError, kFailedCallResult, "Failed to open file \"%s\"", path->c_str());
        return false;
      case file_write::write_failed:
        NETLIB_LOG(kLogError, kFailedCallResult, "Failed to write to file \"%s\"", path->c_str());
        return false;
    }
  }

  std::string hosts;
  if (!qira::utils::File::ReadStringAll(netm::kHostsPath, hosts)) {
    NETLIB_LOG(kLogError, kFailedCallResult, "Failed to read file \"%s\"", netm::kHostsPath);
    return false;
  }
  // An existing alias is kept even when it names another address.
  if (!netm::hosts_has_setup_alias(hosts)) {
    switch (write_file(netm::kHostsPath, kAppend, netm::hosts_line(address))) {
      case file_write::done:
        break;
      case file_write::open_failed:
        NETLIB_LOG(kLogError, kFailedCallResult, "Failed to open file \"%s\"", netm::kHostsPath);
        return false;
      case file_write::write_failed:
        NETLIB_LOG(kLogError, kFailedCallResult, "Failed to write to file \"%s\"",
                   netm::kHostsPath);
        return false;
    }
  }
  return netlib_netm_configure_ap_interface(ctx, ap_ifname, address, netmask);
}

}  // namespace qira::network
