#include "TinMac/System/Books.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "TinMac/System/Trap.h"

namespace tinmac {

namespace {

constexpr std::size_t keptDetails = 8;

/// Members stay in the order in which they were added.
using Json = nlohmann::ordered_json;
using Counts = std::map<std::string, std::int64_t, std::less<>>;

struct Note {
  std::int64_t times = 0;
  /// The first few; the rule's count goes on.
  std::vector<std::string> details;
};

struct Books {
  std::mutex mutex;
  Counts live;
  std::optional<Counts> marked;
  std::map<std::string, Note, std::less<>> notes;
  std::map<std::pair<std::string, std::string>, std::int64_t> queues;
  std::optional<std::pair<std::string, std::string>> trap;
  std::vector<void (*)()> hooks;
};

/// Other threads count until the process is gone, so the books are never destroyed.
Books& books() {
  static auto* const only = new Books;
  return *only;
}

Json shown(const Counts& counts) {
  Json object = Json::object();
  for (const auto& [name, count] : counts) {
    if (count != 0) object[name] = count;
  }
  return object;
}

Counts above(const Counts& live, const Counts& mark) {
  Counts more;
  for (const auto& [name, count] : live) {
    const auto before = mark.find(name);
    const std::int64_t grown = count - (before == mark.end() ? 0 : before->second);
    if (grown > 0) more[name] = grown;
  }
  return more;
}

Json shown(const std::map<std::string, Note, std::less<>>& notes) {
  Json list = Json::array();
  for (const auto& [rule, note] : notes) {
    list.push_back({{"rule", rule}, {"times", note.times}, {"details", note.details}});
  }
  return list;
}

Json shown(const std::map<std::pair<std::string, std::string>, std::int64_t>& queues) {
  Json list = Json::array();
  for (const auto& [queue, made] : queues) {
    list.push_back({{"label", queue.first}, {"qos", queue.second}, {"made", made}});
  }
  return list;
}

}  // namespace

void countObjects(std::string_view className, std::int32_t change) {
  Books& all = books();
  {
    const std::lock_guard lock(all.mutex);
    auto found = all.live.find(className);
    if (found == all.live.end()) found = all.live.emplace(className, 0).first;
    found->second += change;
    if (found->second >= 0) return;
  }
  trap("more objects of a class went than came", className);
}

std::int64_t liveObjects(std::string_view className) {
  Books& all = books();
  const std::lock_guard lock(all.mutex);
  const auto found = all.live.find(className);
  return found == all.live.end() ? 0 : found->second;
}

void noteRule(std::string_view rule, std::string_view detail) {
  Books& all = books();
  const std::lock_guard lock(all.mutex);
  Note& note = all.notes[std::string(rule)];
  ++note.times;
  if (note.details.size() < keptDetails) note.details.emplace_back(detail);
}

std::int64_t notedRules(std::string_view rule) {
  Books& all = books();
  const std::lock_guard lock(all.mutex);
  const auto found = all.notes.find(rule);
  return found == all.notes.end() ? 0 : found->second.times;
}

void noteQueue(std::string_view label, std::string_view qualityOfService) {
  Books& all = books();
  const std::lock_guard lock(all.mutex);
  ++all.queues[{std::string(label), std::string(qualityOfService)}];
}

void noteTrap(std::string_view rule, std::string_view detail) {
  Books& all = books();
  const std::lock_guard lock(all.mutex);
  if (!all.trap) all.trap.emplace(rule, detail);
}

void markBooks() {
  Books& all = books();
  const std::lock_guard lock(all.mutex);
  all.marked = all.live;
}

void beforeBooks(void (*hook)()) {
  Books& all = books();
  const std::lock_guard lock(all.mutex);
  all.hooks.push_back(hook);
}

void settleBooks(std::int32_t exitStatus) {
  std::vector<void (*)()> hooks;
  {
    const std::lock_guard lock(books().mutex);
    hooks.swap(books().hooks);
  }
  for (void (*hook)() : hooks) hook();
  writeBooks("exit", exitStatus);
}

std::string booksText(std::string_view reason, std::optional<std::int32_t> exitStatus) {
  Books& all = books();
  const std::lock_guard lock(all.mutex);
  Json out{{"pid", ::getpid()}, {"reason", reason}};
  if (exitStatus) out["status"] = *exitStatus;
  if (all.trap) out["trap"] = {{"rule", all.trap->first}, {"detail", all.trap->second}};
  out["live"] = shown(all.live);
  if (all.marked) out["aboveMark"] = shown(above(all.live, *all.marked));
  out["notes"] = shown(all.notes);
  out["queues"] = shown(all.queues);
  // A text of the program need not be UTF-8.
  return out.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void writeBooks(std::string_view reason, std::optional<std::int32_t> exitStatus) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
  const char* const folder = std::getenv("TIN_MAC_BOOKS");
  if (folder == nullptr) return;
  const std::filesystem::path place =
      std::filesystem::path(folder) / (std::to_string(::getpid()) + ".json");
  std::filesystem::path fresh = place;
  fresh += ".new";
  std::ofstream file(fresh);
  file << booksText(reason, exitStatus) << '\n';
  file.close();
  // A reader sees whole books or none.
  if (!file || std::rename(fresh.c_str(), place.c_str()) != 0) {
    std::fprintf(stderr, "tin-mac: the books cannot be written to %s\n", place.c_str());
  }
}

}  // namespace tinmac
