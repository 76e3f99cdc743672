#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "TinMac/Frameworks/Lock.h"
#import "TinMac/Frameworks/Runtime.h"

namespace tinmac {

namespace {

os_unfair_lock classesLock = OS_UNFAIR_LOCK_INIT;
ClassFinder elsewhere = nullptr;

struct Classes {
  std::map<std::string_view, ClassRecord*> byName;
  /// Metaclasses too.
  std::set<const ClassRecord*> all;
};

Classes& classes() {
  static auto& known = *new Classes;
  return known;
}

void know(ClassRecord* cls) {
  const Locked locked(classesLock);
  classes().all.insert(cls);
  classes().all.insert(cls->isa);
}

/// A class is compiled without knowing all of its superclass's variables. Nothing moves its own.
void expectRoomForSuperclass(const ClassRecord* cls) {
  const ClassFacts& facts = cls->facts();
  const bool hasVariables = facts.instanceSize > facts.instanceStart;
  if (hasVariables && cls->superclass != nullptr &&
      instanceSize(cls->superclass) > facts.instanceStart) {
    trap("a class's variables would have to be moved", className(cls));
  }
}

void addClasses(const TinImage& image) {
  const TinSection* section = sectionNamed(image, "__objc_classlist");
  if (section == nullptr) return;
  auto* const* list = static_cast<ClassRecord* const*>(section->address);
  for (std::size_t index = 0; index < section->size / sizeof(ClassRecord*); ++index) {
    ClassRecord* cls = list[index];
    know(cls);
    {
      const Locked locked(classesLock);
      if (!classes().byName.emplace(className(cls), cls).second) {
        trap("two classes of one name", className(cls));
      }
    }
    expectRoomForSuperclass(cls);
    addMethods(cls, cls->facts().methods);
    addMethods(cls->isa, cls->isa->facts().methods);
  }
}

void addCategories(const TinImage& image) {
  const TinSection* section = sectionNamed(image, "__objc_catlist");
  if (section == nullptr) return;
  auto* const* list = static_cast<CategoryRecord* const*>(section->address);
  for (std::size_t index = 0; index < section->size / sizeof(CategoryRecord*); ++index) {
    addMethods(list[index]->cls, list[index]->instanceMethods);
    addMethods(list[index]->cls->isa, list[index]->classMethods);
  }
}

/// A copy of a class's record under another name, without methods of its own.
ClassRecord* derivedRecord(const char* name, ClassRecord* superclass) {
  auto* facts = new ClassFacts(superclass->facts());
  facts->flags &= ~std::uint32_t{ClassFlagRoot | ClassFlagHasConstructors};
  facts->name = name;
  facts->methods = nullptr;
  facts->protocols = nullptr;
  return new ClassRecord{.isa = superclass->isa,
                         .superclass = superclass,
                         .cache = nullptr,
                         .table = nullptr,
                         .data = reinterpret_cast<std::uintptr_t>(facts)};
}

}  // namespace

const TinSection* sectionNamed(const TinImage& image, std::string_view name) {
  for (std::size_t index = 0; index < image.count; ++index) {
    if (image.sections[index].name == name) return &image.sections[index];
  }
  return nullptr;
}

bool isKnownClass(const ClassRecord* cls) {
  const Locked locked(classesLock);
  return classes().all.contains(cls);
}

ClassRecord* classNamed(std::string_view name) {
  const Locked locked(classesLock);
  const auto found = classes().byName.find(name);
  return found == classes().byName.end() ? nullptr : found->second;
}

const char* className(const ClassRecord* cls) { return cls->facts().name; }

std::size_t instanceSize(const ClassRecord* cls) {
  std::size_t size = 0;
  for (; cls != nullptr; cls = cls->superclass) {
    size = std::max<std::size_t>(size, cls->facts().instanceSize);
  }
  return size;
}

bool isBelow(const ClassRecord* cls, const ClassRecord* ancestor) {
  for (; cls != nullptr; cls = cls->superclass) {
    if (cls == ancestor) return true;
  }
  return false;
}

Class makeClass(const char* name, Class superclass, MethodFinder finder, void* context) {
  const char* kept = (new std::string(name))->c_str();
  ClassRecord* cls = derivedRecord(kept, record(superclass));
  cls->isa = derivedRecord(kept, record(superclass)->isa);
  setMethodFinder(cls, finder, context, false);
  setMethodFinder(cls->isa, finder, context, true);
  know(cls);
  return classFor(cls);
}

void setClassFinder(ClassFinder finder) { elsewhere = finder; }

}  // namespace tinmac

using namespace tinmac;

TIN_EXPORT void tinRegisterImage(const TinImage* image) {
  adoptMainThread();
  shareSelectors(*image);
  addClasses(*image);
  addCategories(*image);
  addProtocols(*image);
  forgetLookups();
}

TIN_EXPORT Class NSClassFromString(NSString* name) {
  if (name == nil) return Nil;
  const std::string wanted(utf8(name));
  if (ClassRecord* cls = classNamed(wanted)) return classFor(cls);
  return elsewhere == nullptr ? Nil : (Class)elsewhere(wanted.c_str());
}

TIN_EXPORT BOOL object_isClass(id object) {
  return object != nil && isKnownClass(reinterpret_cast<const ClassRecord*>(object));
}

TIN_EXPORT Class object_getClass(id object) {
  return object == nil ? Nil : classFor(classOf(object));
}

TIN_EXPORT Method class_getInstanceMethod(Class cls, SEL selector) {
  if (cls == Nil || selector == nullptr) return nullptr;
  if (!isKnownClass(record(cls))) trap("no class", "class_getInstanceMethod");
  return findMethod(record(cls), selector);
}

TIN_EXPORT Method class_getClassMethod(Class cls, SEL selector) {
  if (cls == Nil || selector == nullptr) return nullptr;
  if (!isKnownClass(record(cls))) trap("no class", "class_getClassMethod");
  return findMethod(record(cls)->isa, selector);
}

TIN_EXPORT IMP method_getImplementation(Method method) {
  return method == nullptr ? nullptr : method->implementation;
}

TIN_EXPORT SEL method_getName(Method method) {
  if (method == nullptr) trap("a null pointer", "method_getName");
  return method->name;
}
