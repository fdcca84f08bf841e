// Rules of access point selection shared by its source files, reached by
// direct calls: the exported functions that apply them (is_5_ghz_band,
// ap_weight_function, node_weight_function) can only be called through the
// procedure linkage table from inside the module, and a full scan list
// weighs every node against the worst so far for each further BSS.
#ifndef QIRA_SRC_AP_SELECTION_SELECTION_RULES_H
#define QIRA_SRC_AP_SELECTION_SELECTION_RULES_H

#include <cstdint>

#include "qira/network/ap_selection.h"

namespace qira::network::selection {

constexpr unsigned int k5GhzLowest = 5004;
constexpr unsigned int k5GhzHighest = 5849;

// is_5_ghz_band's test. The offset from the band's start is taken in 16
// bits, as callers have always seen it: values 65536 (or a multiple) above
// the band also answer 1.
inline bool in_5_ghz_band(unsigned int freq) {
  const auto offset = static_cast<std::uint16_t>(freq - k5GhzLowest);
  return offset <= k5GhzHighest - k5GhzLowest;
}

// ap_weight_function of two nodes, neither null: 1 when `a` is the better
// access point, -1 when `b` is, 0 when they are equal.
int weigh_nodes(const ap_node& a, const ap_node& b);

}  // namespace qira::network::selection

#endif  // QIRA_SRC_AP_SELECTION_SELECTION_RULES_H
