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
  using namespace korvel::macos;
  korvel::Platform platform{
      .smc = immortal(makeSMCUserClient()),
      .registry = immortal(makeIORegistry()),
      .powerSources = immortal(makePowerSources()),
      .assertions = immortal(makePowerAssertions()),
      .powerSettings = immortal(makePowerSettings()),
      .rootDomain = immortal(makeRootPowerDomain()),
      .smartCharge = immortal(makeSmartChargeRuntime()),
      .files = immortal(makeFileSystem()),
      .dispatch = immortal(makeDispatch()),
      .clock = immortal(makeWallClock()),
      .log = immortal(makeUnifiedLog()),
      .codeSigning = immortal(makeCodeSigning()),
      .xpc = immortal(makeXPCService()),
      .process = immortal(makeProcess()),
  };
  return korvel::runHelper(platform);
}
