#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "TinMac/System/ExportTables.h"
#include "TinMac/System/Host.h"
#include "TinMac/System/OSLogText.h"
#include "TinMac/System/Trap.h"

namespace tinmac {

namespace {

constexpr std::uint32_t defaultLevel = 0x00;
constexpr std::uint32_t infoLevel = 0x01;
constexpr std::uint32_t debugLevel = 0x02;
constexpr std::uint32_t errorLevel = 0x10;
constexpr std::uint32_t faultLevel = 0x11;

struct Log {
  std::string subsystem;
  std::string category;
};

/// All logs of the program. None is ever freed, as on a Mac.
class Logs {
 public:
  const Log* named(const char* subsystem, const char* category) {
    const std::lock_guard lock(mutex);
    const auto [place, added] = known.try_emplace({subsystem, category});
    if (added) place->second = Log{subsystem, category};
    addresses.insert(&place->second);
    return &place->second;
  }

  const Log& checked(const void* log) {
    const std::lock_guard lock(mutex);
    if (!addresses.contains(log)) trap("os_log", "an object that os_log_create did not make");
    return *static_cast<const Log*>(log);
  }

 private:
  std::mutex mutex;
  std::map<std::pair<std::string, std::string>, Log> known;
  std::set<const void*> addresses;
};

Logs& logs() {
  static auto* const only = new Logs;
  return *only;
}

void checkLevel(std::uint32_t level) {
  for (const std::uint32_t known : {defaultLevel, infoLevel, debugLevel, errorLevel, faultLevel}) {
    if (level == known) return;
  }
  trap("os_log's level", std::to_string(level));
}

const void* makeLog(const char* subsystem, const char* category) {
  return logs().named(subsystem, category);
}

/// A Mac that nobody has configured keeps all but debug messages.
std::uint32_t isEnabled(const void* log, std::uint8_t level) {
  logs().checked(log);
  checkLevel(level);
  return level == debugLevel ? 0 : 1;
}

void writeLog(const void* /*image*/, const void* log, std::uint8_t level, const char* format,
              const std::uint8_t* buffer, std::uint32_t size) {
  const Log& named = logs().checked(log);
  checkLevel(level);
  host().log(named.subsystem, named.category, level, osLogText(format, {buffer, size}));
}

}  // namespace

std::span<const Export> osLogExports() {
  static const Export table[] = {
      {"_os_log_create", code(makeLog)},
      {"_os_log_type_enabled", code(isEnabled)},
      {"__os_log_impl", code(writeLog)},
  };
  return table;
}

}  // namespace tinmac
