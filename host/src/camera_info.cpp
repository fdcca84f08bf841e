// CameraInfo: the device identity record and its crash convention, and the
// identity-record seam.
#include "qira/variant/camera_info.h"

#include <cstdlib>
#include <mutex>
#include <optional>

#include "host_internal.h"
#include "qira/host/input_rules.h"
#include "qira/utils/file.h"

namespace qira::host {

namespace {

std::mutex identity_mutex;
std::optional<qira::variant::Variant> identity_record;
std::string identity_path_override;

}  // namespace

void set_identity_record(const qira::variant::Variant& record) {
  std::lock_guard<std::mutex> lock(identity_mutex);
  identity_record = record;
}

void clear_identity_record() {
  std::lock_guard<std::mutex> lock(identity_mutex);
  identity_record.reset();
}

bool internal::copy_identity_record(qira::variant::Variant& out) {
  std::lock_guard<std::mutex> lock(identity_mutex);
  if (!identity_record) {
    return false;
  }
  out = *identity_record;
  return true;
}

}  // namespace qira::host

namespace qira::variant {

namespace {

using qira::host::internal::kLogError;
using qira::host::internal::kVariantModule;

constexpr const char* kDefaultIdentityPath = "/etc/qira/identity.json";
constexpr const char* kIdentityEnvironment = "QIRA_IDENTITY_FILE";

// The identity's texts end up in the setup access point's name, which the
// module writes into hostapd's file as it is: a record whose name or
// hardware address would add a line there is refused like a missing one.
bool identity_texts_acceptable(const Variant& record) {
  if (!IsMapType(record.Type())) {
    return true;  // the accessors' crash convention handles that
  }
  const struct {
    const char* key;
    qira::host::InputRule rule;
  } texts[] = {
      {"name", qira::host::InputRule::kLineText},
      {"hwaddr", qira::host::InputRule::kHardwareAddress},
  };
  for (const auto& text : texts) {
    const Variant& member = record[text.key];
    if (!IsStringType(member.Type()) || static_cast<const std::string&>(member).empty()) {
      continue;
    }
    if (std::optional<std::string> fault =
            qira::host::check_input_rule(text.rule, static_cast<const std::string&>(member))) {
      HOST_LOG(kVariantModule, kLogError, 0, "Identity key \"%s\" refused: %s", text.key,
               fault->c_str());
      return false;
    }
  }
  return true;
}

// The member under `key` when it has the wanted kind; otherwise logs why and
// ends the process (a device without its identity is broken by definition).
const Variant& required_member(const Variant& record, const char* key, bool (*kind)(VariantType)) {
  if (!IsMapType(record.Type())) {
    HOST_LOG(kVariantModule, kLogError, 0, "Invalid variant type detected");
    forceCrash();
  }
  if (!record.HasKey(key)) {
    HOST_LOG(kVariantModule, kLogError, 0, "Key \"%s\" not available", key);
    forceCrash();
  }
  const Variant& member = record[key];
  if (!kind(member.Type())) {
    HOST_LOG(kVariantModule, kLogError, 0, "Key \"%s\" has a different type than expected", key);
    forceCrash();
  }
  return member;
}

}  // namespace

CameraInfo::CameraInfo() = default;

CameraInfo::~CameraInfo() = default;

bool CameraInfo::Init() {
  Variant record;
  if (!qira::host::internal::copy_identity_record(record)) {
    std::string text;
    if (!qira::utils::File::ReadStringAll(IdentityPath(), text) ||
        !Variant::FromJSON(text, record)) {
      Free();
      return false;
    }
  }
  if (!identity_texts_acceptable(record)) {
    Free();
    return false;
  }
  static_cast<Variant&>(*this) = std::move(record);
  return true;
}

unsigned long long CameraInfo::sysid() {
  return static_cast<unsigned long long>(required_member(*this, "sysid", IsIntegerType));
}

std::string CameraInfo::name() {
  return static_cast<const std::string&>(required_member(*this, "name", IsStringType));
}

std::string CameraInfo::hwaddr() {
  if (!IsMapType(Type())) {
    Free();
    IsArray(false);
  }
  Variant& member = (*this)["hwaddr"];
  if (!IsStringType(member.Type())) {
    member = "";
  }
  return static_cast<const std::string&>(member);
}

void CameraInfo::SetIdentityPath(const std::string& path) {
  std::lock_guard<std::mutex> lock(qira::host::identity_mutex);
  qira::host::identity_path_override = path;
}

// The host's own setting wins; the environment is read only where it can be
// trusted (secure_getenv: not in a set-user-ID or set-group-ID process).
std::string CameraInfo::IdentityPath() {
  {
    std::lock_guard<std::mutex> lock(qira::host::identity_mutex);
    if (!qira::host::identity_path_override.empty()) {
      return qira::host::identity_path_override;
    }
  }
  const char* from_environment = ::secure_getenv(kIdentityEnvironment);
  if (from_environment != nullptr && from_environment[0] != '\0') {
    return from_environment;
  }
  return kDefaultIdentityPath;
}

}  // namespace qira::variant
