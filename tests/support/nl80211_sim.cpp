// The simulated nl80211 kernel: generic netlink sockets backed by Unix
// datagram socket pairs, a controller model and injected notifications.
#include "support/nl80211_sim.h"

#include <linux/genetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace qira::test {

namespace {

constexpr std::size_t kAttributeHeader = NLA_HDRLEN;

std::size_t align(std::size_t length) {
  return NLA_ALIGN(length);
}

template <typename Value>
NlAttribute scalar(std::uint16_t type, Value value) {
  NlAttribute attribute;
  attribute.type = type;
  attribute.data.resize(sizeof(value));
  std::memcpy(attribute.data.data(), &value, sizeof(value));
  return attribute;
}

void append_bytes(std::vector<std::uint8_t>& out, const void* bytes, std::size_t length) {
  const auto* begin = static_cast<const std::uint8_t*>(bytes);
  out.insert(out.end(), begin, begin + length);
}

// The attributes of the generic netlink message `message` (headers
// included), by type; the last one of a type wins.
std::map<std::uint16_t, std::vector<std::uint8_t>> request_attributes(const std::uint8_t* message) {
  std::map<std::uint16_t, std::vector<std::uint8_t>> attributes;
  nlmsghdr header;
  std::memcpy(&header, message, sizeof(header));
  std::size_t offset = NLMSG_HDRLEN + GENL_HDRLEN;
  while (offset + kAttributeHeader <= header.nlmsg_len) {
    nlattr attribute;
    std::memcpy(&attribute, message + offset, sizeof(attribute));
    if (attribute.nla_len < kAttributeHeader || offset + attribute.nla_len > header.nlmsg_len) {
      break;
    }
    const std::uint8_t* data = message + offset + kAttributeHeader;
    attributes[attribute.nla_type & NLA_TYPE_MASK] =
        std::vector<std::uint8_t>(data, data + attribute.nla_len - kAttributeHeader);
    offset += align(attribute.nla_len);
  }
  return attributes;
}

}  // namespace

NlAttribute attr_flag(std::uint16_t type) {
  NlAttribute attribute;
  attribute.type = type;
  return attribute;
}
NlAttribute attr_u8(std::uint16_t type, std::uint8_t value) {
  return scalar(type, value);
}
NlAttribute attr_u16(std::uint16_t type, std::uint16_t value) {
  return scalar(type, value);
}
NlAttribute attr_u32(std::uint16_t type, std::uint32_t value) {
  return scalar(type, value);
}
NlAttribute attr_u64(std::uint16_t type, std::uint64_t value) {
  return scalar(type, value);
}
NlAttribute attr_string(std::uint16_t type, const std::string& text) {
  NlAttribute attribute;
  attribute.type = type;
  attribute.data.assign(text.begin(), text.end());
  attribute.data.push_back(0);
  return attribute;
}
NlAttribute attr_bytes(std::uint16_t type, const std::vector<std::uint8_t>& bytes) {
  NlAttribute attribute;
  attribute.type = type;
  attribute.data = bytes;
  return attribute;
}
NlAttribute attr_nested(std::uint16_t type, std::vector<NlAttribute> children) {
  NlAttribute attribute;
  attribute.type = type;
  attribute.nested = std::move(children);
  attribute.is_nested = true;
  return attribute;
}

void append_attribute(std::vector<std::uint8_t>& out, const NlAttribute& attribute) {
  std::vector<std::uint8_t> payload;
  if (attribute.is_nested) {
    for (const NlAttribute& child : attribute.nested) {
      append_attribute(payload, child);
    }
  } else {
    payload = attribute.data;
  }
  nlattr header{};
  header.nla_len = static_cast<std::uint16_t>(kAttributeHeader + payload.size());
  header.nla_type =
      static_cast<std::uint16_t>(attribute.type | (attribute.is_nested ? NLA_F_NESTED : 0));
  append_bytes(out, &header, sizeof(header));
  out.insert(out.end(), payload.begin(), payload.end());
  out.resize(out.size() + (align(payload.size()) - payload.size()), 0);
}

