// The set-up libFuzzer runs before the first input: every target uses the
// module's real paths and the simulated kernels, so the process enters the
// test sandbox first, exactly as a unit test binary does in main().
#include "fuzz_support.h"

#include <algorithm>
#include <cstring>

#include "qira/host/seams.h"
#include "support/sandbox.h"

namespace qira::fuzz {

std::uint8_t InputReader::byte() {
  return empty() ? 0 : data_[position_++];
}

std::uint16_t InputReader::u16() {
  const std::uint8_t low = byte();
  const std::uint8_t high = byte();
  return static_cast<std::uint16_t>(low | (high << 8));
}

std::vector<std::uint8_t> InputReader::bytes(std::size_t count) {
  const std::size_t taken = std::min(count, remaining());
  std::vector<std::uint8_t> out(data_ + position_, data_ + position_ + taken);
  position_ += taken;
  return out;
}

std::vector<std::uint8_t> InputReader::rest() {
  return bytes(remaining());
}

std::string InputReader::rest_text() {
  const std::vector<std::uint8_t> all = rest();
  return std::string(all.begin(), all.end());
}

std::string InputReader::text_until_nul() {
  std::string text;
  while (!empty()) {
    const std::uint8_t next = byte();
    if (next == 0) {
      break;
    }
    text.push_back(static_cast<char>(next));
  }
  return text;
}

}  // namespace qira::fuzz

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  qira::test::enter_sandbox();
  // Every log line is still formatted (the module's format strings run on
  // fuzzed text), but none is written: millions of lines on stderr would
  // drown libFuzzer's own report and slow every run.
  qira::host::set_log_sink([](const qira::host::LogRecord& record) {
    const std::string line = qira::host::format_log_record(record);
    static_cast<void>(line);
  });
  return 0;
}
