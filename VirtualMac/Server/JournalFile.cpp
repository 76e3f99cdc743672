#include "VirtualMac/Server/JournalFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace virtualmac {

JournalFile::~JournalFile() {
  if (descriptor >= 0) ::close(descriptor);
}

bool JournalFile::open(const std::string& path) {
  descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
  return descriptor >= 0;
}

void JournalFile::append(std::string line) {
  line += '\n';
  for (std::string_view rest = line; descriptor >= 0 && !rest.empty();) {
    const ssize_t step = ::write(descriptor, rest.data(), rest.size());
    if (step < 0 && errno == EINTR) continue;
    if (step <= 0) return;
    rest.remove_prefix(static_cast<std::size_t>(step));
    written += static_cast<std::uint64_t>(step);
  }
}

}  // namespace virtualmac
