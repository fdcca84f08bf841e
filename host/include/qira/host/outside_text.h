// Text that comes from outside the program (network names from the air,
// wpa_supplicant's replies and events, interface names, log messages that
// quote them) made safe to print. Such text may hold any byte: a beacon's
// name can carry a terminal escape sequence that would run in the
// engineer's terminal, or bytes that are not UTF-8 and would make a JSON
// answer unreadable to a strict parser. Pure functions, tested by tables.
//
// For a terminal, text is shown as it is when it is printable UTF-8, and
// every other byte is written as "\xHH", the way iw prints network names:
// control bytes (C0, DEL and the C1 controls U+0080 to U+009F), bytes of
// sequences that are not well-formed UTF-8, the backslash itself (so that
// the escapes cannot be forged), and the invisible characters that change
// how a line displays (bidirectional overrides and isolates, zero-width
// characters, the Unicode line and paragraph separators).
//
// For JSON, a value is given as a string only when it is well-formed UTF-8,
// and its bytes always in hexadecimal under a second key, so that nothing
// is lost and every answer parses.
#ifndef QIRA_HOST_OUTSIDE_TEXT_H
#define QIRA_HOST_OUTSIDE_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

#include "qira/variant/variant.h"

namespace qira::host {

// Whether `bytes` is well-formed UTF-8: no stray continuation byte, no
// truncated sequence, no overlong form, no surrogate, nothing past U+10FFFF.
bool is_valid_utf8(std::string_view bytes);

// One value (a network name, an interface name, a message) for a terminal,
// escaped as above; a space that begins or ends it is escaped too ("\x20"),
// as iw does, so that the value's edges show in a table.
std::string terminal_text(std::string_view bytes);

// One line of running text (a log line, a message quoting outside values):
// as terminal_text, but tabs stay and spaces are never escaped; a line feed
// is escaped, so that the line stays one line.
std::string terminal_line(std::string_view bytes);

// Several lines of text (a wpa_supplicant reply): as terminal_line, but
// line feeds stay too.
std::string terminal_lines(std::string_view bytes);

// The JSON string literal (quotes included) of `bytes`, safe for a terminal
// too: the quote, the backslash and the control characters get JSON's short
// escapes or "\u00XX", and the invisible formatting characters above
// "\uXXXX", all of which a parser turns back into the same characters. A
// byte that is not part of well-formed UTF-8 cannot be written in JSON: it
// becomes U+FFFD, so keep such text with set_outside_string or json_safe.
std::string json_string(std::string_view bytes);

// The columns `text` takes on a terminal, for aligning tables of text that
// terminal_text produced: one per code point (wide East Asian characters,
// which take two, are counted as one).
std::size_t terminal_columns(std::string_view text);

// The bytes as lower-case hexadecimal, two digits each ("" for "").
std::string hex_bytes(std::string_view bytes);

// The key under which a value's bytes are given in hexadecimal: "KEY_hex".
std::string hex_key(const std::string& key);

// Sets `object[key]` to `bytes` when they are well-formed UTF-8, else to
// null, and always `object[hex_key(key)]` to their hexadecimal form.
void set_outside_string(qira::variant::Variant& object, const std::string& key,
                        const std::string& bytes);

// A copy of `value` that any strict JSON parser reads: each string member
// that is not well-formed UTF-8 becomes null with its bytes under
// hex_key(member); such an array element becomes {"hex": bytes}; such a
// member name is replaced by its terminal_text form.
qira::variant::Variant json_safe(const qira::variant::Variant& value);

}  // namespace qira::host

#endif  // QIRA_HOST_OUTSIDE_TEXT_H
