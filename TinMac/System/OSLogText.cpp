#include "TinMac/System/OSLogText.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>

#include "TinMac/System/Trap.h"

namespace tinmac {

namespace {

constexpr const char* rule = "os_log's buffer";

enum class ItemKind : std::uint8_t { Scalar = 0, Count = 1, Text = 2 };

struct Item {
  ItemKind kind;
  bool isPrivate;
  bool isPublic;
  std::span<const std::uint8_t> bytes;
};

[[noreturn]] void refuse(const char* what, std::size_t first, std::size_t second) {
  trap(rule, std::string(what) + " " + std::to_string(first) + ", " + std::to_string(second));
}

/// Hands out the buffer's items one after the other.
class Items {
 public:
  explicit Items(std::span<const std::uint8_t> buffer) : bytes(buffer) {
    constexpr std::uint8_t knownFlags = 0x3;  // A private item, an item that is not a scalar.
    if (bytes.size() < 2) refuse("bytes without a header:", bytes.size(), 0);
    if ((bytes[0] & ~knownFlags) != 0) refuse("flags and count:", bytes[0], bytes[1]);
    left = bytes[1];
    bytes = bytes.subspan(2);
  }

  Item next(ItemKind kind) {
    constexpr std::uint8_t privateFlag = 0x1;
    constexpr std::uint8_t publicFlag = 0x2;
    if (left == 0 || bytes.size() < 2) refuse("items and bytes left:", left, bytes.size());
    const std::uint8_t descriptor = bytes[0];
    const std::size_t size = bytes[1];
    if (descriptor >> 4U != static_cast<unsigned>(kind) ||
        (descriptor & 0xfU & ~(privateFlag | publicFlag)) != 0) {
      refuse("an item of descriptor and size:", descriptor, size);
    }
    if (bytes.size() - 2 < size) refuse("an item's size and the bytes left:", size, bytes.size());
    const Item item{kind, (descriptor & privateFlag) != 0, (descriptor & publicFlag) != 0,
                    bytes.subspan(2, size)};
    bytes = bytes.subspan(2 + size);
    --left;
    return item;
  }

  void finish() const {
    if (left != 0 || !bytes.empty()) refuse("items and bytes unused:", left, bytes.size());
  }

 private:
  std::span<const std::uint8_t> bytes;
  std::size_t left = 0;
};

template <class Value>
Value valueOf(const Item& item) {
  Value value{};
  if (item.bytes.size() != sizeof(value)) {
    refuse("an item's kind and size:", static_cast<std::size_t>(item.kind), item.bytes.size());
  }
  std::memcpy(static_cast<void*>(&value), item.bytes.data(), sizeof(value));
  return value;
}

std::int64_t integerOf(const Item& item, bool isSigned) {
  if (item.bytes.size() == sizeof(std::int64_t)) return valueOf<std::int64_t>(item);
  if (isSigned) return valueOf<std::int32_t>(item);
  return valueOf<std::uint32_t>(item);
}

/// One conversion of a format: "%{annotation}-08.3lld".
struct Conversion {
  bool isPublic = false;
  bool isPrivate = false;
  std::string shape;  // Flags, width and precision.
  bool countedPrecision = false;
  char letter = 0;
};

template <class Value>
std::string printed(const std::string& format, Value value) {
  std::array<char, 512> text{};
  const int length = std::snprintf(text.data(), text.size(), format.c_str(), value);
  if (length < 0 || static_cast<std::size_t>(length) >= text.size()) {
    trap(rule, "a conversion of " + std::to_string(length) + " bytes");
  }
  return std::string(text.data(), static_cast<std::size_t>(length));
}

class Renderer {
 public:
  Renderer(std::string_view format, const Items& packed) : rest(format), items(packed) {}

  std::string run() {
    while (!rest.empty()) {
      const std::size_t mark = std::min(rest.find('%'), rest.size());
      text += rest.substr(0, mark);
      rest.remove_prefix(mark);
      if (rest.empty()) break;
      rest.remove_prefix(1);
      if (rest.starts_with('%')) {
        text += take();
      } else {
        convert(parse());
      }
    }
    items.finish();
    return text;
  }

