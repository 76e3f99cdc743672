#include <gtest/gtest.h>

#include "Tests/macos/MacRig.h"

namespace virtualmac {
namespace {

RigKind adaptersOfThisMac() {
  return {"Adapters", [](const std::string&) { return std::make_unique<MacRig>(); }};
}

INSTANTIATE_SEAM_CONTRACT(Mac, DispatchContract, testing::Values(adaptersOfThisMac()));

}  // namespace

// FileAdapterContractTest runs this contract, on real files of any system.
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(FileSystemContract);
// These contracts arrange the hardware, connect clients or read the log, which a test cannot do on
// a real Mac. SystemTest, ExportedObjectTest and SmartChargeRuntimeTest cover those adapters.
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(SMCUserClientContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(IORegistryContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(PowerSourcesContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(PowerAssertionsContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(PowerSettingsContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(RootPowerDomainContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(SmartChargeRuntimeContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(WallClockContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(UnifiedLogContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(CodeSigningContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(XPCContract);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(ProcessContract);

}  // namespace virtualmac
