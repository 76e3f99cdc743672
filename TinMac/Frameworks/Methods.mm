#include <array>
#include <atomic>
#include <map>
#include <string>
#include <utility>

#include "TinMac/Frameworks/Lock.h"
#import "TinMac/Frameworks/Runtime.h"

namespace tinmac {

namespace {

/// One class's own methods. A metaclass has a table of its own.
struct MethodTable {
  std::map<SEL, objc_method> methods;
  MethodFinder finder = nullptr;
  void* context = nullptr;
  bool ofClass = false;
  /// The methods that the finder gave; a Method that the program holds stays valid.
  std::map<std::pair<SEL, IMP>, objc_method> found;
};

/// A look-up that was made before. Never changed once it can be seen, and never freed.
struct Lookup {
  ClassRecord* cls;
  SEL selector;
  Method method;
};

os_unfair_lock methodsLock = OS_UNFAIR_LOCK_INIT;
constexpr std::size_t cacheSize = 1024;
std::array<std::atomic<const Lookup*>, cacheSize> cache;

std::map<const ClassRecord*, MethodTable>& tables() {
  static auto& all = *new std::map<const ClassRecord*, MethodTable>;
  return all;
}

/// Every look-up once, so that the cache's slots may change hands as often as they like.
using Lookups = std::map<std::pair<ClassRecord*, SEL>, Lookup>;
Lookups* lookups = nullptr;

std::atomic<const Lookup*>& slotFor(const ClassRecord* cls, SEL selector) {
  const auto mixed =
      (reinterpret_cast<std::uintptr_t>(cls) >> 3U) ^ reinterpret_cast<std::uintptr_t>(selector);
  return cache[(mixed ^ (mixed >> 10U)) % cacheSize];
}

Method methodFromFinder(MethodTable& table, SEL selector) {
  const IMP implementation = table.finder(table.context, selector, table.ofClass);
  if (implementation == nullptr) return nullptr;
  const Locked locked(methodsLock);
  const auto [place, isNew] =
      table.found.try_emplace({selector, implementation}, selector, "", implementation);
  return &place->second;
}

/// The table is never removed, so it outlives the lock. Null: the class has none.
MethodTable* tableOf(const ClassRecord* cls) {
  const Locked locked(methodsLock);
  const auto found = tables().find(cls);
  return found == tables().end() ? nullptr : &found->second;
}

Method ownMethod(MethodTable& table, SEL selector) {
  if (table.finder != nullptr) return methodFromFinder(table, selector);
  const Locked locked(methodsLock);
  const auto found = table.methods.find(selector);
  return found == table.methods.end() ? nullptr : &found->second;
}

void remember(ClassRecord* cls, SEL selector, Method method) {
  const Locked locked(methodsLock);
  const auto [place, isNew] = lookups->try_emplace({cls, selector}, cls, selector, method);
  slotFor(cls, selector).store(&place->second, std::memory_order_release);
}

}  // namespace

void addMethods(ClassRecord* cls, const MethodListRecord* list) {
  for (std::size_t index = 0; index < methodCount(list); ++index) {
    const MethodFacts facts = methodAt(list, index);
    const SEL selector = selectorNamed(facts.name);
    const Locked locked(methodsLock);
    tables()[cls].methods[selector] = {selector, facts.types, facts.implementation};
  }
}

void forgetLookups() {
  const Locked locked(methodsLock);
  for (auto& slot : cache) slot.store(nullptr, std::memory_order_release);
  lookups = new Lookups;  // A thread may still read one of the old ones.
}

void setMethodFinder(ClassRecord* cls, MethodFinder finder, void* context, bool ofClass) {
  const Locked locked(methodsLock);
  MethodTable& table = tables()[cls];
  table.finder = finder;
  table.context = context;
  table.ofClass = ofClass;
}

Method findOwnMethod(ClassRecord* cls, SEL selector) {
  MethodTable* table = tableOf(cls);
  return table == nullptr ? nullptr : ownMethod(*table, selector);
}

Method findMethod(ClassRecord* cls, SEL selector) {
  const Lookup* known = slotFor(cls, selector).load(std::memory_order_acquire);
  if (known != nullptr && known->cls == cls && known->selector == selector) return known->method;
  if (!isKnownClass(cls)) trap("a message to what is no object", nameOf(selector));
  bool mayBeKept = true;
  for (ClassRecord* searched = cls; searched != nullptr; searched = searched->superclass) {
    MethodTable* table = tableOf(searched);
    if (table == nullptr) continue;
    mayBeKept = mayBeKept && table->finder == nullptr;
    if (Method method = ownMethod(*table, selector)) {
      if (mayBeKept) remember(cls, selector, method);
      return method;
    }
  }
  return nullptr;
}

}  // namespace tinmac

namespace {

using namespace tinmac;

IMP found(ClassRecord* cls, SEL selector) {
  if (Method method = findMethod(cls, selector)) return method->implementation;
  const std::string called =
      std::string(cls->isMeta() ? "+[" : "-[") + className(cls) + " " + nameOf(selector) + "]";
  trap("a message that its receiver does not understand", called);
}

}  // namespace

/// Called by objc_msgSend with its own first arguments.
TIN_EXPORT IMP tinMessageLookup(id receiver, SEL selector) {
  ClassRecord* cls = classOf(receiver);
  if (const ClassRecord* former = classBeforeFree(receiver)) {
    trap("a message to an object that was freed",
         std::string(className(former)) + " " + nameOf(selector));
  }
  return found(cls, selector);
}

/// Called by objc_msgSendSuper2.
TIN_EXPORT IMP tinSuperLookup(const objc_super* call, SEL selector) {
  return found(record(call->super_class)->superclass, selector);
}
