#pragma once

#include "TinMac/Frameworks/Above.h"
#import "TinMac/Frameworks/Metadata.h"
#import "TinMac/Frameworks/Objects.h"
#import "TinMac/Frameworks/Protocols.h"

/// A method as the program holds it in a Method.
struct objc_method {
  SEL name;
  const char* types;
  IMP implementation;
};

/// The parts of the runtime ask this of each other. Any thread.
namespace tinmac {

// --- Selectors

SEL selectorNamed(const char* name);
inline const char* nameOf(SEL selector) { return reinterpret_cast<const char*>(selector); }
/// Lets all images share one selector for a name.
void shareSelectors(const TinImage& image);

/// Finds what objc_msgSend calls; traps when the receiver does not understand.
extern "C" IMP tinMessageLookup(id receiver, SEL selector);

// --- Methods

/// Makes the class's own methods, and its metaclass's, known; a later method of a name takes an
/// earlier one's place.
void addMethods(ClassRecord* cls, const MethodListRecord* list);
/// Look-ups made until now may be wrong.
void forgetLookups();
/// Searched in the class and those above it; null: none.
Method findMethod(ClassRecord* cls, SEL selector);
/// The class's own, nobody above it is asked.
Method findOwnMethod(ClassRecord* cls, SEL selector);
void setMethodFinder(ClassRecord* cls, MethodFinder finder, void* context, bool ofClass);

// --- Classes and protocols

bool isKnownClass(const ClassRecord* cls);
/// Null: no image has it.
ClassRecord* classNamed(std::string_view name);
const char* className(const ClassRecord* cls);
/// In bytes, with what the classes above it need.
std::size_t instanceSize(const ClassRecord* cls);
bool isBelow(const ClassRecord* cls, const ClassRecord* ancestor);
void addProtocols(const TinImage& image);
bool conforms(const ProtocolListRecord* list, const ProtocolRecord* protocol);
const TinSection* sectionNamed(const TinImage& image, std::string_view name);

// --- Objects and their counts

id allocate(ClassRecord* cls);
/// Memory of a block, counted in the books as an object of the class and not yet filled.
void* allocateBlock(ClassRecord* cls, std::size_t size);
id retain(id object);
void release(id object);
/// The end of every dealloc.
void destroy(id object);
/// A class, a constant, a block that is not on the heap: it is never freed.
bool hasNoOwners(id object);
/// One of the two empty containers that stand in the image.
bool isSharedEmpty(const void* object);
/// The largest number for what has no owners.
std::int64_t ownersOf(id object);
/// The class that an object had before it was freed; null: this object was not freed.
ClassRecord* classBeforeFree(id object);

bool isBlock(id object);
void disposeBlock(void* block);
void* copyBlock(const void* block);

// --- Pools

void autorelease(id object);
/// The main thread's pools are the ones of the thread that calls this.
void adoptMainThread();
void settle();

}  // namespace tinmac
