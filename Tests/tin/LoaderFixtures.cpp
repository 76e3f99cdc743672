#include "Tests/tin/LoaderFixtures.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>

#include "TinMac/Loader/MachO.h"

namespace tinmac::fixtures {

std::string path(std::string_view name) { return TIN_FIXTURES "/" + std::string(name); }

Resolver resolverOf(std::map<std::string, void*, std::less<>> symbols) {
  return [symbols = std::move(symbols)](std::string_view name) -> void* {
    const auto found = symbols.find(name);
    return found == symbols.end() ? nullptr : found->second;
  };
}

std::unique_ptr<Image> load(Mapped image, const Resolver& resolve, bool unwind) {
  if (!image) {
    ADD_FAILURE() << image.error();
    return nullptr;
  }
  const auto bound = (*image)->bind(resolve);
  const auto guarded = (*image)->protect();
  if (!bound || !guarded) {
    ADD_FAILURE() << (bound ? guarded.error() : bound.error());
    return nullptr;
  }
  if (unwind) {
    const auto registered = (*image)->registerUnwind();
    if (!registered) {
      ADD_FAILURE() << registered.error();
      return nullptr;
    }
  }
  return std::move(*image);
}

std::unique_ptr<Image> load(std::string_view name, const Resolver& resolve, bool unwind) {
  return load(Image::map(path(name)), resolve, unwind);
}

Copy::Copy(std::string_view name) {
  std::ifstream stream(path(name), std::ios::binary);
  const std::vector<char> read{std::istreambuf_iterator<char>(stream), {}};
  EXPECT_FALSE(read.empty());
  const auto all = std::as_bytes(std::span(read));
  bytes.assign(all.begin(), all.end());
}

std::uint64_t Copy::command(std::uint32_t kind) {
  std::uint64_t offset = sizeof(macho::Header);
  for (unsigned left = at<macho::Header>(0).commandCount; left > 0; --left) {
    if (at<macho::Command>(offset).kind == kind) {
      return offset;
    }
    offset += at<macho::Command>(offset).size;
  }
  ADD_FAILURE() << "no load command " << kind;
  return 0;
}

std::uint64_t Copy::section(std::string_view name) {
  constexpr std::uint32_t segmentKind = 0x19;
  std::uint64_t offset = sizeof(macho::Header);
  for (unsigned left = at<macho::Header>(0).commandCount; left > 0; --left) {
    const auto command = at<macho::SegmentCommand>(offset);
    for (unsigned index = 0; command.kind == segmentKind && index < command.sectionCount; ++index) {
      const std::uint64_t record = offset + sizeof command + index * sizeof(macho::SectionRecord);
      const char* found = at<macho::SectionRecord>(record).name;
      if (std::string_view(found, ::strnlen(found, 16)) == name) {
        return record;
      }
    }
    offset += command.size;
  }
  ADD_FAILURE() << "no section " << name;
  return 0;
}

std::uint64_t Copy::content(std::string_view name) {
  return at<macho::SectionRecord>(section(name)).fileOffset;
}

Mapped Copy::map() const {
  const std::string file =
      std::filesystem::temp_directory_path() / ("tin-loader-" + std::to_string(::getpid()));
  std::ofstream stream(file, std::ios::binary);
  stream.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
  stream.close();
  EXPECT_TRUE(stream.good());
  auto image = Image::map(file);
  std::filesystem::remove(file);
  return image;
}

std::string Copy::refusal() const {
  const auto image = map();
  return image ? "" : image.error();
}

std::string Copy::bindRefusal() const {
  const auto image = map();
  if (!image) {
    ADD_FAILURE() << image.error();
    return "";
  }
  static std::byte anything[16];
  const auto bound = (*image)->bind([](std::string_view) { return anything; });
  return bound ? "" : bound.error();
}

}  // namespace tinmac::fixtures
