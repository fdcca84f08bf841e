// Ranking of access points against each other: security first, then the
// band when the links are comparable, then signal and quality; and the
// ordering and sameness used to sort and de-duplicate the scan list.
#include <cstring>

#include "ap_selection/selection_rules.h"
#include "qira/network/ap_selection.h"

namespace {

constexpr unsigned char kWpa = 1;
constexpr unsigned char kWpa2 = 2;
constexpr unsigned char kWpaAndWpa2 = 3;

// The band only decides between links this close: signals within 4 units or
// qualities within 9 units of each other.
constexpr int kComparableSignal = 4;
constexpr int kComparableQuality = 9;

bool within(int difference, int limit) {
  return difference >= -limit && difference <= limit;
}

// -1, 0 or 1 as `a` is smaller than, equal to or larger than `b`.
int order(unsigned int a, unsigned int b) {
  return a < b ? -1 : (a > b ? 1 : 0);
}

// SSIDs compare as C strings, bounded by their field so that a node whose
// SSID lacks its NUL is never read past it.
int compare_ssid(const ap_node* a, const ap_node* b) {
  return std::strncmp(a->ssid, b->ssid, sizeof a->ssid);
}

// ap_supports_wpa2 of a node that is not null.
bool supports_wpa2(const ap_node& node) {
  return node.encrypted != 0 && (node.wpa_version == kWpa2 || node.wpa_version == kWpaAndWpa2);
}

}  // namespace

namespace qira::network::selection {

int weigh_nodes(const ap_node& a, const ap_node& b) {
  const bool a_wpa2 = supports_wpa2(a);
  const bool b_wpa2 = supports_wpa2(b);
  if (a_wpa2 && !b_wpa2) {
    return 1;
  }
  if (b_wpa2 && !a_wpa2) {
    return -1;
  }
  if (a.encrypted != 0 && b.encrypted == 0) {
    return 1;
  }
  if (b.encrypted != 0 && a.encrypted == 0) {
    return -1;
  }
  const int signal_difference = static_cast<int>(b.signal) - static_cast<int>(a.signal);
  const int quality_difference = static_cast<int>(b.quality) - static_cast<int>(a.quality);
  if (within(signal_difference, kComparableSignal) ||
      within(quality_difference, kComparableQuality)) {
    const bool a_5_ghz = in_5_ghz_band(a.frequency);
    const bool b_5_ghz = in_5_ghz_band(b.frequency);
    if (a_5_ghz && !b_5_ghz) {
      return 1;
    }
    if (b_5_ghz && !a_5_ghz) {
      return -1;
    }
  }
  if (a.signal != b.signal) {
    return order(a.signal, b.signal);
  }
  return order(a.quality, b.quality);
}

}  // namespace qira::network::selection

extern "C" {

int ap_supports_wpa(const ap_node* node) {
  if (node == nullptr || node->encrypted == 0) {
    return 0;
  }
  return node->wpa_version == kWpa || node->wpa_version == kWpaAndWpa2 ? 1 : 0;
}

int ap_supports_wpa2(const ap_node* node) {
  if (node == nullptr || node->encrypted == 0) {
    return 0;
  }
  return node->wpa_version == kWpa2 || node->wpa_version == kWpaAndWpa2 ? 1 : 0;
}

int ap_supports_wpa_and_wpa2(const ap_node* node) {
  if (node == nullptr || node->encrypted == 0) {
    return 0;
  }
  return node->wpa_version == kWpaAndWpa2 ? 1 : 0;
}

int ap_weight_function(const ap_node* a, const ap_node* b) {
  if (a == nullptr || b == nullptr) {
    return 0;
  }
  return qira::network::selection::weigh_nodes(*a, *b);
}

int node_weight_function(const ap_node* a, const ap_node* b) {
  if (a == nullptr || b == nullptr) {
    return 0;
  }
  return qira::network::selection::weigh_nodes(*a, *b);
}

int ap_less(const ap_node* a, const ap_node* b) {
  if (a == nullptr || b == nullptr) {
    return 0;
  }
  const int ssid_order = compare_ssid(a, b);
  if (ssid_order != 0) {
    return ssid_order < 0 ? 1 : 0;
  }
  if (a->channel != b->channel) {
    return a->channel < b->channel ? 1 : 0;
  }
  if (a->frequency != b->frequency) {
    return a->frequency < b->frequency ? 1 : 0;
  }
  // The better (or an equally good) access point comes first.
  return ap_weight_function(a, b) >= 0 ? 1 : 0;
}

int ap_same(const ap_node* a, const ap_node* b) {
  if (a == nullptr || b == nullptr) {
    return 0;
  }
  return compare_ssid(a, b) == 0 && a->channel == b->channel && a->frequency == b->frequency ? 1
                                                                                             : 0;
}

}  // extern "C"
