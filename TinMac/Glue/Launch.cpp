#include "TinMac/Glue/Launch.h"

#include <CLI/CLI.hpp>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <expected>
#include <memory>
#include <vector>

#include "TinMac/Frameworks/Above.h"
#include "TinMac/Glue/Exports.h"
#include "TinMac/Glue/Machine.h"
#include "TinMac/Glue/MachineHost.h"
#include "TinMac/Loader/Image.h"
#include "TinMac/System/Books.h"
#include "TinMac/System/Exports.h"
#include "TinMac/System/Process.h"

namespace tinmac {

namespace {

/// The program begins here in every run, so that the emulator's log of its code can be read.
/// KorvelHelper.sh and script/tin-mac-lines name the same address.
constexpr std::uintptr_t programPlace = 0x60'0000'0000;

using Loaded = std::expected<std::unique_ptr<Image>, Image::Failure>;

void* find(std::span<const Export> exports, std::string_view name) {
  for (const Export& offered : exports) {
    if (offered.name == name) return offered.address;
  }
  return nullptr;
}

/// The frameworks may use everything below them.
void* findForFrameworks(std::string_view name) {
  for (const auto exports : {systemExports(), supportExports(), glueExports()}) {
    if (void* address = find(exports, name)) return address;
  }
  return nullptr;
}

/// The program may use what Apple's libraries offer, and no function of our own.
void* findForProgram(const Image& frameworks, std::string_view name) {
  if (name.starts_with("_tin")) return nullptr;
  if (void* address = frameworks.symbol(name)) return address;
  return find(systemExports(), name);
}

Loaded load(const std::string& path, const Resolver& resolve, std::byte* place = nullptr) {
  Loaded image = Image::map(path, place);
  if (!image) return image;
  if (const auto bound = (*image)->bind(resolve); !bound) return std::unexpected(bound.error());
  if (const auto closed = (*image)->protect(); !closed) return std::unexpected(closed.error());
  if (const auto known = (*image)->registerUnwind(); !known) return std::unexpected(known.error());
  return image;
}

template <class Function>
Function* functionOf(const Image& image, std::string_view name) {
  return reinterpret_cast<Function*>(image.symbol(name));
}

/// Tells the frameworks of an image; what they hear stays for the process's life.
void announce(const Image& frameworks, const Image& image) {
  auto sections = std::make_unique<std::vector<TinSection>>();
  for (const ImageSection& section : image.sections()) {
    sections->push_back(
        {section.segment.c_str(), section.name.c_str(), section.address, section.size});
  }
  auto known = std::make_unique<TinImage>(
      TinImage{image.path().c_str(), image.header(), sections->data(), sections->size()});
  functionOf<decltype(tinRegisterImage)>(frameworks, "_tinRegisterImage")(known.get());
  static_cast<void>(known.release());
  static_cast<void>(sections.release());
}

/// Runs main() with what a Mac hands it: the arguments, no environment, and no word of the
/// kernel's.
int runMain(const Image& program, const Launch& launch) {
  std::vector<std::string> words = launch.words;
  words.insert(words.begin(), launch.program);
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  char* none[] = {nullptr};
  using Main = int (*)(int, char**, char**, char**);
  return reinterpret_cast<Main>(program.entry())(static_cast<int>(words.size()), arguments.data(),
                                                 none, none);
}

int fail(const std::string& path, const std::string& reason) {
  std::fprintf(stderr, "tin-mac: %s: %s\n", path.c_str(), reason.c_str());
  return 1;
}

}  // namespace

int run(const Launch& launch) {
  virtualmac::RemotePlatform remote(launch.options);
  MachineHost machineHost(remote, launch.options.diskRoot);
  setMachine(remote);
  setService({launch.options.serviceName, launch.servicePath});
  setHost(machineHost);

  const Loaded frameworks = load(launch.frameworks, findForFrameworks);
  if (!frameworks) return fail(launch.frameworks, frameworks.error());
  const Image& library = **frameworks;
  const Loaded program = load(
      launch.program, [&library](std::string_view name) { return findForProgram(library, name); },
      std::bit_cast<std::byte*>(programPlace));
  if (!program) return fail(launch.program, program.error());
  if ((*program)->entry() == nullptr) return fail(launch.program, "is no program: it has no main");

  announce(library, library);
  library.runInitialisers();
  announce(library, **program);
  (*program)->runInitialisers();
  beforeBooks(functionOf<decltype(tinSettleBooks)>(library, "_tinSettleBooks"));
  markBooks();
  exitProgram(runMain(**program, launch));
}

void addImages(CLI::App& arguments, Launch& launch) {
  arguments.add_option("frameworks", launch.frameworks, "The stand-ins for Apple's frameworks")
      ->required()
      ->check(CLI::ExistingFile);
  arguments.add_option("program", launch.program, "The Mac's program")
      ->required()
      ->check(CLI::ExistingFile);
}

}  // namespace tinmac
