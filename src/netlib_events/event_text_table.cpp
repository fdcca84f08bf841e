// Text tables of nl80211 event decoding: command names, IEEE 802.11 status
// and reason texts, and the wording of regulatory initiators. Each table is a
// fixed array of texts indexed by the code; an empty slot, or a code past the
// end, reads as the table's fallback.
#include "netlib_events/event_text_table.h"

#include <linux/nl80211.h>

#include <cstddef>

namespace {

constexpr const char kUnknownCommand[] = "unknown";
constexpr const char kUnknownCode[] = "<unknown>";

// Commands 0 to 124. Slot 30 (set_mgmt_extra_ie) is deliberately empty, as
// are 98 and above: those numbers read as "unknown".
constexpr std::size_t kCommandSlots = 125;
constexpr const char* kCommandNames[kCommandSlots] = {
    "unspec",
    "get_wiphy",
    "set_wiphy",
    "new_wiphy",
    "del_wiphy",
    "get_interface",
    "set_interface",
    "new_interface",
    "del_interface",
    "get_key",
    "set_key",
    "new_key",
    "del_key",
    "get_beacon",
    "set_beacon",
    "start_ap",
    "stop_ap",
    "get_station",
    "set_station",
    "new_station",
    "del_station",
    "get_mpath",
    "set_mpath",
    "new_mpath",
    "del_mpath",
    "set_bss",
    "set_reg",
    "req_set_reg",
    "get_mesh_config",
    "set_mesh_config",
    nullptr,
    "get_reg",
    "get_scan",
    "trigger_scan",
    "new_scan_results",
    "scan_aborted",
    "reg_change",
    "authenticate",
    "associate",
    "deauthenticate",
    "disassociate",
    "michael_mic_failure",
    "reg_beacon_hint",
    "join_ibss",
    "leave_ibss",
    "testmode",
    "connect",
    "roam",
    "disconnect",
    "set_wiphy_netns",
    "get_survey",
    "new_survey_results",
    "set_pmksa",
    "del_pmksa",
    "flush_pmksa",
    "remain_on_channel",
    "cancel_remain_on_channel",
    "set_tx_bitrate_mask",
    "register_frame",
    "frame",
    "frame_tx_status",
    "set_power_save",
    "get_power_save",
    "set_cqm",
    "notify_cqm",
    "set_channel",
    "set_wds_peer",
    "frame_wait_cancel",
    "join_mesh",
    "leave_mesh",
    "unprot_deauthenticate",
    "unprot_disassociate",
    "new_peer_candidate",
    "get_wowlan",
    "set_wowlan",
    "start_sched_scan",
    "stop_sched_scan",
    "sched_scan_results",
    "sched_scan_stopped",
    "set_rekey_offload",
    "pmksa_candidate",
    "tdls_oper",
    "tdls_mgmt",
    "unexpected_frame",
    "probe_client",
    "register_beacons",
    "unexpected_4addr_frame",
    "set_noack_map",
    "ch_switch_notify",
    "start_p2p_device",
    "stop_p2p_device",
    "conn_failed",
    "set_mcast_rate",
    "set_mac_acl",
    "radar_detect",
    "get_protocol_features",
    "update_ft_ies",
    "ft_event",
};

// Status codes 0 to 55; 2 to 9 and 36 are empty.
constexpr std::size_t kStatusSlots = 56;
constexpr const char* kStatusTexts[kStatusSlots] = {
    "Successful",
    "Unspecified failure",
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    "Cannot support all requested capabilities in the capability information field",
    "Reassociation denied due to inability to confirm that association exists",
    "Association denied due to reason outside the scope of this standard",
    "Responding station does not support the specified authentication algorithm",
    "Received an authentication frame with authentication transaction sequence number out of "
    "expected sequence",
    "Authentication rejected because of challenge failure",
    "Authentication rejected due to timeout waiting for next frame in sequence",
    "Association denied because AP is unable to handle additional associated STA",
    "Association denied due to requesting station not supporting all of the data rates in the "
    "BSSBasicRateSet parameter",
    "Association denied due to requesting station not supporting the short preamble option",
    "Association denied due to requesting station not supporting the PBCC modulation option",
    "Association denied due to requesting station not supporting the channel agility option",
    "Association request rejected because Spectrum Management capability is required",
    "Association request rejected because the information in the Power Capability element is "
    "unacceptable",
    "Association request rejected because the information in the Supported Channels element is "
    "unacceptable",
    "Association request rejected due to requesting station not supporting the short slot time "
    "option",
    "Association request rejected due to requesting station not supporting the ER-PBCC "
    "modulation option",
    "Association denied due to requesting STA not supporting HT features",
    "R0KH Unreachable",
    "Association denied because the requesting STA does not support the PCO transition required "
    "by the AP",
    "Association request rejected temporarily; try again later",
    "Robust Management frame policy violation",
    "Unspecified, QoS related failure",
    "Association denied due to QAP having insufficient bandwidth to handle another QSTA",
    "Association denied due to poor channel conditions",
    "Association (with QBSS) denied due to requesting station not supporting the QoS facility",
    nullptr,
    "The request has been declined",
    "The request has not been successful as one or more parameters have invalid values",
    "The TS has not been created because the request cannot be honored. However, a suggested "
    "Tspec is provided so that the initiating QSTA may attempt to send another TS with the "
    "suggested changes to the TSpec",
    "Invalid Information Element",
    "Group Cipher is not valid",
    "Pairwise Cipher is not valid",
    "AKMP is not valid",
    "Unsupported RSN IE version",
    "Invalid RSN IE Capabilities",
    "Cipher suite is rejected per security policy",
    "The TS has not been created. However, the HC may be capable of creating a TS, in response "
    "to a request, after the time indicated in the TS Delay element",
    "Direct link is not allowed in the BSS by policy",
    "Destination STA is not present within this QBSS",
    "The destination STA is not a QSTA",
    "Association denied because Listen Interval is too large",
    "Invalid Fast BSS Transition Action Frame Count",
    "Invalid PMKID",
    "Invalid MDIE",
    "Invalid FTIE",
};

// Reason codes 0 to 45; 0, 12 and 25 to 30 are empty. Code 40 repeats the
// text of 36 on purpose: subscribers match on the text as it has always read.
constexpr std::size_t kReasonSlots = 46;
constexpr const char* kReasonTexts[kReasonSlots] = {
    nullptr,
    "Unspecified",
    "Previous authentication no longer valid",
    "Deauthenticated because sending station is leaving (or has left) the IBSS or ESS",
    "Disassociated due to inactivity",
    "Disassociated because AP is unable to handle all currently associated STA",
    "Class 2 frame received from non-authenticated station",
    "Class 3 frame received from non-authenticated station",
    "Disassociated because sending station is leaving (or has left) the BSS",
    "Station requesting (re)association is not authenticated with responding station",
    "Disassociated because the information in the Power Capability element is unacceptable",
    "Disassociated because the information in the Supported Channels element is unacceptable",
    nullptr,
    "Invalid information element",
    "MIC failure",
    "4-way handshake timeout",
    "Group key update timeout",
    "Information element in 4-way handshake different from (Re-)associate request/Probe "
    "response/Beacon",
    "Multicast cipher is not valid",
    "Unicast cipher is not valid",
    "AKMP is not valid",
    "Unsupported RSNE version",
    "Invalid RSNE capabilities",
    "IEEE 802.1X authentication failed",
    "Cipher Suite rejected per security policy",
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    "TS deleted because QoS AP lacks sufficient bandwidth for this QoS STA due to a change in BSS "
    "service characteristics or operational mode",
    "Disassociated for unspecified QoS-related reason",
    "Disassociated because QAP lacks sufficient bandwidth for this STA",
    "Disassociated because of excessive frame losses and/or poor channel conditions",
    "Disassociated because QSTA is transmitting outside the limits of its polled TXOPs",
    "Requested from peer QSTA as the QSTA is leaving the QBSS (or resetting)",
    "Requested from peer QSTA as it does not want to use Traffic Stream",
    "Requested from peer QSTA as the QSTA received frames indicated Traffic Stream for which it "
    "has not set up",
    "Requested from peer QSTA due to time out",
    "Requested from peer QSTA as the QSTA is leaving the QBSS (or resetting)",
    "Requested from peer QSTA as it does not want to receive frames directly from the QSTA",
    "Requested from peer QSTA as the QSTA received DLP frames for which it has not set up",
    "Requested from peer QSTA as it does not want to use Block Ack",
    "Requested from peer QSTA as the QSTA received frames indicated Block Acknowledgement policy "
    "for which it has not set up",
    "Peer QSTA does not support the requested cipher suite",
};

// The text in slot `code` of `table`, or `fallback` past the end or for an
// empty slot.
template <std::size_t Slots>
const char* lookup(const char* const (&table)[Slots], unsigned int code, const char* fallback) {
  if (code >= Slots || table[code] == nullptr) {
    return fallback;
  }
  return table[code];
}

}  // namespace

namespace qira::network::events {

const char* command_text(unsigned int command) {
  return lookup(kCommandNames, command, kUnknownCommand);
}

const char* status_text(unsigned short status) {
  return lookup(kStatusTexts, status, kUnknownCode);
}

const char* reason_text(unsigned short reason) {
  return lookup(kReasonTexts, reason, kUnknownCode);
}

const char* initiator_text(unsigned char initiator) {
  switch (initiator) {
    case NL80211_REGDOM_SET_BY_CORE:
      return "the wireless core upon initialization";
    case NL80211_REGDOM_SET_BY_USER:
      return "a user";
    case NL80211_REGDOM_SET_BY_DRIVER:
      return "a driver";
    case NL80211_REGDOM_SET_BY_COUNTRY_IE:
      return "a country IE";
    default:
      return "BUG";
  }
}

}  // namespace qira::network::events
