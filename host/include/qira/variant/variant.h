// Dynamic value of the host library: a scalar, an array or a map of Variants.
//
// The wireless module builds event payloads with it and reads the device
// identity and the stored network configuration through it. The module
// compiles against this header and takes every out-of-line member from the
// host process, so the layout below (a type tag and one word of storage) is
// shared by both sides.
#ifndef QIRA_VARIANT_VARIANT_H
#define QIRA_VARIANT_VARIANT_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace qira::variant {

// Type tags. The module tests them only as bit sets:
//  - (tag & 0x4000) != 0          an integer of any width or sign;
//  - (tag & 0x100E) == 0x100E     a string (4110 asks GetKeyChain for a string);
//  - tag == 0x1010 or 0x1011      a map.
// No other tag satisfies any of the three tests.
enum VariantType : unsigned int {
  V_NULL = 0x0000,
  V_BOOL = 0x0001,
  V_DOUBLE = 0x0002,
  V_INT8 = 0x4001,
  V_UINT8 = 0x4002,
  V_INT16 = 0x4003,
  V_UINT16 = 0x4004,
  V_INT32 = 0x4005,
  V_UINT32 = 0x4006,
  V_INT64 = 0x4007,
  V_UINT64 = 0x4008,
  V_STRING = 0x100E,
  V_MAP = 0x1010,
  V_ARRAY = 0x1020,
};

bool IsIntegerType(VariantType type);
bool IsStringType(VariantType type);
bool IsMapType(VariantType type);

class Variant {
 public:
  using Map = std::map<std::string, Variant>;
  using Array = std::vector<Variant>;

  Variant();
  Variant(const Variant& other);
  Variant(Variant&& other) noexcept;
  ~Variant();

  Variant& operator=(const Variant& other);
  Variant& operator=(Variant&& other) noexcept;

  // Scalar assignment replaces the value and takes the matching type tag.
  Variant& operator=(const char* value);
  Variant& operator=(const std::string& value);
  Variant& operator=(bool value);
  Variant& operator=(signed char value);
  Variant& operator=(unsigned char value);
  Variant& operator=(short value);
  Variant& operator=(unsigned short value);
  Variant& operator=(int value);
  Variant& operator=(unsigned int value);
  Variant& operator=(long value);
  Variant& operator=(unsigned long value);
  Variant& operator=(long long value);
  Variant& operator=(unsigned long long value);
  Variant& operator=(double value);

  // Member under `key`, created as null if missing; a value that is not a map
  // is turned into an empty map first.
  Variant& operator[](const char* key);
  Variant& operator[](const std::string& key);
  // Read-only lookup: a shared null value when the key (or the map) is missing.
  const Variant& operator[](const char* key) const;

  // The string value; a shared empty string for any other type.
  operator const std::string&() const;
  // The integer value (bool and integers of any width); 0 for any other type.
  operator long long() const;
  operator unsigned long long() const;
  operator VariantType() const;

  VariantType Type() const { return type_; }
  bool IsNull() const { return type_ == V_NULL; }
  bool AsBool() const;
  double AsDouble() const;

  // Member at a "/"-separated key path ("wifi/wpa/psk") whose type is `type`,
  // or null. With `same_kind` true a member of the same kind also matches
  // (any integer width for an integer type); with false the tag must be equal.
  // Empty segments are skipped ("/a//b/" is "a/b"; "" names this value).
  // Never creates anything.
  Variant* GetKeyChain(VariantType type, const char* path, bool same_kind);
  const Variant* GetKeyChain(VariantType type, const char* path, bool same_kind) const;

  // Adds one map member per "key=value" line of `text` (lines split on '\n';
  // the key ends at the first '='; empty lines are ignored).
  //  skip_invalid:  lines without '=' or with an empty key are ignored (false: the
  //                 call fails on them, keeping the members added before);
  //  parse_numbers: values that are decimal integers become integers (false:
  //                 every value stays a string);
  //  key_paths:     a key with "/" creates nested maps (false: taken literally).
  // A value that is not a map becomes one first. True when every line was used.
  bool FromKVP(const std::string& text, bool skip_invalid, bool parse_numbers, bool key_paths);

  // Declares the container kind: a null value (or an existing container of the
  // other kind, which is emptied) becomes an empty array when `array` is true
  // and an empty map when it is false; a scalar is left alone. Returns whether
  // the value is an array afterwards.
  bool IsArray(bool array);

  // Releases the content; the value becomes null.
  void Free();
  // Empties the value: containers keep their kind with no members, scalars
  // become null.
  void Reset();

  // Containers.
  std::size_t Size() const;
  bool HasKey(const std::string& key) const;
  bool Erase(const std::string& key);
  Variant& Append(const Variant& value);
  const Map* AsMap() const;
  const Array* AsArray() const;

  bool operator==(const Variant& other) const;
  bool operator!=(const Variant& other) const { return !(*this == other); }

  // JSON text of the value (maps in key order); `indent` > 0 pretty-prints.
  std::string ToJSON(int indent = 0) const;
  // Parses JSON text into `out`. Integers become V_INT64 (V_UINT64 above
  // INT64_MAX), other numbers V_DOUBLE. On failure `out` is null and `error`
  // (when given) says where.
  static bool FromJSON(const std::string& text, Variant& out, std::string* error = nullptr);

 private:
  void set_type(VariantType type);

  VariantType type_;
  union Storage {
    bool b;
    long long i;
    unsigned long long u;
    double d;
    std::string* s;
    Array* a;
    Map* m;
  } value_;
};

}  // namespace qira::variant

#endif  // QIRA_VARIANT_VARIANT_H
