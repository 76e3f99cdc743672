#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "TinMac/System/ExportTables.h"
#include "TinMac/System/Numbers.h"
#include "TinMac/System/Trap.h"

namespace tinmac {

namespace {

/// Runs a call that tells an error by errno alone.
template <class Call>
auto withErrno(Call call) {
  const int before = errno;
  errno = 0;
  const auto value = call();
  if (errno != 0) failWith(errno);
  errno = before;
  return value;
}

double textToDouble(const char* text, char** end) {
  return withErrno([=] { return std::strtod(text, end); });
}

/// strtol and strtoll: both have 64 bits on a Mac.
std::int64_t textToInteger(const char* text, char** end, std::int32_t base) {
  return withErrno([=] { return std::strtoll(text, end, base); });
}

std::uint64_t textToUnsigned(const char* text, char** end, std::int32_t base) {
  return withErrno([=] { return std::strtoull(text, end, base); });
}

void zero(void* bytes, std::uint64_t count) { std::memset(bytes, 0, count); }

template <class Allocate>
void* allocated(Allocate allocate) {
  void* const memory = allocate();
  if (memory == nullptr) failWith(ENOMEM);
  return memory;
}

void* allocate(std::uint64_t size) {
  return allocated([=] { return std::malloc(size); });
}

void* allocateZeroed(std::uint64_t count, std::uint64_t size) {
  return allocated([=] { return std::calloc(count, size); });
}

void* reallocate(void* memory, std::uint64_t size) {
  return allocated([=] { return std::realloc(memory, size); });
}

char* errorText(std::int32_t error) { return const_cast<char*>(macErrorText(error)); }

std::int32_t copyErrorText(std::int32_t error, char* buffer, std::uint64_t size) {
  constexpr std::int32_t macRange = 34;
  const char* const text = macErrorText(error);
  const std::size_t length = std::strlen(text);
  if (size == 0) return macRange;
  const std::size_t copied = length < size ? length : size - 1;
  std::memcpy(buffer, text, copied);
  buffer[copied] = '\0';
  return copied == length ? 0 : macRange;
}

/// struct lconv as a Mac lays it out.
struct MacNumberFormat {
  const char* decimalPoint = ".";
  const char* texts[9] = {"", "", "", "", "", "", "", "", ""};
  std::int8_t places[14] = {SCHAR_MAX, SCHAR_MAX, SCHAR_MAX, SCHAR_MAX, SCHAR_MAX,
                            SCHAR_MAX, SCHAR_MAX, SCHAR_MAX, SCHAR_MAX, SCHAR_MAX,
                            SCHAR_MAX, SCHAR_MAX, SCHAR_MAX, SCHAR_MAX};
};
static_assert(sizeof(MacNumberFormat) == 96);

/// A program that sets no locale has the "C" locale.
MacNumberFormat* numberFormat() {
  static MacNumberFormat format;
  return &format;
}

[[noreturn]] void stackOverrun() { trap("stack overrun", "a function's guard was overwritten"); }

std::uintptr_t stackGuard = 0x00c5a1f07b3e9d24;

/// The name of the own task; nothing but the machine reads it.
std::uint32_t ownTask = 0x203;

}  // namespace

std::span<const Export> cLibraryExports() {
  static const Export table[] = {
      {"___error", code(macErrorSlot)},
      {"___stack_chk_fail", code(stackOverrun)},
      {"___stack_chk_guard", &stackGuard},
      {"_mach_task_self_", &ownTask},
      {"_bzero", code(zero)},
      {"_calloc", code(allocateZeroed)},
      {"_free", code(std::free)},
      {"_localeconv", code(numberFormat)},
      {"_malloc", code(allocate)},
      {"_memchr", code<void*(void*, int, std::size_t)>(std::memchr)},
      {"_memcmp", code(std::memcmp)},
      {"_memcpy", code(std::memcpy)},
      {"_memmove", code(std::memmove)},
      {"_memset", code(std::memset)},
      {"_realloc", code(reallocate)},
      {"_strchr", code<char*(char*, int)>(std::strchr)},
      {"_strcmp", code(std::strcmp)},
      {"_strerror", code(errorText)},
      {"_strerror_r", code(copyErrorText)},
      {"_strlen", code(std::strlen)},
      {"_strncmp", code(std::strncmp)},
      {"_strnlen", code(::strnlen)},
      {"_strrchr", code<char*(char*, int)>(std::strrchr)},
      {"_strstr", code<char*(char*, const char*)>(std::strstr)},
      {"_strtod", code(textToDouble)},
      {"_strtol", code(textToInteger)},
      {"_strtoll", code(textToInteger)},
      {"_strtoul", code(textToUnsigned)},
      {"_strtoull", code(textToUnsigned)},
  };
  return table;
}

}  // namespace tinmac
