#include "VirtualMac/Scenarios/Condition.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "VirtualMac/Machine/Bounds.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Machine/Nearest.h"
#include "VirtualMac/Scenarios/Phrase.h"

namespace virtualmac {

namespace {

using Facts = Condition::Facts;
using Term = Condition::Term;
using Flag = bool (*)(const Facts&);
using Number = double (*)(const Facts&);
using Record = std::optional<std::string>;

/// A row of the table: the word that a condition begins with, and the reader of what follows it.
struct Subject {
  std::string_view name;
  std::function<Term(Phrase&)> read;
};

/// A term that looks something up whenever it is judged or worded.
template <class Look, class Test, class Tell>
Term about(const Look& look, const Test& test, const Tell& tell) {
  Term term;
  term.holds = [=](const Facts& facts) { return test(look(facts)); };
  term.actual = [=](const Facts& facts) { return std::string(tell(look(facts))); };
  return term;
}

Term flag(Flag look, bool wanted, const std::string& on, const std::string& off) {
  return about(look, [=](bool is) { return is == wanted; }, [=](bool is) { return is ? on : off; });
}

/// A subject that is one word.
Subject plain(std::string_view name, bool wanted, Flag look, std::string_view on,
              std::string_view off) {
  return {name, [=](Phrase&) { return flag(look, wanted, std::string(on), std::string(off)); }};
}

/// A subject of two states, each with a word of its own, which stands in `text` too.
Subject states(std::string_view name, std::string_view on, std::string_view off,
               std::string_view text, Flag look) {
  return {name, [=](Phrase& phrase) {
            const bool wanted = phrase.takeOneOf(name, {on, off}) == 0;
            return flag(look, wanted, fmt::format(fmt::runtime(text), on),
                        fmt::format(fmt::runtime(text), off));
          }};
}

struct Range {
  double least;
  double most;
  bool operator()(double value) const { return value >= least && value <= most; }
};

/// `80`, `>= 75`, `75 to 80`.
Range takeRange(Phrase& phrase, std::string_view what, double least, double most) {
  static constexpr double nothing = 1e-6;
  const auto take = [&](double lowest) { return phrase.takeNumber(what, lowest, most); };
  if (phrase.takeIf("<")) return {least, take(least) - nothing};
  if (phrase.takeIf("<=")) return {least, take(least)};
  if (phrase.takeIf(">")) return {take(least) + nothing, most};
  if (phrase.takeIf(">=")) return {take(least), most};
  const double number = take(least);
  return {number, phrase.takeIf("to") ? take(number) : number};
}

/// A subject that is a number.
Subject quantity(std::string_view name, double least, double most, std::string_view text,
                 Number look) {
  return {name, [=](Phrase& phrase) {
            return about(look, takeRange(phrase, name, least, most),
                         [=](double value) { return fmt::format(fmt::runtime(text), value); });
          }};
}

Term readHelper(Phrase& phrase) {
  const std::size_t which = phrase.takeOneOf("helper", {"running", "stopped", "exited"});
  if (which != 2) {
    return flag([](const Facts& facts) { return facts.stage.helperRunning(); }, which == 0,
                "the helper is running", "the helper is not running");
  }
  return about([](const Facts& facts) { return facts.stage.helperExitStatus(); },
               [wanted = phrase.takeNumber("exit status", 0, 255)](std::optional<int> status) {
                 return status && *status == wanted;
               },
               [](std::optional<int> status) {
                 return status ? fmt::format("it exited {}", *status) : "it did not exit by itself";
               });
}

bool isKeyName(std::string_view text) {
  return text.size() == 4 && std::ranges::all_of(text, [](unsigned char character) {
           return std::isupper(character) != 0 || std::isdigit(character) != 0;
         });
}

Term readWrites(Phrase& phrase) {
  const std::string key = phrase.take("a key");
  if (!isKeyName(key)) phrase.complain(fmt::format("\"{}\" is not a key", key));
  return about(
      [=](const Facts& facts) { return static_cast<double>(facts.machine.smc.writeCount(key)); },
      takeRange(phrase, "count", 0, 1e9),
      [=](double count) { return fmt::format("{} was written {} times", key, count); });
}

std::vector<std::uint8_t> takeBytes(Phrase& phrase, std::string digits) {
  std::vector<std::uint8_t> bytes;
  while (true) {
    unsigned byte = 0;
    const auto [end, failure] =
        std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
    if (digits.size() != 2 || failure != std::errc() || end != digits.data() + 2) {
      phrase.complain(
          fmt::format("\"{}\" is not a byte; bytes are two hexadecimal digits", digits));
      return bytes;
    }
    bytes.push_back(static_cast<std::uint8_t>(byte));
    const std::string_view following = phrase.peek();
    if (following.size() != 2 || std::isxdigit(static_cast<unsigned char>(following[0])) == 0) {
      return bytes;
    }
    digits = phrase.take("a byte");
  }
}

/// `CHIE=08` or `CHTE=01 00 00 00`.
Term readKeyValue(Phrase& phrase, const std::string& first) {
  const std::string key = first.substr(0, 4);
  return about([=](const Facts& facts) { return facts.machine.smc.value(key); },
               [wanted = takeBytes(phrase, first.substr(5))](const auto& value) {
                 return value && value->size() >= wanted.size() &&
                        std::equal(wanted.begin(), wanted.end(), value->begin());
               },
               [=](const auto& value) {
                 if (!value) return "there is no key " + key;
                 std::string text = key + " is";
                 for (const std::uint8_t byte : *value) text += fmt::format(" {:02x}", byte);
                 return text;
               });
}

/// The value of a record's field, as a condition writes it; none: no such field, or no record.
std::optional<std::string> field(const Record& record, const std::string& name) {
  if (!record || jsonDefect(*record)) return std::nullopt;
  const auto parsed = nlohmann::json::parse(*record);
  if (!parsed.is_object() || !parsed.contains(name)) return std::nullopt;
  const auto& value = parsed[name];
  return value.is_string() ? value.get<std::string>() : value.dump();
}

/// `chargeLimit=80`, `helperVersion="2.1.0"`, `lastDischargeAbortReason absent`. No field is absent
/// from an answer that did not come, but every field is from a file that is not there.
Term readField(Phrase& phrase, std::string_view where, bool asksHelper,
               Record (*look)(const Facts&)) {
  const std::string first = phrase.take("a field");
  const std::size_t equals = first.find('=');
  const std::string name = first.substr(0, equals);
  std::optional<std::string> wanted;
  if (equals != std::string::npos) {
    wanted = first.substr(equals + 1);
  } else if (!phrase.takeIf("absent")) {
    phrase.complain(fmt::format("after \"{}\" comes =VALUE or the word absent", first));
  }
  Term term = about(
      look,
      [=](const Record& record) {
        return (record || !asksHelper) && field(record, name) == wanted;
      },
      [=](const Record& record) {
        if (!record) return fmt::format("nothing is {}", where);
        return fmt::format("{} {} is {}", where, name, field(record, name).value_or("absent"));
      });
  term.asksHelper = asksHelper;
  return term;
}

Term readSaved(Phrase& phrase) {
  const auto saved = [](const Facts& facts) { return facts.stage.savedState(); };
  if (!phrase.takeIf("nothing")) return readField(phrase, "saved", false, saved);
  return flag([](const Facts& facts) { return !facts.stage.savedState(); }, true,
              "nothing is saved", "a state is saved");
}

Term readReported(Phrase& phrase) {
  return readField(phrase, "reported", true,
                   [](const Facts& facts) { return facts.stage.reportedState(); });
}

/// A subject that waits for a line of the journal.
Subject heard(std::string_view name, bool (*says)(const Journal::Entry&, const std::string&)) {
  return {name, [=](Phrase& phrase) {
            if (!phrase.peekIsQuoted())
              phrase.complain(fmt::format("after {} comes a \"text\"", name));
            Term term;
            term.hears = [says, text = phrase.take("a text")](const Journal::Entry& entry) {
              return says(entry, text);
            };
            return term;
          }};
}

bool isPaused(const Facts& facts) {
  return facts.machine.smc.chargingInhibited() || facts.machine.battery.heldByNativeLimit();
}

bool isAsleep(const Facts& facts) { return facts.machine.power.isAsleep(); }

const std::vector<Subject>& subjects() {
  static const std::vector<Subject> all{
      states("gate", "paused", "charging", "the gate is {}", isPaused),
      states("inflow", "inhibited", "on", "the inflow is {}",
             [](const Facts& facts) { return facts.machine.smc.inflowInhibited(); }),
      states("adapter", "connected", "disconnected", "the adapter is {}",
             [](const Facts& facts) { return facts.machine.adapter.isConnected(); }),
      states("lid", "closed", "open", "the lid is {}",
             [](const Facts& facts) { return facts.machine.lid.isClosed(); }),
      states("display", "connected", "disconnected", "the display is {}",
             [](const Facts& facts) { return facts.machine.lid.displayConnected(); }),
      states("sleep-disabled", "on", "off", "SleepDisabled is {}",
             [](const Facts& facts) { return facts.machine.power.sleepDisabled(); }),
      quantity("battery", 0, 100, "the battery is at {} %",
               [](const Facts& facts) -> double { return facts.machine.battery.percent(); }),
      quantity("temperature", lowestCelsius, highestCelsius, "it has {:.2f} °C",
               [](const Facts& facts) {
                 const auto hundredths = facts.machine.battery.temperatureHundredths();
                 return static_cast<double>(hundredths) / 100;
               }),
      quantity("assertions", 0, 1000, "{} assertions are held",
               [](const Facts& facts) {
                 return static_cast<double>(facts.machine.power.assertions().size());
               }),
      quantity("native-limit", 0, 100, "the native limit is {}",
               [](const Facts& facts) -> double { return facts.machine.powerUI.currentLimit(); }),
      plain(
          "charging", true, [](const Facts& facts) { return facts.machine.battery.isCharging(); },
          "the battery is charging", "the battery is not charging"),
      plain(
          "draining", true, [](const Facts& facts) { return facts.machine.battery.isDraining(); },
          "the battery is draining", "the battery is not draining"),
      plain("asleep", true, isAsleep, "the machine is asleep", "the machine is awake"),
      plain("awake", false, isAsleep, "the machine is asleep", "the machine is awake"),
      {"helper", readHelper},
      {"writes", readWrites},
      {"saved", readSaved},
      {"reported", readReported},
      heard("log",
            [](const Journal::Entry& entry, const std::string& text) {
              return entry.kind == "log" && entry.text.find(text) != std::string::npos;
            }),
      heard("journal", [](const Journal::Entry& entry, const std::string& text) {
        return journalLine(entry).find(text) != std::string::npos;
      })};
  return all;
}

Term readTerm(Phrase& phrase, const std::string& name) {
  std::vector<std::string_view> names;
  for (const Subject& subject : subjects()) {
    if (subject.name == name) return subject.read(phrase);
    names.push_back(subject.name);
  }
  if (name.size() > 4 && name[4] == '=' && isKeyName(name.substr(0, 4)))
    return readKeyValue(phrase, name);
  names.emplace_back("KEY=BYTES");
  phrase.complain(unknownWord("condition", name, names));
  return {};
}

bool isMet(const Term& term, const Facts& facts) {
  return (term.hears ? term.heard : term.holds(facts)) != term.negated;
}

std::string actualText(const Term& term, const Facts& facts) {
  if (!term.hears) return term.actual(facts);
  return term.heard ? "it was said" : "nothing of the kind was said";
}

bool allAreMet(const std::vector<Term>& terms, const Facts& facts) {
  return std::ranges::all_of(terms, [&](const Term& term) { return isMet(term, facts); });
}

}  // namespace

std::expected<Condition, std::string> Condition::parse(std::string_view text) {
  Condition condition;
  condition.source = text;
  Phrase phrase(text);
  do {
    const bool negated = phrase.takeIf("not");
    condition.terms.push_back(readTerm(phrase, phrase.take("a condition")));
    condition.terms.back().negated = negated;
  } while (phrase.takeIf("and") || phrase.takeIf("while"));
  phrase.takeEnd();
  if (phrase.complaint()) return std::unexpected(*phrase.complaint());
  return condition;
}

bool Condition::canBeWatched() const { return std::ranges::none_of(terms, &Term::asksHelper); }

bool Condition::listens() const {
  return std::ranges::any_of(terms, [](const Term& term) { return term.hears != nullptr; });
}

void Condition::hear(const Journal::Entry& entry) {
  for (Term& term : terms) term.heard = term.heard || (term.hears && term.hears(entry));
}

void Condition::forget() {
  for (Term& term : terms) term.heard = false;
}

bool Condition::holds(Stage& stage) const { return allAreMet(terms, Facts(stage)); }

std::string Condition::actual(Stage& stage) const {
  const Facts facts(stage);
  const bool all = allAreMet(terms, facts);
  std::string text;
  for (const Term& term : terms) {
    if (all || !isMet(term, facts)) text += (text.empty() ? "" : ", ") + actualText(term, facts);
  }
  return text;
}

}  // namespace virtualmac
