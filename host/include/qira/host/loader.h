// Loads the wireless module into this process the way the camera's host does:
// creates the library context with its shared interface state and ioctl
// socket, opens the module, and runs the init routines of the subsystems
// asked for (interface, events, scan, in that order) with the context's
// internal-call flag set; close runs the close routines of those that started
// the same way in reverse order.
#ifndef QIRA_HOST_LOADER_H
#define QIRA_HOST_LOADER_H

#include <string>

#include "qira/netlib/context.h"

namespace qira::host {

// Subsystems of the module that open() starts, as a bit set. The interface
// subsystem always starts: the others need its context. Events need a kernel
// with nl80211 (a cfg80211 driver), so a host that only queries interfaces
// runs on machines without a radio; the scan subsystem borrows the events
// socket, so asking for it starts events as well.
enum Subsystem : unsigned int {
  kInterfaceSubsystem = 1u << 0,
  kEventsSubsystem = 1u << 1,
  kScanSubsystem = 1u << 2,
};

class WirelessModule {
 public:
  WirelessModule();
  ~WirelessModule();  // close()
  WirelessModule(const WirelessModule&) = delete;
  WirelessModule& operator=(const WirelessModule&) = delete;

  // Opens the module at `path` (default_path() when empty) and initialises
  // the `subsystems` (Subsystem bits; the interface alone by default); a
  // module already open is closed first. False, with `error` set, when the
  // socket, the module or an init routine fails, or when the module lacks the
  // init or close routine of a subsystem asked for; nothing stays open then.
  bool open(const std::string& path, std::string* error = nullptr,
            unsigned int subsystems = kInterfaceSubsystem);
  void close();
  bool is_open() const { return handle_ != nullptr; }
  // Whether the events or scan subsystem was started by open().
  bool events_started() const { return events_started_; }
  bool scan_started() const { return scan_started_; }

  // The library context to pass to the module's functions.
  void* context() { return &context_; }
  qira::netlib::library_context& layout() { return context_; }

  // Address of an exported symbol (its mangled name for C++), or null.
  void* symbol(const char* name) const;

  // QIRA_WIRELESS_MODULE from the environment (secure_getenv: ignored in a
  // set-user-ID or set-group-ID process), else the module's SONAME
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
