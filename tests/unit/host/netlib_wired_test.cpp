// The host's wired netlib functions. The machine's own interfaces are only
// read (and "lo" brought up, which it is); everything that changes an
// interface runs on a thread moved into a private network namespace.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "qira/host/seams.h"
#include "qira/netlib/context.h"
#include "qira/network/netlib_host.h"
#include "qira/utils/file.h"
#include "qira/utils/process.h"
#include "support/sandbox.h"

namespace {

using qira::host::LogCapture;
using qira::host::LogRecord;
using namespace qira::network;

constexpr const char* kIp = "/usr/sbin/ip";

// Runs `body` on a thread of its own network and host-name namespaces: the
// sockets it opens and the programs it starts see only that namespace.
template <typename Body>
void in_private_namespaces(Body body) {
  std::thread thread([&body] {
    ASSERT_EQ(0, ::unshare(CLONE_NEWNET | CLONE_NEWUTS)) << std::strerror(errno);
    body();
  });
  thread.join();
}

short interface_flags(const char* ifname) {
  int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  std::strncpy(request.ifr_name, ifname, IFNAMSIZ - 1);
  int result = ::ioctl(fd, SIOCGIFFLAGS, &request);
  ::close(fd);
  EXPECT_EQ(0, result) << ifname;
  return request.ifr_flags;
}

// SIOCGIFADDR or SIOCGIFNETMASK as text; "" when the interface has none.
std::string interface_ipv4(const char* ifname, unsigned long request_code) {
  int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  std::strncpy(request.ifr_name, ifname, IFNAMSIZ - 1);
  int result = ::ioctl(fd, request_code, &request);
  ::close(fd);
  if (result != 0) {
    return "";
  }
  char text[INET_ADDRSTRLEN] = "";
  ::inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(&request.ifr_addr)->sin_addr, text,
              sizeof(text));
  return text;
}

// Default routes of this thread's namespace as "device gateway" lines.
std::vector<std::string> default_routes() {
  std::string table;
  EXPECT_TRUE(qira::utils::File::ReadStringAll("/proc/thread-self/net/route", table));
  std::istringstream lines(table);
  std::string line;
  std::getline(lines, line);  // header
  std::vector<std::string> routes;
  while (std::getline(lines, line)) {
    std::istringstream fields(line);
    std::string device, destination, gateway;
    fields >> device >> destination >> gateway;
    if (destination == "00000000") {
      in_addr address{};
      address.s_addr = static_cast<in_addr_t>(std::stoul(gateway, nullptr, 16));
      routes.push_back(device + " " + inet_ntoa(address));
    }
  }
  return routes;
}

void make_veth_pair() {
  ASSERT_EQ(0, qira::utils::sysExecSimple(
                   kIp, {"link", "add", "qv0", "type", "veth", "peer", "name", "qv1"}));
  ASSERT_EQ(0, qira::utils::sysExecSimple(kIp, {"link", "set", "qv1", "up"}));
}

void expect_one_error(const LogCapture& capture, int error_number, const std::string& message) {
  std::vector<LogRecord> records = capture.records();
  ASSERT_EQ(1U, records.size());
  EXPECT_EQ("qira_host", records[0].module);
  EXPECT_EQ("host/src/netlib_wired.cpp", records[0].file);
  EXPECT_EQ(3, records[0].level);
  EXPECT_EQ(error_number, records[0].error_number);
  EXPECT_EQ(message, records[0].message);
}

TEST(NetlibSetUpTest, LoopbackUpWithAndWithoutContext) {
  LogCapture capture;
  EXPECT_TRUE(netlib_iface_set_up(nullptr, "lo", true));
  EXPECT_NE(0, interface_flags("lo") & IFF_UP);
  qira::netlib::iface_state state{1, ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), nullptr};
  qira::netlib::library_context context{0, &state, {nullptr, nullptr}, nullptr, nullptr};
  EXPECT_TRUE(netlib_iface_set_up(&context, "lo", true));
  EXPECT_TRUE(netlib_netm_configure_interface(&context, "lo"));
  ::close(state.ioctl_fd);
  EXPECT_TRUE(capture.records().empty());
}

