// `qira-wifi doctor [IFNAME]`: whether this board's environment is what the
// module relies on. One line per check in a fixed order (doctor_checks.h):
// "ok", "warn" or "fail", what was checked, what was found and, for anything
// but ok, what the module will do wrong and how to fix it; then a count.
// --json gives the same as one object. Exit status 0 when nothing failed.
#ifndef QIRA_TOOLS_QIRA_WIFI_DOCTOR_COMMAND_H
#define QIRA_TOOLS_QIRA_WIFI_DOCTOR_COMMAND_H

#include <string>
#include <vector>

#include "doctor_checks.h"
#include "qira/variant/variant.h"

namespace qira::wifi {

// The interface doctor checks when none is named: the module's station
// interface (its station file is "/etc/wlan0.conf").
inline constexpr char kDefaultDoctorInterface[] = "wlan0";

// "STATUS SUBJECT: FINDING", and for anything but ok "; EFFECT; fix: FIX",
// with the status padded to one width. No newline.
std::string render_check_line(const CheckResult& check);
// Every line, then "N ok, N warn, N fail".
std::string render_doctor_text(const std::vector<CheckResult>& checks);
// {"ifname", "module", "ok": no check failed, "counts": {"ok", "warn", "fail"},
//  "checks": [{"status", "check", "finding", "effect", "fix"}, ...]}; effect
// and fix are empty strings for an ok check.
qira::variant::Variant doctor_to_variant(const std::string& ifname, const std::string& module_path,
                                         const std::vector<CheckResult>& checks);
// Whether any check failed.
bool any_failed(const std::vector<CheckResult>& checks);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_DOCTOR_COMMAND_H
