#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tinmac {

/// Writes one JSON value piece by piece, on one line.
class JsonWriter {
 public:
  JsonWriter& beginObject() { return open('{'); }
  JsonWriter& endObject() { return close('}'); }
  JsonWriter& beginArray() { return open('['); }
  JsonWriter& endArray() { return close(']'); }
  JsonWriter& key(std::string_view name);
  JsonWriter& text(std::string_view value);
  JsonWriter& number(std::int64_t value);

  /// The value; the writer is then empty.
  std::string take() { return std::move(written); }

 private:
  JsonWriter& open(char bracket);
  JsonWriter& close(char bracket);
  void separate();
  void quote(std::string_view value);

  std::string written;
  /// A value or a member stands before the next one on this level.
  bool follows = false;
};

}  // namespace tinmac
