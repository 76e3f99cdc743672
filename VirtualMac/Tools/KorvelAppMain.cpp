#include "VirtualMac/Tools/AppCommands.h"
#include "VirtualMac/Tools/Version.h"

int main(int argc, char** argv) {
  return virtualmac::runKorvelApp(argc, argv, virtualmac::builtCommit);
}
