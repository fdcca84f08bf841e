// The rules of link_policy by table: each kind of symbol and library that the
// linkage tests accept, and the near misses they must reject.
#include "qira/inspect/link_policy.h"

#include <elf.h>
#include <gtest/gtest.h>

namespace qira::test {
namespace {

using namespace qira::inspect;

DynamicSymbol undefined(const std::string& name, const std::string& version = "",
                        const std::string& from = "", unsigned char binding = STB_GLOBAL) {
  DynamicSymbol symbol;
  symbol.name = name;
  symbol.binding = binding;
  symbol.required_version = version;
  symbol.required_from = from;
  return symbol;
}

TEST(LinkPolicy, RuntimeLibrariesAreTheOnlyNeededOnes) {
  EXPECT_TRUE(is_allowed_needed_library("libstdc++.so.6", false));
  EXPECT_TRUE(is_allowed_needed_library("libgcc_s.so.1", false));
  EXPECT_TRUE(is_allowed_needed_library("libc.so.6", false));
  EXPECT_TRUE(is_allowed_needed_library("libm.so.6", false));
  EXPECT_FALSE(is_allowed_needed_library("libnl-3.so.200", false));
  EXPECT_FALSE(is_allowed_needed_library("libnl-genl-3.so.200", false));
  EXPECT_FALSE(is_allowed_needed_library("libqira_host.so.1", false));
  EXPECT_FALSE(is_allowed_needed_library("libasan.so.8", false));
  EXPECT_TRUE(is_allowed_needed_library("libasan.so.8", true));
}

TEST(LinkPolicy, VersionedRuntimeSymbolsAreAllowed) {
  EXPECT_EQ(undefined_symbol_source(undefined("ioctl", "GLIBC_2.2.5", "libc.so.6"), false),
            SymbolSource::kSystemRuntime);
  EXPECT_EQ(undefined_symbol_source(undefined("pow", "GLIBC_2.29", "libm.so.6"), false),
            SymbolSource::kSystemRuntime);
  EXPECT_EQ(undefined_symbol_source(undefined("_ZdlPvm", "CXXABI_1.3.9", "libstdc++.so.6"), false),
            SymbolSource::kSystemRuntime);
  EXPECT_EQ(undefined_symbol_source(undefined("_Unwind_Resume", "GCC_3.0", "libgcc_s.so.1"), false),
            SymbolSource::kSystemRuntime);
}

TEST(LinkPolicy, VersionFromAnotherLibraryIsRejected) {
  EXPECT_EQ(
      undefined_symbol_source(undefined("nl_socket_alloc", "libnl_3", "libnl-3.so.200"), false),
      SymbolSource::kNotAllowed);
  EXPECT_EQ(undefined_symbol_source(undefined("ioctl", "GLIBC_2.2.5", "libfoo.so.1"), false),
            SymbolSource::kNotAllowed);
}

TEST(LinkPolicy, UnversionedLibcSymbolIsRejected) {
  EXPECT_EQ(undefined_symbol_source(undefined("fopen"), false), SymbolSource::kNotAllowed);
}

TEST(LinkPolicy, LibnlNamesAreAllowedUnversioned) {
  EXPECT_EQ(undefined_symbol_source(undefined("nl_socket_alloc"), false), SymbolSource::kLibnl);
  EXPECT_EQ(undefined_symbol_source(undefined("nla_put"), false), SymbolSource::kLibnl);
  EXPECT_EQ(undefined_symbol_source(undefined("nlmsg_alloc"), false), SymbolSource::kLibnl);
  EXPECT_EQ(undefined_symbol_source(undefined("genl_connect"), false), SymbolSource::kLibnl);
  EXPECT_EQ(undefined_symbol_source(undefined("genlmsg_put"), false), SymbolSource::kLibnl);
  EXPECT_EQ(undefined_symbol_source(undefined("nlx_thing"), false), SymbolSource::kNotAllowed);
}

TEST(LinkPolicy, HostSymbolsAreAllowed) {
  EXPECT_EQ(undefined_symbol_source(undefined("_Z11logInternalPKcS0_S0_iiiiS0_z"), false),
            SymbolSource::kHost);
  EXPECT_EQ(undefined_symbol_source(undefined("_Z10forceCrashv"), false), SymbolSource::kHost);
  EXPECT_EQ(undefined_symbol_source(undefined("_Z5nowMsv"), false), SymbolSource::kHost);
  EXPECT_EQ(undefined_symbol_source(undefined("_Z7sleepMsj"), false), SymbolSource::kHost);
  EXPECT_EQ(undefined_symbol_source(undefined("_Z10fileExistsPKcb"), false), SymbolSource::kHost);
  EXPECT_EQ(undefined_symbol_source(undefined("nl80211_get_scanlist_cb"), false),
            SymbolSource::kHost);
  EXPECT_EQ(undefined_symbol_source(undefined("_ZN4qira7variant7VariantC1Ev"), false),
            SymbolSource::kHost);
  EXPECT_EQ(undefined_symbol_source(undefined("_ZTIN4qira7variant7VariantE"), false),
            SymbolSource::kHost);
  EXPECT_EQ(undefined_symbol_source(undefined("_Z12logSomethingv"), false),
            SymbolSource::kNotAllowed);
}

TEST(LinkPolicy, WeakCrtHooksAreAllowedOnlyWeak) {
  EXPECT_EQ(undefined_symbol_source(undefined("__gmon_start__", "", "", STB_WEAK), false),
            SymbolSource::kToolchainHook);
  EXPECT_EQ(
      undefined_symbol_source(undefined("_ITM_registerTMCloneTable", "", "", STB_WEAK), false),
      SymbolSource::kToolchainHook);
  EXPECT_EQ(undefined_symbol_source(undefined("__gmon_start__"), false), SymbolSource::kNotAllowed);
}

TEST(LinkPolicy, SanitizerSymbolsOnlyInSanitizedBuilds) {
  EXPECT_EQ(undefined_symbol_source(undefined("__asan_report_load4"), true),
            SymbolSource::kSanitizerRuntime);
  EXPECT_EQ(undefined_symbol_source(undefined("__asan_report_load4"), false),
            SymbolSource::kNotAllowed);
}

TEST(LinkPolicy, UnversionedCCallsPassOnlyAsSanitizerInterceptors) {
  EXPECT_EQ(undefined_symbol_source(undefined("ioctl"), true), SymbolSource::kSanitizerRuntime);
  EXPECT_EQ(undefined_symbol_source(undefined("ioctl"), false), SymbolSource::kNotAllowed);
  EXPECT_EQ(undefined_symbol_source(undefined("_Znwm"), true), SymbolSource::kSanitizerRuntime);
  EXPECT_EQ(undefined_symbol_source(undefined("_Znwm"), false), SymbolSource::kNotAllowed);
  // Any other C++ name is never an interceptor, sanitized or not.
  EXPECT_EQ(undefined_symbol_source(undefined("_ZN3foo3barEv"), true), SymbolSource::kNotAllowed);
}

TEST(LinkPolicy, BaseNameStripsParametersAndSpecialPrefixes) {
  EXPECT_EQ(base_name("logInternal(char const*, int)"), "logInternal");
  EXPECT_EQ(base_name("nl80211_get_scanlist_cb"), "nl80211_get_scanlist_cb");
  EXPECT_EQ(base_name("typeinfo for qira::variant::Variant"), "qira::variant::Variant");
}

}  // namespace
}  // namespace qira::test
