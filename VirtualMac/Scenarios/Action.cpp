#include "VirtualMac/Scenarios/Action.h"

#include <fmt/format.h>

#include <array>
#include <csignal>
#include <stdexcept>
#include <utility>

#include "VirtualMac/Machine/FaultNames.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Scenarios/Phrase.h"

namespace virtualmac {

/// Reads the words after an action's name.
struct Action::Reader {
  Phrase& phrase;
  Action& action;

  void chooses(Form taken, std::string_view subject,
               std::initializer_list<std::string_view> words) {
    action.form = taken;
    action.choice = phrase.takeOneOf(subject, words);
  }
  void numbers(Form taken, std::string_view subject, double least, double most) {
    action.form = taken;
    action.number = phrase.takeNumber(subject, least, most);
  }
  void client() {
    // A client's name is free, but it is never one of the words that join.
    if (!phrase.atEnd() && phrase.peek() != "as") action.client = phrase.take("a client");
  }
  void asks(Request request) {
    action.form = Form::Request;
    action.what = request;
    if (request == Request::SetChargeLimit) action.number = phrase.takeNumber("percent", 0, 255);
    if (request == Request::ForceDischarge || request == Request::KeepAwake) {
      action.number = phrase.takeOneOf("what it can be", {"on", "off"}) == 0 ? 1 : 0;
    }
    if (phrase.takeIf("by")) action.client = phrase.take("a client");
  }
  void temperature() {
    action.form = Form::Temperature;
    action.choice = phrase.takeIf("free") ? 1 : 0;
    if (action.choice == 0)
      action.number = phrase.takeNumber("degrees or the word free", lowestCelsius, highestCelsius);
  }
  void connect() {
    action.form = Form::Connect;
    client();
    action.name = phrase.takeIf("as") ? phrase.take("an identity") : "app";
  }
  void fault(bool on) {
    action.form = Form::Fault;
    action.choice = on ? 0 : 1;
    action.name = phrase.take("a fault");
    action.arguments = phrase.takeRest();
    bool known = false;
    std::vector<std::string_view> names;
    for (const FaultDescription& description : faultCatalogue()) {
      known = known || description.name == action.name;
      names.push_back(description.name);
    }
    if (known || phrase.complaint()) return;
    const std::string_view near = nearest(action.name, names);
    phrase.complain(fmt::format("no fault is called \"{}\"{}", action.name,
                                near.empty() ? "" : fmt::format("; is it {}?", near)));
  }

  using Read = void (*)(Reader&);
  struct Entry {
    std::string_view name;
    Read read;
  };
  static const std::array<Entry, 30> table;

