#include "network_action.h"

#include "output.h"
#include "qira/host/outside_text.h"
#include "qira/host_globals.h"
#include "qira/variant/variant.h"

namespace qira::wifi {

bool open_module(const GlobalOptions& options, ModuleSession& session, Streams& streams) {
  std::string error;
  if (!session.open(options.module_path, error)) {
    streams.err << "qira-wifi: " << qira::host::terminal_line(error) << "\n";
    return false;
  }
  return true;
}

int report_action(const GlobalOptions& options, Streams& streams, const std::string& action,
                  const std::string& ifname, const ActionResult& result) {
  if (options.verbose) {
    for (const qira::host::LogRecord& record : result.log) {
      streams.err << qira::host::format_log_record(record) << "\n";
    }
  }
  if (options.json) {
    qira::variant::Variant root;
    root["action"] = action;
    root["ifname"] = ifname;
    root["ok"] = result.ok;
    qira::variant::Variant& log = root["log"];
    log.IsArray(true);
    for (const qira::host::LogRecord& record : result.log) {
      log.Append(log_record_to_variant(record));
    }
    streams.out << qira::host::json_safe(root).ToJSON(2) << "\n";
  } else if (result.ok) {
    streams.out << action << " " << qira::host::terminal_text(ifname) << ": done\n";
  } else {
    // A failure is an error: on stderr, where a script's error handling looks.
    streams.err << "qira-wifi: " << action << " " << qira::host::terminal_text(ifname) << ": "
                << describe_failure(result.log) << "\n";
  }
  return result.ok ? kExitOk : kExitActionFailed;
}

void capture_exception(const std::exception& exception) {
  logInternal("qira-wifi", __FILE__, __func__, __LINE__, 3, 0, 0, "module call failed: %s",
              exception.what());
}

int refuse(Streams& streams, const std::string& message) {
  streams.err << "qira-wifi: " << qira::host::terminal_line(message) << "\n";
  return kExitRefused;
}

}  // namespace qira::wifi
