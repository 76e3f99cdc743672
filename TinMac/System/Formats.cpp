#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "TinMac/System/ExportTables.h"
#include "TinMac/System/Numbers.h"
#include "TinMac/System/Trap.h"

// A Mac's caller puts every variadic argument on the stack, Linux's callee looks in registers
// first.
__asm__(
    ".text\n"
    ".globl tinOpenVeneer\n.type tinOpenVeneer, %function\n"
    "tinOpenVeneer:\n  ldr w2, [sp]\n  b tinOpenFile\n"
    ".globl tinSnprintfVeneer\n.type tinSnprintfVeneer, %function\n"
    "tinSnprintfVeneer:\n  mov x3, sp\n  b tinPrintToBuffer\n"
    ".globl tinFprintfVeneer\n.type tinFprintfVeneer, %function\n"
    "tinFprintfVeneer:\n  mov x2, sp\n  b tinPrintToStream\n");

namespace tinmac {

namespace {

/// Linux's va_list. With both offsets at 0 every argument comes from the stack, in slots of 8 bytes
/// as on a Mac.
struct LinuxArguments {
  const void* stack;
  const void* integerTop;
  const void* vectorTop;
  std::int32_t integerOffset;
  std::int32_t vectorOffset;
};
static_assert(sizeof(LinuxArguments) == sizeof(std::va_list));

/// A Mac's long double has 8 bytes in such a slot, Linux's has 16.
void refuseLongDouble(const char* format) {
  for (const char* mark = std::strchr(format, '%'); mark != nullptr;) {
    const char* const conversion = mark + 1 + std::strspn(mark + 1, "0123456789.*-+ #'hljztq$");
    if (*conversion == 'L') trap("a format with a long double", format);
    mark = *conversion == '\0' ? nullptr : std::strchr(conversion + 1, '%');
  }
}

class Arguments {
 public:
  explicit Arguments(const void* macArguments) {
    const LinuxArguments given{macArguments, nullptr, nullptr, 0, 0};
    std::memcpy(&list, &given, sizeof(given));
  }
  std::va_list list;
};

std::int32_t checked(int printed) {
  if (printed < 0) failWith(errno);
  return printed;
}

/// vsnprintf: a Mac's va_list is the address of the first slot.
std::int32_t printList(char* buffer, std::uint64_t size, const char* format,
                       const void* macArguments) {
  refuseLongDouble(format);
  Arguments arguments(macArguments);
  return checked(std::vsnprintf(buffer, size, format, arguments.list));
}

}  // namespace

extern "C" std::int32_t tinPrintToBuffer(char* buffer, std::uint64_t size, const char* format,
                                         const void* macArguments) {
  return printList(buffer, size, format, macArguments);
}

extern "C" std::int32_t tinPrintToStream(std::FILE* stream, const char* format,
                                         const void* macArguments) {
  refuseLongDouble(format);
  Arguments arguments(macArguments);
  return checked(std::vfprintf(stream, format, arguments.list));
}

std::span<const Export> formatExports() {
  // A program hands the stream back to fprintf, so Linux's own will do.
  static std::FILE* standardError = stderr;
  static const Export table[] = {
      {"_snprintf", code(tinSnprintfVeneer)},
      {"_fprintf", code(tinFprintfVeneer)},
      {"_vsnprintf", code(printList)},
      {"___stderrp", static_cast<void*>(&standardError)},
  };
  return table;
}

}  // namespace tinmac
