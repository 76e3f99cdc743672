#include "HelperEntry.h"
#include "macOS/Adapters.h"

namespace {

/// Gives an adapter for the rest of the process's life. Queues and XPC threads may still be at work
/// when the process exits, so nothing they use is ever destroyed.
template <class Adapter>
Adapter& immortal(std::unique_ptr<Adapter> adapter) {
  return *adapter.release();
}

}  // namespace

int main() {
  namespace macos = korvel::macos;
  korvel::Platform platform{
      .smc = immortal(macos::makeSMCUserClient()),
      .registry = immortal(macos::makeIORegistry()),
      .powerSources = immortal(macos::makePowerSources()),
      .assertions = immortal(macos::makePowerAssertions()),
      .powerSettings = immortal(macos::makePowerSettings()),
      .rootDomain = immortal(macos::makeRootPowerDomain()),
      .smartCharge = immortal(macos::makeSmartChargeRuntime()),
      .files = immortal(macos::makeFileSystem()),
      .dispatch = immortal(macos::makeDispatch()),
      .clock = immortal(macos::makeWallClock()),
      .log = immortal(macos::makeUnifiedLog()),
      .codeSigning = immortal(macos::makeCodeSigning()),
      .xpc = immortal(macos::makeXPCService()),
      .process = immortal(macos::makeProcess()),
  };
  return korvel::runHelper(platform);
}
