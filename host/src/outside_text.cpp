#include "qira/host/outside_text.h"

#include <cstddef>
#include <cstdint>

namespace qira::host {

namespace {

using qira::variant::Variant;

constexpr char kHexDigits[] = "0123456789abcdef";
constexpr char32_t kLastCodePoint = 0x10FFFF;
constexpr char32_t kReplacementCharacter = 0xFFFD;

// The length of the well-formed UTF-8 sequence at `position` of `bytes`
// (its code point in `code_point`), or 0 when the bytes there are not one.
std::size_t utf8_sequence(std::string_view bytes, std::size_t position, char32_t& code_point) {
  const auto byte = [&](std::size_t index) {
    return static_cast<unsigned char>(bytes[position + index]);
  };
  const unsigned char lead = byte(0);
  std::size_t length = 0;
  if (lead < 0x80) {
    code_point = lead;
    return 1;
  }
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
    return 0;  // a continuation byte, an overlong lead (C0, C1) or past F4
  }
  if (bytes.size() - position < length) {
    return 0;
  }
  for (std::size_t index = 1; index < length; ++index) {
    if ((byte(index) & 0xC0u) != 0x80u) {
      return 0;
    }
    code_point = (code_point << 6) | (byte(index) & 0x3Fu);
  }
  const bool overlong =
      (length == 3 && code_point < 0x800) || (length == 4 && code_point < 0x10000);
  const bool surrogate = code_point >= 0xD800 && code_point <= 0xDFFF;
  return overlong || surrogate || code_point > kLastCodePoint ? 0 : length;
}

// Code points a terminal must not receive raw: controls (which a terminal
// acts on), the backslash (the escape character of the output), and the
// invisible formatting characters that reorder or hide what follows them.
bool needs_escape(char32_t code_point) {
  if (code_point < 0x20 || code_point == 0x7F || (code_point >= 0x80 && code_point <= 0x9F)) {
    return true;  // C0, DEL, C1
  }
  switch (code_point) {
    case U'\\':
    case 0x061C:  // arabic letter mark
    case 0x2060:  // word joiner
    case 0xFEFF:  // zero-width no-break space
      return true;
    default:
      break;
  }
  return (code_point >= 0x200B && code_point <= 0x200F) ||  // zero-width, LRM, RLM
         (code_point >= 0x2028 && code_point <= 0x202E) ||  // separators, embeddings
         (code_point >= 0x2066 && code_point <= 0x2069);    // isolates
}

// "\\uXXXX" for a code point of the basic plane (every one escaped here is).
void append_unicode_escape(std::string& out, char32_t code_point) {
  out += "\\u";
  for (int shift = 12; shift >= 0; shift -= 4) {
    out += kHexDigits[(code_point >> shift) & 0x0F];
  }
}

void append_escaped_byte(std::string& out, unsigned char byte) {
  out += "\\x";
  out += kHexDigits[byte >> 4];
  out += kHexDigits[byte & 0x0F];
}

enum class Layout {
  kValue,  // one value: edge spaces escaped
  kLine,   // one line of running text: tabs kept
  kLines,  // running text: line feeds and tabs kept
};

std::string escape_for_terminal(std::string_view bytes, Layout layout) {
  std::string out;
  out.reserve(bytes.size());
  std::size_t position = 0;
  while (position < bytes.size()) {
    char32_t code_point = 0;
    const std::size_t length = utf8_sequence(bytes, position, code_point);
    if (length == 0) {
      append_escaped_byte(out, static_cast<unsigned char>(bytes[position]));
      ++position;
      continue;
    }
    bool escape = needs_escape(code_point);
    if ((layout != Layout::kValue && code_point == U'\t') ||
        (layout == Layout::kLines && code_point == U'\n')) {
      escape = false;
    }
    if (layout == Layout::kValue && code_point == U' ' &&
        (position == 0 || position + 1 == bytes.size())) {
      escape = true;
    }
    for (std::size_t index = 0; index < length; ++index) {
      const char byte = bytes[position + index];
      if (escape) {
        append_escaped_byte(out, static_cast<unsigned char>(byte));
      } else {
        out += byte;
      }
    }
    position += length;
  }
  return out;
}

}  // namespace

