#include <optional>
#include <string>
#include <vector>

#include "Tests/fuzz/Target.h"
#include "VirtualMac/Remote/FrameSocket.h"
#include "VirtualMac/Remote/Wire.h"

namespace korvel::fuzz {

namespace {

struct Stream {
  std::vector<std::string> bodies;
  bool refused = false;
  friend bool operator==(const Stream&, const Stream&) = default;
};

/// Feeds the reader so many bytes at a time.
Stream readIn(std::string_view input, std::size_t piece) {
  Stream stream;
  std::string waiting;
  for (std::size_t at = 0; at < input.size() && !stream.refused; at += piece) {
    waiting += input.substr(at, piece);
    for (;;) {
      const auto frame = virtualmac::takeFrame(waiting);
      stream.refused = !frame;
      if (!frame || !*frame) break;
      stream.bodies.push_back(**frame);
    }
  }
  return stream;
}

/// Cuts the frames by their lengths.
Stream cut(std::string_view input) {
  Stream stream;
  while (input.size() >= 4) {
    std::size_t length = 0;
    for (std::size_t byte = 4; byte > 0; --byte)
      length = length * 256 + static_cast<unsigned char>(input[byte - 1]);
    stream.refused = length > 262144;
    if (stream.refused || input.size() < length + 4) break;
    stream.bodies.emplace_back(input.substr(4, length));
    input.remove_prefix(length + 4);
  }
  return stream;
}

std::string written(const PropertyValue& value) {
  virtualmac::WireWriter writer;
  writer.property(value);
  return writer.body();
}

void valueIn(const std::string& body) {
  virtualmac::WireReader reader(body);
  const PropertyValue value = reader.property();
  if (!reader.finish()) return require(!reader.failure().empty(), "a refusal says nothing");
  const std::string bytes = written(value);
  virtualmac::WireReader again(bytes);
  const PropertyValue second = again.property();
  require(again.finish(), "its own bytes are refused: " + again.failure());
  // The bytes are compared, as "not a number" equals nothing.
  require(written(second) == bytes, "a value does not come back from its bytes");
  require(bytes.size() == body.size(), "a value has a size that is not that of its bytes");
}

}  // namespace

/// The input is what arrives on a socket. Each body is read as a property-list value as well.
void frames(std::string_view input) {
  const Stream stream = cut(input);
  for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, input.size() + 1})
    require(readIn(input, piece) == stream, "the frames depend on how they arrive");
  std::string whole;
  for (const std::string& body : stream.bodies) {
    whole += virtualmac::frameOf(body);
    valueIn(body);
  }
  require(input.starts_with(whole), "the frames are not written as they came");
  valueIn(std::string(input));
}

}  // namespace korvel::fuzz
