// Variant: storage, assignment, conversions, containers and key paths.
#include "qira/variant/variant.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <utility>

#include "host_internal.h"

namespace qira::host {

namespace {

std::atomic<KeyPathRecorder*> installed_key_path_recorder{nullptr};

}  // namespace

KeyPathRecorder* internal::current_key_path_recorder() {
  return installed_key_path_recorder.load();
}

KeyPathRecorder::KeyPathRecorder() : previous_(installed_key_path_recorder.exchange(this)) {}

KeyPathRecorder::~KeyPathRecorder() {
  installed_key_path_recorder.store(previous_);
}

void KeyPathRecorder::record(const qira::variant::Variant* value, const char* path) {
  std::lock_guard<std::mutex> lock(mutex_);
  reads_.push_back({value, path != nullptr ? path : ""});
}

std::vector<std::string> KeyPathRecorder::paths_of(const qira::variant::Variant* value) const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<std::string> paths;
  for (const KeyPathRead& read : reads_) {
    if (read.value == value) {
      paths.push_back(read.path);
    }
  }
  return paths;
}

}  // namespace qira::host

namespace qira::variant {

bool IsIntegerType(VariantType type) {
  return (type & 0x4000u) != 0;
}
bool IsStringType(VariantType type) {
  return (type & 0x100Eu) == 0x100Eu;
}
bool IsMapType(VariantType type) {
  return type == 0x1010u || type == 0x1011u;
}

namespace {

bool is_signed_integer(VariantType type) {
  return type == V_INT8 || type == V_INT16 || type == V_INT32 || type == V_INT64;
}

bool is_unsigned_integer(VariantType type) {
  return type == V_UINT8 || type == V_UINT16 || type == V_UINT32 || type == V_UINT64;
}

const std::string& empty_string() {
  static const std::string empty;
  return empty;
}

const Variant& shared_null() {
  static const Variant null_value;
  return null_value;
}

// Same kind for GetKeyChain: integers of any width, any string tag, any map tag.
bool same_kind_of(VariantType wanted, VariantType actual) {
  if (wanted == actual) {
    return true;
  }
  if (IsIntegerType(wanted) && IsIntegerType(actual)) {
    return true;
  }
  if (IsStringType(wanted) && IsStringType(actual)) {
    return true;
  }
  return IsMapType(wanted) && IsMapType(actual);
}

// Splits `path` on '/', dropping empty segments.
std::vector<std::string> split_path(const char* path) {
  std::vector<std::string> segments;
  std::string current;
  for (const char* p = path; *p != '\0'; ++p) {
    if (*p == '/') {
      if (!current.empty()) {
        segments.push_back(std::move(current));
        current.clear();
      }
    } else {
      current.push_back(*p);
    }
  }
  if (!current.empty()) {
    segments.push_back(std::move(current));
  }
  return segments;
}

}  // namespace

Variant::Variant() : type_(V_NULL) {
  value_.u = 0;
}

Variant::Variant(const Variant& other) : type_(V_NULL) {
  value_.u = 0;
  *this = other;
}

Variant::Variant(Variant&& other) noexcept : type_(other.type_), value_(other.value_) {
  other.type_ = V_NULL;
  other.value_.u = 0;
}

Variant::~Variant() {
  Free();
}

Variant& Variant::operator=(const Variant& other) {
  if (this == &other) {
    return *this;
  }
  // Copy first: `other` may live inside this value.
  Variant copy;
  switch (other.type_) {
    case V_STRING:
      copy.value_.s = new std::string(*other.value_.s);
      break;
    case V_ARRAY:
      copy.value_.a = new Array(*other.value_.a);
      break;
    case V_MAP:
      copy.value_.m = new Map(*other.value_.m);
      break;
    default:
      copy.value_ = other.value_;
      break;
  }
  copy.type_ = other.type_;
  return *this = std::move(copy);
}

Variant& Variant::operator=(Variant&& other) noexcept {
  if (this != &other) {
    // `other` may live inside this value: detach it before freeing.
    VariantType type = other.type_;
    Storage value = other.value_;
    other.type_ = V_NULL;
    other.value_.u = 0;
    Free();
    type_ = type;
    value_ = value;
  }
  return *this;
}

void Variant::set_type(VariantType type) {
  Free();
  type_ = type;
  switch (type) {
    case V_STRING:
      value_.s = new std::string();
      break;
    case V_ARRAY:
      value_.a = new Array();
      break;
    case V_MAP:
      value_.m = new Map();
      break;
    default:
      value_.u = 0;
      break;
  }
}

// Copies the text once, straight into the value's string: event payloads
// assign most of their texts this way, and a temporary string would cost a
// second allocation for every text longer than the string's inline buffer.
Variant& Variant::operator=(const char* value) {
  const char* text = value != nullptr ? value : "";
  if (type_ == V_STRING) {
    value_.s->assign(text);
  } else {
    // Copy first: `value` may point into this value's own content.
    std::string* copy = new std::string(text);
    Free();
    type_ = V_STRING;
    value_.s = copy;
  }
  return *this;
}

Variant& Variant::operator=(const std::string& value) {
  if (type_ == V_STRING) {
    *value_.s = value;
  } else {
    std::string* copy = new std::string(value);
    Free();
    type_ = V_STRING;
    value_.s = copy;
  }
  return *this;
}

Variant& Variant::operator=(bool value) {
  set_type(V_BOOL);
  value_.b = value;
  return *this;
}

#define QIRA_VARIANT_SIGNED_ASSIGN(ctype, tag) \
  Variant& Variant::operator=(ctype value) {   \
    set_type((tag));                           \
    value_.i = value;                          \
    return *this;                              \
  }
#define QIRA_VARIANT_UNSIGNED_ASSIGN(ctype, tag) \
  Variant& Variant::operator=(ctype value) {     \
    set_type((tag));                             \
    value_.u = value;                            \
    return *this;                                \
  }

QIRA_VARIANT_SIGNED_ASSIGN(signed char, V_INT8)
QIRA_VARIANT_UNSIGNED_ASSIGN(unsigned char, V_UINT8)
QIRA_VARIANT_SIGNED_ASSIGN(short, V_INT16)
QIRA_VARIANT_UNSIGNED_ASSIGN(unsigned short, V_UINT16)
QIRA_VARIANT_SIGNED_ASSIGN(int, V_INT32)
QIRA_VARIANT_UNSIGNED_ASSIGN(unsigned int, V_UINT32)
QIRA_VARIANT_SIGNED_ASSIGN(long, sizeof(long) == 8 ? V_INT64 : V_INT32)
QIRA_VARIANT_UNSIGNED_ASSIGN(unsigned long, sizeof(long) == 8 ? V_UINT64 : V_UINT32)
QIRA_VARIANT_SIGNED_ASSIGN(long long, V_INT64)
QIRA_VARIANT_UNSIGNED_ASSIGN(unsigned long long, V_UINT64)

#undef QIRA_VARIANT_SIGNED_ASSIGN
#undef QIRA_VARIANT_UNSIGNED_ASSIGN

Variant& Variant::operator=(double value) {
  set_type(V_DOUBLE);
  value_.d = value;
  return *this;
}

Variant& Variant::operator[](const char* key) {
  return (*this)[std::string(key != nullptr ? key : "")];
}

Variant& Variant::operator[](const std::string& key) {
  if (type_ != V_MAP) {
    set_type(V_MAP);
  }
  return (*value_.m)[key];
}

const Variant& Variant::operator[](const char* key) const {
  if (type_ != V_MAP || key == nullptr) {
    return shared_null();
  }
  auto it = value_.m->find(key);
  return it == value_.m->end() ? shared_null() : it->second;
}

Variant::operator const std::string&() const {
  return type_ == V_STRING ? *value_.s : empty_string();
}

Variant::operator long long() const {
  if (type_ == V_BOOL) {
    return value_.b ? 1 : 0;
  }
  if (is_signed_integer(type_)) {
    return value_.i;
  }
  if (is_unsigned_integer(type_)) {
    return static_cast<long long>(value_.u);
  }
  return 0;
}

Variant::operator unsigned long long() const {
  if (type_ == V_BOOL) {
    return value_.b ? 1 : 0;
  }
  if (is_signed_integer(type_)) {
    return static_cast<unsigned long long>(value_.i);
  }
  if (is_unsigned_integer(type_)) {
    return value_.u;
  }
  return 0;
}

Variant::operator VariantType() const {
  return type_;
}

bool Variant::AsBool() const {
  if (type_ == V_BOOL) {
    return value_.b;
  }
  if (type_ == V_DOUBLE) {
    return value_.d != 0.0;
  }
  return static_cast<unsigned long long>(*this) != 0;
}

double Variant::AsDouble() const {
  if (type_ == V_DOUBLE) {
    return value_.d;
  }
  if (is_unsigned_integer(type_)) {
    return static_cast<double>(value_.u);
  }
  return static_cast<double>(static_cast<long long>(*this));
}

const Variant* Variant::GetKeyChain(VariantType type, const char* path, bool same_kind) const {
  if (qira::host::KeyPathRecorder* recorder = qira::host::internal::current_key_path_recorder()) {
    recorder->record(this, path);
  }
  if (path == nullptr) {
    return nullptr;
  }
  const Variant* node = this;
  for (const std::string& segment : split_path(path)) {
    if (node->type_ != V_MAP) {
      return nullptr;
    }
    auto it = node->value_.m->find(segment);
    if (it == node->value_.m->end()) {
      return nullptr;
    }
    node = &it->second;
  }
  bool matches = same_kind ? same_kind_of(type, node->type_) : type == node->type_;
  return matches ? node : nullptr;
}

Variant* Variant::GetKeyChain(VariantType type, const char* path, bool same_kind) {
  return const_cast<Variant*>(std::as_const(*this).GetKeyChain(type, path, same_kind));
}

namespace {

// A decimal integer ("-12", "42") as a Variant; false for any other text.
bool parse_decimal(const std::string& text, Variant& out) {
  std::size_t digits_from = (!text.empty() && text[0] == '-') ? 1 : 0;
  if (text.size() == digits_from) {
    return false;
  }
  for (std::size_t i = digits_from; i < text.size(); ++i) {
    if (text[i] < '0' || text[i] > '9') {
      return false;
    }
  }
  errno = 0;
  if (digits_from == 1) {
    long long value = std::strtoll(text.c_str(), nullptr, 10);
    if (errno == ERANGE) {
      return false;
    }
    out = value;
    return true;
  }
  unsigned long long value = std::strtoull(text.c_str(), nullptr, 10);
  if (errno == ERANGE) {
    return false;
  }
  if (value <= static_cast<unsigned long long>(std::numeric_limits<long long>::max())) {
    out = static_cast<long long>(value);
  } else {
    out = value;
  }
  return true;
}

// The member named by `key` (nested when `key_paths`), or null when the key
// cannot name one (empty, or an empty path segment).
Variant* member_for(Variant& map, const std::string& key, bool key_paths) {
  if (key.empty()) {
    return nullptr;
  }
  if (!key_paths) {
    return &map[key];
  }
  Variant* node = &map;
  std::size_t start = 0;
  while (true) {
    std::size_t slash = key.find('/', start);
    std::string segment = key.substr(start, slash == std::string::npos ? slash : slash - start);
    if (segment.empty()) {
      return nullptr;
    }
    node = &(*node)[segment];
    if (slash == std::string::npos) {
      return node;
    }
    start = slash + 1;
  }
}

}  // namespace

bool Variant::FromKVP(const std::string& text, bool skip_invalid, bool parse_numbers,
                      bool key_paths) {
  if (type_ != V_MAP) {
    set_type(V_MAP);
  }
  bool all_used = true;
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) {
      end = text.size();
    }
    std::string line = text.substr(start, end - start);
    start = end + 1;
    if (line.empty()) {
      continue;  // blank lines (and the one after a final newline) carry no pair
    }
    std::size_t equals = line.find('=');
    Variant* member = nullptr;
    if (equals != std::string::npos) {
      // Validate the key before creating anything, so a bad key adds nothing.
      Variant probe;
      if (member_for(probe, line.substr(0, equals), key_paths) != nullptr) {
        member = member_for(*this, line.substr(0, equals), key_paths);
      }
    }
    if (member == nullptr) {
      all_used = false;
      if (!skip_invalid) {
        return false;
      }
      continue;
    }
    std::string value = line.substr(equals + 1);
    if (!parse_numbers || !parse_decimal(value, *member)) {
      *member = value;
    }
  }
  return all_used;
}

