// The daemons of the network manager: starting dnsmasq, hostapd and
// wpa_supplicant, and sending one control command to wpa_supplicant. Private
// to the module (hidden like every symbol not marked for export); each logs
// its own failures under its own name.
#ifndef QIRA_SRC_NETLIB_NETM_DAEMONS_H
#define QIRA_SRC_NETLIB_NETM_DAEMONS_H

#include <string>

namespace qira::network {

// Starts dnsmasq detached on its default configuration "/etc/dnsmasq.conf",
// which must exist. True when it was started.
bool net_exec_dnsmasq();
// Starts hostapd detached on "/etc/hostapd.conf", which must exist. Does not
// stop an older instance. True when it was started.
bool net_exec_hostapd();
// Runs "/bin/wpa_supplicant" on `ifname` with "/etc/wlan0.conf"; it
// daemonises and the call returns. True on a zero exit status.
bool net_exec_wpa_supplicant(const std::string& ifname);
// Sends `command` to the wpa_supplicant of `ifname` and requires a reply that
// begins with "OK". Blocks up to 5000 ms for each of the send and the reply.
bool net_exec_wpactrl_cmd(const std::string& ifname, const std::string& command);

}  // namespace qira::network

#endif  // QIRA_SRC_NETLIB_NETM_DAEMONS_H
