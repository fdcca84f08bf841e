// The network manager's module-wide constant strings.
#include "netlib_netm/netm_shared.h"

namespace qira::network::netm {

const std::string kChannelKey = "channel";
const std::string kCtrlInterfaceKey = "ctrl_interface";
const std::string kDriverKey = "driver";
const std::string kVendorElementsKey = "vendor_elements";
const std::string kInterfaceKey = "interface";
const std::string kHwModeKey = "hw_mode";
const std::string kSsidKey = "ssid";
const std::string kHostapdConfPath = "/etc/hostapd.conf";
const std::string kDnsmasqConfPath = "/etc/dnsmasq.conf";

}  // namespace qira::network::netm
