#include "macOS/PropertyConversion.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace korvel::macos {

namespace {

constexpr int deepestNesting = 32;

PropertyValue propertyValueAt(CFTypeRef value, int depth);

PropertyValue numberValue(CFNumberRef number) {
  if (!CFNumberIsFloatType(number)) {
    std::int64_t whole = 0;
    if (CFNumberGetValue(number, kCFNumberSInt64Type, &whole)) return whole;
  }
  double real = 0;
  CFNumberGetValue(number, kCFNumberDoubleType, &real);
  return real;
}

PropertyValue dataValue(CFDataRef data) {
  const auto length = static_cast<std::size_t>(CFDataGetLength(data));
  const UInt8* bytes = CFDataGetBytePtr(data);
  return length == 0 ? PropertyValue::Data() : PropertyValue::Data(bytes, bytes + length);
}

PropertyValue arrayValue(CFArrayRef array, int depth) {
  PropertyValue::Array elements;
  const CFIndex count = CFArrayGetCount(array);
  elements.reserve(static_cast<std::size_t>(count));
  for (CFIndex index = 0; index < count; ++index) {
    elements.push_back(propertyValueAt(CFArrayGetValueAtIndex(array, index), depth + 1));
  }
  return elements;
}

PropertyValue dictionaryValue(CFDictionaryRef dictionary, int depth) {
  const auto count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
  std::vector<const void*> keys(count);
  std::vector<const void*> values(count);
  CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
  PropertyValue::Dictionary entries;
  for (std::size_t index = 0; index < count; ++index) {
    if (keys[index] == nullptr || CFGetTypeID(keys[index]) != CFStringGetTypeID()) return {};
    const std::optional<std::string> key = utf8Text(static_cast<CFStringRef>(keys[index]));
    if (!key) return {};
    entries.insert_or_assign(*key, propertyValueAt(values[index], depth + 1));
  }
  return entries;
}

PropertyValue propertyValueAt(CFTypeRef value, int depth) {
  if (value == nullptr || depth > deepestNesting) return {};
  const CFTypeID type = CFGetTypeID(value);
  if (type == CFBooleanGetTypeID()) {
    return static_cast<bool>(CFBooleanGetValue(static_cast<CFBooleanRef>(value)));
  }
  if (type == CFNumberGetTypeID()) return numberValue(static_cast<CFNumberRef>(value));
  if (type == CFStringGetTypeID()) {
    const std::optional<std::string> text = utf8Text(static_cast<CFStringRef>(value));
    return text ? PropertyValue(*text) : PropertyValue();
  }
  if (type == CFDateGetTypeID()) {
    return Date{CFDateGetAbsoluteTime(static_cast<CFDateRef>(value))};
  }
  if (type == CFDataGetTypeID()) return dataValue(static_cast<CFDataRef>(value));
  if (type == CFArrayGetTypeID()) return arrayValue(static_cast<CFArrayRef>(value), depth);
  if (type == CFDictionaryGetTypeID()) {
    return dictionaryValue(static_cast<CFDictionaryRef>(value), depth);
  }
  return {};
}

CFReference<CFTypeRef> makeCFArray(const PropertyValue::Array& elements) {
  const auto array = CFReference<CFMutableArrayRef>::adopting(
      CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
  for (const PropertyValue& element : elements) {
    if (const CFReference<CFTypeRef> value = makeCFValue(element)) {
      CFArrayAppendValue(array.get(), value.get());
    }
  }
  return CFReference<CFTypeRef>::retaining(array.get());
}

CFReference<CFTypeRef> makeCFNumber(CFNumberType type, const void* number) {
  return CFReference<CFTypeRef>::adopting(CFNumberCreate(kCFAllocatorDefault, type, number));
}

}  // namespace

PropertyValue propertyValue(CFTypeRef value) { return propertyValueAt(value, 0); }

CFReference<CFTypeRef> makeCFValue(const PropertyValue& value) {
  if (const auto boolean = value.boolean()) {
    return CFReference<CFTypeRef>::retaining(*boolean ? kCFBooleanTrue : kCFBooleanFalse);
  }
  if (const auto whole = value.integer()) return makeCFNumber(kCFNumberSInt64Type, &*whole);
  if (const auto real = value.real()) return makeCFNumber(kCFNumberDoubleType, &*real);
  if (const auto* text = value.text()) {
    return CFReference<CFTypeRef>::adopting(makeCFString(*text).handOver());
  }
  if (const auto* date = value.date()) {
    return CFReference<CFTypeRef>::adopting(
        CFDateCreate(kCFAllocatorDefault, date->secondsSinceReference));
  }
  if (const auto* data = value.data()) {
    return CFReference<CFTypeRef>::adopting(
        CFDataCreate(kCFAllocatorDefault, data->data(), static_cast<CFIndex>(data->size())));
  }
  if (const auto* array = value.array()) return makeCFArray(*array);
  if (const auto* entries = value.dictionary()) {
    return CFReference<CFTypeRef>::adopting(makeCFDictionary(*entries).handOver());
  }
  return {};
}

CFReference<CFDictionaryRef> makeCFDictionary(const PropertyValue::Dictionary& entries) {
  const auto dictionary = CFReference<CFMutableDictionaryRef>::adopting(CFDictionaryCreateMutable(
      kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  for (const auto& [key, value] : entries) {
    if (const CFReference<CFTypeRef> converted = makeCFValue(value)) {
      CFDictionarySetValue(dictionary.get(), makeCFString(key).get(), converted.get());
    }
  }
  return CFReference<CFDictionaryRef>::retaining(dictionary.get());
}

std::optional<std::string> utf8Text(CFStringRef string) {
  if (string == nullptr) return std::nullopt;
  constexpr UInt8 replacement = '?';
  const CFRange whole = CFRangeMake(0, CFStringGetLength(string));
  CFIndex needed = 0;
  CFIndex converted = CFStringGetBytes(string, whole, kCFStringEncodingUTF8, replacement, false,
                                       nullptr, 0, &needed);
  if (converted != whole.length) return std::nullopt;
  std::string text(static_cast<std::size_t>(needed), '\0');
  converted = CFStringGetBytes(string, whole, kCFStringEncodingUTF8, replacement, false,
                               reinterpret_cast<UInt8*>(text.data()), needed, &needed);
  if (converted != whole.length) return std::nullopt;
  return text;
}

CFReference<CFStringRef> makeCFString(std::string_view text) {
  const auto* bytes = reinterpret_cast<const UInt8*>(text.data());
  const auto length = static_cast<CFIndex>(text.size());
  auto string = CFReference<CFStringRef>::adopting(
      CFStringCreateWithBytes(kCFAllocatorDefault, bytes, length, kCFStringEncodingUTF8, false));
  if (string) return string;
  return CFReference<CFStringRef>::adopting(CFStringCreateWithBytes(
      kCFAllocatorDefault, bytes, length, kCFStringEncodingISOLatin1, false));
}

}  // namespace korvel::macos
