// qira-info-floor IFNAME: the least a host of the wireless module does to
// answer what "qira-wifi info IFNAME" answers. It loads the module through
// the reference host's loader (libnl and the host library in the process,
// the module opened with its interface subsystem, as the camera's host
// does), makes the same eleven queries, prints the ESSID only and ends.
// bench_air times it beside qira-wifi info: the difference is qira-wifi's
// own cost (its options, command table and output).
#include <cstdio>
#include <string>

#include "qira/host/loader.h"
#include "qira/network/netlib_iface.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: qira-info-floor IFNAME\n", stderr);
    return 2;
  }
  qira::host::WirelessModule module;
  if (!module.open("")) {
    return 1;
  }
  namespace network = qira::network;
  void* ctx = module.context();
  const std::string ifname = argv[1];
  std::string essid;
  std::string bssid;
  int value = 0;
  unsigned char mode = 0;
  bool ok = network::netlib_iface_iw_get_essid(ctx, ifname, essid);
  ok = network::netlib_iface_iw_get_bssid(ctx, ifname, bssid) && ok;
  for (auto* query :
       {&network::netlib_iface_iw_get_freq, &network::netlib_iface_iw_get_channel,
        &network::netlib_iface_iw_get_bitrate, &network::netlib_iface_iw_get_txpower,
        &network::netlib_iface_iw_get_quality, &network::netlib_iface_iw_get_quality_max,
        &network::netlib_iface_iw_get_signal_level, &network::netlib_iface_iw_get_noise_level}) {
    ok = query(ctx, ifname, value) && ok;
  }
  ok = network::netlib_iface_iw_get_wireless_mode(ctx, ifname, mode) && ok;
  std::printf("%s\n", essid.c_str());
  return ok ? 0 : 3;
}
