#pragma once

#include <string>

/// The frameworks, and a library that was compiled as the Mac's own program is, in this process.
namespace tinmac::objects {

/// Why they cannot be had; empty: they are loaded.
const std::string& whyNotLoaded();

/// Runs a probe of the library. Returns the first thing that is wrong; empty: nothing is.
std::string probe(const char* name);
/// Calls a function of the library.
void call(const char* name);
/// tinSettleBooks().
void settle();

}  // namespace tinmac::objects
