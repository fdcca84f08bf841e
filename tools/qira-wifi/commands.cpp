#include "commands.h"

#include <algorithm>
#include <limits>

#include "input_table.h"
#include "network_action.h"
#include "qira/host/outside_text.h"

namespace qira::wifi {

namespace {

constexpr const char kProgram[] = "qira-wifi";
constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();
// How far a command's summary is indented, and how wide an exit status is.
constexpr const char kIndent[] = "      ";
constexpr std::size_t kStatusWidth = 5;

int usage_error(const std::string& message, Streams& streams) {
  streams.err << kProgram << ": " << qira::host::terminal_line(message) << "\n" << usage_text();
  return kExitUsage;
}

// A wrong command line of a known command: why, then that command's usage
// line alone.
int command_usage_error(const Command& command, const std::string& message, Streams& streams) {
  streams.err << kProgram << ": " << qira::host::terminal_line(message) << "\n"
              << command_usage(command) << "\n";
  return kExitUsage;
}

// The names of the commands whose --json answer has `shape`, "a, b and c".
std::string commands_shaped(JsonShape shape) {
  std::vector<std::string> names;
  for (const Command& command : command_table()) {
    if (command.json == shape) {
      names.push_back(command.name);
    }
  }
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    text += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
  }
  return text;
}

}  // namespace

const std::vector<ExitStatusLine>& exit_status_table() {
  static const std::vector<ExitStatusLine> statuses = {
      {kExitOk,
       "the command ran (a query that failed is still an answer); doctor: no check "
       "failed"},
      {kExitModuleError,
       "the module could not be loaded or lacks a function; doctor: a check "
       "failed"},
      {kExitUsage,
       "a wrong command line: an unknown command or option, an option the command "
       "does not take, a wrong number of arguments"},
      {kExitActionFailed,
       "the module reported that an action failed (a file, a daemon, "
       "wpa_supplicant unreachable or silent, a scan that did not end)"},
      {kExitRefused,
       "a value was refused before anything was written or run (an interface name, "
       "a network name, a passphrase, ...)"},
      {kExitInterrupted,
       "SIGINT or SIGTERM ended the command (how the listening commands are "
       "usually stopped)"},
  };
  return statuses;
}

const std::vector<Command>& command_table() {
  static const std::vector<Command> commands = {
      {"info", "IFNAME", 0, JsonShape::kObject,
       "load the module and print every wireless query of IFNAME", 1, 1, run_info},
      {"events", "", kOptionTimeout | kOptionCount, JsonShape::kLines,
       "print nl80211 events (type, name, payload) until interrupted, --count N events or "
       "--timeout MS",
       0, 0, run_events},
      {"scan", "IFNAME", kOptionTimeout | kOptionAp | kOptionAgain, JsonShape::kObject,
       "scan IFNAME and print the ranked access points, signal in dBm (--ap: recover as the "
       "access point)",
       1, 1, run_scan},
      {"write-sta", "IFNAME SSID KEY [AUTH PSK]", 0, JsonShape::kObject,
       "write /etc/wlan0.conf for one network (root; for the camera or its VM)", 3, 5,
       run_write_sta},
      {"wpa", "IFNAME COMMAND...", kOptionTimeout, JsonShape::kObject,
       "send one command to the wpa_supplicant of IFNAME and print its reply", 2, kNoLimit,
       run_wpa},
      {"wpa-events", "IFNAME", kOptionTimeout, JsonShape::kLines,
       "print the events of the wpa_supplicant of IFNAME, across its restarts, until interrupted "
       "or --timeout MS",
       1, 1, run_wpa_events},
      {"apply", "IFNAME CONFIG.json", kOptionAp, JsonShape::kObject,
       "stop the link's daemons and prepare station mode (or the access point) from CONFIG", 2, 2,
       run_apply},
      {"connect", "IFNAME", kOptionAp | kOptionVendor, JsonShape::kObject,
       "bring the link up: wpa_supplicant, the setup access point or the vendor tools", 1, 1,
       run_connect},
      {"disconnect", "IFNAME", kOptionAp | kOptionVendor, JsonShape::kObject,
       "bring the link down in the same three modes", 1, 1, run_disconnect},
      {"recover", "IFNAME", kOptionAp, JsonShape::kObject,
       "after an aborted scan: reassociate, or restart hostapd with --ap", 1, 1, run_recover},
      {"hook", "IFNAME KEY=VALUE...", kOptionAddress | kOptionNetmask, JsonShape::kObject,
       "write the access point's files with these hostapd settings overridden (KEY= removes)", 2,
       kNoLimit, run_hook},
      {"monitor", "IFNAME", kOptionTimeout | kOptionCount, JsonShape::kLines,
       "print one timeline of nl80211 and wpa_supplicant events until interrupted, --count N "
       "events or --timeout MS",
       1, 1, run_monitor},
      {"doctor", "[IFNAME]", 0, JsonShape::kObject,
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

std::string command_synopsis(const Command& command) {
  std::string synopsis = command.name;
  for (const OptionSpec& option : option_table()) {
    if ((command.options & option.bit) != 0) {
      synopsis += " [" + option_synopsis(option) + "]";
    }
  }
  if (command.arguments[0] != '\0') {
    synopsis += std::string(" ") + command.arguments;
  }
  return synopsis;
}

std::string command_usage(const Command& command) {
  return std::string("usage: ") + kProgram + " " + command_synopsis(command);
}

std::string usage_text() {
  std::string text = std::string("usage: ") + kProgram +
                     " [--json] [--verbose] [--module PATH] COMMAND [ARGS...]\n"
                     "\n"
                     "options (anywhere on the line; \"--\" ends them, so that an argument may "
                     "begin with \"-\"):\n";
  std::size_t width = 0;
  for (const OptionSpec& option : option_table()) {
    width = std::max(width, option_synopsis(option).size());
  }
  for (const OptionSpec& option : option_table()) {
    std::string synopsis = option_synopsis(option);
    synopsis.resize(width, ' ');
    text += "  " + synopsis + "  " + option.help + "\n";
  }
  text +=
      "\ncommands (each takes --json, --verbose, --module and --help, and the options it "
      "names):\n";
  for (const Command& command : command_table()) {
    text += "  " + command_synopsis(command) + "\n" + kIndent + command.summary + "\n";
  }
  text += "\n--json prints one JSON object from " + commands_shaped(JsonShape::kObject) +
          ";\nJSON Lines (one object per line, written as each event comes) from " +
          commands_shaped(JsonShape::kLines) + ".\n";
  text += "\nexit status:\n";
  for (const ExitStatusLine& line : exit_status_table()) {
    std::string status = std::to_string(line.status);
    status.resize(kStatusWidth, ' ');
    text += "  " + status + line.meaning + "\n";
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
  const unsigned int refused = command_line.options.given & ~(kCommonOptions | command->options);
  if (refused != 0) {
    return command_usage_error(
        *command, std::string(command->name) + " does not take " + option_names(refused), streams);
  }
  const std::vector<std::string> command_args(command_line.words.begin() + 1,
                                              command_line.words.end());
  if (command_args.size() < command->min_args || command_args.size() > command->max_args) {
    // The usage line says it all.
    streams.err << command_usage(*command) << "\n";
    return kExitUsage;
  }
  // A command whose arguments begin with IFNAME (or an optional [IFNAME])
  // gets it checked here, once, before it runs: the name becomes a path and
  // a daemon's argument.
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
