// The module names only the system runtime as needed libraries and leaves
// undefined only what the runtime, libnl or the host provide.
#include <elf.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "qira/inspect/elf_dynamic.h"
#include "qira/inspect/link_policy.h"

namespace qira::test {
namespace {

using namespace qira::inspect;

#ifdef QIRA_SANITIZED_BUILD
constexpr bool kSanitizedBuild = true;
#else
constexpr bool kSanitizedBuild = false;
#endif

class ModuleLinkage : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(read_elf_dynamic(QIRA_MODULE_FILE, info_, error)) << error;
  }
  DynamicInfo info_;
};

TEST_F(ModuleLinkage, SonameIsTheMajorVersionedModuleName) {
  EXPECT_EQ(info_.soname, "libqira_network_utils_wireless.so.1");
}

TEST_F(ModuleLinkage, NeedsOnlyTheSystemRuntime) {
  std::vector<std::string> others;
  for (const std::string& library : info_.needed) {
    if (!is_allowed_needed_library(library, kSanitizedBuild)) {
      others.push_back(library);
    }
  }
  EXPECT_TRUE(others.empty()) << "needed libraries outside the system runtime: "
                              << ::testing::PrintToString(others);
  // The module is C++: the C++ runtime and libc are always there.
  EXPECT_NE(std::find(info_.needed.begin(), info_.needed.end(), "libstdc++.so.6"),
            info_.needed.end());
  EXPECT_NE(std::find(info_.needed.begin(), info_.needed.end(), "libc.so.6"), info_.needed.end());
}

TEST_F(ModuleLinkage, LeavesUndefinedOnlyRuntimeLibnlAndHostSymbols) {
  std::vector<std::string> others;
  std::size_t undefined = 0;
  for (const DynamicSymbol& symbol : info_.symbols) {
    if (symbol.defined) {
      continue;
    }
    ++undefined;
    if (undefined_symbol_source(symbol, kSanitizedBuild) == SymbolSource::kNotAllowed) {
      others.push_back(demangle(symbol.name) +
                       (symbol.required_version.empty()
                            ? std::string()
                            : "@" + symbol.required_version + " (" + symbol.required_from + ")"));
    }
  }
  EXPECT_GT(undefined, 0u);
  EXPECT_TRUE(others.empty()) << "undefined symbols nobody provides: "
                              << ::testing::PrintToString(others);
}

// The host's logger is what every failure goes through; it must stay the
// host's, not a copy inside the module.
TEST_F(ModuleLinkage, TakesTheLoggerFromTheHost) {
  auto found =
      std::find_if(info_.symbols.begin(), info_.symbols.end(), [](const DynamicSymbol& symbol) {
        return base_name(demangle(symbol.name)) == "logInternal";
      });
  ASSERT_NE(found, info_.symbols.end());
  EXPECT_FALSE(found->defined);
  EXPECT_TRUE(found->required_version.empty());
}

}  // namespace
}  // namespace qira::test
