#include "TinMac/System/Books.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <sstream>
#include <utility>
#include <vector>

#include "TinMac/System/Json.h"
#include "TinMac/System/Trap.h"

namespace tinmac {

namespace {

constexpr std::size_t keptDetails = 8;

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

void writeCounts(JsonWriter& out, const Counts& counts) {
  out.beginObject();
  for (const auto& [name, count] : counts) {
    if (count != 0) out.key(name).number(count);
  }
  out.endObject();
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

void writeNotes(JsonWriter& out, const Books& all) {
  out.beginArray();
  for (const auto& [rule, note] : all.notes) {
    out.beginObject().key("rule").text(rule).key("times").number(note.times).key("details");
    out.beginArray();
    for (const std::string& detail : note.details) out.text(detail);
    out.endArray().endObject();
  }
  out.endArray();
}

void writeQueues(JsonWriter& out, const Books& all) {
  out.beginArray();
  for (const auto& [queue, made] : all.queues) {
    out.beginObject().key("label").text(queue.first).key("qos").text(queue.second);
    out.key("made").number(made).endObject();
  }
  out.endArray();
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
  JsonWriter out;
  out.beginObject().key("pid").number(::getpid()).key("reason").text(reason);
  if (exitStatus) out.key("status").number(*exitStatus);
  if (all.trap) {
    out.key("trap").beginObject().key("rule").text(all.trap->first);
    out.key("detail").text(all.trap->second).endObject();
  }
  out.key("live");
  writeCounts(out, all.live);
  if (all.marked) {
    out.key("aboveMark");
    writeCounts(out, above(all.live, *all.marked));
  }
  out.key("notes");
  writeNotes(out, all);
  out.key("queues");
  writeQueues(out, all);
  out.endObject();
  return out.take();
}

void writeBooks(std::string_view reason, std::optional<std::int32_t> exitStatus) {
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
