#include "TinMac/Loader/Unwind.h"

#include <bit>
#include <list>

#include "TinMac/Loader/DwarfFrames.h"
#include "TinMac/Loader/FrameDescriptions.h"
#include "TinMac/Loader/UnwindTable.h"

// The unwinder of this process offers it; no header declares it.
// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" void __register_frame(void* descriptions);

namespace tinmac {

namespace {

constexpr unsigned framePointer = 29;
constexpr unsigned linkRegister = 30;
constexpr unsigned stackPointer = 31;
constexpr unsigned firstVector = 64;

void appendFrameAddress(std::vector<std::byte>& rules, unsigned base, std::uint64_t distance) {
  constexpr unsigned frameAddressIs = 0x0c;
  appendByte(rules, frameAddressIs);
  appendUleb(rules, base);
  appendUleb(rules, distance);
}

/// The register was saved `slot` times eight bytes below the frame's address.
void appendSaved(std::vector<std::byte>& rules, unsigned number, unsigned slot) {
  constexpr unsigned savedAt = 0x80;
  constexpr unsigned highRegisterSavedAt = 0x05;
  if (number < firstVector) {
    appendByte(rules, savedAt | number);
  } else {
    appendByte(rules, highRegisterSavedAt);
    appendUleb(rules, number);
  }
  appendUleb(rules, slot);
}

/// Saved pairs lie one below the other, the lower register of each pair higher in memory.
std::vector<std::byte> compactRules(UnwindEncoding encoding) {
  std::vector<std::byte> rules;
  unsigned slot = 1;
  if (encoding.mode() == UnwindEncoding::Mode::Frame) {
    appendFrameAddress(rules, framePointer, 2 * sizeof(std::uint64_t));
    appendSaved(rules, linkRegister, slot++);
    appendSaved(rules, framePointer, slot++);
  } else {
    appendFrameAddress(rules, stackPointer, encoding.stackSize());
  }
  struct Pairs {
    unsigned firstBit, count, firstRegister;
  };
  for (const Pairs pairs : {Pairs{0, 5, 19}, Pairs{8, 4, firstVector + 8}}) {
    for (unsigned pair = 0; pair < pairs.count; ++pair) {
      if (encoding.savesPair(pairs.firstBit + pair)) {
        appendSaved(rules, pairs.firstRegister + 2 * pair, slot++);
        appendSaved(rules, pairs.firstRegister + 2 * pair + 1, slot++);
      }
    }
  }
  return rules;
}

FrameRules describe(const UnwoundRange& range, const Bytes& image, const ImageSection* dwarf) {
  const auto base = std::bit_cast<std::uint64_t>(image.begin());
  if (range.encoding.mode() == UnwindEncoding::Mode::Dwarf) {
    if (dwarf == nullptr) {
      throw Refused("the function at " + hexText(range.start) +
                    " has a DWARF frame, but the image has no section __eh_frame");
    }
    const Bytes frames({dwarf->address, dwarf->size}, "section __eh_frame");
    return readDwarfFrame(frames, image, range.encoding.dwarfOffset(), base + range.start);
  }
  static_cast<void>(image.part(range.start, range.end - range.start, "an unwound function"));
  FrameRules rules;
  rules.start = base + range.start;
  rules.end = base + range.end;
  if (range.personalitySlot) {
    rules.common.personality = image.read<std::uint64_t>(*range.personalitySlot);
  }
  if (range.languageData) {
    static_cast<void>(image.part(*range.languageData, 1, "language data"));
    rules.languageData = base + *range.languageData;
  }
  rules.common.instructions = compactRules(range.encoding);
  return rules;
}

}  // namespace

std::size_t registerUnwindTable(std::span<const std::byte> image, const ImageSection* compact,
                                const ImageSection* dwarf) {
  if (compact == nullptr) {
    return 0;
  }
  const Bytes mapped(image, "the image");
  const Bytes table({compact->address, compact->size}, "section __unwind_info");
  FrameDescriptions descriptions;
  const std::vector<UnwoundRange> ranges = readUnwindTable(table);
  for (const UnwoundRange& range : ranges) {
    descriptions.add(describe(range, mapped, dwarf));
  }
  if (!ranges.empty()) {
    // The unwinder keeps the address for the process's life.
    static std::list<std::vector<std::byte>>& kept = *new std::list<std::vector<std::byte>>;
    kept.push_back(std::move(descriptions).finish());
    __register_frame(kept.back().data());
  }
  return ranges.size();
}

}  // namespace tinmac
