// Per-board choices of the setup access point.
#include "netlib_netm/board_rules.h"

#include "netlib_netm/netm_shared.h"

namespace qira::network::netm {

namespace {

constexpr const char* kHostapdControlPath = "/var/run/hostapd";
constexpr const char* kHostapdDriver = "nl80211";
constexpr const char* kChannel5Ghz = "149";
constexpr const char* kChannel2Ghz = "1";
constexpr const char* kHwMode5Ghz = "a";
constexpr const char* kHwMode2Ghz = "g";

bool is_5ghz_board(std::uint64_t sysid) {
  return sysid == kBoard5GhzFirst || sysid == kBoard5GhzSecond;
}

bool is_2ghz_board(std::uint64_t sysid) {
  return sysid == kBoard2GhzFirst || sysid == kBoardBcmdhd || sysid == kBoard2GhzSecond;
}

}  // namespace

std::string setup_ap_interface(std::uint64_t sysid, const std::string& requested) {
  return sysid == kBoardBcmdhd ? std::string(kStationInterface) : requested;
}

std::map<std::string, std::string> setup_ap_settings(std::uint64_t sysid, const std::string& ifname,
                                                     const std::string& ssid) {
  std::map<std::string, std::string> settings;
  // The board's radio first, then the common settings, then the channel.
  std::string channel = kChannel2Ghz;
  if (is_5ghz_board(sysid)) {
    settings[kHwModeKey] = kHwMode5Ghz;
    channel = kChannel5Ghz;
  } else if (is_2ghz_board(sysid)) {
    settings[kHwModeKey] = kHwMode2Ghz;
  }
  settings[kCtrlInterfaceKey] = kHostapdControlPath;
  settings[kInterfaceKey] = ifname;
  settings[kDriverKey] = kHostapdDriver;
  settings[kSsidKey] = ssid;
  settings[kChannelKey] = channel;
  return settings;
}

std::uint32_t interface_board(std::uint64_t sysid) {
  return static_cast<std::uint32_t>(sysid);
}

bool station_interface_up(std::uint32_t board) {
  return board == kBoard2GhzFirst || board == kBoardBcmdhd || board == kBoard2GhzSecond;
}

bool adds_ap_interface(std::uint32_t board) {
  return board != kBoardBcmdhd;
}

}  // namespace qira::network::netm
