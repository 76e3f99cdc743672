#include <new>
#include <typeinfo>
#include <variant>
#include <vector>

#include "TinMac/System/ExportTables.h"

// The names are those of the object files. Other names stand for them here, since the compiler has
// its own declarations of some.
extern "C" {
#define TIN_CXX(symbol) extern char linked##symbol[] __asm__(#symbol);
#include "TinMac/System/CxxSymbols.def"
#undef TIN_CXX
}

namespace tinmac {

namespace {

// These have no body of their own in Linux's library; on a Mac they do.
void makeBadArrayNewLength(void* place) { new (place) std::bad_array_new_length; }
void makeBadAlloc(void* place) { new (place) std::bad_alloc; }

/// The start of a class's table of virtual functions: two words before the one an object points to.
template <class Class>
void* virtualTable() {
  static const Class sample;
  return static_cast<void*>(*reinterpret_cast<void** const*>(&sample) - 2);
}

void* typeOf(const std::type_info& type) { return const_cast<std::type_info*>(&type); }

}  // namespace

std::span<const Export> cxxRuntimeExports() {
  static const Export table[] = {
#define TIN_CXX(symbol) {"_" #symbol, linked##symbol},
#include "TinMac/System/CxxSymbols.def"
#undef TIN_CXX
      {"__ZNSt20bad_array_new_lengthC1Ev", code(makeBadArrayNewLength)},
      {"__ZNSt9bad_allocC1Ev", code(makeBadAlloc)},
      // Objective-C's exceptions travel as those of C++ do.
      {"___objc_personality_v0", linked__gxx_personality_v0},
      {"__ZTISt18bad_variant_access", typeOf(typeid(std::bad_variant_access))},
      {"__ZTVSt18bad_variant_access", virtualTable<std::bad_variant_access>()},
  };
  return table;
}

}  // namespace tinmac
