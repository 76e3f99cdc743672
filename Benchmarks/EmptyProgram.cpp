// This program is the floor for start and memory: it reports that it runs, and waits to be ended,
// with as many threads as its argument says.

#include <unistd.h>

#include <cstdlib>
#include <thread>

int main(int argc, char** argv) {
  const int threads = argc > 1 ? std::atoi(argv[1]) : 1;
  for (int each = 1; each < threads; ++each) std::thread([] { pause(); }).detach();
  if (write(STDOUT_FILENO, "x", 1) != 1) return 1;
  pause();
  return 0;
}
