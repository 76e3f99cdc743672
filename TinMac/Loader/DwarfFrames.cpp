#include "TinMac/Loader/DwarfFrames.h"

#include <string_view>

namespace tinmac {

namespace {

constexpr unsigned indirect = 0x80;
constexpr unsigned fromHere = 0x10;
constexpr unsigned placeMask = 0x70;
constexpr unsigned formMask = 0x0f;
constexpr unsigned nothing = 0xff;

/// One record's bytes behind its length, and where they begin in the section.
struct Record {
  Bytes bytes;
  std::uint64_t offset;
};

class DwarfReader {
 public:
  DwarfReader(const Bytes& section, const Bytes& mapped) : frames(section), image(mapped) {}

  FrameRules read(std::uint64_t offset) {
    const Record function = record(offset);
    const auto back = function.bytes.read<std::uint32_t>(0);
    if (back == 0 || back > function.offset) {
      throw Refused("DWARF frame at " + hexText(offset) + " describes no function");
    }
    FrameRules rules;
    rules.common = readCommon(record(function.offset - back));
    std::uint64_t at = sizeof back;
    rules.start = pointer(function, at, addressForm);
    rules.end = rules.start + pointer(function, at, addressForm & formMask);
    const std::uint64_t extra = function.bytes.uleb(at);
    std::uint64_t inExtra = at;
    if (languageForm != nothing && pointsSomewhere(function, at, languageForm)) {
      rules.languageData = pointer(function, inExtra, languageForm);
    }
    at += extra;
    rules.instructions = rest(function, at);
    return rules;
  }

 private:
  [[nodiscard]] Record record(std::uint64_t offset) const {
    const auto length = frames.read<std::uint32_t>(offset);
    if (length == 0 || length == 0xffffffff) {
      throw Refused("DWARF frame at " + hexText(offset) + " has no plain length");
    }
    const std::uint64_t start = offset + sizeof length;
    return {frames.part(start, length, "a DWARF frame"), start};
  }

  CommonRules readCommon(const Record& common) {
    std::uint64_t at = sizeof(std::uint32_t);
    const auto version = common.bytes.read<std::uint8_t>(at++);
    const std::string_view parts = common.bytes.text(at);
    at += parts.size() + 1;
    if (common.bytes.read<std::uint32_t>(0) != 0 || version != 1 || !parts.starts_with('z')) {
      throw Refused("DWARF frame with common rules of another kind: " + std::string(parts));
    }
    CommonRules rules;
    rules.codeFactor = common.bytes.uleb(at);
    rules.dataFactor = common.bytes.sleb(at);
    if (common.bytes.read<std::uint8_t>(at++) != 30) {
      throw Refused("DWARF frame that returns by another register than x30");
    }
    const std::uint64_t extra = common.bytes.uleb(at);
    const std::uint64_t end = at + extra;
    for (const char part : parts.substr(1)) {
      readPart(common, part, at, rules);
    }
    rules.instructions = rest(common, end);
    return rules;
  }

  void readPart(const Record& common, char part, std::uint64_t& at, CommonRules& rules) {
    const unsigned form = common.bytes.read<std::uint8_t>(at++);
    if (part == 'P') {
      rules.personality = pointer(common, at, form);
    } else if (part == 'L') {
      languageForm = form;
    } else if (part == 'R') {
      addressForm = form;
    } else {
      throw Refused("DWARF frame with the unknown part " + std::string(1, part));
    }
  }

  static std::vector<std::byte> rest(const Record& record, std::uint64_t at) {
    const Bytes part = record.bytes.part(at, record.bytes.size() - at, "a DWARF frame's rules");
    return {part.begin(), part.begin() + part.size()};
  }

  /// A zero is no address, whatever it is counted from.
  static bool pointsSomewhere(const Record& record, std::uint64_t at, unsigned form) {
    return number(record, at, form) != 0;
  }

  static std::uint64_t number(const Record& record, std::uint64_t& at, unsigned form) {
    const std::uint64_t from = at;
    switch (form & formMask) {
      case 0x00:
      case 0x04:
      case 0x0c:
        at += sizeof(std::uint64_t);
        return record.bytes.read<std::uint64_t>(from);
      case 0x03:
        at += sizeof(std::uint32_t);
        return record.bytes.read<std::uint32_t>(from);
      case 0x0b:
        at += sizeof(std::int32_t);
        return static_cast<std::uint64_t>(
            static_cast<std::int64_t>(record.bytes.read<std::int32_t>(from)));
      default:
        throw Refused("DWARF frame with the pointer form " + hexText(form));
    }
  }

  [[nodiscard]] std::uint64_t pointer(const Record& record, std::uint64_t& at,
                                      unsigned form) const {
    const unsigned place = form & placeMask;
    if (place != 0 && place != fromHere) {
      throw Refused("DWARF frame with the pointer form " + hexText(form));
    }
    const std::uint64_t here = reinterpret_cast<std::uint64_t>(record.bytes.begin()) + at;
    const std::uint64_t value = number(record, at, form) + (place == fromHere ? here : 0);
    if ((form & indirect) == 0) {
      return value;
    }
    return image.read<std::uint64_t>(value - reinterpret_cast<std::uint64_t>(image.begin()));
  }

  const Bytes& frames;
  const Bytes& image;
  unsigned addressForm = 0;
  unsigned languageForm = nothing;
};

}  // namespace

FrameRules readDwarfFrame(const Bytes& frames, const Bytes& image, std::uint64_t offset,
                          std::uint64_t start) {
  FrameRules rules = DwarfReader(frames, image).read(offset);
  if (rules.start != start) {
    throw Refused("DWARF frame at " + hexText(offset) + " belongs to another function");
  }
  const auto base = reinterpret_cast<std::uint64_t>(image.begin());
  static_cast<void>(image.part(start - base, rules.end - start, "an unwound function"));
  if (rules.languageData != 0) {
    static_cast<void>(image.part(rules.languageData - base, 1, "language data"));
  }
  return rules;
}

}  // namespace tinmac
