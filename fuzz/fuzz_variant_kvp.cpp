// The host's Variant::FromKVP and GetKeyChain on arbitrary text: the first
// byte picks FromKVP's three flags and the type asked of GetKeyChain, the
// text up to the first NUL is the key=value text and the rest holds the key
// paths looked up (separated by NULs). The module feeds FromKVP with
// wpa_supplicant's event arguments and reads stored settings by key paths.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz_support.h"
#include "qira/variant/variant.h"

namespace {

using qira::variant::Variant;
using qira::variant::VariantType;

// Every tag the host defines, and the map tag variant the module tests for.
constexpr VariantType kTypes[] = {
    qira::variant::V_NULL,   qira::variant::V_BOOL,   qira::variant::V_DOUBLE,
    qira::variant::V_INT8,   qira::variant::V_UINT8,  qira::variant::V_INT16,
    qira::variant::V_UINT16, qira::variant::V_INT32,  qira::variant::V_UINT32,
    qira::variant::V_INT64,  qira::variant::V_UINT64, qira::variant::V_STRING,
    qira::variant::V_MAP,    qira::variant::V_ARRAY,  static_cast<VariantType>(0x1011),
};
constexpr std::size_t kTypeCount = sizeof(kTypes) / sizeof(kTypes[0]);

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  qira::fuzz::InputReader input(data, size);
  const std::uint8_t options = input.byte();
  const bool skip_invalid = (options & 0x01) != 0;
  const bool parse_numbers = (options & 0x02) != 0;
  const bool key_paths = (options & 0x04) != 0;
  const bool same_kind = (options & 0x08) != 0;
  const VariantType type = kTypes[(options >> 4) % kTypeCount];

  const std::string text = input.text_until_nul();
  Variant value;
  value.FromKVP(text, skip_invalid, parse_numbers, key_paths);
  // A second pass over the same value: members are replaced, not added twice.
  const std::size_t members = value.Size();
  value.FromKVP(text, skip_invalid, parse_numbers, key_paths);
  if (value.Size() != members) {
    std::abort();
  }

  while (!input.empty()) {
    const std::string path = input.text_until_nul();
    Variant* found = value.GetKeyChain(type, path.c_str(), same_kind);
    const Variant& constant = value;
    if (constant.GetKeyChain(type, path.c_str(), same_kind) != found) {
      std::abort();
    }
    // An exact match is also a match of the same kind.
    if (found != nullptr && !same_kind && value.GetKeyChain(type, path.c_str(), true) != found) {
      std::abort();
    }
    if (found != nullptr) {
      static_cast<void>(found->ToJSON());
    }
  }
  static_cast<void>(value.ToJSON());
  return 0;
}
