// `qira-wifi write-sta IFNAME SSID KEY [AUTH PSK]`: writes the station file
// /etc/wlan0.conf through the module's netlib_netm_configure_sta, after the
// values were checked (input_table.h). It writes the machine's real /etc:
// it needs root and is meant for the camera or its virtual machine.
#ifndef QIRA_TOOLS_QIRA_WIFI_WRITE_STA_COMMAND_H
#define QIRA_TOOLS_QIRA_WIFI_WRITE_STA_COMMAND_H

#include <optional>
#include <string>
#include <vector>

#include "module_session.h"
#include "qira/host/seams.h"

namespace qira::wifi {

// The settings of one station file, from the command's arguments.
struct StationRequest {
  std::string ifname;
  std::string ssid;
  std::string key;   // "none", "wpa", "wpa2" or "rsn"
  std::string auth;  // "psk" (EAP needs settings this command does not take)
  std::string psk;   // written as given: a 64-digit key, or "passphrase" in quotes
};

// The request of `args` (3 to 5 words), or the message refusing one of its
// values (SSID, KEY, AUTH and PSK of the input table; IFNAME is checked for
// every command by run_program).
std::optional<std::string> parse_station_request(const std::vector<std::string>& args,
                                                 StationRequest& request);

struct WriteStaResult {
  bool ok = false;
  std::vector<qira::host::LogRecord> log;  // what the module logged meanwhile
};

// Calls the opened module's netlib_netm_configure_sta with `request` (no
// frequency, no EAP or background-scan settings). False, with `error` set,
// when the module lacks the function.
bool write_station_file(ModuleSession& session, const StationRequest& request,
                        WriteStaResult& result, std::string& error);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_WRITE_STA_COMMAND_H