bool Variant::IsArray(bool array) {
  VariantType wanted = array ? V_ARRAY : V_MAP;
  if (type_ == V_NULL || type_ == V_ARRAY || type_ == V_MAP) {
    if (type_ != wanted) {
      set_type(wanted);
    }
  }
  return type_ == V_ARRAY;
}

void Variant::Free() {
  switch (type_) {
    case V_STRING:
      delete value_.s;
      break;
    case V_ARRAY:
      delete value_.a;
      break;
    case V_MAP:
      delete value_.m;
      break;
    default:
      break;
  }
  type_ = V_NULL;
  value_.u = 0;
}

void Variant::Reset() {
  if (type_ == V_ARRAY) {
    value_.a->clear();
  } else if (type_ == V_MAP) {
    value_.m->clear();
  } else {
    Free();
  }
}

std::size_t Variant::Size() const {
  if (type_ == V_ARRAY) {
    return value_.a->size();
  }
  if (type_ == V_MAP) {
    return value_.m->size();
  }
  return 0;
}

bool Variant::HasKey(const std::string& key) const {
  return type_ == V_MAP && value_.m->count(key) != 0;
}

bool Variant::Erase(const std::string& key) {
  return type_ == V_MAP && value_.m->erase(key) != 0;
}

Variant& Variant::Append(const Variant& value) {
  Variant copy(value);  // `value` may live inside this value
  if (type_ != V_ARRAY) {
    set_type(V_ARRAY);
  }
  value_.a->push_back(std::move(copy));
  return value_.a->back();
}

const Variant::Map* Variant::AsMap() const {
  return type_ == V_MAP ? value_.m : nullptr;
}

const Variant::Array* Variant::AsArray() const {
  return type_ == V_ARRAY ? value_.a : nullptr;
}

bool Variant::operator==(const Variant& other) const {
  if (type_ != other.type_) {
    return false;
  }
  switch (type_) {
    case V_NULL:
      return true;
    case V_BOOL:
      return value_.b == other.value_.b;
    case V_DOUBLE:
      return value_.d == other.value_.d;
    case V_STRING:
      return *value_.s == *other.value_.s;
    case V_ARRAY:
      return *value_.a == *other.value_.a;
    case V_MAP:
      return *value_.m == *other.value_.m;
    default:
      return value_.u == other.value_.u;
  }
}

}  // namespace qira::variant
