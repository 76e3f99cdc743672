#include "Tests/files/FilesBelow.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "macOS/Adapters.h"

namespace virtualmac {

FilesBelow::FilesBelow()
    : files(korvel::macos::makeFileSystem()),
      root(std::filesystem::temp_directory_path() / "korvel-files-XXXXXX") {
  if (::mkdtemp(root.data()) == nullptr) std::abort();
}

FilesBelow::~FilesBelow() { std::filesystem::remove_all(root); }

}  // namespace virtualmac
