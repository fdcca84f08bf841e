// qira-json-check: the virtual camera's strict JSON parser, for scenarios
// that must show that an answer of qira-wifi parses as JSON, byte for byte.
// busybox has no JSON parser (tests/vm/guest/json_flat.awk is a lenient
// flattener for reading values), so this small program, built with the
// project, does it with nlohmann-json's strict parser: RFC 8259, UTF-8
// checked, no comments, nothing after the value.
//
//   qira-json-check < ANSWER.json
//
// Fails (status 1, the parser's message on stderr) unless standard input
// holds exactly one JSON text. Otherwise prints one line per scalar,
// "PATH<TAB>KIND<TAB>VALUE": PATH the member names and array indexes joined
// by "." (a name that is not letters, digits, '_' or '-' is given as
// "~" and its bytes in hexadecimal), KIND null, bool, number or string, and
// a string's VALUE the hexadecimal of its bytes, so that nothing of it
// reaches the console raw and the scenario compares bytes.
#include <cstdio>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>

namespace {

std::string hex(const std::string& bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  for (unsigned char byte : bytes) {
    out += digits[byte >> 4];
    out += digits[byte & 0x0F];
  }
  return out;
}

// The parser's message quotes what it last read: bytes other than
// printable ASCII are given as \xHH, so that the console gets none raw.
std::string printable(const std::string& text) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  for (unsigned char byte : text) {
    if (byte >= 0x20 && byte < 0x7F && byte != '\\') {
      out += static_cast<char>(byte);
    } else {
      out += "\\x";
      out += digits[byte >> 4];
      out += digits[byte & 0x0F];
    }
  }
  return out;
}

std::string path_part(const std::string& name) {
  for (unsigned char byte : name) {
    const bool plain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                       (byte >= '0' && byte <= '9') || byte == '_' || byte == '-';
    if (!plain) {
      return "~" + hex(name);
    }
  }
  return name;
}

void flatten(const nlohmann::json& value, const std::string& path) {
  const std::string prefix = path.empty() ? path : path + ".";
  if (value.is_object()) {
    for (const auto& [name, member] : value.items()) {
      flatten(member, prefix + path_part(name));
    }
  } else if (value.is_array()) {
    for (std::size_t index = 0; index < value.size(); ++index) {
      flatten(value[index], prefix + std::to_string(index));
    }
  } else if (value.is_null()) {
    std::cout << path << "\tnull\t\n";
  } else if (value.is_boolean()) {
    std::cout << path << "\tbool\t" << (value.get<bool>() ? "true" : "false") << "\n";
  } else if (value.is_string()) {
    std::cout << path << "\tstring\t" << hex(value.get<std::string>()) << "\n";
  } else {
    std::cout << path << "\tnumber\t" << value.dump() << "\n";
  }
}

}  // namespace

int main() {
  const std::string text((std::istreambuf_iterator<char>(std::cin)),
                         std::istreambuf_iterator<char>());
  nlohmann::json value;
  try {
    value = nlohmann::json::parse(text, nullptr, true, /*ignore_comments=*/false);
  } catch (const nlohmann::json::exception& error) {
    std::cerr << "qira-json-check: " << printable(error.what()) << "\n";
    return 1;
  }
  flatten(value, "");
  return 0;
}
