// Interface module: lifecycle and wireless-extension queries of one interface.
//
// Every query takes the library context and the interface name, writes its
// output only on success and returns true on success. Failures are logged
// through the host ("library context is null", "library is not initialized",
// "netlib: ioctl(%X) failed"). Each query issues one or two ioctls on the
// context's ioctl socket and does not block beyond them.
#ifndef QIRA_NETWORK_NETLIB_IFACE_H
#define QIRA_NETWORK_NETLIB_IFACE_H

#include <string>

#include "qira/network/export.h"

namespace qira::network {

// Clears the hostapd configuration hook of the shared interface state.
QIRA_WIRELESS_API bool netlib_libiface_wireless_init(void* ctx);
// Nothing to release: true whatever the context.
QIRA_WIRELESS_API bool netlib_libiface_wireless_close(void* ctx);

// Network name: the driver's bytes up to the first NUL.
QIRA_WIRELESS_API bool netlib_iface_iw_get_essid(void* ctx, const std::string& ifname,
                                                 std::string& essid);
// Access point address, "xx:xx:xx:xx:xx:xx" in lower case.
QIRA_WIRELESS_API bool netlib_iface_iw_get_bssid(void* ctx, const std::string& ifname,
                                                 std::string& bssid);
// Frequency in MHz. A driver that reports a channel is answered from its
// range table; a channel missing there succeeds without writing `freq`.
QIRA_WIRELESS_API bool netlib_iface_iw_get_freq(void* ctx, const std::string& ifname, int& freq);
// Channel number.
QIRA_WIRELESS_API bool netlib_iface_iw_get_channel(void* ctx, const std::string& ifname,
                                                   int& channel);
// Bit rate in Mbit/s, truncated.
QIRA_WIRELESS_API bool netlib_iface_iw_get_bitrate(void* ctx, const std::string& ifname,
                                                   int& bitrate);
// Transmit power as the driver reports it, unconverted.
QIRA_WIRELESS_API bool netlib_iface_iw_get_txpower(void* ctx, const std::string& ifname,
                                                   int& txpower);
// Link quality (0 to 255).
QIRA_WIRELESS_API bool netlib_iface_iw_get_quality(void* ctx, const std::string& ifname,
                                                   int& quality);
// Maximum link quality of the driver's range record.
QIRA_WIRELESS_API bool netlib_iface_iw_get_quality_max(void* ctx, const std::string& ifname,
                                                       int& quality_max);
// Signal level: dBm (negative) when the driver flags it so, else its raw byte.
QIRA_WIRELESS_API bool netlib_iface_iw_get_signal_level(void* ctx, const std::string& ifname,
                                                        int& level);
// Always -96 and true; looks at neither the context nor the interface.
QIRA_WIRELESS_API bool netlib_iface_iw_get_noise_level(void* ctx, const std::string& ifname,
                                                       int& level);
// Operating mode, the Linux IW_MODE_* number.
QIRA_WIRELESS_API bool netlib_iface_iw_get_wireless_mode(void* ctx, const std::string& ifname,
                                                         unsigned char& mode);

}  // namespace qira::network

#endif  // QIRA_NETWORK_NETLIB_IFACE_H
