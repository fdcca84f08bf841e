// The BSS tables the scan benchmarks run on.
#ifndef QIRA_BENCH_SCAN_TABLE_H
#define QIRA_BENCH_SCAN_TABLE_H

#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "support/bss_message.h"

namespace qira::bench {

// Access point `n` of a generated table: BSSID 02:00:00:00:hi:lo, and the
// SSID "net-<n / 2>" on the channel (n / 2) % 11 + 1, so that access points
// 2k and 2k+1 are two radios of one network (what de-duplication merges);
// WPA2 with CCMP, and a signal that varies from entry to entry.
inline qira::test::BssAttributes generated_bss(int n) {
  using qira::test::element;
  using qira::test::join;
  using qira::test::ssid_element;
  const int channel = (n / 2) % 11 + 1;
  const std::string ssid = "net-" + std::to_string(n / 2);
  qira::test::BssAttributes bss;
  bss.bssid = std::array<std::uint8_t, 6>{
      0x02, 0, 0, 0, static_cast<std::uint8_t>(n >> 8), static_cast<std::uint8_t>(n & 0xff)};
  bss.frequency = static_cast<std::uint32_t>(2407 + 5 * channel);
  bss.capability = 0x0011;  // ESS, privacy
  bss.signal_unspecified = static_cast<std::uint8_t>(30 + (n * 37) % 60);
  const qira::test::Bytes rsn = element(
      48, {1, 0, 0x00, 0x0f, 0xac, 4, 1, 0, 0x00, 0x0f, 0xac, 4, 1, 0, 0x00, 0x0f, 0xac, 2, 0, 0});
  const qira::test::Bytes rates = element(1, {0x82, 0x84, 0x8b, 0x96, 0x0c, 0x12, 0x18, 0x24});
  const qira::test::Bytes channel_element = element(3, {static_cast<std::uint8_t>(channel)});
  bss.ies = join({ssid_element(ssid), rates, channel_element, rsn});
  bss.beacon_ies = join({ssid_element(ssid), rates, channel_element, rsn});
  return bss;
}

// For ->Apply(): the table sizes every scan benchmark runs, as its argument
// "bss". A dump of 150 BSSes overflows the list, which keeps 100 nodes.
inline void table_sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgName("bss")->Arg(1)->Arg(10)->Arg(100)->Arg(150);
}

inline std::vector<qira::test::BssAttributes> generated_table(int size) {
  std::vector<qira::test::BssAttributes> table;
  for (int n = 0; n < size; ++n) {
    table.push_back(generated_bss(n));
  }
  return table;
}

}  // namespace qira::bench

#endif  // QIRA_BENCH_SCAN_TABLE_H
