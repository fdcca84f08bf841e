#include "input_checks.h"

namespace qira::wifi {

namespace {

// The line-level faults every generated file refuses, for `what`.
std::optional<std::string> check_line_safe(const std::string& what, const std::string& value) {
  if (value.find_first_of("\n\r") != std::string::npos) {
    return "invalid " + what + ": line breaks are not allowed";
  }
  if (value.find('\0') != std::string::npos) {
    return "invalid " + what + ": NUL bytes are not allowed";
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> check_ssid(const std::string& ssid, TargetFile file) {
  if (auto fault = check_line_safe("SSID", ssid)) {
    return fault;
  }
  if (file == TargetFile::kStation && ssid.find('"') != std::string::npos) {
    return std::string("invalid SSID: double quotes are not allowed in the station file");
  }
  return std::nullopt;
}

std::optional<std::string> check_passphrase(const std::string& passphrase, TargetFile file) {
  if (auto fault = check_line_safe("passphrase", passphrase)) {
    return fault;
  }
  if (file == TargetFile::kStation) {
    const std::string::size_type first_quote = passphrase.find('"');
    const bool quoted_whole = passphrase.size() >= 2 && passphrase.front() == '"' &&
                              passphrase.back() == '"' &&
                              passphrase.find('"', 1) == passphrase.size() - 1;
    if (first_quote != std::string::npos && !quoted_whole) {
      return std::string(
          "invalid passphrase: a double quote is allowed in the station file only as a pair "
          "around the whole passphrase");
    }
  }
  return std::nullopt;
}

std::optional<std::string> check_device_name(const std::string& name) {
  return check_line_safe("device name", name);
}

}  // namespace qira::wifi
