#pragma once

#include <span>
#include <string_view>

namespace swarm {

class Swarm;

/// Something that a person, a program or the hardware does at any moment.
struct Deed {
  std::string_view name;
  void (*act)(Swarm&);
};

/// Returns all deeds, in a fixed order.
std::span<const Deed> deeds();

}  // namespace swarm
