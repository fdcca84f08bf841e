// Loads the wireless module into this process the way the camera's host does:
// creates the library context with its shared interface state and ioctl
// socket, opens the module, and runs its init routines (interface, events,
// scan, in that order) with the context's internal-call flag set; close runs
// the close routines the same way in reverse order.
#ifndef QIRA_HOST_LOADER_H
#define QIRA_HOST_LOADER_H

#include <string>

#include "qira/netlib/context.h"

namespace qira::host {

class WirelessModule {
 public:
  WirelessModule();
  ~WirelessModule();  // close()
  WirelessModule(const WirelessModule&) = delete;
  WirelessModule& operator=(const WirelessModule&) = delete;

  // Opens the module at `path` (default_path() when empty) and initialises it;
  // a module already open is closed first.
  // A module that lacks the events or scan routines is run without them.
  // False, with `error` set, when the socket, the module or an init routine
  // fails; nothing stays open then.
  bool open(const std::string& path, std::string* error = nullptr);
  void close();
  bool is_open() const { return handle_ != nullptr; }

  // The library context to pass to the module's functions.
  void* context() { return &context_; }
  qira::netlib::library_context& layout() { return context_; }

  // Address of an exported symbol (its mangled name for C++), or null.
  void* symbol(const char* name) const;

  // QIRA_WIRELESS_MODULE from the environment, else the module's SONAME
  // ("libqira_network_utils_wireless.so.1"), found by the dynamic loader.
  static std::string default_path();

 private:
  void* handle_ = nullptr;
  qira::netlib::iface_state iface_{};
  qira::netlib::library_context context_{};
  bool events_started_ = false;
  bool scan_started_ = false;
};

}  // namespace qira::host

#endif  // QIRA_HOST_LOADER_H
