// The ELF reader the interface tests rely on: it refuses what is not a whole
// ELF object and reads this very test program's own dynamic section right.
#include "qira/inspect/elf_dynamic.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>

namespace qira::test {
namespace {

using namespace qira::inspect;

std::vector<unsigned char> file_bytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::vector<unsigned char>((std::istreambuf_iterator<char>(file)),
                                    std::istreambuf_iterator<char>());
}

TEST(ElfDynamic, RejectsEmptyInput) {
  DynamicInfo info;
  std::string error;
  EXPECT_FALSE(parse_elf_dynamic({}, info, error));
  EXPECT_EQ(error, "not an ELF file");
}

TEST(ElfDynamic, RejectsText) {
  const std::string text = "#!/bin/sh\necho not an object\n";
  DynamicInfo info;
  std::string error;
  EXPECT_FALSE(
      parse_elf_dynamic(std::vector<unsigned char>(text.begin(), text.end()), info, error));
  EXPECT_EQ(error, "not an ELF file");
}

TEST(ElfDynamic, RejectsTruncatedModule) {
  std::vector<unsigned char> bytes = file_bytes(QIRA_MODULE_FILE);
  ASSERT_GT(bytes.size(), 4096u);
  bytes.resize(bytes.size() / 2);  // the section header table lives at the end
  DynamicInfo info;
  std::string error;
  EXPECT_FALSE(parse_elf_dynamic(bytes, info, error));
  EXPECT_EQ(error, "truncated section header table");
}

TEST(ElfDynamic, ReadsTheNeededLibrariesOfThisProgram) {
  DynamicInfo info;
  std::string error;
  ASSERT_TRUE(read_elf_dynamic("/proc/self/exe", info, error)) << error;
  EXPECT_EQ(info.soname, "");  // a program has none
  EXPECT_NE(std::find(info.needed.begin(), info.needed.end(), "libstdc++.so.6"), info.needed.end());
  EXPECT_NE(std::find(info.needed.begin(), info.needed.end(), "libc.so.6"), info.needed.end());
}

TEST(ElfDynamic, ReadsVersionRequirementsOfUndefinedSymbols) {
  DynamicInfo info;
  std::string error;
  ASSERT_TRUE(read_elf_dynamic(QIRA_MODULE_FILE, info, error)) << error;
  // errno's accessor: every module uses it, and no sanitizer intercepts it.
  auto errno_location =
      std::find_if(info.symbols.begin(), info.symbols.end(),
                   [](const DynamicSymbol& symbol) { return symbol.name == "__errno_location"; });
  ASSERT_NE(errno_location, info.symbols.end());
  EXPECT_FALSE(errno_location->defined);
  EXPECT_EQ(errno_location->required_from, "libc.so.6");
  EXPECT_EQ(errno_location->required_version.rfind("GLIBC_2.", 0), 0u)
      << errno_location->required_version;
}

TEST(ElfDynamic, DemanglesCxxNamesAndKeepsCNames) {
  EXPECT_EQ(demangle("_ZN4qira7network29netlib_libiface_wireless_initEPv"),
            "qira::network::netlib_libiface_wireless_init(void*)");
  EXPECT_EQ(demangle("ioctl"), "ioctl");
}

}  // namespace
}  // namespace qira::test
