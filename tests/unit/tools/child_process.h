// Runs a program to completion with its output captured, for the tests that
// drive the built qira-wifi binary.
#ifndef QIRA_TESTS_UNIT_TOOLS_CHILD_PROCESS_H
#define QIRA_TESTS_UNIT_TOOLS_CHILD_PROCESS_H

#include <string>
#include <vector>

namespace qira::test {

struct ChildResult {
  bool finished = false;  // false when it ran past the deadline (then killed)
  int exit_status = -1;   // the exit status, or -1 when killed by a signal
  std::string out;
  std::string err;
};

// Starts `argv[0]` with `argv` and the current environment, reads its stdout
// and stderr until both close, and waits for it, for at most `deadline_ms`.
ChildResult run_child(const std::vector<std::string>& argv, unsigned int deadline_ms);

}  // namespace qira::test

#endif  // QIRA_TESTS_UNIT_TOOLS_CHILD_PROCESS_H
