// What every fuzz target shares: the process set-up (the test sandbox, a
// quiet logger) done once in LLVMFuzzerInitialize, and a reader that takes
// structured values off the fuzz input.
#ifndef QIRA_FUZZ_FUZZ_SUPPORT_H
#define QIRA_FUZZ_FUZZ_SUPPORT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qira::fuzz {

// Takes values off the front of the input; past its end every value is 0
// and every block empty, so that any input decodes to something.
class InputReader {
 public:
  InputReader(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  bool empty() const { return position_ >= size_; }
  std::size_t remaining() const { return empty() ? 0 : size_ - position_; }
  std::uint8_t byte();
  // Little-endian.
  std::uint16_t u16();
  // Up to `count` bytes (fewer where the input ends).
  std::vector<std::uint8_t> bytes(std::size_t count);
  // Everything left.
  std::vector<std::uint8_t> rest();
  std::string rest_text();
  // The text up to the next NUL (consumed) or the end.
  std::string text_until_nul();

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t position_ = 0;
};

}  // namespace qira::fuzz

#endif  // QIRA_FUZZ_FUZZ_SUPPORT_H
