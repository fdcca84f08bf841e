// Variant JSON text and the strict JSON parser.
#include <gtest/gtest.h>

#include <string>

#include "qira/variant/variant.h"

namespace {

using namespace qira::variant;

TEST(VariantJsonTest, ToJsonWritesMapsInKeyOrder) {
  Variant v;
  v["sysid"] = 3054U;
  v["name"] = "Cam \"1\"\n";
  v["list"].Append(Variant());
  v["list"].Append(Variant()) = true;
  v["neg"] = -3;
  v["ratio"] = 0.5;
  v["empty"].IsArray(false);
  EXPECT_EQ(
      "{\"empty\":{},\"list\":[null,true],\"name\":\"Cam \\\"1\\\"\\n\",\"neg\":-3,"
      "\"ratio\":0.5,\"sysid\":3054}",
      v.ToJSON());
}

TEST(VariantJsonTest, ToJsonPrettyPrintsWithIndent) {
  Variant v;
  v["a"].Append(Variant()) = 1;
  v["b"] = "x";
  EXPECT_EQ("{\n  \"a\": [\n    1\n  ],\n  \"b\": \"x\"\n}", v.ToJSON(2));
}

TEST(VariantJsonTest, ToJsonEscapesControlCharacters) {
  Variant v;
  v = std::string("\x01\t\\/", 4);
  EXPECT_EQ("\"\\u0001\\t\\\\/\"", v.ToJSON());
  Variant d;
  d = 2.0;
  EXPECT_EQ("2.0", d.ToJSON());
}

TEST(VariantJsonTest, RoundTripKeepsValuesAndTypes) {
  Variant v;
  v["hwaddr"] = "00:11:22:33:44:55";
  v["sysid"] = 3054LL;
  v["big"] = 18446744073709551615ULL;
  v["flag"] = false;
  v["nested"]["list"].Append(Variant()) = "é";
  v["pi"] = 3.25;
  Variant back;
  std::string error;
  ASSERT_TRUE(Variant::FromJSON(v.ToJSON(), back, &error)) << error;
  EXPECT_TRUE(back == v);
  EXPECT_EQ(V_INT64, back["sysid"].Type());
  EXPECT_EQ(V_UINT64, back["big"].Type());
  EXPECT_EQ(V_DOUBLE, back["pi"].Type());
  ASSERT_TRUE(Variant::FromJSON(v.ToJSON(4), back, &error)) << error;
  EXPECT_TRUE(back == v);
}

TEST(VariantJsonTest, ParsesEscapesIncludingSurrogatePairs) {
  Variant v;
  ASSERT_TRUE(Variant::FromJSON(R"("a\"b\\c\/d\b\f\n\r\t\u0041\u00e9\u20ac\ud83d\ude00")", v));
  EXPECT_EQ("a\"b\\c/d\b\f\n\r\tA\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80",
            static_cast<const std::string&>(v));
}

TEST(VariantJsonTest, ParsesNumbers) {
  Variant v;
  ASSERT_TRUE(
      Variant::FromJSON("[0, -0, 12, -9223372036854775808, 9223372036854775808, 1.5e2, "
                        "-2E-1, 100000000000000000000]",
                        v));
  const Variant::Array& a = *v.AsArray();
  ASSERT_EQ(8U, a.size());
  EXPECT_EQ(V_INT64, a[0].Type());
  EXPECT_EQ(0, static_cast<long long>(a[1]));
  EXPECT_EQ(12, static_cast<long long>(a[2]));
  EXPECT_EQ(V_INT64, a[3].Type());
  EXPECT_EQ(-9223372036854775807LL - 1, static_cast<long long>(a[3]));
  EXPECT_EQ(V_UINT64, a[4].Type());
  EXPECT_EQ(9223372036854775808ULL, static_cast<unsigned long long>(a[4]));
  EXPECT_EQ(V_DOUBLE, a[5].Type());
  EXPECT_EQ(150.0, a[5].AsDouble());
  EXPECT_EQ(-0.2, a[6].AsDouble());
  EXPECT_EQ(V_DOUBLE, a[7].Type());
  EXPECT_EQ(1e20, a[7].AsDouble());
}

TEST(VariantJsonTest, ParsesNestingAndWhitespace) {
  Variant v;
  ASSERT_TRUE(Variant::FromJSON(" \t\r\n{ \"a\" : { \"b\" : [ true , false , null ] } }\n", v));
  const Variant* b = v.GetKeyChain(V_ARRAY, "a/b", true);
  ASSERT_NE(nullptr, b);
  ASSERT_EQ(3U, b->Size());
  EXPECT_EQ(V_BOOL, (*b->AsArray())[0].Type());
  EXPECT_TRUE((*b->AsArray())[0].AsBool());
  EXPECT_TRUE((*b->AsArray())[2].IsNull());
}

struct BadJson {
  const char* text;
  const char* error;
};

TEST(VariantJsonTest, RejectsInvalidTextWithThePlace) {
  const BadJson cases[] = {
      {"", "offset 0: unexpected end of text"},
      {"{", "offset 1: expected a member name"},
      {"{\"a\" 1}", "offset 5: expected ':'"},
      {"{\"a\":1,}", "offset 7: expected a member name"},
      {"[1,]", "offset 3: unexpected character"},
      {"[1 2]", "offset 3: expected ',' or ']'"},
      {"{\"a\":1 \"b\":2}", "offset 7: expected ',' or '}'"},
      {"01", "offset 1: leading zero in number"},
      {"-", "offset 1: expected digits"},
      {"1.", "offset 2: expected digits after '.'"},
      {"1e", "offset 2: expected exponent digits"},
      {"+1", "offset 0: unexpected character"},
      {"tru", "offset 0: invalid literal"},
      {"nul", "offset 0: invalid literal"},
      {"\"abc", "offset 4: unterminated string"},
      {"\"a\nb\"", "offset 2: control character in string"},
      {"\"\\x\"", "offset 2: invalid escape"},
      {"\"\\u12G4\"", "offset 5: invalid \\u escape"},
      {"\"\\ud83d\"", "offset 7: lone high surrogate"},
      {"\"\\ude00\"", "offset 7: lone low surrogate"},
      {"\"\xC3\x28\"", "offset 1: invalid UTF-8 in string"},
      {"\"\xC0\xAF\"", "offset 1: invalid UTF-8 in string"},
      {"1 2", "offset 2: unexpected text after the value"},
      {"'a'", "offset 0: unexpected character"},
  };
  for (const BadJson& c : cases) {
    SCOPED_TRACE(c.text);
    Variant v;
    v = "previous";
    std::string error;
    EXPECT_FALSE(Variant::FromJSON(c.text, v, &error));
    EXPECT_EQ(c.error, error);
    EXPECT_TRUE(v.IsNull());
  }
}

TEST(VariantJsonTest, RejectsTooDeepNesting) {
  Variant v;
  std::string error;
  EXPECT_FALSE(Variant::FromJSON(std::string(300, '[') + std::string(300, ']'), v, &error));
  EXPECT_EQ("offset 257: nesting too deep", error);
  EXPECT_TRUE(Variant::FromJSON(std::string(200, '[') + std::string(200, ']'), v, &error));
}

TEST(VariantJsonTest, DuplicateKeyKeepsTheLastValue) {
  Variant v;
  ASSERT_TRUE(Variant::FromJSON("{\"a\":1,\"a\":2}", v));
  EXPECT_EQ(1U, v.Size());
  EXPECT_EQ(2, static_cast<long long>(v["a"]));
}

}  // namespace
