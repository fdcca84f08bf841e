// Device identity record: "sysid" (model number), "name" and "hwaddr".
//
// A device without its identity is treated as broken: the `sysid` and `name`
// accessors end the process through forceCrash() when the record lacks the
// key or holds it with the wrong type.
#ifndef QIRA_VARIANT_CAMERA_INFO_H
#define QIRA_VARIANT_CAMERA_INFO_H

#include <string>

#include "qira/variant/variant.h"

namespace qira::variant {

class CameraInfo : public Variant {
 public:
  CameraInfo();
  virtual ~CameraInfo();

  // Loads the identity into this record: the record installed with
  // qira::host::set_identity_record() if any, else the JSON object in the
  // identity file (IdentityPath()). False when neither is available, or when
  // its "name" holds a line break or NUL or its "hwaddr" anything but
  // hexadecimal digits, ':' and '-' (both reach hostapd's file), with one
  // log line saying which.
  bool Init();

  // Model number. Crashes (after logging) when the record is not a map
  // ("Invalid variant type detected"), the key is missing
  // ("Key \"sysid\" not available") or not an integer
  // ("Key \"sysid\" has a different type than expected").
  unsigned long long sysid();
  // User-visible device name; the same crash convention with "name".
  std::string name();
  // Hardware address text. A record that is not a map is turned into an empty
  // map; a missing or non-string value is replaced by an empty string.
  std::string hwaddr();

  // Where Init() reads the identity: the path set here when set, else
  // QIRA_IDENTITY_FILE from the environment (secure_getenv: ignored in a
  // set-user-ID or set-group-ID process), else "/etc/qira/identity.json".
  static void SetIdentityPath(const std::string& path);
  static std::string IdentityPath();
};

}  // namespace qira::variant

#endif  // QIRA_VARIANT_CAMERA_INFO_H
