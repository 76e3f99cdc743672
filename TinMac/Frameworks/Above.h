#pragma once

#include <stddef.h>
#include <stdint.h>

/// The frameworks offer this to the rooms below them, which find it by name in the loaded library.
#ifdef __cplusplus
extern "C" {
#endif

struct TinSection {
  const char* segment;
  const char* name;
  void* address;
  uint64_t size;
};

/// A loaded Mach-O image. It and its sections stay for the process's life.
struct TinImage {
  const char* path;
  const void* header;
  const struct TinSection* sections;
  size_t count;
};

/// Reads an image's classes, protocols, selectors and categories. Called on the main thread for the
/// frameworks' own image first and then for the program, each time before the image's initialisers.
void tinRegisterImage(const struct TinImage* image);

/// At the end of the process: lets go of what living connections and the main thread's pools hold,
/// so that the books show what nobody owns.
void tinSettleBooks(void);

#ifdef __cplusplus
}
#endif
