#import "TinMac/Frameworks/Conversion.h"

#include <cmath>

namespace tinmac {

/// The sink's functions. Each is handed the builder as its context.
struct Hearing {
  static ValueBuilder& builder(void* context) { return *static_cast<ValueBuilder*>(context); }

  static void absent(void* context) { builder(context).add(nil); }
  static void boolean(void* context, std::uint32_t value) {
    builder(context).add(booleanObject(value != 0));
  }
  static void integer(void* context, std::int64_t value) {
    builder(context).add(makeInteger(value));
  }
  static void real(void* context, double value) { builder(context).add(makeReal(value)); }
  static void text(void* context, const char* bytes, std::size_t length) {
    builder(context).add(makeString({bytes, length}));
  }
  static void data(void* context, const std::uint8_t* bytes, std::size_t length) {
    builder(context).add(makeData({bytes, length}));
  }
  static void date(void* context, double seconds) { builder(context).add(makeDate(seconds)); }
  static void beginArray(void* context) {
    builder(context).open.emplace_back().container = makeArray();
  }
  static void beginDictionary(void* context) {
    builder(context).open.emplace_back().container = makeDictionary();
  }
  static void key(void* context, const char* bytes, std::size_t length) {
    auto& open = builder(context).open;
    if (open.empty() || open.back().key != nil)
      trap("a key was told out of place", {bytes, length});
    open.back().key = makeString({bytes, length});
  }
  static void beginError(void* context, const char* domain, std::size_t length, std::int64_t code) {
    ValueBuilder::Open& error = builder(context).open.emplace_back();
    error.isError = true;
    error.domain.assign(domain, length);
    error.code = code;
  }
  static void end(void* context) { builder(context).end(); }
};

ValueBuilder::ValueBuilder()
    : hearing{.context = this,
              .absent = Hearing::absent,
              .boolean = Hearing::boolean,
              .integer = Hearing::integer,
              .real = Hearing::real,
              .text = Hearing::text,
              .data = Hearing::data,
              .date = Hearing::date,
              .beginArray = Hearing::beginArray,
              .beginDictionary = Hearing::beginDictionary,
              .key = Hearing::key,
              .beginError = Hearing::beginError,
              .end = Hearing::end} {}

ValueBuilder::~ValueBuilder() {
  for (const Open& each : open) {
    [each.container release];
    [each.key release];
  }
  for (id value : values) [value release];
}

id ValueBuilder::take() {
  if (values.empty() || !open.empty()) trap("a value was taken before it was told", "ValueBuilder");
  id first = values.front();
  values.erase(values.begin());
  return first;
}

/// Takes the reference over.
void ValueBuilder::add(id made) {
  if (open.empty()) {
    values.push_back(made);
    return;
  }
  Open& around = open.back();
  if (around.isError) {
    if (made != nil) expectKind(made, [NSDictionary class], "the details of an error");
    [around.container release];
    around.container = made;
    return;
  }
  // Nothing can hold nil: an object that is no property list keeps its place.
  if (made == nil) made = (id)kCFNull;
  if (isKind(around.container, [NSMutableArray class])) {
    append(static_cast<NSMutableArray*>(around.container), made);
  } else {
    if (around.key == nil) trap("a value was told before its key", "ValueBuilder");
    set(static_cast<NSMutableDictionary*>(around.container), around.key, made);
    [around.key release];
    around.key = nil;
  }
  [made release];
}

void ValueBuilder::end() {
  if (open.empty() || open.back().key != nil) trap("an end was told out of place", "ValueBuilder");
  const Open ended = std::move(open.back());
  open.pop_back();
  if (!ended.isError) {
    add(ended.container);
    return;
  }
  NSError* error = makeError(ended.domain, ended.code, static_cast<NSDictionary*>(ended.container));
  [ended.container release];
  add(error);
}

namespace {

void tellText(NSString* string, const TinValueSink& sink,
              void (*tellBytes)(void*, const char*, std::size_t)) {
  const std::string_view text = utf8(string);
  tellBytes(sink.context, text.data(), text.size());
}

void tellNumber(NSNumber* number, const TinValueSink& sink) {
  if (CFNumberIsFloatType((CFNumberRef)number) != 0) {
    sink.real(sink.context, [number doubleValue]);
  } else {
    sink.integer(sink.context, [number longLongValue]);
  }
}

void tellArray(NSArray* array, const TinValueSink& sink) {
  sink.beginArray(sink.context);
  for (id element : elementsOf(array)) tell(element, sink);
  sink.end(sink.context);
}

void tellDictionary(NSDictionary* dictionary, const TinValueSink& sink) {
  for (const Entry& entry : entriesOf(dictionary)) {
    if (!isKind(entry.key, [NSString class])) {
      sink.absent(sink.context);
      return;
    }
  }
  sink.beginDictionary(sink.context);
  for (const Entry& entry : entriesOf(dictionary)) {
    tellText(static_cast<NSString*>(entry.key), sink, sink.key);
    tell(entry.value, sink);
  }
  sink.end(sink.context);
}

void tellError(NSError* error, const TinValueSink& sink) {
  const std::string_view domain = utf8([error domain]);
  sink.beginError(sink.context, domain.data(), domain.size(), [error code]);
  tell([error userInfo], sink);
  sink.end(sink.context);
}

}  // namespace

void tell(id value, const TinValueSink& sink) {
  if (isBoolean(value)) {
    sink.boolean(sink.context, [static_cast<NSNumber*>(value) boolValue] ? 1 : 0);
  } else if (isKind(value, [NSNumber class])) {
    tellNumber(static_cast<NSNumber*>(value), sink);
  } else if (isKind(value, [NSString class])) {
    tellText(static_cast<NSString*>(value), sink, sink.text);
  } else if (isKind(value, [NSDate class])) {
    sink.date(sink.context, [static_cast<NSDate*>(value) timeIntervalSinceReferenceDate]);
  } else if (isKind(value, [NSData class])) {
    const std::span<const std::uint8_t> bytes = bytesOf(static_cast<NSData*>(value));
    sink.data(sink.context, bytes.data(), bytes.size());
  } else if (isKind(value, [NSArray class])) {
    tellArray(static_cast<NSArray*>(value), sink);
  } else if (isKind(value, [NSDictionary class])) {
    tellDictionary(static_cast<NSDictionary*>(value), sink);
  } else if (isKind(value, [NSError class])) {
    tellError(static_cast<NSError*>(value), sink);
  } else {
    sink.absent(sink.context);
  }
}

}  // namespace tinmac
