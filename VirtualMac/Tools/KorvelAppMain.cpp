#include "VirtualMac/Tools/AppCommands.h"

int main(int argc, char** argv) { return virtualmac::runKorvelApp(argc, argv); }
