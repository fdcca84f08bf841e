// The wireless module as qira-wifi runs it: opened and initialised through
// the reference host's loader, exactly as a camera's host does, with its
// exported functions looked up in the file that was opened.
#ifndef QIRA_TOOLS_QIRA_WIFI_MODULE_SESSION_H
#define QIRA_TOOLS_QIRA_WIFI_MODULE_SESSION_H

#include <string>

#include "qira/host/loader.h"

namespace qira::wifi {

class ModuleSession {
 public:
  ModuleSession() = default;
  ModuleSession(const ModuleSession&) = delete;
  ModuleSession& operator=(const ModuleSession&) = delete;

  // Opens the module at `path` (the loader's default when empty) and runs the
  // init routines of `subsystems` (qira::host::Subsystem bits; the interface
  // alone by default). False, with `error` set, when that fails.
  bool open(const std::string& path, std::string& error,
            unsigned int subsystems = qira::host::kInterfaceSubsystem);
  // The path the module was opened from, as given to the loader.
  const std::string& path() const { return path_; }
  void* context() { return module_.context(); }

  // The opened module's definition of the exported function that `linked`
  // (the address this program was linked against) names, or null with
  // `error` set. Looking it up in the opened file, rather than calling the
  // linked copy, is what makes --module PATH run the module at PATH.
  template <typename Function>
  Function* function(Function* linked, std::string& error) const {
    return reinterpret_cast<Function*>(resolve(reinterpret_cast<void*>(linked), error));
  }

 private:
  void* resolve(void* linked, std::string& error) const;

  qira::host::WirelessModule module_;
  std::string path_;
};

}  // namespace qira::wifi

#endif  // QIRA_TOOLS_QIRA_WIFI_MODULE_SESSION_H