std::vector<std::uint8_t> genl_message(std::uint16_t family, std::uint8_t command,
                                       const std::vector<NlAttribute>& attributes,
                                       std::uint32_t seq, std::uint32_t port, std::uint16_t flags,
                                       std::uint8_t version) {
  std::vector<std::uint8_t> body;
  for (const NlAttribute& attribute : attributes) {
    append_attribute(body, attribute);
  }
  nlmsghdr header{};
  header.nlmsg_len = static_cast<std::uint32_t>(NLMSG_HDRLEN + GENL_HDRLEN + body.size());
  header.nlmsg_type = family;
  header.nlmsg_flags = flags;
  header.nlmsg_seq = seq;
  header.nlmsg_pid = port;
  genlmsghdr generic{};
  generic.cmd = command;
  generic.version = version;
  std::vector<std::uint8_t> message;
  append_bytes(message, &header, sizeof(header));
  append_bytes(message, &generic, sizeof(generic));
  message.insert(message.end(), body.begin(), body.end());
  return message;
}

std::vector<std::uint8_t> error_message(const nlmsghdr& request, int error) {
  nlmsgerr body{};
  body.error = error;
  body.msg = request;
  nlmsghdr header{};
  header.nlmsg_len = static_cast<std::uint32_t>(NLMSG_HDRLEN + sizeof(body));
  header.nlmsg_type = NLMSG_ERROR;
  // Like the kernel with extended acknowledgements off: only the request's
  // header is echoed.
  header.nlmsg_flags = NLM_F_CAPPED;
  header.nlmsg_seq = request.nlmsg_seq;
  header.nlmsg_pid = request.nlmsg_pid;
  std::vector<std::uint8_t> message;
  append_bytes(message, &header, sizeof(header));
  append_bytes(message, &body, sizeof(body));
  return message;
}

SimulatedNl80211::SimulatedNl80211() {
  GenlFamilyModel controller;
  controller.id = kControllerId;
  controller.version = 2;
  controller.max_attribute = CTRL_ATTR_MAX;
  controller.groups = {{"notify", kControllerId}};
  families_["nlctrl"] = controller;
  GenlFamilyModel nl80211;
  nl80211.id = kDefaultNl80211Id;
  nl80211.max_attribute = 300;
  nl80211.groups = {
      {"config", kConfigGroup}, {"scan", kScanGroup}, {"regulatory", kRegulatoryGroup},
      {"mlme", kMlmeGroup},     {"vendor", 9},        {"nan", 10},
      {"testmode", 11}};
  families_["nl80211"] = nl80211;
}

SimulatedNl80211::~SimulatedNl80211() {
  for (auto& entry : sockets_) {
    libc::close(entry.second.kernel_end);
  }
}

void SimulatedNl80211::set_family(const std::string& name, GenlFamilyModel model) {
  families_[name] = std::move(model);
}

void SimulatedNl80211::remove_family(const std::string& name) {
  families_.erase(name);
}

void SimulatedNl80211::refuse_family(const std::string& name, int error) {
  if (error == 0) {
    refused_families_.erase(name);
  } else {
    refused_families_[name] = error;
  }
}

GenlFamilyModel& SimulatedNl80211::family(const std::string& name) {
  return families_[name];
}

void SimulatedNl80211::fail_membership(std::uint32_t group, int error) {
  if (error == 0) {
    membership_errors_.erase(group);
  } else {
    membership_errors_[group] = error;
  }
}

std::vector<std::uint8_t> SimulatedNl80211::notification_datagram(
    const std::vector<Nl80211Notification>& notifications) const {
  const auto found = families_.find("nl80211");
  const std::uint16_t family_id = found != families_.end() ? found->second.id : kDefaultNl80211Id;
  std::vector<std::uint8_t> datagram;
  for (const Nl80211Notification& notification : notifications) {
    const std::vector<std::uint8_t> message =
        genl_message(family_id, notification.command, notification.attributes);
    datagram.insert(datagram.end(), message.begin(), message.end());
  }
  return datagram;
}

void SimulatedNl80211::notify_on_join(const std::vector<Nl80211Notification>& notifications,
                                      std::uint32_t group) {
  on_join_.emplace(group, notification_datagram(notifications));
}

int SimulatedNl80211::notify(const std::vector<Nl80211Notification>& notifications,
                             std::uint32_t group) {
  const std::vector<std::uint8_t> datagram = notification_datagram(notifications);
  int delivered = 0;
  for (auto& entry : sockets_) {
    const std::vector<std::uint32_t>& joined = entry.second.memberships;
    if (std::find(joined.begin(), joined.end(), group) != joined.end()) {
      deliver(entry.second, datagram);
      ++delivered;
    }
  }
  return delivered;
}

int SimulatedNl80211::notify(const Nl80211Notification& notification, std::uint32_t group) {
  return notify(std::vector<Nl80211Notification>{notification}, group);
}

