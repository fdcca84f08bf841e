// The scan list: one node per BSS of a scan dump, bounded at 100 nodes, with
// the replacement of the worst node once full, and its sorting and
// de-duplication. The list and its nodes are plain C allocations (malloc,
// realloc, free) because C callers share and free them.
#include <linux/nl80211.h>
#include <netlink/attr.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "ap_selection/selection_rules.h"
#include "qira/network/ap_selection.h"

namespace {

// Top-level attributes are parsed up to nl80211's highest attribute number
// as it stood when the scan list was defined (214). Newer kernels' headers
// define more, but nothing above that number is read here, and a fixed bound
// keeps the parse the same whatever header the module is built against.
constexpr int kHighestAttribute = 214;
// The BSS's nested attributes, likewise, up to the BSS attribute number 14
// of that time; the element blocks read here lie below it.
constexpr int kHighestBssAttribute = 14;
static_assert(NL80211_ATTR_BSS <= kHighestAttribute, "the BSS attribute fits the table");
static_assert(NL80211_BSS_INFORMATION_ELEMENTS == 6, "nl80211 numbering of the BSS elements");
static_assert(NL80211_BSS_BEACON_IES == 11, "nl80211 numbering of the beacon elements");
static_assert(NL80211_BSS_BEACON_IES <= kHighestBssAttribute, "element blocks fit the table");

constexpr std::uint16_t kInitialCapacity = 8;
constexpr std::uint16_t kGrowthFactor = 2;
// A full list holds this many nodes; a further BSS only replaces the worst.
constexpr std::uint16_t kMaximumNodes = 100;
constexpr std::size_t kSsidTextLength = 32;
constexpr std::size_t kElementBlockSize = sizeof(ap_node::ies);
static_assert(sizeof(ap_node::beacon_ies) == kElementBlockSize, "both blocks have one size");

// The nested BSS attributes are checked for presence and length only, by the
// reader below: the policy imposes no types.
const nla_policy kBssPolicy[kHighestBssAttribute + 1] = {};

// Copies an element block into a node's block when it fits whole; a longer
// block is dropped entirely, leaving the length 0.
void copy_element_block(const nlattr* attribute, std::uint8_t* block, std::uint32_t* length) {
  if (attribute == nullptr) {
    return;
  }
  const int payload_length = nla_len(attribute);
  if (payload_length < 0 || static_cast<std::size_t>(payload_length) > kElementBlockSize) {
    return;
  }
  std::memcpy(block, nla_data(attribute), static_cast<std::size_t>(payload_length));
  *length = static_cast<std::uint32_t>(payload_length);
}

// A new list of no node and kInitialCapacity empty slots, or null.
scan_list* new_scan_list() {
  auto* list = static_cast<scan_list*>(std::malloc(sizeof(scan_list)));
  if (list == nullptr) {
    return nullptr;
  }
  list->count = 0;
  list->capacity = kInitialCapacity;
  list->growth = kGrowthFactor;
  list->items = static_cast<ap_node**>(std::calloc(kInitialCapacity, sizeof(ap_node*)));
  if (list->items == nullptr) {
    std::free(list);
    return nullptr;
  }
  return list;
}

// The slot that takes the next node of a list that is not full, or null when
// the slot array cannot grow. The new capacity is stored before the array is
// reallocated, and stays when that fails: callers have always seen the list
// in this state after a failed growth.
ap_node** next_free_slot(scan_list* list) {
  if (list->count == list->capacity) {
    list->capacity = static_cast<std::uint16_t>(list->growth * list->count);
    auto* items = static_cast<ap_node**>(
        std::realloc(list->items, static_cast<std::size_t>(list->capacity) * sizeof(ap_node*)));
    if (items == nullptr) {
      return nullptr;
    }
    list->items = items;
    for (std::uint16_t slot = list->count; slot < list->capacity; ++slot) {
      items[slot] = nullptr;
    }
  }
  return &list->items[list->count];
}

// qsort's comparator over node pointers: 0 for the same access point
// (ap_same), -1 when `a` sorts first (ap_less), 1 otherwise; same access
// points compare equal, so the ranking between them is not consulted here.
// The keys are compared once, in ap_less's order (SSID, channel, frequency),
// rather than once by ap_same and again by ap_less: the answers, and so
// qsort's moves and the node each run keeps, are the same, for half the
// work. Every slot below the count holds a node, so neither is null.
int compare_nodes(const void* left, const void* right) {
  const ap_node* a = *static_cast<const ap_node* const*>(left);
  const ap_node* b = *static_cast<const ap_node* const*>(right);
  const int ssid_order = std::strncmp(a->ssid, b->ssid, sizeof a->ssid);
  if (ssid_order != 0) {
    return ssid_order < 0 ? -1 : 1;
  }
  if (a->channel != b->channel) {
    return a->channel < b->channel ? -1 : 1;
  }
  if (a->frequency != b->frequency) {
    return a->frequency < b->frequency ? -1 : 1;
  }
  return 0;
}

}  // namespace

