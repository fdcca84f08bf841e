// JSON text of a Variant, and a strict JSON parser (RFC 8259) into one.
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>

#include "qira/host/outside_text.h"
#include "qira/variant/variant.h"

namespace qira::variant {

namespace {

// Through the host's one writer of JSON strings: control and invisible
// formatting characters escaped, and always valid UTF-8, so that a strict
// parser (and a terminal) can take whatever a payload holds.
void append_escaped(std::string& out, const std::string& text) {
  out += qira::host::json_string(text);
}

void append_double(std::string& out, double value) {
  if (!std::isfinite(value)) {
    out += "null";  // JSON has no infinities or NaN
    return;
  }
  char text[32];
  std::snprintf(text, sizeof(text), "%.17g", value);
  std::string number(text);
  // Keep the number a double when read back.
  if (number.find_first_of(".eE") == std::string::npos) {
    number += ".0";
  }
  out += number;
}

void append_newline(std::string& out, int indent, int depth) {
  if (indent > 0) {
    out.push_back('\n');
    out.append(static_cast<std::size_t>(indent) * static_cast<std::size_t>(depth), ' ');
  }
}

void append_json(std::string& out, const Variant& value, int indent, int depth) {
  VariantType type = value.Type();
  if (type == V_NULL) {
    out += "null";
  } else if (type == V_BOOL) {
    out += value.AsBool() ? "true" : "false";
  } else if (type == V_DOUBLE) {
    append_double(out, value.AsDouble());
  } else if (type == V_STRING) {
    append_escaped(out, static_cast<const std::string&>(value));
  } else if (type == V_ARRAY) {
    const Variant::Array& array = *value.AsArray();
    out.push_back('[');
    for (std::size_t i = 0; i < array.size(); ++i) {
      if (i != 0) {
        out.push_back(',');
      }
      append_newline(out, indent, depth + 1);
      append_json(out, array[i], indent, depth + 1);
    }
    if (!array.empty()) {
      append_newline(out, indent, depth);
    }
    out.push_back(']');
  } else if (type == V_MAP) {
    const Variant::Map& map = *value.AsMap();
    out.push_back('{');
    bool first = true;
    for (const auto& [key, member] : map) {
      if (!first) {
        out.push_back(',');
      }
      first = false;
      append_newline(out, indent, depth + 1);
      append_escaped(out, key);
      out += indent > 0 ? ": " : ":";
      append_json(out, member, indent, depth + 1);
    }
    if (!map.empty()) {
      append_newline(out, indent, depth);
    }
    out.push_back('}');
  } else if (type == V_INT8 || type == V_INT16 || type == V_INT32 || type == V_INT64) {
    out += std::to_string(static_cast<long long>(value));
  } else {
    out += std::to_string(static_cast<unsigned long long>(value));
  }
}

// Recursive-descent parser over the whole text; stops at the first error.
class JsonParser {
 public:
  explicit JsonParser(const std::string& text) : text_(text) {}

  bool parse(Variant& out) {
    skip_space();
    if (!parse_value(out, 0)) {
      return false;
    }
    skip_space();
    if (pos_ != text_.size()) {
      return fail("unexpected text after the value");
    }
    return true;
  }

  const std::string& error() const { return error_; }

 private:
  // Deep enough for any configuration, shallow enough for the stack.
  static constexpr int kMaxDepth = 256;

  bool fail(const char* what) {
    if (error_.empty()) {
      error_ = "offset " + std::to_string(pos_) + ": " + what;
    }
    return false;
  }

  bool at_end() const { return pos_ >= text_.size(); }
  char peek() const { return at_end() ? '\0' : text_[pos_]; }

  void skip_space() {
    while (!at_end() && (text_[pos_] == ' ' || text_[pos_] == '\t' || text_[pos_] == '\n' ||
                         text_[pos_] == '\r')) {
      ++pos_;
    }
  }

  bool parse_literal(const char* word) {
    std::string expected(word);
    if (text_.compare(pos_, expected.size(), expected) != 0) {
      return fail("invalid literal");
    }
    pos_ += expected.size();
    return true;
  }

