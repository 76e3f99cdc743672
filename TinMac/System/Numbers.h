#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>

namespace tinmac {

// The numbers of the Mac and of Linux, where these differ. A number without a counterpart traps.

int macError(int linuxError);
int linuxError(int macError);
/// The Mac's text for its own number.
const char* macErrorText(int macError);

/// The flags of open().
int linuxOpenFlags(int macFlags);

int macSignal(int linuxSignal);
int linuxSignal(int macSignal);
/// The signals that a Mac numbers.
inline constexpr int macSignals = 32;

struct MacTime {
  std::int64_t seconds;
  std::int64_t nanoseconds;
};

/// struct stat of an arm64 Mac, with file numbers of 64 bits.
struct MacStat {
  std::int32_t device;
  std::uint16_t mode;
  std::uint16_t links;
  std::uint64_t file;
  std::uint32_t user;
  std::uint32_t group;
  std::int32_t deviceOfFile;
  std::int32_t gap;
  MacTime accessed;
  MacTime modified;
  MacTime changed;
  MacTime born;
  std::int64_t size;
  std::int64_t blocks;
  std::int32_t blockSize;
  std::uint32_t flags;
  std::uint32_t generation;
  std::int32_t spare;
  std::int64_t spares[2];
};
static_assert(sizeof(MacStat) == 144);
static_assert(offsetof(MacStat, accessed) == 32);
static_assert(offsetof(MacStat, size) == 96);

/// Linux's call tells no birth: the file's last change of status stands for it.
MacStat macStat(const struct stat& facts);

/// The calling thread's error slot, as errno is on a Mac. Only a failing call writes it.
int* macErrorSlot();
/// Puts Linux's `error` into the slot, in the Mac's number.
void failWith(int linuxError);

}  // namespace tinmac
