// A simulated kernel whose own work on the module's requests is timed.
//
// The kernel boundary (kernel_boundary.cpp) already keeps every socket call
// out of the counted regions; this wrapper also measures the processor time
// the simulation spends handling a request the module sends (parsing it,
// building the answer, a scan dump included), so that a benchmark can print
// it beside its own time, which includes it.
#ifndef QIRA_BENCH_SUPPORT_ACCOUNTED_KERNEL_H
#define QIRA_BENCH_SUPPORT_ACCOUNTED_KERNEL_H

#include "support/socket_interpose.h"
#include "support/thread_clock.h"

namespace qira::bench {

template <typename Kernel>
class AccountedKernel : public Kernel {
 public:
  // Processor time the simulation spent answering the module's requests.
  double simulation_seconds() const { return simulation_seconds_; }

  std::optional<ssize_t> on_send(int fd, const void* buffer, size_t length, int flags) override {
    const Simulating simulating(*this);
    return Kernel::on_send(fd, buffer, length, flags);
  }
  std::optional<ssize_t> on_sendto(int fd, const void* buffer, size_t length, int flags,
                                   const sockaddr* address, socklen_t address_length) override {
    const Simulating simulating(*this);
    return Kernel::on_sendto(fd, buffer, length, flags, address, address_length);
  }
  std::optional<ssize_t> on_sendmsg(int fd, const msghdr* message, int flags) override {
    const Simulating simulating(*this);
    return Kernel::on_sendmsg(fd, message, flags);
  }

 private:
  class Simulating {
   public:
    explicit Simulating(AccountedKernel& kernel) : kernel_(kernel), start_(thread_cpu_seconds()) {}
    ~Simulating() { kernel_.simulation_seconds_ += thread_cpu_seconds() - start_; }
    Simulating(const Simulating&) = delete;
    Simulating& operator=(const Simulating&) = delete;

   private:
    AccountedKernel& kernel_;
    double start_;
  };

  double simulation_seconds_ = 0;
};

}  // namespace qira::bench

#endif  // QIRA_BENCH_SUPPORT_ACCOUNTED_KERNEL_H
