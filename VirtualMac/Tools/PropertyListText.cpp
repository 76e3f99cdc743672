#include "VirtualMac/Tools/PropertyListText.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "VirtualMac/Machine/Bounds.h"

namespace virtualmac {

namespace {

constexpr std::string_view blanks = " \t\r\n";
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

std::string_view trimmed(std::string_view text) {
  if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
  text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
  const std::size_t last = text.find_last_not_of(blanks);
  return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

/// Steps over a part in which tags are none; false: there is no such part here.
bool skipsPart(std::string_view& xml, std::string_view begin, std::string_view end) {
  if (!xml.starts_with(begin)) return false;
  const std::size_t found = xml.find(end, begin.size());
  xml.remove_prefix(found == std::string_view::npos ? xml.size() : found + end.size());
  return true;
}

/// The nesting of arrays and dictionaries.
std::size_t depthOf(std::string_view xml) {
  std::size_t depth = 0;
  std::size_t deepest = 0;
  for (;;) {
    xml.remove_prefix(std::min(xml.find('<'), xml.size()));
    if (xml.empty()) return deepest;
    if (skipsPart(xml, "<!--", "-->") || skipsPart(xml, "<![CDATA[", "]]>")) continue;
    const std::string_view tag = xml.substr(0, std::min(xml.find('>'), xml.size()));
    if (tag.starts_with("</array") || tag.starts_with("</dict")) {
      depth -= std::min<std::size_t>(depth, 1);
    } else if (tag.starts_with("<array") || tag.starts_with("<dict")) {
      deepest = std::max(deepest, ++depth);
      if (tag.ends_with('/')) --depth;
    }
    xml.remove_prefix(tag.size());
  }
}

/// Says what is wrong before anything is parsed; empty: nothing.
std::string defectOf(std::string_view xml) {
  if (xml.empty())
    return "is empty: ioreg found no AppleSmartBattery, as on a Mac without a battery (there is a "
           "profile desktop)";
  if (xml.starts_with("+-o") || xml.starts_with('|'))
    return "is the tree that ioreg prints without -a; a dump is made by: ioreg -a -r -c "
           "AppleSmartBattery";
  if (xml.starts_with("bplist"))
    return "is a binary property list; plutil -convert xml1 makes XML of it";
  constexpr std::array<std::string_view, 3> beginnings = {"<?xml", "<!DOCTYPE", "<plist"};
  if (std::ranges::none_of(beginnings, [&](auto each) { return xml.starts_with(each); }))
    return "is no property list in XML, which begins with <?xml or <plist";
  if (!xml.ends_with("</plist>")) return "does not end with </plist>: it was cut";
  if (depthOf(xml) > bounds::deepestJSON)
    return "is nested more than " + std::to_string(bounds::deepestJSON) + " deep";
  return {};
}

}  // namespace

std::expected<korvel::PropertyValue, std::string> propertyListFrom(std::string_view text) {
  const std::string_view xml = trimmed(text);
  if (std::string defect = defectOf(xml); !defect.empty()) return std::unexpected(defect);
  if (auto value = parsedPropertyList(xml)) return *std::move(value);
  return std::unexpected("is no whole property list: a tag in it is not closed or not known");
}

}  // namespace virtualmac
