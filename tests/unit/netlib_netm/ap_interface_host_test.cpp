// The access-point interface with the reference host's real wired netlib
// functions, on a thread of its own network namespace that holds a veth pair
// named "wlan0"/"ap0" (iw is still recorded: there is no radio here). The
// module's calls reach the host and change the interfaces as asked.
#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "qira/host/seams.h"
#include "qira/network/netlib_netm.h"
#include "qira/utils/process.h"
#include "unit/netlib_netm/netm_test_util.h"

namespace qira::test::netm {
namespace {

using qira::network::netlib_netm_configure_ap_interface;

constexpr const char* kIp = "/usr/sbin/ip";

// Runs `body` on a thread moved into a new network namespace.
template <typename Body>
void in_private_network(Body body) {
  std::thread thread([&body] {
    ASSERT_EQ(0, ::unshare(CLONE_NEWNET)) << std::strerror(errno);
    body();
  });
  thread.join();
}

// "wlan0" and "ap0" as the two ends of a veth pair, both down.
void make_radio_interfaces() {
  ASSERT_EQ(0, qira::host::real_process_runner().run(
                   kIp, {"link", "add", "wlan0", "type", "veth", "peer", "name", "ap0"}));
}

short interface_flags(const char* ifname) {
  const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  std::strncpy(request.ifr_name, ifname, IFNAMSIZ - 1);
  const int result = ::ioctl(fd, SIOCGIFFLAGS, &request);
  ::close(fd);
  EXPECT_EQ(0, result) << ifname;
  return request.ifr_flags;
}

// SIOCGIFADDR or SIOCGIFNETMASK as text; "" when the interface has none.
std::string interface_ipv4(const char* ifname, unsigned long request_code) {
  const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  std::strncpy(request.ifr_name, ifname, IFNAMSIZ - 1);
  const int result = ::ioctl(fd, request_code, &request);
  ::close(fd);
  if (result != 0) {
    return "";
  }
  char text[INET_ADDRSTRLEN] = "";
  ::inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(&request.ifr_addr)->sin_addr, text,
              sizeof(text));
  return text;
}

class ApInterfaceRealHost : public ::testing::Test {
 protected:
  void TearDown() override { qira::host::clear_identity_record(); }

  bool configure(const std::string& address, const std::string& netmask) {
    return netlib_netm_configure_ap_interface(&context_, "ap0", address, netmask);
  }

  qira::netlib::iface_state state_{1, -1, nullptr};
  qira::netlib::library_context context_{0, &state_, {nullptr, nullptr}, nullptr, nullptr};
};

TEST_F(ApInterfaceRealHost, BcmdhdBoardSetsWlan0UpAndAddressesTheInterface) {
  qira::host::set_identity_record(identity(0x62B7, "Cam", "00000000ABCD"));
  in_private_network([this] {
    make_radio_interfaces();
    qira::host::LogCapture log;
    qira::host::ProcessRecorder iw;
    EXPECT_TRUE(configure("192.168.1.1", "255.255.255.0"));
    EXPECT_TRUE(log.records().empty()) << ::testing::PrintToString(log.messages());
    EXPECT_EQ(describe_calls(iw.calls()),
              (std::vector<std::string>{"run /bin/iw dev ap0 del",
                                        "run /bin/iw dev ap0 set power_save off",
                                        "run /bin/iw dev wlan0 set power_save off"}));
    EXPECT_EQ(IFF_UP, interface_flags("wlan0") & IFF_UP);
    EXPECT_EQ(IFF_UP, interface_flags("ap0") & IFF_UP);
    EXPECT_EQ("192.168.1.1", interface_ipv4("ap0", SIOCGIFADDR));
    EXPECT_EQ("255.255.255.0", interface_ipv4("ap0", SIOCGIFNETMASK));
    EXPECT_EQ("", interface_ipv4("wlan0", SIOCGIFADDR));
  });
}

TEST_F(ApInterfaceRealHost, OtherBoardTakesWlan0Down) {
  qira::host::set_identity_record(identity(0x61C4, "Cam", "00000000ABCD"));
  in_private_network([this] {
    make_radio_interfaces();
    ASSERT_EQ(0, qira::host::real_process_runner().run(kIp, {"link", "set", "wlan0", "up"}));
    qira::host::ProcessRecorder iw;
    EXPECT_TRUE(configure("10.0.0.1", "255.0.0.0"));
    EXPECT_EQ(0, interface_flags("wlan0") & IFF_UP);
    EXPECT_EQ("10.0.0.1", interface_ipv4("ap0", SIOCGIFADDR));
    EXPECT_EQ("255.0.0.0", interface_ipv4("ap0", SIOCGIFNETMASK));
  });
}

TEST_F(ApInterfaceRealHost, InvalidNetmaskGetsTheHostsFallbackAddress) {
  qira::host::set_identity_record(identity(0x62A0, "Cam", "00000000ABCD"));
  in_private_network([this] {
    make_radio_interfaces();
    qira::host::LogCapture log;
    qira::host::ProcessRecorder iw;
    EXPECT_TRUE(configure("192.168.7.7", "255.0.255.0"));
    // The host's fallback function replaced what it found invalid.
    const std::vector<qira::host::LogRecord> records = log.records();
    ASSERT_EQ(records.size(), 1u) << ::testing::PrintToString(log.messages());
    EXPECT_EQ(records[0].module, "qira_host");
    EXPECT_EQ(records[0].level, 4);
    EXPECT_EQ(records[0].message,
              "Invalid IPv4 netmask \"255.0.255.0\" for ap0, using 255.255.255.0");
    EXPECT_EQ("192.168.7.7", interface_ipv4("ap0", SIOCGIFADDR));
    EXPECT_EQ("255.255.255.0", interface_ipv4("ap0", SIOCGIFNETMASK));
  });
}

TEST_F(ApInterfaceRealHost, MissingWlan0FailsWithTheHostsLineThenTheModules) {
  qira::host::set_identity_record(identity(0x62A0, "Cam", "00000000ABCD"));
  in_private_network([this] {
    qira::host::LogCapture log;
    qira::host::ProcessRecorder iw;
    EXPECT_FALSE(configure("192.168.1.1", "255.255.255.0"));
    const std::vector<qira::host::LogRecord> records = log.records();
    ASSERT_EQ(records.size(), 2u) << ::testing::PrintToString(log.messages());
    EXPECT_EQ(records[0].module, "qira_host");
    EXPECT_EQ(records[0].error_number, ENODEV);
    EXPECT_EQ(records[0].message, "Cannot read the flags of wlan0");
    EXPECT_EQ(records[1].module, kModule);
    EXPECT_EQ(records[1].file, kApInterfaceFile);
    EXPECT_EQ(records[1].function, "netlib_netm_configure_ap_interface");
    EXPECT_EQ(records[1].message, "Failed to change interface \"wlan0\" state");
    EXPECT_EQ(describe_calls(iw.calls()), (std::vector<std::string>{"run /bin/iw dev ap0 del"}));
  });
}

}  // namespace
}  // namespace qira::test::netm
