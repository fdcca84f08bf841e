// Interface module: its init and close, and the read-only wireless-extension
// queries of one interface, issued on the host's shared ioctl socket.
#include "qira/network/netlib_iface.h"

#include <linux/wireless.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "frame/context.h"
#include "frame/module_log.h"
#include "netlib_iface/wext_math.h"

namespace qira::network {

namespace {

using frame::kLogError;

// ESSID requests announce the 32-byte ESSID limit plus two bytes, into a
// slightly larger zero-filled buffer so the answer always ends in a NUL.
constexpr std::uint16_t kEssidLength = IW_ESSID_MAX_SIZE + 2;
constexpr std::size_t kEssidBufferSize = 36;
// The length announced for SIOCGIWRANGE is fixed at 568 bytes whatever this
// build's struct iw_range measures; the buffer below holds both.
constexpr std::uint16_t kRangeLength = 568;
constexpr std::uint16_t kStatisticsLength = 32;
// Data flag of SIOCGIWSTATS: the driver clears its "updated" bits once read.
constexpr std::uint16_t kClearUpdatedFlag = 1;
// A SIOCGIWFREQ mantissa below this is a channel number, not a frequency.
constexpr std::int32_t kFirstFrequencyMantissa = 1000;
constexpr std::int32_t kBitsPerMegabit = 1000000;
// The noise level is not read from the driver: every interface reports this
// fixed value, deliberately.
constexpr int kFixedNoiseLevel = -96;

static_assert(kEssidBufferSize >= kEssidLength, "ESSID buffer smaller than announced");
static_assert(sizeof(iw_statistics) >= kStatisticsLength, "statistics smaller than announced");

// Room for this build's struct iw_range and for the length announced.
union range_buffer {
  iw_range range;
  unsigned char bytes[std::max<std::size_t>(sizeof(iw_range), kRangeLength)];
};

// The interface module's context test: false, after one log line, when the
// context or its shared interface state is missing or not initialised.
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

int ioctl_socket(void* ctx) {
  return frame::as_context(ctx)->iface->ioctl_fd;
}

// Issues one wireless-extension request; logs a failure with its errno.
bool do_ioctl(int fd, unsigned long request, iwreq* wrq) {
  errno = 0;
  if (ioctl(fd, request, wrq) >= 0) {
    return true;
  }
  const int error_number = errno;
  NETLIB_LOG(kLogError, error_number, "netlib: ioctl(%X) failed",
             static_cast<unsigned int>(request));
  return false;
}

// A zero-filled request for `ifname`. The name is copied like strncpy into
// the 16-byte field: a name of 16 characters or more keeps its first 16
// bytes and no NUL, which is the kernel's own limit; no error is raised.
iwreq make_request(const std::string& ifname) {
  iwreq wrq;
  std::memset(&wrq, 0, sizeof(wrq));
  const std::size_t length = strnlen(ifname.c_str(), IFNAMSIZ);
  std::memcpy(wrq.ifr_ifrn.ifrn_name, ifname.c_str(), length);
  return wrq;
}

void set_data(iwreq& wrq, void* buffer, std::uint16_t length, std::uint16_t flags) {
  wrq.u.data.pointer = buffer;
  wrq.u.data.length = length;
  wrq.u.data.flags = flags;
}

bool read_range(void* ctx, const std::string& ifname, range_buffer& range) {
  std::memset(&range, 0, sizeof(range));
  iwreq wrq = make_request(ifname);
  set_data(wrq, &range, kRangeLength, 0);
  return do_ioctl(ioctl_socket(ctx), SIOCGIWRANGE, &wrq);
}

bool read_statistics(void* ctx, const std::string& ifname, iw_statistics& statistics) {
  std::memset(&statistics, 0, sizeof(statistics));
  iwreq wrq = make_request(ifname);
  set_data(wrq, &statistics, kStatisticsLength, kClearUpdatedFlag);
  return do_ioctl(ioctl_socket(ctx), SIOCGIWSTATS, &wrq);
}

// The driver's current frequency record (SIOCGIWFREQ).
bool read_frequency(void* ctx, const std::string& ifname, iw_freq& reported) {
  iwreq wrq = make_request(ifname);
  if (!do_ioctl(ioctl_socket(ctx), SIOCGIWFREQ, &wrq)) {
    return false;
  }
  reported = wrq.u.freq;
  return true;
}

}  // namespace

bool netlib_libiface_wireless_init(void* ctx) {
  if (!check(ctx)) {
    return false;
  }
  frame::as_context(ctx)->iface->hostapd_conf_hook = nullptr;
  return true;
}

// Nothing to release, so no check: true whatever the context.
bool netlib_libiface_wireless_close(void* /*ctx*/) {
  return true;
}

bool netlib_iface_iw_get_essid(void* ctx, const std::string& ifname, std::string& essid) {
  if (!check(ctx)) {
    return false;
  }
  char buffer[kEssidBufferSize] = {};
  iwreq wrq = make_request(ifname);
  set_data(wrq, buffer, kEssidLength, 0);
  if (!do_ioctl(ioctl_socket(ctx), SIOCGIWESSID, &wrq)) {
    return false;
  }
  essid.assign(buffer, strnlen(buffer, sizeof(buffer)));
  return true;
}

bool netlib_iface_iw_get_bssid(void* ctx, const std::string& ifname, std::string& bssid) {
  if (!check(ctx)) {
    return false;
  }
  iwreq wrq = make_request(ifname);
  if (!do_ioctl(ioctl_socket(ctx), SIOCGIWAP, &wrq)) {
    return false;
  }
  const auto* address = reinterpret_cast<const unsigned char*>(wrq.u.ap_addr.sa_data);
  char text[sizeof("xx:xx:xx:xx:xx:xx")];
  std::snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", address[0], address[1],
                address[2], address[3], address[4], address[5]);
  bssid = text;
  return true;
}

