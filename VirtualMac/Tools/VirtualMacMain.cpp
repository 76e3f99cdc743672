#include "VirtualMac/Tools/BundleCommand.h"
#include "VirtualMac/Tools/CompletionCommand.h"
#include "VirtualMac/Tools/ExplainCommand.h"
#include "VirtualMac/Tools/MachineCommands.h"
#include "VirtualMac/Tools/ProfileCommand.h"
#include "VirtualMac/Tools/RecordCommand.h"
#include "VirtualMac/Tools/RunCommand.h"
#include "VirtualMac/Tools/SchemaCommand.h"
#include "VirtualMac/Tools/TimelineCommand.h"
#include "VirtualMac/Tools/TraceCommand.h"
#include "VirtualMac/Tools/Version.h"

int main(int argc, char** argv) {
  std::vector<virtualmac::AddCommand> more{virtualmac::addTimeline, virtualmac::addTrace,
                                           virtualmac::addExplain,  virtualmac::addProfile,
                                           virtualmac::addBundle,   virtualmac::addCompletion,
                                           virtualmac::addSchema};
  // The program is built without the command if the scenarios' library does not exist.
#if defined(VIRTUALMAC_WITH_SCENARIOS)
  more.emplace_back(virtualmac::addRecord);
  more.emplace_back(virtualmac::addRun);
#endif
  return virtualmac::runVirtualMac(argc, argv, virtualmac::builtCommit, more);
}
