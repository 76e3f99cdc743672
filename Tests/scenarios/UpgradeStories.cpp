#include "Tests/scenarios/UpgradeStories.h"

#include <array>
#include <ostream>
#include <set>

#include "VirtualMac/Scenarios/StoryWriter.h"

namespace upgrade {

namespace {

using virtualmac::WrittenStep;
using virtualmac::WrittenStory;

constexpr std::array<FoundFile, 7> files{{
    {"no-file", std::nullopt},
    {"oldest-file", R"({
  "chargeLimit" : 70,
  "forceDischargeActive" : false,
  "heatPauseActive" : true,
  "lastWriteAt" : "2024-11-05T08:00:00Z",
  "sailingBand" : 3
}
)",
     true, 3},
    {"older-file", R"({
  "chargeLimit" : 70,
  "forceDischargeActive" : true,
  "heatPauseActive" : false,
  "lastWriteAt" : "2025-11-05T08:00:00Z",
  "lastWriteVerified" : false,
  "sailingBand" : 4
}
)",
     true, 4},
    {"file-of-today", R"({
  "chargeLimit" : 70,
  "forceDischargeActive" : false,
  "heatPauseActive" : false,
  "helperVersion" : "2.0.0",
  "lastWriteAt" : "2026-05-09T06:13:20Z",
  "lastWriteVerified" : true,
  "sailingBand" : 5,
  "sleepDisabledByKorvel" : false,
  "topUpActive" : false
}
)",
     true},
    {"newer-file", R"({
  "chargeLimit" : 70,
  "forceDischargeActive" : false,
  "format" : { "version" : 7, "parts" : [1, 2.5, null, "x"] },
  "heatPauseActive" : false,
  "helperVersion" : "3.1.0",
  "lastWriteAt" : "2027-01-02T03:04:05Z",
  "lastWriteVerified" : true,
  "sailingBand" : 6,
  "schedule" : [ { "from" : "08:00", "limit" : 1e999 } ],
  "sleepDisabledByKorvel" : false,
  "topUpActive" : false
}
)",
     true, 6},
    {"newer-file-amid-work", R"({
  "chargeLimit" : 70,
  "forceDischargeActive" : true,
  "heatPauseActive" : false,
  "helperVersion" : "3.1.0",
  "lastDischargeAbortAt" : "2027-01-02T03:04:05Z",
  "lastDischargeAbortReason" : "A reason that nobody knows yet.",
  "lastWriteAt" : "2027-01-02T03:04:05Z",
  "lastWriteVerified" : true,
  "limitKind" : "weekly",
  "sailingBand" : 5,
  "sleepDisabledByKorvel" : true,
  "topUpActive" : true
}
)",
     true},
    {"damaged-file", "{\n  \"chargeLimit\" : 70,\n  \"sailingBand\" : "},
}};

constexpr std::array<Versions, 4> versionPairs{{{"to-newer", "2.0.0", "2.1.0"},
                                                {"to-older", "2.1.0", "2.0.0"},
                                                {"to-same", "2.0.0", "2.0.0"},
                                                {"from-unnamed", "none", "2.0.0"}}};

constexpr std::array clients{Client::Older, Client::Today, Client::Newer};
constexpr std::array<std::string_view, 3> clientNames{"older-client", "client-of-today",
                                                      "newer-client"};
constexpr std::array<std::string_view, 3> workNames{"holding", "discharging", "topping-off"};

struct Interrupting {
  Interruption what;
  std::string_view name;
  std::string_view action;
};
constexpr std::array<Interrupting, 9> interruptions{
    {{Interruption::None, "nothing", ""},
     {Interruption::Kill, "kill", "kill"},
     {Interruption::Term, "term", "kill TERM"},
     {Interruption::Abort, "abort", "kill ABRT"},
     {Interruption::PowerLoss, "power-loss", "power-loss"},
     {Interruption::Reboot, "reboot", "reboot"},
     {Interruption::Sleep, "sleep", "sleep"},
     {Interruption::Quit, "quit", "quit"},
     {Interruption::ClientDies, "client-dies", "kill-app"}}};

const Interrupting& wordsOf(Interruption what) {
  return interruptions.at(static_cast<std::size_t>(what));
}

bool needsHelper(Interruption what) {
  return what == Interruption::Kill || what == Interruption::Term || what == Interruption::Abort;
}
bool needsClient(Interruption what) {
  return what == Interruption::Quit || what == Interruption::ClientDies;
}

/// Tells one case, moment after moment.
class Teller {
 public:
  explicit Teller(const Case& told) : about(told) {}

