// The dynamic-linking view of a shared object, read from its ELF file: its
// SONAME, needed libraries and dynamic symbols with their symbol versions.
// The interface tests and `qira-wifi doctor` compare these with what the
// module may export and need. The file is outside input: every read is
// bounds-checked and a malformed file is refused, never trusted.
#ifndef QIRA_INSPECT_ELF_DYNAMIC_H
#define QIRA_INSPECT_ELF_DYNAMIC_H

#include <string>
#include <vector>

namespace qira::inspect {

struct DynamicSymbol {
  std::string name;  // as stored (mangled for C++)
  bool defined = false;
  unsigned char binding = 0;     // STB_*
  unsigned char type = 0;        // STT_*
  unsigned char visibility = 0;  // STV_*
  // The .gnu.version index: 0 local, 1 global (no version), else a version.
  unsigned int version_index = 0;
  // For an undefined symbol with a version requirement: the version
  // ("GLIBC_2.2.5") and the library it is required from ("libc.so.6").
  std::string required_version;
  std::string required_from;
};

struct DynamicInfo {
  std::string soname;
  std::vector<std::string> needed;     // DT_NEEDED, in order
  std::vector<DynamicSymbol> symbols;  // .dynsym without its null entry
};

// Decodes an ELF shared object (32 or 64 bit, this machine's byte order).
// False, with `error` set, for anything malformed or truncated.
bool parse_elf_dynamic(const std::vector<unsigned char>& bytes, DynamicInfo& info,
                       std::string& error);

// parse_elf_dynamic of the file at `path`.
bool read_elf_dynamic(const std::string& path, DynamicInfo& info, std::string& error);

// The readable form of a C++ symbol name; other names unchanged.
std::string demangle(const std::string& name);

}  // namespace qira::inspect

#endif  // QIRA_INSPECT_ELF_DYNAMIC_H
