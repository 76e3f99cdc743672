#include "VirtualMac/Scenarios/Action.h"

#include <array>
#include <csignal>
#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Operations.h"
#include "VirtualMac/Machine/Deeds.h"
#include "VirtualMac/Machine/Faults.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Machine/Nearest.h"
#include "VirtualMac/Remote/RequestWords.h"
#include "VirtualMac/Scenarios/Phrase.h"

namespace virtualmac {

namespace {

using korvel::Operation;
using Answered = std::function<void(Answer)>;
using Act = std::function<void(Stage&, Answered)>;

std::string clientIn(Phrase& phrase) {
  // A client's name is free, but it is never one of the words that join.
  return phrase.atEnd() || phrase.peek() == "as" ? "app" : phrase.take("a client");
}

Act connect(Phrase& phrase) {
  const std::string client = clientIn(phrase);
  const std::string identity = phrase.takeIf("as") ? phrase.take("an identity") : "app";
  return [=](Stage& stage, const Answered&) { stage.connect(client, identity); };
}

Act disconnect(Phrase& phrase) {
  return [client = clientIn(phrase)](Stage& stage, const Answered&) { stage.disconnect(client); };
}

Act killClient(Phrase& phrase) {
  return [client = clientIn(phrase)](Stage& stage, const Answered&) { stage.killClient(client); };
}

Act startHelper(Phrase& phrase) {
  phrase.takeOneOf("helper", {"start"});
  return [](Stage& stage, const Answered&) { stage.startHelper(); };
}

Act killHelper(Phrase& phrase) {
  static constexpr std::array numbers{SIGKILL, SIGTERM, SIGINT, SIGABRT};
  const std::size_t which =
      phrase.atEnd() ? 0 : phrase.takeOneOf("signal", {"KILL", "TERM", "INT", "ABRT"});
  return [=](Stage& stage, const Answered&) { stage.signalHelper(numbers.at(which)); };
}

/// An installer's work: stops the old helper, puts the new one in its place, starts it.
Act update(Phrase& phrase) {
  static constexpr double longestEndSeconds = 5;
  return [version = phrase.take("a version")](Stage& stage, const Answered&) {
    stage.signalHelper(SIGTERM);
    stage.runUntil(stage.now() + longestEndSeconds + stage.graceSeconds(),
                   [&stage] { return !stage.helperRunning(); });
    if (stage.helperRunning()) throw std::runtime_error("the old helper did not end");
    stage.machine().installHelper(version);
    stage.startHelper();
  };
}

/// The middle of an update alone: the helper that runs, if one does, goes on as it is.
Act install(Phrase& phrase) {
  return [version = phrase.take("a version")](Stage& stage, const Answered&) {
    stage.machine().installHelper(version);
  };
}

Act reboot(Phrase&) {
  return [](Stage& stage, const Answered&) { stage.reboot(); };
}

Act powerLoss(Phrase&) {
  return [](Stage& stage, const Answered&) { stage.powerLoss(); };
}

Act fault(Phrase& phrase) {
  const std::vector<std::string> words = phrase.takeRest();
  if (auto defect = faultDefect(words)) phrase.complain(*std::move(defect));
  return [words](Stage& stage, const Answered&) {
    const auto done = switchFault(stage.machine(), words);
    if (!done) throw std::runtime_error(done.error());
  };
}

/// An action that is neither a deed nor a request.
struct Verb {
  std::string_view name;
  Act (*read)(Phrase&);
};
constexpr Verb verbs[] = {{"connect", connect},      {"disconnect", disconnect},
                          {"kill-app", killClient},  {"helper", startHelper},
                          {"kill", killHelper},      {"update", update},
                          {"install", install},      {"reboot", reboot},
                          {"power-loss", powerLoss}, {"fault", fault}};

Act perform(Phrase& phrase, const Deed& deed) {
  GivenValue value;
  if (deed.values) {
    const std::string word = phrase.take(std::string(deed.name) + "'s value");
    value = phrase.valueOf(deed.values->read(deed.name, word));
  }
  return [&deed, value](Stage& stage, const Answered&) {
    const std::string problem = deed.perform(stage.machine(), value);
    if (!problem.empty()) throw std::runtime_error(problem);
  };
}

Act ask(Phrase& phrase, const Operation& operation) {
  std::uint8_t argument = 0;
  if (operation.argument != korvel::OperationArgument::None) {
    const std::string word = phrase.take(std::string(operation.word) + "'s value");
    argument = phrase.valueOf(argumentFrom(operation, word));
  }
  const std::string client = phrase.takeIf("by") ? phrase.take("a client") : "app";
  return [=, &operation](Stage& stage, Answered answered) {
    stage.request(client, operation, argument, std::move(answered));
  };
}

/// A request of a newer client: a method that this helper lacks.
Act call(Phrase& phrase) {
  const std::string method = phrase.take("a method");
  if (const auto defect = foreignOperation(method); !defect) phrase.complain(defect.error());
  const std::string client = phrase.takeIf("by") ? phrase.take("a client") : "app";
  return [=](Stage& stage, Answered answered) {
    stage.request(client, *foreignOperation(method), 0, std::move(answered));
  };
}

Act read(Phrase& phrase, const std::string& name) {
  std::vector<std::string_view> names;
  for (const Verb& verb : verbs) {
    if (verb.name == name) return verb.read(phrase);
    names.push_back(verb.name);
  }
  for (const Operation& operation : korvel::operations) {
    if (operation.word == name) return ask(phrase, operation);
    names.push_back(operation.word);
  }
  if (name == foreignCallWord) return call(phrase);
  names.push_back(foreignCallWord);
  for (const Deed& deed : deedCatalogue()) {
    if (deed.name == name) return perform(phrase, deed);
    names.push_back(deed.name);
  }
  phrase.complain(unknownWord("action", name, names));
  return nullptr;
}

}  // namespace

std::expected<Action, std::string> Action::parse(std::string_view text) {
  Action action;
  action.source = text;
  Phrase phrase(text);
  const std::string name = phrase.take("an action");
  action.act = read(phrase, name);
  phrase.takeEnd();
  if (phrase.complaint()) return std::unexpected(*phrase.complaint());
  const Operation* operation = korvel::operationWith(&Operation::word, name);
  const bool isAnswered =
      operation != nullptr && operation->answer != korvel::OperationAnswer::None;
  action.request = isAnswered || name == foreignCallWord;
  return action;
}

}  // namespace virtualmac
