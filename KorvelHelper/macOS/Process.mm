#include "Platform/Process.h"

#import <Foundation/Foundation.h>
#include <unistd.h>

#include <cstdlib>

#include "macOS/Adapters.h"
#import "macOS/FoundationConversion.h"
#include "macOS/PropertyConversion.h"

namespace korvel::macos {

namespace {

/// This process and its main bundle. For a bare tool the bundle's information is the property list
/// embedded in the program.
class SystemProcess final : public Process {
 public:
  std::int32_t getpid() override { return ::getpid(); }

  // Other threads may still be at work: nothing that they use is destroyed at exit.
  // NOLINTNEXTLINE(concurrency-mt-unsafe)
  [[noreturn]] void exit(int status) override { std::exit(status); }

  std::optional<std::string> bundleExecutablePath() override {
    @autoreleasepool {
      return utf8Text((__bridge CFStringRef)NSBundle.mainBundle.executablePath);
    }
  }

  PropertyValue bundleInfo(std::string_view key) override {
    @autoreleasepool {
      return propertyValue(
          (__bridge CFTypeRef)[NSBundle.mainBundle objectForInfoDictionaryKey:makeNSString(key)]);
    }
  }
};

}  // namespace

std::unique_ptr<Process> makeProcess() { return std::make_unique<SystemProcess>(); }

}  // namespace korvel::macos
