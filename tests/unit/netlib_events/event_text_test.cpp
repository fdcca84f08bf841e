// The text tables, over every code of each table and past its end.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "qira/network/event_text.h"

namespace {

const std::map<unsigned int, std::string>& command_names() {
  static const std::map<unsigned int, std::string> names = {
      {0, "unspec"},
      {1, "get_wiphy"},
      {2, "set_wiphy"},
      {3, "new_wiphy"},
      {4, "del_wiphy"},
      {5, "get_interface"},
      {6, "set_interface"},
      {7, "new_interface"},
      {8, "del_interface"},
      {9, "get_key"},
      {10, "set_key"},
      {11, "new_key"},
      {12, "del_key"},
      {13, "get_beacon"},
      {14, "set_beacon"},
      {15, "start_ap"},
      {16, "stop_ap"},
      {17, "get_station"},
      {18, "set_station"},
      {19, "new_station"},
      {20, "del_station"},
      {21, "get_mpath"},
      {22, "set_mpath"},
      {23, "new_mpath"},
      {24, "del_mpath"},
      {25, "set_bss"},
      {26, "set_reg"},
      {27, "req_set_reg"},
      {28, "get_mesh_config"},
      {29, "set_mesh_config"},
      {31, "get_reg"},
      {32, "get_scan"},
      {33, "trigger_scan"},
      {34, "new_scan_results"},
      {35, "scan_aborted"},
      {36, "reg_change"},
      {37, "authenticate"},
      {38, "associate"},
      {39, "deauthenticate"},
      {40, "disassociate"},
      {41, "michael_mic_failure"},
      {42, "reg_beacon_hint"},
      {43, "join_ibss"},
      {44, "leave_ibss"},
      {45, "testmode"},
      {46, "connect"},
      {47, "roam"},
      {48, "disconnect"},
      {49, "set_wiphy_netns"},
      {50, "get_survey"},
      {51, "new_survey_results"},
      {52, "set_pmksa"},
      {53, "del_pmksa"},
      {54, "flush_pmksa"},
      {55, "remain_on_channel"},
      {56, "cancel_remain_on_channel"},
      {57, "set_tx_bitrate_mask"},
      {58, "register_frame"},
      {59, "frame"},
      {60, "frame_tx_status"},
      {61, "set_power_save"},
      {62, "get_power_save"},
      {63, "set_cqm"},
      {64, "notify_cqm"},
      {65, "set_channel"},
      {66, "set_wds_peer"},
      {67, "frame_wait_cancel"},
      {68, "join_mesh"},
      {69, "leave_mesh"},
      {70, "unprot_deauthenticate"},
      {71, "unprot_disassociate"},
      {72, "new_peer_candidate"},
      {73, "get_wowlan"},
      {74, "set_wowlan"},
      {75, "start_sched_scan"},
      {76, "stop_sched_scan"},
      {77, "sched_scan_results"},
      {78, "sched_scan_stopped"},
      {79, "set_rekey_offload"},
      {80, "pmksa_candidate"},
      {81, "tdls_oper"},
      {82, "tdls_mgmt"},
      {83, "unexpected_frame"},
      {84, "probe_client"},
      {85, "register_beacons"},
      {86, "unexpected_4addr_frame"},
      {87, "set_noack_map"},
      {88, "ch_switch_notify"},
      {89, "start_p2p_device"},
      {90, "stop_p2p_device"},
      {91, "conn_failed"},
      {92, "set_mcast_rate"},
      {93, "set_mac_acl"},
      {94, "radar_detect"},
      {95, "get_protocol_features"},
      {96, "update_ft_ies"},
      {97, "ft_event"},
  };
  return names;
}

const std::map<unsigned int, std::string>& status_texts() {
  static const std::map<unsigned int, std::string> texts = {
      {0, "Successful"},
      {1, "Unspecified failure"},
      {10, "Cannot support all requested capabilities in the capability information field"},
      {11, "Reassociation denied due to inability to confirm that association exists"},
      {12, "Association denied due to reason outside the scope of this standard"},
      {13, "Responding station does not support the specified authentication algorithm"},
      {14,
       "Received an authentication frame with authentication transaction sequence number out of "
       "expected sequence"},
      {15, "Authentication rejected because of challenge failure"},
      {16, "Authentication rejected due to timeout waiting for next frame in sequence"},
      {17, "Association denied because AP is unable to handle additional associated STA"},
      {18,
       "Association denied due to requesting station not supporting all of the data rates in the "
       "BSSBasicRateSet parameter"},
      {19, "Association denied due to requesting station not supporting the short preamble option"},
      {20,
       "Association denied due to requesting station not supporting the PBCC modulation option"},
      {21,
       "Association denied due to requesting station not supporting the channel agility option"},
      {22, "Association request rejected because Spectrum Management capability is required"},
      {23,
       "Association request rejected because the information in the Power Capability element is "
       "unacceptable"},
      {24,
       "Association request rejected because the information in the Supported Channels element "
       "is unacceptable"},
      {25,
       "Association request rejected due to requesting station not supporting the short slot "
       "time option"},
      {26,
       "Association request rejected due to requesting station not supporting the ER-PBCC "
       "modulation option"},
      {27, "Association denied due to requesting STA not supporting HT features"},
      {28, "R0KH Unreachable"},
      {29,
       "Association denied because the requesting STA does not support the PCO transition "
       "required by the AP"},
      {30, "Association request rejected temporarily; try again later"},
      {31, "Robust Management frame policy violation"},
      {32, "Unspecified, QoS related failure"},
      {33, "Association denied due to QAP having insufficient bandwidth to handle another QSTA"},
      {34, "Association denied due to poor channel conditions"},
      {35,
       "Association (with QBSS) denied due to requesting station not supporting the QoS facility"},
      {37, "The request has been declined"},
      {38, "The request has not been successful as one or more parameters have invalid values"},
      {39,
       "The TS has not been created because the request cannot be honored. However, a suggested "
       "Tspec is provided so that the initiating QSTA may attempt to send another TS with the "
       "suggested changes to the TSpec"},
      {40, "Invalid Information Element"},
      {41, "Group Cipher is not valid"},
      {42, "Pairwise Cipher is not valid"},
      {43, "AKMP is not valid"},
      {44, "Unsupported RSN IE version"},
      {45, "Invalid RSN IE Capabilities"},
      {46, "Cipher suite is rejected per security policy"},
      {47,
       "The TS has not been created. However, the HC may be capable of creating a TS, in "
       "response to a request, after the time indicated in the TS Delay element"},
      {48, "Direct link is not allowed in the BSS by policy"},
      {49, "Destination STA is not present within this QBSS"},
      {50, "The destination STA is not a QSTA"},
      {51, "Association denied because Listen Interval is too large"},
      {52, "Invalid Fast BSS Transition Action Frame Count"},
      {53, "Invalid PMKID"},
      {54, "Invalid MDIE"},
      {55, "Invalid FTIE"},
  };
  return texts;
}

const std::map<unsigned int, std::string>& reason_texts() {
  static const std::map<unsigned int, std::string> texts = {
      {1, "Unspecified"},
      {2, "Previous authentication no longer valid"},
      {3, "Deauthenticated because sending station is leaving (or has left) the IBSS or ESS"},
      {4, "Disassociated due to inactivity"},
      {5, "Disassociated because AP is unable to handle all currently associated STA"},
      {6, "Class 2 frame received from non-authenticated station"},
      {7, "Class 3 frame received from non-authenticated station"},
      {8, "Disassociated because sending station is leaving (or has left) the BSS"},
      {9, "Station requesting (re)association is not authenticated with responding station"},
      {10, "Disassociated because the information in the Power Capability element is unacceptable"},
      {11,
       "Disassociated because the information in the Supported Channels element is unacceptable"},
      {13, "Invalid information element"},
      {14, "MIC failure"},
      {15, "4-way handshake timeout"},
      {16, "Group key update timeout"},
      {17,
       "Information element in 4-way handshake different from (Re-)associate request/Probe "
       "response/Beacon"},
      {18, "Multicast cipher is not valid"},
      {19, "Unicast cipher is not valid"},
      {20, "AKMP is not valid"},
      {21, "Unsupported RSNE version"},
      {22, "Invalid RSNE capabilities"},
      {23, "IEEE 802.1X authentication failed"},
      {24, "Cipher Suite rejected per security policy"},
      {31,
       "TS deleted because QoS AP lacks sufficient bandwidth for this QoS STA due to a change in "
       "BSS service characteristics or operational mode"},
      {32, "Disassociated for unspecified QoS-related reason"},
      {33, "Disassociated because QAP lacks sufficient bandwidth for this STA"},
      {34, "Disassociated because of excessive frame losses and/or poor channel conditions"},
      {35, "Disassociated because QSTA is transmitting outside the limits of its polled TXOPs"},
      {36, "Requested from peer QSTA as the QSTA is leaving the QBSS (or resetting)"},
      {37, "Requested from peer QSTA as it does not want to use Traffic Stream"},
      {38,
       "Requested from peer QSTA as the QSTA received frames indicated Traffic Stream for which "
       "it has not set up"},
      {39, "Requested from peer QSTA due to time out"},
      {40, "Requested from peer QSTA as the QSTA is leaving the QBSS (or resetting)"},
      {41, "Requested from peer QSTA as it does not want to receive frames directly from the QSTA"},
      {42, "Requested from peer QSTA as the QSTA received DLP frames for which it has not set up"},
      {43, "Requested from peer QSTA as it does not want to use Block Ack"},
      {44,
       "Requested from peer QSTA as the QSTA received frames indicated Block Acknowledgement "
       "policy for which it has not set up"},
      {45, "Peer QSTA does not support the requested cipher suite"},
  };
  return texts;
}

// The expected text of `code`: the table's entry or the fallback.
std::string expected(const std::map<unsigned int, std::string>& table, unsigned int code,
                     const std::string& fallback) {
  const auto found = table.find(code);
  return found == table.end() ? fallback : found->second;
}

TEST(CommandName, EveryCodeUpTo300ReadsItsNameOrUnknown) {
  for (unsigned int code = 0; code <= 300; ++code) {
    EXPECT_EQ(command_name(static_cast<nl80211_commands>(code)),
              expected(command_names(), code, "unknown"))
        << "command " << code;
  }
}

TEST(CommandName, NinetySevenCommandsHaveANameAndSlotThirtyIsEmpty) {
  EXPECT_EQ(command_names().size(), 97u);
  EXPECT_EQ(command_name(static_cast<nl80211_commands>(30)), "unknown");
  EXPECT_EQ(command_name(NL80211_CMD_SET_MGMT_EXTRA_IE), "unknown");
}

TEST(CommandName, LastNamedSlotAndBeyond) {
  EXPECT_EQ(command_name(static_cast<nl80211_commands>(97)), "ft_event");
  EXPECT_EQ(command_name(static_cast<nl80211_commands>(98)), "unknown");
  EXPECT_EQ(command_name(static_cast<nl80211_commands>(124)), "unknown");
  EXPECT_EQ(command_name(static_cast<nl80211_commands>(125)), "unknown");
  EXPECT_EQ(command_name(static_cast<nl80211_commands>(200)), "unknown");
  EXPECT_EQ(command_name(static_cast<nl80211_commands>(0xFFFFFFFFu)), "unknown");
}

TEST(CommandName, NamesMatchTheKernelHeaderNumbers) {
  EXPECT_EQ(command_name(NL80211_CMD_NEW_WIPHY), "new_wiphy");
  EXPECT_EQ(command_name(NL80211_CMD_TRIGGER_SCAN), "trigger_scan");
  EXPECT_EQ(command_name(NL80211_CMD_CONNECT), "connect");
  EXPECT_EQ(command_name(NL80211_CMD_UNPROT_DISASSOCIATE), "unprot_disassociate");
  EXPECT_EQ(command_name(NL80211_CMD_FT_EVENT), "ft_event");
}

TEST(StatusText, EveryCodeOfSixteenBitsReadsItsTextOrUnknown) {
  for (unsigned int code = 0; code <= 0xFFFF; ++code) {
    ASSERT_EQ(get_status_str(static_cast<unsigned short>(code)),
              expected(status_texts(), code, "<unknown>"))
        << "status " << code;
  }
}

TEST(StatusText, EmptySlotsAndTheEnd) {
  EXPECT_EQ(status_texts().size(), 47u);
  for (unsigned short code = 2; code <= 9; ++code) {
    EXPECT_EQ(get_status_str(code), "<unknown>") << code;
  }
  EXPECT_EQ(get_status_str(36), "<unknown>");
  EXPECT_EQ(get_status_str(5), "<unknown>");
  EXPECT_EQ(get_status_str(55), "Invalid FTIE");
  EXPECT_EQ(get_status_str(56), "<unknown>");
}

TEST(ReasonText, EveryCodeOfSixteenBitsReadsItsTextOrUnknown) {
  for (unsigned int code = 0; code <= 0xFFFF; ++code) {
    ASSERT_EQ(get_reason_str(static_cast<unsigned short>(code)),
              expected(reason_texts(), code, "<unknown>"))
        << "reason " << code;
  }
}

TEST(ReasonText, EmptySlotsAndTheEnd) {
  EXPECT_EQ(reason_texts().size(), 38u);
  EXPECT_EQ(get_reason_str(0), "<unknown>");
  EXPECT_EQ(get_reason_str(12), "<unknown>");
  for (unsigned short code = 25; code <= 30; ++code) {
    EXPECT_EQ(get_reason_str(code), "<unknown>") << code;
  }
  EXPECT_EQ(get_reason_str(45), "Peer QSTA does not support the requested cipher suite");
  EXPECT_EQ(get_reason_str(46), "<unknown>");
}

TEST(ReasonText, FortyRepeatsTheTextOfThirtySix) {
  EXPECT_EQ(get_reason_str(40), get_reason_str(36));
  EXPECT_EQ(get_reason_str(40),
            "Requested from peer QSTA as the QSTA is leaving the QBSS (or resetting)");
}

TEST(RegInitiator, EveryValueOfEightBits) {
  const std::map<unsigned int, std::string> texts = {
      {0, "the wireless core upon initialization"},
      {1, "a user"},
      {2, "a driver"},
      {3, "a country IE"},
  };
  for (unsigned int value = 0; value <= 0xFF; ++value) {
    EXPECT_EQ(reg_initiator_to_string(static_cast<unsigned char>(value)),
              expected(texts, value, "BUG"))
        << "initiator " << value;
  }
  EXPECT_EQ(reg_initiator_to_string(4), "BUG");
}

}  // namespace
