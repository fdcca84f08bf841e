// Defaults of the sanitizer runtimes for every test binary. The runtimes call
// these hooks at start-up when the build is sanitized; otherwise nothing calls
// them. Kept in code rather than in the environment so that a test binary run
// by hand behaves as it does under ctest.

extern "C" {

// libnl is built without frame pointers: unwind fully at every allocation,
// so that the module function that allocated is always on a leak's stack and
// the suppressions below match it, and nothing else.
const char* __asan_default_options() {
  return "fast_unwind_on_malloc=0";
}

// Leaks the module's interface defines, and only those:
// - the events module's close releases its socket and state but deliberately
//   not the receive callback set that the first service prepared.
const char* __lsan_default_suppressions() {
  return "leak:prepare_listen_events\n";
}

}  // extern "C"