 private:
  char take() {
    if (rest.empty()) trap(rule, "the format ends within a conversion");
    const char character = rest.front();
    rest.remove_prefix(1);
    return character;
  }

  std::string takeAll(std::string_view set) {
    const std::size_t end = std::min(rest.find_first_not_of(set), rest.size());
    std::string taken(rest.substr(0, end));
    rest.remove_prefix(end);
    return taken;
  }

  Conversion parse() {
    Conversion found;
    if (rest.starts_with('{')) {
      const std::size_t end = rest.find('}');
      const std::string_view annotation = rest.substr(1, end - 1);
      found.isPublic = annotation == "public";
      found.isPrivate = annotation == "private";
      if (!found.isPublic && !found.isPrivate) trap("os_log's annotation", annotation);
      rest.remove_prefix(end + 1);
    }
    found.shape = takeAll("-+ #0123456789");
    if (rest.starts_with(".*")) {
      found.countedPrecision = true;
      rest.remove_prefix(2);
    } else if (rest.starts_with('.')) {
      found.shape += takeAll(".0123456789");
    }
    takeAll("lqjzt");  // The item carries its own size.
    found.letter = take();
    return found;
  }

  void convert(const Conversion& wanted) {
    constexpr std::string_view integers = "diuxXoc";
    constexpr std::string_view reals = "fFeEgGaA";
    if (wanted.letter == 's') {
      string(wanted);
    } else if (wanted.countedPrecision) {
      trap("os_log's conversion", std::string(".*") + wanted.letter);
    } else if (integers.find(wanted.letter) != std::string_view::npos) {
      integer(wanted);
    } else if (reals.find(wanted.letter) != std::string_view::npos) {
      const Item item = next(wanted, ItemKind::Scalar);
      tell(item,
           [&] { return printed("%" + wanted.shape + wanted.letter, valueOf<double>(item)); });
    } else if (wanted.letter == 'p') {
      const Item item = next(wanted, ItemKind::Scalar);
      tell(item, [&] { return printed("%" + wanted.shape + "p", valueOf<const void*>(item)); });
    } else {
      trap("os_log's conversion", std::string(1, wanted.letter));
    }
  }

  /// The compiler packs the annotation into the item: both must say the same.
  Item next(const Conversion& wanted, ItemKind kind) {
    const Item item = items.next(kind);
    if (item.isPublic != wanted.isPublic || item.isPrivate != wanted.isPrivate) {
      refuse("an item public and private against its format:", item.isPublic, item.isPrivate);
    }
    return item;
  }

  template <class Tell>
  void tell(const Item& item, Tell told) {
    text += item.isPrivate ? "<private>" : told();
  }

  void integer(const Conversion& wanted) {
    const Item item = next(wanted, ItemKind::Scalar);
    const bool isSigned = wanted.letter == 'd' || wanted.letter == 'i';
    tell(item, [&] {
      if (wanted.letter == 'c') {
        return printed("%" + wanted.shape + "c", static_cast<int>(integerOf(item, true)));
      }
      return printed("%" + wanted.shape + "ll" + wanted.letter,
                     static_cast<long long>(integerOf(item, isSigned)));
    });
  }

  void string(const Conversion& wanted) {
    std::optional<std::int32_t> most;
    if (wanted.countedPrecision) most = valueOf<std::int32_t>(items.next(ItemKind::Count));
    const Item item = next(wanted, ItemKind::Text);
    if (!wanted.shape.empty()) trap("os_log's conversion", "%" + wanted.shape + "s");
    if (!item.isPublic) {
      text += "<private>";
      return;
    }
    const char* const value = valueOf<const char*>(item);
    if (value == nullptr) {
      text += "(null)";
    } else if (most && *most >= 0) {
      text += std::string_view(value, ::strnlen(value, static_cast<std::size_t>(*most)));
    } else {
      text += value;
    }
  }

  std::string_view rest;
  Items items;
  std::string text;
};

}  // namespace

std::string osLogText(const char* format, std::span<const std::uint8_t> buffer) {
  return Renderer(format, Items(buffer)).run();
}

}  // namespace tinmac
