#include "qira/inspect/elf_dynamic.h"

#include <cxxabi.h>
#include <elf.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>

namespace qira::inspect {

namespace {

struct Elf32Types {
  using Ehdr = Elf32_Ehdr;
  using Shdr = Elf32_Shdr;
  using Sym = Elf32_Sym;
  using Dyn = Elf32_Dyn;
  static unsigned char bind(unsigned char info) { return ELF32_ST_BIND(info); }
  static unsigned char type(unsigned char info) { return ELF32_ST_TYPE(info); }
  static unsigned char visibility(unsigned char other) { return ELF32_ST_VISIBILITY(other); }
};

struct Elf64Types {
  using Ehdr = Elf64_Ehdr;
  using Shdr = Elf64_Shdr;
  using Sym = Elf64_Sym;
  using Dyn = Elf64_Dyn;
  static unsigned char bind(unsigned char info) { return ELF64_ST_BIND(info); }
  static unsigned char type(unsigned char info) { return ELF64_ST_TYPE(info); }
  static unsigned char visibility(unsigned char other) { return ELF64_ST_VISIBILITY(other); }
};

// Bounds-checked reads of the file image.
class Image {
 public:
  explicit Image(const std::vector<unsigned char>& bytes) : bytes_(bytes) {}

  template <typename T>
  bool read(unsigned long long offset, T& out) const {
    if (offset > bytes_.size() || bytes_.size() - offset < sizeof(T)) {
      return false;
    }
    std::memcpy(&out, bytes_.data() + offset, sizeof(T));
    return true;
  }

  // The NUL-terminated string at `offset` of the string table section.
  template <typename Shdr>
  bool string_at(const Shdr& table, unsigned long long offset, std::string& out) const {
    if (offset >= table.sh_size || table.sh_offset > bytes_.size() ||
        bytes_.size() - table.sh_offset < table.sh_size) {
      return false;
    }
    const char* begin = reinterpret_cast<const char*>(bytes_.data() + table.sh_offset + offset);
    const std::size_t limit = table.sh_size - offset;
    const std::size_t length = strnlen(begin, limit);
    if (length == limit) {
      return false;
    }
    out.assign(begin, length);
    return true;
  }

 private:
  const std::vector<unsigned char>& bytes_;
};

template <typename Types>
class Parser {
 public:
  using Ehdr = typename Types::Ehdr;
  using Shdr = typename Types::Shdr;
  using Sym = typename Types::Sym;
  using Dyn = typename Types::Dyn;

  Parser(const Image& image, DynamicInfo& info, std::string& error)
      : image_(image), info_(info), error_(error) {}

  bool run() {
    Ehdr header;
    if (!image_.read(0, header)) {
      return fail("truncated ELF header");
    }
    if (header.e_shentsize != sizeof(Shdr)) {
      return fail("unexpected section header size");
    }
    for (unsigned int i = 0; i < header.e_shnum; ++i) {
      Shdr section;
      if (!image_.read(header.e_shoff + static_cast<unsigned long long>(i) * sizeof(Shdr),
                       section)) {
        return fail("truncated section header table");
      }
      sections_.push_back(section);
    }
    const Shdr* dynsym = find(SHT_DYNSYM);
    const Shdr* dynamic = find(SHT_DYNAMIC);
    if (dynsym == nullptr || dynamic == nullptr) {
      return fail("no dynamic symbol table or dynamic section");
    }
    std::map<unsigned int, std::pair<std::string, std::string>> versions;
    return read_dynamic(*dynamic) && read_version_requirements(versions) &&
           read_symbols(*dynsym, versions);
  }

 private:
  bool fail(const std::string& message) {
    error_ = message;
    return false;
  }

  const Shdr* find(unsigned int type) const {
    for (const Shdr& section : sections_) {
      if (section.sh_type == type) {
        return &section;
      }
    }
    return nullptr;
  }

  const Shdr* linked(const Shdr& section) const {
    return section.sh_link < sections_.size() ? &sections_[section.sh_link] : nullptr;
  }

  bool read_dynamic(const Shdr& dynamic) {
    const Shdr* strings = linked(dynamic);
    if (strings == nullptr) {
      return fail("dynamic section without string table");
    }
    for (unsigned long long offset = 0; offset + sizeof(Dyn) <= dynamic.sh_size;
         offset += sizeof(Dyn)) {
      Dyn entry;
      if (!image_.read(dynamic.sh_offset + offset, entry)) {
        return fail("truncated dynamic section");
      }
      if (entry.d_tag == DT_NULL) {
        break;
      }
      if (entry.d_tag != DT_NEEDED && entry.d_tag != DT_SONAME) {
        continue;
      }
      std::string name;
      if (!image_.string_at(*strings, entry.d_un.d_val, name)) {
        return fail("bad string in dynamic section");
      }
      if (entry.d_tag == DT_NEEDED) {
        info_.needed.push_back(name);
      } else {
        info_.soname = name;
      }
    }
    return true;
  }

