// The calls the host's recorders saw, as one line of text each, so that a
// test compares whole sequences with exact strings.
#ifndef QIRA_TESTS_SUPPORT_RECORDED_CALLS_H
#define QIRA_TESTS_SUPPORT_RECORDED_CALLS_H

#include <string>
#include <vector>

#include "qira/host/seams.h"

namespace qira::test {

// "shell|run|daemon program args..." or "signal N name" per process call.
std::vector<std::string> describe_process_calls(const std::vector<qira::host::ProcessCall>& calls);
// "function(arg, arg, ...)" per wired netlib call, with ", [ns1 ns2]" before
// the parenthesis when the call carried name servers.
std::vector<std::string> describe_netlib_calls(const std::vector<qira::host::NetlibCall>& calls);

}  // namespace qira::test

#endif  // QIRA_TESTS_SUPPORT_RECORDED_CALLS_H