bool is_valid_utf8(std::string_view bytes) {
  std::size_t position = 0;
  while (position < bytes.size()) {
    char32_t code_point = 0;
    const std::size_t length = utf8_sequence(bytes, position, code_point);
    if (length == 0) {
      return false;
    }
    position += length;
  }
  return true;
}

std::string terminal_text(std::string_view bytes) {
  return escape_for_terminal(bytes, Layout::kValue);
}

std::string terminal_line(std::string_view bytes) {
  return escape_for_terminal(bytes, Layout::kLine);
}

std::string terminal_lines(std::string_view bytes) {
  return escape_for_terminal(bytes, Layout::kLines);
}

std::string json_string(std::string_view bytes) {
  std::string out = "\"";
  out.reserve(bytes.size() + 2);
  std::size_t position = 0;
  while (position < bytes.size()) {
    char32_t code_point = 0;
    std::size_t length = utf8_sequence(bytes, position, code_point);
    if (length == 0) {
      code_point = kReplacementCharacter;
      length = 1;
    }
    switch (code_point) {
      case U'"':
        out += "\\\"";
        break;
      case U'\\':
        out += "\\\\";
        break;
      case U'\b':
        out += "\\b";
        break;
      case U'\f':
        out += "\\f";
        break;
      case U'\n':
        out += "\\n";
        break;
      case U'\r':
        out += "\\r";
        break;
      case U'\t':
        out += "\\t";
        break;
      default:
        if (needs_escape(code_point) || code_point == kReplacementCharacter) {
          append_unicode_escape(out, code_point);
        } else {
          out.append(bytes.substr(position, length));
        }
    }
    position += length;
  }
  out += '"';
  return out;
}

std::size_t terminal_columns(std::string_view text) {
  std::size_t columns = 0;
  std::size_t position = 0;
  while (position < text.size()) {
    char32_t code_point = 0;
    const std::size_t length = utf8_sequence(text, position, code_point);
    position += length == 0 ? 1 : length;
    ++columns;
  }
  return columns;
}

std::string hex_bytes(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size() * 2);
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    out += kHexDigits[value >> 4];
    out += kHexDigits[value & 0x0F];
  }
  return out;
}

std::string hex_key(const std::string& key) {
  return key + "_hex";
}

void set_outside_string(Variant& object, const std::string& key, const std::string& bytes) {
  Variant& value = object[key];
  if (is_valid_utf8(bytes)) {
    value = bytes;
  } else {
    value.Free();
  }
  object[hex_key(key)] = hex_bytes(bytes);
}

Variant json_safe(const Variant& value) {
  if (const Variant::Map* members = value.AsMap()) {
    Variant safe;
    safe.IsArray(false);
    for (const auto& [name, member] : *members) {
      const std::string safe_name = is_valid_utf8(name) ? name : terminal_text(name);
      if (member.Type() == qira::variant::V_STRING &&
          !is_valid_utf8(static_cast<const std::string&>(member))) {
        set_outside_string(safe, safe_name, member);
      } else {
        safe[safe_name] = json_safe(member);
      }
    }
    return safe;
  }
  if (const Variant::Array* elements = value.AsArray()) {
    Variant safe;
    safe.IsArray(true);
    for (const Variant& element : *elements) {
      if (element.Type() == qira::variant::V_STRING &&
          !is_valid_utf8(static_cast<const std::string&>(element))) {
        Variant bytes;
        bytes["hex"] = hex_bytes(static_cast<const std::string&>(element));
        safe.Append(bytes);
      } else {
        safe.Append(json_safe(element));
      }
    }
    return safe;
  }
  return value;
}

}  // namespace qira::host
