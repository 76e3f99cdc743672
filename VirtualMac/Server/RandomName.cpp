#include "VirtualMac/Server/RandomName.h"

#include <fmt/format.h>

#include <fstream>

namespace virtualmac {

std::optional<std::string> randomName(std::size_t bytes) {
  std::string drawn(bytes, '\0');
  std::ifstream source("/dev/urandom", std::ios::binary);
  if (!source.read(drawn.data(), static_cast<std::streamsize>(bytes))) return std::nullopt;
  std::string name;
  for (const char byte : drawn) name += fmt::format("{:02x}", static_cast<unsigned char>(byte));
  return name;
}

}  // namespace virtualmac
