#include "TinMac/Frameworks/PortRights.h"

#include <cstdio>
#include <map>
#include <string>

#include "TinMac/Frameworks/Lock.h"
#import "TinMac/Frameworks/Objects.h"

namespace tinmac {

namespace {

/// The rights to one kind of port.
class Rights {
 public:
  explicit Rights(const char* bookName) : book(bookName) {}

  void hold(mach_port_t name) {
    const Locked locked(lock);
    ++counts[name];
    tinBooksCount(book, 1);
  }
  /// False: there was none.
  bool drop(mach_port_t name) {
    const Locked locked(lock);
    const auto found = counts.find(name);
    if (found == counts.end()) return false;
    if (--found->second == 0) counts.erase(found);
    tinBooksCount(book, -1);
    return true;
  }
  bool holds(mach_port_t name) {
    const Locked locked(lock);
    return counts.contains(name);
  }

 private:
  const char* book;
  os_unfair_lock lock = OS_UNFAIR_LOCK_INIT;
  std::map<mach_port_t, unsigned> counts;
};

Rights& objects() {
  static Rights& rights = *new Rights("io_object");
  return rights;
}

Rights& connections() {
  static Rights& rights = *new Rights("io_connect");
  return rights;
}

std::string describe(const char* function, mach_port_t name) {
  char text[96];
  std::snprintf(text, sizeof text, "%s(%u)", function, name);
  return text;
}

}  // namespace

io_object_t holdObject(io_object_t name) {
  if (name != IO_OBJECT_NULL) objects().hold(name);
  return name;
}

void dropObject(io_object_t name, const char* function) {
  if (!objects().drop(name)) {
    trap("an I/O object is released that the program does not hold", describe(function, name));
  }
}

void expectObject(io_object_t name, const char* function) {
  if (!objects().holds(name)) {
    tinBooksNote("a call names an I/O object that the program does not hold",
                 describe(function, name).c_str());
  }
}

void holdConnection(io_connect_t name) {
  if (name != IO_OBJECT_NULL) connections().hold(name);
}

void dropConnection(io_connect_t name, const char* function) {
  if (!connections().drop(name)) {
    trap("an I/O connection is closed that is not open", describe(function, name));
  }
}

void expectConnection(io_connect_t name, const char* function) {
  if (!connections().holds(name)) {
    tinBooksNote("a call names an I/O connection that is not open",
                 describe(function, name).c_str());
  }
}

}  // namespace tinmac
