#include "commands.h"

#include <algorithm>
#include <limits>

#include "input_table.h"
#include "network_action.h"
#include "qira/host/outside_text.h"

namespace qira::wifi {

namespace {

constexpr const char kProgram[] = "qira-wifi";

int usage_error(const std::string& message, Streams& streams) {
  streams.err << kProgram << ": " << qira::host::terminal_line(message) << "\n" << usage_text();
  return kExitUsage;
}

}  // namespace

const std::vector<Command>& command_table() {
  static const std::vector<Command> commands = {
      {"info", "IFNAME", "load the module and print every wireless query of IFNAME", 1, 1,
       run_info},
      {"events", "[--count N] [--timeout MS]",
       "print nl80211 events (type, name, payload) until interrupted, N events or MS", 0, 0,
       run_events},
      {"scan", "IFNAME [--timeout MS]",
       "scan IFNAME and print the ranked access points (--ap: recover as the access point)", 1, 1,
       run_scan},
      {"write-sta", "IFNAME SSID KEY [AUTH PSK]",
       "write /etc/wlan0.conf for one network (root; for the camera or its VM)", 3, 5,
       run_write_sta},
      {"wpa", "IFNAME COMMAND...",
       "send one command to the wpa_supplicant of IFNAME and print its reply", 2,
       std::numeric_limits<std::size_t>::max(), run_wpa},
      {"wpa-events", "IFNAME [--timeout MS]",
       "print the events of the wpa_supplicant of IFNAME until interrupted or --timeout", 1, 1,
       run_wpa_events},
      {"apply", "IFNAME CONFIG.json [--ap]",
       "stop the link's daemons and prepare station mode (or the access point) from CONFIG", 2, 2,
       run_apply},
      {"connect", "IFNAME [--ap|--vendor]",
       "bring the link up: wpa_supplicant, the setup access point or the vendor tools", 1, 1,
       run_connect},
      {"disconnect", "IFNAME [--ap|--vendor]", "bring the link down in the same three modes", 1, 1,
       run_disconnect},
      {"recover", "IFNAME [--ap]",
       "after an aborted scan: reassociate, or restart hostapd with --ap", 1, 1, run_recover},
      {"hook", "IFNAME KEY=VALUE...",
       "write the access point's files with these hostapd settings overridden (KEY= removes)", 2,
       std::numeric_limits<std::size_t>::max(), run_hook},
      {"monitor", "IFNAME",
       "print one timeline of nl80211 and wpa_supplicant events until interrupted, --count N "
       "events or --timeout MS",
       1, 1, run_monitor},
      {"doctor", "[IFNAME]",
       "check that this board has what the module relies on (IFNAME: wlan0 by default)", 0, 1,
       run_doctor},
  };
  return commands;
}

const Command* find_command(const std::string& name) {
  const std::vector<Command>& commands = command_table();
  auto found = std::find_if(commands.begin(), commands.end(),
                            [&name](const Command& command) { return name == command.name; });
  return found == commands.end() ? nullptr : &*found;
}

std::string usage_text() {
  std::string text = std::string("usage: ") + kProgram +
                     " [--json] [--verbose] [--module PATH] COMMAND [ARGS...]\n"
                     "\n"
                     "options:\n"
                     "  --json         print one JSON object instead of text\n"
                     "  --verbose      also print every module log line on stderr\n"
                     "  --module PATH  load the module from PATH (default: "
                     "$QIRA_WIRELESS_MODULE, else libqira_network_utils_wireless.so.1)\n"
                     "  --timeout MS   wpa: wait this long for the reply (default 10000); "
                     "wpa-events, events: stop after this long; scan: wait this long for "
                     "the scan's end (default 10000)\n"
                     "  --count N      events: stop after N events\n"
                     "  --ap           apply, connect, disconnect, recover, scan: the setup "
                     "access point\n"
                     "  --vendor       connect, disconnect: the vendor tools\n"
                     "  --again        scan: ask for the results a second time and show that "
                     "answer too\n"
                     "  --address A    hook: the access point's address (default 192.168.1.1)\n"
                     "  --netmask M    hook: its netmask (default 255.255.255.0)\n"
                     "  --help         print this help\n"
                     "\n"
                     "commands:\n";
  std::size_t width = 0;
  for (const Command& command : command_table()) {
    width = std::max(width,
                     std::string(command.name).size() + 1 + std::string(command.arguments).size());
  }
  for (const Command& command : command_table()) {
    std::string synopsis = std::string(command.name) + " " + command.arguments;
    synopsis.resize(width, ' ');
    text += "  " + synopsis + "  " + command.summary + "\n";
  }
  return text;
}

int run_program(const std::vector<std::string>& args, Streams& streams) {
  CommandLine command_line;
  std::string error;
  if (!parse_command_line(args, command_line, error)) {
    return usage_error(error, streams);
  }
  if (command_line.options.help) {
    streams.out << usage_text();
    return kExitOk;
  }
  if (command_line.words.empty()) {
    return usage_error("no command given", streams);
  }
  const Command* command = find_command(command_line.words.front());
  if (command == nullptr) {
    return usage_error("unknown command " + command_line.words.front(), streams);
  }
  const std::vector<std::string> command_args(command_line.words.begin() + 1,
                                              command_line.words.end());
  if (command_args.size() < command->min_args || command_args.size() > command->max_args) {
    return usage_error(
        std::string("usage: ") + kProgram + " " + command->name + " " + command->arguments,
        streams);
  }
  // A command whose arguments begin with IFNAME (or an optional [IFNAME])
  // gets it checked here, once,
  // before it runs: the name becomes a path and a daemon's argument.
  const std::string arguments = command->arguments;
  if (!command_args.empty() && (arguments.rfind(kIfnameValue, 0) == 0 ||
                                arguments.rfind(std::string("[") + kIfnameValue + "]", 0) == 0)) {
    if (std::optional<std::string> fault = check_input(kIfnameValue, command_args.front())) {
      return refuse(streams, *fault);
    }
  }
  return command->run(command_line.options, command_args, streams);
}

}  // namespace qira::wifi
