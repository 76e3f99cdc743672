#include <map>
#include <string>
#include <string_view>

#include "TinMac/Frameworks/Lock.h"
#import "TinMac/Frameworks/Runtime.h"

namespace tinmac {

namespace {

os_unfair_lock selectorsLock = OS_UNFAIR_LOCK_INIT;

/// Needed before any initialiser ran, and by threads that outlive exit().
std::map<std::string_view, const char*>& selectors() {
  static auto& names = *new std::map<std::string_view, const char*>;
  return names;
}

/// `stays`: the name stands in an image, which is never unloaded.
SEL shared(const char* name, bool stays) {
  const Locked locked(selectorsLock);
  const auto found = selectors().find(name);
  if (found != selectors().end()) return reinterpret_cast<SEL>(const_cast<char*>(found->second));
  const char* kept = stays ? name : (new std::string(name))->c_str();
  selectors().emplace(kept, kept);
  return reinterpret_cast<SEL>(const_cast<char*>(kept));
}

}  // namespace

SEL selectorNamed(const char* name) { return shared(name, false); }

void shareSelectors(const TinImage& image) {
  const TinSection* section = sectionNamed(image, "__objc_selrefs");
  if (section == nullptr) return;
  auto* references = static_cast<SEL*>(section->address);
  for (std::size_t index = 0; index < section->size / sizeof(SEL); ++index) {
    references[index] = shared(nameOf(references[index]), true);
  }
}

}  // namespace tinmac

using tinmac::trap;

TIN_EXPORT SEL sel_registerName(const char* name) {
  if (name == nullptr) trap("a null pointer", "sel_registerName");
  return tinmac::selectorNamed(name);
}

TIN_EXPORT SEL NSSelectorFromString(NSString* name) {
  if (name == nil) return nullptr;
  return tinmac::selectorNamed(std::string(tinmac::utf8(name)).c_str());
}
