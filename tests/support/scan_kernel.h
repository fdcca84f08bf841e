// The simulated nl80211 kernel with a scanning radio: it acknowledges or
// refuses (-EBUSY while a scan runs) NL80211_CMD_TRIGGER_SCAN, records what
// each trigger asked for, answers NL80211_CMD_GET_SCAN dumps from a BSS table
// and sends the scan group's notifications when the test says.
#ifndef QIRA_TESTS_SUPPORT_SCAN_KERNEL_H
#define QIRA_TESTS_SUPPORT_SCAN_KERNEL_H

#include <cstdint>
#include <optional>
#include <vector>

#include "support/bss_message.h"
#include "support/nl80211_sim.h"

namespace qira::test::scan {

// One NL80211_CMD_TRIGGER_SCAN as received.
struct TriggerRequest {
  std::uint16_t flags = 0;
  std::optional<std::uint32_t> ifindex;
  std::optional<Bytes> ies;  // NL80211_ATTR_IE
  bool has_ssids = false;    // NL80211_ATTR_SCAN_SSIDS present
  // The nest's entries: attribute type and payload.
  std::vector<std::pair<std::uint16_t, Bytes>> ssids;
};

// One NL80211_CMD_GET_SCAN as received.
struct DumpRequest {
  std::uint16_t flags = 0;
  std::optional<std::uint32_t> ifindex;
};

class ScanKernel : public SimulatedNl80211 {
 public:
  // Dump replies are packed into datagrams of at most this size, as the
  // kernel fills its dump buffers (the socket pair's queue holds few).
  static constexpr std::size_t kDumpDatagramSize = 8192;

  // The BSS table the next dumps answer with.
  void set_bss_table(std::vector<BssAttributes> table) { table_ = std::move(table); }
  // Notifications of the scan group (trigger_scan, new_scan_results,
  // scan_aborted) for interface `ifindex`; the last two end the running scan.
  void announce_trigger(std::uint32_t ifindex);
  void finish_scan(std::uint32_t ifindex);
  void abort_scan(std::uint32_t ifindex);
  // Every accepted trigger is followed at once by its trigger_scan and then
  // its new_scan_results (or, when `aborted`, scan_aborted) notification, for
  // a caller that cannot inject them while it runs.
  void end_scans_at_once(bool aborted = false) {
    end_at_once_ = true;
    end_aborted_ = aborted;
  }
  // A scan started elsewhere: triggers are refused with -EBUSY meanwhile.
  void start_foreign_scan() { scanning_ = true; }
  bool scanning() const { return scanning_; }

  // The next `count` dumps are answered by an error reply `error` (negative,
  // as the kernel sends it; -ENOBUFS when the first buffer found no room in
  // the socket's queue) instead of the table.
  void refuse_dumps(int count, int error) {
    refused_dumps_ = count;
    dump_error_ = error;
  }
  // `notification` reaches the scan group just before the next dump's
  // replies, so that it lies ahead of them in the queue.
  void notify_before_next_dump(Nl80211Notification notification) {
    ahead_of_dump_.push_back(std::move(notification));
  }
  // The first receive after the next dump request fails with `error`
  // (ENOBUFS for an overrun, EAGAIN for a read that finds nothing yet).
  void fail_receive_after_next_dump(int error) { receive_error_at_dump_ = error; }
  // Dumps are then answered without their closing NLMSG_DONE.
  void leave_dumps_open(bool open) { dumps_open_ = open; }

  const std::vector<TriggerRequest>& triggers() const { return triggers_; }
  const std::vector<DumpRequest>& dumps() const { return dumps_; }
  int refused_triggers() const { return refused_; }
  // Drops the recorded triggers and dumps, for a caller that scans without
  // end (a fuzzer) and must not grow with every scan.
  void forget_requests() {
    triggers_.clear();
    dumps_.clear();
  }

 protected:
  std::vector<std::vector<std::uint8_t>> answer_nl80211(const nlmsghdr& request,
                                                        const std::uint8_t* message,
                                                        SimulatedGenlSocket& socket) override;

 private:
  std::vector<std::vector<std::uint8_t>> answer_dump(const nlmsghdr& request);

  std::vector<BssAttributes> table_;
  std::vector<TriggerRequest> triggers_;
  std::vector<DumpRequest> dumps_;
  bool scanning_ = false;
  bool end_at_once_ = false;
  bool end_aborted_ = false;
  bool dumps_open_ = false;
  int refused_ = 0;
  int refused_dumps_ = 0;
  int dump_error_ = 0;
  int receive_error_at_dump_ = 0;
  std::vector<Nl80211Notification> ahead_of_dump_;
};

}  // namespace qira::test::scan

#endif  // QIRA_TESTS_SUPPORT_SCAN_KERNEL_H
