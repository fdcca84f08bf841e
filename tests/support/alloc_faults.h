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

}  // namespace qira::test

#endif  // QIRA_TESTS_SUPPORT_ALLOC_FAULTS_H
