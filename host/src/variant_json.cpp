// JSON text of a Variant, and the strict reading of JSON text into one
// through nlohmann-json (the project's one JSON parser of outside input).
#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "qira/host/outside_text.h"
#include "qira/variant/variant.h"

namespace qira::variant {

namespace {

// Through the host's one writer of JSON strings: control and invisible
// formatting characters escaped, and always valid UTF-8, so that a strict
// parser (and a terminal) can take whatever a payload holds.
void append_escaped(std::string& out, const std::string& text) {
  out += qira::host::json_string(text);
}

void append_double(std::string& out, double value) {
  if (!std::isfinite(value)) {
    out += "null";  // JSON has no infinities or NaN
    return;
  }
  char text[32];
  std::snprintf(text, sizeof(text), "%.17g", value);
  std::string number(text);
  // Keep the number a double when read back.
  if (number.find_first_of(".eE") == std::string::npos) {
    number += ".0";
  }
  out += number;
}

void append_newline(std::string& out, int indent, int depth) {
  if (indent > 0) {
    out.push_back('\n');
    out.append(static_cast<std::size_t>(indent) * static_cast<std::size_t>(depth), ' ');
  }
}

void append_json(std::string& out, const Variant& value, int indent, int depth) {
  VariantType type = value.Type();
  if (type == V_NULL) {
    out += "null";
  } else if (type == V_BOOL) {
    out += value.AsBool() ? "true" : "false";
  } else if (type == V_DOUBLE) {
    append_double(out, value.AsDouble());
  } else if (type == V_STRING) {
    append_escaped(out, static_cast<const std::string&>(value));
  } else if (type == V_ARRAY) {
    const Variant::Array& array = *value.AsArray();
    out.push_back('[');
    for (std::size_t i = 0; i < array.size(); ++i) {
      if (i != 0) {
        out.push_back(',');
      }
      append_newline(out, indent, depth + 1);
      append_json(out, array[i], indent, depth + 1);
    }
    if (!array.empty()) {
      append_newline(out, indent, depth);
    }
    out.push_back(']');
  } else if (type == V_MAP) {
    const Variant::Map& map = *value.AsMap();
    out.push_back('{');
    bool first = true;
    for (const auto& [key, member] : map) {
      if (!first) {
        out.push_back(',');
      }
      first = false;
      append_newline(out, indent, depth + 1);
      append_escaped(out, key);
      out += indent > 0 ? ": " : ":";
      append_json(out, member, indent, depth + 1);
    }
    if (!map.empty()) {
      append_newline(out, indent, depth);
    }
    out.push_back('}');
  } else if (type == V_INT8 || type == V_INT16 || type == V_INT32 || type == V_INT64) {
    out += std::to_string(static_cast<long long>(value));
  } else {
    out += std::to_string(static_cast<unsigned long long>(value));
  }
}

// Builds a Variant from nlohmann-json's strict parser (RFC 8259, UTF-8
// checked, no comments), event by event, so that no intermediate document
// is built and the nesting is bounded here.
class VariantBuilder : public nlohmann::json_sax<nlohmann::json> {
 public:
  bool null() override {
    slot().Free();
    return true;
  }
  bool boolean(bool value) override {
    slot() = value;
    return true;
  }
  bool number_integer(number_integer_t value) override {
    slot() = static_cast<long long>(value);
    return true;
  }
  // Non-negative integers keep the signed type while they fit in it.
  bool number_unsigned(number_unsigned_t value) override {
    if (value <= static_cast<number_unsigned_t>(std::numeric_limits<long long>::max())) {
      slot() = static_cast<long long>(value);
    } else {
      slot() = static_cast<unsigned long long>(value);
    }
    return true;
  }
  // A number past a double's range ("1e400") has no value to keep, and
  // JSON no infinity to write it back as (the parser refuses it first).
  bool number_float(number_float_t value, const string_t& text) override {
    if (!std::isfinite(value)) {
      return fail("number out of range: " + text);
    }
    slot() = static_cast<double>(value);
    return true;
  }
  bool string(string_t& value) override {
    slot() = value;
    return true;
  }
  bool binary(binary_t& /*value*/) override {
    return fail("binary values are not JSON");  // only the binary formats produce them
  }
  bool start_object(std::size_t /*elements*/) override { return open(false); }
  bool key(string_t& key) override {
    key_ = key;
    return true;
  }
  bool end_object() override { return close(); }
  bool start_array(std::size_t /*elements*/) override { return open(true); }
  bool end_array() override { return close(); }
  bool parse_error(std::size_t position, const std::string& /*last_token*/,
                   const nlohmann::detail::exception& exception) override {
    // "[json.exception.parse_error.101] parse error at line 1, column 2: ..."
    // becomes "line 1, column 2: ...": where, for the person editing the file.
    // Other errors ("[json.exception.out_of_range.406] number overflow ...")
    // say "byte N: ..." instead.
    std::string what = exception.what();
    const std::string::size_type kind_end = what.find("] ");
    if (kind_end != std::string::npos) {
      what.erase(0, kind_end + 2);
    }
    const std::string place = "parse error at ";
    if (what.rfind(place, 0) == 0) {
      what.erase(0, place.size());
    } else {
      what = "byte " + std::to_string(position) + ": " + what;
    }
    return fail(what);
  }

  Variant& result() { return root_; }
  const std::string& error() const { return error_; }

 private:
  // Deep enough for any configuration, shallow enough for the stack of a
  // later recursive walk (ToJSON, the destructor).
  static constexpr std::size_t kMaxDepth = 256;

  // Where the next value goes: the root, the next element of the open
  // array, or the member of the open object named by the last key.
  Variant& slot() {
    if (open_.empty()) {
      return root_;
    }
    Variant& container = *open_.back();
    if (container.Type() == V_ARRAY) {
      return container.Append(Variant());
    }
    return container[key_];
  }

  // A container's address stays valid while it is open: its parent gains
  // no member before it is closed.
  bool open(bool array) {
    if (open_.size() >= kMaxDepth) {
      return fail("nesting deeper than " + std::to_string(kMaxDepth) + " levels");
    }
    Variant& container = slot();
    container.Free();
    container.IsArray(array);
    open_.push_back(&container);
    return true;
  }

  bool close() {
    open_.pop_back();
    return true;
  }

  bool fail(const std::string& what) {
    if (error_.empty()) {
      error_ = what;
    }
    return false;
  }

  Variant root_;
  std::vector<Variant*> open_;
  std::string key_;
  std::string error_;
};

}  // namespace

std::string Variant::ToJSON(int indent) const {
  std::string out;
  append_json(out, *this, indent, 0);
  return out;
}

bool Variant::FromJSON(const std::string& text, Variant& out, std::string* error) {
  VariantBuilder builder;
  const bool parsed =
      nlohmann::json::sax_parse(text, &builder, nlohmann::json::input_format_t::json,
                                /*strict=*/true, /*ignore_comments=*/false);
  if (!parsed) {
    out.Free();
    if (error != nullptr) {
      *error = builder.error().empty() ? std::string("invalid JSON") : builder.error();
    }
    return false;
  }
  out = std::move(builder.result());
  return true;
}

}  // namespace qira::variant
