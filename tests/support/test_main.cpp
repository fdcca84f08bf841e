// main() of every unit test binary: the sandbox comes first, before
// GoogleTest (or any test) touches a path.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/message_ledger.h"
#include "support/sandbox.h"

int main(int argc, char** argv) {
  qira::test::enter_sandbox();
  qira::test::open_message_ledger(argc, argv);
  testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
