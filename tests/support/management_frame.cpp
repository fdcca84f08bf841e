#include "management_frame.h"

namespace qira::test {

std::vector<std::uint8_t> management_frame(std::uint8_t type, std::size_t length,
                                           std::size_t offset, std::uint16_t code) {
  std::vector<std::uint8_t> frame(length, 0);
  frame[0] = type;
  frame[4] = 0x02;  // receiver (address 1, bytes 4-9)
  frame[9] = 0x01;
  frame[10] = 0x02;  // transmitter (address 2, bytes 10-15)
  frame[15] = 0x02;
  frame.at(offset) = static_cast<std::uint8_t>(code & 0xFF);
  frame.at(offset + 1) = static_cast<std::uint8_t>(code >> 8);
  return frame;
}

}  // namespace qira::test