TEST(NetlibSetUpTest, MissingInterfaceFailsWithOneLine) {
  LogCapture capture;
  EXPECT_FALSE(netlib_iface_set_up(nullptr, "qira-none0", true));
  expect_one_error(capture, ENODEV, "Cannot read the flags of qira-none0");
}

TEST(NetlibSetUpTest, InvalidNameFailsWithOneLine) {
  LogCapture capture;
  EXPECT_FALSE(netlib_iface_set_up(nullptr, "an-interface-name-too-long", true));
  expect_one_error(capture, EINVAL, "Invalid interface name \"an-interface-name-too-long\"");
}

TEST(NetlibSetUpTest, UpAndDownInAPrivateNamespace) {
  in_private_namespaces([] {
    EXPECT_EQ(0, interface_flags("lo") & IFF_UP);
    EXPECT_TRUE(netlib_iface_set_up(nullptr, "lo", true));
    EXPECT_EQ(IFF_UP, interface_flags("lo") & IFF_UP);
    EXPECT_TRUE(netlib_iface_set_up(nullptr, "lo", false));
    EXPECT_EQ(0, interface_flags("lo") & IFF_UP);
  });
}

TEST(NetlibIpAddrTest, SetsAddressNetmaskAndDefaultRoute) {
  in_private_namespaces([] {
    make_veth_pair();
    LogCapture capture;
    ASSERT_TRUE(netlib_netm_configure_ip_addr(nullptr, "qv0", "10.20.30.40", "255.255.255.0",
                                              "10.20.30.1"));
    EXPECT_TRUE(capture.records().empty());
    EXPECT_EQ(IFF_UP, interface_flags("qv0") & IFF_UP);
    EXPECT_EQ("10.20.30.40", interface_ipv4("qv0", SIOCGIFADDR));
    EXPECT_EQ("255.255.255.0", interface_ipv4("qv0", SIOCGIFNETMASK));
    EXPECT_EQ(std::vector<std::string>{"qv0 10.20.30.1"}, default_routes());
    // A second call replaces the default route.
    ASSERT_TRUE(
        netlib_netm_configure_ip_addr(nullptr, "qv0", "10.20.30.41", "255.255.0.0", "10.20.0.254"));
    EXPECT_EQ("10.20.30.41", interface_ipv4("qv0", SIOCGIFADDR));
    EXPECT_EQ("255.255.0.0", interface_ipv4("qv0", SIOCGIFNETMASK));
    EXPECT_EQ(std::vector<std::string>{"qv0 10.20.0.254"}, default_routes());
  });
}

TEST(NetlibIpAddrTest, WithoutGatewayNoRouteIsAdded) {
  in_private_namespaces([] {
    make_veth_pair();
    ASSERT_TRUE(netlib_netm_configure_ip_addr(nullptr, "qv0", "172.16.0.2", "255.240.0.0", ""));
    EXPECT_EQ("172.16.0.2", interface_ipv4("qv0", SIOCGIFADDR));
    EXPECT_TRUE(default_routes().empty());
  });
}

TEST(NetlibIpAddrTest, InvalidValuesFailBeforeTouchingTheInterface) {
  LogCapture capture;
  EXPECT_FALSE(netlib_netm_configure_ip_addr(nullptr, "qv0", "1.2.3", "255.255.255.0", ""));
  expect_one_error(capture, EINVAL, "Invalid IPv4 address \"1.2.3\" for qv0");
  capture.clear();
  EXPECT_FALSE(netlib_netm_configure_ip_addr(nullptr, "qv0", "1.2.3.4", "255.0.255.0", ""));
  expect_one_error(capture, EINVAL, "Invalid IPv4 netmask \"255.0.255.0\" for qv0");
  capture.clear();
  EXPECT_FALSE(netlib_netm_configure_ip_addr(nullptr, "qv0", "1.2.3.4", "255.0.0.0", "224.0.0.1"));
  expect_one_error(capture, EINVAL, "Invalid IPv4 gateway \"224.0.0.1\" for qv0");
}

TEST(NetlibIpAddrTest, MissingInterfaceFailsWithOneLine) {
  LogCapture capture;
  EXPECT_FALSE(netlib_netm_configure_ip_addr(nullptr, "qira-none0", "1.2.3.4", "255.0.0.0", ""));
  expect_one_error(capture, ENODEV, "Cannot read the flags of qira-none0");
}

