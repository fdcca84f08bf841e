// Text helpers of the host library.
#ifndef QIRA_UTILS_STRINGS_H
#define QIRA_UTILS_STRINGS_H

#include <string>

namespace qira::utils {

std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

// Replaces every occurrence of `from` (non-empty) in `s` by `to`, left to right.
void replaceAll(std::string& s, const std::string& from, const std::string& to);

// `length` characters drawn at random from `alphabet`; an empty alphabet means
// the 62 letters and digits.
std::string randomAlphaNumericString(const std::string& alphabet, unsigned int length);

// Dotted-quad IPv4 address ("a.b.c.d", each 0-255 without leading zeros, which
// other parsers read as octal; no sign or spaces).
// `host_address`: also reject addresses no interface or name server can have
// (0.0.0.0/8, multicast 224/4, reserved 240/4, 255.255.255.255).
// `allow_empty`: the empty text counts as valid.
bool ipv4_address_valid(const std::string& text, bool host_address, bool allow_empty);
// Dotted-quad netmask with contiguous ones; `reject_zero` refuses 0.0.0.0.
bool ipv4_netmask_valid(const std::string& text, bool reject_zero);

}  // namespace qira::utils

#endif  // QIRA_UTILS_STRINGS_H
