// The unit suite's message ledger: every line the wireless module logs during
// a test run is appended to a file under $QIRA_MESSAGE_LEDGER, so that the
// suite's last test (tests/messages) can tell which of the module's messages
// no test produces.
#ifndef QIRA_TESTS_SUPPORT_MESSAGE_LEDGER_H
#define QIRA_TESTS_SUPPORT_MESSAGE_LEDGER_H

#include <string>

namespace qira::test {

// Starts recording for this process when the ledger folder exists
// ($QIRA_MESSAGE_LEDGER, else "message-ledger" in the build tree, which the
// suite's first test creates afresh): the file "<program>.<pid>.log" there
// gets one line per module record, "<source file>\t<message>", with
// backslashes and line breaks of the message escaped as \\ and \n. Without
// the folder, or for GoogleTest's listing run (--gtest_list_tests, which runs
// no test), it does nothing.
void open_message_ledger(int argc, char** argv);

}  // namespace qira::test

#endif  // QIRA_TESTS_SUPPORT_MESSAGE_LEDGER_H
