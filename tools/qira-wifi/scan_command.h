// `scan IFNAME [--timeout MS] [--again]`: one scan through the module's scan
// calls, then the ranked, de-duplicated access points as a table (or JSON);
// with --again, also the answer of a second results call for the same scan.
#ifndef QIRA_TOOLS_QIRA_WIFI_SCAN_COMMAND_H
#define QIRA_TOOLS_QIRA_WIFI_SCAN_COMMAND_H

#include <chrono>
#include <string>
#include <vector>

#include "commands.h"
#include "options.h"

namespace qira::wifi {

// How long scan waits for the scan's end when --timeout is not given.
inline constexpr std::chrono::milliseconds kScanDefaultTimeout{10000};

// run_scan, the command's handler, is declared with the others in commands.h.

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_SCAN_COMMAND_H
