// A simulated kernel whose own work is kept out of the module's figures.
//
// The socket call dispatcher of tests/support copies its list of interposers
// (one heap allocation) for every socket call it offers them; a real kernel
// costs the module no such allocation. This wrapper counts the calls it is
// offered while the calling thread's allocations are being counted, so that
// a benchmark can take them off its total, and it stops counting while the
// simulation handles a request the module sends (parsing it, building the
// answer, a scan dump included), measuring that work's processor time
// instead.
#ifndef QIRA_BENCH_SUPPORT_ACCOUNTED_KERNEL_H
#define QIRA_BENCH_SUPPORT_ACCOUNTED_KERNEL_H

#include <cstdint>
#include <optional>

#include "support/alloc_counter.h"
#include "support/socket_interpose.h"
#include "support/thread_clock.h"

namespace qira::bench {

template <typename Kernel>
class AccountedKernel : public Kernel {
 public:
  // Dispatcher allocations made for socket calls while counting.
  std::uint64_t dispatch_allocations() const { return dispatches_; }
  // Processor time the simulation spent answering the module's requests.
  double simulation_seconds() const { return simulation_seconds_; }

  std::optional<int> on_socket(int domain, int type, int protocol) override {
    note_dispatch();
    return Kernel::on_socket(domain, type, protocol);
  }
  std::optional<int> on_bind(int fd, const sockaddr* address, socklen_t length) override {
    note_dispatch();
    return Kernel::on_bind(fd, address, length);
  }
  std::optional<int> on_connect(int fd, const sockaddr* address, socklen_t length) override {
    note_dispatch();
    return Kernel::on_connect(fd, address, length);
  }
  std::optional<int> on_getsockname(int fd, sockaddr* address, socklen_t* length) override {
    note_dispatch();
    return Kernel::on_getsockname(fd, address, length);
  }
  std::optional<int> on_setsockopt(int fd, int level, int name, const void* value,
                                   socklen_t length) override {
    note_dispatch();
    return Kernel::on_setsockopt(fd, level, name, value, length);
  }
  std::optional<int> on_getsockopt(int fd, int level, int name, void* value,
                                   socklen_t* length) override {
    note_dispatch();
    return Kernel::on_getsockopt(fd, level, name, value, length);
  }
  std::optional<ssize_t> on_send(int fd, const void* buffer, size_t length, int flags) override {
    note_dispatch();
    const Simulating simulating(*this);
    return Kernel::on_send(fd, buffer, length, flags);
  }
  std::optional<ssize_t> on_sendto(int fd, const void* buffer, size_t length, int flags,
                                   const sockaddr* address, socklen_t address_length) override {
    note_dispatch();
    const Simulating simulating(*this);
    return Kernel::on_sendto(fd, buffer, length, flags, address, address_length);
  }
  std::optional<ssize_t> on_sendmsg(int fd, const msghdr* message, int flags) override {
    note_dispatch();
    const Simulating simulating(*this);
    return Kernel::on_sendmsg(fd, message, flags);
  }
  std::optional<ssize_t> on_recv(int fd, void* buffer, size_t length, int flags) override {
    note_dispatch();
    return Kernel::on_recv(fd, buffer, length, flags);
  }
  std::optional<ssize_t> on_recvfrom(int fd, void* buffer, size_t length, int flags,
                                     sockaddr* address, socklen_t* address_length) override {
    note_dispatch();
    return Kernel::on_recvfrom(fd, buffer, length, flags, address, address_length);
  }
  std::optional<ssize_t> on_recvmsg(int fd, msghdr* message, int flags) override {
    note_dispatch();
    return Kernel::on_recvmsg(fd, message, flags);
  }
  std::optional<int> on_close(int fd) override {
    note_dispatch();
    return Kernel::on_close(fd);
  }

 private:
  // The simulation at work on a request: not counted, timed.
  class Simulating {
   public:
    explicit Simulating(AccountedKernel& kernel) : kernel_(kernel), start_(thread_cpu_seconds()) {}
    ~Simulating() { kernel_.simulation_seconds_ += thread_cpu_seconds() - start_; }
    Simulating(const Simulating&) = delete;
    Simulating& operator=(const Simulating&) = delete;

   private:
    AccountedKernel& kernel_;
    UncountedRegion uncounted_;
    double start_;
  };

  // The dispatcher allocates only while some interposer is installed, which
  // is the case whenever this one is asked.
  void note_dispatch() {
    if (counting()) {
      ++dispatches_;
    }
  }

  std::uint64_t dispatches_ = 0;
  double simulation_seconds_ = 0;
};

}  // namespace qira::bench

#endif  // QIRA_BENCH_SUPPORT_ACCOUNTED_KERNEL_H