  bool parse_value(Variant& out, int depth) {
    if (depth > kMaxDepth) {
      return fail("nesting too deep");
    }
    switch (peek()) {
      case '{':
        return parse_object(out, depth);
      case '[':
        return parse_array(out, depth);
      case '"': {
        std::string text;
        if (!parse_string(text)) {
          return false;
        }
        out = text;
        return true;
      }
      case 't':
        out = true;
        return parse_literal("true");
      case 'f':
        out = false;
        return parse_literal("false");
      case 'n':
        out.Free();
        return parse_literal("null");
      default:
        if (peek() == '-' || (peek() >= '0' && peek() <= '9')) {
          return parse_number(out);
        }
        return fail(at_end() ? "unexpected end of text" : "unexpected character");
    }
  }

  bool parse_object(Variant& out, int depth) {
    ++pos_;  // '{'
    out.Free();
    out.IsArray(false);
    skip_space();
    if (peek() == '}') {
      ++pos_;
      return true;
    }
    while (true) {
      skip_space();
      if (peek() != '"') {
        return fail("expected a member name");
      }
      std::string key;
      if (!parse_string(key)) {
        return false;
      }
      skip_space();
      if (peek() != ':') {
        return fail("expected ':'");
      }
      ++pos_;
      skip_space();
      Variant member;
      if (!parse_value(member, depth + 1)) {
        return false;
      }
      out[key] = std::move(member);
      skip_space();
      if (peek() == ',') {
        ++pos_;
        continue;
      }
      if (peek() == '}') {
        ++pos_;
        return true;
      }
      return fail("expected ',' or '}'");
    }
  }

  bool parse_array(Variant& out, int depth) {
    ++pos_;  // '['
    out.Free();
    out.IsArray(true);
    skip_space();
    if (peek() == ']') {
      ++pos_;
      return true;
    }
    while (true) {
      skip_space();
      Variant element;
      if (!parse_value(element, depth + 1)) {
        return false;
      }
      out.Append(element);
      skip_space();
      if (peek() == ',') {
        ++pos_;
        continue;
      }
      if (peek() == ']') {
        ++pos_;
        return true;
      }
      return fail("expected ',' or ']'");
    }
  }

  bool parse_hex4(unsigned int& value) {
    if (pos_ + 4 > text_.size()) {
      return fail("truncated \\u escape");
    }
    value = 0;
    for (int i = 0; i < 4; ++i) {
      char c = text_[pos_++];
      value <<= 4;
      if (c >= '0' && c <= '9') {
        value |= static_cast<unsigned int>(c - '0');
      } else if (c >= 'a' && c <= 'f') {
        value |= static_cast<unsigned int>(c - 'a' + 10);
      } else if (c >= 'A' && c <= 'F') {
        value |= static_cast<unsigned int>(c - 'A' + 10);
      } else {
        --pos_;  // point at the bad digit
        return fail("invalid \\u escape");
      }
    }
    return true;
  }

