// A program run to completion with its output gathered, for a host that
// wants to know what a program says (its version, for qira-wifi doctor)
// rather than only whether it succeeded. The child gets an empty standard
// input, one pipe as its standard output and error, and no other descriptor
// of the host, as every child of the host does.
#ifndef QIRA_HOST_PROGRAM_OUTPUT_H
#define QIRA_HOST_PROGRAM_OUTPUT_H

#include <cstddef>
#include <string>
#include <vector>

namespace qira::host {

struct ProgramOutput {
  bool started = false;   // the program was executed
  int start_errno = 0;    // why it could not be (execve's errno, or the pipe's, fork's)
  bool finished = false;  // false: still running at the deadline, then killed
  int exit_status = -1;   // 0..255, or 128 + signal
  std::string output;     // standard output and error, as they came, up to the limit
};

// Runs `program` (a path) with `args`, for at most `deadline_ms`, keeping at
// most `longest_output` bytes of what it writes. Blocks until it ends or the
// deadline passes (a program still running then is killed with SIGKILL).
ProgramOutput run_for_output(const std::string& program, const std::vector<std::string>& args,
                             unsigned int deadline_ms, std::size_t longest_output);

}  // namespace qira::host

#endif  // QIRA_HOST_PROGRAM_OUTPUT_H
