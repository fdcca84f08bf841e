// The wired part of netlib's network manager, provided by the host library and
// used by the wireless module. Every function takes the library context first
// (a qira::netlib::library_context*; its ioctl socket is used when it has one,
// else a private socket is opened for the call, so null is accepted) and
// returns true on success. Each failure is logged once, at level 3 with module
// name "qira_host" and the errno value. Every call acts in the network
// namespace of the calling thread and blocks only for the kernel requests.
// While a qira::host::NetlibRecorder (qira/host/seams.h) is installed, each
// function only records its call and returns the result chosen for it.
#ifndef QIRA_NETWORK_NETLIB_HOST_H
#define QIRA_NETWORK_NETLIB_HOST_H

#include <string>
#include <vector>

namespace qira::network {

// Sets IFF_UP on `ifname` (`up` true) or clears it (false). Flags that are
// already as asked are not written again.
bool netlib_iface_set_up(void* ctx, const std::string& ifname, bool up);

// Removes every IPv4 address of `ifname` (RTM_GETADDR dump, then RTM_DELADDR
// over NETLINK_ROUTE). The kernel drops the interface's routes, its default
// route included, together with its last address.
bool netlib_netm_flush_iface(void* ctx, const std::string& ifname);

// Starts the DHCP client for `ifname` after bringing the interface up, as a
// daemon through runDaemon: "/sbin/udhcpc" "-f" "-S" "-R" "-i" IFNAME "-s"
// "/etc/udhcpc/default.script". "-f" keeps udhcpc itself as the detached
// process, so that it is found (and stopped or told to release its lease) by
// the name "udhcpc"; "-S" logs to syslog; "-R" releases the lease on exit.
bool netlib_netm_configure_dhcp(void* ctx, const std::string& ifname);

// Prepares `ifname` for addressing: brings it up.
bool netlib_netm_configure_interface(void* ctx, const std::string& ifname);

// Brings `ifname` up, sets `address`/`netmask` on it (SIOCSIFADDR,
// SIOCSIFNETMASK) and, when `gateway` is not empty, replaces the default
// route by one through it (SIOCDELRT, SIOCADDRT). Invalid values fail the call
// before anything changes: the address must be a host address, the netmask
// contiguous and not 0.0.0.0, the gateway empty or a host address.
bool netlib_netm_configure_ip_addr(void* ctx, const std::string& ifname, const std::string& address,
                                   const std::string& netmask, const std::string& gateway);

// Static configuration: address, netmask and optional gateway as above, and
// the name servers (host addresses; one invalid server fails the call before
// anything changes) written to "/etc/resolv.conf", which is replaced, mode
// 0644, when the list is not empty and left alone when it is. `search_domain`,
// when not empty, becomes that file's first line "search DOMAIN"; `hostname`,
// when not empty, is set with sethostname(). `fallback` says the address is
// the device's fallback address chosen because the stored one was invalid: it
// is logged as such at level 6 ("Using the fallback address %s on %s").
bool netlib_netm_configure_static(void* ctx, const std::string& ifname, const std::string& address,
                                  const std::string& netmask, const std::string& gateway,
                                  const std::vector<std::string>& name_servers,
                                  const std::string& search_domain, const std::string& hostname,
                                  bool fallback);

// Like netlib_netm_configure_ip_addr, but an invalid address or netmask is
// replaced by the fallback "192.168.1.20"/"255.255.255.0", and an invalid
// gateway by none (no default route), each with a level-4 line, instead of
// failing.
bool netlib_netm_configure_static_fallback(void* ctx, const std::string& ifname,
                                           const std::string& address, const std::string& netmask,
                                           const std::string& gateway);

}  // namespace qira::network

#endif  // QIRA_NETWORK_NETLIB_HOST_H
