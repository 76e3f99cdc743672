#include "VirtualMac/Remote/DiskWatch.h"

#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <utility>

#include "HelperPersistence.h"
#include "VirtualMac/Machine/Bounds.h"
#include "VirtualMac/Machine/Disk.h"

namespace virtualmac {

namespace {

constexpr std::string_view statePath = korvel::HelperPersistence::statePath;
constexpr std::string_view stateName = statePath.substr(statePath.rfind('/') + 1);

}  // namespace

DiskWatch::DiskWatch(Journal& effects, std::string rootDirectory)
    : journal(effects), root(std::move(rootDirectory)), known(stateFile()) {}

void DiskWatch::replaced(std::string_view path) {
  if (path == statePath)
    tell(stateFile());
  else
    journal.record<EffectID::fileReplaced>(path);
}

void DiskWatch::look() {
  const std::optional<State> now = stateFile();
  if (isKnown(now) || !now) return;
  known && known->node == now->node ? tellOthers(now) : tell(now);
}

void DiskWatch::lookForOthers() {
  const std::optional<State> now = stateFile();
  if (!isKnown(now)) tellOthers(now);
}

bool DiskWatch::isKnown(const std::optional<State>& now) const {
  return now && known ? now->copy == known->copy : now.has_value() == known.has_value();
}

void DiskWatch::tellOthers(const std::optional<State>& now) {
  const char* what = !now ? " removed" : known ? " changed" : " created";
  journal.record("disk", std::string(stateName) + what + " by another program");
  known = now;
}

void DiskWatch::tell(const std::optional<State>& now) {
  const auto before = known ? std::optional(known->copy) : std::nullopt;
  if (now) journal.record(changeOfFile(stateName, before, now->copy));
  known = now;
}

std::optional<DiskWatch::State> DiskWatch::stateFile() const {
  const std::string path = root + std::string(statePath);
  struct stat facts{};
  if (::lstat(path.c_str(), &facts) != 0 || !S_ISREG(facts.st_mode)) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  FileCopy copy;
  copy.bytes.resize(std::min(bounds::longestCompared, static_cast<std::size_t>(facts.st_size)));
  file.read(copy.bytes.data(), static_cast<std::streamsize>(copy.bytes.size()));
  copy.bytes.resize(static_cast<std::size_t>(file.gcount()));
  copy.size = std::max<std::uint64_t>(copy.bytes.size(), static_cast<std::uint64_t>(facts.st_size));
  return State{std::move(copy), static_cast<std::uint64_t>(facts.st_ino)};
}

}  // namespace virtualmac
