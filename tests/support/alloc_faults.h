// Allocation failures on demand, for the module's out-of-memory paths.
//
// The module allocates its libnl objects (sockets, callback sets, messages)
// and its module states (with the non-throwing operator new) through
// functions it takes from the process. qira_test_support comes before libnl
// and libstdc++ in every test binary's symbol search order, so its
// definitions of those functions are the ones the module calls: while an
// AllocationFaults object lives, the armed ones fail their next calls and
// every other call goes to the real function.
#ifndef QIRA_TESTS_SUPPORT_ALLOC_FAULTS_H
#define QIRA_TESTS_SUPPORT_ALLOC_FAULTS_H

namespace qira::test {

class AllocationFaults {
 public:
  enum Function {
    kNlSocketAlloc,  // nl_socket_alloc
    kNlCbAlloc,      // nl_cb_alloc
    kNlmsgAlloc,     // nlmsg_alloc
    kNothrowNew,     // operator new(std::size_t, const std::nothrow_t&)
    kFunctionCount,
  };

  AllocationFaults();   // nothing armed yet
  ~AllocationFaults();  // disarms everything
  AllocationFaults(const AllocationFaults&) = delete;
  AllocationFaults& operator=(const AllocationFaults&) = delete;

  // The next `count` calls of `function` fail, after `skip` calls succeed.
  void fail(Function function, int count = 1, int skip = 0);
  // How many calls of `function` were made to fail so far.
  int failures(Function function) const;
  // How many calls of `function` were made while this object lived.
  int calls(Function function) const;

  // Whether failing `function` reaches the module in this build: a sanitizer
  // runtime, loaded first, owns operator new and hides this library's.
  static bool effective(Function function);
};

// The libnl messages and callback sets allocated while it lives, followed
// through their reference counts (nlmsg_alloc, nlmsg_get, nlmsg_free;
// nl_cb_alloc, nl_cb_get, nl_cb_put), whoever makes the calls: what a call
// under test allocated and whether it released all of it again. Objects
// allocated before it was made are not followed. One at a time.
class LibnlObjectLedger {
 public:
  enum Kind { kMessage, kCallbackSet, kKindCount };

  LibnlObjectLedger();
  ~LibnlObjectLedger();
  LibnlObjectLedger(const LibnlObjectLedger&) = delete;
  LibnlObjectLedger& operator=(const LibnlObjectLedger&) = delete;

  // Objects of `kind` allocated so far.
  int allocated(Kind kind) const;
  // Of those, how many have had their last reference dropped (freed).
  int released(Kind kind) const;
};

}  // namespace qira::test

#endif  // QIRA_TESTS_SUPPORT_ALLOC_FAULTS_H