  std::string tell() {
    story.name = about.name();
    story.description = "An update is interrupted; nothing is lost, and nothing stays stuck.";
    story.profile = "newer-keys";
    begin();
    if (about.moment.live) {
      replaceHelper();
    } else {
      meetFirstStart();
    }
    recover();
    updateAgain();
    leave();
    return story.text();
  }

 private:
  void begin() {
    const bool isFound = !about.moment.live;
    story.start = {
        {"battery", "80"},
        {"helper-version", std::string(isFound ? about.versions.after : about.versions.before)},
        {"restart-after-crash", "yes"}};
    if (about.file.text) story.start.emplace_back("saved-state", *about.file.text);
    // The file claims the setting, so a helper has to find it set.
    if (about.file.name == "newer-file-amid-work") story.start.emplace_back("sleep-disabled", "on");
    if (isFound && isSlowFromStart()) story.start.emplace_back("faults", slowFault());
  }

  [[nodiscard]] bool isSlowFromStart() const {
    return !about.moment.slowCall.empty() && !about.moment.clientIsThere;
  }
  [[nodiscard]] std::string slowFault() const {
    return "call-latency " + std::string(about.moment.slowCall) + ' ' + seconds();
  }
  /// A helper that is to end gives its last work half a second.
  [[nodiscard]] std::string seconds() const {
    return about.moment.name.starts_with("old-") ? "0.4" : "1";
  }

  WrittenStep& step(double after, std::vector<std::string> actions) {
    now += after;
    story.steps.push_back({.time = now, .actions = std::move(actions)});
    return story.steps.back();
  }

  /// A client comes, and asks as one of its age does.
  void connect(const std::string& name, double after) {
    const std::string by = " by " + name;
    step(after, {"connect " + name});
    connected.insert(name);
    if (about.client == Client::Newer) {
      step(1, {"call setSchedule" + by}).reply = "lost";
      step(1, {"disconnect " + name, "connect " + name});
    }
    std::vector<std::string> asks{(about.client == Client::Older ? "ping" : "capabilities") + by};
    if (!promised) asks.push_back("set-limit 70" + by);
    step(1, asks);
    promised = true;
  }

  void replaceHelper() {
    connect("app", 10);
    story.steps.back().within = {"6s gate paused"};
    if (about.work == Work::ToppingOff) step(28, {"top-off"}).expect = {"gate charging"};
    if (about.work == Work::Discharging) {
      std::vector<std::string> asks{"discharge on"};
      if (about.client != Client::Older) asks.insert(asks.begin(), "keep-awake on");
      step(28, asks).expect = {"inflow inhibited"};
    }
    now = 60;
    const std::string install = "install " + std::string(about.versions.after);
    const std::string_view moment = about.moment.name;
    const std::vector<std::string> slow{"fault " + slowFault() + " on"};
    if (moment == "installed") {
      step(0, {install});
      interrupt(2);
      return;
    }
    if (moment.starts_with("old-")) {
      step(0, {slow.front(), install, "kill TERM"});
      interrupt(0.2);
      return;
    }
    step(0, {"kill TERM"});
    step(5, {install}).expect = {"helper stopped", "gate charging"};
    if (moment == "between") return interrupt(1);
    std::vector<std::string> start{"helper start"};
    if (isSlowFromStart()) start.insert(start.begin(), slow.front());
    step(1, start);
    if (about.moment.clientIsThere) return meetFirstClient();
    interrupt(0.5);
  }

  void meetFirstStart() {
    if (about.moment.clientIsThere) {
      now = 40;
      return meetFirstClient();
    }
    interrupt(0.5);
  }

  void meetFirstClient() {
    std::vector<std::string> actions{"connect second"};
    if (!about.moment.slowCall.empty())
      actions.insert(actions.begin(), "fault " + slowFault() + " on");
    step(2, actions);
    connected.insert("second");
    interrupt(about.moment.slowCall.empty() ? 0 : 0.5);
  }

  void interrupt(double after) {
    std::vector<std::string> actions;
    std::string action(wordsOf(about.interruption).action);
    const std::string client = connected.contains("second") ? "second" : "app";
    if (about.interruption == Interruption::Quit) action += " by " + client;
    if (about.interruption == Interruption::ClientDies) {
      action += ' ' + client;
      connected.erase(client);
    }
    if (!action.empty()) actions.push_back(action);
    if (!about.moment.slowCall.empty()) actions.push_back("fault " + slowFault() + " off");
    if (!actions.empty()) step(after, actions);
    if (about.interruption == Interruption::PowerLoss || about.interruption == Interruption::Reboot)
      connected.clear();
    if (about.interruption == Interruption::Sleep) step(30, {"wake"});
  }

