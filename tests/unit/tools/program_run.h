// qira-wifi run in-process, as main() runs it, with its output captured.
#ifndef QIRA_TESTS_UNIT_TOOLS_PROGRAM_RUN_H
#define QIRA_TESTS_UNIT_TOOLS_PROGRAM_RUN_H

#include <sstream>
#include <string>
#include <vector>

#include "commands.h"

namespace qira::wifi {

struct ProgramRun {
  int status;
  std::string out;
  std::string err;
};

inline ProgramRun run_args(const std::vector<std::string>& args) {
  std::ostringstream out;
  std::ostringstream err;
  Streams streams{out, err};
  const int status = run_program(args, streams);
  return {status, out.str(), err.str()};
}

}  // namespace qira::wifi

#endif  // QIRA_TESTS_UNIT_TOOLS_PROGRAM_RUN_H
