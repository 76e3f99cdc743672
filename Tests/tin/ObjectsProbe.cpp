#include "Tests/tin/ObjectsProbe.h"

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string_view>
#include <vector>

#include "TinMac/Frameworks/Above.h"
#include "TinMac/Frameworks/BelowServices.h"
#include "TinMac/Loader/Image.h"
#include "TinMac/System/Exports.h"
#include "TinMac/System/Trap.h"

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

void notHere() { trap("a function of the machine that this test has not", "objects"); }

std::uint64_t nothing() { return 0; }

template <class Function>
void* address(Function* function) {
  return reinterpret_cast<void*>(function);
}

void* find(std::span<const Export> exports, std::string_view name) {
  for (const Export& offered : exports) {
    if (offered.name == name) {
      return offered.address;
    }
  }
  return nullptr;
}

void* findForFrameworks(std::string_view name) {
  if (name == "_tinBundleInfo") {
    return address(bundleInfo);
  }
  if (name == "_tinSecondsSince2001") {
    return address(seconds);
  }
  if (name == "_tinPowerUIClass") {
    return address(nothing);
  }
  for (const auto exports : {systemExports(), supportExports()}) {
    if (void* found = find(exports, name)) {
      return found;
    }
  }
  return name.starts_with("_tin") ? address(notHere) : nullptr;
}

struct Images {
  std::unique_ptr<Image> frameworks;
  std::unique_ptr<Image> probes;
  std::string failure;

  template <class Function>
  Function* function(const Image& image, const char* name) const {
    void* found = image.symbol(std::string("_") + name);
    if (found == nullptr) {
      trap("a probe that does not exist", name);
    }
    return reinterpret_cast<Function*>(found);
  }

  std::unique_ptr<Image> load(const std::string& path, const Resolver& resolve) {
    auto image = Image::map(path);
    if (!image) {
      failure = image.error();
      return nullptr;
    }
    const auto bound = (*image)->bind(resolve);
    const auto closed = (*image)->protect();
    const auto known = (*image)->registerUnwind();
    if (!bound || !closed || !known) {
      failure = !bound ? bound.error() : !closed ? closed.error() : known.error();
      return nullptr;
    }
    return std::move(*image);
  }

  void announce(const Image& image) const {
    auto& sections = *new std::vector<TinSection>;
    for (const ImageSection& section : image.sections()) {
      sections.push_back(
          {section.segment.c_str(), section.name.c_str(), section.address, section.size});
    }
    const auto* known =
        new TinImage{image.path().c_str(), image.header(), sections.data(), sections.size()};
    function<decltype(tinRegisterImage)>(*frameworks, "tinRegisterImage")(known);
    image.runInitialisers();
  }

  Images() {
    if (!std::filesystem::exists(TIN_FRAMEWORKS) || !std::filesystem::exists(TIN_PROBES)) {
      failure = "not built: " TIN_FRAMEWORKS " and " TIN_PROBES;
      return;
    }
    frameworks = load(TIN_FRAMEWORKS, findForFrameworks);
    if (frameworks == nullptr) {
      return;
    }
    probes = load(TIN_PROBES, [this](std::string_view name) {
      void* found = name.starts_with("_tin") ? nullptr : frameworks->symbol(name);
      return found != nullptr ? found : find(systemExports(), name);
    });
    if (probes == nullptr) {
      return;
    }
    announce(*frameworks);
    announce(*probes);
  }
};

const Images& images() {
  static const auto& loaded = *new Images;
  return loaded;
}

}  // namespace

const std::string& whyNotLoaded() { return images().failure; }

std::string probe(const char* name) {
  return images().function<const char*()>(*images().probes, name)();
}

void call(const char* name) { images().function<void()>(*images().probes, name)(); }

void settle() {
  images().function<decltype(tinSettleBooks)>(*images().frameworks, "tinSettleBooks")();
}

}  // namespace tinmac::objects
