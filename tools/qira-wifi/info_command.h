// `qira-wifi info IFNAME`: every interface query of the module on one
// interface, each answered or explained by the log lines of its failure.
#ifndef QIRA_TOOLS_QIRA_WIFI_INFO_COMMAND_H
#define QIRA_TOOLS_QIRA_WIFI_INFO_COMMAND_H

#include <ostream>
#include <string>

#include "info_report.h"
#include "module_session.h"

namespace qira::wifi {

// Runs the queries in their fixed order (essid, bssid, freq, channel,
// bitrate, txpower, quality, quality_max, signal_level, noise_level,
// wireless_mode) on the open `session`, capturing what the module logs during
// each. With `echo_log` every captured line is also written to `err` as the
// host's default log sink would. False, with `error` set, when the module
// lacks one of the functions (then no query has run).
bool collect_info(ModuleSession& session, const std::string& ifname, std::ostream* echo_log,
                  InfoReport& report, std::string& error);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_INFO_COMMAND_H
