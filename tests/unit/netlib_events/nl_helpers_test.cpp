// The generic netlink helpers: the callbacks on their own, and the
// multicast group lookup against the simulated controller.
#include <gtest/gtest.h>
#include <linux/genetlink.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>
#include <netlink/socket.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "qira/network/nl_helpers.h"
#include "support/alloc_faults.h"
#include "support/nl80211_sim.h"

namespace qira::test {
namespace {

// The lookup record family_handler receives: the wanted group, then the id.
struct group_lookup {
  const char* group;
  int id;
};

TEST(ErrorHandler, StoresTheErrorAndStops) {
  int status = 1;
  nlmsgerr error{};
  error.error = -EPERM;
  EXPECT_EQ(error_handler(nullptr, &error, &status), NL_STOP);
  EXPECT_EQ(status, -EPERM);
}

TEST(AckHandler, StoresZeroAndStops) {
  int status = 1;
  EXPECT_EQ(ack_handler(nullptr, &status), NL_STOP);
  EXPECT_EQ(status, 0);
}

TEST(NoSeqCheck, AcceptsEverything) {
  int untouched = 7;
  EXPECT_EQ(no_seq_check(nullptr, nullptr), NL_OK);
  EXPECT_EQ(no_seq_check(nullptr, &untouched), NL_OK);
  EXPECT_EQ(untouched, 7);
}

// A controller answer advertising `groups` (or no group list at all).
struct ControllerAnswer {
  explicit ControllerAnswer(std::vector<NlAttribute> entries, bool with_groups = true) {
    std::vector<NlAttribute> attributes = {attr_string(CTRL_ATTR_FAMILY_NAME, "nl80211"),
                                           attr_u16(CTRL_ATTR_FAMILY_ID, 0x1c)};
    if (with_groups) {
      attributes.push_back(attr_nested(CTRL_ATTR_MCAST_GROUPS, std::move(entries)));
    }
    bytes = genl_message(0x10, CTRL_CMD_NEWFAMILY, attributes);
    msg.reset(nlmsg_convert(reinterpret_cast<nlmsghdr*>(bytes.data())));
  }
  std::vector<std::uint8_t> bytes;
  std::unique_ptr<nl_msg, void (*)(nl_msg*)> msg{nullptr, nlmsg_free};
};

NlAttribute group(std::uint16_t index, const std::string& name, std::uint32_t id) {
  return attr_nested(
      index, {attr_string(CTRL_ATTR_MCAST_GRP_NAME, name), attr_u32(CTRL_ATTR_MCAST_GRP_ID, id)});
}

int handle(ControllerAnswer& answer, const char* wanted) {
  group_lookup lookup{wanted, -2};
  EXPECT_EQ(family_handler(answer.msg.get(), &lookup), NL_SKIP);
  return lookup.id;
}

TEST(FamilyHandler, FindsTheExactName) {
  ControllerAnswer answer({group(1, "config", 5), group(2, "scan", 6), group(3, "mlme", 8)});
  EXPECT_EQ(handle(answer, "config"), 5);
  EXPECT_EQ(handle(answer, "scan"), 6);
  EXPECT_EQ(handle(answer, "mlme"), 8);
}

TEST(FamilyHandler, WithoutAGroupListTheIdStays) {
  ControllerAnswer answer({}, false);
  EXPECT_EQ(handle(answer, "scan"), -2);
}

TEST(FamilyHandler, AGroupNotAdvertisedLeavesTheId) {
  ControllerAnswer answer({group(1, "config", 5)});
  EXPECT_EQ(handle(answer, "scan"), -2);
}

TEST(FamilyHandler, AWantedPrefixOfAnAdvertisedNameDoesNotMatch) {
  ControllerAnswer answer({group(1, "regulatory", 7)});
  EXPECT_EQ(handle(answer, "reg"), -2);
}

TEST(FamilyHandler, AWantedNameLongerThanTheAdvertisedOneDoesNotMatch) {
  ControllerAnswer answer({group(1, "reg", 7)});
  EXPECT_EQ(handle(answer, "regulatory"), -2);
}

TEST(FamilyHandler, TheFirstOfTwoEntriesWithTheSameNameWins) {
  ControllerAnswer answer({group(1, "scan", 6), group(2, "scan", 60)});
  EXPECT_EQ(handle(answer, "scan"), 6);
}

TEST(FamilyHandler, EntriesWithoutNameOrIdAreSkipped) {
  ControllerAnswer answer({attr_nested(1, {attr_string(CTRL_ATTR_MCAST_GRP_NAME, "scan")}),
                           attr_nested(2, {attr_u32(CTRL_ATTR_MCAST_GRP_ID, 60)}),
                           group(3, "scan", 6)});
  EXPECT_EQ(handle(answer, "scan"), 6);
}

// A connected generic netlink socket of the test process, on the simulation.
class MulticastId : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(sock_, nullptr);
    ASSERT_EQ(genl_connect(sock_.get()), 0);
  }