  static void append_utf8(std::string& out, unsigned int code_point) {
    if (code_point < 0x80) {
      out.push_back(static_cast<char>(code_point));
    } else if (code_point < 0x800) {
      out.push_back(static_cast<char>(0xC0 | (code_point >> 6)));
      out.push_back(static_cast<char>(0x80 | (code_point & 0x3F)));
    } else if (code_point < 0x10000) {
      out.push_back(static_cast<char>(0xE0 | (code_point >> 12)));
      out.push_back(static_cast<char>(0x80 | ((code_point >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (code_point & 0x3F)));
    } else {
      out.push_back(static_cast<char>(0xF0 | (code_point >> 18)));
      out.push_back(static_cast<char>(0x80 | ((code_point >> 12) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | ((code_point >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (code_point & 0x3F)));
    }
  }

  bool parse_unicode_escape(std::string& out) {
    unsigned int unit = 0;
    if (!parse_hex4(unit)) {
      return false;
    }
    if (unit >= 0xDC00 && unit <= 0xDFFF) {
      return fail("lone low surrogate");
    }
    if (unit >= 0xD800 && unit <= 0xDBFF) {
      unsigned int low = 0;
      if (text_.compare(pos_, 2, "\\u") != 0) {
        return fail("lone high surrogate");
      }
      pos_ += 2;
      if (!parse_hex4(low)) {
        return false;
      }
      if (low < 0xDC00 || low > 0xDFFF) {
        return fail("lone high surrogate");
      }
      unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
    }
    append_utf8(out, unit);
    return true;
  }

  // Length of the valid UTF-8 sequence at pos_, 0 when it is not one.
  std::size_t utf8_sequence_length() const {
    auto byte = [this](std::size_t i) { return static_cast<unsigned char>(text_[pos_ + i]); };
    unsigned char lead = byte(0);
    std::size_t length = 0;
    unsigned int code_point = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2;
      code_point = lead & 0x1Fu;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3;
      code_point = lead & 0x0Fu;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4;
      code_point = lead & 0x07u;
    } else {
      return 0;
    }
    if (pos_ + length > text_.size()) {
      return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
      if ((byte(i) & 0xC0) != 0x80) {
        return 0;
      }
      code_point = (code_point << 6) | (byte(i) & 0x3Fu);
    }
    bool overlong = (length == 3 && code_point < 0x800) || (length == 4 && code_point < 0x10000);
    bool surrogate = code_point >= 0xD800 && code_point <= 0xDFFF;
    return (overlong || surrogate || code_point > 0x10FFFF) ? 0 : length;
  }

  bool parse_escape(std::string& out) {
    if (at_end()) {
      return fail("unterminated string");
    }
    char c = text_[pos_++];
    switch (c) {
      case '"':
      case '\\':
      case '/':
        out.push_back(c);
        return true;
      case 'b':
        out.push_back('\b');
        return true;
      case 'f':
        out.push_back('\f');
        return true;
      case 'n':
        out.push_back('\n');
        return true;
      case 'r':
        out.push_back('\r');
        return true;
      case 't':
        out.push_back('\t');
        return true;
      case 'u':
        return parse_unicode_escape(out);
      default:
        --pos_;
        return fail("invalid escape");
    }
  }

  bool parse_string(std::string& out) {
    ++pos_;  // opening quote
    while (true) {
      if (at_end()) {
        return fail("unterminated string");
      }
      unsigned char c = static_cast<unsigned char>(text_[pos_]);
      if (c == '"') {
        ++pos_;
        return true;
      }
      if (c == '\\') {
        ++pos_;
        if (!parse_escape(out)) {
          return false;
        }
      } else if (c < 0x20) {
        return fail("control character in string");
      } else if (c < 0x80) {
        out.push_back(static_cast<char>(c));
        ++pos_;
      } else {
        std::size_t length = utf8_sequence_length();
        if (length == 0) {
          return fail("invalid UTF-8 in string");
        }
        out.append(text_, pos_, length);
        pos_ += length;
      }
    }
  }

  bool skip_digits() {
    std::size_t start = pos_;
    while (!at_end() && text_[pos_] >= '0' && text_[pos_] <= '9') {
      ++pos_;
    }
    return pos_ != start;
  }

  bool parse_number(Variant& out) {
    std::size_t start = pos_;
    bool negative = peek() == '-';
    if (negative) {
      ++pos_;
    }
    if (peek() == '0') {
      ++pos_;
      if (peek() >= '0' && peek() <= '9') {
        return fail("leading zero in number");
      }
    } else if (!skip_digits()) {
      return fail("expected digits");
    }
    bool integral = true;
    if (peek() == '.') {
      ++pos_;
      integral = false;
      if (!skip_digits()) {
        return fail("expected digits after '.'");
      }
    }
    if (peek() == 'e' || peek() == 'E') {
      ++pos_;
      integral = false;
      if (peek() == '+' || peek() == '-') {
        ++pos_;
      }
      if (!skip_digits()) {
        return fail("expected exponent digits");
      }
    }
    std::string number = text_.substr(start, pos_ - start);
    if (integral) {
      errno = 0;
      if (negative) {
        long long value = std::strtoll(number.c_str(), nullptr, 10);
        if (errno == 0) {
          out = value;
          return true;
        }
      } else {
        unsigned long long value = std::strtoull(number.c_str(), nullptr, 10);
        if (errno == 0) {
          if (value <= static_cast<unsigned long long>(std::numeric_limits<long long>::max())) {
            out = static_cast<long long>(value);
          } else {
            out = value;
          }
          return true;
        }
      }
      // Out of the 64-bit ranges: kept as a double.
    }
    out = std::strtod(number.c_str(), nullptr);
    return true;
  }

  const std::string& text_;
  std::size_t pos_ = 0;
  std::string error_;
};

}  // namespace

std::string Variant::ToJSON(int indent) const {
  std::string out;
  append_json(out, *this, indent, 0);
  return out;
}

bool Variant::FromJSON(const std::string& text, Variant& out, std::string* error) {
  JsonParser parser(text);
  Variant parsed;
  if (!parser.parse(parsed)) {
    out.Free();
    if (error != nullptr) {
      *error = parser.error();
    }
    return false;
  }
  out = std::move(parsed);
  return true;
}

}  // namespace qira::variant
