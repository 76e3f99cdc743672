// This program is the floor for start and memory: it reports that it runs, and waits to be ended.

#include <unistd.h>

int main() {
  if (write(STDOUT_FILENO, "x", 1) != 1) return 1;
  pause();
  return 0;
}
