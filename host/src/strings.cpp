// Text helpers: format, replaceAll, random strings and the IPv4 validators.
#include "qira/utils/strings.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <random>
#include <vector>

#include "host_internal.h"

namespace qira::utils {

namespace {

constexpr char kAlphaNumeric[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";

// Fills `words` from the kernel's random pool; false when it cannot be read.
bool read_urandom(std::vector<std::uint32_t>& words) {
  int fd = ::open("/dev/urandom", O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    return false;
  }
  qira::host::internal::unique_fd holder(fd);
  auto* bytes = reinterpret_cast<unsigned char*>(words.data());
  const std::size_t size = words.size() * sizeof(std::uint32_t);
  std::size_t done = 0;
  while (done < size) {
    ssize_t n = ::read(holder.get(), bytes + done, size - done);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  return true;
}

// A dotted quad; each part 1-3 digits without a leading zero, 0-255.
std::optional<std::uint32_t> parse_dotted_quad(const std::string& text) {
  std::uint32_t value = 0;
  std::size_t pos = 0;
  for (int part = 0; part < 4; ++part) {
    if (part > 0) {
      if (pos >= text.size() || text[pos] != '.') {
        return std::nullopt;
      }
      ++pos;
    }
    std::size_t start = pos;
    unsigned int number = 0;
    while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9' && pos - start < 3) {
      number = number * 10 + static_cast<unsigned int>(text[pos] - '0');
      ++pos;
    }
    std::size_t digits = pos - start;
    if (digits == 0 || number > 255 || (digits > 1 && text[start] == '0')) {
      return std::nullopt;
    }
    value = (value << 8) | number;
  }
  if (pos != text.size()) {
    return std::nullopt;
  }
  return value;
}

}  // namespace

std::string format(const char* fmt, ...) {
  if (fmt == nullptr) {
    return std::string();
  }
  va_list args;
  va_start(args, fmt);
  va_list copy;
  va_copy(copy, args);
  int length = std::vsnprintf(nullptr, 0, fmt, copy);
  va_end(copy);
  std::string text;
  if (length > 0) {
    text.resize(static_cast<std::size_t>(length) + 1);
    std::vsnprintf(text.data(), text.size(), fmt, args);
    text.resize(static_cast<std::size_t>(length));
  }
  va_end(args);
  return text;
}

void replaceAll(std::string& s, const std::string& from, const std::string& to) {
  if (from.empty()) {
    return;
  }
  std::size_t pos = 0;
  while ((pos = s.find(from, pos)) != std::string::npos) {
    s.replace(pos, from.size(), to);
    pos += to.size();
  }
}

std::string randomAlphaNumericString(const std::string& alphabet, unsigned int length) {
  const std::string letters = alphabet.empty() ? std::string(kAlphaNumeric) : alphabet;
  const std::uint32_t count = static_cast<std::uint32_t>(letters.size());
  // Words at or above `limit` are drawn again, so every letter is equally likely.
  const std::uint32_t limit = UINT32_MAX - (UINT32_MAX % count);
  std::string out;
  out.reserve(length);
  std::vector<std::uint32_t> pool(static_cast<std::size_t>(length) + 4);
  std::random_device fallback;
  while (out.size() < length) {
    if (!read_urandom(pool)) {
      for (std::uint32_t& word : pool) {
        word = static_cast<std::uint32_t>(fallback());
      }
    }
    for (std::uint32_t word : pool) {
      if (out.size() == length) {
        break;
      }
      if (word < limit) {
        out.push_back(letters[word % count]);
      }
    }
  }
  return out;
}

bool ipv4_address_valid(const std::string& text, bool host_address, bool allow_empty) {
  if (text.empty()) {
    return allow_empty;
  }
  std::optional<std::uint32_t> address = parse_dotted_quad(text);
  if (!address) {
    return false;
  }
  if (host_address) {
    std::uint32_t first = *address >> 24;
    // 0.0.0.0/8 ("this network"), 224/4 multicast, 240/4 reserved and broadcast.
    if (first == 0 || first >= 224) {
      return false;
    }
  }
  return true;
}

bool ipv4_netmask_valid(const std::string& text, bool reject_zero) {
  std::optional<std::uint32_t> mask = parse_dotted_quad(text);
  if (!mask) {
    return false;
  }
  if (*mask == 0) {
    return !reject_zero;
  }
  // Contiguous ones: the inverted mask plus one is a power of two.
  std::uint32_t host_bits = ~*mask;
  return (host_bits & (host_bits + 1)) == 0;
}

}  // namespace qira::utils
