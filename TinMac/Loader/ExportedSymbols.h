#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>

#include "TinMac/Loader/Bytes.h"
#include "TinMac/Loader/Layout.h"

namespace tinmac {

using ExportedSymbols = std::map<std::string, void*, std::less<>>;

/// The symbols that the image offers to others, by name: those of its exports trie, which is what a
/// Mac goes by, or, without one, the external ones of its symbol table. Throws Refused for a kind
/// of export that is not an address in the image.
ExportedSymbols readExportedSymbols(const Bytes& file, const Layout& layout, std::byte* header);

}  // namespace tinmac
