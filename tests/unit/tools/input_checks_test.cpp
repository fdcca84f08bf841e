// The checks of user-given values before they reach a generated file.
#include "input_checks.h"

#include <gtest/gtest.h>

#include <string>

namespace qira::wifi {
namespace {

const std::string kLineBreak = "line breaks are not allowed";

TEST(CheckSsid, PlainNamesPassForBothFiles) {
  EXPECT_EQ(check_ssid("Home 5G", TargetFile::kStation), std::nullopt);
  EXPECT_EQ(check_ssid("Home 5G", TargetFile::kAccessPoint), std::nullopt);
  EXPECT_EQ(check_ssid("", TargetFile::kStation), std::nullopt);
  EXPECT_EQ(check_ssid("caf\xc3\xa9 'x' \\ =#", TargetFile::kStation), std::nullopt);
}

TEST(CheckSsid, LineFeedIsRefused) {
  EXPECT_EQ(check_ssid("Home\n\tpsk=x", TargetFile::kStation),
            "invalid SSID: line breaks are not allowed");
  EXPECT_EQ(check_ssid("Home\nchannel=6", TargetFile::kAccessPoint),
            "invalid SSID: line breaks are not allowed");
}

TEST(CheckSsid, CarriageReturnIsRefused) {
  EXPECT_EQ(check_ssid("Home\r", TargetFile::kAccessPoint),
            "invalid SSID: line breaks are not allowed");
}

TEST(CheckSsid, NulIsRefused) {
  EXPECT_EQ(check_ssid(std::string("Ho\0me", 5), TargetFile::kStation),
            "invalid SSID: NUL bytes are not allowed");
  EXPECT_EQ(check_ssid(std::string("\0", 1), TargetFile::kAccessPoint),
            "invalid SSID: NUL bytes are not allowed");
}

TEST(CheckSsid, DoubleQuoteIsRefusedForTheStationFileOnly) {
  EXPECT_EQ(check_ssid("My \"Net\"", TargetFile::kStation),
            "invalid SSID: double quotes are not allowed in the station file");
  EXPECT_EQ(check_ssid("My \"Net\"", TargetFile::kAccessPoint), std::nullopt);
}

TEST(CheckSsid, LineBreakIsReportedBeforeAQuote) {
  EXPECT_EQ(check_ssid("\"\n", TargetFile::kStation), "invalid SSID: line breaks are not allowed");
}

TEST(CheckPassphrase, HexKeyAndQuotedPassphrasePass) {
  EXPECT_EQ(check_passphrase(std::string(64, 'a'), TargetFile::kStation), std::nullopt);
  EXPECT_EQ(check_passphrase("\"correct horse\"", TargetFile::kStation), std::nullopt);
  EXPECT_EQ(check_passphrase("\"\"", TargetFile::kStation), std::nullopt);
  EXPECT_EQ(check_passphrase("", TargetFile::kStation), std::nullopt);
}

TEST(CheckPassphrase, StrayQuotesAreRefusedForTheStationFile) {
  const std::string message =
      "invalid passphrase: a double quote is allowed in the station file only as a pair around "
      "the whole passphrase";
  EXPECT_EQ(check_passphrase("\"open", TargetFile::kStation), message);
  EXPECT_EQ(check_passphrase("close\"", TargetFile::kStation), message);
  EXPECT_EQ(check_passphrase("\"a\"b\"", TargetFile::kStation), message);
  EXPECT_EQ(check_passphrase("mid\"dle", TargetFile::kStation), message);
  EXPECT_EQ(check_passphrase("\"", TargetFile::kStation), message);
  EXPECT_EQ(check_passphrase("mid\"dle", TargetFile::kAccessPoint), std::nullopt);
}

TEST(CheckPassphrase, LineBreaksAndNulAreRefusedEverywhere) {
  EXPECT_EQ(check_passphrase("\"a\nb\"", TargetFile::kStation),
            "invalid passphrase: line breaks are not allowed");
  EXPECT_EQ(check_passphrase("a\r", TargetFile::kAccessPoint),
            "invalid passphrase: line breaks are not allowed");
  EXPECT_EQ(check_passphrase(std::string("a\0b", 3), TargetFile::kAccessPoint),
            "invalid passphrase: NUL bytes are not allowed");
}

TEST(CheckDeviceName, LineBreaksAndNulAreRefused) {
  EXPECT_EQ(check_device_name("wlan0"), std::nullopt);
  EXPECT_EQ(check_device_name("wlan0\ninterface=eth0"),
            "invalid device name: line breaks are not allowed");
  EXPECT_EQ(check_device_name("wlan0\r"), "invalid device name: line breaks are not allowed");
  EXPECT_EQ(check_device_name(std::string("wl\0an0", 6)),
            "invalid device name: NUL bytes are not allowed");
}

}  // namespace
}  // namespace qira::wifi
