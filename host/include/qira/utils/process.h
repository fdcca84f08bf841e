// Processes of the host library. Every call goes through the process runner
// of qira/host/seams.h, so a test can record it and choose its result.
#ifndef QIRA_UTILS_PROCESS_H
#define QIRA_UTILS_PROCESS_H

#include <signal.h>

#include <string>
#include <vector>

namespace qira::utils {

// Runs the command line `cmd` with "/bin/sh -c" and waits for it.
// 0 when it ran and exited 0; any other value is a failure (the exit status,
// 128 + signal number for a killed child, -1 when it could not be started).
int sysExecSimple(const char* cmd);
// Runs `program` with `args` (argv[0] is the program path, no shell) and waits.
// Same results.
int sysExecSimple(const char* program, const std::vector<std::string>& args);

// Starts `program` with the `count` const char* arguments that follow as a
// detached daemon (own session, stdio on /dev/null) and does not wait for it.
// Optional: `working_directory` to change into, `signal_mask` for the child
// (null: no signal blocked; every disposition is reset to the default either
// way), `pid` receives the daemon's process id. Nonzero when the program was
// executed, 0 when it could not be started.
int runDaemon(const std::string* working_directory, const __sigset_t* signal_mask, int* pid,
              const std::string& program, int count, ...);

// Sends `signal` to every process whose name (/proc/PID/comm, or the base
// name of argv[0]) is `name`, except the caller. Returns how many were
// signalled, -1 when /proc cannot be read.
int kill_process_by_name(const std::string& name, int signal);

}  // namespace qira::utils

#endif  // QIRA_UTILS_PROCESS_H
