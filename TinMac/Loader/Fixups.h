#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "TinMac/Loader/Bytes.h"
#include "TinMac/Loader/Layout.h"

namespace tinmac {

/// A symbol that an image wants from elsewhere.
struct Import {
  std::string name;
  /// From where it is wanted: a library's path, or words for the special places.
  std::string library;
  /// Null is a valid address for it.
  bool weak = false;
  /// The image's own definition, if it has one, comes first.
  bool ownFirst = false;
};

/// The imports in the order in which the fixups number them. Throws Refused for another format.
std::vector<Import> readImports(const Bytes& fixups, const std::vector<std::string>& libraries);

/// Walks every chain and replaces each link by its pointer: an address of this image or one of
/// `targets` (one for each import) with what the link adds. `header` is the mapped image's first
/// byte; all its segments must be writable. Throws Refused for another format, a link outside of
/// its page or a number without an import.
void applyFixups(const Bytes& fixups, const Layout& layout, std::byte* header,
                 const std::vector<std::uint64_t>& targets);

}  // namespace tinmac
