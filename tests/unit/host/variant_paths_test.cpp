// Variant: GetKeyChain over "/" paths and FromKVP with each of its flags.
#include <gtest/gtest.h>

#include <string>

#include "qira/variant/variant.h"

namespace {

using namespace qira::variant;

Variant configuration() {
  Variant v;
  v["wifi"]["wpa"]["psk"] = "secret";
  v["wifi"]["channel"] = static_cast<unsigned short>(6);
  v["dhcp"]["enabled"] = true;
  v["name"] = "cam";
  return v;
}

TEST(VariantKeyChainTest, NestedPathFindsTheMember) {
  Variant v = configuration();
  Variant* psk = v.GetKeyChain(V_STRING, "wifi/wpa/psk", true);
  ASSERT_NE(nullptr, psk);
  EXPECT_EQ("secret", static_cast<const std::string&>(*psk));
  EXPECT_EQ(&v["wifi"]["wpa"]["psk"], psk);
  EXPECT_EQ(&v["name"], v.GetKeyChain(static_cast<VariantType>(4110), "name", true));
}

TEST(VariantKeyChainTest, MissingSegmentsGiveNullAndCreateNothing) {
  Variant v = configuration();
  Variant before = v;
  EXPECT_EQ(nullptr, v.GetKeyChain(V_STRING, "wifi/wpa/key", true));
  EXPECT_EQ(nullptr, v.GetKeyChain(V_STRING, "lan/ip", true));
  EXPECT_EQ(nullptr, v.GetKeyChain(V_STRING, "wifi/wpa/psk/deeper", true));
  EXPECT_EQ(nullptr, v.GetKeyChain(V_STRING, nullptr, true));
  EXPECT_TRUE(v == before);
}

TEST(VariantKeyChainTest, WrongTypeGivesNull) {
  Variant v = configuration();
  EXPECT_EQ(nullptr, v.GetKeyChain(V_UINT16, "wifi/wpa/psk", true));
  EXPECT_EQ(nullptr, v.GetKeyChain(V_STRING, "wifi/channel", true));
  EXPECT_EQ(nullptr, v.GetKeyChain(V_INT32, "dhcp/enabled", true));
}

TEST(VariantKeyChainTest, SameKindMatchesAnyIntegerWidthOnlyWhenTrue) {
  Variant v = configuration();
  EXPECT_EQ(&v["wifi"]["channel"], v.GetKeyChain(V_INT64, "wifi/channel", true));
  EXPECT_EQ(&v["wifi"]["channel"], v.GetKeyChain(V_UINT8, "wifi/channel", true));
  EXPECT_EQ(nullptr, v.GetKeyChain(V_INT64, "wifi/channel", false));
  EXPECT_EQ(&v["wifi"]["channel"], v.GetKeyChain(V_UINT16, "wifi/channel", false));
  EXPECT_EQ(&v["wifi"], v.GetKeyChain(static_cast<VariantType>(0x1011), "wifi", true));
  EXPECT_EQ(nullptr, v.GetKeyChain(static_cast<VariantType>(0x1011), "wifi", false));
}

TEST(VariantKeyChainTest, ConstVersionFindsTheSameMember) {
  const Variant v = configuration();
  const Variant* psk = v.GetKeyChain(V_STRING, "wifi/wpa/psk", true);
  ASSERT_NE(nullptr, psk);
  EXPECT_EQ("secret", static_cast<const std::string&>(*psk));
  EXPECT_EQ(nullptr, v.GetKeyChain(V_STRING, "wifi/none", true));
}

TEST(VariantKeyChainTest, EmptySegmentsAreSkipped) {
  Variant v = configuration();
  Variant* psk = &v["wifi"]["wpa"]["psk"];
  EXPECT_EQ(psk, v.GetKeyChain(V_STRING, "/wifi//wpa/psk/", true));
  EXPECT_EQ(&v, v.GetKeyChain(V_MAP, "", true));
  EXPECT_EQ(&v, v.GetKeyChain(V_MAP, "//", false));
}

TEST(VariantKeyChainTest, PathThroughAScalarGivesNull) {
  Variant v = configuration();
  EXPECT_EQ(nullptr, v.GetKeyChain(V_STRING, "name/first", true));
  Variant scalar;
  scalar = 1;
  EXPECT_EQ(nullptr, scalar.GetKeyChain(V_INT32, "a", true));
}

TEST(VariantKvpTest, WpaSupplicantEventArgumentsStayStrings) {
  Variant payload;
  ASSERT_TRUE(payload.FromKVP("id=0\nssid=\"cam\"\nauth_failures=2\nduration=20\nreason=WRONG_KEY",
                              true, false, false));
  EXPECT_EQ(5U, payload.Size());
  const char* keys[] = {"id", "ssid", "auth_failures", "duration", "reason"};
  const char* values[] = {"0", "\"cam\"", "2", "20", "WRONG_KEY"};
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(V_STRING, payload[keys[i]].Type()) << keys[i];
    EXPECT_EQ(values[i], static_cast<const std::string&>(payload[keys[i]])) << keys[i];
  }
  EXPECT_NE(nullptr, payload.GetKeyChain(static_cast<VariantType>(4110), "ssid", true));
}

