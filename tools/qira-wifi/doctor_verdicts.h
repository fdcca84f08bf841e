// The small pieces every doctor check is built from: the three verdicts, the
// "not checked" warning of a check whose premise failed, and outside text
// made safe for a terminal. Private to the doctor_checks_*.cpp files.
#ifndef QIRA_TOOLS_QIRA_WIFI_DOCTOR_VERDICTS_H
#define QIRA_TOOLS_QIRA_WIFI_DOCTOR_VERDICTS_H

#include <string>
#include <vector>

#include "doctor_checks.h"

namespace qira::wifi::doctor {

inline CheckResult ok(std::string subject, std::string finding) {
  return {CheckStatus::kOk, std::move(subject), std::move(finding), "", ""};
}

inline CheckResult warn(std::string subject, std::string finding, std::string effect,
                        std::string fix) {
  return {CheckStatus::kWarn, std::move(subject), std::move(finding), std::move(effect),
          std::move(fix)};
}

inline CheckResult fail(std::string subject, std::string finding, std::string effect,
                        std::string fix) {
  return {CheckStatus::kFail, std::move(subject), std::move(finding), std::move(effect),
          std::move(fix)};
}

// A check that could not run because an earlier one failed: a warning that
// says why, with nothing to fix beyond that earlier failure.
inline CheckResult not_checked(std::string subject, const std::string& reason) {
  return {CheckStatus::kWarn, std::move(subject), "not checked: " + reason, "", ""};
}

// Text from outside (a file name, a program's output, a log line) as a
// terminal may show it (qira/host/outside_text.h, terminal_line).
std::string shown(const std::string& text);

// "a, b, c" of the first `limit` names, then "and N more".
std::string name_list(const std::vector<std::string>& names, std::size_t limit);

// strerror's text of `error_number`.
std::string error_text(int error_number);

}  // namespace qira::wifi::doctor

#endif  // QIRA_TOOLS_QIRA_WIFI_DOCTOR_VERDICTS_H
