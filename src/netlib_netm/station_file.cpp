// The station configuration file "/etc/wlan0.conf" that wpa_supplicant is
// started on. It is written to a new temporary file in "/tmp" and moved over
// the real one with rename(), so that wpa_supplicant never reads half a file.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "frame/context.h"
#include "frame/module_log.h"
#include "netlib_netm/config_text.h"
#include "netlib_netm/netm_shared.h"
#include "qira/network/netlib_netm.h"
#include "qira/utils/file.h"
#include "qira/utils/strings.h"

namespace qira::network {

namespace {

using frame::kLogError;

// Length of the random part of the temporary file's name.
constexpr unsigned int kTemporaryNameRandomLength = 8;
// Open mode 2 of the host's files: create, or replace the content of, a file.
constexpr auto kCreateOrReplace = static_cast<qira::utils::FILE_OPEN_MODE>(2);
// Third argument of File::Initialize: the host's default permissions.
constexpr unsigned int kDefaultPermissions = 0;

// The network manager's context test (this file's copy): false, after one log
// line, when the context or its shared interface state is missing or not
// initialised.
bool check(void* ctx) {
  if (ctx == nullptr) {
    NETLIB_LOG(kLogError, 0, "library context is null");
    return false;
  }
  const qira::netlib::iface_state* state = frame::as_context(ctx)->iface;
  if (state == nullptr) {
    NETLIB_LOG(kLogError, 0, "library context is null");
    return false;
  }
  if (state->initialised == 0) {
    NETLIB_LOG(kLogError, 0, "library is not initialized");
    return false;
  }
  return true;
}

// "/tmp/wlan0.conf.PID.RANDOM": a name no earlier call has used.
std::string temporary_station_path() {
  return qira::utils::format(
      "/tmp/wlan0.conf.%d.%s", static_cast<int>(::getpid()),
      qira::utils::randomAlphaNumericString("", kTemporaryNameRandomLength).c_str());
}

}  // namespace

bool netlib_netm_configure_sta(void* ctx, const std::string& ifname, const std::string& ssid,
                               int /*freq: accepted, deliberately not written*/,
                               const std::string& key, const std::string& auth,
                               const std::string& psk, const std::string& ident,
                               const std::string& user, const std::string& pass,
                               const std::string& bgscan) {
  if (!check(ctx)) {
    return false;
  }
  if (ifname.empty()) {
    NETLIB_LOG(kLogError, 0, "invalid network interface");
    return false;
  }
  const std::string temporary_path = temporary_station_path();
  // The temporary file is never deleted, deliberately: after a bad setting it
  // stays empty, after a failed write partly written, after a failed rename
  // complete. The next call uses a new name; the holder only closes it.
  qira::utils::File file;
  if (!file.Initialize(temporary_path, kCreateOrReplace, kDefaultPermissions)) {
    NETLIB_LOG(kLogError, 0, "Cannot generate wifi config file");
    return false;
  }
  std::string block;
  switch (netm::classify_key_algorithm(key)) {
    case netm::key_algorithm::open:
      block = netm::open_security_block();
      break;
    case netm::key_algorithm::wpa:
      block = netm::wpa_protocol_line();
      if (!netlib_netm_configure_wifi_wpa(ctx, ifname, block, auth, psk, ident, user, pass,
                                          bgscan)) {
        return false;
      }
      break;
    case netm::key_algorithm::invalid:
      NETLIB_LOG(kLogError, 0, "Cannot generate wifi config file: invalid wifi key algrotihm");
      return false;
  }
  if (!file.WriteString(netm::station_file_text(ssid, block))) {
    NETLIB_LOG(kLogError, 0, "Cannot generate wifi config file: failed to write");
    return false;
  }
  file.Close();
  if (std::rename(temporary_path.c_str(), netm::kStationConfPath) != 0) {
    const int error_number = errno;
    NETLIB_LOG(kLogError, error_number, "Failed to move WLAN config from \"%s\" to \"%s\"",
               temporary_path.c_str(), netm::kStationConfPath);
    return false;
  }
  return true;
}

bool netlib_netm_configure_wifi_wpa(void* ctx, const std::string& ifname, std::string& block,
                                    const std::string& auth, const std::string& psk,
                                    const std::string& ident, const std::string& user,
                                    const std::string& pass, const std::string& bgscan) {
  if (!check(ctx)) {
    return false;
  }
  if (ifname.empty()) {
    NETLIB_LOG(kLogError, 0, "invalid network interface");
    return false;
  }
  // Each text is passed as the format itself, as a host that records raw
  // formats expects; none holds a conversion. The setting names in them
  // ("wifi.wpa.user", "wifi.wpa.pass") are the log's own, not the keys.
  switch (netm::append_wpa_block(block, auth, psk, ident, user, pass, bgscan)) {
    case netm::wpa_block_fault::none:
      return true;
    case netm::wpa_block_fault::missing_auth:
      NETLIB_LOG(kLogError, 0, "Cannot generate wifi config file: failed to read wifi.wpa.auth");
      return false;
    case netm::wpa_block_fault::missing_psk:
      NETLIB_LOG(kLogError, 0, "Cannot generate wifi config file: failed to read wifi.wpa.psk");
      return false;
    case netm::wpa_block_fault::missing_ident:
      NETLIB_LOG(kLogError, 0, "Cannot generate wifi config file: failed to read wifi.wpa.ident");
      return false;
    case netm::wpa_block_fault::missing_user:
      NETLIB_LOG(kLogError, 0, "Cannot generate wifi config file: failed to read wifi.wpa.user");
      return false;
    case netm::wpa_block_fault::missing_pass:
      NETLIB_LOG(kLogError, 0, "Cannot generate wifi config file: failed to read wifi.wpa.pass");
      return false;
    case netm::wpa_block_fault::unknown_auth:
      NETLIB_LOG(kLogError, 0, "Cannot generate wifi config file: unknown auth algorithm");
      return false;
  }
  return false;
}

}  // namespace qira::network
