// The per-board choices of the setup access point, by table.
#include "netlib_netm/board_rules.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace qira::network::netm {
namespace {

using Settings = std::map<std::string, std::string>;

Settings common(const std::string& ifname, const std::string& channel) {
  return {{"ctrl_interface", "/var/run/hostapd"},
          {"interface", ifname},
          {"driver", "nl80211"},
          {"ssid", "S"},
          {"channel", channel}};
}

Settings with_hw_mode(Settings settings, const std::string& mode) {
  settings["hw_mode"] = mode;
  return settings;
}

TEST(SetupApInterface, BcmdhdBoardAlwaysUsesWlan0) {
  EXPECT_EQ(setup_ap_interface(25271, "wlan1"), "wlan0");
  EXPECT_EQ(setup_ap_interface(0x62B7, ""), "wlan0");
}

TEST(SetupApInterface, OtherBoardsKeepTheCallersName) {
  EXPECT_EQ(setup_ap_interface(25248, "ap0"), "ap0");
  EXPECT_EQ(setup_ap_interface(25028, ""), "");
  EXPECT_EQ(setup_ap_interface(0, "wlan1"), "wlan1");
}

TEST(SetupApInterface, ComparesAllSixtyFourBits) {
  EXPECT_EQ(setup_ap_interface(0x1000062B7ULL, "ap0"), "ap0");
}

TEST(SetupApSettings, FiveGhzBoardsUseModeAChannel149) {
  EXPECT_EQ(setup_ap_settings(25028, "ap0", "S"), with_hw_mode(common("ap0", "149"), "a"));
  EXPECT_EQ(setup_ap_settings(25033, "ap0", "S"), with_hw_mode(common("ap0", "149"), "a"));
}

TEST(SetupApSettings, TwoGhzBoardsUseModeGChannel1) {
  EXPECT_EQ(setup_ap_settings(25248, "ap0", "S"), with_hw_mode(common("ap0", "1"), "g"));
  EXPECT_EQ(setup_ap_settings(25271, "wlan0", "S"), with_hw_mode(common("wlan0", "1"), "g"));
  EXPECT_EQ(setup_ap_settings(25317, "ap0", "S"), with_hw_mode(common("ap0", "1"), "g"));
}

TEST(SetupApSettings, UnknownBoardHasNoHwModeAndChannel1) {
  EXPECT_EQ(setup_ap_settings(12345, "ap0", "S"), common("ap0", "1"));
  EXPECT_EQ(setup_ap_settings(0, "ap0", "S"), common("ap0", "1"));
}

TEST(SetupApSettings, HighBitsMakeAnUnknownBoard) {
  EXPECT_EQ(setup_ap_settings(0x1000061C4ULL, "ap0", "S"), common("ap0", "1"));
}

TEST(InterfaceBoard, KeepsTheLowThirtyTwoBits) {
  EXPECT_EQ(interface_board(0x62B7), 0x62B7u);
  EXPECT_EQ(interface_board(0xFFFFFFFF000062B7ULL), 0x62B7u);
}

TEST(StationInterfaceUp, TwoGhzBoardsUpOthersDown) {
  EXPECT_TRUE(station_interface_up(0x62A0));
  EXPECT_TRUE(station_interface_up(0x62B7));
  EXPECT_TRUE(station_interface_up(0x62E5));
  EXPECT_FALSE(station_interface_up(0x61C4));
  EXPECT_FALSE(station_interface_up(0x61C9));
  EXPECT_FALSE(station_interface_up(0));
}

TEST(AddsApInterface, EveryBoardButBcmdhd) {
  EXPECT_FALSE(adds_ap_interface(0x62B7));
  EXPECT_TRUE(adds_ap_interface(0x62A0));
  EXPECT_TRUE(adds_ap_interface(0x62E5));
  EXPECT_TRUE(adds_ap_interface(0x61C4));
  EXPECT_TRUE(adds_ap_interface(0));
}

}  // namespace
}  // namespace qira::network::netm
