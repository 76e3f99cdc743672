#include "VirtualMac/Tools/RootDirectory.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace virtualmac {

RootDirectory RootDirectory::at(const std::string& given) {
  std::filesystem::path path(given);
  if (given.empty()) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    path = runtime != nullptr && *runtime != '\0'
               ? std::filesystem::path(runtime) / "virtual-mac"
               : std::filesystem::path("/tmp/virtual-mac-" + std::to_string(::getuid()));
  }
  path = std::filesystem::absolute(path).lexically_normal();
  if (!path.has_filename()) path = path.parent_path();
  return {path.string()};
}

}  // namespace virtualmac