TEST(NetlibFlushTest, RemovesEveryIPv4AddressAndTheDefaultRoute) {
  in_private_namespaces([] {
    make_veth_pair();
    ASSERT_TRUE(netlib_netm_configure_ip_addr(nullptr, "qv0", "10.20.30.40", "255.255.255.0",
                                              "10.20.30.1"));
    ASSERT_EQ(0, qira::utils::sysExecSimple(kIp, {"addr", "add", "10.20.30.50/24", "dev", "qv0"}));
    ASSERT_EQ(0, qira::utils::sysExecSimple(kIp, {"addr", "add", "192.0.2.7/32", "dev", "qv0"}));
    ASSERT_TRUE(netlib_netm_configure_ip_addr(nullptr, "lo", "127.0.0.1", "255.0.0.0", ""));
    LogCapture capture;
    ASSERT_TRUE(netlib_netm_flush_iface(nullptr, "qv0"));
    EXPECT_TRUE(capture.records().empty());
    EXPECT_EQ("", interface_ipv4("qv0", SIOCGIFADDR));
    EXPECT_TRUE(default_routes().empty());
    EXPECT_EQ("127.0.0.1", interface_ipv4("lo", SIOCGIFADDR));  // other interfaces keep theirs
    ASSERT_EQ(0, qira::utils::sysExecSimple("/bin/sh",
                                            {"-c", std::string(kIp) + " -4 -o addr show dev qv0 > "
                                                                      "/tmp/qv0.addr"}));
    EXPECT_EQ("", qira::test::read_file("/tmp/qv0.addr"));
    EXPECT_TRUE(netlib_netm_flush_iface(nullptr, "qv0"));  // nothing left: still fine
  });
}

TEST(NetlibFlushTest, MissingInterfaceFailsWithOneLine) {
  LogCapture capture;
  EXPECT_FALSE(netlib_netm_flush_iface(nullptr, "qira-none0"));
  expect_one_error(capture, ENODEV, "Unknown interface qira-none0");
}

TEST(NetlibStaticTest, WritesResolverFileAndHostName) {
  in_private_namespaces([] {
    make_veth_pair();
    LogCapture capture;
    ASSERT_TRUE(netlib_netm_configure_static(nullptr, "qv0", "10.1.2.3", "255.255.255.0",
                                             "10.1.2.1", {"10.1.2.53", "9.9.9.9"}, "example.lan",
                                             "front-door", false));
    EXPECT_TRUE(capture.records().empty());
    EXPECT_EQ("10.1.2.3", interface_ipv4("qv0", SIOCGIFADDR));
    EXPECT_EQ(std::vector<std::string>{"qv0 10.1.2.1"}, default_routes());
    EXPECT_EQ("search example.lan\nnameserver 10.1.2.53\nnameserver 9.9.9.9\n",
              qira::test::read_file("/etc/resolv.conf"));
    char hostname[64] = "";
    ASSERT_EQ(0, ::gethostname(hostname, sizeof(hostname)));
    EXPECT_STREQ("front-door", hostname);
  });
}

TEST(NetlibStaticTest, EmptyNameServerListKeepsTheResolverFile) {
  in_private_namespaces([] {
    make_veth_pair();
    qira::test::write_file("/etc/resolv.conf", "nameserver 1.1.1.1\n");
    char before[64] = "";
    ::gethostname(before, sizeof(before));
    LogCapture capture;
    ASSERT_TRUE(netlib_netm_configure_static(nullptr, "qv0", "192.168.1.20", "255.255.255.0", "",
                                             {}, "ignored.lan", "", true));
    std::vector<LogRecord> records = capture.records();
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ(6, records[0].level);
    EXPECT_EQ("Using the fallback address 192.168.1.20 on qv0", records[0].message);
    EXPECT_EQ("nameserver 1.1.1.1\n", qira::test::read_file("/etc/resolv.conf"));
    char after[64] = "";
    ::gethostname(after, sizeof(after));
    EXPECT_STREQ(before, after);
  });
}

