#include "Tests/model/Recorder.h"

#include <algorithm>
#include <utility>

#include "HelperEntry.h"
#include "Tests/model/RecordedDispatch.h"
#include "Tests/model/RecordedPlatform.h"
#include "VirtualMac/Schedule/Scheduler.h"

namespace model {

namespace {

using virtualmac::Lane;
using virtualmac::ThreadGroup;

constexpr std::string_view queueName = "com.korvel.app.helper.smc";

/// A connection's thread is named after its client: "xpc 901".
std::int64_t clientOf(const Lane& lane) { return std::stoll(lane.name().substr(4)); }

/// "5 5", "30": whole seconds, as the helper's timers have them.
std::string timerText(const virtualmac::TimerFacts& timer) {
  const auto seconds = [](double value) {
    return std::to_string(static_cast<std::int64_t>(value));
  };
  return seconds(timer.delaySeconds) +
         (timer.intervalSeconds ? ' ' + seconds(*timer.intervalSeconds) : "");
}

}  // namespace

/// The recorded platform of one process.
struct Recorder::Seam {
  Seam(Recorder& book, korvel::Platform& program)
      : smc(book, program.smc),
        registry(book, program.registry),
        powerSources(book, program.powerSources),
        assertions(book, program.assertions),
        powerSettings(book, program.powerSettings),
        rootDomain(book, program.rootDomain),
        smartCharge(book, program.smartCharge),
        files(book, program.files),
        dispatch(book, program.dispatch),
        clock(book, program.clock),
        log(book, program.log),
        codeSigning(book, program.codeSigning),
        process(book, program.process),
        platform{smc,   registry, powerSources, assertions, powerSettings, rootDomain,  smartCharge,
                 files, dispatch, clock,        log,        codeSigning,   program.xpc, process} {}

