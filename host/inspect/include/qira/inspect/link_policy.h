// What the module may take from the process that loads it: the needed
// libraries of the system runtime, and undefined symbols that the system
// runtime, libnl or the host library provide. A camera's firmware ships the
// module beside a host that links libnl; anything else would fail to load there.
#ifndef QIRA_INSPECT_LINK_POLICY_H
#define QIRA_INSPECT_LINK_POLICY_H

#include <string>

#include "qira/inspect/elf_dynamic.h"

namespace qira::inspect {

// Where an undefined symbol of the module is allowed to come from.
enum class SymbolSource {
  kNotAllowed,
  kSystemRuntime,     // versioned GLIBC_, GLIBCXX_, CXXABI_ or GCC_ from an allowed library
  kLibnl,             // nl_, nla_, nlmsg_, genl..., resolved from the host process
  kHost,              // the host library: qira::..., logInternal, forceCrash, ...
  kToolchainHook,     // weak hooks that crt files add to every shared object
  kSanitizerRuntime,  // only in sanitizer builds
};

// Whether `library` may be a DT_NEEDED entry of the module.
bool is_allowed_needed_library(const std::string& library, bool sanitized_build);

// The allowed source of the undefined dynamic symbol `symbol`, or kNotAllowed.
SymbolSource undefined_symbol_source(const DynamicSymbol& symbol, bool sanitized_build);

// The identifier that names a function or object: "logInternal" for
// "logInternal(char const*, ...)", the name itself for a C name.
std::string base_name(const std::string& demangled);

}  // namespace qira::inspect

#endif  // QIRA_INSPECT_LINK_POLICY_H
