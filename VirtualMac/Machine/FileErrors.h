#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "Base/ErrorObject.h"

namespace virtualmac {

// The errors of reading and replacing files, on the disk in memory and on a real one.

/// A larger file is not read.
inline constexpr std::size_t largestReadableFile = std::size_t{16} << 20U;

/// Codes of the file manager's error domain.
inline constexpr std::int64_t noSuchFileError = 4;
inline constexpr std::int64_t readUnknownError = 256;
inline constexpr std::int64_t readNoSuchFileError = 260;
inline constexpr std::int64_t readTooLargeError = 263;
inline constexpr std::int64_t writeUnknownError = 512;

inline korvel::ErrorObject cocoaError(std::int64_t code, std::string text) {
  return {"NSCocoaErrorDomain", code, {{korvel::localizedDescriptionKey, std::move(text)}}};
}

}  // namespace virtualmac
