#include "qira/host/input_rules.h"

#include <arpa/inet.h>
#include <net/if.h>

#include "qira/utils/strings.h"

namespace qira::host {

namespace {

constexpr unsigned char kDelete = 0x7F;
// The kernel's isspace() also counts the Latin-1 no-break space.
constexpr unsigned char kNoBreakSpace = 0xA0;

std::optional<std::string> check_line_text(const std::string& value) {
  if (value.find_first_of("\n\r") != std::string::npos) {
    return std::string("line breaks are not allowed");
  }
  if (value.find('\0') != std::string::npos) {
    return std::string("NUL bytes are not allowed");
  }
  return std::nullopt;
}

bool kernel_space(unsigned char byte) {
  return byte == ' ' || (byte >= '\t' && byte <= '\r') || byte == kNoBreakSpace;
}

// The kernel's dev_valid_name(), with the length in bytes of the C string.
std::optional<std::string> check_interface_name(const std::string& value) {
  if (value.empty()) {
    return std::string("an interface name cannot be empty");
  }
  if (value.size() >= IFNAMSIZ) {
    return "an interface name has at most " + std::to_string(IFNAMSIZ - 1) + " bytes";
  }
  if (value == "." || value == "..") {
    return std::string("\".\" and \"..\" are not interface names");
  }
  for (const char character : value) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte == '/' || byte == ':') {
      return std::string("'/' and ':' are not allowed in an interface name");
    }
    if (byte == '\0') {
      return std::string("NUL bytes are not allowed");
    }
    if (kernel_space(byte)) {
      return std::string("white space is not allowed in an interface name");
    }
  }
  return std::nullopt;
}

std::optional<std::string> check_passphrase(const std::string& value) {
  if (auto fault = check_line_text(value)) {
    return fault;
  }
  const bool quoted_whole = value.size() >= 2 && value.front() == '"' && value.back() == '"' &&
                            value.find('"', 1) == value.size() - 1;
  if (value.find('"') != std::string::npos && !quoted_whole) {
    return std::string("a double quote is allowed only as a pair around the whole passphrase");
  }
  return std::nullopt;
}

bool ipv4_text(const std::string& value, in_addr& address) {
  return value.find('\0') == std::string::npos &&
         ::inet_pton(AF_INET, value.c_str(), &address) == 1;
}

std::optional<std::string> check_netmask(const std::string& value) {
  in_addr address{};
  if (!ipv4_text(value, address) || !qira::utils::ipv4_netmask_valid(value, true)) {
    return std::string("not an IPv4 netmask");
  }
  return std::nullopt;
}

std::optional<std::string> check_only(const std::string& value, const char* allowed,
                                      const char* fault) {
  if (value.empty() || value.find_first_not_of(allowed) != std::string::npos) {
    return std::string(fault);
  }
  return std::nullopt;
}

std::optional<std::string> check_control_request(const std::string& value) {
  for (const char character : value) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < ' ' || byte == kDelete) {
      return std::string("control characters are not allowed");
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> check_input_rule(InputRule rule, const std::string& value) {
  in_addr address{};
  switch (rule) {
    case InputRule::kInterfaceName:
      return check_interface_name(value);
    case InputRule::kLineText:
      return check_line_text(value);
    case InputRule::kQuotedText:
      if (auto fault = check_line_text(value)) {
        return fault;
      }
      if (value.find('"') != std::string::npos) {
        return std::string("double quotes are not allowed");
      }
      return std::nullopt;
    case InputRule::kPassphrase:
      return check_passphrase(value);
    case InputRule::kIpv4AddressOrEmpty:
      if (value.empty()) {
        return std::nullopt;
      }
      [[fallthrough]];
    case InputRule::kIpv4Address:
      if (!ipv4_text(value, address)) {
        return std::string("not an IPv4 address");
      }
      return std::nullopt;
    case InputRule::kIpv4Netmask:
      return check_netmask(value);
    case InputRule::kOptionName:
      return check_only(value, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_",
                        "only letters, digits and '_' are allowed");
    case InputRule::kHardwareAddress:
      return check_only(value, "0123456789abcdefABCDEF:-",
                        "only hexadecimal digits, ':' and '-' are allowed");
    case InputRule::kControlRequest:
      return check_control_request(value);
  }
  return std::string("unknown rule");
}

const char* input_rule_text(InputRule rule) {
  switch (rule) {
    case InputRule::kInterfaceName:
      return "an interface name the kernel accepts: 1 to 15 bytes, not \".\" or \"..\", no '/', "
             "':', NUL or white space";
    case InputRule::kLineText:
      return "no line feed, carriage return or NUL";
    case InputRule::kQuotedText:
      return "no line feed, carriage return, NUL or double quote";
    case InputRule::kPassphrase:
      return "no line feed, carriage return or NUL; a double quote only as a pair around the "
             "whole value";
    case InputRule::kIpv4Address:
      return "an IPv4 address (inet_pton)";
    case InputRule::kIpv4AddressOrEmpty:
      return "empty, or an IPv4 address (inet_pton)";
    case InputRule::kIpv4Netmask:
      return "an IPv4 netmask (inet_pton, contiguous ones, not 0.0.0.0)";
    case InputRule::kOptionName:
      return "letters, digits and '_'";
    case InputRule::kHardwareAddress:
      return "hexadecimal digits, ':' and '-'";
    case InputRule::kControlRequest:
      return "no control character";
  }
  return "";
}

}  // namespace qira::host
