// The wired part of netlib's network manager: interface flags, IPv4
// addressing, the default route, the resolver file and the DHCP client.
#include "qira/network/netlib_host.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host_internal.h"
#include "qira/netlib/context.h"
#include "qira/utils/file.h"
#include "qira/utils/process.h"
#include "qira/utils/strings.h"
#include "route_netlink.h"

namespace qira::network {

namespace {

using qira::host::internal::kHostModule;
using qira::host::internal::kLogError;
using qira::host::internal::kLogInfo;
using qira::host::internal::kLogWarning;
using qira::host::internal::unique_fd;

constexpr const char* kResolverFile = "/etc/resolv.conf";
constexpr unsigned int kResolverPermissions = 0644;  // every program reads it
constexpr const char* kDhcpClient = "/sbin/udhcpc";
constexpr const char* kDhcpScript = "/etc/udhcpc/default.script";
constexpr const char* kFallbackAddress = "192.168.1.20";
constexpr const char* kFallbackNetmask = "255.255.255.0";
// Bound on the default routes removed before a new one is added.
constexpr int kMaxDefaultRoutes = 16;

// The context's ioctl socket, or a private one when the context has none.
class ioctl_socket {
 public:
  explicit ioctl_socket(void* ctx) {
    auto* context = static_cast<qira::netlib::library_context*>(ctx);
    if (context != nullptr && context->iface != nullptr && context->iface->ioctl_fd >= 0) {
      fd_ = context->iface->ioctl_fd;
      return;
    }
    owned_.reset(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    fd_ = owned_.get();
    if (fd_ < 0) {
      HOST_LOG(kHostModule, kLogError, errno, "Cannot open an interface socket");
    }
  }
  int get() const { return fd_; }

 private:
  unique_fd owned_;
  int fd_ = -1;
};

bool make_ifreq(const std::string& ifname, ifreq& request) {
  if (ifname.empty() || ifname.size() >= IFNAMSIZ) {
    HOST_LOG(kHostModule, kLogError, EINVAL, "Invalid interface name \"%s\"", ifname.c_str());
    return false;
  }
  std::memset(&request, 0, sizeof(request));
  std::memcpy(request.ifr_name, ifname.c_str(), ifname.size());
  return true;
}

sockaddr_in ipv4_sockaddr(const std::string& text) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  ::inet_pton(AF_INET, text.c_str(), &address.sin_addr);
  return address;
}

// SIOCSIFADDR or SIOCSIFNETMASK with an already validated value.
bool set_ipv4(int fd, const std::string& ifname, unsigned long request_code, const char* what,
              const std::string& value) {
  ifreq request;
  if (!make_ifreq(ifname, request)) {
    return false;
  }
  sockaddr_in address = ipv4_sockaddr(value);
  std::memcpy(&request.ifr_addr, &address, sizeof(address));
  if (::ioctl(fd, request_code, &request) < 0) {
    HOST_LOG(kHostModule, kLogError, errno, "Cannot set the %s %s on %s", what, value.c_str(),
             ifname.c_str());
    return false;
  }
  return true;
}

// Replaces the default route by one through `gateway` on `ifname`.
bool set_default_route(int fd, const std::string& ifname, const std::string& gateway) {
  rtentry route{};
  sockaddr_in any = ipv4_sockaddr("0.0.0.0");
  std::memcpy(&route.rt_dst, &any, sizeof(any));
  std::memcpy(&route.rt_genmask, &any, sizeof(any));
  for (int i = 0; i < kMaxDefaultRoutes && ::ioctl(fd, SIOCDELRT, &route) == 0; ++i) {
  }
  sockaddr_in via = ipv4_sockaddr(gateway);
  std::memcpy(&route.rt_gateway, &via, sizeof(via));
  route.rt_flags = RTF_UP | RTF_GATEWAY;
  std::string device = ifname;
  route.rt_dev = device.data();
  if (::ioctl(fd, SIOCADDRT, &route) < 0) {
    HOST_LOG(kHostModule, kLogError, errno, "Cannot add the default route via %s on %s",
             gateway.c_str(), ifname.c_str());
    return false;
  }
  return true;
}

// Text of the resolver file: the search domain, then one line per server.
std::string resolver_text(const std::vector<std::string>& name_servers,
                          const std::string& search_domain) {
  std::string text;
  if (!search_domain.empty()) {
    text += "search " + search_domain + "\n";
  }
  for (const std::string& server : name_servers) {
    text += "nameserver " + server + "\n";
  }
  return text;
}

bool write_resolver_file(const std::string& text) {
  qira::utils::File file;
  if (!file.Initialize(kResolverFile, qira::utils::FILE_OPEN_WRITE, kResolverPermissions) ||
      !file.WriteString(text)) {
    HOST_LOG(kHostModule, kLogError, errno, "Cannot write %s", kResolverFile);
    return false;
  }
  return true;
}

bool set_hostname(const std::string& hostname) {
  if (::sethostname(hostname.data(), hostname.size()) != 0) {
    HOST_LOG(kHostModule, kLogError, errno, "Cannot set the host name to %s", hostname.c_str());
    return false;
  }
  return true;
}

bool valid_or_log(bool valid, const char* what, const std::string& value,
                  const std::string& ifname) {
  if (!valid) {
    HOST_LOG(kHostModule, kLogError, EINVAL, "Invalid %s \"%s\" for %s", what, value.c_str(),
             ifname.c_str());
  }
  return valid;
}

// `value` when `valid`, else `fallback` with a warning.
std::string value_or_fallback(bool valid, const char* what, const std::string& value,
                              const char* fallback, const std::string& ifname) {
  if (valid) {
    return value;
  }
  HOST_LOG(kHostModule, kLogWarning, 0, "Invalid %s \"%s\" for %s, using %s", what, value.c_str(),
           ifname.c_str(), fallback[0] != '\0' ? fallback : "none");
  return fallback;
}

const char* flag_text(bool flag) {
  return flag ? "true" : "false";
}

// The installed NetlibRecorder, which then answers instead of the function.
qira::host::NetlibRecorder* recorder() {
  return qira::host::internal::current_netlib_recorder();
}

}  // namespace

bool netlib_iface_set_up(void* ctx, const std::string& ifname, bool up) {
  if (auto* seam = recorder()) {
    return seam->record({__func__, ctx, {ifname, flag_text(up)}, {}});
  }
  ifreq request;
  if (!make_ifreq(ifname, request)) {
    return false;
  }
  ioctl_socket socket(ctx);
  if (socket.get() < 0) {
    return false;
  }
  if (::ioctl(socket.get(), SIOCGIFFLAGS, &request) < 0) {
    HOST_LOG(kHostModule, kLogError, errno, "Cannot read the flags of %s", ifname.c_str());
    return false;
  }
  short flags = up ? static_cast<short>(request.ifr_flags | IFF_UP)
                   : static_cast<short>(request.ifr_flags & ~IFF_UP);
  if (flags == request.ifr_flags) {
    return true;  // already so: no privilege needed
  }
  request.ifr_flags = flags;
  if (::ioctl(socket.get(), SIOCSIFFLAGS, &request) < 0) {
    HOST_LOG(kHostModule, kLogError, errno, "Cannot bring %s %s", ifname.c_str(),
             up ? "up" : "down");
    return false;
  }
  return true;
}

bool netlib_netm_flush_iface(void* ctx, const std::string& ifname) {
  if (auto* seam = recorder()) {
    return seam->record({__func__, ctx, {ifname}, {}});
  }
  unsigned int ifindex = ::if_nametoindex(ifname.c_str());
  if (ifindex == 0) {
    HOST_LOG(kHostModule, kLogError, errno, "Unknown interface %s", ifname.c_str());
    return false;
  }
  if (int error = qira::host::internal::flush_ipv4_addresses(ifindex); error != 0) {
    HOST_LOG(kHostModule, kLogError, error, "Cannot remove the IPv4 addresses of %s",
             ifname.c_str());
    return false;
  }
  return true;
}

bool netlib_netm_configure_dhcp(void* ctx, const std::string& ifname) {
  if (auto* seam = recorder()) {
    return seam->record({__func__, ctx, {ifname}, {}});
  }
  if (!netlib_iface_set_up(ctx, ifname, true)) {
    return false;
  }
  if (qira::utils::runDaemon(nullptr, nullptr, nullptr, kDhcpClient, 7, "-f", "-S", "-R", "-i",
                             ifname.c_str(), "-s", kDhcpScript) == 0) {
    HOST_LOG(kHostModule, kLogError, errno, "Cannot start %s for %s", kDhcpClient, ifname.c_str());
    return false;
  }
  return true;
}

bool netlib_netm_configure_interface(void* ctx, const std::string& ifname) {
  if (auto* seam = recorder()) {
    return seam->record({__func__, ctx, {ifname}, {}});
  }
  return netlib_iface_set_up(ctx, ifname, true);
}

bool netlib_netm_configure_ip_addr(void* ctx, const std::string& ifname, const std::string& address,
                                   const std::string& netmask, const std::string& gateway) {
  if (auto* seam = recorder()) {
    return seam->record({__func__, ctx, {ifname, address, netmask, gateway}, {}});
  }
  using qira::utils::ipv4_address_valid;
  if (!valid_or_log(ipv4_address_valid(address, true, false), "IPv4 address", address, ifname) ||
      !valid_or_log(qira::utils::ipv4_netmask_valid(netmask, true), "IPv4 netmask", netmask,
                    ifname) ||
      !valid_or_log(ipv4_address_valid(gateway, true, true), "IPv4 gateway", gateway, ifname)) {
    return false;
  }
  if (!netlib_iface_set_up(ctx, ifname, true)) {
    return false;
  }
  ioctl_socket socket(ctx);
  if (socket.get() < 0) {
    return false;
  }
  if (!set_ipv4(socket.get(), ifname, SIOCSIFADDR, "address", address) ||
      !set_ipv4(socket.get(), ifname, SIOCSIFNETMASK, "netmask", netmask)) {
    return false;
  }
  return gateway.empty() || set_default_route(socket.get(), ifname, gateway);
}

bool netlib_netm_configure_static(void* ctx, const std::string& ifname, const std::string& address,
                                  const std::string& netmask, const std::string& gateway,
                                  const std::vector<std::string>& name_servers,
                                  const std::string& search_domain, const std::string& hostname,
                                  bool fallback) {
  if (auto* seam = recorder()) {
    return seam->record(
        {__func__,
         ctx,
         {ifname, address, netmask, gateway, search_domain, hostname, flag_text(fallback)},
         name_servers});
  }
  for (const std::string& server : name_servers) {
    if (!valid_or_log(qira::utils::ipv4_address_valid(server, true, false), "name server", server,
                      ifname)) {
      return false;
    }
  }
  if (fallback) {
    HOST_LOG(kHostModule, kLogInfo, 0, "Using the fallback address %s on %s", address.c_str(),
             ifname.c_str());
  }
  if (!netlib_netm_configure_ip_addr(ctx, ifname, address, netmask, gateway)) {
    return false;
  }
  if (!name_servers.empty() && !write_resolver_file(resolver_text(name_servers, search_domain))) {
    return false;
  }
  return hostname.empty() || set_hostname(hostname);
}

bool netlib_netm_configure_static_fallback(void* ctx, const std::string& ifname,
                                           const std::string& address, const std::string& netmask,
                                           const std::string& gateway) {
  if (auto* seam = recorder()) {
    return seam->record({__func__, ctx, {ifname, address, netmask, gateway}, {}});
  }
  using qira::utils::ipv4_address_valid;
  std::string use_address = value_or_fallback(ipv4_address_valid(address, true, false),
                                              "IPv4 address", address, kFallbackAddress, ifname);
  std::string use_netmask = value_or_fallback(qira::utils::ipv4_netmask_valid(netmask, true),
                                              "IPv4 netmask", netmask, kFallbackNetmask, ifname);
  std::string use_gateway = value_or_fallback(ipv4_address_valid(gateway, true, true),
                                              "IPv4 gateway", gateway, "", ifname);
  return netlib_netm_configure_ip_addr(ctx, ifname, use_address, use_netmask, use_gateway);
}

}  // namespace qira::network