  void read();
};

const std::array<Action::Reader::Entry, 30> Action::Reader::table{{
    {"connect", [](Reader& it) { it.connect(); }},
    {"disconnect", [](Reader& it) { it.action.form = Form::Disconnect, it.client(); }},
    {"kill-app", [](Reader& it) { it.action.form = Form::KillApp, it.client(); }},
    {"set-limit", [](Reader& it) { it.asks(Request::SetChargeLimit); }},
    {"clear", [](Reader& it) { it.asks(Request::ClearChargeLimit); }},
    {"discharge", [](Reader& it) { it.asks(Request::ForceDischarge); }},
    {"keep-awake", [](Reader& it) { it.asks(Request::KeepAwake); }},
    {"top-off", [](Reader& it) { it.asks(Request::TopOff); }},
    {"cancel-top-off", [](Reader& it) { it.asks(Request::CancelTopOff); }},
    {"reset", [](Reader& it) { it.asks(Request::Reset); }},
    {"quit", [](Reader& it) { it.asks(Request::Quit); }},
    {"adapter",
     [](Reader& it) {
       it.chooses(Form::Adapter, "an adapter's move", {"in", "out", "renegotiates"});
     }},
    {"lid", [](Reader& it) { it.chooses(Form::Lid, "a lid's move", {"open", "close"}); }},
    {"display", [](Reader& it) { it.chooses(Form::Display, "a display's move", {"in", "out"}); }},
    {"touch", [](Reader& it) { it.action.form = Form::Touch; }},
    {"battery", [](Reader& it) { it.numbers(Form::Battery, "percent", 0, 100); }},
    {"temperature", [](Reader& it) { it.temperature(); }},
    {"ambient",
     [](Reader& it) { it.numbers(Form::Ambient, "degrees", lowestCelsius, highestCelsius); }},
    {"sleep", [](Reader& it) { it.action.form = Form::Sleep; }},
    {"wake", [](Reader& it) { it.action.form = Form::Wake; }},
    {"idle-sleep", [](Reader& it) { it.numbers(Form::IdleSleep, "minutes", 0, 1440); }},
    {"sleep-disabled",
     [](Reader& it) { it.chooses(Form::SleepDisabled, "what it can be", {"on", "off"}); }},
    {"helper", [](Reader& it) { it.chooses(Form::StartHelper, "what it can do", {"start"}); }},
    {"kill", [](Reader& it) { it.action.form = Form::Signal, it.action.number = SIGKILL; }},
    {"signal",
     [](Reader& it) {
       it.chooses(Form::Signal, "a signal", {"TERM", "INT", "ABRT", "KILL"});
       static constexpr std::array<int, 4> numbers{SIGTERM, SIGINT, SIGABRT, SIGKILL};
       it.action.number = numbers[it.action.choice];
     }},
    {"update",
     [](Reader& it) {
       it.action.form = Form::Update, it.action.name = it.phrase.take("a version");
     }},
    {"reboot", [](Reader& it) { it.action.form = Form::Reboot; }},
    {"power-loss", [](Reader& it) { it.action.form = Form::PowerLoss; }},
    {"fault", [](Reader& it) { it.fault(true); }},
    {"heal", [](Reader& it) { it.fault(false); }},
}};

void Action::Reader::read() {
  const std::string verb = phrase.take("an action");
  std::vector<std::string_view> names;
  for (const Entry& entry : table) {
    names.push_back(entry.name);
    if (entry.name == verb) return entry.read(*this);
  }
  const std::string_view near = nearest(verb, names);
  std::string all;
  for (const std::string_view known : names) all += (all.empty() ? "" : ", ") + std::string(known);
  phrase.complain(fmt::format("nobody can do \"{}\"{}; there are: {}", verb,
                              near.empty() ? "" : fmt::format(" (is it {}?)", near), all));
}

std::expected<Action, std::string> Action::parse(std::string_view text) {
  Action action;
  action.source = text;
  Phrase phrase(text);
  Reader{phrase, action}.read();
  phrase.takeEnd();
  if (phrase.complaint()) return std::unexpected(*phrase.complaint());
  return action;
}

void Action::perform(Stage& stage, std::function<void(Answer)> answered) const {
  switch (form) {
    case Form::Connect:
      return stage.connect(client, name);
    case Form::Disconnect:
      return stage.disconnect(client);
    case Form::KillApp:
      return stage.killClient(client);
    case Form::Request:
      return stage.request(client, what, static_cast<int>(number), std::move(answered));
    case Form::StartHelper:
      return stage.startHelper();
    case Form::Signal:
      return stage.signalHelper(static_cast<int>(number));
    case Form::Update:
      return update(stage);
    case Form::Reboot:
      return stage.reboot();
    case Form::PowerLoss:
      return stage.powerLoss();
    default:
      return performOnMachine(stage);
  }
}

namespace {

void require(bool possible, const char* otherwise) {
  if (!possible) throw std::runtime_error(otherwise);
}

}  // namespace

void Action::performOnMachine(Stage& stage) const {
  Machine& machine = stage.machine();
  switch (form) {
    case Form::Adapter:
      if (choice == 0) machine.adapter.connect();
      if (choice == 1) machine.adapter.disconnect();
      if (choice == 2) {
        require(machine.adapter.isConnected(), "no adapter is connected");
        machine.adapter.renegotiate();
      }
      break;
    case Form::Lid:
      require(machine.lid.exists(), "this Mac has no lid");
      choice == 0 ? machine.lid.open() : machine.lid.close();
      break;
    case Form::Display:
      choice == 0 ? machine.lid.connectDisplay() : machine.lid.disconnectDisplay();
      break;
    case Form::Touch:
      machine.power.userActivity();
      break;
    case Form::Battery:
      require(machine.battery.isPresent(), "this Mac has no battery");
      machine.battery.setPercent(number);
      break;
    case Form::Temperature:
      require(machine.battery.isPresent(), "this Mac has no battery");
      machine.battery.setTemperatureCelsius(choice == 1 ? std::nullopt : std::optional(number));
      break;
    case Form::Ambient:
      machine.battery.setAmbientCelsius(number);
      break;
    case Form::Sleep:
      machine.power.requestSleep();
      break;
    case Form::Wake:
      machine.power.wake();
      break;
    case Form::IdleSleep:
      machine.power.setIdleSleepMinutes(static_cast<std::int64_t>(number));
      break;
    case Form::SleepDisabled:
      machine.power.setSleepDisabledExternally(choice == 0);
      break;
    case Form::Fault: {
      const auto done = setFault(machine, name, arguments, choice == 0);
      if (!done) throw std::runtime_error(done.error());
      break;
    }
    default:
      break;
  }
}

/// What an installer does: stops the old helper, puts the new one in its place, starts it.
void Action::update(Stage& stage) const {
  static constexpr double longestEndSeconds = 5;
  stage.signalHelper(SIGTERM);
  stage.runUntil(stage.now() + longestEndSeconds + stage.graceSeconds(),
                 [&stage] { return !stage.helperRunning(); });
  if (stage.helperRunning()) throw std::runtime_error("the old helper did not end");
  stage.setHelperVersion(name);
  stage.machine().tell("helper version " + name + " installed");
  stage.startHelper();
}

}  // namespace virtualmac
