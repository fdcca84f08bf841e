// The host's Variant::FromJSON (nlohmann-json's strict parser behind the
// host's own adapter to Variant) and ToJSON on arbitrary text: the identity
// file and qira-wifi's configuration file are read through it. What it
// accepts must write back as valid UTF-8 that reads back to the same value.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz_support.h"
#include "qira/host/outside_text.h"
#include "qira/variant/variant.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  qira::variant::Variant value;
  std::string error;
  if (!qira::variant::Variant::FromJSON(text, value, &error)) {
    if (error.empty() || !value.IsNull()) {
      std::abort();  // a refusal says why and leaves nothing behind
    }
    return 0;
  }
  for (const int indent : {0, 2}) {
    const std::string written = value.ToJSON(indent);
    if (!qira::host::is_valid_utf8(written)) {
      std::abort();
    }
    qira::variant::Variant again;
    if (!qira::variant::Variant::FromJSON(written, again, &error) || again != value) {
      std::abort();
    }
  }
  return 0;
}
