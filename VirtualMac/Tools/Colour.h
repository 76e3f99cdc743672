#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace virtualmac {

/// How bad the thing is that a text tells. The text says it too: nothing is told by a colour alone.
enum class Tone : std::uint8_t { Plain, Warning, Error, Fault };

/// Colours a text if `stream` is a terminal that shows colours. `NO_COLOR` that is not empty and
/// `TERM=dumb` keep every colour away.
std::string toned(Tone tone, std::string_view text, std::FILE* stream);

}  // namespace virtualmac
