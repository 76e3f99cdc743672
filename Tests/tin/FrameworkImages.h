#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "TinMac/Loader/Image.h"
#include "TinMac/System/Trap.h"

namespace tinmac {

/// The frameworks, and a library that was compiled as the Mac's own program is, in this process.
class FrameworkImages {
 public:
  /// Finds a function of the machine by its name in the object file; null: it has none.
  using Machine = std::function<void*(std::string_view)>;

  /// Runs the initialisers of both when they can be loaded.
  FrameworkImages(const char* frameworksPath, const char* programPath, Machine machine);

  /// Why they cannot be had; empty: they are loaded.
  [[nodiscard]] const std::string& failure() const { return reason; }
  /// A function of the program's library.
  template <class Function>
  [[nodiscard]] Function* inProgram(const char* name) const {
    return function<Function>(*program, name);
  }
  template <class Function>
  [[nodiscard]] Function* inFrameworks(const char* name) const {
    return function<Function>(*frameworks, name);
  }

 private:
  template <class Function>
  static Function* function(const Image& image, const char* name) {
    void* found = image.symbol(std::string("_") + name);
    if (found == nullptr) {
      trap("an image lacks a function that a test calls", name);
    }
    return reinterpret_cast<Function*>(found);
  }
  std::unique_ptr<Image> load(const char* path, const Resolver& resolve);
  void announce(const Image& image) const;

  std::string reason;
  std::unique_ptr<Image> frameworks;
  std::unique_ptr<Image> program;
};

}  // namespace tinmac
