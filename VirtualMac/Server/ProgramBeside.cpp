#include "VirtualMac/Server/ProgramBeside.h"

#include <filesystem>

#include "VirtualMac/Remote/HostSystem.h"

namespace virtualmac {

std::string programBeside(const char* name) {
  const std::filesystem::path self = hostsystem::ownProgram();
  return self.empty() ? name : (self.parent_path() / name).string();
}

}  // namespace virtualmac
