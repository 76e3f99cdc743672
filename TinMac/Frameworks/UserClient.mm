#include <IOKit/IOKitLib.h>
#include <mach/mach_init.h>

#import "TinMac/Frameworks/Arguments.h"
#include "TinMac/Frameworks/PortRights.h"

using namespace tinmac;

namespace {

/// The one method of the SMC's user client that is called from outside, and the size of both its
/// blocks.
constexpr std::uint32_t structMethod = 2;
constexpr std::size_t blockSize = 80;

}  // namespace

TIN_EXPORT kern_return_t IOServiceOpen(io_service_t service, task_port_t owningTask,
                                       std::uint32_t type, io_connect_t* connect) {
  expectNumber(owningTask, task_port_t{mach_task_self()}, __func__);
  expectNumber(type, std::uint32_t{0}, __func__);
  expectPlace(connect, __func__);
  expectObject(service, __func__);
  io_connect_t opened = IO_OBJECT_NULL;
  const kern_return_t code = tinServiceOpen(service, &opened);
  if (code == kIOReturnSuccess) {
    holdConnection(opened);
    *connect = opened;
  }
  return code;
}

TIN_EXPORT kern_return_t IOServiceClose(io_connect_t connect) {
  dropConnection(connect, __func__);
  return tinServiceClose(connect);
}

TIN_EXPORT kern_return_t IOConnectCallStructMethod(mach_port_t connection, std::uint32_t selector,
                                                   const void* input, std::size_t inputSize,
                                                   void* output, std::size_t* outputSize) {
  expectPlace(output, __func__);
  expectPlace(outputSize, __func__);
  expectConnection(connection, __func__);
  const bool isBuilt =
      selector == structMethod && inputSize == blockSize && *outputSize == blockSize;
  if (input == nullptr || !isBuilt) return kIOReturnBadArgument;
  const std::int32_t code = tinCallStruct(connection, static_cast<const std::uint8_t*>(input),
                                          static_cast<std::uint8_t*>(output));
  *outputSize = blockSize;  // Also after a failure, as on a Mac.
  return code;
}
