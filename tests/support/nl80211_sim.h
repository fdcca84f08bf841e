// Simulated nl80211 kernel at the socket boundary.
//
// While a SimulatedNl80211 lives, every socket(AF_NETLINK, *, NETLINK_GENERIC)
// of the process is one end of a Unix datagram socket pair whose other end
// the simulation keeps: non-blocking mode (fcntl on the descriptor) and poll
// behave as on a kernel socket, and the real libnl builds and parses every
// byte. The simulation answers bind and getsockname (a port id), the
// SOL_NETLINK options (multicast memberships are recorded; failures can be
// programmed), and the requests sent: the controller ("nlctrl") resolves
// families and their multicast groups from a configurable model; nl80211
// requests go to answer_nl80211(), which a later simulation can override
// (scan triggers, scan dumps). Tests inject multicast notifications, a
// "try again" or a receive error.
#ifndef QIRA_TESTS_SUPPORT_NL80211_SIM_H
#define QIRA_TESTS_SUPPORT_NL80211_SIM_H

#include <linux/netlink.h>
#include <linux/nl80211.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "support/socket_interpose.h"

namespace qira::test {

// One netlink attribute: raw payload bytes, or nested attributes.
struct NlAttribute {
  std::uint16_t type = 0;
  std::vector<std::uint8_t> data;
  std::vector<NlAttribute> nested;  // used instead of data when non-empty
  bool is_nested = false;
};

NlAttribute attr_flag(std::uint16_t type);
NlAttribute attr_u8(std::uint16_t type, std::uint8_t value);
NlAttribute attr_u16(std::uint16_t type, std::uint16_t value);
NlAttribute attr_u32(std::uint16_t type, std::uint32_t value);
NlAttribute attr_u64(std::uint16_t type, std::uint64_t value);
// The text and its terminating NUL.
NlAttribute attr_string(std::uint16_t type, const std::string& text);
NlAttribute attr_bytes(std::uint16_t type, const std::vector<std::uint8_t>& bytes);
NlAttribute attr_nested(std::uint16_t type, std::vector<NlAttribute> children);

// Appends the netlink wire form of `attribute` (4-byte aligned) to `out`.
void append_attribute(std::vector<std::uint8_t>& out, const NlAttribute& attribute);
// One generic netlink message: netlink header, generic header, attributes.
std::vector<std::uint8_t> genl_message(std::uint16_t family, std::uint8_t command,
                                       const std::vector<NlAttribute>& attributes,
                                       std::uint32_t seq = 0, std::uint32_t port = 0,
                                       std::uint16_t flags = 0, std::uint8_t version = 1);
// An NLMSG_ERROR message (error 0 is an acknowledgement) answering `request`.
std::vector<std::uint8_t> error_message(const nlmsghdr& request, int error);

// A generic netlink family as the controller advertises it.
struct GenlFamilyModel {
  std::uint16_t id = 0;
  std::uint32_t version = 1;
  std::uint32_t max_attribute = 0;
  // Multicast groups in the order advertised; names may repeat.
  std::vector<std::pair<std::string, std::uint32_t>> groups;
};

// A notification of nl80211 to inject.
struct Nl80211Notification {
  std::uint8_t command = 0;
  std::vector<NlAttribute> attributes;
};

// A controller request as the simulation received it.
struct ControllerRequest {
  std::uint8_t command = 0;
  std::string family;  // CTRL_ATTR_FAMILY_NAME without its NUL; empty if absent
  std::uint16_t flags = 0;
};

// One simulated generic netlink socket.
struct SimulatedGenlSocket {
  int kernel_end = -1;                     // the simulation's end of the pair
  std::uint32_t port = 0;                  // 0 until bound
  std::vector<std::uint32_t> memberships;  // in the order joined
};

class SimulatedNl80211 : public SocketInterposer {
 public:
  static constexpr std::uint16_t kControllerId = 0x10;  // GENL_ID_CTRL
  static constexpr std::uint16_t kDefaultNl80211Id = 0x1c;
  // nl80211's groups as this simulation advertises them by default.
  static constexpr std::uint32_t kConfigGroup = 5;
  static constexpr std::uint32_t kScanGroup = 6;
  static constexpr std::uint32_t kRegulatoryGroup = 7;
  static constexpr std::uint32_t kMlmeGroup = 8;

  // Starts with "nlctrl" and "nl80211" (groups "config", "scan",
  // "regulatory", "mlme", "vendor", "nan", "testmode").
  SimulatedNl80211();
  ~SimulatedNl80211() override;

  // ---- the model ----
  // Adds or replaces family `name`.
  void set_family(const std::string& name, GenlFamilyModel model);
  // The controller then answers requests for `name` with -ENOENT, as the
  // kernel does for a family it does not know.
  void remove_family(const std::string& name);
  // The controller answers requests for `name` with the error `error`
  // (negative, as the kernel sends it; 0 removes it).
  void refuse_family(const std::string& name, int error);
  GenlFamilyModel& family(const std::string& name);

