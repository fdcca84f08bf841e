// The process's execv() and posix_spawn(): target programs of a cross build
// run under the same emulator as the test process.
//
// A cross-built suite runs under qemu-user, which CTest calls explicitly (the
// build machine need not register the emulator with binfmt_misc). qemu-user
// hands an exec straight to the kernel, and without binfmt_misc the kernel
// cannot run a program of the target machine: the re-executed test binary of
// GoogleTest's "threadsafe" death tests and the qira-wifi program that the
// tool tests start would fail with ENOEXEC. So, while QIRA_TEST_EMULATOR
// names the emulator command (tests/CMakeLists.txt sets it for cross builds
// only: the emulator's path and options, separated by spaces), an execv or
// posix_spawn of an ELF program of this process's own machine starts the
// emulator instead, with the program's argv[0] kept through qemu's "-0".
// Everything else (the build machine's /bin/sleep or wpa_supplicant, every
// call of a native build) goes to libc unchanged.
//
// One more difference is mended here: glibc's posix_spawn learns that its
// exec failed through memory it shares with its CLONE_VM | CLONE_VFORK child,
// and qemu-user runs that child as a plain fork, so a missing program would
// look started (and exit with 127). Under the emulator, posix_spawn first
// checks what the exec would refuse (a missing file, one that is no
// executable regular file) and returns that error, as on the target.
//
// execv runs in forked and cloned children of a threaded process: nothing
// here allocates, takes a lock or calls dlsym after start-up.
#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace {

// The machine of the programs this build makes. A machine missing here only
// means that its cross builds run their children without the emulator.
#if defined(__aarch64__)
constexpr unsigned kOwnMachine = EM_AARCH64;
#elif defined(__arm__)
constexpr unsigned kOwnMachine = EM_ARM;
#elif defined(__x86_64__)
constexpr unsigned kOwnMachine = EM_X86_64;
#elif defined(__i386__)
constexpr unsigned kOwnMachine = EM_386;
#else
constexpr unsigned kOwnMachine = EM_NONE;
#endif

constexpr char kEmulatorVariable[] = "QIRA_TEST_EMULATOR";
// Room for the emulator's words and an argument vector; more arguments than
// that fail the exec with E2BIG rather than allocate.
constexpr std::size_t kMaxEmulatorWords = 8;
constexpr std::size_t kMaxArguments = 256;

using ExecvFunction = int (*)(const char*, char* const[]);
using PosixSpawnFunction = int (*)(pid_t*, const char*, const posix_spawn_file_actions_t*,
                                   const posix_spawnattr_t*, char* const[], char* const[]);

// Read once at start-up (before any test forks), then only read.
struct Emulation {
  ExecvFunction libc_execv = nullptr;
  PosixSpawnFunction libc_posix_spawn = nullptr;
  char command[512] = {};                   // the variable's value, split in place
  char* words[kMaxEmulatorWords + 1] = {};  // the emulator, then its options
  std::size_t word_count = 0;
};

Emulation& emulation() {
  static Emulation state;
  return state;
}

__attribute__((constructor)) void read_emulation() {
  Emulation& state = emulation();
  state.libc_execv = reinterpret_cast<ExecvFunction>(dlsym(RTLD_NEXT, "execv"));
  state.libc_posix_spawn = reinterpret_cast<PosixSpawnFunction>(dlsym(RTLD_NEXT, "posix_spawn"));
  const char* value = std::getenv(kEmulatorVariable);
  if (value == nullptr || std::strlen(value) >= sizeof state.command) {
    return;
  }
  std::strcpy(state.command, value);
  char* rest = state.command;
  while (*rest != '\0' && state.word_count < kMaxEmulatorWords) {
    while (*rest == ' ') {
      *rest++ = '\0';
    }
    if (*rest == '\0') {
      break;
    }
    state.words[state.word_count++] = rest;
    while (*rest != '\0' && *rest != ' ') {
      ++rest;
    }
  }
}

