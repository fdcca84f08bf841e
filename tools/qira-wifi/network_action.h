// What the commands that change the radio (apply, connect, disconnect,
// recover, hook) share: the module opened for one action, and the report of
// its outcome with the module's log lines.
#ifndef QIRA_TOOLS_QIRA_WIFI_NETWORK_ACTION_H
#define QIRA_TOOLS_QIRA_WIFI_NETWORK_ACTION_H

#include <exception>
#include <string>
#include <vector>

#include "commands.h"
#include "module_session.h"
#include "options.h"
#include "qira/host/seams.h"

namespace qira::wifi {

// The outcome of one module call and what the module logged meanwhile.
struct ActionResult {
  bool ok = false;
  std::vector<qira::host::LogRecord> log;
};

// Opens the module for `options`; false, after a message on `streams.err`,
// when it cannot be opened.
bool open_module(const GlobalOptions& options, ModuleSession& session, Streams& streams);

// Writes the outcome of `action` on `ifname`: "ACTION IFNAME: done" on
// stdout, or "qira-wifi: ACTION IFNAME: failed (...)" on stderr (--json: one
// object with "action", "ifname", "ok" and "log" on stdout either way), and
// the log lines on stderr with --verbose.
// Returns kExitOk or kExitActionFailed.
int report_action(const GlobalOptions& options, Streams& streams, const std::string& action,
                  const std::string& ifname, const ActionResult& result);

// Logs `exception`, which escaped a module call, as one line of this
// program (module "qira-wifi", level 3), so that it lands in the action's log.
void capture_exception(const std::exception& exception);

// A refused user value: the message on stderr and kExitRefused.
int refuse(Streams& streams, const std::string& message);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_NETWORK_ACTION_H
