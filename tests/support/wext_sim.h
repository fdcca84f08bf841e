// Simulated wireless-extension driver at the ioctl boundary.
//
// While a SimulatedWext object lives, the process's ioctl() answers the
// wireless-extension requests (SIOCIWFIRST..SIOCIWLAST) from per-interface
// models instead of the kernel; every other request goes to the real ioctl.
// An interface that has no model answers ENODEV, like the kernel.
#ifndef QIRA_TESTS_SUPPORT_WEXT_SIM_H
#define QIRA_TESTS_SUPPORT_WEXT_SIM_H

#include <linux/wireless.h>

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace qira::test {

struct WextInterfaceModel {
  std::string essid;                       // SIOCGIWESSID (raw bytes, may hold NULs)
  std::array<std::uint8_t, 6> bssid{};     // SIOCGIWAP
  iw_freq freq{};                          // SIOCGIWFREQ
  std::vector<iw_freq> range_frequencies;  // SIOCGIWRANGE freq[] (num_frequency = size)
  // SIOCGIWRANGE num_frequency as a faulty driver may state it, above the
  // table's 32 entries; unset: the table's size.
  std::optional<std::uint8_t> range_count_stated;
  std::uint8_t max_quality = 0;          // SIOCGIWRANGE max_qual.qual
  std::int32_t bitrate = 0;              // SIOCGIWRATE value, bit/s
  std::int32_t txpower = 0;              // SIOCGIWTXPOW value
  iw_quality quality{};                  // SIOCGIWSTATS qual
  std::uint32_t mode = 0;                // SIOCGIWMODE
  std::string protocol = "IEEE 802.11";  // SIOCGIWNAME, as cfg80211 answers it
};

// One wireless-extension request as the driver saw it.
struct WextRequest {
  int fd = -1;
  unsigned long request = 0;
  std::array<char, IFNAMSIZ> name{};  // the 16-byte name field, as given
  std::uint16_t length = 0;           // u.data.length on entry
  std::uint16_t flags = 0;            // u.data.flags on entry
};

class SimulatedWext {
 public:
  SimulatedWext();   // becomes the active driver
  ~SimulatedWext();  // back to the kernel
  SimulatedWext(const SimulatedWext&) = delete;
  SimulatedWext& operator=(const SimulatedWext&) = delete;

  // The model of `ifname` (created empty on first use). A name no kernel
  // interface can have (empty, or 16 characters or more) fails the test.
  WextInterfaceModel& interface(const std::string& ifname);
  // Makes every later `request` fail with `error_number` (0 removes it).
  void fail(unsigned long request, int error_number);

  const std::vector<WextRequest>& requests() const { return requests_; }
  void clear_requests() { requests_.clear(); }

  // Used by the interposed ioctl: answers `request` into `wrq`; returns the
  // ioctl result (-1 with errno set on failure).
  int answer(int fd, unsigned long request, iwreq* wrq);
  static SimulatedWext* active();

 private:
  std::map<std::string, WextInterfaceModel> interfaces_;
  std::map<unsigned long, int> failures_;
  std::vector<WextRequest> requests_;
};

}  // namespace qira::test

#endif  // QIRA_TESTS_SUPPORT_WEXT_SIM_H
