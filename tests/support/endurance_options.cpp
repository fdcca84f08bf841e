// Sanitizer options of the endurance programs (linked into each of them, see
// tests/support/sanitizer_defaults.cpp): allocation stacks by frame pointers.
// A full unwinding at each of their millions of allocations would take a run
// past its time-out. The one leak the module defines (the events module's
// receive callback set) is still matched through the frame-pointer stack:
// the suite's nl_cb_alloc (tests/support/alloc_faults.cpp) calls libnl's, so
// prepare_listen_events stays on it.
extern "C" const char* const qira_asan_program_options = "fast_unwind_on_malloc=1";
