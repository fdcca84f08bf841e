// The text of src/exported_symbols.txt, embedded by the build
// (exported_symbols_text.cpp.in).
#ifndef QIRA_INSPECT_EXPORTED_SYMBOLS_TEXT_H
#define QIRA_INSPECT_EXPORTED_SYMBOLS_TEXT_H

namespace qira::inspect::detail {

// One demangled name per line.
const char* exported_symbols_text();

}  // namespace qira::inspect::detail

#endif  // QIRA_INSPECT_EXPORTED_SYMBOLS_TEXT_H