bool SimulatedNl80211::send_raw(int fd, const std::vector<std::uint8_t>& datagram) {
  SimulatedGenlSocket* socket = find(fd);
  if (socket == nullptr) {
    return false;
  }
  deliver(*socket, datagram);
  return true;
}

std::vector<std::uint32_t> SimulatedNl80211::memberships() const {
  std::vector<std::uint32_t> all;
  for (const auto& entry : sockets_) {
    all.insert(all.end(), entry.second.memberships.begin(), entry.second.memberships.end());
  }
  return all;
}

SimulatedGenlSocket* SimulatedNl80211::find(int fd) {
  const auto found = sockets_.find(fd);
  return found == sockets_.end() ? nullptr : &found->second;
}

void SimulatedNl80211::deliver(SimulatedGenlSocket& socket,
                               const std::vector<std::uint8_t>& datagram) {
  // The kernel end never blocks: a full queue loses the datagram, as a
  // kernel socket overruns.
  libc::send(socket.kernel_end, datagram.data(), datagram.size(), MSG_DONTWAIT);
}

std::optional<int> SimulatedNl80211::on_socket(int domain, int type, int protocol) {
  if (domain != AF_NETLINK || protocol != NETLINK_GENERIC) {
    return std::nullopt;
  }
  if (socket_error_ != 0) {
    errno = socket_error_;
    return -1;
  }
  int ends[2] = {-1, -1};
  const int descriptor_flags = type & (SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (::socketpair(AF_UNIX, SOCK_DGRAM | descriptor_flags, 0, ends) != 0) {
    return -1;
  }
  SimulatedGenlSocket socket;
  socket.kernel_end = ends[1];
  sockets_[ends[0]] = socket;
  ++sockets_created_;
  return ends[0];
}

std::optional<int> SimulatedNl80211::on_bind(int fd, const sockaddr* address, socklen_t length) {
  SimulatedGenlSocket* socket = find(fd);
  if (socket == nullptr) {
    return std::nullopt;
  }
  sockaddr_nl local{};
  if (address == nullptr || length < sizeof(local)) {
    errno = EINVAL;
    return -1;
  }
  std::memcpy(&local, address, sizeof(local));
  if (local.nl_pid != 0) {
    for (const auto& entry : sockets_) {
      if (entry.first != fd && entry.second.port == local.nl_pid) {
        errno = EADDRINUSE;
        return -1;
      }
    }
  }
  socket->port = local.nl_pid != 0 ? local.nl_pid : next_port_++;
  return 0;
}

std::optional<int> SimulatedNl80211::on_connect(int fd, const sockaddr*, socklen_t) {
  return find(fd) != nullptr ? std::optional<int>(0) : std::nullopt;
}

std::optional<int> SimulatedNl80211::on_getsockname(int fd, sockaddr* address, socklen_t* length) {
  SimulatedGenlSocket* socket = find(fd);
  if (socket == nullptr) {
    return std::nullopt;
  }
  sockaddr_nl local{};
  local.nl_family = AF_NETLINK;
  local.nl_pid = socket->port;
  std::memcpy(address, &local, std::min<std::size_t>(*length, sizeof(local)));
  *length = sizeof(local);
  return 0;
}

std::optional<int> SimulatedNl80211::on_setsockopt(int fd, int level, int name, const void* value,
                                                   socklen_t length) {
  SimulatedGenlSocket* socket = find(fd);
  if (socket == nullptr || level != SOL_NETLINK) {
    // Socket-level options (buffer sizes) apply to the real descriptor.
    return std::nullopt;
  }
  if (name == NETLINK_ADD_MEMBERSHIP || name == NETLINK_DROP_MEMBERSHIP) {
    std::uint32_t group = 0;
    if (value == nullptr || length < sizeof(group)) {
      errno = EINVAL;
      return -1;
    }
    std::memcpy(&group, value, sizeof(group));
    const auto failure = membership_errors_.find(group);
    if (failure != membership_errors_.end()) {
      errno = failure->second;
      return -1;
    }
    auto& joined = socket->memberships;
    if (name == NETLINK_ADD_MEMBERSHIP) {
      joined.push_back(group);
      const auto waiting = on_join_.equal_range(group);
      for (auto entry = waiting.first; entry != waiting.second; ++entry) {
        deliver(*socket, entry->second);
      }
      on_join_.erase(waiting.first, waiting.second);
    } else {
      joined.erase(std::remove(joined.begin(), joined.end(), group), joined.end());
    }
  }
  return 0;
}

std::optional<int> SimulatedNl80211::on_getsockopt(int fd, int level, int, void* value,
                                                   socklen_t* length) {
  if (find(fd) == nullptr || level != SOL_NETLINK) {
    return std::nullopt;
  }
  if (value != nullptr && length != nullptr && *length >= sizeof(int)) {
    std::memset(value, 0, sizeof(int));
    *length = sizeof(int);
  }
  return 0;
}

std::optional<ssize_t> SimulatedNl80211::on_send(int fd, const void* buffer, size_t length, int) {
  SimulatedGenlSocket* socket = find(fd);
  if (socket == nullptr) {
    return std::nullopt;
  }
  return receive_request(fd, *socket, static_cast<const std::uint8_t*>(buffer), length);
}

std::optional<ssize_t> SimulatedNl80211::on_sendto(int fd, const void* buffer, size_t length,
                                                   int flags, const sockaddr*, socklen_t) {
  return on_send(fd, buffer, length, flags);
}

std::optional<ssize_t> SimulatedNl80211::on_sendmsg(int fd, const msghdr* message, int) {
  SimulatedGenlSocket* socket = find(fd);
  if (socket == nullptr) {
    return std::nullopt;
  }
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 0; i < message->msg_iovlen; ++i) {
    append_bytes(bytes, message->msg_iov[i].iov_base, message->msg_iov[i].iov_len);
  }
  return receive_request(fd, *socket, bytes.data(), bytes.size());
}

