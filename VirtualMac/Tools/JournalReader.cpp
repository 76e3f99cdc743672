#include "VirtualMac/Tools/JournalReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <nlohmann/json.hpp>

#include "VirtualMac/Machine/SavedJournal.h"
#include "VirtualMac/Schedule/Journal.h"
#include "VirtualMac/Server/ControlClient.h"
#include "VirtualMac/Tools/Colour.h"
#include "VirtualMac/Tools/CommandLine.h"
#include "VirtualMac/Tools/JSONLine.h"

namespace virtualmac {

namespace {

using nlohmann::json;

bool wanted(const JournalQuery& query, const Journal::Entry& entry) {
  if (!query.kinds.empty() &&
      std::find(query.kinds.begin(), query.kinds.end(), entry.kind) == query.kinds.end())
    return false;
  if (query.category.empty() && query.level.empty()) return true;
  return entry.tells(EffectID::logged) &&
         (query.category.empty() || entry.effect.word(0) == query.category) &&
         (query.level.empty() || entry.effect.word(1) == query.level);
}

Tone toneOf(const Journal::Entry& entry) {
  if (entry.tells(EffectID::replyFailed) || entry.tells(EffectID::replyFailedSilently))
    return Tone::Error;
  if (entry.kind == "mac" && entry.text.starts_with("fault ")) return Tone::Warning;
  if (!entry.tells(EffectID::logged)) return Tone::Plain;
  const std::string& level = entry.effect.word(1);
  return level == "fault" ? Tone::Fault : level == "error" ? Tone::Error : Tone::Plain;
}

/// A line of the journal as it stands there.
void print(const JournalQuery& query, std::string_view line, const Journal::Entry& entry) {
  if (query.asJSON)
    printEntry(entry, true);
  else
    fmt::print("{}\n", toned(toneOf(entry), line, stdout));
}

/// True: this was the line to stop at.
bool take(const JournalQuery& query, std::string_view line, const Journal::Entry& entry) {
  if (!wanted(query, entry)) return false;
  print(query, line, entry);
  return !query.until.empty() && line.find(query.until) != std::string_view::npos;
}

bool take(const JournalQuery& query, std::string_view line) {
  const std::optional<Journal::Entry> entry = journalEntryFrom(line);
  return entry && take(query, line, *entry);
}

/// No further line comes.
int ended(const JournalQuery& query) {
  if (query.until.empty()) return exitDone;
  return complain("virtual-mac", query.asJSON, "no line has \"" + query.until + '"', exitFailed);
}

int printSaved(const JournalQuery& query) {
  const auto saved = SavedJournal::read(query.file);
  if (!saved) return complain("virtual-mac", query.asJSON, saved.error(), exitFailed);
  for (const Journal::Entry& entry : saved->entries) {
    if (take(query, journalLine(entry), entry)) return exitDone;
  }
  return ended(query);
}

/// The lines in the file's first `size` bytes. True: stopped.
bool printFile(const JournalQuery& query, const std::string& path, std::size_t size) {
  std::ifstream file(path);
  std::string line;
  std::size_t read = 0;
  while (read < size && std::getline(file, line)) {
    read += line.size() + 1;
    if (take(query, line)) return true;
  }
  return false;
}

int follow(ControlClient& machine, const JournalQuery& query) {
  using Clock = std::chrono::steady_clock;
  const auto begun = Clock::now();
  flushOutput();
  for (;;) {
    std::optional<double> left = query.timeoutSeconds;
    if (left) *left -= std::chrono::duration<double>(Clock::now() - begun).count();
    const std::optional<json> message = machine.receive(left);
    if (!message) return ended(query);
    if (!message->contains("line")) continue;
    const bool stopped = take(query, (*message)["line"].get<std::string>());
    flushOutput();
    if (stopped) return exitDone;
  }
}

}  // namespace

void printEntry(const Journal::Entry& entry, bool asJSON) {
  if (asJSON)
    printJSON({{"ok", true}, {"seconds", entry.time}, {"kind", entry.kind}, {"text", entry.text}});
  else
    fmt::print("{}\n", toned(toneOf(entry), journalLine(entry), stdout));
}

int printJournal(const RootDirectory& root, const JournalQuery& query) {
  if (!query.file.empty()) return printSaved(query);
  auto machine = ControlClient::connect(root);
  std::size_t size = static_cast<std::size_t>(-1);
  if (machine && machine->send({{"command", "follow"}})) {
    if (const auto reply = machine->receive()) size = reply->value("size", std::size_t{0});
  } else if (query.follow || root.distrust() || !std::ifstream(root.journal())) {
    return complain("virtual-mac", query.asJSON,
                    machine ? "the machine went down" : machine.error(), exitFailed);
  }
  if (!query.onlyNew && printFile(query, root.journal(), size)) return exitDone;
  if (query.follow) return follow(*machine, query);
  return ended(query);
}

}  // namespace virtualmac
