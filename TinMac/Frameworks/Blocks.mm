#include <Block.h>

#include <cstdlib>
#include <cstring>
#include <string>

#import "TinMac/Frameworks/Runtime.h"

// The compiler names a block's class by where the block lies. The root class answers for all of
// them, so a block can be retained, released and put into a container as any object.
@interface TinStackBlock : NSObject
@end
@interface TinGlobalBlock : NSObject
@end
@interface NSMallocBlock : NSObject
@end

__asm__(".globl __NSConcreteStackBlock\n"
        ".set __NSConcreteStackBlock, _OBJC_CLASS_$_TinStackBlock\n"
        ".globl __NSConcreteGlobalBlock\n"
        ".set __NSConcreteGlobalBlock, _OBJC_CLASS_$_TinGlobalBlock\n");

@implementation TinStackBlock
- (id)copyWithZone:(NSZone*)zone {
  (void)zone;
  return static_cast<id>(tinmac::copyBlock(self));
}
@end
@implementation TinGlobalBlock
- (id)copyWithZone:(NSZone*)zone {
  (void)zone;
  return self;
}
@end
@implementation NSMallocBlock
- (id)copyWithZone:(NSZone*)zone {
  (void)zone;
  return tinmac::retain(self);
}
@end

extern "C" {
extern tinmac::ClassRecord tinStackBlock __asm("_OBJC_CLASS_$_TinStackBlock");
extern tinmac::ClassRecord tinGlobalBlock __asm("_OBJC_CLASS_$_TinGlobalBlock");
extern tinmac::ClassRecord tinMallocBlock __asm("_OBJC_CLASS_$_NSMallocBlock");
}

namespace tinmac {

namespace {

enum BlockFlag : std::uint32_t {
  ownersMask = 0xFFFE,
  needsFree = 1U << 24U,
  hasCopyDispose = 1U << 25U,
};
constexpr std::uint32_t oneOwner = 2;

struct Descriptor {
  std::uint64_t reserved;
  std::uint64_t size;
  void (*copy)(void* to, const void* from);
  void (*dispose)(const void* block);
};

struct Block {
  const ClassRecord* isa;
  std::uint32_t flags;
  std::uint32_t reserved;
  void (*invoke)(void*);
  const Descriptor* descriptor;
};

/// A variable that blocks share.
struct Shared {
  void* isa;
  Shared* forwarding;
  std::uint32_t flags;
  std::uint32_t size;
  void (*keep)(void* to, void* from);
  void (*destroy)(void* variable);
};

Shared* copyShared(Shared* variable) {
  Shared* current = variable->forwarding;
  if ((current->flags & needsFree) != 0) {
    __atomic_add_fetch(&current->flags, oneOwner, __ATOMIC_RELAXED);
    return current;
  }
  auto* copy = static_cast<Shared*>(std::malloc(current->size));
  std::memcpy(copy, current, current->size);
  // One owner is the new block, the other the frame that the variable came from.
  copy->flags = (current->flags & ~std::uint32_t{ownersMask}) | needsFree | (2 * oneOwner);
  copy->forwarding = copy;
  current->forwarding = copy;
  if ((copy->flags & hasCopyDispose) != 0) copy->keep(copy, current);
  return copy;
}

void releaseShared(Shared* variable) {
  Shared* current = variable->forwarding;
  if ((current->flags & needsFree) == 0) return;
  const std::uint32_t left = __atomic_sub_fetch(&current->flags, oneOwner, __ATOMIC_ACQ_REL);
  if ((left & ownersMask) != 0) return;
  if ((current->flags & hasCopyDispose) != 0) current->destroy(current);
  std::free(current);
}

}  // namespace

bool isBlock(id object) {
  const ClassRecord* cls = classOf(object);
  return cls == &tinMallocBlock || cls == &tinStackBlock || cls == &tinGlobalBlock;
}

void* copyBlock(const void* block) {
  if (block == nullptr) return nullptr;
  auto* original = static_cast<Block*>(const_cast<void*>(block));
  if (original->isa != &tinStackBlock) {
    if (!isBlock(static_cast<id>(static_cast<void*>(original)))) {
      trap("what is no block was copied as one", className(original->isa));
    }
    return retain(reinterpret_cast<id>(original));
  }
  auto* copy = static_cast<Block*>(allocateBlock(&tinMallocBlock, original->descriptor->size));
  std::memcpy(copy, original, original->descriptor->size);
  copy->isa = &tinMallocBlock;
  copy->flags = (original->flags & ~std::uint32_t{ownersMask}) | needsFree | oneOwner;
  if ((copy->flags & hasCopyDispose) != 0) copy->descriptor->copy(copy, original);
  return copy;
}

void disposeBlock(void* block) {
  auto* ended = static_cast<Block*>(block);
  if ((ended->flags & hasCopyDispose) != 0) ended->descriptor->dispose(ended);
}

}  // namespace tinmac

using namespace tinmac;

#define TIN_BLOCK_EXPORT __attribute__((visibility("default")))
extern "C" {

TIN_BLOCK_EXPORT void* _Block_copy(const void* block) { return copyBlock(block); }
TIN_BLOCK_EXPORT void _Block_release(const void* block) {
  release(static_cast<id>(const_cast<void*>(block)));
}
TIN_BLOCK_EXPORT id objc_retainBlock(id block) { return static_cast<id>(copyBlock(block)); }

// How a block holds one of its variables. The kinds are the compiler's.
enum HeldKind : int {
  heldObject = 3,
  heldBlock = 7,
  heldShared = 8,
  heldWeak = 16,
  fromShared = 128
};

TIN_BLOCK_EXPORT void _Block_object_assign(void* place, const void* object, const int kind) {
  void* held = const_cast<void*>(object);
  switch (kind) {
    case heldObject:
      held = retain(static_cast<id>(held));
      break;
    case heldBlock:
      held = copyBlock(object);
      break;
    case heldShared:
      held = copyShared(static_cast<Shared*>(held));
      break;
    case fromShared | heldObject:
    case fromShared | heldBlock:
      break;  // A shared variable does not own its object without automatic counting.
    default:
      trap("a block holds a variable of an unknown kind", std::to_string(kind));
  }
  *static_cast<void**>(place) = held;
}

TIN_BLOCK_EXPORT void _Block_object_dispose(const void* object, const int kind) {
  switch (kind) {
    case heldObject:
    case heldBlock:
      release(static_cast<id>(const_cast<void*>(object)));
      break;
    case heldShared:
      releaseShared(static_cast<Shared*>(const_cast<void*>(object)));
      break;
    case fromShared | heldObject:
    case fromShared | heldBlock:
      break;
    default:
      trap("a block holds a variable of an unknown kind", std::to_string(kind));
  }
}
}
