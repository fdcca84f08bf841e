// Names shared by the network manager's source files: the module-wide
// constant strings (hostapd setting keys and the access point's file paths),
// the fixed paths and interface names, and the board model numbers that
// select per-board behaviour.
#ifndef QIRA_SRC_NETLIB_NETM_NETM_SHARED_H
#define QIRA_SRC_NETLIB_NETM_NETM_SHARED_H

#include <cstdint>
#include <string>

namespace qira::network::netm {

// Module-wide constant strings, built once when the library is loaded and
// released when it is unloaded (objects of static storage duration of the
// shared library). The key strings name hostapd options in the settings map
// that the hostapd configuration hook receives.
extern const std::string kChannelKey;         // "channel"
extern const std::string kCtrlInterfaceKey;   // "ctrl_interface"
extern const std::string kDriverKey;          // "driver"
extern const std::string kVendorElementsKey;  // "vendor_elements"
extern const std::string kInterfaceKey;       // "interface"
extern const std::string kHwModeKey;          // "hw_mode"
extern const std::string kSsidKey;            // "ssid"
extern const std::string kHostapdConfPath;    // "/etc/hostapd.conf"
extern const std::string kDnsmasqConfPath;    // "/etc/dnsmasq.conf"

// wpa_supplicant's configuration file; the name is fixed whatever the
// interface.
inline constexpr const char* kStationConfPath = "/etc/wlan0.conf";
inline constexpr const char* kHostsPath = "/etc/hosts";
// The station interface, fixed on every board.
inline constexpr const char* kStationInterface = "wlan0";
inline constexpr const char* kIwProgram = "/bin/iw";

// Board model numbers ("sysid" of the device identity).
// 5 GHz setup access point on channel 149.
inline constexpr std::uint64_t kBoard5GhzFirst = 0x61C4;   // 25028
inline constexpr std::uint64_t kBoard5GhzSecond = 0x61C9;  // 25033
// 2.4 GHz boards.
inline constexpr std::uint64_t kBoard2GhzFirst = 0x62A0;  // 25248
// The Broadcom bcmdhd board: its driver provides the access-point interface
// on "wlan0", and leaving access-point mode switches its firmware.
inline constexpr std::uint64_t kBoardBcmdhd = 0x62B7;      // 25271
inline constexpr std::uint64_t kBoard2GhzSecond = 0x62E5;  // 25317

}  // namespace qira::network::netm

#endif  // QIRA_SRC_NETLIB_NETM_NETM_SHARED_H
