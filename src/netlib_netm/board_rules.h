// Per-board choices of the setup access point, keyed on the device's model
// number ("sysid"): the interface it runs on, its hostapd settings, and how
// its interface is prepared. Pure functions of their arguments.
#ifndef QIRA_SRC_NETLIB_NETM_BOARD_RULES_H
#define QIRA_SRC_NETLIB_NETM_BOARD_RULES_H

#include <cstdint>
#include <map>
#include <string>

namespace qira::network::netm {

// The interface of the setup access point: "wlan0" on the bcmdhd board
// (whose driver serves the access point there), else the caller's name.
// Compares all 64 bits of `sysid`.
std::string setup_ap_interface(std::uint64_t sysid, const std::string& requested);

// The hostapd settings before the hook runs: "hw_mode" ("a" on the 5 GHz
// boards, "g" on the 2.4 GHz ones, absent on any other board, deliberately),
// "ctrl_interface", "interface", "driver", "ssid" and "channel" ("149" on the
// 5 GHz boards, else "1"). Compares all 64 bits of `sysid`.
std::map<std::string, std::string> setup_ap_settings(std::uint64_t sysid, const std::string& ifname,
                                                     const std::string& ssid);

// The access-point interface preparation compares only the low 32 bits of
// the model number.
std::uint32_t interface_board(std::uint64_t sysid);
// Whether "wlan0" is set up (true) or down (false) while the access-point
// interface is prepared on `board`.
bool station_interface_up(std::uint32_t board);
// Whether the access-point interface is created with iw on `board` (every
// board but the bcmdhd one).
bool adds_ap_interface(std::uint32_t board);

}  // namespace qira::network::netm

#endif  // QIRA_SRC_NETLIB_NETM_BOARD_RULES_H
