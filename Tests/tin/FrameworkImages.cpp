#include "Tests/tin/FrameworkImages.h"

#include <filesystem>
#include <span>
#include <utility>
#include <vector>

#include "TinMac/Frameworks/Above.h"
#include "TinMac/System/Exports.h"

namespace tinmac {

namespace {

void* find(std::span<const Export> exports, std::string_view name) {
  for (const Export& offered : exports) {
    if (offered.name == name) {
      return offered.address;
    }
  }
  return nullptr;
}

void notHere() { trap("a test's machine lacks a function that the frameworks call", ""); }

}  // namespace

FrameworkImages::FrameworkImages(const char* frameworksPath, const char* programPath,
                                 Machine machine) {
  for (const char* path : {frameworksPath, programPath}) {
    if (!std::filesystem::exists(path)) {
      reason = std::string("not built: ") + path;
      return;
    }
  }
  frameworks = load(frameworksPath, [&machine](std::string_view name) {
    void* found = machine(name);
    for (const auto exports : {systemExports(), supportExports()}) {
      found = found != nullptr ? found : find(exports, name);
    }
    const bool mayLack = found == nullptr && name.starts_with("_tin");
    return mayLack ? reinterpret_cast<void*>(&notHere) : found;
  });
  if (frameworks == nullptr) {
    return;
  }
  program = load(programPath, [this](std::string_view name) {
    void* found = name.starts_with("_tin") ? nullptr : frameworks->symbol(name);
    return found != nullptr ? found : find(systemExports(), name);
  });
  if (program == nullptr) {
    return;
  }
  announce(*frameworks);
  announce(*program);
}

std::unique_ptr<Image> FrameworkImages::load(const char* path, const Resolver& resolve) {
  auto image = Image::map(path);
  if (!image) {
    reason = image.error();
    return nullptr;
  }
  const auto bound = (*image)->bind(resolve);
  const auto closed = (*image)->protect();
  const auto known = (*image)->registerUnwind();
  reason = !bound ? bound.error() : !closed ? closed.error() : !known ? known.error() : "";
  return reason.empty() ? std::move(*image) : nullptr;
}

void FrameworkImages::announce(const Image& image) const {
  // The frameworks keep both for the process's life.
  auto& sections = *new std::vector<TinSection>;
  for (const ImageSection& section : image.sections()) {
    sections.push_back(
        {section.segment.c_str(), section.name.c_str(), section.address, section.size});
  }
  const auto* known =
      new TinImage{image.path().c_str(), image.header(), sections.data(), sections.size()};
  inFrameworks<decltype(tinRegisterImage)>("tinRegisterImage")(known);
  image.runInitialisers();
}

}  // namespace tinmac