ssize_t SimulatedNl80211::receive_request(int fd, SimulatedGenlSocket& socket,
                                          const std::uint8_t* bytes, std::size_t length) {
  if (send_error_ != 0) {
    errno = send_error_;
    return -1;
  }
  std::size_t offset = 0;
  while (offset + NLMSG_HDRLEN <= length) {
    nlmsghdr header;
    std::memcpy(&header, bytes + offset, sizeof(header));
    if (header.nlmsg_len < NLMSG_HDRLEN || offset + header.nlmsg_len > length) {
      break;
    }
    // Replies go to the requester's port, as the kernel addresses them.
    header.nlmsg_pid = socket.port;
    std::vector<std::uint8_t> message(bytes + offset, bytes + offset + header.nlmsg_len);
    std::memcpy(message.data(), &header, sizeof(header));
    const auto nl80211 = families_.find("nl80211");
    std::vector<std::vector<std::uint8_t>> replies;
    if (header.nlmsg_type == kControllerId) {
      replies = answer_controller(header, message.data(), socket);
    } else if (nl80211 != families_.end() && header.nlmsg_type == nl80211->second.id) {
      replies = answer_nl80211(header, message.data(), socket);
    } else {
      replies.push_back(error_message(header, -EOPNOTSUPP));
    }
    // The socket may have been closed under libnl meanwhile.
    if (find(fd) == nullptr) {
      break;
    }
    for (const std::vector<std::uint8_t>& reply : replies) {
      deliver(socket, reply);
    }
    offset += NLMSG_ALIGN(header.nlmsg_len);
  }
  return static_cast<ssize_t>(length);
}

