#include <atomic>
#include <cstdlib>
#include <new>
#include <utility>

#include "TinMac/Frameworks/Lock.h"
#import "TinMac/Frameworks/Runtime.h"
#import "TinMac/Frameworks/Weak.h"

/// The class of every object that was freed. A message to one is told from a message to the living.
__attribute__((objc_root_class))
@interface TinFreed {
  Class isa;
}
@end
@implementation TinFreed
@end
extern "C" tinmac::ClassRecord tinFreedClass __asm("_OBJC_CLASS_$_TinFreed");

namespace tinmac {

namespace {

enum Life : std::uint64_t {
  alive = 0x54696E416C697665,
  dying = 0x54696E4479696E67,
  freed = 0x54696E4672656564,
};

/// Stands before each object on the heap.
struct Header {
  std::atomic<std::uint64_t> life;
  std::atomic<std::int64_t> owners;
  ClassRecord* cls;
  std::uint64_t unused;  // An object stands at a multiple of 16.
};
static_assert(sizeof(Header) % 16 == 0);

Header& headerOf(const void* object) { return static_cast<Header*>(const_cast<void*>(object))[-1]; }

/// Freed objects keep their memory for a while, so that a use after the end is seen.
class Graves {
 public:
  void bury(void* memory) {
    void* oldest = nullptr;
    {
      const Locked locked(lock);
      oldest = std::exchange(places[next], memory);
      next = (next + 1) % capacity;
    }
    std::free(oldest);
  }

 private:
  static constexpr std::size_t capacity = 8192;
  os_unfair_lock lock = OS_UNFAIR_LOCK_INIT;
  std::size_t next = 0;
  void* places[capacity] = {};
};
constinit Graves graves;

void* allocateWithHeader(ClassRecord* cls, std::size_t size) {
  auto* memory = static_cast<std::byte*>(std::calloc(1, sizeof(Header) + size));
  auto* header = new (memory) Header{alive, 1, cls, 0};
  tinBooksCount(className(cls), 1);
  return header + 1;
}

void callConstructors(id object, ClassRecord* cls) {
  if (cls == nullptr) return;
  callConstructors(object, cls->superclass);
  static const SEL selector = selectorNamed(".cxx_construct");
  if (Method method = findOwnMethod(cls, selector)) {
    reinterpret_cast<void (*)(id, SEL)>(method->implementation)(object, selector);
  }
}

void callDestructors(id object, ClassRecord* cls) {
  static const SEL selector = selectorNamed(".cxx_destruct");
  for (; cls != nullptr; cls = cls->superclass) {
    Method method = findOwnMethod(cls, selector);
    if (method != nullptr) {
      reinterpret_cast<void (*)(id, SEL)>(method->implementation)(object, selector);
    }
  }
}

void bury(id object) {
  Header& header = headerOf(object);
  header.life = freed;
  tinBooksCount(className(header.cls), -1);
  *reinterpret_cast<ClassRecord**>(object) = &tinFreedClass;
  graves.bury(&header);
}

/// Null: nobody counts the object's owners. Traps when it is not alive.
Header* countedHeader(id object, const char* action) {
  Header& header = headerOf(object);
  if (header.life == alive || header.life == dying) return &header;
  if (ClassRecord* former = classBeforeFree(object)) trap(action, className(former));
  if (!hasNoOwners(object)) trap("what is no object is owned", action);
  return nullptr;
}

void end(id object, Header& header) {
  header.life = dying;
  emptyWeakPlaces(object);
  if (isBlock(object)) {
    disposeBlock(object);
    bury(object);
    return;
  }
  [object dealloc];
}

}  // namespace

id allocate(ClassRecord* cls) {
  id object = static_cast<id>(allocateWithHeader(cls, instanceSize(cls)));
  *reinterpret_cast<ClassRecord**>(object) = cls;
  callConstructors(object, cls);
  return object;
}

void* allocateBlock(ClassRecord* cls, std::size_t size) { return allocateWithHeader(cls, size); }

id retain(id object) {
  if (object == nil) return nil;
  if (Header* header = countedHeader(object, "an object was retained after it was freed")) {
    ++header->owners;
  }
  return object;
}

void release(id object) {
  if (object == nil) return;
  Header* header = countedHeader(object, "an object was released after it was freed");
  if (header == nullptr) return;
  const std::int64_t left = --header->owners;
  if (left < 0) trap("an object was released more often than it was owned", className(header->cls));
  if (left == 0 && header->life == alive) end(object, *header);
}

bool retainIfOwned(id object) {
  Header* header = countedHeader(object, "a weak place refers to an object that was freed");
  if (header == nullptr) return true;
  std::int64_t owners = header->owners;
  while (owners > 0) {
    if (header->owners.compare_exchange_weak(owners, owners + 1)) return true;
  }
  return false;
}

void destroy(id object) {
  Header& header = headerOf(object);
  if (header.life != dying)
    trap("dealloc was called on an object with owners", className(header.cls));
  callDestructors(object, header.cls);
  bury(object);
}

std::int64_t ownersOf(id object) {
  const Header* header = countedHeader(object, "an object was asked after it was freed");
  return header == nullptr ? INT64_MAX : header->owners.load();
}

ClassRecord* classBeforeFree(id object) {
  return classOf(object) == &tinFreedClass ? headerOf(object).cls : nullptr;
}

}  // namespace tinmac

using namespace tinmac;

TIN_EXPORT id objc_alloc(Class cls) { return [cls alloc]; }
/// In two statements: the compiler makes one a call of this very function.
TIN_EXPORT id objc_alloc_init(Class cls) {
  id object = [cls alloc];
  return [object init];
}
TIN_EXPORT id objc_retain(id object) { return tinmac::retain(object); }
TIN_EXPORT void objc_release(id object) { tinmac::release(object); }

TIN_EXPORT void objc_storeStrong(id* place, id object) {
  id before = *place;
  *place = tinmac::retain(object);
  tinmac::release(before);
}