TEST(VariantKvpTest, AddsToAnExistingMapAndKeepsEqualsInValues) {
  Variant v;
  v["eventName"] = "CTRL-EVENT-X";
  EXPECT_TRUE(v.FromKVP("a=b=c\nempty=\n", true, false, false));
  EXPECT_EQ(3U, v.Size());
  EXPECT_EQ("b=c", static_cast<const std::string&>(v["a"]));
  EXPECT_EQ("", static_cast<const std::string&>(v["empty"]));
  EXPECT_EQ("CTRL-EVENT-X", static_cast<const std::string&>(v["eventName"]));
}

TEST(VariantKvpTest, ScalarBecomesAMapFirst) {
  Variant v;
  v = 5;
  EXPECT_TRUE(v.FromKVP("k=v", true, false, false));
  EXPECT_EQ(V_MAP, v.Type());
  EXPECT_EQ(1U, v.Size());
}

TEST(VariantKvpTest, SkipInvalidTrueSkipsBadLinesAndReportsThem) {
  Variant v;
  EXPECT_FALSE(v.FromKVP("a=1\nnoequals\n=novalue\nb=2", true, false, false));
  EXPECT_EQ(2U, v.Size());
  EXPECT_EQ("1", static_cast<const std::string&>(v["a"]));
  EXPECT_EQ("2", static_cast<const std::string&>(v["b"]));
}

TEST(VariantKvpTest, SkipInvalidFalseStopsAtTheFirstBadLine) {
  Variant v;
  EXPECT_FALSE(v.FromKVP("a=1\nnoequals\nb=2", false, false, false));
  EXPECT_EQ(1U, v.Size());
  EXPECT_EQ("1", static_cast<const std::string&>(v["a"]));
  EXPECT_FALSE(v.HasKey("b"));
}

TEST(VariantKvpTest, BlankLinesAreNotInvalid) {
  Variant v;
  EXPECT_TRUE(v.FromKVP("\na=1\n\n", false, false, false));
  EXPECT_EQ(1U, v.Size());
}

TEST(VariantKvpTest, ParseNumbersMakesDecimalIntegers) {
  Variant v;
  ASSERT_TRUE(
      v.FromKVP("id=0\nneg=-12\nbig=18446744073709551615\nhex=0x10\nplus=+1\nword=20s\nminus=-",
                true, true, false));
  EXPECT_EQ(V_INT64, v["id"].Type());
  EXPECT_EQ(0, static_cast<long long>(v["id"]));
  EXPECT_EQ(V_INT64, v["neg"].Type());
  EXPECT_EQ(-12, static_cast<long long>(v["neg"]));
  EXPECT_EQ(V_UINT64, v["big"].Type());
  EXPECT_EQ(18446744073709551615ULL, static_cast<unsigned long long>(v["big"]));
  EXPECT_EQ("0x10", static_cast<const std::string&>(v["hex"]));
  EXPECT_EQ("+1", static_cast<const std::string&>(v["plus"]));
  EXPECT_EQ("20s", static_cast<const std::string&>(v["word"]));
  EXPECT_EQ("-", static_cast<const std::string&>(v["minus"]));
}

TEST(VariantKvpTest, NumbersOutOfRangeStayStrings) {
  Variant v;
  ASSERT_TRUE(v.FromKVP("huge=18446744073709551616\nlow=-9223372036854775809", true, true, false));
  EXPECT_EQ("18446744073709551616", static_cast<const std::string&>(v["huge"]));
  EXPECT_EQ("-9223372036854775809", static_cast<const std::string&>(v["low"]));
}

TEST(VariantKvpTest, KeyPathsCreateNestedMapsOnlyWhenTrue) {
  Variant nested;
  ASSERT_TRUE(nested.FromKVP("wifi/wpa/psk=secret\nwifi/ssid=cam", true, false, true));
  EXPECT_EQ(1U, nested.Size());
  const Variant* psk = nested.GetKeyChain(V_STRING, "wifi/wpa/psk", true);
  ASSERT_NE(nullptr, psk);
  EXPECT_EQ("secret", static_cast<const std::string&>(*psk));
  Variant literal;
  ASSERT_TRUE(literal.FromKVP("wifi/wpa/psk=secret", true, false, false));
  EXPECT_TRUE(literal.HasKey("wifi/wpa/psk"));
  EXPECT_EQ(nullptr, literal.GetKeyChain(V_STRING, "wifi/wpa/psk", true));
}

TEST(VariantKvpTest, KeyPathWithEmptySegmentIsInvalidAndAddsNothing) {
  Variant v;
  EXPECT_FALSE(v.FromKVP("a//b=1\n/c=2\nd/=3", true, false, true));
  EXPECT_EQ(V_MAP, v.Type());
  EXPECT_EQ(0U, v.Size());
}

}  // namespace
