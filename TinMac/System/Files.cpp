#include <cstdint>
#include <cstring>

#include "TinMac/System/ExportTables.h"
#include "TinMac/System/Host.h"
#include "TinMac/System/Numbers.h"

namespace tinmac {

namespace {

std::int64_t settled(const FileResult& result) {
  if (result.value < 0) failWith(result.error);
  return result.value;
}

std::int32_t settledStatus(const FileResult& result) {
  return static_cast<std::int32_t>(settled(result));
}

std::int32_t makeDirectory(const char* path, std::uint32_t mode) {
  return settledStatus(host().mkdir(path, mode));
}

std::int32_t changeMode(const char* path, std::uint32_t mode) {
  return settledStatus(host().chmod(path, mode));
}

std::uint32_t setMask(std::uint32_t mask) { return host().umask(mask); }

std::int64_t readFile(std::int32_t descriptor, void* bytes, std::uint64_t count) {
  return settled(host().read(descriptor, bytes, count));
}

std::int64_t writeFile(std::int32_t descriptor, const void* bytes, std::uint64_t count) {
  return settled(host().write(descriptor, bytes, count));
}

std::int32_t syncFile(std::int32_t descriptor) { return settledStatus(host().fsync(descriptor)); }

std::int32_t closeFile(std::int32_t descriptor) { return settledStatus(host().close(descriptor)); }

std::int32_t removeFile(const char* path) { return settledStatus(host().unlink(path)); }

std::int32_t renameFile(const char* from, const char* to) {
  return settledStatus(host().rename(from, to));
}

std::int32_t told(const FileResult& result, const struct stat& facts, MacStat* status) {
  if (result.value >= 0) *status = macStat(facts);
  return settledStatus(result);
}

std::int32_t statusOfPath(const char* path, MacStat* status) {
  struct stat facts{};
  const FileResult result = host().stat(path, facts);
  return told(result, facts, status);
}

std::int32_t statusOfFile(std::int32_t descriptor, MacStat* status) {
  struct stat facts{};
  const FileResult result = host().fstat(descriptor, facts);
  return told(result, facts, status);
}

}  // namespace

extern "C" std::int32_t tinOpenFile(const char* path, std::int32_t flags, std::uint32_t mode) {
  constexpr std::uint32_t permissions = 07777;
  return settledStatus(host().open(path, linuxOpenFlags(flags), mode & permissions));
}

std::span<const Export> fileExports() {
  static const Export table[] = {
      {"_mkdir", code(makeDirectory)}, {"_chmod", code(changeMode)},
      {"_umask", code(setMask)},       {"_open", code(tinOpenVeneer)},
      {"_read", code(readFile)},       {"_write", code(writeFile)},
      {"_fsync", code(syncFile)},      {"_close", code(closeFile)},
      {"_unlink", code(removeFile)},   {"_rename", code(renameFile)},
      {"_stat", code(statusOfPath)},   {"_fstat", code(statusOfFile)},
  };
  return table;
}

}  // namespace tinmac