TEST(NetlibStaticTest, InvalidNameServerFailsBeforeAnything) {
  qira::test::write_file("/etc/resolv.conf", "nameserver 1.1.1.1\n");
  LogCapture capture;
  EXPECT_FALSE(netlib_netm_configure_static(nullptr, "qv0", "10.1.2.3", "255.255.255.0", "",
                                            {"10.1.2.53", "10.1.2"}, "", "", false));
  expect_one_error(capture, EINVAL, "Invalid name server \"10.1.2\" for qv0");
  EXPECT_EQ("nameserver 1.1.1.1\n", qira::test::read_file("/etc/resolv.conf"));
}

TEST(NetlibStaticFallbackTest, InvalidValuesAreReplacedByTheFallback) {
  in_private_namespaces([] {
    make_veth_pair();
    LogCapture capture;
    ASSERT_TRUE(
        netlib_netm_configure_static_fallback(nullptr, "qv0", "300.1.1.1", "255.0.255.0", "x"));
    EXPECT_EQ("192.168.1.20", interface_ipv4("qv0", SIOCGIFADDR));
    EXPECT_EQ("255.255.255.0", interface_ipv4("qv0", SIOCGIFNETMASK));
    EXPECT_TRUE(default_routes().empty());
    std::vector<LogRecord> records = capture.records();
    ASSERT_EQ(3U, records.size());
    EXPECT_EQ(4, records[0].level);
    EXPECT_EQ("Invalid IPv4 address \"300.1.1.1\" for qv0, using 192.168.1.20", records[0].message);
    EXPECT_EQ("Invalid IPv4 netmask \"255.0.255.0\" for qv0, using 255.255.255.0",
              records[1].message);
    EXPECT_EQ("Invalid IPv4 gateway \"x\" for qv0, using none", records[2].message);
  });
}

TEST(NetlibStaticFallbackTest, ValidValuesAreUsedAsGiven) {
  in_private_namespaces([] {
    make_veth_pair();
    LogCapture capture;
    ASSERT_TRUE(netlib_netm_configure_static_fallback(nullptr, "qv0", "10.5.5.5", "255.255.0.0",
                                                      "10.5.0.1"));
    EXPECT_EQ("10.5.5.5", interface_ipv4("qv0", SIOCGIFADDR));
    EXPECT_EQ("255.255.0.0", interface_ipv4("qv0", SIOCGIFNETMASK));
    EXPECT_EQ(std::vector<std::string>{"qv0 10.5.0.1"}, default_routes());
    EXPECT_TRUE(capture.records().empty());
  });
}

TEST(NetlibDhcpTest, BringsTheInterfaceUpAndStartsUdhcpc) {
  in_private_namespaces([] {
    qira::host::ProcessRecorder recorder;
    LogCapture capture;
    ASSERT_TRUE(netlib_netm_configure_dhcp(nullptr, "lo"));
    EXPECT_EQ(IFF_UP, interface_flags("lo") & IFF_UP);
    std::vector<qira::host::ProcessCall> calls = recorder.calls();
    ASSERT_EQ(1U, calls.size());
    EXPECT_EQ(qira::host::ProcessCall::kDaemon, calls[0].kind);
    EXPECT_EQ("/sbin/udhcpc", calls[0].program);
    EXPECT_EQ((std::vector<std::string>{"-f", "-S", "-R", "-i", "lo", "-s",
                                        "/etc/udhcpc/default.script"}),
              calls[0].args);
    EXPECT_TRUE(capture.records().empty());
  });
}

TEST(NetlibDhcpTest, FailedStartIsLogged) {
  qira::host::ProcessRecorder recorder;
  recorder.set_result("/sbin/udhcpc", 0);
  LogCapture capture;
  errno = 0;
  EXPECT_FALSE(netlib_netm_configure_dhcp(nullptr, "lo"));
  expect_one_error(capture, 0, "Cannot start /sbin/udhcpc for lo");
}

TEST(NetlibDhcpTest, MissingInterfaceStartsNothing) {
  qira::host::ProcessRecorder recorder;
  LogCapture capture;
  EXPECT_FALSE(netlib_netm_configure_dhcp(nullptr, "qira-none0"));
  EXPECT_TRUE(recorder.calls().empty());
  expect_one_error(capture, ENODEV, "Cannot read the flags of qira-none0");
}

}  // namespace
