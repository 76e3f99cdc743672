#pragma once

#include <expected>
#include <string>

namespace virtualmac {

/// The helper's program: that of this build, or with `tin` the Mac's own one, emulated. The error
/// says which file is missing and how it is built.
std::expected<std::string, std::string> helperProgram(bool tin);

}  // namespace virtualmac
