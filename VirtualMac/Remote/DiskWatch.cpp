#include "VirtualMac/Remote/DiskWatch.h"

#include <sys/stat.h>

#include <fstream>
#include <sstream>
#include <utility>

#include "HelperPersistence.h"
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
    journal.record("disk", std::string(path) + " replaced");
}

void DiskWatch::look() {
  std::optional<std::string> now = stateFile();
  if (now != known && now) tell(now);
  known = std::move(now);
}

void DiskWatch::tell(const std::optional<std::string>& now) {
  if (now) journal.record("disk", std::string(stateName) + ' ' + replacementText(known, *now));
  known = now;
}

std::optional<std::string> DiskWatch::stateFile() const {
  const std::string path = root + std::string(statePath);
  struct stat facts{};
  if (::lstat(path.c_str(), &facts) != 0 || !S_ISREG(facts.st_mode)) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return std::move(content).str();
}

}  // namespace virtualmac
