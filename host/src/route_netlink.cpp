// RTM_GETADDR dump and RTM_DELADDR requests over a raw NETLINK_ROUTE socket.
#include "route_netlink.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "host_internal.h"

namespace qira::host::internal {

namespace {

// Large enough for one datagram of an address dump.
constexpr std::size_t kReceiveBufferSize = 65536;

struct ipv4_address {
  unsigned char prefix_length;
  in_addr local;
  in_addr address;
};

struct address_request {
  nlmsghdr header;
  ifaddrmsg message;
  char attributes[64];
};

class route_socket {
 public:
  // 0 on success, else an errno value.
  int open() {
    fd_.reset(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (!fd_.valid()) {
      return errno;
    }
    sockaddr_nl local{};
    local.nl_family = AF_NETLINK;
    if (::bind(fd_.get(), reinterpret_cast<sockaddr*>(&local), sizeof(local)) != 0) {
      return errno;
    }
    return 0;
  }

  int send(nlmsghdr& header) {
    header.nlmsg_seq = ++sequence_;
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    ssize_t sent;
    do {
      sent = ::sendto(fd_.get(), &header, header.nlmsg_len, 0, reinterpret_cast<sockaddr*>(&kernel),
                      sizeof(kernel));
    } while (sent < 0 && errno == EINTR);
    return sent < 0 ? errno : 0;
  }

  // Reads the replies to the last request, calling `on_message` for each
  // message that is neither an error nor the end of a dump, until the
  // acknowledgement or the end of the dump. 0 or an errno value.
  template <typename Handler>
  int receive(Handler on_message) {
    std::vector<char> buffer(kReceiveBufferSize);
    while (true) {
      ssize_t length;
      do {
        length = ::recv(fd_.get(), buffer.data(), buffer.size(), 0);
      } while (length < 0 && errno == EINTR);
      if (length < 0) {
        return errno;
      }
      if (length == 0) {
        return EPIPE;
      }
      const std::size_t received = static_cast<std::size_t>(length);
      std::size_t offset = 0;
      while (offset + sizeof(nlmsghdr) <= received) {
        auto* message = reinterpret_cast<nlmsghdr*>(buffer.data() + offset);
        if (message->nlmsg_len < sizeof(nlmsghdr) || message->nlmsg_len > received - offset) {
          break;  // a truncated message ends the datagram
        }
        offset += NLMSG_ALIGN(message->nlmsg_len);
        if (message->nlmsg_seq != sequence_) {
          continue;  // a late reply to an earlier request
        }
        if (message->nlmsg_type == NLMSG_DONE) {
          return 0;
        }
        if (message->nlmsg_type == NLMSG_ERROR) {
          const auto* error = static_cast<const nlmsgerr*>(NLMSG_DATA(message));
          return -error->error;  // 0 is the acknowledgement
        }
        on_message(*message);
      }
    }
  }

 private:
  unique_fd fd_;
  unsigned int sequence_ = 0;
};

void add_attribute(address_request& request, unsigned short type, const void* data,
                   std::size_t size) {
  auto* attribute = reinterpret_cast<rtattr*>(reinterpret_cast<char*>(&request) +
                                              NLMSG_ALIGN(request.header.nlmsg_len));
  attribute->rta_type = type;
  attribute->rta_len = static_cast<unsigned short>(RTA_LENGTH(size));
  std::memcpy(RTA_DATA(attribute), data, size);
  request.header.nlmsg_len = NLMSG_ALIGN(request.header.nlmsg_len) + RTA_ALIGN(attribute->rta_len);
}

address_request make_request(unsigned short type, unsigned short flags) {
  address_request request{};
  request.header.nlmsg_len = NLMSG_LENGTH(sizeof(ifaddrmsg));
  request.header.nlmsg_type = type;
  request.header.nlmsg_flags = static_cast<unsigned short>(NLM_F_REQUEST | flags);
  request.message.ifa_family = AF_INET;
  return request;
}

// Collects the IPv4 addresses of `ifindex` from one RTM_NEWADDR message.
void collect_address(const nlmsghdr& message, unsigned int ifindex,
                     std::vector<ipv4_address>& out) {
  if (message.nlmsg_type != RTM_NEWADDR) {
    return;
  }
  const auto* info = static_cast<const ifaddrmsg*>(NLMSG_DATA(&message));
  if (info->ifa_family != AF_INET || info->ifa_index != ifindex) {
    return;
  }
  ipv4_address entry{};
  entry.prefix_length = info->ifa_prefixlen;
  bool has_local = false;
  bool has_address = false;
  int length = static_cast<int>(IFA_PAYLOAD(&message));
  for (const rtattr* attribute = IFA_RTA(info); RTA_OK(attribute, length);
       attribute = RTA_NEXT(attribute, length)) {
    if (RTA_PAYLOAD(attribute) != sizeof(in_addr)) {
      continue;
    }
    if (attribute->rta_type == IFA_LOCAL) {
      std::memcpy(&entry.local, RTA_DATA(attribute), sizeof(in_addr));
      has_local = true;
    } else if (attribute->rta_type == IFA_ADDRESS) {
      std::memcpy(&entry.address, RTA_DATA(attribute), sizeof(in_addr));
      has_address = true;
    }
  }
  if (!has_local && !has_address) {
    return;
  }
  if (!has_local) {
    entry.local = entry.address;
  }
  if (!has_address) {
    entry.address = entry.local;
  }
  out.push_back(entry);
}

}  // namespace

int flush_ipv4_addresses(unsigned int ifindex) {
  route_socket socket;
  if (int error = socket.open(); error != 0) {
    return error;
  }
  address_request dump = make_request(RTM_GETADDR, NLM_F_DUMP);
  if (int error = socket.send(dump.header); error != 0) {
    return error;
  }
  std::vector<ipv4_address> addresses;
  int error = socket.receive(
      [&](const nlmsghdr& message) { collect_address(message, ifindex, addresses); });
  if (error != 0) {
    return error;
  }
  for (const ipv4_address& entry : addresses) {
    address_request remove = make_request(RTM_DELADDR, NLM_F_ACK);
    remove.message.ifa_prefixlen = entry.prefix_length;
    remove.message.ifa_index = ifindex;
    add_attribute(remove, IFA_LOCAL, &entry.local, sizeof(entry.local));
    add_attribute(remove, IFA_ADDRESS, &entry.address, sizeof(entry.address));
    if (error = socket.send(remove.header); error != 0) {
      return error;
    }
    error = socket.receive([](const nlmsghdr&) {});
    // Secondary addresses leave together with their primary one.
    if (error != 0 && error != EADDRNOTAVAIL) {
      return error;
    }
  }
  return 0;
}

}  // namespace qira::host::internal
