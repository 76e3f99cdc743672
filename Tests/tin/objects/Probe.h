#pragma once

#include <string>

/// A probe is a function of a program for a Mac that a test calls by its name. It looks at what the
/// frameworks do and answers the first thing that is not as expected; an empty text: all is.
#define PROBE(name)                                                      \
  static void name##Body(std::string& failure);                          \
  extern "C" __attribute__((visibility("default"))) const char* name() { \
    static std::string failure;                                          \
    failure.clear();                                                     \
    name##Body(failure);                                                 \
    return failure.c_str();                                              \
  }                                                                      \
  static void name##Body(std::string& failure)

#define EXPECT(condition)                                                                      \
  do {                                                                                         \
    if (!(condition)) {                                                                        \
      failure = std::string(__FILE_NAME__) + ":" + std::to_string(__LINE__) + ": " #condition; \
      return;                                                                                  \
    }                                                                                          \
  } while (false)
