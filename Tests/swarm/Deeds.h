#pragma once

#include <span>
#include <string_view>

namespace swarm {

class Swarm;

/// Something that a person, a program or the hardware does of a sudden.
struct Deed {
  std::string_view name;
  void (*act)(Swarm&);
};

/// All of them, in a fixed order.
std::span<const Deed> deeds();

}  // namespace swarm
