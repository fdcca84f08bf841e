// The netlib library context that the host creates and passes, as void*, as
// the first argument of every netlib function. Plug-in modules read it and
// fill their own slots; the layout is shared by the host and every module.
#ifndef QIRA_NETLIB_CONTEXT_H
#define QIRA_NETLIB_CONTEXT_H

#include <cstdint>
#include <map>
#include <string>

namespace qira::netlib {

// Hook that may edit the hostapd settings just before they are written.
using hostapd_conf_handler = void (*)(std::map<std::string, std::string>&);

// State shared by the interface functions of every module; owned by the host.
struct iface_state {
  std::uint8_t initialised;  // nonzero once the host has set the state up
  int ioctl_fd;              // socket for interface ioctls; modules never close it
  hostapd_conf_handler hostapd_conf_hook;
};

struct library_context {
  // Nonzero while the host itself calls a module's init or close routine.
  std::uint8_t internal_call;
  iface_state* iface;
  void* host_slots[2];    // the host's own, not interpreted by modules
  void* wireless_events;  // owned by the wireless events module
  void* wireless_scan;    // owned by the wireless scan module
};

}  // namespace qira::netlib

#endif  // QIRA_NETLIB_CONTEXT_H
