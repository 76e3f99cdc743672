#include "VirtualMac/Tools/MachineCommands.h"

int main(int argc, char** argv) { return virtualmac::runVirtualMac(argc, argv); }
