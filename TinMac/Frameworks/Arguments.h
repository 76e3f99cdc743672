#pragma once

#include <string>

#import "TinMac/Frameworks/Objects.h"

/// Arguments that only one value is built for. Each function traps, naming the caller, on another.
namespace tinmac {

inline void expectDefaultAllocator(CFAllocatorRef allocator, const char* function) {
  if (allocator != nullptr) trap("only the default allocator is built", function);
}

template <class Number>
void expectNumber(Number given, Number built, const char* function) {
  if (given != built) {
    trap("this value of an argument is not built",
         std::string(function) + ": " + std::to_string(given));
  }
}

inline void expectPlace(const void* outParameter, const char* function) {
  if (outParameter == nullptr) trap("an out-parameter has no place to go", function);
}

inline std::string textArgument(CFStringRef text, const char* function) {
  expectKind((id)text, [NSString class], function);
  return std::string(utf8((NSString*)text));
}

}  // namespace tinmac
