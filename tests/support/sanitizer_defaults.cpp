// Defaults of the sanitizer runtimes for every test binary. The runtimes call
// these hooks at start-up when the build is sanitized; otherwise nothing calls
// them. Kept in code rather than in the environment so that a test binary run
// by hand behaves as it does under ctest.

extern "C" {

// A test program may define its own options instead: the endurance runs
// (tests/support/endurance_options.cpp) allocate millions of times, and a
// full unwinding of each allocation would take them past their time-out.
extern const char* const qira_asan_program_options __attribute__((weak));

// libnl is built without frame pointers: unwind fully at every allocation,
// so that the module function that allocated is always on a leak's stack and
// the suppressions below match it, and nothing else. Not instrumented: the
// runtime calls it before its shadow memory exists.
__attribute__((no_sanitize_address)) const char* __asan_default_options() {
  if (&qira_asan_program_options != nullptr) {
    return qira_asan_program_options;
  }
  return "fast_unwind_on_malloc=0";
}

// Leaks the module's interface defines, and only those:
// - the events module's close releases its socket and state but deliberately
//   not the receive callback set that the first service prepared.
const char* __lsan_default_suppressions() {
  return "leak:prepare_listen_events\n";
}

}  // extern "C"
