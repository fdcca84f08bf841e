// Network manager: configuration files and mode switching of the radio.
#ifndef QIRA_NETWORK_NETLIB_NETM_H
#define QIRA_NETWORK_NETLIB_NETM_H

#include <map>
#include <string>

#include "qira/network/export.h"
#include "qira/variant/variant.h"

namespace qira::network {

// Hook that may edit the hostapd settings before "/etc/hostapd.conf" is written.
using hostapd_conf_handler = void (*)(std::map<std::string, std::string>&);

// Writes "/etc/wlan0.conf" for one network through a temporary file in "/tmp".
QIRA_WIRELESS_API bool netlib_netm_configure_sta(void* ctx, const std::string& ifname,
                                                 const std::string& ssid, int freq,
                                                 const std::string& key, const std::string& auth,
                                                 const std::string& psk, const std::string& ident,
                                                 const std::string& user, const std::string& pass,
                                                 const std::string& bgscan);
// Appends the WPA lines of a network block to `block`.
QIRA_WIRELESS_API bool netlib_netm_configure_wifi_wpa(
    void* ctx, const std::string& ifname, std::string& block, const std::string& auth,
    const std::string& psk, const std::string& ident, const std::string& user,
    const std::string& pass, const std::string& bgscan);
// Writes the setup access point's hostapd, dnsmasq and hosts files, then
// prepares its interface with `address`/`netmask`. May throw std::out_of_range
// for a hardware address shorter than 8 characters.
QIRA_WIRELESS_API bool netlib_netm_configure_ap(void* ctx, const std::string& ifname,
                                                const std::string& address, std::string netmask);
// Creates the access-point interface and configures its address.
QIRA_WIRELESS_API bool netlib_netm_configure_ap_interface(void* ctx, const std::string& ifname,
                                                          const std::string& address,
                                                          const std::string& netmask);
// Brings the link up: setup access point, vendor tools or station.
QIRA_WIRELESS_API bool netlib_netm_wireless_connect(void* ctx, const std::string& ifname,
                                                    bool ap_mode, bool use_vendor_tools);
// Brings the link down, in the same three modes.
QIRA_WIRELESS_API bool netlib_netm_wireless_disconnect(void* ctx, const std::string& ifname,
                                                       bool ap_mode, bool use_vendor_tools);
// Stops the link's daemons and prepares station or access-point mode from the
// stored configuration.
QIRA_WIRELESS_API bool netlib_netm_wireless_init_network(void* ctx, const std::string& ifname,
                                                         const qira::variant::Variant& config,
                                                         bool ap_mode);
// Puts the radio back into service after an aborted scan. Does not use `ctx`.
QIRA_WIRELESS_API bool netlib_netm_recover_scan_ap(void* ctx, const std::string& ifname,
                                                   bool ap_mode);
// Installs `handler` (null removes it); returns the previous one.
QIRA_WIRELESS_API hostapd_conf_handler
netlib_netm_wireless_set_hostapd_conf_handler(void* ctx, hostapd_conf_handler handler);

}  // namespace qira::network

#endif  // QIRA_NETWORK_NETLIB_NETM_H
