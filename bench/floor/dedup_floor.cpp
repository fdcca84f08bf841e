// The floor of de-duplication: what any consumer must do to leave a scan
// list sorted by SSID, channel and frequency with one node of each access
// point, on the lists that the de-duplication benchmark measures (the same
// generated tables, decoded by the host's decoder, one allocation per node
// as in the scan list). The C library's qsort with one three-way comparison
// of the keys, then one pass that frees the repeated nodes.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "qira/host/bss_decoder.h"
#include "qira/network/ap_selection.h"
#include "scan_table.h"
#include "support/alloc_counter.h"
#include "support/bench_checks.h"
#include "support/measurement.h"

namespace qira::bench::floor {
namespace {

constexpr int kBatch = 64;

// The node the scan list holds for `bss`: its keys as the host decodes them.
ap_node* node_of(const qira::test::BssAttributes& bss) {
  qira::host::bss_fields fields;
  fields.bssid = bss.bssid;
  fields.frequency = bss.frequency;
  fields.capability = bss.capability;
  fields.signal_unspecified = bss.signal_unspecified;
  fields.ies = qira::host::byte_view{bss.ies->data(), bss.ies->size()};
  scan_entry entry{};
  qira::host::decode_bss(fields, entry);
  auto* node = static_cast<ap_node*>(std::calloc(1, sizeof(ap_node)));
  if (node != nullptr) {
    std::memcpy(node->ssid, entry.ssid, sizeof(node->ssid));
    node->channel = entry.channel;
    node->frequency = entry.frequency;
  }
  return node;
}

int compare_keys(const void* left, const void* right) {
  const ap_node* a = *static_cast<const ap_node* const*>(left);
  const ap_node* b = *static_cast<const ap_node* const*>(right);
  const int ssid_order = std::strncmp(a->ssid, b->ssid, sizeof(a->ssid));
  if (ssid_order != 0) {
    return ssid_order;
  }
  if (a->channel != b->channel) {
    return a->channel < b->channel ? -1 : 1;
  }
  if (a->frequency != b->frequency) {
    return a->frequency < b->frequency ? -1 : 1;
  }
  return 0;
}

// Sorts the nodes and keeps the first of each run of equal keys; the count
// kept.
std::size_t deduplicate(std::vector<ap_node*>& nodes) {
  if (nodes.size() < 2) {
    return nodes.size();
  }
  std::qsort(nodes.data(), nodes.size(), sizeof(ap_node*), compare_keys);
  std::size_t kept = 1;
  for (std::size_t i = 1; i < nodes.size(); ++i) {
    if (compare_keys(&nodes[kept - 1], &nodes[i]) == 0) {
      std::free(nodes[i]);
    } else {
      nodes[kept++] = nodes[i];
    }
  }
  nodes.resize(kept);
  return kept;
}

void dedup_floor(benchmark::State& state) {
  const int entries = static_cast<int>(state.range(0));
  const std::vector<qira::test::BssAttributes> table = generated_table(entries);
  std::vector<std::vector<ap_node*>> lists(kBatch);
  std::vector<std::size_t> kept(kBatch, 0);
  const Measurement measurement;
  for (auto _ : state) {
    state.PauseTiming();
    for (std::vector<ap_node*>& list : lists) {
      list.clear();
      list.reserve(table.size());
      for (const qira::test::BssAttributes& bss : table) {
        list.push_back(node_of(bss));
      }
    }
    state.ResumeTiming();
    {
      const CountedRegion counted;
      for (std::size_t i = 0; i < lists.size(); ++i) {
        kept[i] = deduplicate(lists[i]);
      }
    }
    state.PauseTiming();
    bool halved = true;
    for (std::size_t i = 0; i < lists.size(); ++i) {
      halved = halved && kept[i] == static_cast<std::size_t>(entries + 1) / 2;
      for (ap_node* node : lists[i]) {
        std::free(node);
      }
      lists[i].clear();
    }
    state.ResumeTiming();
    if (!halved) {
      fail(state, "a list of " + std::to_string(entries) + " entries was not halved");
      return;
    }
  }
  state.SetItemsProcessed(state.iterations() * kBatch * entries);
  measurement.finish(state, "floor/dedup/bss:" + std::to_string(entries), kBatch);
}

// A dump of more than 100 BSSes leaves a list of 100 nodes (the strongest),
// which the 100-node row already measures.
BENCHMARK(dedup_floor)->ArgName("bss")->Arg(1)->Arg(10)->Arg(100)->Apply(fixed_iterations);

}  // namespace
}  // namespace qira::bench::floor
