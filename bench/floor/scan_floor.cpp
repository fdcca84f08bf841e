// The floor of the scan path: the least that any libnl consumer does to
// scan once and read the results, on the same simulated scanning kernel and
// BSS tables as the scan benchmark. It sends the trigger (interface and the
// wildcard SSID), reads until the scan's end is announced, asks for the dump
// and parses every BSS message as far as the module's records need: the
// BSS's attributes (BSSID, frequency, capability, signal, both element
// blocks) and, in its elements, the SSID and the RSN and WPA ciphers, into
// one preallocated record per BSS that also keeps both element blocks.
// No bounded list, no ranking, no de-duplication, no log line.
#include <benchmark/benchmark.h>
#include <linux/nl80211.h>
#include <net/if.h>
#include <netlink/attr.h>
#include <netlink/errno.h>
#include <netlink/genl/genl.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "floor/floor_socket.h"
#include "scan_table.h"
#include "support/alloc_counter.h"
#include "support/bench_checks.h"
#include "support/measurement.h"
#include "support/scan_kernel.h"

namespace qira::bench::floor {
namespace {

constexpr const char* kInterface = "lo";
constexpr int kReadLimit = 20;
constexpr std::size_t kBlockSize = 1024;
constexpr std::size_t kSsidLength = 32;
constexpr std::uint8_t kSsidElement = 0;
constexpr std::uint8_t kRsnElement = 48;
constexpr std::uint8_t kVendorElement = 221;
constexpr std::array<std::uint8_t, 4> kWpaVendorType = {0x00, 0x50, 0xf2, 1};
// Version (2), group suite (4), pairwise count (2), first pairwise suite (4).
constexpr std::size_t kGroupSuiteType = 5;
constexpr std::size_t kPairwiseCount = 6;
constexpr std::size_t kPairwiseSuiteType = 11;

// What the records of one BSS need.
struct BssRecord {
  std::uint8_t bssid[6];
  char ssid[kSsidLength + 1];
  std::uint32_t frequency;
  std::uint8_t channel;
  std::uint16_t capability;
  std::int32_t signal;
  std::uint8_t wpa_version;
  std::uint8_t ciphers[4];
  std::uint16_t ie_length;
  std::uint16_t beacon_ie_length;
  std::uint8_t ies[kBlockSize];
  std::uint8_t beacon_ies[kBlockSize];
};

struct ScanReading {
  bool finished = false;
  std::vector<BssRecord> records;  // allocated once, before the measurement
  std::size_t count = 0;
};

std::uint8_t channel_of(std::uint32_t frequency) {
  return static_cast<std::uint8_t>(frequency == 2484 ? 14 : (frequency - 2407) / 5);
}

// Group and first pairwise suite types of an RSN body (or a WPA body after
// its vendor type).
void read_ciphers(const std::uint8_t* body, std::size_t length, std::uint8_t* group,
                  std::uint8_t* pairwise) {
  if (length > kGroupSuiteType) {
    *group = body[kGroupSuiteType];
  }
  if (length > kPairwiseSuiteType && (body[kPairwiseCount] | body[kPairwiseCount + 1]) != 0) {
    *pairwise = body[kPairwiseSuiteType];
  }
}

// One walk over an element block for the SSID, RSN and WPA elements not
// found yet.
void read_elements(const std::uint8_t* block, std::size_t length, BssRecord& record,
                   bool& have_ssid) {
  std::size_t position = 0;
  while (position + 2 <= length) {
    const std::uint8_t id = block[position];
    const std::size_t size = block[position + 1];
    const std::uint8_t* data = block + position + 2;
    if (position + 2 + size > length) {
      break;
    }
    if (id == kSsidElement && !have_ssid) {
      const std::size_t copied = size < kSsidLength ? size : kSsidLength;
      std::memcpy(record.ssid, data, copied);
      record.ssid[copied] = '\0';
      have_ssid = true;
    } else if (id == kRsnElement && (record.wpa_version & 2) == 0) {
      record.wpa_version |= 2;
      read_ciphers(data, size, &record.ciphers[0], &record.ciphers[1]);
    } else if (id == kVendorElement && (record.wpa_version & 1) == 0 &&
               size >= kWpaVendorType.size() &&
               std::memcmp(data, kWpaVendorType.data(), kWpaVendorType.size()) == 0) {
      record.wpa_version |= 1;
      read_ciphers(data + kWpaVendorType.size(), size - kWpaVendorType.size(), &record.ciphers[2],
                   &record.ciphers[3]);
    }
    position += 2 + size;
  }
}

std::uint16_t copy_block(const nlattr* attribute, std::uint8_t* block) {
  if (attribute == nullptr || nla_len(attribute) > static_cast<int>(kBlockSize)) {
    return 0;
  }
  std::memcpy(block, nla_data(attribute), static_cast<std::size_t>(nla_len(attribute)));
  return static_cast<std::uint16_t>(nla_len(attribute));
}

int parse_bss(nl_msg* msg, void* arg) {
  auto* reading = static_cast<ScanReading*>(arg);
  nlattr* attributes[NL80211_ATTR_BSS + 1];
  if (genlmsg_parse(nlmsg_hdr(msg), 0, attributes, NL80211_ATTR_BSS, nullptr) != 0 ||
      attributes[NL80211_ATTR_BSS] == nullptr) {
    return NL_SKIP;
  }
  nlattr* bss[NL80211_BSS_BEACON_IES + 1];
  if (nla_parse_nested(bss, NL80211_BSS_BEACON_IES, attributes[NL80211_ATTR_BSS], nullptr) != 0 ||
      reading->count == reading->records.size()) {
    return NL_SKIP;
  }
  BssRecord& record = reading->records[reading->count++];
  record.wpa_version = 0;
  if (bss[NL80211_BSS_BSSID] != nullptr) {
    nla_memcpy(record.bssid, bss[NL80211_BSS_BSSID], sizeof(record.bssid));
  }
  if (bss[NL80211_BSS_FREQUENCY] != nullptr) {
    record.frequency = nla_get_u32(bss[NL80211_BSS_FREQUENCY]);
    record.channel = channel_of(record.frequency);
  }
  if (bss[NL80211_BSS_CAPABILITY] != nullptr) {
    record.capability = nla_get_u16(bss[NL80211_BSS_CAPABILITY]);
  }
  if (bss[NL80211_BSS_SIGNAL_MBM] != nullptr) {
    record.signal = static_cast<std::int32_t>(nla_get_u32(bss[NL80211_BSS_SIGNAL_MBM]));
  } else if (bss[NL80211_BSS_SIGNAL_UNSPEC] != nullptr) {
    record.signal = nla_get_u8(bss[NL80211_BSS_SIGNAL_UNSPEC]);
  }
  record.ie_length = copy_block(bss[NL80211_BSS_INFORMATION_ELEMENTS], record.ies);
  record.beacon_ie_length = copy_block(bss[NL80211_BSS_BEACON_IES], record.beacon_ies);
  bool have_ssid = false;
  read_elements(record.ies, record.ie_length, record, have_ssid);
  if (!have_ssid || record.wpa_version == 0) {
    read_elements(record.beacon_ies, record.beacon_ie_length, record, have_ssid);
  }
  return NL_SKIP;
}

int note_scan_end(nl_msg* msg, void* arg) {
  if (static_cast<genlmsghdr*>(nlmsg_data(nlmsg_hdr(msg)))->cmd == NL80211_CMD_NEW_SCAN_RESULTS) {
    static_cast<ScanReading*>(arg)->finished = true;
  }
  return NL_SKIP;
}

// A request of nl80211 for interface `ifindex`, or null.
MessagePtr nl80211_request(int family, int flags, std::uint8_t command, std::uint32_t ifindex) {
  MessagePtr msg(nlmsg_alloc());
  if (!msg ||
      genlmsg_put(msg.get(), NL_AUTO_PORT, NL_AUTO_SEQ, family, 0, flags, command, 0) == nullptr ||
      nla_put_u32(msg.get(), NL80211_ATTR_IFINDEX, ifindex) != 0) {
    return nullptr;
  }
  return msg;
}

class ScanFloor {
 public:
  // Reads dumps of up to `capacity` BSSes.
  ScanFloor(Nl80211Socket socket, std::uint32_t ifindex, std::size_t capacity)
      : socket_(std::move(socket)),
        ifindex_(ifindex),
        events_(notification_callbacks(note_scan_end, &reading_)),
        dump_(nl_cb_alloc(NL_CB_DEFAULT)) {
    reading_.records.resize(capacity);
    if (dump_) {
      nl_cb_set(dump_.get(), NL_CB_VALID, NL_CB_CUSTOM, parse_bss, &reading_);
    }
  }