  // Version index -> (version name, library) from .gnu.version_r.
  bool read_version_requirements(
      std::map<unsigned int, std::pair<std::string, std::string>>& versions) {
    const Shdr* requirements = find(SHT_GNU_verneed);
    if (requirements == nullptr) {
      return true;
    }
    const Shdr* strings = linked(*requirements);
    if (strings == nullptr) {
      return fail("version requirements without string table");
    }
    unsigned long long offset = requirements->sh_offset;
    for (unsigned int n = 0; n < requirements->sh_info; ++n) {
      Elf64_Verneed need;  // same layout in ELF32 (all 16- and 32-bit fields)
      std::string file;
      if (!image_.read(offset, need) || !image_.string_at(*strings, need.vn_file, file)) {
        return fail("bad version requirement");
      }
      unsigned long long aux_offset = offset + need.vn_aux;
      for (unsigned int a = 0; a < need.vn_cnt; ++a) {
        Elf64_Vernaux aux;
        std::string name;
        if (!image_.read(aux_offset, aux) || !image_.string_at(*strings, aux.vna_name, name)) {
          return fail("bad version requirement entry");
        }
        versions[aux.vna_other & 0x7fff] = {name, file};
        aux_offset += aux.vna_next;
      }
      if (need.vn_next == 0) {
        break;
      }
      offset += need.vn_next;
    }
    return true;
  }

  bool read_symbols(const Shdr& dynsym,
                    const std::map<unsigned int, std::pair<std::string, std::string>>& versions) {
    const Shdr* strings = linked(dynsym);
    if (strings == nullptr || dynsym.sh_entsize != sizeof(Sym)) {
      return fail("malformed dynamic symbol table");
    }
    const Shdr* version_table = find(SHT_GNU_versym);
    const unsigned long long count = dynsym.sh_size / sizeof(Sym);
    for (unsigned long long i = 1; i < count; ++i) {
      Sym symbol;
      if (!image_.read(dynsym.sh_offset + i * sizeof(Sym), symbol)) {
        return fail("truncated dynamic symbol table");
      }
      DynamicSymbol entry;
      if (!image_.string_at(*strings, symbol.st_name, entry.name)) {
        return fail("bad dynamic symbol name");
      }
      entry.defined = symbol.st_shndx != SHN_UNDEF;
      entry.binding = Types::bind(symbol.st_info);
      entry.type = Types::type(symbol.st_info);
      entry.visibility = Types::visibility(symbol.st_other);
      if (version_table != nullptr) {
        Elf64_Half index = 0;
        if (!image_.read(version_table->sh_offset + i * sizeof(Elf64_Half), index)) {
          return fail("truncated symbol version table");
        }
        entry.version_index = index & 0x7fff;
        auto version = versions.find(entry.version_index);
        if (!entry.defined && version != versions.end()) {
          entry.required_version = version->second.first;
          entry.required_from = version->second.second;
        }
      } else {
        entry.version_index = VER_NDX_GLOBAL;
      }
      info_.symbols.push_back(entry);
    }
    return true;
  }

  const Image& image_;
  DynamicInfo& info_;
  std::string& error_;
  std::vector<Shdr> sections_;
};

bool native_byte_order(unsigned char data) {
  const unsigned int probe = 1;
  unsigned char first = 0;
  std::memcpy(&first, &probe, 1);
  return data == (first == 1 ? ELFDATA2LSB : ELFDATA2MSB);
}

}  // namespace

bool parse_elf_dynamic(const std::vector<unsigned char>& bytes, DynamicInfo& info,
                       std::string& error) {
  info = DynamicInfo{};
  if (bytes.size() < EI_NIDENT || std::memcmp(bytes.data(), ELFMAG, SELFMAG) != 0) {
    error = "not an ELF file";
    return false;
  }
  if (!native_byte_order(bytes[EI_DATA])) {
    error = "ELF file of the other byte order";
    return false;
  }
  const Image image(bytes);
  switch (bytes[EI_CLASS]) {
    case ELFCLASS32:
      return Parser<Elf32Types>(image, info, error).run();
    case ELFCLASS64:
      return Parser<Elf64Types>(image, info, error).run();
    default:
      error = "unknown ELF class";
      return false;
  }
}

bool read_elf_dynamic(const std::string& path, DynamicInfo& info, std::string& error) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    error = "cannot open " + path;
    return false;
  }
  const std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(file)),
                                         std::istreambuf_iterator<char>());
  return parse_elf_dynamic(bytes, info, error);
}

std::string demangle(const std::string& name) {
  int status = 0;
  std::unique_ptr<char, decltype(&std::free)> readable(
      abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status), &std::free);
  return status == 0 && readable ? std::string(readable.get()) : name;
}

}  // namespace qira::inspect
