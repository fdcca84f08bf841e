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
      {"",
       "line 1, column 1: syntax error while parsing value - unexpected end of input; expected "
       "'[', '{', or a literal"},
      {"{",
       "line 1, column 2: syntax error while parsing object key - unexpected end of input; "
       "expected string literal"},
      {"{\"a\" 1}",
       "line 1, column 6: syntax error while parsing object separator - unexpected number literal; "
       "expected ':'"},
      {"{\"a\":1,}",
       "line 1, column 8: syntax error while parsing object key - unexpected '}'; expected string "
       "literal"},
      {"[1,]",
       "line 1, column 4: syntax error while parsing value - unexpected ']'; expected '[', '{', or "
       "a literal"},
      {"[1 2]",
       "line 1, column 4: syntax error while parsing array - unexpected number literal; expected "
       "']'"},
      {"{\"a\":1 \"b\":2}",
       "line 1, column 10: syntax error while parsing object - unexpected string literal; expected "
       "'}'"},
      {"01",
       "line 1, column 2: syntax error while parsing value - unexpected number literal; expected "
       "end of input"},
      {"-",
       "line 1, column 2: syntax error while parsing value - invalid number; expected digit after "
       "'-'; last read: '-'"},
      {"1.",
       "line 1, column 3: syntax error while parsing value - invalid number; expected digit after "
       "'.'; last read: '1.'"},
      {"1e",
       "line 1, column 3: syntax error while parsing value - invalid number; expected '+', '-', or "
       "digit after exponent; last read: '1e'"},
      {"+1",
       "line 1, column 1: syntax error while parsing value - invalid literal; last read: '+'"},
      {"tru",
       "line 1, column 4: syntax error while parsing value - invalid literal; last read: 'tru'"},
      {"nul",
       "line 1, column 4: syntax error while parsing value - invalid literal; last read: 'nul'"},
      {"\"abc",
       "line 1, column 5: syntax error while parsing value - invalid string: missing closing "
       "quote; last read: '\"abc'"},
      {"\"a\nb\"",
       "line 2, column 0: syntax error while parsing value - invalid string: control character "
       "U+000A (LF) must be escaped to \\u000A or \\n; last read: '\"a<U+000A>'"},
      {"\"\\x\"",
       "line 1, column 3: syntax error while parsing value - invalid string: forbidden character "
       "after backslash; last read: '\"\\x'"},
      {"\"\\u12G4\"",
       "line 1, column 6: syntax error while parsing value - invalid string: '\\u' must be "
       "followed by 4 hex digits; last read: '\"\\u12G'"},
      {"\"\\ud83d\"",
       "line 1, column 8: syntax error while parsing value - invalid string: surrogate "
       "U+D800..U+DBFF must be followed by U+DC00..U+DFFF; last read: '\"\\ud83d\"'"},
      {"\"\\ude00\"",
       "line 1, column 7: syntax error while parsing value - invalid string: surrogate "
       "U+DC00..U+DFFF must follow U+D800..U+DBFF; last read: '\"\\ude00'"},
      {"\"\xC3\x28\"",
       "line 1, column 3: syntax error while parsing value - invalid string: ill-formed UTF-8 "
       "byte; last read: '\"\xC3('"},
      {"\"\xC0\xAF\"",
       "line 1, column 2: syntax error while parsing value - invalid string: ill-formed UTF-8 "
       "byte; last read: '\"\xC0'"},
      {"1 2",
       "line 1, column 3: syntax error while parsing value - unexpected number literal; expected "
       "end of input"},
      {"'a'",
       "line 1, column 1: syntax error while parsing value - invalid literal; last read: '''"},
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

TEST(VariantJsonTest, RejectsWhatStrictJsonDoesNotAllow) {
  for (const char* text : {"{\"a\":1} // comment", "/* x */ 1", "[1,]", "{'a':1}", "NaN",
                           "Infinity", "0x10", "\"\t\"", "[1] x", "\"\xFF\""}) {
    SCOPED_TRACE(text);
    Variant v;
    std::string error;
    EXPECT_FALSE(Variant::FromJSON(text, v, &error));
    EXPECT_NE(error, "");
  }
  Variant v;
  std::string error;
  EXPECT_FALSE(Variant::FromJSON("[1e400]", v, &error));
  EXPECT_EQ(error, "byte 6: number overflow parsing '1e400'");
  EXPECT_FALSE(Variant::FromJSON(std::string("{\"a\":\"x\0\"}", 9), v, &error));
  ASSERT_TRUE(Variant::FromJSON("\"a\\u0000b\"", v, &error)) << error;
  EXPECT_EQ(std::string("a\0b", 3), static_cast<const std::string&>(v));
}

TEST(VariantJsonTest, RejectsTooDeepNesting) {
  Variant v;
  std::string error;
  EXPECT_FALSE(Variant::FromJSON(std::string(300, '[') + std::string(300, ']'), v, &error));
  EXPECT_EQ("nesting deeper than 256 levels", error);
  EXPECT_TRUE(Variant::FromJSON(std::string(200, '[') + std::string(200, ']'), v, &error));
}

TEST(VariantJsonTest, DuplicateKeyKeepsTheLastValue) {
  Variant v;
  ASSERT_TRUE(Variant::FromJSON("{\"a\":1,\"a\":2}", v));
  EXPECT_EQ(1U, v.Size());
  EXPECT_EQ(2, static_cast<long long>(v["a"]));
}

}  // namespace
