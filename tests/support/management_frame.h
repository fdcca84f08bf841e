// Management frame bytes as nl80211 carries them in NL80211_ATTR_FRAME, for
// tests and benchmarks of the event path's frame decoding.
#ifndef QIRA_TESTS_SUPPORT_MANAGEMENT_FRAME_H
#define QIRA_TESTS_SUPPORT_MANAGEMENT_FRAME_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qira::test {

// A management frame of `length` bytes: frame control `type`, receiver
// 02:00:00:00:00:01, transmitter 02:00:00:00:00:02, zero elsewhere but the
// little-endian 16-bit reason or status `code` at `offset`.
std::vector<std::uint8_t> management_frame(std::uint8_t type, std::size_t length,
                                           std::size_t offset, std::uint16_t code);

}  // namespace qira::test

#endif  // QIRA_TESTS_SUPPORT_MANAGEMENT_FRAME_H
