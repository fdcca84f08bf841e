// The strict JSON parser every test of a JSON answer goes through: a text is
// valid only if a conforming parser (nlohmann::json, which also refuses
// invalid UTF-8 and trailing text) takes it whole.
#ifndef QIRA_TESTS_SUPPORT_STRICT_JSON_H
#define QIRA_TESTS_SUPPORT_STRICT_JSON_H

#include <string>

namespace qira::test {

// Whether `text` is exactly one JSON value (white space around it allowed).
// False, with `error` set to the parser's words, otherwise.
bool is_strict_json(const std::string& text, std::string& error);

// Whether `text` is JSON Lines: every line, each ended by "\n", is one JSON
// object. False, with `error` naming the line, otherwise.
bool is_strict_json_lines(const std::string& text, std::string& error);

}  // namespace qira::test

#endif  // QIRA_TESTS_SUPPORT_STRICT_JSON_H
