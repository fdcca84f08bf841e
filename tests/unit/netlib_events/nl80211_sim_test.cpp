// The simulated nl80211 kernel itself, seen through plain socket calls and
// through libnl.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/genetlink.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/socket.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "support/nl80211_sim.h"

namespace qira::test {
namespace {

using socket_ptr = std::unique_ptr<nl_sock, void (*)(nl_sock*)>;

socket_ptr connected_socket() {
  socket_ptr sock(nl_socket_alloc(), nl_socket_free);
  EXPECT_EQ(genl_connect(sock.get()), 0);
  return sock;
}

TEST(SimulatedNl80211, OtherSocketsStayReal) {
  SimulatedNl80211 kernel;
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  ASSERT_GE(fd, 0);
  EXPECT_TRUE(kernel.sockets().empty());
  close(fd);
}

TEST(SimulatedNl80211, GenericNetlinkSocketsGetAPortAndResolveFamilies) {
  SimulatedNl80211 kernel;
  socket_ptr sock = connected_socket();
  ASSERT_EQ(kernel.sockets().size(), 1u);
  EXPECT_NE(nl_socket_get_local_port(sock.get()), 0u);
  EXPECT_EQ(genl_ctrl_resolve(sock.get(), "nl80211"), SimulatedNl80211::kDefaultNl80211Id);
  EXPECT_EQ(genl_ctrl_resolve(sock.get(), "nlctrl"), SimulatedNl80211::kControllerId);
  EXPECT_EQ(genl_ctrl_resolve(sock.get(), "nosuchfamily"), -NLE_OBJ_NOTFOUND);
  ASSERT_EQ(kernel.controller_requests().size(), 3u);
  EXPECT_EQ(kernel.controller_requests()[2].family, "nosuchfamily");
  EXPECT_EQ(kernel.controller_requests()[2].command, CTRL_CMD_GETFAMILY);
}

TEST(SimulatedNl80211, TwoSocketsGetDifferentPorts) {
  SimulatedNl80211 kernel;
  socket_ptr first = connected_socket();
  socket_ptr second = connected_socket();
  EXPECT_NE(nl_socket_get_local_port(first.get()), nl_socket_get_local_port(second.get()));
  EXPECT_EQ(kernel.sockets_created(), 2);
}

TEST(SimulatedNl80211, AConfiguredFamilyIdIsAnswered) {
  SimulatedNl80211 kernel;
  kernel.family("nl80211").id = 0x30;
  socket_ptr sock = connected_socket();
  EXPECT_EQ(genl_ctrl_resolve(sock.get(), "nl80211"), 0x30);
}

TEST(SimulatedNl80211, MembershipsAreRecordedAndCanFail) {
  SimulatedNl80211 kernel;
  socket_ptr sock = connected_socket();
  EXPECT_EQ(nl_socket_add_memberships(sock.get(), 6, 8, 0), 0);
  kernel.fail_membership(7, ENOMEM);
  EXPECT_EQ(nl_socket_add_memberships(sock.get(), 7, 0), -NLE_NOMEM);
  EXPECT_EQ(kernel.memberships(), (std::vector<std::uint32_t>{6, 8}));
  EXPECT_EQ(nl_socket_drop_memberships(sock.get(), 6, 0), 0);
  EXPECT_EQ(kernel.memberships(), (std::vector<std::uint32_t>{8}));
}

TEST(SimulatedNl80211, NotificationsReachMembersAndPollSeesThem) {
  SimulatedNl80211 kernel;
  socket_ptr member = connected_socket();
  socket_ptr other = connected_socket();
  ASSERT_EQ(nl_socket_add_memberships(member.get(), SimulatedNl80211::kMlmeGroup, 0), 0);
  ASSERT_EQ(nl_socket_set_nonblocking(member.get()), 0);
  pollfd waiting{nl_socket_get_fd(member.get()), POLLIN, 0};
  EXPECT_EQ(poll(&waiting, 1, 0), 0);
  EXPECT_EQ(kernel.notify(Nl80211Notification{NL80211_CMD_CONNECT, {}}), 1);
  EXPECT_EQ(poll(&waiting, 1, 0), 1);
  char buffer[256];
  const ssize_t length = recv(waiting.fd, buffer, sizeof(buffer), 0);
  ASSERT_EQ(length, static_cast<ssize_t>(NLMSG_HDRLEN + GENL_HDRLEN));
  nlmsghdr header;
  std::memcpy(&header, buffer, sizeof(header));
  EXPECT_EQ(header.nlmsg_type, SimulatedNl80211::kDefaultNl80211Id);
  EXPECT_EQ(header.nlmsg_seq, 0u);
  EXPECT_EQ(static_cast<std::uint8_t>(buffer[NLMSG_HDRLEN]), NL80211_CMD_CONNECT);
  // Non-blocking: nothing more to read.
  EXPECT_EQ(recv(waiting.fd, buffer, sizeof(buffer), 0), -1);
  EXPECT_EQ(errno, EAGAIN);
}

TEST(SimulatedNl80211, AnInjectedReceiveErrorHitsOnceAndConsumesNothing) {
  SimulatedNl80211 kernel;
  socket_ptr sock = connected_socket();
  ASSERT_EQ(nl_socket_add_memberships(sock.get(), SimulatedNl80211::kScanGroup, 0), 0);
  ASSERT_EQ(kernel.notify(Nl80211Notification{NL80211_CMD_TRIGGER_SCAN, {}},
                          SimulatedNl80211::kScanGroup),
            1);
  kernel.fail_next_receive(ENOBUFS);
  char buffer[64];
  EXPECT_EQ(recv(nl_socket_get_fd(sock.get()), buffer, sizeof(buffer), 0), -1);
  EXPECT_EQ(errno, ENOBUFS);
  EXPECT_GT(recv(nl_socket_get_fd(sock.get()), buffer, sizeof(buffer), 0), 0);
}

TEST(SimulatedNl80211, SocketsCanBeRefused) {
  SimulatedNl80211 kernel;
  kernel.fail_sockets(EACCES);
  EXPECT_EQ(socket(AF_NETLINK, SOCK_RAW, NETLINK_GENERIC), -1);
  EXPECT_EQ(errno, EACCES);
  kernel.fail_sockets(0);
  const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_GENERIC);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  close(fd);
  EXPECT_TRUE(kernel.sockets().empty());
}

TEST(SimulatedNl80211, Nl80211RequestsAreRefusedByDefault) {
  SimulatedNl80211 kernel;
  socket_ptr sock = connected_socket();
  std::unique_ptr<nl_msg, void (*)(nl_msg*)> msg(nlmsg_alloc(), nlmsg_free);
  genlmsg_put(msg.get(), NL_AUTO_PORT, NL_AUTO_SEQ, SimulatedNl80211::kDefaultNl80211Id, 0, 0,
              NL80211_CMD_GET_SCAN, 0);
  ASSERT_GE(nl_send_auto(sock.get(), msg.get()), 0);
  EXPECT_EQ(nl_wait_for_ack(sock.get()), -NLE_OPNOTSUPP);
}

}  // namespace
}  // namespace qira::test