  /// The helper that did the work may still do it.
  [[nodiscard]] bool worksOn() const {
    using enum Interruption;
    const Interruption what = about.interruption;
    return about.moment.name == "installed" &&
           (what == None || what == Sleep || what == ClientDies);
  }

  void recover() {
    const bool hadLimit = promised || about.file.hasLimit;
    connect("again", 40);
    if (!worksOn()) story.steps.back().within = {"20s gate paused"};
    step(22, {}).expect = {hadLimit && about.file.hasLimit
                               ? "saved sailingBand=" + std::to_string(about.file.band)
                               : "saved chargeLimit=70",
                           "reported chargeLimit=70", "saved chargeLimit=70"};
  }

  void updateAgain() {
    const std::string version(about.versions.after);
    step(20, {"update " + version}).expect = {"helper running"};
    connect("third", 10);
    story.steps.back().within = {"6s gate paused"};
    step(20, {}).expect = {"reported chargeLimit=70",
                           "reported helperVersion=" + version,
                           "saved chargeLimit=70",
                           "saved helperVersion=" + version,
                           "saved topUpActive=false",
                           "saved forceDischargeActive=false",
                           "inflow on",
                           "sleep-disabled off",
                           "saved sleepDisabledByKorvel=false",
                           "assertions 0"};
  }

  void leave() {
    std::vector<std::string> actions;
    for (const std::string& name : connected) actions.push_back("disconnect " + name);
    WrittenStep& last = step(5, actions);
    last.within = {"40s gate charging"};
    step(60, {}).expect = {"inflow on", "sleep-disabled off", "assertions 0",
                           "saved chargeLimit=70"};
    story.end = now + 1;
  }

  const Case& about;
  WrittenStory story;
  double now = 0;
  std::set<std::string> connected;
  bool promised = about.file.hasLimit;
};

}  // namespace

std::string Case::name() const {
  std::string all(moment.name);
  for (const std::string_view part :
       {wordsOf(interruption).name, workNames.at(static_cast<std::size_t>(work)), file.name,
        versions.name, clientNames.at(static_cast<std::size_t>(client))}) {
    all += ", ";
    all += part;
  }
  return all;
}

std::string Case::story() const { return Teller(*this).tell(); }

const std::vector<Moment>& moments() {
  static const std::vector<Moment> all{
      {"installed", true, "", true, true},
      {"old-ends", true, "smcCallStruct"},
      {"old-writes", true, "fileFsync"},
      {"between", true, "", false},
      {"new-probes", true, "smcOpen"},
      {"new-opens-its-file", true, "fileOpenExclusive"},
      {"new-writes", true, "fileWrite"},
      {"new-flushes", true, "fileFsync"},
      {"new-replaces", true, "fileReplaceItem"},
      {"new-cleans-up", true, "fileUnlink"},
      {"new-meets-its-first-client", true, "", true, true},
      {"new-holds-first", true, "smcCallStruct", true, true},
      {"found-and-probes", false, "smcOpen"},
      {"found-and-reads", false, "fileRead"},
      {"found-and-opens-its-file", false, "fileOpenExclusive"},
      {"found-and-writes", false, "fileWrite"},
      {"found-and-flushes", false, "fileFsync"},
      {"found-and-replaces", false, "fileReplaceItem"},
      {"found-and-meets-its-first-client", false, "", true, true},
      {"found-and-holds-first", false, "smcCallStruct", true, true},
  };
  return all;
}

void PrintTo(const Moment& moment, std::ostream* out) { *out << moment.name; }

std::vector<Case> casesOf(const Moment& moment) {
  std::vector<Case> all;
  for (const Work work : {Work::Holding, Work::Discharging, Work::ToppingOff}) {
    if (!moment.live && work != Work::Holding) continue;
    for (const Interrupting& each : interruptions) {
      if (needsHelper(each.what) && !moment.helperRuns) continue;
      if (needsClient(each.what) && !moment.clientIsThere) continue;
      for (const FoundFile& file : files) {
        for (const Versions& versions : versionPairs) {
          for (const Client client : clients) {
            // A client of long ago knows no top-off.
            if (work == Work::ToppingOff && client == Client::Older) continue;
            all.push_back({file, versions, client, work, moment, each.what});
          }
        }
      }
    }
  }
  return all;
}

std::vector<Case> everyNth(const std::vector<Case>& all, std::size_t step) {
  std::vector<Case> chosen;
  for (std::size_t index = 0; index < all.size(); index += step) chosen.push_back(all[index]);
  return chosen;
}

}  // namespace upgrade
