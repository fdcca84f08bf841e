// The simulated driver answers the way the kernel's wireless-extension core
// (net/wireless/wext-core.c) and cfg80211's handlers answer a GET request:
//
// - The kernel copies the whole iwreq in, terminates its copy of the name at
//   the last byte (a name of 16 bytes or more is looked up by its first 15),
//   and copies the whole iwreq back out only when the request succeeded: on
//   failure the caller's record is left exactly as it was.
// - Requests whose answer travels through u.data.pointer (ESSID, range,
//   statistics) fail with EFAULT on a null pointer, and with E2BIG when the
//   caller's length is below the length of the answer: the kernel does not
//   truncate. On success u.data.length becomes the answer's length.
//   (sizeof(struct iw_range) is 568 and sizeof(struct iw_statistics) 32 on
//   x86-64, so the callers' 568 and 32 are exactly enough.)
// - An ESSID request with length IW_ESSID_MAX_SIZE + 1 takes the kernel's
//   compatibility path for wireless extensions before version 21: the answer
//   counts one more byte (the NUL), so a 32-byte ESSID no longer fits.
// - cfg80211 sets the ESSID flags to 1 when there is an ESSID and to 0
//   otherwise, reports transmit power in dBm as fixed, and clears the
//   "updated" bits of its statistics after a read whose flags are not zero.
// - An interface without a model does not exist (ENODEV); a request the
//   model does not serve (every SET, and GETs outside the list) answers
//   EOPNOTSUPP, as for a driver without that handler.
//
// Programmed failures come before the interface lookup, so that a test can
// fail a request on any name.
#include "support/wext_sim.h"

#include <net/if_arp.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>

