// Outside text for a terminal and for JSON: tables of byte strings, each
// with the exact text a person (or a strict parser) receives.
#include "qira/host/outside_text.h"

#include <gtest/gtest.h>

#include <string>

namespace qira::host {
namespace {

using qira::variant::Variant;

struct Case {
  const char* what;
  std::string bytes;
  std::string shown;
};

// std::string of a literal that may hold NUL bytes.
template <std::size_t N>
std::string bytes(const char (&text)[N]) {
  return std::string(text, N - 1);
}

TEST(OutsideText, TerminalTextOfOneValue) {
  const Case cases[] = {
      {"empty", "", ""},
      {"plain ASCII", "HomeWPA2", "HomeWPA2"},
      {"inner spaces stay", "My Home Net", "My Home Net"},
      {"leading and trailing spaces, as iw shows them", " x ", "\\x20x\\x20"},
      {"a lone space", " ", "\\x20"},
      {"UTF-8 name",
       "Caf\xC3\xA9-\xC3\x91"
       "and\xC3\xBA",
       "Caf\xC3\xA9-\xC3\x91"
       "and\xC3\xBA"},
      {"four-byte UTF-8", "\xF0\x9F\x93\xB7 cam", "\xF0\x9F\x93\xB7 cam"},
      {"quote stays", "say \"hi\"", "say \"hi\""},
      {"backslash is escaped so escapes cannot be forged", "a\\x41", "a\\x5cx41"},
      {"clear-screen sequence", "\x1B[2J", "\\x1b[2J"},
      {"title-setting sequence", "\x1B]0;pwned\x07", "\\x1b]0;pwned\\x07"},
      {"line break and carriage return", "a\nb\rc", "a\\x0ab\\x0dc"},
      {"tab", "a\tb", "a\\x09b"},
      {"NUL", bytes("a\0b"), "a\\x00b"},
      {"DEL", "a\x7F", "a\\x7f"},
      {"C1 CSI encoded as UTF-8",
       "a\xC2\x9B"
       "2J",
       "a\\xc2\\x9b2J"},
      {"lone C1 byte",
       "a\x9B"
       "2J",
       "a\\x9b2J"},
      {"lead byte without continuation", "Caf\xC3", "Caf\\xc3"},
      {"lead byte then ASCII", "\xC3(", "\\xc3("},
      {"stray continuation byte", "\x80x", "\\x80x"},
      {"overlong slash", "\xC0\xAF", "\\xc0\\xaf"},
      {"overlong three-byte form", "\xE0\x80\xAF", "\\xe0\\x80\\xaf"},
      {"UTF-16 surrogate", "\xED\xA0\x80", "\\xed\\xa0\\x80"},
      {"past U+10FFFF", "\xF4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
      {"F5 lead", "\xF5\x80\x80\x80", "\\xf5\\x80\\x80\\x80"},
      {"truncated four-byte sequence", "\xF0\x9F\x93", "\\xf0\\x9f\\x93"},
      {"right-to-left override",
       "abc\xE2\x80\xAE"
       "fdp.exe",
       "abc\\xe2\\x80\\xaefdp.exe"},
      {"zero-width space",
       "a\xE2\x80\x8B"
       "b",
       "a\\xe2\\x80\\x8bb"},
      {"line separator",
       "a\xE2\x80\xA8"
       "b",
       "a\\xe2\\x80\\xa8b"},
      {"first strong isolate", "a\xE2\x81\xA8", "a\\xe2\\x81\\xa8"},
      {"byte order mark",
       "\xEF\xBB\xBF"
       "x",
       "\\xef\\xbb\\xbfx"},
      {"no-break space is printable",
       "a\xC2\xA0"
       "b",
       "a\xC2\xA0"
       "b"},
      {"32 bytes", "ABCDEFGHIJKLMNOPQRSTUVWXYZ012345", "ABCDEFGHIJKLMNOPQRSTUVWXYZ012345"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(terminal_text(c.bytes), c.shown) << c.what;
  }
}

TEST(OutsideText, TerminalLinesKeepLineFeedsTabsAndSpaces) {
  const Case cases[] = {
      {"a reply of several lines", "bssid=02:00:00:00:03:00\nssid=Home\n",
       "bssid=02:00:00:00:03:00\nssid=Home\n"},
      {"tab-separated fields", "bssid / frequency\tflags\n", "bssid / frequency\tflags\n"},
      {"edge spaces stay", " x ", " x "},
      {"carriage return is escaped", "OK\r\n", "OK\\x0d\n"},
      {"escape sequence inside a reply", "ssid=\x1B[2J\n", "ssid=\\x1b[2J\n"},
      {"invalid UTF-8 inside a reply", "ssid=\xFF\xFE\n", "ssid=\\xff\\xfe\n"},
      {"backslash", "a\\b", "a\\x5cb"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(terminal_lines(c.bytes), c.shown) << c.what;
  }
}

TEST(OutsideText, TerminalLineKeepsTabsAndSpacesButNotLineFeeds) {
  const Case cases[] = {
      {"a log line", "Failed to open file \"/etc/hosts\"", "Failed to open file \"/etc/hosts\""},
      {"edge spaces stay", " x ", " x "},
      {"tab stays", "a\tb", "a\tb"},
      {"line feed is escaped", "FAIL\nforged line", "FAIL\\x0aforged line"},
      {"escape sequence", "reply \x1B[31mred", "reply \\x1b[31mred"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(terminal_line(c.bytes), c.shown) << c.what;
  }
}

TEST(OutsideText, JsonStringIsValidAndTerminalSafe) {
  const Case cases[] = {
      {"empty", "", "\"\""},
      {"plain", "HomeWPA2", "\"HomeWPA2\""},
      {"UTF-8 kept as it is", "Caf\xC3\xA9", "\"Caf\xC3\xA9\""},
      {"quote and backslash", "a\"b\\c", "\"a\\\"b\\\\c\""},
      {"short escapes", "\b\f\n\r\t", "\"\\b\\f\\n\\r\\t\""},
      {"other C0 controls", bytes("\0\x1B[2J"), "\"\\u0000\\u001b[2J\""},
      {"DEL", "\x7F", "\"\\u007f\""},
      {"C1 control", "\xC2\x9B", "\"\\u009b\""},
      {"right-to-left override", "\xE2\x80\xAE", "\"\\u202e\""},
      {"byte order mark", "\xEF\xBB\xBF", "\"\\ufeff\""},
      {"invalid byte becomes U+FFFD",
       "a\xFF"
       "b",
       "\"a\\ufffdb\""},
      {"truncated sequence, each byte", "\xE2\x82", "\"\\ufffd\\ufffd\""},
      {"slash is not escaped", "a/b", "\"a/b\""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(json_string(c.bytes), c.shown) << c.what;
  }
}

TEST(OutsideText, ValidUtf8) {
  EXPECT_TRUE(is_valid_utf8(""));
  EXPECT_TRUE(is_valid_utf8("HomeWPA2"));
  EXPECT_TRUE(is_valid_utf8("Caf\xC3\xA9"));
  EXPECT_TRUE(is_valid_utf8("\xE2\x82\xAC"));
  EXPECT_TRUE(is_valid_utf8("\xF0\x9F\x93\xB7"));
  EXPECT_TRUE(is_valid_utf8("\xF4\x8F\xBF\xBF"));  // U+10FFFF
  EXPECT_TRUE(is_valid_utf8(bytes("a\0b")));       // NUL is a code point
  EXPECT_TRUE(is_valid_utf8("\x1B[2J"));           // controls are valid UTF-8
  EXPECT_FALSE(is_valid_utf8("Caf\xC3"));
  EXPECT_FALSE(is_valid_utf8("\xC3("));
  EXPECT_FALSE(is_valid_utf8("\x80"));
  EXPECT_FALSE(is_valid_utf8("\xC0\xAF"));
  EXPECT_FALSE(is_valid_utf8("\xC1\xBF"));
  EXPECT_FALSE(is_valid_utf8("\xE0\x9F\xBF"));      // overlong U+07FF
  EXPECT_FALSE(is_valid_utf8("\xF0\x8F\xBF\xBF"));  // overlong U+FFFF
  EXPECT_FALSE(is_valid_utf8("\xED\xBF\xBF"));      // surrogate
  EXPECT_FALSE(is_valid_utf8("\xF4\x90\x80\x80"));
  EXPECT_FALSE(is_valid_utf8("\xFF"));
}

TEST(OutsideText, TerminalColumnsCountCodePoints) {
  EXPECT_EQ(terminal_columns(""), 0U);
  EXPECT_EQ(terminal_columns("HomeWPA2"), 8U);
  EXPECT_EQ(terminal_columns("Caf\xC3\xA9-\xC3\x91"
                             "and\xC3\xBA"),
            10U);
  EXPECT_EQ(terminal_columns(terminal_text("\x1B[2J")), 7U);  // \x1b[2J
}

TEST(OutsideText, HexBytes) {
  EXPECT_EQ(hex_bytes(""), "");
  EXPECT_EQ(hex_bytes("Az"), "417a");
  EXPECT_EQ(hex_bytes(bytes("\0\x1B\xFF")), "001bff");
  EXPECT_EQ(hex_key("ssid"), "ssid_hex");
}

TEST(OutsideText, OutsideStringIsTextOnlyWhenValidAndAlwaysHex) {
  Variant object;
  set_outside_string(object, "ssid", "Caf\xC3\xA9");
  set_outside_string(object, "name", "\xFF\xFE x");
  set_outside_string(object, "empty", "");
  EXPECT_EQ(object.ToJSON(),
            "{\"empty\":\"\",\"empty_hex\":\"\",\"name\":null,\"name_hex\":\"fffe2078\","
            "\"ssid\":\"Caf\xC3\xA9\",\"ssid_hex\":\"436166c3a9\"}");
}

TEST(OutsideText, JsonSafeReplacesOnlyWhatIsNotUtf8) {
  Variant payload;
  payload["eventName"] = "ssid_temp_disabled";
  payload["ssid"] = "\xC3(bad";
  payload["count"] = 3;
  payload["nested"]["ok"] = "fine";
  payload["nested"]["raw"] = "\x80";
  payload["list"].Append(Variant()) = "good";
  payload["list"].Append(Variant()) = "\xFF";
  payload["\xFFkey"] = "v";
  const Variant safe = json_safe(payload);
  EXPECT_EQ(safe.ToJSON(),
            "{\"\\\\xffkey\":\"v\",\"count\":3,\"eventName\":\"ssid_temp_disabled\","
            "\"list\":[\"good\",{\"hex\":\"ff\"}],"
            "\"nested\":{\"ok\":\"fine\",\"raw\":null,\"raw_hex\":\"80\"},"
            "\"ssid\":null,\"ssid_hex\":\"c328626164\"}");
  // What was valid is untouched, and nothing else changes.
  Variant plain;
  plain["a"] = "x";
  plain["b"].Append(Variant()) = 1;
  EXPECT_EQ(json_safe(plain), plain);
}

}  // namespace
}  // namespace qira::host
