// Nodes and lists for the selection tests.
#ifndef QIRA_TESTS_UNIT_AP_SELECTION_AP_NODE_UTIL_H
#define QIRA_TESTS_UNIT_AP_SELECTION_AP_NODE_UTIL_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "qira/network/ap_selection.h"

namespace qira::test {

// The figures a ranking looks at.
struct NodeSpec {
  std::string ssid = "net";
  std::uint8_t channel = 1;
  std::uint16_t frequency = 2412;
  std::uint8_t signal = 200;
  std::uint8_t quality = 50;
  std::uint8_t encrypted = 0;
  std::uint8_t wpa_version = 0;
  std::uint8_t bssid_tail = 0;
};

inline ap_node make_node(const NodeSpec& shape) {
  ap_node node;
  std::memset(&node, 0, sizeof node);
  std::memcpy(node.ssid, shape.ssid.data(), shape.ssid.size());
  node.bssid[0] = 0x02;
  node.bssid[5] = shape.bssid_tail;
  node.channel = shape.channel;
  node.frequency = shape.frequency;
  node.signal = shape.signal;
  node.quality = shape.quality;
  node.encrypted = shape.encrypted;
  node.wpa_version = shape.wpa_version;
  return node;
}

// A list as get_scanlist_cb makes it, holding malloc'ed copies of `nodes`.
inline scan_list* make_list(const std::vector<NodeSpec>& nodes) {
  auto* list = static_cast<scan_list*>(std::malloc(sizeof(scan_list)));
  list->count = static_cast<std::uint16_t>(nodes.size());
  list->capacity = static_cast<std::uint16_t>(nodes.size() < 8 ? 8 : nodes.size());
  list->growth = 2;
  list->items = static_cast<ap_node**>(std::calloc(list->capacity, sizeof(ap_node*)));
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    list->items[i] = static_cast<ap_node*>(std::malloc(sizeof(ap_node)));
    *list->items[i] = make_node(nodes[i]);
  }
  return list;
}

}  // namespace qira::test

#endif  // QIRA_TESTS_UNIT_AP_SELECTION_AP_NODE_UTIL_H
