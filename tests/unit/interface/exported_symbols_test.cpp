// The module exports exactly its interface: the demangled names of its
// defined dynamic symbols equal the checked-in list, line for line.
#include <elf.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "qira/inspect/elf_dynamic.h"
#include "qira/inspect/exported_interface.h"

namespace qira::test {
namespace {

using namespace qira::inspect;

std::vector<std::string> read_lines(const std::string& path) {
  std::ifstream file(path);
  EXPECT_TRUE(file.good()) << "cannot read " << path;
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    lines.push_back(line);
  }
  return lines;
}

std::string listing(const char* title, const std::vector<std::string>& names) {
  std::string text = std::string(title) + " (" + std::to_string(names.size()) + "):\n";
  for (const std::string& name : names) {
    text += "  " + name + "\n";
  }
  return text;
}

class ExportedSymbols : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(read_elf_dynamic(QIRA_MODULE_FILE, info_, error)) << error;
  }
  DynamicInfo info_;
};

TEST_F(ExportedSymbols, CheckedInListIsSortedWithoutDuplicatesOrBlankLines) {
  const std::vector<std::string> expected = read_lines(QIRA_EXPORTED_SYMBOLS_FILE);
  ASSERT_FALSE(expected.empty());
  std::vector<std::string> sorted = expected;
  std::sort(sorted.begin(), sorted.end());
  sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
  EXPECT_EQ(expected, sorted);
  EXPECT_EQ(std::count(expected.begin(), expected.end(), std::string()), 0);
}

// What doctor checks a module against is the checked-in list itself.
TEST_F(ExportedSymbols, CompiledInListIsTheCheckedInList) {
  EXPECT_EQ(exported_interface(), read_lines(QIRA_EXPORTED_SYMBOLS_FILE));
}

TEST_F(ExportedSymbols, EqualTheCheckedInList) {
  const std::vector<std::string> expected = read_lines(QIRA_EXPORTED_SYMBOLS_FILE);
  const std::vector<std::string> actual = exported_names(info_);
  const std::vector<std::string> missing = names_missing_from(expected, actual);
  const std::vector<std::string> unexpected = names_missing_from(actual, expected);
  EXPECT_TRUE(missing.empty() && unexpected.empty())
      << listing("missing from the module", missing)
      << listing("exported but not in exported_symbols.txt", unexpected);
  EXPECT_EQ(actual, expected);
}

// The camera's host binaries were linked against an unversioned module: a
// symbol version on an export would make them fail to resolve it.
TEST_F(ExportedSymbols, CarryNoSymbolVersion) {
  std::vector<std::string> versioned;
  for (const DynamicSymbol& symbol : info_.symbols) {
    if (symbol.defined && symbol.binding != STB_LOCAL && symbol.version_index != VER_NDX_GLOBAL) {
      versioned.push_back(demangle(symbol.name));
    }
  }
  EXPECT_TRUE(versioned.empty()) << listing("exports with a version", versioned);
}

// The exported record ap_info has implicit (inline) copy constructor and
// destructor: every object that uses them, the module and a host copying
// records alike, carries a weak definition, and the dynamic linker binds all
// uses to one. They are the only exports that may be weak.
bool is_implicit_record_member(const std::string& demangled) {
  return demangled.rfind("qira::network::ap_info::", 0) == 0;
}

// The ARM linker puts local section symbols (of .init and .data) into the
// dynamic symbol table; the dynamic linker never binds to them.
bool is_local_section_symbol(const DynamicSymbol& symbol) {
  return symbol.binding == STB_LOCAL && symbol.type == STT_SECTION;
}

TEST_F(ExportedSymbols, AreFunctionsWithDefaultVisibility) {
  std::vector<std::string> odd;
  for (const DynamicSymbol& symbol : info_.symbols) {
    if (is_local_section_symbol(symbol)) {
      continue;
    }
    const std::string name = demangle(symbol.name);
    const bool binding_expected = symbol.binding == STB_GLOBAL ||
                                  (symbol.binding == STB_WEAK && is_implicit_record_member(name));
    if (symbol.defined &&
        (symbol.type != STT_FUNC || symbol.visibility != STV_DEFAULT || !binding_expected)) {
      odd.push_back(name);
    }
  }
  EXPECT_TRUE(odd.empty()) << listing("exports that are not global default functions", odd);
}

}  // namespace
}  // namespace qira::test