  ScanFloor(const ScanFloor&) = delete;
  ScanFloor& operator=(const ScanFloor&) = delete;

  // One scan: the number of BSS records read, or -1 when a step fails.
  long scan() {
    MessagePtr trigger = nl80211_request(socket_.family, 0, NL80211_CMD_TRIGGER_SCAN, ifindex_);
    if (!trigger) {
      return -1;
    }
    nlattr* ssids = nla_nest_start(trigger.get(), NL80211_ATTR_SCAN_SSIDS);
    if (ssids == nullptr || nla_put(trigger.get(), 1, 0, "") != 0) {
      return -1;
    }
    nla_nest_end(trigger.get(), ssids);
    if (nl_send_auto(socket_.sock.get(), trigger.get()) < 0) {
      return -1;
    }
    reading_.finished = false;
    for (int reads = 0; reads < kReadLimit && !reading_.finished; ++reads) {
      const int received = nl_recvmsgs(socket_.sock.get(), events_.get());
      if (received < 0 && received != -NLE_AGAIN) {
        return -1;
      }
    }
    MessagePtr dump = nl80211_request(socket_.family, NLM_F_DUMP, NL80211_CMD_GET_SCAN, ifindex_);
    if (!reading_.finished || !dump || nl_send_auto(socket_.sock.get(), dump.get()) < 0) {
      return -1;
    }
    reading_.count = 0;
    if (nl_recvmsgs(socket_.sock.get(), dump_.get()) < 0) {
      return -1;
    }
    return static_cast<long>(reading_.count);
  }

