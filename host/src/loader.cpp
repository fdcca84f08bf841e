// WirelessModule: builds the library context, loads the wireless module and
// runs its init and close routines the way the camera's host does.
#include "qira/host/loader.h"

#include <dlfcn.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace qira::host {

namespace {

using lifecycle_routine = bool (*)(void*);

constexpr const char* kDefaultModule = "libqira_network_utils_wireless.so.1";
constexpr const char* kModuleEnvironment = "QIRA_WIRELESS_MODULE";

// The module's routines are C++ functions of namespace qira::network taking
// the context as void*; these are their mangled names.
constexpr const char* kIfaceInit = "_ZN4qira7network29netlib_libiface_wireless_initEPv";
constexpr const char* kIfaceClose = "_ZN4qira7network30netlib_libiface_wireless_closeEPv";
constexpr const char* kEventsInit = "_ZN4qira7network30netlib_libevents_wireless_initEPv";
constexpr const char* kEventsClose = "_ZN4qira7network31netlib_libevents_wireless_closeEPv";
constexpr const char* kScanInit = "_ZN4qira7network28netlib_libscan_wireless_initEPv";
constexpr const char* kScanClose = "_ZN4qira7network29netlib_libscan_wireless_closeEPv";

lifecycle_routine find_routine(void* handle, const char* name) {
  return reinterpret_cast<lifecycle_routine>(::dlsym(handle, name));
}

void set_error(std::string* error, const std::string& text) {
  if (error != nullptr) {
    *error = text;
  }
}

}  // namespace

WirelessModule::WirelessModule() {
  iface_.ioctl_fd = -1;
}

WirelessModule::~WirelessModule() {
  close();
}

bool WirelessModule::open(const std::string& path, std::string* error, unsigned int subsystems) {
  close();
  // Scan borrows the events socket: asking for it asks for events.
  const bool want_scan = (subsystems & kScanSubsystem) != 0;
  const bool want_events = want_scan || (subsystems & kEventsSubsystem) != 0;
  iface_ = qira::netlib::iface_state{};
  iface_.ioctl_fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (iface_.ioctl_fd < 0) {
    set_error(error, std::string("cannot open the ioctl socket: ") + std::strerror(errno));
    return false;
  }
  iface_.initialised = 1;
  context_ = qira::netlib::library_context{};
  context_.iface = &iface_;

  const std::string module_path = path.empty() ? default_path() : path;
  handle_ = ::dlopen(module_path.c_str(), RTLD_NOW | RTLD_GLOBAL);
  if (handle_ == nullptr) {
    const char* reason = ::dlerror();
    set_error(error, std::string("cannot load ") + module_path + ": " +
                         (reason != nullptr ? reason : "unknown error"));
    close();
    return false;
  }
  lifecycle_routine iface_init = find_routine(handle_, kIfaceInit);
  lifecycle_routine iface_close = find_routine(handle_, kIfaceClose);
  if (iface_init == nullptr) {
    set_error(error, module_path + " has no netlib_libiface_wireless_init");
    close();
    return false;
  }
  lifecycle_routine events_init = find_routine(handle_, kEventsInit);
  lifecycle_routine events_close = find_routine(handle_, kEventsClose);
  lifecycle_routine scan_init = find_routine(handle_, kScanInit);
  lifecycle_routine scan_close = find_routine(handle_, kScanClose);
  if (want_events && (events_init == nullptr || events_close == nullptr)) {
    set_error(error, module_path + " has no netlib_libevents_wireless_init or _close");
    close();
    return false;
  }
  if (want_scan && (scan_init == nullptr || scan_close == nullptr)) {
    set_error(error, module_path + " has no netlib_libscan_wireless_init or _close");
    close();
    return false;
  }

  context_.internal_call = 1;
  bool iface_started = iface_init(context());
  bool ok = iface_started;
  if (!ok) {
    set_error(error, "netlib_libiface_wireless_init failed");
  }
  if (ok && want_events) {
    ok = events_started_ = events_init(context());
    if (!ok) {
      // A failed events init leaves its slot as it was, pointing at freed
      // memory: the module must not be called with this context again.
      set_error(error, "netlib_libevents_wireless_init failed");
    }
  }
  if (ok && want_scan) {
    ok = scan_started_ = scan_init(context());
    if (!ok) {
      set_error(error, "netlib_libscan_wireless_init failed");
    }
  }
  if (!ok) {
    // Undo, in reverse order, the routines that succeeded.
    if (events_started_) {
      events_close(context());
    }
    if (iface_started && iface_close != nullptr) {
      iface_close(context());
    }
    events_started_ = false;
    ::dlclose(handle_);
    handle_ = nullptr;
  }
  context_.internal_call = 0;
  if (!ok) {
    close();
  }
  return ok;
}

void WirelessModule::close() {
  if (handle_ != nullptr) {
    context_.internal_call = 1;
    if (scan_started_) {
      find_routine(handle_, kScanClose)(context());
    }
    if (events_started_) {
      find_routine(handle_, kEventsClose)(context());
    }
    if (lifecycle_routine iface_close = find_routine(handle_, kIfaceClose)) {
      iface_close(context());
    }
    context_.internal_call = 0;
    ::dlclose(handle_);
    handle_ = nullptr;
  }
  scan_started_ = false;
  events_started_ = false;
  if (iface_.ioctl_fd >= 0) {
    ::close(iface_.ioctl_fd);
  }
  iface_ = qira::netlib::iface_state{};
  iface_.ioctl_fd = -1;
  context_ = qira::netlib::library_context{};
}

void* WirelessModule::symbol(const char* name) const {
  return handle_ != nullptr && name != nullptr ? ::dlsym(handle_, name) : nullptr;
}

// The environment chooses the library a root process loads: it is read only
// where it can be trusted (secure_getenv: not in a set-user-ID or
// set-group-ID process). An explicit path given to open() wins over it.
std::string WirelessModule::default_path() {
  const char* from_environment = ::secure_getenv(kModuleEnvironment);
  if (from_environment != nullptr && from_environment[0] != '\0') {
    return from_environment;
  }
  return kDefaultModule;
}

}  // namespace qira::host
