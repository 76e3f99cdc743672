#include "Platform/SMCUserClient.h"

#include <IOKit/IOKitLib.h>

#include <bit>
#include <type_traits>

#include "macOS/Adapters.h"

namespace korvel::macos {

namespace {

static_assert(std::is_same_v<kern_return_t, KernReturn>);
static_assert(std::is_same_v<io_object_t, ObjectRef>);
static_assert(std::is_same_v<io_connect_t, ConnectionRef>);
static_assert(kIOReturnSuccess == kernSuccess);
static_assert(kIOReturnError == ioReturnError);
static_assert(kIOReturnNoDevice == ioReturnNoDevice);
static_assert(kIOReturnNotPrivileged == ioReturnNotPrivileged);
static_assert(kIOReturnBadArgument == ioReturnBadArgument);
static_assert(kIOReturnNotOpen == ioReturnNotOpen);

// The block as this platform's own compiler lays it out, to prove the offsets at which the core
// places its bytes. The key-info record's fields stand here one by one, because a record of its own
// would be rounded up to twelve bytes and move everything behind it.
struct DeclaredBlock {
  std::uint32_t key;
  struct Version {
    std::uint8_t major, minor, build, reserved;
    std::uint16_t release;
  } vers;
  struct PowerLimit {
    std::uint16_t version, length;
    std::uint32_t cpu, gpu, memory;
  } pLimitData;
  std::uint32_t dataSize, dataType;
  std::uint8_t dataAttributes;
  std::uint16_t padding;
  std::uint8_t result, status, data8;
  std::uint32_t data32;
  std::uint8_t bytes[32];
};
static_assert(sizeof(DeclaredBlock) == smcBlockSize);
static_assert(offsetof(DeclaredBlock, vers) == 4);
static_assert(offsetof(DeclaredBlock, pLimitData) == 12);
static_assert(offsetof(DeclaredBlock, dataSize) == 28);
static_assert(offsetof(DeclaredBlock, dataType) == 32);
static_assert(offsetof(DeclaredBlock, dataAttributes) == 36);
static_assert(offsetof(DeclaredBlock, padding) == 38);
static_assert(offsetof(DeclaredBlock, result) == 40);
static_assert(offsetof(DeclaredBlock, status) == 41);
static_assert(offsetof(DeclaredBlock, data8) == 42);
static_assert(offsetof(DeclaredBlock, data32) == 44);
static_assert(offsetof(DeclaredBlock, bytes) == 48);
static_assert(std::endian::native == std::endian::little);

constexpr std::uint32_t structMethodSelector = 2;

/// AppleSMC through IOKit. Everything is a Mach port right held by the caller; nothing is kept
/// here.
class AppleSMCUserClient final : public SMCUserClient {
 public:
  ObjectRef matchAppleSMC() override {
    return IOServiceGetMatchingService(kIOMainPortDefault, IOServiceMatching("AppleSMC"));
  }

  KernReturn open(ObjectRef service, ConnectionRef& connection) override {
    io_connect_t opened = IO_OBJECT_NULL;
    const kern_return_t code = IOServiceOpen(service, mach_task_self(), 0, &opened);
    if (code == kIOReturnSuccess) connection = opened;
    return code;
  }

  KernReturn callStruct(ConnectionRef connection, SMCBlockView input,
                        SMCBlockSpan output) override {
    std::size_t outputSize = output.size();
    return IOConnectCallStructMethod(connection, structMethodSelector, input.data(), input.size(),
                                     output.data(), &outputSize);
  }

  KernReturn close(ConnectionRef connection) override { return IOServiceClose(connection); }

  KernReturn objectRelease(ObjectRef service) override { return IOObjectRelease(service); }
};

}  // namespace

std::unique_ptr<SMCUserClient> makeSMCUserClient() {
  return std::make_unique<AppleSMCUserClient>();
}

}  // namespace korvel::macos