  SimulatedNl80211 kernel_;
  std::unique_ptr<nl_sock, void (*)(nl_sock*)> sock_{nl_socket_alloc(), nl_socket_free};
};

TEST_F(MulticastId, EachNl80211GroupHasItsId) {
  EXPECT_EQ(nl_get_multicast_id(sock_.get(), "nl80211", "config"), 5);
  EXPECT_EQ(nl_get_multicast_id(sock_.get(), "nl80211", "scan"), 6);
  EXPECT_EQ(nl_get_multicast_id(sock_.get(), "nl80211", "regulatory"), 7);
  EXPECT_EQ(nl_get_multicast_id(sock_.get(), "nl80211", "mlme"), 8);
}

TEST_F(MulticastId, AsksTheControllerForNlctrlThenForTheFamily) {
  ASSERT_EQ(nl_get_multicast_id(sock_.get(), "nl80211", "scan"), 6);
  const std::vector<ControllerRequest>& requests = kernel_.controller_requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].family, "nlctrl");
  EXPECT_EQ(requests[1].family, "nl80211");
  EXPECT_EQ(requests[1].command, CTRL_CMD_GETFAMILY);
  EXPECT_EQ(requests[1].flags & (NLM_F_REQUEST | NLM_F_ACK), NLM_F_REQUEST | NLM_F_ACK);
}

TEST_F(MulticastId, AGroupTheFamilyDoesNotAdvertiseIsMinusTwo) {
  // Every message and callback set allocated during the lookup (its own and
  // libnl's, followed through their references) is released by its end.
  LibnlObjectLedger objects;
  EXPECT_EQ(nl_get_multicast_id(sock_.get(), "nl80211", "nosuchgroup"), -2);
  EXPECT_GE(objects.allocated(LibnlObjectLedger::kMessage), 1);
  EXPECT_GE(objects.allocated(LibnlObjectLedger::kCallbackSet), 1);
  EXPECT_EQ(objects.released(LibnlObjectLedger::kMessage),
            objects.allocated(LibnlObjectLedger::kMessage));
  EXPECT_EQ(objects.released(LibnlObjectLedger::kCallbackSet),
            objects.allocated(LibnlObjectLedger::kCallbackSet));
  // The exchange ended with the acknowledgement: nothing is left to read.
  ASSERT_EQ(nl_socket_set_nonblocking(sock_.get()), 0);
  EXPECT_EQ(nl_recvmsgs_default(sock_.get()), -NLE_AGAIN);
}

TEST_F(MulticastId, AFamilyWithoutGroupsIsMinusTwo) {
  kernel_.family("nl80211").groups.clear();
  EXPECT_EQ(nl_get_multicast_id(sock_.get(), "nl80211", "scan"), -2);
}

TEST_F(MulticastId, AnUnknownFamilyGivesTheKernelsErrorENOENT) {
  kernel_.remove_family("nl80211");
  EXPECT_EQ(nl_get_multicast_id(sock_.get(), "nl80211", "scan"), -ENOENT);
}

TEST_F(MulticastId, TheControllersErrorIsPassedOnAsItCame) {
  kernel_.refuse_family("nl80211", -EPERM);
  EXPECT_EQ(nl_get_multicast_id(sock_.get(), "nl80211", "scan"), -EPERM);
}

TEST_F(MulticastId, PrefixAndLongerNamesDoNotMatch) {
  kernel_.family("nl80211").groups = {{"regulatory", 7}, {"sc", 6}};
  EXPECT_EQ(nl_get_multicast_id(sock_.get(), "nl80211", "reg"), -2);
  EXPECT_EQ(nl_get_multicast_id(sock_.get(), "nl80211", "scan"), -2);
  EXPECT_EQ(nl_get_multicast_id(sock_.get(), "nl80211", "regulatory"), 7);
}

TEST_F(MulticastId, AGroupListedTwiceGivesTheFirstId) {
  kernel_.family("nl80211").groups = {{"scan", 16}, {"scan", 61}};
  EXPECT_EQ(nl_get_multicast_id(sock_.get(), "nl80211", "scan"), 16);
}

TEST_F(MulticastId, ASendFailureIsTheSendResult) {
  kernel_.fail_sends(EPERM);
  // libnl turns the send's EPERM into -NLE_PERM.
  EXPECT_EQ(nl_get_multicast_id(sock_.get(), "nl80211", "scan"), -NLE_PERM);
}

}  // namespace
}  // namespace qira::test
