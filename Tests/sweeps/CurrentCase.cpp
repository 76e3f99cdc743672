#include "Tests/sweeps/CurrentCase.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>

namespace sweeps {

namespace {

// This is plain memory, because a signal handler reads it.
std::array<char, 256> text{};
volatile std::sig_atomic_t length = 0;

void tellCase(int number) {
  if (length > 0) {
    constexpr std::string_view before = "\nwhile running: ";
    (void)!::write(STDERR_FILENO, before.data(), before.size());
    (void)!::write(STDERR_FILENO, text.data(), static_cast<std::size_t>(length));
    (void)!::write(STDERR_FILENO, "\n", 1);
  }
  std::signal(number, SIG_DFL);
  std::raise(number);
}

}  // namespace

CurrentCase::CurrentCase(std::string_view description) {
  const std::size_t size = std::min(description.size(), text.size());
  std::copy_n(description.begin(), size, text.begin());
  length = static_cast<std::sig_atomic_t>(size);
  std::signal(SIGABRT, tellCase);
}

CurrentCase::~CurrentCase() {
  length = 0;
  std::signal(SIGABRT, SIG_DFL);
}

}  // namespace sweeps
