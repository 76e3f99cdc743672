#include "Tests/model/reference/Model.h"

#include <algorithm>

// The items of a run, and the process's life.

namespace model {

namespace {

constexpr std::int64_t millisecond = 1'000'000;

std::string stringIn(const Values& values, const std::string& key) {
  const auto found = values.find(key);
  const bool fits = found != values.end() && found->second.front() == 's';
  return fits ? found->second.substr(1) : "";
}

}  // namespace

void Model::play(const Item& next, const Trace& run) {
  trace = &run;
  checkReads(&next);
  begin(next);
  try {
    switch (next.cause) {
      case Cause::Start:
        start();
        break;
      case Cause::Work: {
        const auto found = posted.extract(next.number);
        if (!found) throw Difference{next.order, next.at, "no work", "work " + text(next.number)};
        asker = found.mapped().asker;
        work(found.mapped().at, found.mapped().body);
        break;
      }
      case Cause::Timer: {
        const auto found = timers.find(next.number);
        if (found == timers.end()) throw Difference{next.order, next.at, "no timer", "a timer"};
        const Timer timer = found->second;
        if (timer.interval == 0) {
          timers.erase(found);
        } else {
          while (found->second.due <= next.at) found->second.due += timer.interval;
        }
        work(timer.due, timer.fire);
        break;
      }
      case Cause::Message:
        asker = next.order;
        message();
        break;
      case Cause::Outside:
        throw Difference{next.order, next.at, "nothing", next.events[0].text};
      case Cause::Connection:
        connection();
        break;
      case Cause::Leaving:
        // The place in the source is the program's own business.
        expect("logEmit com.korvel.app.helper Listener 0 connection invalidated #fileID=", true);
        if (leftEarly.erase(next.number) == 0) post([this] { clientLeft(); });
        break;
      case Cause::Breaking:
        log("Listener", 0, "connection interrupted");
        break;
      case Cause::Power:
        power();
        break;
      case Cause::Signal:
        signal();
        break;
      case Cause::End:
        nothingDue(next.at, next.order);
        if (next.number >= 0 && !exits) {
          throw Difference{next.order, next.at, "no end", "exit " + text(next.number)};
        }
        timers.clear();
        posted.clear();
        break;
    }
    finish();
  } catch (const CutOff&) {
    return;
  }
}

void Model::work(std::int64_t earliest, const Duty& body) {
  const std::int64_t at = std::max(earliest, freeAt);
  if (item().at != at) {
    throw Difference{order(), item().at, "work at " + text(at), "work at " + text(item().at)};
  }
  for (const auto& [id, timer] : timers) {
    if (id != item().number && timer.due < earliest) nothingDue(item().at, order());
  }
  freeAt = item().ended ? item().endAt : INT64_MAX;
  body();
  changed();
}

void Model::end(std::int64_t at, std::uint64_t order) {
  checkReads(nullptr);
  nothingDue(at, order);
}

void Model::nothingDue(std::int64_t at, std::uint64_t order) const {
  for (const auto& [id, timer] : timers) {
    if (std::max(timer.due, freeAt) < at) {
      throw Difference{order, at, "timer " + text(id) + " at " + text(timer.due), "nothing"};
    }
  }
  for (const auto& [number, waiting] : posted) {
    if (std::max(waiting.at, freeAt) < at) {
      throw Difference{order, at, "work " + text(number) + " at " + text(waiting.at), "nothing"};
    }
  }
}

// ---- effects

void Model::log(const std::string& category, int level, const std::string& words) {
  expect("logEmit com.korvel.app.helper " + category + ' ' + text(level) + ' ' + words);
}

std::int64_t Model::post(Duty body) {
  const std::int64_t number = expect("post").number;
  posted[number] = {now(), asker, std::move(body)};
  return number;
}

std::int64_t Model::startTimer(const std::string& words, std::int64_t delay, std::int64_t interval,
                               Duty fire) {
  const std::int64_t id = expect("timer " + words).number;
  timers[id] = {now() + delay * 1000 * millisecond, interval * 1000 * millisecond, std::move(fire)};
  return id;
}

void Model::cancel(std::optional<std::int64_t>& timer) {
  if (!timer) return;
  // A timer that fires once and has fired is cancelled all the same.
  expect("cancel " + text(*timer));
  timers.erase(*timer);
  timer.reset();
}

void Model::reply(const std::string& name, const Outcome& failure) {
  std::string words =
      failure ? "failed " + text(failure->code) + " \"" + failure->text + '"' : "ok";
  expect("reply " + name + ' ' + words);
  if (failure && failure->result) words += " smcResult=" + text(*failure->result);
  replies[asker] = words;
}

void Model::changed() {
  if (!history.empty() && history.rbegin()->second.record == record) return;
  history[order()] = {record, more() ? upcoming()->order : item().endOrder};
}

const Answer& Model::expect(const std::string& effect, bool open) {
  changed();
  return Script::expect(effect, open);
}

std::string Model::caller(std::int64_t client, bool whole) {
  std::string id, callerTeam, hash;
  if (expect("codeCopyGuest " + text(client)).code == 0 && expect("codeCopyStatic").code == 0) {
    const Answer& known = expect("codeCopyInformation");
    if (known.code == 0) {
      id = stringIn(known.values, "identifier");
      callerTeam = stringIn(known.values, "teamid");
      const auto found = known.values.find("cdhash");
      if (found != known.values.end() && found->second.front() == 'x')
        hash = found->second.substr(1);
    }
  }
  return " pid=" + text(client) + " signingID=" + id +
         (whole ? " team=" + callerTeam + " cdHash=" + hash : "");
}

void Model::awaitWork(const std::string& limit, std::int64_t number) {
  const std::int64_t patience = (limit == "0.5" ? 500 : 100) * millisecond;
  const Item* const found = workOf(number);
  const bool inTime = found != nullptr && found->ended && found->endAt <= now() + patience;
  expectUntil("wait " + limit, inTime ? found->endAt : now() + patience);
}

const Item* Model::workOf(std::int64_t number) const {
  const auto found = std::ranges::find_if(*trace, [&](const Item& each) {
    return each.cause == Cause::Work && each.number == number && each.order > order();
  });
  return found == trace->end() ? nullptr : &*found;
}

// ---- the process's life

void Model::start() {
  const Item& first = item();
  const Trace* const run = trace;
  auto earlier = std::move(replies);
  *this = Model(mistake);
  replies = std::move(earlier);
  trace = run;
  begin(first);
  pid = first.number;
  const Answer& code = expect("codeCreateWithPath " + item().path);
  if (code.code == 0) {
    const Answer& known = expect("codeCopyInformation");
    if (known.code == 0) team = stringIn(known.values, "teamid");
  }
  log("Boot", 0, "KorvelHelper starting pid=" + text(pid) + " team=" + team);
  openSMC();
  native();
  record = load();
  record.reason.reset();
  record.reasonAt.reset();
  record.toppingOff = false;
  record.version = item().text.empty() ? std::nullopt : std::optional(item().text);
  say("HelperImpl boot pid=" + text(pid) + " limit=" + text(record.limit));
  const Item* const probed = workOf(post([this] { probe(); }));
  if (probed == nullptr || !probed->ended) throw CutOff{};
  pass(probed->endAt);
  expect("sync");
  post([this] { recover(); });
  rootPort = expect("powerRegister").code;
  if (rootPort == 0) {
    log("SystemPower", fault, "IORegisterForSystemPower failed — sleep/wake observer inactive");
  } else {
    log("SystemPower", 0, "system power observer registered rootPort=" + text(rootPort));
  }
}

void Model::connection() {
  if (team.empty()) {
    return log("Listener", fault,
               "Release build with unreadable Team ID — refusing XPC connection");
  }
  // A quote would end the text of the requirement too early.
  if (team.contains('"')) {
    return log("Listener", fault,
               "code-signing requirement does not parse — refusing XPC connection");
  }
  // An end that overtakes the acceptance waits for it; the exact moment is between two locks, so
  // the run tells which of the two counts.
  const std::int64_t client = item().number;
  const auto leaving = std::ranges::find_if(*trace, [&](const Item& each) {
    return each.cause == Cause::Leaving && each.number == client && each.order > item().order &&
           (!item().ended || each.order < item().endOrder);
  });
  const bool overtaken = leaving != trace->end() &&
                         (item().ended ? item().events.size() > 2 : leaving->events.size() < 2);
  if (overtaken) leftEarly.insert(client);
  // A connection that breaks as it is made keeps its acceptance waiting for its end.
  if (overtaken && leaving->ended && more() && leaving->endOrder < upcoming()->order) {
    pass(leaving->endAt);
  }
  log("Listener", 0, "accepted XPC connection (requirement set, team=" + team + ")");
  post([this] { clientCame(); });
  if (overtaken) post([this] { clientLeft(); });
}

void Model::power() {
  const std::string message = "logEmit com.korvel.app.helper SystemPower 0 kIOMessageSystem";
  const std::string allow = "powerAllowChange " + text(rootPort) + ' ' + text(item().argument);
  if (item().number == 0xE0000300) {
    expect(message + "HasPoweredOn — re-evaluating charge gate");
    post([this] {
      if (polling && !record.discharging && record.limit >= 20 && record.limit <= 100) {
        loop(record.limit);
      }
    });
  } else if (item().number == 0xE0000280) {
    expect(message + "WillSleep — flushing pre-sleep SMC pause-write");
    const std::int64_t number = post([this] { beforeSleep(); });
    awaitWork("0.1", number);
    expect(allow);
  } else if (item().number == 0xE0000270) {
    expect(allow);
  }
}

void Model::signal() {
  const bool aborts = item().number == 6;
  log("Boot", aborts ? fault : 0,
      aborts                ? "SIGABRT — running shutdownGracefully before exit"
      : item().number == 15 ? "SIGTERM — shutting down gracefully"
                            : "SIGINT — shutting down gracefully");
  shutDown();
}

void Model::shutDown() {
  say("shutdownGracefully — restoring SMC before exit");
  const std::int64_t number = post([this] { restore(false); });
  awaitWork("0.5", number);
  expect("exit 0");
  exits = true;
}

void Model::recover() {
  if (record.discharging) {
    say("crash-recovery: clearing stuck discharge keys from previous run");
    inflow(false);
    record.discharging = false;
  }
  if (record.ownsSleepDisabled) {
    say("crash-recovery: clearing SleepDisabled set by previous run");
    bool done = false;
    setSleepDisabled(false, done);
    record.ownsSleepDisabled = false;
  }
  persist();
}

}  // namespace model