  bool ready() const { return socket_.sock && events_ && dump_; }
  const ScanReading& reading() const { return reading_; }

 private:
  Nl80211Socket socket_;
  std::uint32_t ifindex_;
  ScanReading reading_;
  CallbackPtr events_;
  CallbackPtr dump_;
};

void scan_floor(benchmark::State& state) {
  const int entries = static_cast<int>(state.range(0));
  qira::test::scan::ScanKernel kernel;
  kernel.set_bss_table(generated_table(entries));
  kernel.end_scans_at_once();
  std::string error;
  Nl80211Socket socket = open_nl80211_socket({"config", "scan", "regulatory", "mlme"}, error);
  if (!socket.sock) {
    fail(state, error);
    return;
  }
  ScanFloor floor(std::move(socket), if_nametoindex(kInterface), static_cast<std::size_t>(entries));
  // One scan outside the measurement, its first record checked.
  if (!floor.ready() || floor.scan() != entries ||
      std::strcmp(floor.reading().records[0].ssid, "net-0") != 0 ||
      floor.reading().records[0].wpa_version != 2) {
    fail(state, "the floor does not read the dump of " + std::to_string(entries) + " BSSes");
    return;
  }

  const Measurement measurement;
  for (auto _ : state) {
    long records = 0;
    {
      const CountedRegion counted;
      records = floor.scan();
    }
    if (records != entries) {
      fail(state,
           "a scan gave " + std::to_string(records) + " records, not " + std::to_string(entries));
      return;
    }
  }
  state.SetItemsProcessed(state.iterations() * entries);
  measurement.finish(state, "floor/scan/bss:" + std::to_string(entries), entries);
}

BENCHMARK(scan_floor)->Apply(table_sizes)->Apply(fixed_iterations);

}  // namespace
}  // namespace qira::bench::floor
