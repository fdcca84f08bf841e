#include "module_session.h"

#include <dlfcn.h>

#include "qira/inspect/elf_dynamic.h"

namespace qira::wifi {

bool ModuleSession::open(const std::string& path, std::string& error, unsigned int subsystems) {
  path_ = path.empty() ? qira::host::WirelessModule::default_path() : path;
  std::string reason;
  if (!module_.open(path_, &reason, subsystems)) {
    // The loader names the file when opening it failed; say which module it
    // was when an init routine or the ioctl socket failed instead.
    error = reason.find(path_) == std::string::npos ? reason + " (module " + path_ + ")" : reason;
    return false;
  }
  return true;
}

void* ModuleSession::resolve(void* linked, std::string& error) const {
  // The symbol name comes from the dynamic linker's own record of the linked
  // definition, so the signature (from the header) and the name can never
  // disagree.
  Dl_info info{};
  if (dladdr(linked, &info) == 0 || info.dli_sname == nullptr) {
    error = "cannot name an exported function of the module";
    return nullptr;
  }
  void* address = module_.symbol(info.dli_sname);
  if (address == nullptr) {
    error = "module " + path_ + " does not export " + qira::inspect::demangle(info.dli_sname);
  }
  return address;
}

}  // namespace qira::wifi
