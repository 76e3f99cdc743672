// The floor for starting a program and for its memory: says that it runs, then waits to be ended.

#include <unistd.h>

int main() {
  if (write(STDOUT_FILENO, "x", 1) != 1) return 1;
  pause();
  return 0;
}