namespace qira::test {
namespace {

std::atomic<SimulatedWext*> active_driver{nullptr};
// Requests may come from any thread of the module.
std::mutex driver_mutex;

int fail_with(int error_number) {
  errno = error_number;
  return -1;
}

// The part of an iw_point GET that the kernel's core does around the
// driver's handler. `produce` fills `extra` (room for `max_length` bytes)
// and sets point.length and point.flags; it answers 0 or an errno.
template <typename Produce>
int answer_through_pointer(unsigned long request, iw_point& point, std::size_t max_length,
                           Produce produce) {
  const int essid_compat =
      (request == SIOCGIWESSID && point.length == IW_ESSID_MAX_SIZE + 1) ? 1 : 0;
  point.length = static_cast<std::uint16_t>(point.length - essid_compat);
  if (point.pointer == nullptr) {
    return EFAULT;
  }
  const std::uint16_t user_length = point.length;
  // Zero-filled, like the kernel's buffer: it supplies the compatibility NUL.
  std::vector<unsigned char> extra(max_length + 1, 0);
  const int error_number = produce(point, extra.data());
  point.length = static_cast<std::uint16_t>(point.length + essid_compat);
  if (error_number != 0) {
    return error_number;
  }
  if (user_length < point.length) {
    return E2BIG;
  }
  std::memcpy(point.pointer, extra.data(), point.length);
  return 0;
}

int answer_essid(const WextInterfaceModel& model, iw_point& point, unsigned char* extra) {
  point.flags = model.essid.empty() ? 0 : 1;
  point.length = static_cast<std::uint16_t>(model.essid.size());
  if (model.essid.size() > IW_ESSID_MAX_SIZE) {
    return EINVAL;
  }
  std::memcpy(extra, model.essid.data(), model.essid.size());
  return 0;
}

int answer_range(const WextInterfaceModel& model, iw_point& point, unsigned char* extra) {
  iw_range range{};
  range.we_version_compiled = WIRELESS_EXT;
  range.we_version_source = 21;
  const std::size_t count =
      std::min<std::size_t>(model.range_frequencies.size(), IW_MAX_FREQUENCIES);
  range.num_frequency = model.range_count_stated.value_or(static_cast<std::uint8_t>(count));
  range.num_channels = static_cast<std::uint16_t>(count);
  std::copy_n(model.range_frequencies.begin(), count, range.freq);
  range.max_qual.qual = model.max_quality;
  std::memcpy(extra, &range, sizeof range);
  point.length = sizeof range;
  return 0;
}

int answer_statistics(WextInterfaceModel& model, iw_point& point, unsigned char* extra) {
  iw_statistics statistics{};
  statistics.qual = model.quality;
  std::memcpy(extra, &statistics, sizeof statistics);
  point.length = sizeof statistics;
  if (point.flags != 0) {
    model.quality.updated &= static_cast<std::uint8_t>(~IW_QUAL_ALL_UPDATED);
  }
  return 0;
}

// Fills the kernel's copy of the request; answers 0 or an errno.
int answer_request(unsigned long request, WextInterfaceModel& model, iwreq& copy) {
  switch (request) {
    case SIOCGIWESSID:
      return answer_through_pointer(request, copy.u.essid, IW_ESSID_MAX_SIZE,
                                    [&model](iw_point& point, unsigned char* extra) {
                                      return answer_essid(model, point, extra);
                                    });
    case SIOCGIWRANGE:
      return answer_through_pointer(request, copy.u.data, sizeof(iw_range),
                                    [&model](iw_point& point, unsigned char* extra) {
                                      return answer_range(model, point, extra);
                                    });
    case SIOCGIWSTATS:
      return answer_through_pointer(request, copy.u.data, sizeof(iw_statistics),
                                    [&model](iw_point& point, unsigned char* extra) {
                                      return answer_statistics(model, point, extra);
                                    });
    case SIOCGIWAP:
      copy.u.ap_addr.sa_family = ARPHRD_ETHER;
      std::memcpy(copy.u.ap_addr.sa_data, model.bssid.data(), model.bssid.size());
      return 0;
    case SIOCGIWFREQ:
      copy.u.freq = model.freq;
      return 0;
    case SIOCGIWRATE:
      copy.u.bitrate.value = model.bitrate;
      return 0;
    case SIOCGIWTXPOW:
      copy.u.txpower.value = model.txpower;
      copy.u.txpower.fixed = 1;
      copy.u.txpower.disabled = 0;
      copy.u.txpower.flags = IW_TXPOW_DBM;
      return 0;
    case SIOCGIWMODE:
      copy.u.mode = model.mode;
      return 0;
    case SIOCGIWNAME:
      std::memset(copy.u.name, 0, sizeof(copy.u.name));
      std::memcpy(copy.u.name, model.protocol.data(),
                  std::min(model.protocol.size(), sizeof(copy.u.name) - 1));
      return 0;
    default:
      return EOPNOTSUPP;
  }
}

}  // namespace

SimulatedWext::SimulatedWext() {
  SimulatedWext* expected = nullptr;
  if (!active_driver.compare_exchange_strong(expected, this)) {
    ADD_FAILURE() << "a SimulatedWext is already active: only one driver at a time";
  }
}

SimulatedWext::~SimulatedWext() {
  SimulatedWext* expected = this;
  active_driver.compare_exchange_strong(expected, nullptr);
}

SimulatedWext* SimulatedWext::active() {
  return active_driver.load();
}

WextInterfaceModel& SimulatedWext::interface(const std::string& ifname) {
  if (ifname.empty() || ifname.size() >= IFNAMSIZ) {
    ADD_FAILURE() << "no kernel interface can be named \"" << ifname
                  << "\": names have 1 to 15 characters";
  }
  std::lock_guard<std::mutex> lock(driver_mutex);
  return interfaces_[ifname];
}

void SimulatedWext::fail(unsigned long request, int error_number) {
  std::lock_guard<std::mutex> lock(driver_mutex);
  if (error_number == 0) {
    failures_.erase(request);
  } else {
    failures_[request] = error_number;
  }
}

int SimulatedWext::answer(int fd, unsigned long request, iwreq* wrq) {
  std::lock_guard<std::mutex> lock(driver_mutex);
  WextRequest seen;
  seen.fd = fd;
  seen.request = request;
  if (wrq != nullptr) {
    std::memcpy(seen.name.data(), wrq->ifr_name, IFNAMSIZ);
    seen.length = wrq->u.data.length;
    seen.flags = wrq->u.data.flags;
  }
  requests_.push_back(seen);
  if (wrq == nullptr) {
    return fail_with(EFAULT);  // the kernel's copy of the record fails first
  }
  const auto failure = failures_.find(request);
  if (failure != failures_.end()) {
    return fail_with(failure->second);
  }
  iwreq copy = *wrq;
  copy.ifr_name[IFNAMSIZ - 1] = '\0';
  const auto model = interfaces_.find(copy.ifr_name);
  if (model == interfaces_.end()) {
    return fail_with(ENODEV);
  }
  const int error_number = answer_request(request, model->second, copy);
  if (error_number != 0) {
    return fail_with(error_number);
  }
  *wrq = copy;
  return 0;
}

}  // namespace qira::test