// Whether `path` is an ELF program of this process's machine. ELF keeps
// e_machine at the same place in 32- and 64-bit files, in the file's byte
// order.
bool is_own_machine_program(const char* path) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    return false;
  }
  unsigned char header[EI_NIDENT + 4];
  const ssize_t count = read(fd, header, sizeof header);
  close(fd);
  if (count != static_cast<ssize_t>(sizeof header) || std::memcmp(header, ELFMAG, SELFMAG) != 0) {
    return false;
  }
  const unsigned char* machine = header + EI_NIDENT + 2;
  const unsigned value = header[EI_DATA] == ELFDATA2MSB ? (machine[0] << 8) | machine[1]
                                                        : machine[0] | (machine[1] << 8);
  return value == kOwnMachine;
}

enum class Launch { kNative, kEmulated, kTooManyArguments };

using EmulatedArguments = char * [kMaxEmulatorWords + kMaxArguments + 4];

// How `path` runs; when under the emulator, fills `emulated` with the
// emulator's words, "-0" argv[0], the program, then argv[1...].
Launch plan_launch(const char* path, char* const argv[], EmulatedArguments& emulated) {
  const Emulation& state = emulation();
  if (state.word_count == 0 || kOwnMachine == EM_NONE || !is_own_machine_program(path)) {
    return Launch::kNative;
  }
  static char option_argv0[] = "-0";
  constexpr std::size_t capacity = sizeof(EmulatedArguments) / sizeof(char*);
  std::size_t next = 0;
  for (std::size_t word = 0; word < state.word_count; ++word) {
    emulated[next++] = state.words[word];
  }
  emulated[next++] = option_argv0;
  emulated[next++] = argv[0] != nullptr ? argv[0] : const_cast<char*>(path);
  emulated[next++] = const_cast<char*>(path);
  if (argv[0] != nullptr) {
    for (std::size_t index = 1; argv[index] != nullptr; ++index) {
      if (next + 1 >= capacity) {
        return Launch::kTooManyArguments;
      }
      emulated[next++] = argv[index];
    }
  }
  emulated[next] = nullptr;
  return Launch::kEmulated;
}

// The error an exec of `path` would end with before loading it: ENOENT,
// EACCES, or 0 when it would go ahead.
int exec_refusal(const char* path) {
  struct stat status {};
  if (stat(path, &status) != 0) {
    return errno;
  }
  if (!S_ISREG(status.st_mode) || access(path, X_OK) != 0) {
    return EACCES;
  }
  return 0;
}

}  // namespace

// Declared exactly as <unistd.h> and <spawn.h> declare them.
extern "C" int execv(const char* path, char* const argv[]) __THROW {
  const Emulation& state = emulation();
  if (state.libc_execv == nullptr) {
    errno = ENOSYS;
    return -1;
  }
  EmulatedArguments emulated;
  switch (plan_launch(path, argv, emulated)) {
    case Launch::kEmulated:
      return state.libc_execv(emulated[0], emulated);
    case Launch::kTooManyArguments:
      errno = E2BIG;
      return -1;
    case Launch::kNative:
      break;
  }
  return state.libc_execv(path, argv);
}

extern "C" int posix_spawn(pid_t* pid, const char* path,
                           const posix_spawn_file_actions_t* file_actions,
                           const posix_spawnattr_t* attributes, char* const argv[],
                           char* const envp[]) {
  const Emulation& state = emulation();
  if (state.libc_posix_spawn == nullptr) {
    return ENOSYS;
  }
  if (state.word_count != 0) {
    if (const int refusal = exec_refusal(path)) {
      return refusal;
    }
  }
  EmulatedArguments emulated;
  switch (plan_launch(path, argv, emulated)) {
    case Launch::kEmulated:
      return state.libc_posix_spawn(pid, emulated[0], file_actions, attributes, emulated, envp);
    case Launch::kTooManyArguments:
      return E2BIG;
    case Launch::kNative:
      break;
  }
  return state.libc_posix_spawn(pid, path, file_actions, attributes, argv, envp);
}