  // ---- programmable failures ----
  // Every later socket(AF_NETLINK, *, NETLINK_GENERIC) fails with `error`
  // (0: they succeed again).
  void fail_sockets(int error) { socket_error_ = error; }
  // Joining multicast group `group` fails with `error` (0 removes it).
  void fail_membership(std::uint32_t group, int error);
  // The next receive on any simulated socket fails with `error` (EAGAIN for
  // "try again", ENOBUFS for a lost notification) without consuming anything.
  void fail_next_receive(int error) { receive_error_ = error; }
  // Every later send on a simulated socket fails with `error` (0: they pass).
  void fail_sends(int error) { send_error_ = error; }
  // Once the acknowledgement of the controller's answer for `family` has been
  // read, the socket's descriptor is closed under libnl, so that the next
  // call on it (fcntl, setsockopt) fails with EBADF.
  void close_descriptor_after_lookup(const std::string& family) { close_after_lookup_ = family; }

  // ---- injection ----
  // Sends, as one datagram, the notifications to every socket that joined
  // nl80211 group `group`; returns how many sockets got it.
  int notify(const std::vector<Nl80211Notification>& notifications,
             std::uint32_t group = kMlmeGroup);
  int notify(const Nl80211Notification& notification, std::uint32_t group = kMlmeGroup);
  // Sends the notifications, as one datagram, to the next socket that joins
  // group `group`, as soon as it has joined: for a program that runs to its
  // end in the test's own thread.
  void notify_on_join(const std::vector<Nl80211Notification>& notifications,
                      std::uint32_t group = kMlmeGroup);
  // Sends raw bytes as one datagram to the socket behind `fd`.
  bool send_raw(int fd, const std::vector<std::uint8_t>& datagram);

  // ---- observation ----
  const std::vector<ControllerRequest>& controller_requests() const { return requests_; }
  // The memberships joined on every socket, in order.
  std::vector<std::uint32_t> memberships() const;
  // Open simulated sockets, by descriptor.
  const std::map<int, SimulatedGenlSocket>& sockets() const { return sockets_; }
  // How many simulated sockets were ever created.
  int sockets_created() const { return sockets_created_; }

  // SocketInterposer
  std::optional<int> on_socket(int domain, int type, int protocol) override;
  std::optional<int> on_bind(int fd, const sockaddr* address, socklen_t length) override;
  std::optional<int> on_connect(int fd, const sockaddr* address, socklen_t length) override;
  std::optional<int> on_getsockname(int fd, sockaddr* address, socklen_t* length) override;
  std::optional<int> on_setsockopt(int fd, int level, int name, const void* value,
                                   socklen_t length) override;
  std::optional<int> on_getsockopt(int fd, int level, int name, void* value,
                                   socklen_t* length) override;
  std::optional<ssize_t> on_send(int fd, const void* buffer, size_t length, int flags) override;
  std::optional<ssize_t> on_sendto(int fd, const void* buffer, size_t length, int flags,
                                   const sockaddr* address, socklen_t address_length) override;
  std::optional<ssize_t> on_sendmsg(int fd, const msghdr* message, int flags) override;
  std::optional<ssize_t> on_recv(int fd, void* buffer, size_t length, int flags) override;
  std::optional<ssize_t> on_recvfrom(int fd, void* buffer, size_t length, int flags,
                                     sockaddr* address, socklen_t* address_length) override;
  std::optional<ssize_t> on_recvmsg(int fd, msghdr* message, int flags) override;
  std::optional<int> on_close(int fd) override;

 protected:
  // Replies to one nl80211 request (the whole message, headers included),
  // each element one datagram. The default refuses with -EOPNOTSUPP.
  virtual std::vector<std::vector<std::uint8_t>> answer_nl80211(const nlmsghdr& request,
                                                                const std::uint8_t* message,
                                                                SimulatedGenlSocket& socket);

 private:
  SimulatedGenlSocket* find(int fd);
  ssize_t receive_request(int fd, SimulatedGenlSocket& socket, const std::uint8_t* bytes,
                          std::size_t length);
  std::vector<std::vector<std::uint8_t>> answer_controller(const nlmsghdr& request,
                                                           const std::uint8_t* message,
                                                           SimulatedGenlSocket& socket);
  void deliver(SimulatedGenlSocket& socket, const std::vector<std::uint8_t>& datagram);
  std::vector<std::uint8_t> notification_datagram(
      const std::vector<Nl80211Notification>& notifications) const;

  std::map<std::string, GenlFamilyModel> families_;
  std::map<int, SimulatedGenlSocket> sockets_;
  std::map<std::uint32_t, int> membership_errors_;
  // Datagrams waiting for a socket to join their group.
  std::multimap<std::uint32_t, std::vector<std::uint8_t>> on_join_;
  std::map<std::string, int> refused_families_;
  std::vector<ControllerRequest> requests_;
  std::string close_after_lookup_;
  // Descriptor to close after it has read this many more datagrams.
  std::map<int, int> close_countdown_;
  int socket_error_ = 0;
  int receive_error_ = 0;
  int send_error_ = 0;
  int sockets_created_ = 0;
  std::uint32_t next_port_ = 0x1000;
};

}  // namespace qira::test

#endif  // QIRA_TESTS_SUPPORT_NL80211_SIM_H
