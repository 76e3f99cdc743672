// A program writes down what it executed when it exits. This has one that aborts, as some tests
// mean it to, write it down, too.

#include <csignal>

extern "C" int __llvm_profile_write_file();  // NOLINT(bugprone-reserved-identifier): the compiler's

namespace {

void countAndAbort(int signal) {
  static_cast<void>(__llvm_profile_write_file());
  static_cast<void>(std::signal(signal, SIG_DFL));
  static_cast<void>(std::raise(signal));
}

const bool installed = std::signal(SIGABRT, countAndAbort) != SIG_ERR;

}  // namespace
