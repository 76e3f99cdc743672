#pragma once

#include <cstddef>
#include <span>

#include "TinMac/Loader/Image.h"

namespace tinmac {

/// Registers with this process's unwinder what the image's tables say about its functions. `image`
/// is mapped and bound. `compact` may be null (no function can be unwound), `dwarf` may be null
/// unless a function needs it. Returns how many ranges were described. Throws Refused.
std::size_t registerUnwindTable(std::span<const std::byte> image, const ImageSection* compact,
                                const ImageSection* dwarf);

}  // namespace tinmac
