#include "Tests/PlatformWith.h"
#include "Tests/files/FilesBelow.h"
#include "Tests/seam/contract/SeamContract.h"
#include "VirtualMac/InProcess/World.h"

namespace virtualmac {
namespace {

/// A bare process on the virtual Mac whose files are real.
class RealFilesRig final : public SeamRig {
 public:
  korvel::Platform& platform() override { return mixed; }
  void onMain(std::function<void()> body) override { world.onMain(std::move(body)); }
  void pass(double seconds) override { world.runFor(seconds); }
  bool until(const std::function<bool()>& reached, double limitSeconds) override {
    return world.runUntil(reached, limitSeconds);
  }
  void machine(const std::function<void(Machine&)>& body) override { body(world.machine()); }
  std::unique_ptr<RigClient> connect(std::string_view) override { return nullptr; }
  void signal(int number) override { world.sendSignal(number); }
  bool logged(std::string_view category, korvel::LogLevel level, std::string_view text) override {
    return world.logged(category, level, text);
  }

 private:
  korvel::Platform withRealFiles() {
    world.startBareHelper();
    world.runUntilIdle();
    return korvel::test::with(world.platform(), files);
  }

  World world{WorldOptions{}};
  FilesBelow files;
  korvel::Platform mixed = withRealFiles();
};

RigKind realFiles() {
  return {"RealFiles", [](const std::string&) { return std::make_unique<RealFilesRig>(); }};
}

INSTANTIATE_SEAM_CONTRACT(Mac, FileSystemContract, testing::Values(realFiles()));

}  // namespace

// The contracts of the other adapters run on a Mac only.
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(SMCUserClientContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(IORegistryContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(PowerSourcesContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(PowerAssertionsContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(PowerSettingsContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(RootPowerDomainContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(SmartChargeRuntimeContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(DispatchContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(WallClockContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(UnifiedLogContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(CodeSigningContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(XPCContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(ProcessContract);

}  // namespace virtualmac
