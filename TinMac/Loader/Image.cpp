#include "TinMac/Loader/Image.h"

#include <sys/mman.h>

#include <bit>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <system_error>

#include "TinMac/Loader/Bytes.h"
#include "TinMac/Loader/ExportedSymbols.h"
#include "TinMac/Loader/Fixups.h"
#include "TinMac/Loader/Layout.h"
#include "TinMac/Loader/MachO.h"
#include "TinMac/Loader/Unwind.h"

namespace tinmac {

namespace {

std::vector<std::byte> readFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  const std::vector<char> read{std::istreambuf_iterator<char>(stream), {}};
  if (!stream.is_open() || stream.bad()) {
    throw Refused("the file cannot be read");
  }
  const auto bytes = std::as_bytes(std::span(read));
  return {bytes.begin(), bytes.end()};
}

/// Notes that a step was taken.
void take(bool& step, bool inTurn) {
  if (step || !inTurn) {
    throw Refused("a step of loading out of its turn");
  }
  step = true;
}

[[noreturn]] void refuseCall(const std::string& what) {
  throw Refused(what + ": " + std::generic_category().message(errno));
}

}  // namespace

Image::Image() = default;
Image::~Image() = default;

std::expected<std::unique_ptr<Image>, Image::Failure> Image::map(const std::string& path,
                                                                 std::byte* place) {
  std::unique_ptr<Image> image(new Image);
  image->file = path;
  const auto mapped = image->attempt([&] {
    image->contents = readFile(path);
    const Bytes file(image->contents, "the file");
    image->layout = std::make_unique<Layout>(readLayout(file));
    image->mapSegments(place);
    image->symbols = readExportedSymbols(file, *image->layout, image->base);
  });
  if (!mapped) {
    return std::unexpected(mapped.error());
  }
  return image;
}

std::expected<void, Image::Failure> Image::attempt(const std::function<void()>& work) const {
  try {
    work();
    return {};
  } catch (const Refused& refused) {
    return std::unexpected(file + ": " + refused.what());
  }
}

void Image::mapSegments(std::byte* wanted) {
  void* room =
      ::mmap(wanted, layout->span, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (room == MAP_FAILED) {
    refuseCall("no room of " + std::to_string(layout->span) + " bytes");
  }
  if (wanted != nullptr && room != wanted) {
    ::munmap(room, layout->span);
    throw Refused("something else is at its place");
  }
  base = static_cast<std::byte*>(room);
  for (const Segment& segment : layout->segments) {
    if (segment.isReserve()) {
      continue;
    }
    std::byte* place = base + (segment.address - layout->lowest);
    if (::mprotect(place, segment.memorySize, PROT_READ | PROT_WRITE) != 0) {
      refuseCall("segment " + segment.name);
    }
    std::memcpy(place, contents.data() + segment.fileOffset, segment.fileSize);
  }
  for (const Section& section : layout->sections) {
    parts.push_back({section.segment, section.name, base + (section.address - layout->lowest),
                     section.size, section.flags});
  }
  if (layout->entry) {
    start = base + *layout->entry;
  }
}

std::expected<void, Image::Failure> Image::bind(const Resolver& resolve) {
  return attempt([&] {
    take(done.bound, true);
    if (layout->fixups && layout->fixups->size != 0) {
      const Bytes fixups =
          Bytes(contents, "the file")
              .part(layout->fixups->offset, layout->fixups->size, "the chained fixups");
      applyFixups(fixups, *layout, base, resolveImports(resolve));
    }
    keepInitialisers();
    contents = {};
  });
}

std::vector<std::uint64_t> Image::resolveImports(const Resolver& resolve) const {
  const Bytes fixups =
      Bytes(contents, "the file")
          .part(layout->fixups->offset, layout->fixups->size, "the chained fixups");
  std::vector<std::uint64_t> targets;
  std::string missing;
  for (const Import& import : readImports(fixups, layout->libraries)) {
    void* address = import.ownFirst ? symbol(import.name) : nullptr;
    if (address == nullptr) {
      address = resolve(import.name);
    }
    if (address == nullptr && !import.weak) {
      missing += "\n  " + import.name + " from " + import.library;
    }
    targets.push_back(std::bit_cast<std::uint64_t>(address));
  }
  if (!missing.empty()) {
    throw Refused("nobody has these symbols:" + missing);
  }
  return targets;
}

void Image::keepInitialisers() {
  for (const ImageSection& section : parts) {
    const macho::Word type = section.flags & macho::sectionTypeMask;
    const Bytes bytes({section.address, section.size}, section.name);
    if (type == macho::sectionInitialiserOffsets) {
      for (std::uint64_t at = 0; at < section.size; at += sizeof(macho::Word)) {
        keepInitialiser(section, bytes.read<macho::Word>(at));
      }
    } else if (type == macho::sectionInitialiserPointers) {
      for (std::uint64_t at = 0; at < section.size; at += sizeof(macho::Long)) {
        keepInitialiser(section, bytes.read<macho::Long>(at) - std::bit_cast<macho::Long>(base));
      }
    }
  }
}

void Image::keepInitialiser(const ImageSection& section, std::uint64_t fromHeader) {
  for (const Segment& segment : layout->segments) {
    const std::uint64_t from = segment.address - layout->lowest;
    if ((segment.protection & PROT_EXEC) != 0 && fromHeader >= from &&
        fromHeader - from < segment.memorySize) {
      initialisers.push_back(std::bit_cast<Initialiser>(base + fromHeader));
      return;
    }
  }
  throw Refused("section " + section.name + " names an initialiser outside of the code");
}

std::expected<void, Image::Failure> Image::protect() {
  return attempt([&] {
    take(done.guarded, done.bound);
    for (const Segment& segment : layout->segments) {
      if (segment.isReserve()) {
        continue;
      }
      std::byte* place = base + (segment.address - layout->lowest);
      const int wanted =
          segment.readOnlyAfterFixups ? PROT_READ : static_cast<int>(segment.protection);
      if ((wanted & PROT_EXEC) != 0) {
        auto* code = reinterpret_cast<char*>(place);
        __builtin___clear_cache(code, code + segment.memorySize);
      }
      if (::mprotect(place, segment.memorySize, wanted) != 0) {
        refuseCall("segment " + segment.name);
      }
    }
  });
}

std::expected<std::size_t, Image::Failure> Image::registerUnwind() {
  std::size_t count = 0;
  const auto registered = attempt([&] {
    take(done.unwinding, done.bound);
    count = registerUnwindTable({base, layout->span}, section("__TEXT", "__unwind_info"),
                                section("__TEXT", "__eh_frame"));
  });
  if (!registered) {
    return std::unexpected(registered.error());
  }
  return count;
}

void Image::runInitialisers() const {
  for (const Initialiser initialiser : initialisers) {
    initialiser(0, nullptr, nullptr, nullptr, nullptr);
  }
}

const ImageSection* Image::section(std::string_view segment, std::string_view name) const {
  for (const ImageSection& part : parts) {
    if (part.segment == segment && part.name == name) {
      return &part;
    }
  }
  return nullptr;
}

void* Image::symbol(std::string_view name) const {
  const auto found = symbols.find(name);
  return found == symbols.end() ? nullptr : found->second;
}

}  // namespace tinmac
