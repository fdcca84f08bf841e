#include "support/alloc_faults.h"

#include <dlfcn.h>

#include <atomic>
#include <cstddef>
#include <map>
#include <mutex>
#include <new>
#include <type_traits>

#include <netlink/handlers.h>
#include <netlink/msg.h>
#include <netlink/socket.h>

namespace qira::test {

namespace {

struct FaultPlan {
  std::atomic<int> skip{0};
  std::atomic<int> remaining{0};
  std::atomic<int> failed{0};
  std::atomic<int> calls{0};
};

FaultPlan plans[AllocationFaults::kFunctionCount];

// True when this call of `function` must fail.
bool take_failure(AllocationFaults::Function function) {
  FaultPlan& plan = plans[function];
  ++plan.calls;
  if (plan.remaining.load() <= 0) {
    return false;
  }
  if (plan.skip.load() > 0) {
    --plan.skip;
    return false;
  }
  --plan.remaining;
  ++plan.failed;
  return true;
}

template <typename Function>
Function next_symbol(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// What the live LibnlObjectLedger follows: each object's reference count.
struct ObjectBook {
  std::mutex mutex;
  std::map<const void*, int> references[LibnlObjectLedger::kKindCount];
  int allocated[LibnlObjectLedger::kKindCount] = {};
  int released[LibnlObjectLedger::kKindCount] = {};
};

ObjectBook book;
std::atomic<bool> following{false};

void note_allocated(LibnlObjectLedger::Kind kind, const void* object) {
  if (object == nullptr || !following.load()) {
    return;
  }
  std::lock_guard<std::mutex> lock(book.mutex);
  book.references[kind][object] = 1;
  ++book.allocated[kind];
}

void note_reference(LibnlObjectLedger::Kind kind, const void* object, int change) {
  if (!following.load()) {
    return;
  }
  std::lock_guard<std::mutex> lock(book.mutex);
  auto found = book.references[kind].find(object);
  if (found == book.references[kind].end()) {
    return;
  }
  found->second += change;
  if (found->second <= 0) {
    // libnl frees the object here; its address may come back later.
    book.references[kind].erase(found);
    ++book.released[kind];
  }
}

}  // namespace

LibnlObjectLedger::LibnlObjectLedger() {
  std::lock_guard<std::mutex> lock(book.mutex);
  for (int kind = 0; kind < kKindCount; ++kind) {
    book.references[kind].clear();
    book.allocated[kind] = 0;
    book.released[kind] = 0;
  }
  following = true;
}

LibnlObjectLedger::~LibnlObjectLedger() {
  following = false;
}

int LibnlObjectLedger::allocated(Kind kind) const {
  std::lock_guard<std::mutex> lock(book.mutex);
  return book.allocated[kind];
}

int LibnlObjectLedger::released(Kind kind) const {
  std::lock_guard<std::mutex> lock(book.mutex);
  return book.released[kind];
}

AllocationFaults::AllocationFaults() {
  for (FaultPlan& plan : plans) {
    plan.skip = 0;
    plan.remaining = 0;
    plan.failed = 0;
    plan.calls = 0;
  }
}

AllocationFaults::~AllocationFaults() {
  for (FaultPlan& plan : plans) {
    plan.remaining = 0;
  }
}

void AllocationFaults::fail(Function function, int count, int skip) {
  plans[function].skip = skip;
  plans[function].remaining = count;
}

int AllocationFaults::failures(Function function) const {
  return plans[function].failed.load();
}

int AllocationFaults::calls(Function function) const {
  return plans[function].calls.load();
}

bool AllocationFaults::effective(Function function) {
  if (function != kNothrowNew) {
    return true;
  }
  AllocationFaults probe;
  probe.fail(kNothrowNew);
  char* allocated = new (std::nothrow) char;
  const bool failed = allocated == nullptr;
  delete allocated;
  return failed;
}

}  // namespace qira::test

using qira::test::AllocationFaults;
using qira::test::LibnlObjectLedger;
using qira::test::note_allocated;
using qira::test::note_reference;
using qira::test::take_failure;

extern "C" {

nl_sock* nl_socket_alloc(void) {
  static const auto next = qira::test::next_symbol<nl_sock* (*)(void)>("nl_socket_alloc");
  return take_failure(AllocationFaults::kNlSocketAlloc) ? nullptr : next();
}

nl_cb* nl_cb_alloc(enum nl_cb_kind kind) {
  static const auto next = qira::test::next_symbol<nl_cb* (*)(enum nl_cb_kind)>("nl_cb_alloc");
  if (take_failure(AllocationFaults::kNlCbAlloc)) {
    return nullptr;
  }
  nl_cb* cb = next(kind);
  note_allocated(LibnlObjectLedger::kCallbackSet, cb);
  return cb;
}

nl_cb* nl_cb_get(nl_cb* cb) {
  static const auto next = qira::test::next_symbol<nl_cb* (*)(nl_cb*)>("nl_cb_get");
  note_reference(LibnlObjectLedger::kCallbackSet, cb, +1);
  return next(cb);
}

void nl_cb_put(nl_cb* cb) {
  static const auto next = qira::test::next_symbol<void (*)(nl_cb*)>("nl_cb_put");
  note_reference(LibnlObjectLedger::kCallbackSet, cb, -1);
  next(cb);
}

nl_msg* nlmsg_alloc(void) {
  static const auto next = qira::test::next_symbol<nl_msg* (*)(void)>("nlmsg_alloc");
  if (take_failure(AllocationFaults::kNlmsgAlloc)) {
    return nullptr;
  }
  nl_msg* msg = next();
  note_allocated(LibnlObjectLedger::kMessage, msg);
  return msg;
}

void nlmsg_get(nl_msg* msg) {
  static const auto next = qira::test::next_symbol<void (*)(nl_msg*)>("nlmsg_get");
  note_reference(LibnlObjectLedger::kMessage, msg, +1);
  next(msg);
}

void nlmsg_free(nl_msg* msg) {
  static const auto next = qira::test::next_symbol<void (*)(nl_msg*)>("nlmsg_free");
  note_reference(LibnlObjectLedger::kMessage, msg, -1);
  next(msg);
}

}  // extern "C"

void* operator new(std::size_t size, const std::nothrow_t& tag) noexcept {
  using NothrowNew = void* (*)(std::size_t, const std::nothrow_t&) noexcept;
  // std::size_t is "m" (unsigned long) on LP64 and "j" (unsigned int) on
  // 32-bit ARM in the mangled name. The type decides, not its size: on
  // 32-bit ARM unsigned long and unsigned int are both 32 bits.
  static const auto next = qira::test::next_symbol<NothrowNew>(
      std::is_same<std::size_t, unsigned long>::value ? "_ZnwmRKSt9nothrow_t"
                                                      : "_ZnwjRKSt9nothrow_t");
  if (take_failure(AllocationFaults::kNothrowNew)) {
    return nullptr;
  }
  return next(size, tag);
}
