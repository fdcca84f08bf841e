// The bcmdhd firmware switch: the driver's firmware parameter set to the
// station firmware image, for the next time "wlan0" comes up. The caller
// logs the outcome; this file only does the file I/O.
#ifndef QIRA_SRC_NETLIB_NETM_FIRMWARE_SWITCH_H
#define QIRA_SRC_NETLIB_NETM_FIRMWARE_SWITCH_H

namespace qira::network::netm {

// The driver's firmware parameter and the image path written to it.
inline constexpr const char* kFirmwareParameterPath = "/sys/module/bcmdhd/parameters/firmware_path";
inline constexpr const char* kStationFirmwarePath =
    "/lib/firmware/broadcom/ap6234/fw_bcm43341b0_ag.bin";

struct firmware_switch_result {
  enum outcome { written, open_failed, short_write };
  outcome result = open_failed;
  // The descriptor that was written to (short_write: still open).
  int fd = -1;
  // errno of the failed open (open_failed; 0 for descriptor 0), or errno
  // right after the write (short_write).
  int error_number = 0;
};

// Opens the parameter (created and truncated, mode 0666), writes the image
// path with its terminating zero byte at offset 0, and closes it. On a short
// write the descriptor is deliberately left open and returned.
firmware_switch_result write_station_firmware_path();

}  // namespace qira::network::netm

#endif  // QIRA_SRC_NETLIB_NETM_FIRMWARE_SWITCH_H
