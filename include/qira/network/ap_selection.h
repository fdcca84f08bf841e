/* Band classification, the scan list and the ranking of access points.
 * C linkage; every function answers 0 (or null) for null arguments. */
#ifndef QIRA_NETWORK_AP_SELECTION_H
#define QIRA_NETWORK_AP_SELECTION_H

#include <stdint.h>

#include "qira/network/export.h"

struct nl_msg;

#ifdef __cplusplus
extern "C" {
#endif

/* One BSS as decoded by the platform scan decoder (60 bytes, zeroed before use). */
struct scan_entry {
  uint8_t bssid[6];
  char ssid[33]; /* NUL-terminated, at most 32 bytes of text */
  uint8_t padding_0;
  uint32_t mode;
  uint16_t frequency; /* MHz */
  uint8_t channel;
  uint8_t signal; /* larger is stronger */
  uint8_t link_byte_1;
  uint8_t quality; /* larger is better */
  uint8_t link_byte_3;
  uint8_t encrypted;
  uint8_t wpa_version; /* 0 none, 1 WPA, 2 WPA2, 3 both */
  uint8_t cipher_bytes[4];
  uint8_t padding_1[3];
};

/* Argument of the platform decoder: where to write, and how many entries. */
struct scan_cursor {
  struct scan_entry* entry;
  int32_t count;
};

/* One access point of the scan list, with its raw information elements. */
struct ap_node {
  uint8_t bssid[6];
  char ssid[33];
  uint8_t mode;
  uint8_t channel;
  uint16_t frequency;
  uint8_t signal;
  uint8_t link_byte_1;
  uint8_t quality;
  uint8_t link_byte_3;
  uint8_t encrypted;
  uint8_t wpa_version;
  uint8_t cipher_bytes[4];
  uint32_t ie_len;
  uint32_t beacon_ie_len;
  uint8_t ies[1024];
  uint8_t beacon_ies[1024];
};

/* The bounded list (at most 100 nodes) of one scan. */
struct scan_list {
  struct ap_node** items;
  uint16_t count;
  uint16_t capacity;
  uint16_t growth;
};

QIRA_WIRELESS_API int is_sub_ghz_band(unsigned int freq);
QIRA_WIRELESS_API int is_2_4_ghz_band(unsigned int freq);
QIRA_WIRELESS_API int is_3_6_ghz_band(unsigned int freq);
QIRA_WIRELESS_API int is_4_9_ghz_band(unsigned int freq);
QIRA_WIRELESS_API int is_5_ghz_band(unsigned int freq);
QIRA_WIRELESS_API int is_5_9_ghz_band(unsigned int freq);
QIRA_WIRELESS_API int is_60_ghz_band(unsigned int freq);
QIRA_WIRELESS_API int is_same_band(unsigned int a, unsigned int b);
/* Static text of the band of `freq`, or null. */
QIRA_WIRELESS_API const char* freq_to_band_string(unsigned int freq);

QIRA_WIRELESS_API int ap_supports_wpa(const struct ap_node* node);
QIRA_WIRELESS_API int ap_supports_wpa2(const struct ap_node* node);
QIRA_WIRELESS_API int ap_supports_wpa_and_wpa2(const struct ap_node* node);
/* 1 when `a` is the better access point, -1 when `b` is, 0 otherwise. */
QIRA_WIRELESS_API int ap_weight_function(const struct ap_node* a, const struct ap_node* b);
QIRA_WIRELESS_API int node_weight_function(const struct ap_node* a, const struct ap_node* b);
QIRA_WIRELESS_API int ap_less(const struct ap_node* a, const struct ap_node* b);
QIRA_WIRELESS_API int ap_same(const struct ap_node* a, const struct ap_node* b);

QIRA_WIRELESS_API int get_result(struct nl_msg* msg, struct scan_entry* entry);
QIRA_WIRELESS_API void make_ap_from_entry(const struct scan_entry* entry, struct ap_node* node);
QIRA_WIRELESS_API struct ap_node** search_node_to_replace(struct scan_list* list,
                                                          const struct scan_entry* entry);
/* libnl valid-message handler of scan dumps; `arg` is a struct scan_list**. */
QIRA_WIRELESS_API int get_scanlist_cb(struct nl_msg* msg, void* arg);
QIRA_WIRELESS_API void free_scanlist(struct scan_list** list);
QIRA_WIRELESS_API void dedup_scanlist(struct scan_list** list);

/* Provided by the host process: decodes the BSS of `msg` into the entry of
 * the struct scan_cursor that `arg` points to. */
int nl80211_get_scanlist_cb(struct nl_msg* msg, void* arg);

#ifdef __cplusplus
}
#endif

#endif /* QIRA_NETWORK_AP_SELECTION_H */
