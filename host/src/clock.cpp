// nowMs/sleepMs and the clock seam: the real monotonic clock and FakeClock.
#include <time.h>

#include <atomic>
#include <cerrno>

#include "host_internal.h"

namespace qira::host {

namespace {

class MonotonicClock : public Clock {
 public:
  unsigned long long now_ms() override {
    struct timespec now {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<unsigned long long>(now.tv_sec) * 1000ULL +
           static_cast<unsigned long long>(now.tv_nsec) / 1000000ULL;
  }

  void sleep_ms(unsigned int ms) override {
    struct timespec remaining {};
    remaining.tv_sec = static_cast<time_t>(ms / 1000);
    remaining.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
    // A signal handler may interrupt the sleep; finish the rest of it.
    while (::clock_nanosleep(CLOCK_MONOTONIC, 0, &remaining, &remaining) == EINTR) {
    }
  }
};

std::atomic<Clock*> installed_clock{nullptr};

}  // namespace

Clock& real_clock() {
  static MonotonicClock clock;
  return clock;
}

void set_clock(Clock* clock) {
  internal::exchange_clock(clock);
}

Clock& internal::current_clock() {
  Clock* clock = installed_clock.load();
  return clock != nullptr ? *clock : real_clock();
}

Clock* internal::exchange_clock(Clock* clock) {
  Clock* previous = installed_clock.exchange(clock);
  return previous != nullptr ? previous : &real_clock();
}

FakeClock::FakeClock(unsigned long long start_ms) : now_(start_ms) {
  previous_ = internal::exchange_clock(this);
}

FakeClock::~FakeClock() {
  internal::exchange_clock(previous_);
}

unsigned long long FakeClock::now_ms() {
  std::lock_guard<std::mutex> lock(mutex_);
  unsigned long long now = now_;
  now_ += step_;
  return now;
}

void FakeClock::sleep_ms(unsigned int ms) {
  std::lock_guard<std::mutex> lock(mutex_);
  sleeps_.push_back(ms);
  now_ += ms;
}

void FakeClock::advance(unsigned long long ms) {
  std::lock_guard<std::mutex> lock(mutex_);
  now_ += ms;
}

void FakeClock::set_step_per_read(unsigned long long ms) {
  std::lock_guard<std::mutex> lock(mutex_);
  step_ = ms;
}

std::vector<unsigned int> FakeClock::sleeps() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return sleeps_;
}

}  // namespace qira::host

unsigned long long nowMs() {
  return qira::host::internal::current_clock().now_ms();
}

void sleepMs(unsigned int ms) {
  qira::host::internal::current_clock().sleep_ms(ms);
}
