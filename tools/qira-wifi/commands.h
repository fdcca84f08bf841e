// The command set of qira-wifi: a table of commands (name, arguments, the
// options it takes, its JSON shape, summary, handler) that later commands
// join by adding one row.
#ifndef QIRA_TOOLS_QIRA_WIFI_COMMANDS_H
#define QIRA_TOOLS_QIRA_WIFI_COMMANDS_H

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "options.h"

namespace qira::wifi {

// Exit statuses of the program; --help lists them (exit_status_table()).
enum ExitStatus {
  kExitOk = 0,             // the command ran (a failed query is still an answer)
  kExitModuleError = 1,    // the module could not be loaded or lacks a function
  kExitChecksFailed = 1,   // doctor: at least one check failed
  kExitUsage = 2,          // bad options, command or arguments
  kExitActionFailed = 3,   // the module reported that an action (a file, a mode) failed
  kExitRefused = 4,        // a value was refused before anything was written or run
  kExitInterrupted = 130,  // SIGINT or SIGTERM ended the command (128 + SIGINT, as a shell says)
};

struct ExitStatusLine {
  int status;
  const char* meaning;
};
// Every exit status and what it means, as --help and the manual list them.
const std::vector<ExitStatusLine>& exit_status_table();

// Where a command writes: its answer to `out`, diagnostics to `err`.
struct Streams {
  std::ostream& out;
  std::ostream& err;
};

using CommandHandler = int (*)(const GlobalOptions& options, const std::vector<std::string>& args,
                               Streams& streams);

// What --json makes of a command's answer.
enum class JsonShape {
  kObject,  // one JSON object
  kLines,   // JSON Lines: one object per line, as each event comes
};

struct Command {
  const char* name;
  const char* arguments;  // its words, as shown in the usage: "IFNAME COMMAND..."
  unsigned int options;   // the OptionBits it takes beyond kCommonOptions
  JsonShape json;
  const char* summary;
  std::size_t min_args;
  std::size_t max_args;
  CommandHandler run;
};

const std::vector<Command>& command_table();
// The command called `name`, or null.
const Command* find_command(const std::string& name);
// "scan [--timeout MS] [--ap] [--again] IFNAME": the command, the options it
// takes beyond the common ones, and its words.
std::string command_synopsis(const Command& command);
// "usage: qira-wifi " and the synopsis, what a wrong command line of that
// command prints.
std::string command_usage(const Command& command);
// The full usage text: synopsis, options, commands, the JSON shapes and the
// exit statuses.
std::string usage_text();

// The whole program: parses `args` (argv without the program name), runs the
// command and returns the exit status.
int run_program(const std::vector<std::string>& args, Streams& streams);

// Handlers, one file each.
int run_info(const GlobalOptions& options, const std::vector<std::string>& args, Streams& streams);
int run_events(const GlobalOptions& options, const std::vector<std::string>& args,
               Streams& streams);
int run_write_sta(const GlobalOptions& options, const std::vector<std::string>& args,
                  Streams& streams);
int run_wpa(const GlobalOptions& options, const std::vector<std::string>& args, Streams& streams);
int run_wpa_events(const GlobalOptions& options, const std::vector<std::string>& args,
                   Streams& streams);
int run_apply(const GlobalOptions& options, const std::vector<std::string>& args, Streams& streams);
int run_connect(const GlobalOptions& options, const std::vector<std::string>& args,
                Streams& streams);
int run_disconnect(const GlobalOptions& options, const std::vector<std::string>& args,
                   Streams& streams);
int run_recover(const GlobalOptions& options, const std::vector<std::string>& args,
                Streams& streams);
int run_scan(const GlobalOptions& options, const std::vector<std::string>& args, Streams& streams);
int run_hook(const GlobalOptions& options, const std::vector<std::string>& args, Streams& streams);
int run_doctor(const GlobalOptions& options, const std::vector<std::string>& args,
               Streams& streams);
int run_monitor(const GlobalOptions& options, const std::vector<std::string>& args,
                Streams& streams);

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_COMMANDS_H
