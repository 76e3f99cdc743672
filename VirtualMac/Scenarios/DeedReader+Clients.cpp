#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include "Operations.h"
#include "VirtualMac/Scenarios/DeedPhrases.h"
#include "VirtualMac/Scenarios/DeedReader.h"

namespace virtualmac {

using korvel::OperationAnswer;

namespace {

std::string replyText(const Journal::Entry& entry) {
  if (entry.tells(EffectID::replyFailedSilently)) return "failed";
  if (!entry.tells(EffectID::replyFailed)) return "ok";
  return fmt::format("failed {} {}", entry.effect.word(1), quotedText(entry.effect.word(2)));
}

}  // namespace

void DeedReader::takeApp(const Entry& entry) {
  const std::string& text = entry.text;
  const std::size_t space = text.find(' ');
  const std::size_t next = std::min(text.find(' ', space + 1), text.size());
  const std::string first = text.substr(0, space);
  std::int64_t pid = 0;
  if (space != std::string::npos)
    pid = Effect{EffectID::told, {text.substr(space + 1, next - space - 1)}}.number(0);
  const std::string what = text.substr(std::min(next + 1, text.size()));
  if (pid == 0) return refuse(text);
  if (what == "connects") return takeConnect(pid, first);
  if (const auto identity = between(what, "identifies as ", ""))
    return takeIdentity(pid, *identity);
  if (what == "connected") return takeAcceptance(pid);
  if (what == "disconnects" || what == "disconnected") return takeLeave(pid, "disconnect");
  if (what == "dies") return takeLeave(pid, "kill-app");
  if (what == "refused" || what.starts_with("cut off: ")) return takeCutOff(pid, what);
  refuse(text);
}

void DeedReader::takeConnect(std::int64_t pid, const std::string& identity) {
  tell();
  if (!running) wanted = true;
  if (clients.find(pid) != nullptr) {
    asksAgain = {pid, at};
    return;
  }
  add(clients.connect(pid, identity), at);
}

void DeedReader::takeIdentity(std::int64_t pid, const std::string& identity) {
  tell();
  const std::string accepted = fmt::format("client {} connected", pid);
  const auto from = entries.begin() + static_cast<std::ptrdiff_t>(at);
  const auto end = entries.begin() + static_cast<std::ptrdiff_t>(found.end);
  const std::string again = fmt::format("client {} identifies as ", pid);
  const auto next = std::find_if(from + 1, end, [&](const Entry& each) {
    return each.kind == "app" && (each.text == accepted || each.text.starts_with(again));
  });
  identities[pid] = identity;
  if (next == end || next->text != accepted) return;
  if (!running) wanted = true;
  found.isTold[static_cast<std::size_t>(next - entries.begin())] = true;
  add(clients.connect(pid, identity), at);
}

void DeedReader::takeAcceptance(std::int64_t pid) {
  const auto known = identities.find(pid);
  if (known == identities.end())
    return refuse(fmt::format("client {} came past the machine: nobody knows its program", pid));
  add(clients.connect(pid, known->second), at);
}

void DeedReader::takeLeave(std::int64_t pid, std::string_view how) {
  const RecordedClients::Client* client = clients.find(pid);
  tell();
  if (client == nullptr) return;
  if (!leavesWithMachine()) add(std::string(how) + RecordedClients::named(*client), at);
  clients.leave(pid);
}

void DeedReader::takeCutOff(std::int64_t pid, std::string_view what) {
  RecordedClients::Client* client = clients.find(pid);
  if (client == nullptr) return tell();
  client->isOver = true;
  if (what.find("requirement") != std::string_view::npos)
    return add("ping" + RecordedClients::by(*client), at, "lost");
  if (const auto method = between(what, "cut off: unknown selector \"", "\""))
    return add("call " + quotedWord(*method) + RecordedClients::by(*client), at, "lost");
  static constexpr std::array<std::string_view, 3> foreign{"malformed", "oversized", "truncated"};
  for (const std::string_view each : foreign) {
    if (what.find(each) == std::string_view::npos) continue;
    return refuse(fmt::format("client {} is {}: no client of a story sends that", pid, what));
  }
}

void DeedReader::takeLog(const Entry& entry) {
  const auto line = auditLine(entry);
  if (!line) return;
  tell();
  const RecordedClients::Client* client = line->pid ? clients.find(*line->pid) : clients.latest();
  if (client == nullptr)
    return refuse(fmt::format("{} by a client that is none of a story's", line->phrase));
  const bool again = asksAgain && asksAgain->first == client->pid;
  const std::size_t index = again ? asksAgain->second : at;
  if (again) asksAgain.reset();
  add(line->phrase + RecordedClients::by(*client), index);
  if (!line->pid) return;  // Nobody answers it.
  const auto early = std::ranges::find_if(earlyReplies, [&](const Early& each) {
    return each.method == line->method && entry.time - entries[each.index].time <= momentSeconds;
  });
  if (early == earlyReplies.end()) {
    open.push_back({found.deeds.size() - 1, line->method});
    return;
  }
  RecordedDeed& deed = found.deeds.back();
  deed.reply = early->reply;
  deed.time = std::min(deed.time, entries[early->index].time);
  earlyReplies.erase(early);
}

void DeedReader::takeReply(const Entry& entry) {
  const std::string method = entry.text.substr(0, entry.text.find(' '));
  const auto* operation = korvel::operationWith(&korvel::Operation::method, method);
  if (operation == nullptr) return refuse(entry.text);
  tell();
  if (operation->answer != OperationAnswer::Outcome) return takeReading(*operation);
  const auto asked = std::ranges::find(open, operation->method, &Open::method);
  if (asked == open.end()) {
    earlyReplies.push_back({at, operation->method, replyText(entry)});
    return;
  }
  answer(asked->deed, replyText(entry));
  open.erase(asked);
}

void DeedReader::takeReading(const korvel::Operation& operation) {
  const RecordedClients::Client* client =
      asksAgain ? clients.find(asksAgain->first) : clients.latest();
  if (client == nullptr)
    return refuse(fmt::format("{} by a client that is none of a story's", operation.word));
  add(std::string(operation.word) + RecordedClients::by(*client),
      asksAgain ? asksAgain->second : at, "ok");
  asksAgain.reset();
}

void DeedReader::answer(std::size_t asked, const std::string& reply) {
  const bool last = asked + 1 == found.deeds.size();
  found.deeds[asked].reply = last ? reply : "none";
  if (!last) found.isTold[at] = false;
}

void DeedReader::loseOpen() {
  for (const Open& each : std::exchange(open, {})) {
    const bool last = each.deed + 1 == found.deeds.size();
    found.deeds[each.deed].reply = last ? "lost" : "none";
  }
}

void DeedReader::finishReplies() {
  for (const Open& each : open) found.deeds[each.deed].reply = "none";
  for (const Early& each : earlyReplies) {
    at = each.index;
    refuse(fmt::format("{}: nobody is told to have asked", entries[at].text));
  }
}

}  // namespace virtualmac
