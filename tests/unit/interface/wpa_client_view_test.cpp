// The host's view of a WpaClient (qira/netlib/wpa_client_view.h) against the
// client itself: the descriptor the view answers is the client's control
// socket while it is initialised, and -1 before and after.
#include "qira/netlib/wpa_client_view.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <string>

#include "support/wpa_supplicant_sim.h"

namespace qira::test {
namespace {

using qira::netlib::wpa_client_view;
using qira::network::WpaClient;

// The two flags, then the descriptor.
TEST(WpaClientView, LeadingMembers) {
  EXPECT_EQ(offsetof(wpa_client_view, initialised), 0u);
  EXPECT_EQ(offsetof(wpa_client_view, subscribed), 1u);
  EXPECT_EQ(offsetof(wpa_client_view, socket_fd), sizeof(int));
  static_assert(sizeof(wpa_client_view) <= sizeof(WpaClient), "a prefix of the client");
}

TEST(WpaClientView, AClientNotInitialisedHasNoDescriptor) {
  WpaClient client;
  EXPECT_EQ(qira::netlib::wpa_client_fd(client), -1);
  EXPECT_FALSE(client.Init("qs9"));  // no daemon: the descriptor is closed again
  EXPECT_EQ(qira::netlib::wpa_client_fd(client), -1);
}

std::string peer_path(int fd) {
  sockaddr_un address{};
  socklen_t length = sizeof(address);
  if (::getpeername(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    return "";
  }
  return address.sun_path;
}

TEST(WpaClientView, TheInitialisedClientsControlSocket) {
  WpaSupplicantSim daemon("qs0");
  WpaClient client;
  ASSERT_TRUE(client.Init("qs0"));
  const int fd = qira::netlib::wpa_client_fd(client);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(peer_path(fd), "/var/run/wpa_supplicant/qs0");
  client.Close();
  EXPECT_EQ(qira::netlib::wpa_client_fd(client), -1);
}

TEST(WpaClientView, ATerminatingDaemonLeavesNoDescriptor) {
  WpaSupplicantSim daemon("qs0");
  WpaClient client;
  ASSERT_TRUE(client.Init("qs0"));
  ASSERT_TRUE(client.Subscribe());
  ASSERT_GE(qira::netlib::wpa_client_fd(client), 0);
  daemon.send_event("<3>CTRL-EVENT-TERMINATING");
  ASSERT_TRUE(client.Service(1000));
  EXPECT_FALSE(client.IsInitialized());
  EXPECT_EQ(qira::netlib::wpa_client_fd(client), -1);
}

}  // namespace
}  // namespace qira::test
