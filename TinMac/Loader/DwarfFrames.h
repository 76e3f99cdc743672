#pragma once

#include <cstdint>

#include "TinMac/Loader/Bytes.h"
#include "TinMac/Loader/FrameDescriptions.h"

namespace tinmac {

/// Reads the description at `offset` of the image's own DWARF section `frames`, which is mapped and
/// whose pointers are fixed up. `image` is the whole mapped image, `start` the function that the
/// description must be of. Throws Refused for what it does not know.
FrameRules readDwarfFrame(const Bytes& frames, const Bytes& image, std::uint64_t offset,
                          std::uint64_t start);

}  // namespace tinmac
