#include "VirtualMac/Scenarios/Condition.h"

#include <fmt/format.h>

#include <array>
#include <cctype>
#include <charconv>
#include <cstddef>
#include <utility>

#include "VirtualMac/Machine/Battery.h"
#include "VirtualMac/Machine/Nearest.h"
#include "VirtualMac/Scenarios/Phrase.h"

namespace virtualmac {

namespace {

using Subject = Condition::Subject;
using Term = Condition::Term;

/// A subject of two states, each with a word of its own.
struct TwoStates {
  std::string_view name;
  Subject subject;
  std::string_view on;
  std::string_view off;
};
constexpr std::array<TwoStates, 6> twoStates{{
    {"gate", Subject::Gate, "paused", "charging"},
    {"inflow", Subject::Inflow, "inhibited", "on"},
    {"adapter", Subject::Adapter, "connected", "disconnected"},
    {"lid", Subject::Lid, "closed", "open"},
    {"display", Subject::Display, "connected", "disconnected"},
    {"sleep-disabled", Subject::SleepDisabled, "on", "off"},
}};

/// A subject that is a number.
struct Quantity {
  std::string_view name;
  Subject subject;
  double least;
  double most;
};
constexpr std::array<Quantity, 4> quantities{{
    {"battery", Subject::Battery, 0, 100},
    {"temperature", Subject::Temperature, lowestCelsius, highestCelsius},
    {"assertions", Subject::Assertions, 0, 1000},
    {"native-limit", Subject::NativeLimit, 0, 100},
}};

/// A subject that is one word.
struct Plain {
  std::string_view name;
  Subject subject;
  bool on;
};
constexpr std::array<Plain, 4> plain{{
    {"charging", Subject::Charging, true},
    {"draining", Subject::Draining, true},
    {"asleep", Subject::Asleep, true},
    {"awake", Subject::Asleep, false},
}};

const std::vector<std::string_view>& subjectNames() {
  static const std::vector<std::string_view> names = [] {
    std::vector<std::string_view> all;
    for (const TwoStates& entry : twoStates) all.push_back(entry.name);
    for (const Quantity& entry : quantities) all.push_back(entry.name);
    for (const Plain& entry : plain) all.push_back(entry.name);
    for (const char* name :
         {"helper", "writes", "saved", "reported", "log", "journal", "KEY=BYTES"}) {
      all.emplace_back(name);
    }
    return all;
  }();
  return names;
}

bool isKeyName(std::string_view text) {
  if (text.size() != 4) return false;
  for (const char character : text) {
    if (std::isupper(static_cast<unsigned char>(character)) == 0 &&
        std::isdigit(static_cast<unsigned char>(character)) == 0) {
      return false;
    }
  }
  return true;
}

/// `80`, `>= 75`, `75 to 80`.
void takeRange(Phrase& phrase, const Quantity& what, Term& term) {
  static constexpr double nothing = 1e-6;
  term.least = what.least;
  term.most = what.most;
  const bool below = phrase.takeIf("<");
  const bool atMost = !below && phrase.takeIf("<=");
  const bool above = !below && !atMost && phrase.takeIf(">");
  const bool atLeast = !below && !atMost && !above && phrase.takeIf(">=");
  const double number = phrase.takeNumber(what.name, what.least, what.most);
  if (below) term.most = number - nothing;
  if (atMost) term.most = number;
  if (above) term.least = number + nothing;
  if (atLeast) term.least = number;
  if (below || atMost || above || atLeast) return;
  term.least = term.most = number;
  if (phrase.takeIf("to")) term.most = phrase.takeNumber(what.name, number, what.most);
}

/// `chargeLimit=80`, `helperVersion="2.1.0"`, `lastDischargeAbortReason absent`.
void takeField(Phrase& phrase, Term& term) {
  const std::string first = phrase.take("a field");
  const std::size_t equals = first.find('=');
  term.name = first.substr(0, equals);
  if (equals == std::string::npos) {
    if (!phrase.takeIf("absent")) {
      phrase.complain(fmt::format("after \"{}\" comes =VALUE or the word absent", first));
    }
    return;
  }
  term.value = first.substr(equals + 1);
}

/// `CHIE=08` or `CHTE=01 00 00 00`.
void takeKeyValue(Phrase& phrase, std::string_view first, Term& term) {
  term.subject = Subject::KeyValue;
  term.name = first.substr(0, 4);
  std::string digits(first.substr(5));
  while (true) {
    unsigned byte = 0;
    const auto [end, failure] =
        std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
    if (digits.size() != 2 || failure != std::errc() || end != digits.data() + 2) {
      return phrase.complain(
          fmt::format("\"{}\" is not a byte; bytes are two hexadecimal digits", digits));
    }
    term.bytes.push_back(static_cast<std::uint8_t>(byte));
    const std::string_view following = phrase.peek();
    if (following.size() != 2 || std::isxdigit(static_cast<unsigned char>(following[0])) == 0) {
      return;
    }
    digits = phrase.take("a byte");
  }
}

void takeHelper(Phrase& phrase, Term& term) {
  const std::size_t which = phrase.takeOneOf("helper", {"running", "stopped", "exited"});
  term.subject = which == 2 ? Subject::HelperExited : Subject::HelperRunning;
  term.on = which == 0;
  if (which == 2) term.least = term.most = phrase.takeNumber("exit status", 0, 255);
}

/// Subjects with a word or a shape of their own; false: `name` is none of them.
bool takeNamed(Phrase& phrase, const std::string& name, Term& term) {
  if (name == "helper") {
    takeHelper(phrase, term);
  } else if (name == "writes") {
    term.subject = Subject::KeyWrites;
    term.name = phrase.take("a key");
    if (!isKeyName(term.name)) phrase.complain(fmt::format("\"{}\" is not a key", term.name));
    takeRange(phrase, {"count", Subject::KeyWrites, 0, 1e9}, term);
  } else if (name == "saved" && phrase.takeIf("nothing")) {
    term.subject = Subject::SavedNothing;
  } else if (name == "saved" || name == "reported") {
    term.subject = name == "saved" ? Subject::Saved : Subject::Reported;
    takeField(phrase, term);
  } else if (name == "log" || name == "journal") {
    term.subject = name == "log" ? Subject::Log : Subject::Journal;
    if (!phrase.peekIsQuoted()) phrase.complain(fmt::format("after {} comes a \"text\"", name));
    term.value = phrase.take("a text");
  } else if (name.size() > 4 && name[4] == '=' && isKeyName(name.substr(0, 4))) {
    takeKeyValue(phrase, name, term);
  } else {
    return false;
  }
  return true;
}

Term takeTerm(Phrase& phrase) {
  Term term;
  term.negated = phrase.takeIf("not");
  const std::string name = phrase.take("a condition");
  for (const TwoStates& entry : twoStates) {
    if (entry.name != name) continue;
    term.subject = entry.subject;
    term.on = phrase.takeOneOf(name, {entry.on, entry.off}) == 0;
    return term;
  }
  for (const Quantity& entry : quantities) {
    if (entry.name != name) continue;
    term.subject = entry.subject;
    takeRange(phrase, entry, term);
    return term;
  }
  for (const Plain& entry : plain) {
    if (entry.name != name) continue;
    term.subject = entry.subject;
    term.on = entry.on;
    return term;
  }
  if (!takeNamed(phrase, name, term)) {
    phrase.complain(unknownWord("condition", name, subjectNames()));
  }
  return term;
}

}  // namespace

std::expected<Condition, std::string> Condition::parse(std::string_view text) {
  Condition condition;
  condition.source = text;
  Phrase phrase(text);
  do {
    condition.terms.push_back(takeTerm(phrase));
  } while (phrase.takeIf("and") || phrase.takeIf("while"));
  phrase.takeEnd();
  if (phrase.complaint()) return std::unexpected(*phrase.complaint());
  return condition;
}

bool Condition::canBeWatched() const {
  for (const Term& term : terms) {
    if (term.subject == Subject::Reported) return false;
  }
  return true;
}

bool Condition::listens() const {
  for (const Term& term : terms) {
    if (term.subject == Subject::Log || term.subject == Subject::Journal) return true;
  }
  return false;
}

void Condition::hear(const Journal::Entry& entry) {
  for (Term& term : terms) {
    if (term.heard) continue;
    if (term.subject == Subject::Log && entry.kind == "log") {
      term.heard = entry.text.find(*term.value) != std::string::npos;
    }
    if (term.subject == Subject::Journal) {
      term.heard = journalLine(entry).find(*term.value) != std::string::npos;
    }
  }
}

void Condition::forget() {
  for (Term& term : terms) term.heard = false;
}

}  // namespace virtualmac
