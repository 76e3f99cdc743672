#include "TinMac/System/Numbers.h"

#include <fcntl.h>
#include <sys/sysmacros.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <limits>
#include <string>

#include "TinMac/System/Trap.h"

namespace tinmac {

namespace {

struct ErrorNumber {
  int ofLinux;
  int ofMac;
  const char* text;
};

constexpr std::array errorNumbers = {
#define TIN_ERROR(name, number, text) ErrorNumber{name, number, text},
#include "TinMac/System/ErrorNumbers.def"
#undef TIN_ERROR
};

struct Pair {
  int ofLinux;
  int ofMac;
};

constexpr int macAccessMode = 0x3;
constexpr std::array openFlags = {
    Pair{O_NONBLOCK, 0x4},   Pair{O_APPEND, 0x8},       Pair{O_SYNC, 0x80},
    Pair{O_NOFOLLOW, 0x100}, Pair{O_CREAT, 0x200},      Pair{O_TRUNC, 0x400},
    Pair{O_EXCL, 0x800},     Pair{O_NOCTTY, 0x20000},   Pair{O_DIRECTORY, 0x100000},
    Pair{O_DSYNC, 0x400000}, Pair{O_CLOEXEC, 0x1000000}};

constexpr std::array signals = {
    Pair{SIGHUP, 1},     Pair{SIGINT, 2},   Pair{SIGQUIT, 3},   Pair{SIGILL, 4},
    Pair{SIGTRAP, 5},    Pair{SIGABRT, 6},  Pair{SIGFPE, 8},    Pair{SIGKILL, 9},
    Pair{SIGBUS, 10},    Pair{SIGSEGV, 11}, Pair{SIGSYS, 12},   Pair{SIGPIPE, 13},
    Pair{SIGALRM, 14},   Pair{SIGTERM, 15}, Pair{SIGURG, 16},   Pair{SIGSTOP, 17},
    Pair{SIGTSTP, 18},   Pair{SIGCONT, 19}, Pair{SIGCHLD, 20},  Pair{SIGTTIN, 21},
    Pair{SIGTTOU, 22},   Pair{SIGIO, 23},   Pair{SIGXCPU, 24},  Pair{SIGXFSZ, 25},
    Pair{SIGVTALRM, 26}, Pair{SIGPROF, 27}, Pair{SIGWINCH, 28}, Pair{SIGUSR1, 30},
    Pair{SIGUSR2, 31}};

thread_local int errorSlot = 0;

template <class Table>
int translated(const Table& table, int Table::value_type::* from, int Table::value_type::* to,
               int number, const char* rule) {
  for (const auto& row : table) {
    if (row.*from == number) return row.*to;
  }
  trap(rule, std::to_string(number));
}

template <class Narrow>
Narrow fitted(std::uint64_t value, const char* field) {
  if (value > static_cast<std::uint64_t>(std::numeric_limits<Narrow>::max())) {
    trap("a file's fact does not fit the Mac's structure", field + (": " + std::to_string(value)));
  }
  return static_cast<Narrow>(value);
}

std::int32_t macDevice(dev_t device, const char* field) {
  constexpr std::uint64_t minors = std::uint64_t{1} << 24U;
  const std::uint64_t number = std::uint64_t{major(device)} * minors + minor(device);
  if (minor(device) >= minors) trap("a device number does not fit the Mac's", field);
  return static_cast<std::int32_t>(fitted<std::uint32_t>(number, field));
}

MacTime macTime(const timespec& time) {
  return {.seconds = time.tv_sec, .nanoseconds = time.tv_nsec};
}

}  // namespace

int macError(int linuxError) {
  return translated(errorNumbers, &ErrorNumber::ofLinux, &ErrorNumber::ofMac, linuxError,
                    "an error of Linux that the Mac's table lacks");
}

int linuxError(int macError) {
  return translated(errorNumbers, &ErrorNumber::ofMac, &ErrorNumber::ofLinux, macError,
                    "an error of the Mac that the table lacks");
}

const char* macErrorText(int macError) {
  for (const ErrorNumber& row : errorNumbers) {
    if (row.ofMac == macError) return row.text;
  }
  trap("an error of the Mac whose text the table lacks", std::to_string(macError));
}

int linuxOpenFlags(int macFlags) {
  // The three access modes are the same numbers.
  int flags = macFlags & macAccessMode;
  int left = macFlags & ~macAccessMode;
  for (const Pair& row : openFlags) {
    if ((left & row.ofMac) == 0) continue;
    flags |= row.ofLinux;
    left &= ~row.ofMac;
  }
  if (left != 0) trap("flags of open that the table lacks", std::to_string(left));
  return flags;
}

int macSignal(int linuxSignal) {
  return translated(signals, &Pair::ofLinux, &Pair::ofMac, linuxSignal,
                    "a signal of Linux that the Mac's table lacks");
}

int linuxSignal(int macSignal) {
  return translated(signals, &Pair::ofMac, &Pair::ofLinux, macSignal,
                    "a signal of the Mac that Linux lacks");
}

MacStat macStat(const struct stat& facts) {
  return MacStat{.device = macDevice(facts.st_dev, "st_dev"),
                 .mode = fitted<std::uint16_t>(facts.st_mode, "st_mode"),
                 .links = fitted<std::uint16_t>(facts.st_nlink, "st_nlink"),
                 .file = facts.st_ino,
                 .user = facts.st_uid,
                 .group = facts.st_gid,
                 .deviceOfFile = macDevice(facts.st_rdev, "st_rdev"),
                 .gap = 0,
                 .accessed = macTime(facts.st_atim),
                 .modified = macTime(facts.st_mtim),
                 .changed = macTime(facts.st_ctim),
                 .born = macTime(facts.st_ctim),
                 .size = facts.st_size,
                 .blocks = facts.st_blocks,
                 .blockSize = static_cast<std::int32_t>(facts.st_blksize),
                 .flags = 0,
                 .generation = 0,
                 .spare = 0,
                 .spares = {0, 0}};
}

int* macErrorSlot() { return &errorSlot; }

void failWith(int linuxError) { errorSlot = macError(linuxError); }

}  // namespace tinmac
