#pragma once

#include <vector>

#import "TinMac/Frameworks/Objects.h"

namespace tinmac {

/// All elements in one go: answers a loop over a container's elements as the compiler asks for
/// them.
inline NSUInteger enumerate(NSFastEnumerationState* state, const std::vector<id>& elements) {
  if (state->state != 0) return 0;
  state->state = 1;
  state->itemsPtr = const_cast<id __unsafe_unretained*>(elements.data());
  // A count that stays while the loop runs; the compiler compares it before each element.
  static unsigned long unchanged = 0;
  state->mutationsPtr = &unchanged;
  return elements.size();
}

inline bool isAmong(std::span<const id> elements, id object) {
  for (const id element : elements) {
    if ([element isEqual:object]) return true;
  }
  return false;
}

inline bool haveEqualElements(std::span<const id> some, std::span<const id> others) {
  if (some.size() != others.size()) return false;
  for (std::size_t index = 0; index < some.size(); ++index) {
    if (![some[index] isEqual:others[index]]) return false;
  }
  return true;
}

inline void releaseAll(const std::vector<id>& elements) {
  for (id element : elements) [element release];
}

}  // namespace tinmac
