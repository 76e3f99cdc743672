#include "VirtualMac/Server/JournalArchive.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string_view>
#include <system_error>

#include "VirtualMac/Schedule/Journal.h"

namespace virtualmac {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view ending = ".journal";
constexpr std::size_t fewestDigits = 4;

bool tellsSomething(const std::string& path) {
  std::ifstream journal(path, std::ios::binary);
  for (std::string line; std::getline(journal, line);) {
    if (journalEntryFrom(line)) return true;
  }
  return false;
}

/// The number of a kept journal; none: another file.
std::optional<std::uint64_t> numberOf(const fs::path& path) {
  const std::string name = path.filename().string();
  if (!name.ends_with(ending)) return std::nullopt;
  const std::string_view digits = std::string_view(name).substr(0, name.size() - ending.size());
  std::uint64_t number = 0;
  const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (digits.size() < fewestDigits || failure != std::errc() ||
      end != digits.data() + digits.size())
    return std::nullopt;
  return number;
}

}  // namespace

std::expected<void, std::string> keepJournal(const RootDirectory& root) {
  const std::string journal = root.journal();
  std::error_code error;
  if (!fs::exists(journal, error) || !tellsSomething(journal)) return {};
  const auto failed = [&](const std::string& place) {
    return std::unexpected(fmt::format("{}: the journal of the run before cannot be kept: {}",
                                       place, error.message()));
  };
  const fs::path folder = root.journals();
  fs::create_directories(folder, error);
  if (error) return failed(folder.string());
  std::map<std::uint64_t, fs::path> kept;
  for (fs::directory_iterator each(folder, error); !error && each != fs::directory_iterator();
       each.increment(error)) {
    if (const auto number = numberOf(each->path())) kept.emplace(*number, each->path());
  }
  if (error) return failed(folder.string());
  const std::uint64_t number = kept.empty() ? 1 : kept.rbegin()->first + 1;
  const fs::path place = folder / fmt::format("{:04}{}", number, ending);
  fs::rename(journal, place, error);
  if (error) return failed(place.string());
  // One that cannot be removed is tried again at the next start; nothing is lost by it.
  for (kept.emplace(number, place); kept.size() > keptJournals; kept.erase(kept.begin()))
    fs::remove(kept.begin()->second, error);
  return {};
}

}  // namespace virtualmac