bool netlib_iface_iw_get_freq(void* ctx, const std::string& ifname, int& freq) {
  if (!check(ctx)) {
    return false;
  }
  iw_freq reported{};
  if (!read_frequency(ctx, ifname, reported)) {
    return false;
  }
  if (reported.m >= kFirstFrequencyMantissa) {
    freq = iface::frequency_megahertz(reported);
    return true;
  }
  // The driver gave a channel number: look its frequency up in the range
  // table. A channel missing there is not a failure; `freq` keeps its value.
  range_buffer range;
  if (!read_range(ctx, ifname, range)) {
    return false;
  }
  const auto channel = static_cast<std::uint8_t>(reported.m);
  // The table holds at most IW_MAX_FREQUENCIES entries whatever the count says.
  const int count = std::min<int>(range.range.num_frequency, IW_MAX_FREQUENCIES);
  for (int index = 0; index < count; ++index) {
    if (range.range.freq[index].i == channel) {
      freq = iface::frequency_megahertz(range.range.freq[index]);
      return true;
    }
  }
  return true;
}

bool netlib_iface_iw_get_channel(void* ctx, const std::string& ifname, int& channel) {
  if (!check(ctx)) {
    return false;
  }
  iw_freq reported{};
  if (!read_frequency(ctx, ifname, reported)) {
    return false;
  }
  if (reported.m < kFirstFrequencyMantissa) {
    channel = reported.m;
    return true;
  }
  const double scale = iface::power_of_ten(reported.e);
  // Deliberate and kept: the range record is not used, only the success of
  // SIOCGIWRANGE counts, so a driver without a range record fails here.
  range_buffer range;
  if (!read_range(ctx, ifname, range)) {
    return false;
  }
  // No exponent-6 short cut here: the full conversion is always applied.
  channel = iface::frequency_to_channel(iface::scaled_megahertz(reported.m, scale));
  return true;
}

bool netlib_iface_iw_get_bitrate(void* ctx, const std::string& ifname, int& bitrate) {
  if (!check(ctx)) {
    return false;
  }
  iwreq wrq = make_request(ifname);
  if (!do_ioctl(ioctl_socket(ctx), SIOCGIWRATE, &wrq)) {
    return false;
  }
  bitrate = wrq.u.bitrate.value / kBitsPerMegabit;
  return true;
}

bool netlib_iface_iw_get_txpower(void* ctx, const std::string& ifname, int& txpower) {
  if (!check(ctx)) {
    return false;
  }
  iwreq wrq = make_request(ifname);
  if (!do_ioctl(ioctl_socket(ctx), SIOCGIWTXPOW, &wrq)) {
    return false;
  }
  // Reported as the driver gives it (dBm or mW per its flags), unconverted.
  txpower = wrq.u.txpower.value;
  return true;
}

bool netlib_iface_iw_get_quality(void* ctx, const std::string& ifname, int& quality) {
  if (!check(ctx)) {
    return false;
  }
  iw_statistics statistics;
  if (!read_statistics(ctx, ifname, statistics)) {
    return false;
  }
  quality = statistics.qual.qual;
  return true;
}

bool netlib_iface_iw_get_quality_max(void* ctx, const std::string& ifname, int& quality_max) {
  if (!check(ctx)) {
    return false;
  }
  range_buffer range;
  if (!read_range(ctx, ifname, range)) {
    return false;
  }
  quality_max = range.range.max_qual.qual;
  return true;
}

bool netlib_iface_iw_get_signal_level(void* ctx, const std::string& ifname, int& level) {
  if (!check(ctx)) {
    return false;
  }
  iw_statistics statistics;
  if (!read_statistics(ctx, ifname, statistics)) {
    return false;
  }
  level = iface::signal_level(statistics.qual);
  return true;
}

bool netlib_iface_iw_get_noise_level(void* /*ctx*/, const std::string& /*ifname*/, int& level) {
  // No check and no request: the answer is fixed for every interface.
  level = kFixedNoiseLevel;
  return true;
}

bool netlib_iface_iw_get_wireless_mode(void* ctx, const std::string& ifname, unsigned char& mode) {
  if (!check(ctx)) {
    return false;
  }
  iwreq wrq = make_request(ifname);
  if (!do_ioctl(ioctl_socket(ctx), SIOCGIWMODE, &wrq)) {
    return false;
  }
  mode = static_cast<unsigned char>(wrq.u.mode);
  return true;
}

}  // namespace qira::network
