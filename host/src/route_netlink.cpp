// RTM_GETADDR dump and RTM_DELADDR requests through libnl's route library.
#include "route_netlink.h"

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

struct socket_deleter {
  void operator()(nl_sock* socket) const { nl_socket_free(socket); }
};
struct cache_deleter {
  void operator()(nl_cache* cache) const { nl_cache_free(cache); }
};
struct address_deleter {
  void operator()(rtnl_addr* address) const { rtnl_addr_put(address); }
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

int flush_ipv4_addresses(unsigned int ifindex) {
  route_socket socket;
  if (int error = open_route_socket(socket); error != 0) {
    return error;
  }
  nl_cache* dumped = nullptr;
  if (int error = rtnl_addr_alloc_cache(socket.get(), &dumped); error < 0) {
    return errno_of(error);
  }
  address_cache cache(dumped);
  // The addresses to remove, held while the cache is walked.
  std::vector<address_reference> addresses;
  for (nl_object* object = nl_cache_get_first(cache.get()); object != nullptr;
       object = nl_cache_get_next(object)) {
    auto* address = reinterpret_cast<rtnl_addr*>(object);
    if (rtnl_addr_get_family(address) == AF_INET &&
        static_cast<unsigned int>(rtnl_addr_get_ifindex(address)) == ifindex) {
      nl_object_get(object);
      addresses.emplace_back(address);
    }
  }
  for (const address_reference& address : addresses) {
    const int error = rtnl_addr_delete(socket.get(), address.get(), 0);
    // Secondary addresses leave together with their primary one.
    if (error < 0 && errno_of(error) != EADDRNOTAVAIL) {
      return errno_of(error);
    }
  }
  return 0;
}

}  // namespace qira::host::internal
