#include "Tests/Allocations.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

// A sanitizer brings its own allocation functions and does not let a program replace them.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KORVEL_COUNTS_BY_HOOKS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KORVEL_COUNTS_BY_HOOKS 1
#endif
#endif
#ifdef KORVEL_COUNTS_BY_HOOKS
#include <sanitizer/allocator_interface.h>
#endif

namespace {

std::atomic<std::int64_t> madeCount{0};
std::atomic<std::int64_t> freedCount{0};

}  // namespace

namespace korvel::test::allocations {

std::int64_t made() { return madeCount; }
std::int64_t live() { return madeCount - freedCount; }

}  // namespace korvel::test::allocations

#ifdef KORVEL_COUNTS_BY_HOOKS

namespace {

[[maybe_unused]] const int hooks = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) { ++madeCount; },
    [](const volatile void*) { ++freedCount; });

}  // namespace

#else

namespace {

void* counted(std::size_t size) {
  void* memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) std::abort();
  ++madeCount;
  return memory;
}

void uncounted(void* memory) {
  if (memory == nullptr) return;
  ++freedCount;
  std::free(memory);
}

}  // namespace

void* operator new(std::size_t size) { return counted(size); }
void* operator new[](std::size_t size) { return counted(size); }
void operator delete(void* memory) noexcept { uncounted(memory); }
void operator delete[](void* memory) noexcept { uncounted(memory); }
void operator delete(void* memory, std::size_t) noexcept { uncounted(memory); }
void operator delete[](void* memory, std::size_t) noexcept { uncounted(memory); }

#endif
