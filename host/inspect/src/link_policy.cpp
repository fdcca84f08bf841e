#include "qira/inspect/link_policy.h"

#include <elf.h>

#include <array>

namespace qira::inspect {

namespace {

constexpr std::array<const char*, 4> kRuntimeLibraries = {"libstdc++.so.6", "libgcc_s.so.1",
                                                          "libc.so.6", "libm.so.6"};
constexpr std::array<const char*, 4> kRuntimeVersionPrefixes = {"GLIBC_", "GLIBCXX_", "CXXABI_",
                                                                "GCC_"};
constexpr std::array<const char*, 5> kLibnlPrefixes = {"nl_", "nla_", "nlmsg_", "genl", "genlmsg_"};
// Host services that are not in namespace qira.
constexpr std::array<const char*, 6> kHostFunctions = {
    "logInternal", "forceCrash", "nowMs", "sleepMs", "fileExists", "nl80211_get_scanlist_cb"};
// Added by crt files (profiling and transactional memory hooks), always weak.
constexpr std::array<const char*, 3> kToolchainHooks = {
    "__gmon_start__", "_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable"};
constexpr std::array<const char*, 4> kSanitizerLibraryPrefixes = {"libasan.so.", "libubsan.so.",
                                                                  "liblsan.so.", "libtsan.so."};
constexpr std::array<const char*, 4> kSanitizerSymbolPrefixes = {"__asan_", "__ubsan_",
                                                                 "__sanitizer_", "__lsan_"};
// Demangled forms of the special symbols of a type.
constexpr std::array<const char*, 5> kSpecialNamePrefixes = {
    "vtable for ", "typeinfo for ", "typeinfo name for ", "VTT for ", "guard variable for "};

bool starts_with(const std::string& text, const char* prefix) {
  return text.rfind(prefix, 0) == 0;
}

template <std::size_t N>
bool starts_with_any(const std::string& text, const std::array<const char*, N>& prefixes) {
  for (const char* prefix : prefixes) {
    if (starts_with(text, prefix)) {
      return true;
    }
  }
  return false;
}

template <std::size_t N>
bool is_one_of(const std::string& text, const std::array<const char*, N>& names) {
  for (const char* name : names) {
    if (text == name) {
      return true;
    }
  }
  return false;
}

bool is_runtime_library(const std::string& library) {
  return is_one_of(library, kRuntimeLibraries);
}

}  // namespace

std::string base_name(const std::string& demangled) {
  std::string name = demangled.substr(0, demangled.find('('));
  for (const char* prefix : kSpecialNamePrefixes) {
    if (starts_with(name, prefix)) {
      return name.substr(std::string(prefix).size());
    }
  }
  return name;
}

bool is_allowed_needed_library(const std::string& library, bool sanitized_build) {
  return is_runtime_library(library) ||
         (sanitized_build && starts_with_any(library, kSanitizerLibraryPrefixes));
}

SymbolSource undefined_symbol_source(const DynamicSymbol& symbol, bool sanitized_build) {
  if (!symbol.required_version.empty()) {
    // A versioned symbol is bound to its library: only the runtime's count.
    return starts_with_any(symbol.required_version, kRuntimeVersionPrefixes) &&
                   is_runtime_library(symbol.required_from)
               ? SymbolSource::kSystemRuntime
               : SymbolSource::kNotAllowed;
  }
  const std::string name = base_name(demangle(symbol.name));
  if (starts_with_any(symbol.name, kLibnlPrefixes)) {
    return SymbolSource::kLibnl;
  }
  if (starts_with(name, "qira::") || is_one_of(name, kHostFunctions)) {
    return SymbolSource::kHost;
  }
  if (symbol.binding == STB_WEAK && is_one_of(symbol.name, kToolchainHooks)) {
    return SymbolSource::kToolchainHook;
  }
  if (sanitized_build && starts_with_any(symbol.name, kSanitizerSymbolPrefixes)) {
    return SymbolSource::kSanitizerRuntime;
  }
  // A sanitizer runtime defines unversioned interceptors of the C library's
  // calls (ioctl, memcpy, ...), and the linker binds the module to those.
  if (sanitized_build && name == symbol.name && name.find("::") == std::string::npos) {
    return SymbolSource::kSanitizerRuntime;
  }
  // ... and of the C++ allocation functions.
  if (sanitized_build &&
      (starts_with(name, "operator new") || starts_with(name, "operator delete"))) {
    return SymbolSource::kSanitizerRuntime;
  }
  return SymbolSource::kNotAllowed;
}

}  // namespace qira::inspect
