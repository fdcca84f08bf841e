#include "doctor_command.h"

#include <ostream>

#include "commands.h"
#include "doctor_system.h"
#include "qira/host/loader.h"
#include "qira/host/outside_text.h"
#include "qira/host/seams.h"

namespace qira::wifi {

namespace {

// "warn" is the longest status word.
constexpr std::size_t kStatusWidth = 4;

std::size_t count_of(const std::vector<CheckResult>& checks, CheckStatus status) {
  std::size_t count = 0;
  for (const CheckResult& check : checks) {
    count += check.status == status ? 1 : 0;
  }
  return count;
}

}  // namespace

std::string render_check_line(const CheckResult& check) {
  std::string status = status_word(check.status);
  status.resize(kStatusWidth, ' ');
  std::string line = status + " " + check.subject + ": " + check.finding;
  if (check.status != CheckStatus::kOk) {
    if (!check.effect.empty()) {
      line += "; " + check.effect;
    }
    if (!check.fix.empty()) {
      line += "; fix: " + check.fix;
    }
  }
  return line;
}

std::string render_doctor_text(const std::vector<CheckResult>& checks) {
  std::string text;
  for (const CheckResult& check : checks) {
    text += render_check_line(check) + "\n";
  }
  text += std::to_string(count_of(checks, CheckStatus::kOk)) + " ok, " +
          std::to_string(count_of(checks, CheckStatus::kWarn)) + " warn, " +
          std::to_string(count_of(checks, CheckStatus::kFail)) + " fail\n";
  return text;
}

bool any_failed(const std::vector<CheckResult>& checks) {
  return count_of(checks, CheckStatus::kFail) > 0;
}

qira::variant::Variant doctor_to_variant(const std::string& ifname, const std::string& module_path,
                                         const std::vector<CheckResult>& checks) {
  qira::variant::Variant root;
  root["ifname"] = ifname;
  root["module"] = module_path;
  root["ok"] = !any_failed(checks);
  qira::variant::Variant& counts = root["counts"];
  counts["ok"] = static_cast<unsigned int>(count_of(checks, CheckStatus::kOk));
  counts["warn"] = static_cast<unsigned int>(count_of(checks, CheckStatus::kWarn));
  counts["fail"] = static_cast<unsigned int>(count_of(checks, CheckStatus::kFail));
  qira::variant::Variant& list = root["checks"];
  list.IsArray(true);
  for (const CheckResult& check : checks) {
    qira::variant::Variant entry;
    entry["status"] = status_word(check.status);
    entry["check"] = check.subject;
    entry["finding"] = check.finding;
    entry["effect"] = check.effect;
    entry["fix"] = check.fix;
    list.Append(entry);
  }
  return root;
}

int run_doctor(const GlobalOptions& options, const std::vector<std::string>& args,
               Streams& streams) {
  const std::string ifname = args.empty() ? kDefaultDoctorInterface : args.front();
  std::vector<CheckResult> checks;
  std::string module_path;
  {
    // The module's lines belong to the verdicts they explain; --verbose
    // shows them as they came.
    qira::host::LogCapture capture;
    RealDoctorSystem system;
    checks = run_doctor_checks(system, options.module_path, ifname);
    module_path = options.module_path.empty() ? qira::host::WirelessModule::default_path()
                                              : options.module_path;
    if (options.verbose) {
      for (const qira::host::LogRecord& record : capture.records()) {
        streams.err << qira::host::format_log_record(record) << "\n";
      }
    }
  }
  if (options.json) {
    streams.out << qira::host::json_safe(doctor_to_variant(ifname, module_path, checks)).ToJSON(2)
                << "\n";
  } else {
    streams.out << render_doctor_text(checks);
  }
  return any_failed(checks) ? kExitChecksFailed : kExitOk;
}

}  // namespace qira::wifi
