#include "TinMac/Glue/Values.h"

#include <optional>
#include <utility>

#include "Base/Date.h"
#include "TinMac/System/Trap.h"

namespace tinmac {

using korvel::PropertyValue;

namespace {

std::string text(const char* bytes, std::size_t length) { return {bytes, length}; }

}  // namespace

/// The sink's functions.
struct Hearing {
  static ValueHearer& of(void* context) { return *static_cast<ValueHearer*>(context); }

  static void absent(void* context) { of(context).add(PropertyValue()); }
  static void boolean(void* context, std::uint32_t value) { of(context).add(value != 0); }
  static void integer(void* context, std::int64_t value) { of(context).add(value); }
  static void real(void* context, double value) { of(context).add(value); }
  static void string(void* context, const char* bytes, std::size_t length) {
    of(context).add(text(bytes, length));
  }
  static void data(void* context, const std::uint8_t* bytes, std::size_t length) {
    of(context).add(PropertyValue::Data(bytes, bytes + length));
  }
  static void date(void* context, double seconds) { of(context).add(korvel::Date{seconds}); }
  static void beginArray(void* context) {
    of(context).open.emplace_back(ValueHearer::Open::Kind::Array);
  }
  static void beginDictionary(void* context) {
    of(context).open.emplace_back(ValueHearer::Open::Kind::Dictionary);
  }
  static void key(void* context, const char* bytes, std::size_t length) {
    if (of(context).open.empty()) trap("a key outside a dictionary", "");
    of(context).open.back().key = text(bytes, length);
  }
  static void beginError(void* context, const char* domain, std::size_t length, std::int64_t code) {
    auto& begun = of(context).open.emplace_back(ValueHearer::Open::Kind::Error);
    begun.error.domain = text(domain, length);
    begun.error.code = code;
  }
  static void end(void* context) { of(context).end(); }
};

ValueHearer::ValueHearer()
    : hearing{.context = this,
              .absent = Hearing::absent,
              .boolean = Hearing::boolean,
              .integer = Hearing::integer,
              .real = Hearing::real,
              .text = Hearing::string,
              .data = Hearing::data,
              .date = Hearing::date,
              .beginArray = Hearing::beginArray,
              .beginDictionary = Hearing::beginDictionary,
              .key = Hearing::key,
              .beginError = Hearing::beginError,
              .end = Hearing::end} {}

std::vector<HeardValue> ValueHearer::take() {
  if (!open.empty()) trap("a value was taken before its end", "");
  return std::exchange(values, {});
}

void ValueHearer::add(PropertyValue value) {
  if (open.empty()) {
    values.emplace_back(std::move(value));
    return;
  }
  Open& inside = open.back();
  switch (inside.kind) {
    case Open::Kind::Array:
      inside.elements.push_back(std::move(value));
      return;
    case Open::Kind::Dictionary:
      inside.entries.insert_or_assign(inside.key, std::move(value));
      return;
    case Open::Kind::Error:
      if (const auto* details = value.dictionary()) inside.error.userInfo = *details;
      return;
  }
}

void ValueHearer::end() {
  if (open.empty()) trap("an end without a beginning", "");
  Open whole = std::move(open.back());
  open.pop_back();
  switch (whole.kind) {
    case Open::Kind::Array:
      return add(std::move(whole.elements));
    case Open::Kind::Dictionary:
      return add(std::move(whole.entries));
    case Open::Kind::Error:
      if (!open.empty()) trap("an error inside another value", "");
      values.emplace_back(std::move(whole.error));
  }
}

void tell(const PropertyValue& value, const TinValueSink& sink) {
  if (const auto boolean = value.boolean()) return sink.boolean(sink.context, *boolean ? 1 : 0);
  if (const auto integer = value.integer()) return sink.integer(sink.context, *integer);
  if (const auto real = value.real()) return sink.real(sink.context, *real);
  if (const auto* string = value.text())
    return sink.text(sink.context, string->data(), string->size());
  if (const auto* data = value.data()) return sink.data(sink.context, data->data(), data->size());
  if (const auto* date = value.date()) return sink.date(sink.context, date->secondsSinceReference);
  if (const auto* array = value.array()) {
    sink.beginArray(sink.context);
    for (const PropertyValue& element : *array) tell(element, sink);
    return sink.end(sink.context);
  }
  if (const auto* dictionary = value.dictionary()) {
    sink.beginDictionary(sink.context);
    for (const auto& [key, entry] : *dictionary) {
      sink.key(sink.context, key.data(), key.size());
      tell(entry, sink);
    }
    return sink.end(sink.context);
  }
  sink.absent(sink.context);
}

void tell(const korvel::ErrorObject& error, const TinValueSink& sink) {
  sink.beginError(sink.context, error.domain.data(), error.domain.size(), error.code);
  tell(PropertyValue(error.userInfo), sink);
  sink.end(sink.context);
}

void tell(const std::optional<std::string>& text, const TinValueSink& sink) {
  if (!text) return sink.absent(sink.context);
  sink.text(sink.context, text->data(), text->size());
}

}  // namespace tinmac
