// The daemons of the network manager and the wpa_supplicant control command.
#include "netlib_netm/daemons.h"

#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "frame/module_log.h"
#include "netlib_netm/netm_shared.h"
#include "qira/network/wpa_client.h"
#include "qira/utils/process.h"

namespace qira::network {

namespace {

using frame::kLogError;

constexpr const char* kDnsmasqProgram = "/bin/dnsmasq";
constexpr const char* kHostapdProgram = "/bin/hostapd";
constexpr const char* kWpaSupplicantProgram = "/bin/wpa_supplicant";
constexpr const char* kHostapdLog = "/var/log/hostapd.log";
// "-c" and the path form one argument, as wpa_supplicant accepts it.
constexpr const char* kStationConfArgument = "-c/etc/wlan0.conf";
// How long the control socket may take to accept the command and to reply.
constexpr unsigned long long kControlTimeoutMs = 5000;
// The reply prefix of an accepted command; "OK\n" passes as well.
constexpr const char* kAccepted = "OK";
constexpr std::string::size_type kAcceptedLength = 2;

// runDaemon's optional leading arguments, all left out.
constexpr const std::string* kNoWorkingDirectory = nullptr;
constexpr const __sigset_t* kNoSignalMask = nullptr;
constexpr int* kNoPid = nullptr;

// Answers 0 when `path` exists, else the errno of the failed access(), which
// travels with the failure's log line like that of every failed system call.
int access_error(const std::string& path) {
  return access(path.c_str(), F_OK) == 0 ? 0 : errno;
}

}  // namespace

bool net_exec_dnsmasq() {
  if (const int error_number = access_error(netm::kDnsmasqConfPath); error_number != 0) {
    NETLIB_LOG(kLogError, error_number, "Failed to access file \"%s\"",
               netm::kDnsmasqConfPath.c_str());
    return false;
  }
  // dnsmasq reads "/etc/dnsmasq.conf" as its default configuration, so the
  // file is not named here.
  if (qira::utils::runDaemon(kNoWorkingDirectory, kNoSignalMask, kNoPid, kDnsmasqProgram, 7,
                             "--leasefile-ro", "-u", "qira", "-g", "admin",
                             "--log-facility=/var/log/dnsmasq.log", "--dhcp-authoritative") == 0) {
    NETLIB_LOG(kLogError, 0, "Failed to run dnsmasq");
    return false;
  }
  return true;
}

bool net_exec_hostapd() {
  if (const int error_number = access_error(netm::kHostapdConfPath); error_number != 0) {
    NETLIB_LOG(kLogError, error_number, "Failed to access file \"%s\"",
               netm::kHostapdConfPath.c_str());
    return false;
  }
  if (qira::utils::runDaemon(kNoWorkingDirectory, kNoSignalMask, kNoPid, kHostapdProgram, 5, "-B",
                             "-d", "-f", kHostapdLog, netm::kHostapdConfPath.c_str()) == 0) {
    NETLIB_LOG(kLogError, 0, "Failed to run hostapd");
    return false;
  }
  return true;
}

bool net_exec_wpa_supplicant(const std::string& ifname) {
  // "-B" makes wpa_supplicant daemonise, so the run returns once it is up.
  const std::vector<std::string> args = {"-B", "-Dnl80211", "-s",
                                         "-i", ifname,      kStationConfArgument};
  if (qira::utils::sysExecSimple(kWpaSupplicantProgram, args) != 0) {
    NETLIB_LOG(kLogError, 0, "Failed to run wpa_supplicant");
    return false;
  }
  return true;
}

bool net_exec_wpactrl_cmd(const std::string& ifname, const std::string& command) {
  WpaClient client;
  if (!client.Init(ifname)) {
    NETLIB_LOG(kLogError, 0, "Failed to initialize control interface");
    return false;
  }
  std::string reply;
  if (!client.Request(command, reply, kControlTimeoutMs) ||
      reply.compare(0, kAcceptedLength, kAccepted) != 0) {
    NETLIB_LOG(kLogError, 0, "Failed to perform wpactrl action \"%s\": %s", command.c_str(),
               reply.c_str());
    return false;
  }
  return true;
}

}  // namespace qira::network
