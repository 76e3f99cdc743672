#pragma once

#include <stddef.h>
#include <stdint.h>

/// A property-list value, or an error, told piece by piece. The two sides of a border do not share
/// a string or a container, so the teller calls these functions and the hearer builds its own kind.
/// Texts are UTF-8 and need not end with a zero. One value is one of: a scalar, `absent`, or what
/// stands between a `begin…` and its `end`. Inside a dictionary `key` comes before each value.
/// An error holds one value: the dictionary of its details.
struct TinValueSink {
  void* context;
  void (*absent)(void* context);
  void (*boolean)(void* context, uint32_t value);
  void (*integer)(void* context, int64_t value);
  void (*real)(void* context, double value);
  void (*text)(void* context, const char* bytes, size_t length);
  void (*data)(void* context, const uint8_t* bytes, size_t length);
  void (*date)(void* context, double secondsSince2001);
  void (*beginArray)(void* context);
  void (*beginDictionary)(void* context);
  void (*key)(void* context, const char* bytes, size_t length);
  void (*beginError)(void* context, const char* domain, size_t domainLength, int64_t code);
  void (*end)(void* context);
};
