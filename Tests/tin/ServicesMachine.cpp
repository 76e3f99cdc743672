#include "Tests/tin/ServicesMachine.h"

#include <cstring>
#include <utility>

namespace tinmac::services {

namespace {

std::string number(std::int64_t value) { return std::to_string(value); }

void note(std::string entry) { machine().journal.push_back(std::move(entry)); }

TextSink& outgoing() {
  static TextSink sink;
  return sink;
}

const TinValueSink* tinOutgoingValue() { return &outgoing().sink(); }

std::uint32_t tinServiceMatching(const char* className) {
  return std::string_view(className) == "AppleSMC" ? 7 : 0;
}
std::int32_t tinObjectRelease(std::uint32_t object) {
  note("release " + number(object));
  return 0;
}
std::uint32_t tinObjectConformsTo(std::uint32_t object, const char* className) {
  return object == 7 && std::string_view(className) == "IOService" ? 1 : 0;
}
void tinEntryProperty(std::uint32_t, const char* key, const TinValueSink* sink) {
  if (std::string_view(key) == "present") {
    sink->boolean(sink->context, 1);
  } else {
    sink->absent(sink->context);
  }
}
std::int32_t tinEntryProperties(std::uint32_t entry, const TinValueSink* sink) {
  if (entry == 21) {
    sink->absent(sink->context);
    return 0;
  }
  sink->beginDictionary(sink->context);
  sink->key(sink->context, "count", 5);
  sink->integer(sink->context, 3);
  sink->end(sink->context);
  return 0;
}
std::int32_t tinEntryIterator(std::uint32_t, const char* plane, std::uint32_t options,
                              std::uint32_t* iterator) {
  note(std::string("iterate ") + plane + " " + number(options));
  *iterator = 20;
  return 0;
}
std::uint32_t tinIteratorNext(std::uint32_t) {
  static bool more = false;
  more = !more;
  return more ? 21 : 0;
}
std::int32_t tinServiceOpen(std::uint32_t service, std::uint32_t* connection) {
  note("open " + number(service));
  *connection = 30;
  return 0;
}
std::int32_t tinServiceClose(std::uint32_t connection) {
  note("close " + number(connection));
  return 0;
}
std::int32_t tinCallStruct(std::uint32_t, const std::uint8_t* input, std::uint8_t* output) {
  std::memcpy(output, input, 80);
  output[79] = 1;
  return 0;
}

std::uint64_t tinPowerSourcesInfo() { return 50; }
std::uint64_t tinPowerSourcesList(std::uint64_t, std::uint32_t* isArray,
                                  void (*element)(void* context, std::uint64_t source),
                                  void* context) {
  *isArray = machine().sourcesAreNoArray ? 0 : 1;
  if (*isArray == 1) {
    element(context, 51);
    element(context, 52);
  }
  return 53;
}
void tinPowerSourceDescription(std::uint64_t info, std::uint64_t source, const TinValueSink* sink) {
  const std::string text = number(static_cast<std::int64_t>(info + source));
  sink->beginDictionary(sink->context);
  sink->key(sink->context, "Type", 4);
  sink->text(sink->context, text.data(), text.size());
  sink->end(sink->context);
}
void tinPowerSourcesRelease(std::uint64_t object) {
  note("release sources " + number(static_cast<std::int64_t>(object)));
}
std::int32_t tinAssertionCreate(std::uint32_t* assertion) {
  note("assert " + outgoing().take());
  *assertion = 40;
  return 0;
}
std::int32_t tinAssertionRelease(std::uint32_t assertion) { return assertion == 40 ? 0 : -1; }
std::int32_t tinSetPowerSetting(const char* key, std::uint32_t value) {
  note(std::string("set ") + key + " " + number(value));
  return 0;
}
void tinPowerSettings(const TinValueSink* sink) { sink->absent(sink->context); }

std::uint32_t tinPowerRegister(void* context, TinInterest heard, std::uint64_t* port,
                               std::uint32_t* notifier) {
  machine().interestContext = context;
  machine().interest = heard;
  *port = 60;
  *notifier = 61;
  return 62;
}
std::int32_t tinPowerDeregister(std::uint32_t* notifier) {
  note("deregister " + number(std::exchange(*notifier, 0U)));
  return 0;
}
std::int32_t tinPowerAllow(std::uint32_t connection, std::int64_t notification) {
  note("allow " + number(connection) + " " + number(notification));
  return 0;
}
std::uint64_t tinPortSource(std::uint64_t) { return 63; }
void tinPortDestroy(std::uint64_t port) {
  note("destroy " + number(static_cast<std::int64_t>(port)));
}
std::uint64_t tinMainRunLoop() { return 64; }
void tinRunLoopAddSource(std::uint64_t, std::uint64_t source) {
  note("add " + number(static_cast<std::int64_t>(source)));
}
void tinRunLoopRemoveSource(std::uint64_t, std::uint64_t source) {
  note("remove " + number(static_cast<std::int64_t>(source)));
}

}  // namespace

Machine& machine() {
  static Machine only;
  return only;
}

void reset() { machine() = Machine(); }

std::string takeOutgoing() { return outgoing().take(); }

std::string takeJournal() {
  std::string text;
  for (const std::string& entry : std::exchange(machine().journal, {})) {
    text += entry + "\n";
  }
  return text;
}

void* machineFunction(std::string_view name) {
  TIN_MACHINE(tinOutgoingValue);
  TIN_MACHINE(tinServiceMatching);
  TIN_MACHINE(tinObjectRelease);
  TIN_MACHINE(tinObjectConformsTo);
  TIN_MACHINE(tinEntryProperty);
  TIN_MACHINE(tinEntryProperties);
  TIN_MACHINE(tinEntryIterator);
  TIN_MACHINE(tinIteratorNext);
  TIN_MACHINE(tinServiceOpen);
  TIN_MACHINE(tinServiceClose);
  TIN_MACHINE(tinCallStruct);
  TIN_MACHINE(tinPowerSourcesInfo);
  TIN_MACHINE(tinPowerSourcesList);
  TIN_MACHINE(tinPowerSourceDescription);
  TIN_MACHINE(tinPowerSourcesRelease);
  TIN_MACHINE(tinAssertionCreate);
  TIN_MACHINE(tinAssertionRelease);
  TIN_MACHINE(tinSetPowerSetting);
  TIN_MACHINE(tinPowerSettings);
  TIN_MACHINE(tinPowerRegister);
  TIN_MACHINE(tinPowerDeregister);
  TIN_MACHINE(tinPowerAllow);
  TIN_MACHINE(tinPortSource);
  TIN_MACHINE(tinPortDestroy);
  TIN_MACHINE(tinMainRunLoop);
  TIN_MACHINE(tinRunLoopAddSource);
  TIN_MACHINE(tinRunLoopRemoveSource);
  return serviceFunction(name);
}

}  // namespace tinmac::services
