// The fuzzer's two entries. It leaves arguments that begin with "--" to us.
#include <cstdint>
#include <cstdlib>
#include <iostream>

#include "Tests/fuzz/Target.h"

namespace korvel::fuzz {

namespace {

const Target* chosen = nullptr;

/// Shows that the fuzzer finds a mistake that only certain bytes reach.
void planted(std::string_view input) {
  require(!input.starts_with("mistake"), "the planted mistake");
}
constexpr Target plantedTarget{"planted", &planted};

const Target* targetOf(std::string_view name) {
  return name == plantedTarget.name ? &plantedTarget : targetNamed(name);
}

}  // namespace

}  // namespace korvel::fuzz

// The fuzzer looks for its own names.
// NOLINTNEXTLINE(readability-identifier-naming)
extern "C" int LLVMFuzzerInitialize(int* count, char*** words) {
  using namespace std::string_view_literals;
  constexpr auto option = "--target="sv;
  for (int index = 1; index < *count; ++index) {
    const std::string_view word = (*words)[index];
    if (word.starts_with(option))
      korvel::fuzz::chosen = korvel::fuzz::targetOf(word.substr(option.size()));
  }
  if (korvel::fuzz::chosen != nullptr) return 0;
  std::cerr << "korvel-fuzz: --target=NAME is one of:\n";
  for (const auto& each : korvel::fuzz::targets) std::cerr << each.name << '\n';
  // NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other thread yet
  std::exit(2);
}

// NOLINTNEXTLINE(readability-identifier-naming)
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  // A misbehaviour leaves through here and ends the program, which the fuzzer takes for a crash.
  korvel::fuzz::chosen->run({reinterpret_cast<const char*>(bytes), size});
  return 0;
}