std::vector<std::vector<std::uint8_t>> SimulatedNl80211::answer_controller(
    const nlmsghdr& request, const std::uint8_t* message, SimulatedGenlSocket& socket) {
  genlmsghdr generic{};
  if (request.nlmsg_len >= NLMSG_HDRLEN + GENL_HDRLEN) {
    std::memcpy(&generic, message + NLMSG_HDRLEN, sizeof(generic));
  }
  const auto attributes = request_attributes(message);
  ControllerRequest seen;
  seen.command = generic.cmd;
  seen.flags = request.nlmsg_flags;
  const auto name = attributes.find(CTRL_ATTR_FAMILY_NAME);
  if (name != attributes.end()) {
    const std::vector<std::uint8_t>& text = name->second;
    seen.family.assign(text.begin(), std::find(text.begin(), text.end(), 0));
  }
  requests_.push_back(seen);
  if (generic.cmd != CTRL_CMD_GETFAMILY) {
    return {error_message(request, -EOPNOTSUPP)};
  }
  const auto refused = refused_families_.find(seen.family);
  if (refused != refused_families_.end()) {
    return {error_message(request, refused->second)};
  }
  const auto found = families_.find(seen.family);
  if (found == families_.end()) {
    // The kernel's controller knows no such family.
    return {error_message(request, -ENOENT)};
  }
  const GenlFamilyModel& model = found->second;
  std::vector<NlAttribute> reply = {
      attr_string(CTRL_ATTR_FAMILY_NAME, seen.family),  attr_u16(CTRL_ATTR_FAMILY_ID, model.id),
      attr_u32(CTRL_ATTR_VERSION, model.version),       attr_u32(CTRL_ATTR_HDRSIZE, 0),
      attr_u32(CTRL_ATTR_MAXATTR, model.max_attribute),
  };
  if (!model.groups.empty()) {
    std::vector<NlAttribute> groups;
    for (std::size_t i = 0; i < model.groups.size(); ++i) {
      groups.push_back(attr_nested(static_cast<std::uint16_t>(i + 1),
                                   {attr_string(CTRL_ATTR_MCAST_GRP_NAME, model.groups[i].first),
                                    attr_u32(CTRL_ATTR_MCAST_GRP_ID, model.groups[i].second)}));
    }
    reply.push_back(attr_nested(CTRL_ATTR_MCAST_GROUPS, std::move(groups)));
  }
  std::vector<std::vector<std::uint8_t>> replies = {
      genl_message(kControllerId, CTRL_CMD_NEWFAMILY, reply, request.nlmsg_seq, socket.port, 0, 2)};
  if ((request.nlmsg_flags & NLM_F_ACK) != 0) {
    replies.push_back(error_message(request, 0));
  }
  if (!close_after_lookup_.empty() && close_after_lookup_ == seen.family) {
    for (auto& entry : sockets_) {
      if (&entry.second == &socket) {
        close_countdown_[entry.first] = static_cast<int>(replies.size());
      }
    }
  }
  return replies;
}

std::vector<std::vector<std::uint8_t>> SimulatedNl80211::answer_nl80211(const nlmsghdr& request,
                                                                        const std::uint8_t*,
                                                                        SimulatedGenlSocket&) {
  return {error_message(request, -EOPNOTSUPP)};
}

std::optional<ssize_t> SimulatedNl80211::on_recv(int fd, void* buffer, size_t length, int flags) {
  return on_recvfrom(fd, buffer, length, flags, nullptr, nullptr);
}

std::optional<ssize_t> SimulatedNl80211::on_recvfrom(int fd, void* buffer, size_t length, int flags,
                                                     sockaddr* address, socklen_t* address_length) {
  if (find(fd) == nullptr) {
    return std::nullopt;
  }
  iovec vector{buffer, length};
  msghdr message{};
  message.msg_iov = &vector;
  message.msg_iovlen = 1;
  message.msg_name = address;
  message.msg_namelen = address_length != nullptr ? *address_length : 0;
  const std::optional<ssize_t> received = on_recvmsg(fd, &message, flags);
  if (address_length != nullptr) {
    *address_length = message.msg_namelen;
  }
  return received;
}

std::optional<ssize_t> SimulatedNl80211::on_recvmsg(int fd, msghdr* message, int flags) {
  if (find(fd) == nullptr) {
    return std::nullopt;
  }
  if (receive_error_ != 0) {
    errno = receive_error_;
    receive_error_ = 0;
    return -1;
  }
  void* name = message->msg_name;
  const socklen_t name_room = message->msg_namelen;
  message->msg_name = nullptr;
  message->msg_namelen = 0;
  const ssize_t received = libc::recvmsg(fd, message, flags);
  const int saved_errno = errno;
  message->msg_name = name;
  message->msg_namelen = 0;
  if (received >= 0 && name != nullptr) {
    // Everything comes from the kernel: port 0.
    sockaddr_nl source{};
    source.nl_family = AF_NETLINK;
    std::memcpy(name, &source, std::min<std::size_t>(name_room, sizeof(source)));
    message->msg_namelen = sizeof(source);
  }
  if (received >= 0 && (flags & MSG_PEEK) == 0) {
    const auto countdown = close_countdown_.find(fd);
    if (countdown != close_countdown_.end() && --countdown->second == 0) {
      close_countdown_.erase(countdown);
      libc::close(sockets_[fd].kernel_end);
      sockets_.erase(fd);
      libc::close(fd);
    }
  }
  errno = saved_errno;
  return received;
}

std::optional<int> SimulatedNl80211::on_close(int fd) {
  SimulatedGenlSocket* socket = find(fd);
  if (socket != nullptr) {
    libc::close(socket->kernel_end);
    sockets_.erase(fd);
    close_countdown_.erase(fd);
  }
  // The descriptor itself is libc's to close.
  return std::nullopt;
}

}  // namespace qira::test