extern "C" {

int get_result(nl_msg* msg, scan_entry* entry) {
  if (msg == nullptr || entry == nullptr) {
    return NL_SKIP;
  }
  std::memset(entry, 0, sizeof *entry);
  scan_cursor cursor{entry, 1};
  return nl80211_get_scanlist_cb(msg, &cursor);
}

void make_ap_from_entry(const scan_entry* entry, ap_node* node) {
  if (entry == nullptr || node == nullptr) {
    return;
  }
  std::memset(node, 0, sizeof *node);
  std::memcpy(node->bssid, entry->bssid, sizeof node->bssid);
  std::memcpy(node->ssid, entry->ssid, strnlen(entry->ssid, kSsidTextLength));
  node->mode = static_cast<std::uint8_t>(entry->mode);
  node->channel = entry->channel;
  node->frequency = entry->frequency;
  node->signal = entry->signal;
  node->link_byte_1 = entry->link_byte_1;
  node->quality = entry->quality;
  node->link_byte_3 = entry->link_byte_3;
  node->encrypted = entry->encrypted;
  node->wpa_version = entry->wpa_version;
  std::memcpy(node->cipher_bytes, entry->cipher_bytes, sizeof node->cipher_bytes);
}

ap_node** search_node_to_replace(scan_list* list, const scan_entry* entry) {
  if (list == nullptr || entry == nullptr || list->count == 0) {
    return nullptr;
  }
  // node_weight_function's ranking, by direct calls: every slot below the
  // count holds a node.
  using qira::network::selection::weigh_nodes;
  std::uint16_t worst = 0;
  for (std::uint16_t slot = 1; slot < list->count; ++slot) {
    if (weigh_nodes(*list->items[slot], *list->items[worst]) < 0) {
      worst = slot;
    }
  }
  ap_node candidate;
  make_ap_from_entry(entry, &candidate);
  if (weigh_nodes(candidate, *list->items[worst]) > 0) {
    return &list->items[worst];
  }
  return nullptr;
}

int get_scanlist_cb(nl_msg* msg, void* arg) {
  if (msg == nullptr || arg == nullptr) {
    return NL_SKIP;
  }
  auto* header = static_cast<genlmsghdr*>(nlmsg_data(nlmsg_hdr(msg)));
  nlattr* attributes[kHighestAttribute + 1];
  nla_parse(attributes, kHighestAttribute, genlmsg_attrdata(header, 0), genlmsg_attrlen(header, 0),
            nullptr);
  if (attributes[NL80211_ATTR_BSS] == nullptr) {
    return NL_SKIP;
  }
  nlattr* bss[kHighestBssAttribute + 1];
  if (nla_parse_nested(bss, kHighestBssAttribute, attributes[NL80211_ATTR_BSS], kBssPolicy) != 0) {
    return NL_SKIP;
  }

  scan_entry entry;
  const int result = get_result(msg, &entry);

  auto** holder = static_cast<scan_list**>(arg);
  if (*holder == nullptr) {
    *holder = new_scan_list();
    if (*holder == nullptr) {
      return NL_SKIP;
    }
  }
  scan_list* list = *holder;

  ap_node** slot = nullptr;
  if (list->count >= kMaximumNodes) {
    slot = search_node_to_replace(list, &entry);
    if (slot == nullptr || *slot == nullptr) {
      return NL_SKIP;
    }
  } else {
    slot = next_free_slot(list);
    if (slot == nullptr) {
      return NL_SKIP;
    }
    if (*slot == nullptr) {
      *slot = static_cast<ap_node*>(std::malloc(sizeof(ap_node)));
      if (*slot == nullptr) {
        return NL_SKIP;
      }
      ++list->count;
    }
  }

  ap_node* node = *slot;
  make_ap_from_entry(&entry, node);
  copy_element_block(bss[NL80211_BSS_INFORMATION_ELEMENTS], node->ies, &node->ie_len);
  copy_element_block(bss[NL80211_BSS_BEACON_IES], node->beacon_ies, &node->beacon_ie_len);
  return result;
}

void free_scanlist(scan_list** list) {
  if (list == nullptr || *list == nullptr) {
    return;
  }
  for (std::uint16_t slot = 0; slot < (*list)->count; ++slot) {
    std::free((*list)->items[slot]);
  }
  std::free((*list)->items);
  std::free(*list);
  *list = nullptr;
}

void dedup_scanlist(scan_list** list) {
  if (list == nullptr || *list == nullptr) {
    return;
  }
  scan_list* sorted = *list;
  if (sorted->count > 0) {
    std::qsort(sorted->items, sorted->count, sizeof(ap_node*), compare_nodes);
  }
  if (sorted->count < 2) {
    return;
  }
  // Keeps the first node of each run of same access points. Slots past the
  // new count keep stale pointers: nothing reads beyond the count.
  std::uint16_t kept = 1;
  for (std::uint16_t slot = 1; slot < sorted->count; ++slot) {
    if (ap_same(sorted->items[kept - 1], sorted->items[slot]) != 0) {
      std::free(sorted->items[slot]);
      continue;
    }
    sorted->items[kept] = sorted->items[slot];
    ++kept;
  }
  sorted->count = kept;
}

}  // extern "C"