  Recorded<korvel::SMCUserClient> smc;
  Recorded<korvel::IORegistry> registry;
  Recorded<korvel::PowerSources> powerSources;
  Recorded<korvel::PowerAssertions> assertions;
  Recorded<korvel::PowerSettings> powerSettings;
  Recorded<korvel::RootPowerDomain> rootDomain;
  Recorded<korvel::SmartChargeRuntime> smartCharge;
  Recorded<korvel::FileSystem> files;
  RecordedDispatch dispatch;
  Recorded<korvel::WallClock> clock;
  Recorded<korvel::UnifiedLog> log;
  Recorded<korvel::CodeSigning> codeSigning;
  RecordedProcess process;
  korvel::Platform platform;
};

Recorder::Recorder() = default;
Recorder::~Recorder() = default;

bool RecordedGroup::wait(double timeoutSeconds) {
  Event* const event = recorder.begin(timeoutSeconds < 0.3 ? "wait 0.1" : "wait 0.5");
  const bool inTime = group->wait(timeoutSeconds);
  recorder.finish(event, {});
  return inTime;
}

void Recorder::attach(virtualmac::World& watched) {
  world = &watched;
  world->observers().add(*this);
  world->journal().addListener([this](const auto& entry) { heardOf(entry); });
}

int Recorder::run(korvel::Platform& program) {
  // The helper's objects may outlive its main thread, and call the seam as they end.
  seams.push_back(std::make_unique<Seam>(*this, program));
  openItems.clear();
  const auto version = program.process.bundleInfo("CFBundleShortVersionString");
  open({.cause = Cause::Start,
        .number = program.process.getpid(),
        .text = version.text() != nullptr ? *version.text() : "",
        .path = program.process.bundleExecutablePath().value_or("")});
  return korvel::runHelper(seams.back()->platform);
}

void Recorder::remember(const virtualmac::AppCallRef& call, std::int64_t argument) {
  calls.push_back({call, argument});
}

std::map<std::uint64_t, std::string> Recorder::outcomes() const {
  std::map<std::uint64_t, std::string> found;
  for (const Call& each : calls) {
    const virtualmac::AppCall& call = *each.call;
    // A call whose connection ended meanwhile may have been answered to nobody.
    if (each.order == 0 || call.failed || call.selector == "quit" || !call.data.empty() ||
        call.pid != 0)
      continue;
    std::string& words = found[each.order];
    if (!call.answered) continue;
    words = "ok";
    if (!call.error) continue;
    words = "failed " + std::to_string(call.error->code) + " \"" +
            call.error->localizedDescription() + '"';
    const auto result = call.error->userInfo.find("smcResult");
    if (result != call.error->userInfo.end()) {
      words += " smcResult=" + std::to_string(result->second.integer().value_or(-1));
    }
  }
  return found;
}

std::int64_t Recorder::now() const { return world->scheduler().time().uptime(); }

// ---- items and events

void Recorder::open(Item item) {
  item.order = ++last;
  item.at = now();
  items.push_back(std::move(item));
  openItems[&world->scheduler().current()] = &items.back();
}

void Recorder::close() {
  const auto found = openItems.extract(&world->scheduler().current());
  if (!found) return;
  Item& item = *found.mapped();
  item.ended = true;
  item.endOrder = ++last;
  item.endAt = now();
}

Event* Recorder::begin(std::string text) {
  const Lane& lane = world->scheduler().current();
  const auto found = openItems.find(&lane);
  if (lane.process() == nullptr || !lane.process()->alive()) return nullptr;
  if (found == openItems.end()) {
    items.push_back({.cause = Cause::Outside, .order = ++last, .at = now(), .ended = true});
  }
  std::vector<Event>& events =
      found == openItems.end() ? items.back().events : found->second->events;
  events.push_back({.text = std::move(text), .order = ++last, .at = now()});
  return &events.back();
}

void Recorder::finish(Event* event, Answer answer) {
  if (event == nullptr) return;
  event->answer = std::move(answer);
  event->answer.given = true;
  event->answeredOrder = ++last;
  event->answeredAt = now();
}

void Recorder::happened(std::string text, Answer answer) {
  finish(begin(std::move(text)), std::move(answer));
}

void Recorder::heardOf(const virtualmac::Journal::Entry& entry) {
  using virtualmac::EffectID;
  const bool exited = entry.tells(EffectID::helperExited);
  if (exited || entry.tells(EffectID::helperKilled) || entry.tells(EffectID::helperEnded)) {
    items.push_back({.cause = Cause::End,
                     .number = exited ? entry.effect.number(1) : -1,
                     .order = ++last,
                     .at = now(),
                     .ended = true,
                     .endOrder = last,
                     .endAt = now()});
  }
  if (entry.kind != "reply") return;
  const auto call = delivering.find(&world->scheduler().current());
  const bool hasData =
      call != delivering.end() && call->second.call != nullptr && !call->second.call->data.empty();
  happened("reply " + entry.text + (hasData ? ' ' + call->second.call->data : ""));
}

// ---- power notifications

korvel::ConnectionRef Recorder::registerForPower(korvel::RootPowerDomain& domain, void* refcon,
                                                 korvel::HandleRef& port,
                                                 korvel::InterestCallback callback,
                                                 korvel::ObjectRef& notifier) {
  registrations.push_back(std::make_unique<Registration>(Registration{this, refcon, callback}));
  return domain.registerForSystemPower(registrations.back().get(), port, &Recorder::heard,
                                       notifier);
}

void Recorder::heard(void* refcon, korvel::ObjectRef service, std::uint32_t type,
                     std::uintptr_t argument) {
  const auto& registration = *static_cast<const Registration*>(refcon);
  registration.recorder->open(
      {.cause = Cause::Power, .number = type, .argument = static_cast<std::intptr_t>(argument)});
  registration.callback(registration.refcon, service, type, argument);
  registration.recorder->close();
}

// ---- the schedule

void Recorder::workPosted(const Lane& /*from*/, const Lane& to, std::uint64_t number) {
  if (to.name() != queueName) return;
  happened("post", {.number = static_cast<std::int64_t>(number)});
}

void Recorder::workBegins(const Lane& lane, std::uint64_t number) {
  if (lane.name() != queueName) return;
  open({.cause = Cause::Work, .number = static_cast<std::int64_t>(number)});
}

void Recorder::workEnds(const Lane& lane, std::uint64_t /*number*/) {
  if (lane.name() == queueName) close();
}

void Recorder::messageBegins(const Lane& lane, std::string_view selector) {
  // The selector is the call's own text, so its place tells the calls apart.
  const auto found = std::ranges::find_if(
      calls, [&](const Call& each) { return each.call->selector.data() == selector.data(); });
  const Call call = found == calls.end() ? Call{} : *found;
  delivering[&lane] = call;
  if (found != calls.end()) found->order = last + 1;
  open({.cause = Cause::Message,
        .number = clientOf(lane),
        .argument = call.argument,
        .text = std::string(selector)});
}

void Recorder::messageEnds(const Lane& lane) {
  delivering.erase(&lane);
  close();
}

void Recorder::connectionOffered(const ThreadGroup& /*process*/, std::int32_t client) {
  open({.cause = Cause::Connection, .number = client});
}
void Recorder::connectionDecided(const ThreadGroup& /*process*/, bool /*accepted*/) { close(); }
void Recorder::connectionEnding(const ThreadGroup& /*process*/) {
  open({.cause = Cause::Leaving, .number = clientOf(world->scheduler().current())});
}
void Recorder::connectionEnded(const ThreadGroup& /*process*/) { close(); }

void Recorder::connectionBreaking(const ThreadGroup& /*process*/) {
  open({.cause = Cause::Breaking});
}
void Recorder::connectionBroken(const ThreadGroup& /*process*/) { close(); }

void Recorder::timerStarted(const virtualmac::TimerFacts& timer) {
  happened("timer " + timerText(timer), {.number = static_cast<std::int64_t>(timer.id)});
}
void Recorder::timerCancelled(const virtualmac::TimerFacts& timer) {
  happened("cancel " + std::to_string(timer.id));
}
void Recorder::timerFires(const virtualmac::TimerFacts& timer) {
  open({.cause = Cause::Timer, .number = static_cast<std::int64_t>(timer.id)});
}
void Recorder::timerDone(const virtualmac::TimerFacts& /*timer*/) { close(); }

void Recorder::waited(const Lane& /*lane*/, std::string_view what, double /*seconds*/) {
  if (what == "sync") happened("sync");
}

}  // namespace model
