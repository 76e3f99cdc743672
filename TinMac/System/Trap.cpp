#include "TinMac/System/Trap.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <sstream>

#include "TinMac/System/Books.h"

namespace tinmac {

void trap(std::string_view rule, std::string_view detail) {
  static std::atomic_flag begun = ATOMIC_FLAG_INIT;
  std::ostringstream line;
  line << "tin-mac: " << rule << ": " << detail << '\n';
  std::cerr << line.str() << std::flush;
  // Writing the books can itself meet a trap; the first one is the one to keep.
  if (!begun.test_and_set()) {
    noteTrap(rule, detail);
    writeBooks("trap");
  }
  // The program may listen to this signal; a Mac's program dies of it all the same.
  std::signal(SIGABRT, SIG_DFL);
  std::abort();
}

}  // namespace tinmac
