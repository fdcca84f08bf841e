// Global services of the host library: logging, crash, clock, files.
#ifndef QIRA_HOST_GLOBALS_H
#define QIRA_HOST_GLOBALS_H

// Emits one log line: module, source file, function, line, syslog level
// (3 error, 4 warning, 6 info, 7 debug), errno value (0 for none), a reserved
// 0, and a printf-style message. Goes to the installed log sink (default:
// stderr and syslog). The result is the length of the message text.
int logInternal(const char* module, const char* file, const char* function, int line, int level,
                int error_number, int reserved, const char* fmt, ...)
    __attribute__((format(printf, 8, 9)));

// Ends the process with a diagnostic on stderr (and syslog); never returns.
[[noreturn]] void forceCrash();

// Milliseconds of a monotonic clock (the installed clock seam).
unsigned long long nowMs();
// Sleeps at least `ms` milliseconds (the installed clock seam).
void sleepMs(unsigned int ms);

// True when `path` exists; with `regular_only` it must be a regular file.
bool fileExists(const char* path, bool regular_only);

#endif  // QIRA_HOST_GLOBALS_H
