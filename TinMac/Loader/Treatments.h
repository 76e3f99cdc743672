#pragma once

#include <cstdint>
#include <string_view>

namespace tinmac {

enum class Treatment { Read, Idle, Refused };

/// How the loader treats a part of the format, and that part's name.
struct Treated {
  std::string_view name;
  Treatment treatment;
};

/// Throws Refused for a number that has no name.
Treated loadCommand(std::uint32_t kind);
Treated sectionType(std::uint32_t type);
/// The name of a chained pointer's or an import's format, for a refusal.
std::string_view pointerFormatName(std::uint32_t format);
std::string_view importFormatName(std::uint32_t format);

}  // namespace tinmac
