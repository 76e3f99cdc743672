#pragma once

#include <span>
#include <string_view>

namespace tinmac {

/// A symbol that an image may bind, by its name in the object file.
struct Export {
  std::string_view name;
  void* address;
};

/// A program finds these in libSystem and in the C++ runtime.
std::span<const Export> systemExports();
/// Only the frameworks find these: the functions of Frameworks/Below.h that need no machine.
std::span<const Export> supportExports();

}  // namespace tinmac
