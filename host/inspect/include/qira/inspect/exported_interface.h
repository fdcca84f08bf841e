// The wireless module's exported interface as a list of demangled names (the
// checked-in src/exported_symbols.txt, compiled in), and the same view of a
// module file, so that a host can tell whether the file it loads is complete.
#ifndef QIRA_INSPECT_EXPORTED_INTERFACE_H
#define QIRA_INSPECT_EXPORTED_INTERFACE_H

#include <string>
#include <vector>

#include "qira/inspect/elf_dynamic.h"

namespace qira::inspect {

// The names the module must export, sorted, each once.
const std::vector<std::string>& exported_interface();

// The demangled names of the defined, non-local dynamic symbols of `info`,
// sorted, each once: a class's complete and base object constructors (and
// destructors) are two symbols with one demangled text.
std::vector<std::string> exported_names(const DynamicInfo& info);

// The entries of sorted `from` that sorted `other` lacks.
std::vector<std::string> names_missing_from(const std::vector<std::string>& from,
                                            const std::vector<std::string>& other);

}  // namespace qira::inspect

#endif  // QIRA_INSPECT_EXPORTED_INTERFACE_H
