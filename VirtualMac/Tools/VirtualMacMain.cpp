#include "VirtualMac/Tools/MachineCommands.h"
#include "VirtualMac/Tools/RunCommand.h"
#include "VirtualMac/Tools/TimelineCommand.h"

int main(int argc, char** argv) {
  std::vector<virtualmac::AddCommand> more{virtualmac::addTimeline};
  // Where the scenarios' library does not exist, the program is built without the command.
#if defined(VIRTUALMAC_WITH_SCENARIOS)
  more.emplace_back(virtualmac::addRun);
#endif
  return virtualmac::runVirtualMac(argc, argv, more);
}
