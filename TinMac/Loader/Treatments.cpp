#include "TinMac/Loader/Treatments.h"

#include <array>
#include <span>

#include "TinMac/Loader/Bytes.h"

namespace tinmac {

namespace {

struct Row {
  std::uint32_t number;
  Treated treated;
};

constexpr Row commands[] = {
#define KNOWN(number, name, treatment) {number, {name, Treatment::treatment}},
#include "TinMac/Loader/LoadCommands.def"
#undef KNOWN
};

constexpr Row sections[] = {
#define SECTION(number, name, treatment) {number, {name, Treatment::treatment}},
#include "TinMac/Loader/SectionTypes.def"
#undef SECTION
};

constexpr std::string_view pointerFormats[] = {"none",
                                               "ARM64E",
                                               "64",
                                               "32",
                                               "32_CACHE",
                                               "32_FIRMWARE",
                                               "64_OFFSET",
                                               "ARM64E_KERNEL",
                                               "64_KERNEL_CACHE",
                                               "ARM64E_USERLAND",
                                               "ARM64E_FIRMWARE",
                                               "X86_64_KERNEL_CACHE",
                                               "ARM64E_USERLAND24"};

constexpr std::string_view importFormats[] = {
    "none", "DYLD_CHAINED_IMPORT", "DYLD_CHAINED_IMPORT_ADDEND", "DYLD_CHAINED_IMPORT_ADDEND64"};

Treated find(std::span<const Row> rows, std::uint32_t number, std::string_view what) {
  for (const Row& row : rows) {
    if (row.number == number) {
      return row.treated;
    }
  }
  throw Refused("unknown " + std::string(what) + " " + hexText(number));
}

std::string_view nameOf(std::span<const std::string_view> names, std::uint32_t number) {
  return number < names.size() ? names[number] : "unknown";
}

}  // namespace

Treated loadCommand(std::uint32_t kind) { return find(commands, kind, "load command"); }

Treated sectionType(std::uint32_t type) { return find(sections, type, "section type"); }

std::string_view pointerFormatName(std::uint32_t format) { return nameOf(pointerFormats, format); }

std::string_view importFormatName(std::uint32_t format) { return nameOf(importFormats, format); }

}  // namespace tinmac
