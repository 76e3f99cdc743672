#include "VirtualMac/Tools/HelperProgram.h"

#include <filesystem>

#include "VirtualMac/Server/ProgramBeside.h"

namespace virtualmac {

std::expected<std::string, std::string> helperProgram(bool tin) {
  if (!tin) return programBeside("KorvelHelper");
  std::string program = programBeside("../../tin/bin/KorvelHelper");
  if (std::filesystem::exists(program)) return program;
  return std::unexpected(
      "the Mac's own program is not ready to be run here; script/tin-mac builds "
      "what it needs (there is no " +
      program + ")");
}

}  // namespace virtualmac
