#include "Tests/tin/ObjectsProbe.h"

#include <string_view>

#include "Tests/tin/FrameworkImages.h"
#include "TinMac/Frameworks/Above.h"
#include "TinMac/Frameworks/BelowServices.h"

namespace tinmac::objects {

namespace {

void tellEverything(const TinValueSink& sink) {
  const auto key = [&](std::string_view name) { sink.key(sink.context, name.data(), name.size()); };
  sink.beginDictionary(sink.context);
  key("array");
  sink.beginArray(sink.context);
  sink.integer(sink.context, -5);
  sink.absent(sink.context);
  sink.text(sink.context, "\u00FC", 2);
  sink.end(sink.context);
  key("boolean");
  sink.boolean(sink.context, 1);
  key("data");
  const std::uint8_t bytes[] = {0, 255};
  sink.data(sink.context, bytes, sizeof bytes);
  key("date");
  sink.date(sink.context, -1.5);
  key("real");
  sink.real(sink.context, 14400);
  sink.end(sink.context);
}

void tellError(const TinValueSink& sink) {
  sink.beginError(sink.context, "domain", 6, 4);
  sink.beginDictionary(sink.context);
  sink.key(sink.context, "why", 3);
  sink.text(sink.context, "because", 7);
  sink.end(sink.context);
  sink.end(sink.context);
}

void bundleInfo(const char* key, const TinValueSink* sink) {
  const std::string_view wanted = key;
  if (wanted == "everything") {
    tellEverything(*sink);
  } else if (wanted == "error") {
    tellError(*sink);
  } else {
    sink->absent(sink->context);
  }
}

double seconds() { return 789.5; }

std::uint64_t nothing() { return 0; }

template <class Function>
void* address(Function* function) {
  return reinterpret_cast<void*>(function);
}

void* machineFunction(std::string_view name) {
  if (name == "_tinBundleInfo") return address(bundleInfo);
  if (name == "_tinSecondsSince2001") return address(seconds);
  return name == "_tinPowerUIClass" ? address(nothing) : nullptr;
}

const FrameworkImages& images() {
  static const auto& loaded = *new FrameworkImages(TIN_FRAMEWORKS, TIN_PROBES, machineFunction);
  return loaded;
}

}  // namespace

const std::string& whyNotLoaded() { return images().failure(); }

std::string probe(const char* name) { return images().inProgram<const char*()>(name)(); }

void call(const char* name) { images().inProgram<void()>(name)(); }

void settle() { images().inFrameworks<decltype(tinSettleBooks)>("tinSettleBooks")(); }

}  // namespace tinmac::objects
