#include "VirtualMac/Scenarios/DeedReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <csignal>

#include "VirtualMac/Machine/Launchd.h"
#include "VirtualMac/Scenarios/DeedPhrases.h"

namespace virtualmac {

namespace {

/// A restart by launchd may seem so much too early.
constexpr double throttleSlack = 0.5;

std::optional<std::string> versionIn(const Journal::Entry& entry) {
  if (entry.kind != "mac") return std::nullopt;
  return between(entry.text, "helper version ", " installed");
}

bool isInstallation(const Journal::Entry& entry) { return versionIn(entry).has_value(); }
bool isReboot(const Journal::Entry& entry) { return entry.tells(EffectID::rebooted); }

}  // namespace

DeedReader::DeedReader(const SavedJournal& read) : journal(read), entries(read.entries) {
  const auto down = std::ranges::find_if(
      entries, [](const Entry& each) { return each.kind == "mac" && each.text == "going down"; });
  found.end = static_cast<std::size_t>(down - entries.begin());
  found.isTold.assign(entries.size(), false);
  restarts = !journal.head || journal.head->start.restartAfterCrash;
}

RecordedDeeds DeedReader::read() {
  for (at = 0; at < found.end; ++at) {
    if (found.isTold[at]) continue;
    const Entry& entry = entries[at];
    if (entry.kind == "mac") takeMac(entry);
    if (entry.kind == "power" || entry.kind == "disk") takeOther(entry);
    if (entry.kind == "proc") takeProcess(entry);
    if (entry.kind == "app") takeApp(entry);
    if (entry.kind == "log") takeLog(entry);
    if (entry.kind == "reply") takeReply(entry);
  }
  finishReplies();
  std::ranges::sort(found.deeds, {},
                    [](const RecordedDeed& deed) { return std::pair(deed.time, deed.index); });
  return std::move(found);
}

void DeedReader::add(std::string phrase, std::size_t index, std::string reply) {
  found.isTold[index] = true;
  found.deeds.push_back({entries[index].time, index, std::move(phrase), std::move(reply)});
}

void DeedReader::refuse(std::string text) {
  tell();
  found.unsayable.push_back({entries[at].time, journal.lines[at], std::move(text)});
}

// ---- the machine

void DeedReader::takeMac(const Entry& entry) {
  if (entry.tells(EffectID::powerLost) || entry.tells(EffectID::rebooted)) {
    add(entry.tells(EffectID::powerLost) ? "power-loss" : "reboot", at);
    goDown();
  } else if (entry.tells(EffectID::batteryRanOut)) {
    goDown();
    boots = false;
  } else if (entry.tells(EffectID::poweredOn)) {
    boots = true;
  } else if (std::string phrase = deedPhrase(entry); !phrase.empty()) {
    add(std::move(phrase), at);
  } else if (entry.text.starts_with("speed ")) {
    tell();
  } else if (!entry.tells(EffectID::batteryLevel)) {
    refuse(entry.text);
  }
}

void DeedReader::takeOther(const Entry& entry) {
  if (std::string phrase = deedPhrase(entry); !phrase.empty()) return add(std::move(phrase), at);
  const bool byOther = entry.tells(EffectID::settingByOther) ||
                       entry.tells(EffectID::settingRemovedByOther) ||
                       (entry.kind == "disk" && entry.text.ends_with(" by another program"));
  if (byOther) refuse(entry.text);
}

/// All processes end with the power, and a boot follows.
void DeedReader::goDown() {
  isDown = true;
  clients.allLeave();
  lastStart.reset();
  wanted = crashed = false;
  boots = true;
  loseOpen();
}

// ---- the helper

void DeedReader::takeProcess(const Entry& entry) {
  if (entry.tells(EffectID::helperStarted)) return takeStart(entry);
  if (entry.tells(EffectID::signalSent)) return takeSignal(entry);
  const bool exited = entry.tells(EffectID::helperExited);
  if (!exited && !entry.tells(EffectID::helperKilled)) return refuse(entry.text);
  if (!exited) takeKill(entry);
  const bool inOrder = exited && entry.effect.number(1) == 0;
  crashed = restarts && !isDown && !inOrder;
  running = false;
  signalled.clear();
  loseOpen();
}

void DeedReader::takeStart(const Entry& entry) {
  const double throttle = LaunchdJob().throttleSeconds - throttleSlack;
  const bool early = lastStart && entry.time < *lastStart + throttle;
  const bool byLaunchd = boots || ((wanted || crashed) && !early);
  if (!byLaunchd) add("helper start", at);
  boots = wanted = crashed = isDown = false;
  leavesUntil.reset();
  lastStart = entry.time;
  running = true;
}

void DeedReader::takeKill(const Entry& entry) {
  const auto number = static_cast<int>(entry.effect.number(1));
  if (isDown || leavesUntil) return;
  if (number == SIGKILL) return add("kill", at);
  if (!signalled.contains(number)) refuse(entry.text + ": it crashed, or was ended from outside");
}

void DeedReader::takeSignal(const Entry& entry) {
  const auto number = static_cast<int>(entry.effect.number(0));
  if (number == SIGTERM) {
    if (const auto reboot = rebootFrom(at)) return takeReboot(*reboot);
    if (const auto installed = atItsEnd(at, isInstallation); installed && startsAt(*installed)) {
      add("update " + quotedWord(*versionIn(entries[*installed])), at);
      found.isTold[*installed] = true;
      signalled.insert(number);
      boots = true;
      return;
    }
  }
  static constexpr std::array<std::pair<int, std::string_view>, 3> names{
      {{SIGTERM, "TERM"}, {SIGINT, "INT"}, {SIGABRT, "ABRT"}}};
  for (const auto& [each, name] : names) {
    if (each != number) continue;
    signalled.insert(number);
    return add(fmt::format("kill {}", name), at);
  }
  refuse(fmt::format("signal {} to the helper: a story has KILL, TERM, INT and ABRT", number));
}

std::optional<std::size_t> DeedReader::afterHelper(std::size_t signal) const {
  for (std::size_t next = signal + 1; next < found.end; ++next) {
    const Entry& entry = entries[next];
    if (entry.tells(EffectID::helperStarted)) return std::nullopt;
    if (entry.tells(EffectID::helperExited) || entry.tells(EffectID::helperKilled)) return next + 1;
  }
  return std::nullopt;
}

std::optional<std::size_t> DeedReader::atItsEnd(std::size_t signal,
                                                bool (*fits)(const Entry&)) const {
  const std::optional<std::size_t> after = afterHelper(signal);
  if (!after) return std::nullopt;
  const double until = entries[*after - 1].time + (isLive() ? momentSeconds : 0);
  for (std::size_t next = *after; next < found.end && entries[next].time <= until; ++next) {
    if (fits(entries[next])) return next;
    if (entries[next].tells(EffectID::helperStarted)) break;
  }
  return std::nullopt;
}

bool DeedReader::startsAt(std::size_t index) const {
  const double until = entries[index].time + (isLive() ? momentSeconds : 0);
  for (std::size_t next = index; next < found.end && entries[next].time <= until; ++next) {
    if (entries[next].tells(EffectID::helperStarted)) return true;
  }
  return false;
}

std::optional<std::size_t> DeedReader::rebootFrom(std::size_t signal) const {
  if (!entries[signal].tells(EffectID::signalSent) || entries[signal].effect.number(0) != SIGTERM)
    return std::nullopt;
  return atItsEnd(signal, isReboot);
}

void DeedReader::takeReboot(std::size_t reboot) {
  add("reboot", at);
  found.isTold[reboot] = true;
  // A client that leaves meanwhile is ended with the rest.
  for (std::size_t next = at; next < reboot; ++next) {
    if (entries[next].kind == "app") found.isTold[next] = true;
  }
  goDown();
}

// ---- clients

bool DeedReader::leavesWithMachine() const {
  const double until = entries[at].time + (isLive() ? momentSeconds : 0);
  for (std::size_t next = at + 1; next < found.end && entries[next].time <= until; ++next) {
    const Entry& entry = entries[next];
    if (entry.tells(EffectID::powerLost) || entry.tells(EffectID::rebooted)) return true;
    if (entry.tells(EffectID::signalSent)) return rebootFrom(next).has_value();
    if (entry.kind != "app" && !isLive()) return false;
  }
  return false;
}

RecordedDeeds deedsIn(const SavedJournal& journal) { return DeedReader(journal).read(); }

}  // namespace virtualmac
