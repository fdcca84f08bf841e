// The command set of qira-wifi: a table of commands (name, arguments,
// summary, handler) that later commands join by adding one row.
#ifndef QIRA_TOOLS_QIRA_WIFI_COMMANDS_H
#define QIRA_TOOLS_QIRA_WIFI_COMMANDS_H

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "options.h"

namespace qira::wifi {

// Exit statuses of the program.
enum ExitStatus {
  kExitOk = 0,            // the command ran (a failed query is still an answer)
  kExitModuleError = 1,   // the module could not be loaded or lacks a function
  kExitUsage = 2,         // bad options, command or arguments
  kExitActionFailed = 3,  // the module reported that an action (a file, a mode) failed
  kExitChecksFailed = 1,  // doctor: at least one check failed
};

// Where a command writes: its answer to `out`, diagnostics to `err`.
struct Streams {
  std::ostream& out;
  std::ostream& err;
};

using CommandHandler = int (*)(const GlobalOptions& options, const std::vector<std::string>& args,
                               Streams& streams);

struct Command {
  const char* name;
  const char* arguments;  // as shown in the usage, e.g. "IFNAME"
  const char* summary;
  std::size_t min_args;
  std::size_t max_args;
  CommandHandler run;
};

const std::vector<Command>& command_table();
// The command called `name`, or null.
const Command* find_command(const std::string& name);
// The full usage text: synopsis, options and one line per command.
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
