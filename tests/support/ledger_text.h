// The text of one message ledger line: the message with its backslashes and
// line breaks escaped, so that one record stays one line. Header-only: the
// ledger's writer (support) and its reader (tests/messages) share it.
#ifndef QIRA_TESTS_SUPPORT_LEDGER_TEXT_H
#define QIRA_TESTS_SUPPORT_LEDGER_TEXT_H

#include <string>

namespace qira::test {

inline std::string escape_ledger_text(const std::string& text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (char c : text) {
    if (c == '\\') {
      escaped += "\\\\";
    } else if (c == '\n') {
      escaped += "\\n";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

inline std::string unescape_ledger_text(const std::string& text) {
  std::string plain;
  plain.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) {
      ++i;
      plain += text[i] == 'n' ? '\n' : text[i];
    } else {
      plain += text[i];
    }
  }
  return plain;
}

}  // namespace qira::test

#endif  // QIRA_TESTS_SUPPORT_LEDGER_TEXT_H
