// RTM_GETADDR dump and RTM_DELADDR requests through libnl's route library.
#include "route_netlink.h"

#include <dlfcn.h>
#include <netlink/cache.h>
#include <netlink/errno.h>
#include <netlink/netlink.h>
#include <netlink/route/addr.h>
#include <netlink/socket.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <memory>
#include <vector>

namespace qira::host::internal {

namespace {

// The kernel answers a route request at once: a reply that has not come
// within this long is not coming, and the host gives up rather than hang.
constexpr time_t kReplyDeadlineSeconds = 5;

// libnl's route library is opened on the first flush rather than named as
// a needed library: every program of the host would otherwise map and
// relocate it at its start (qira-wifi for every command), and only the
// flush of an interface's addresses calls it. Its ABI is libnl 3's, whose
// name has not changed since libnl 3.2.
constexpr const char kRouteLibrary[] = "libnl-route-3.so.200";

// The route library's functions that the flush calls.
struct route_functions {
  decltype(&rtnl_addr_alloc_cache) alloc_cache = nullptr;
  decltype(&rtnl_addr_put) put = nullptr;
  decltype(&rtnl_addr_get_family) get_family = nullptr;
  decltype(&rtnl_addr_get_ifindex) get_ifindex = nullptr;
  decltype(&rtnl_addr_delete) remove = nullptr;
};

template <typename Function>
bool resolve(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
  return function != nullptr;
}

// Opens `soname` and finds the functions: the library's handle, or null,
// with nothing left open, when either fails.
void* open_route_library(const char* soname, route_functions& functions) {
  void* library = dlopen(soname, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    return nullptr;
  }
  if (resolve(library, "rtnl_addr_alloc_cache", functions.alloc_cache) &&
      resolve(library, "rtnl_addr_put", functions.put) &&
      resolve(library, "rtnl_addr_get_family", functions.get_family) &&
      resolve(library, "rtnl_addr_get_ifindex", functions.get_ifindex) &&
      resolve(library, "rtnl_addr_delete", functions.remove)) {
    return library;
  }
  dlclose(library);
  functions = route_functions{};
  return nullptr;
}

// The route library's functions, opened once and kept open for the
// process's life; null when it does not open.
const route_functions* route_library() {
  static route_functions functions;
  static void* const library = open_route_library(kRouteLibrary, functions);
  return library != nullptr ? &functions : nullptr;
}

struct socket_deleter {
  void operator()(nl_sock* socket) const { nl_socket_free(socket); }
};
struct cache_deleter {
  void operator()(nl_cache* cache) const { nl_cache_free(cache); }
};
struct address_deleter {
  void operator()(rtnl_addr* address) const { route_library()->put(address); }
};
using route_socket = std::unique_ptr<nl_sock, socket_deleter>;
using address_cache = std::unique_ptr<nl_cache, cache_deleter>;
using address_reference = std::unique_ptr<rtnl_addr, address_deleter>;

// The errno value of a libnl error code (libnl's codes are its own).
int errno_of(int error) {
  switch (error < 0 ? -error : error) {
    case NLE_NOMEM:
      return ENOMEM;
    case NLE_PERM:
      return EPERM;
    case NLE_NOACCESS:
      return EACCES;
    case NLE_NODEV:
      return ENODEV;
    case NLE_NOADDR:
      return EADDRNOTAVAIL;
    case NLE_AGAIN:
      return ETIMEDOUT;  // the receive deadline passed
    case NLE_BUSY:
      return EBUSY;
    case NLE_INVAL:
      return EINVAL;
    case NLE_OPNOTSUPP:
      return EOPNOTSUPP;
    case NLE_AF_NOSUPPORT:
      return EAFNOSUPPORT;
    case NLE_MSG_TRUNC:
    case NLE_MSG_TOOSHORT:
    case NLE_MSG_OVERFLOW:
      return EBADMSG;
    default:
      return EIO;
  }
}

// A route socket whose every wait for a reply ends after the deadline.
int open_route_socket(route_socket& socket) {
  socket.reset(nl_socket_alloc());
  if (!socket) {
    return ENOMEM;
  }
  if (int error = nl_connect(socket.get(), NETLINK_ROUTE); error < 0) {
    return errno_of(error);
  }
  timeval deadline{};
  deadline.tv_sec = kReplyDeadlineSeconds;
  if (::setsockopt(nl_socket_get_fd(socket.get()), SOL_SOCKET, SO_RCVTIMEO, &deadline,
                   sizeof(deadline)) != 0) {
    return errno;
  }
  return 0;
}

}  // namespace

bool route_library_opens(const char* soname) {
  route_functions functions;
  void* library = open_route_library(soname, functions);
  if (library == nullptr) {
    return false;
  }
  dlclose(library);
  return true;
}

int flush_ipv4_addresses(unsigned int ifindex) {
  const route_functions* route = route_library();
  if (route == nullptr) {
    return ELIBACC;
  }
  route_socket socket;
  if (int error = open_route_socket(socket); error != 0) {
    return error;
  }
  nl_cache* dumped = nullptr;
  if (int error = route->alloc_cache(socket.get(), &dumped); error < 0) {
    return errno_of(error);
  }
  address_cache cache(dumped);
  // The addresses to remove, held while the cache is walked.
  std::vector<address_reference> addresses;
  for (nl_object* object = nl_cache_get_first(cache.get()); object != nullptr;
       object = nl_cache_get_next(object)) {
    auto* address = reinterpret_cast<rtnl_addr*>(object);
    if (route->get_family(address) == AF_INET &&
        static_cast<unsigned int>(route->get_ifindex(address)) == ifindex) {
      nl_object_get(object);
      addresses.emplace_back(address);
    }
  }
  for (const address_reference& address : addresses) {
    const int error = route->remove(socket.get(), address.get(), 0);
    // Secondary addresses leave together with their primary one.
    if (error < 0 && errno_of(error) != EADDRNOTAVAIL) {
      return errno_of(error);
    }
  }
  return 0;
}

}  // namespace qira::host::internal
