#include <array>

#include "Tests/model/Story.h"
#include "VirtualMac/Schedule/Random.h"
#include "VirtualMac/Schedule/SeamCall.h"

namespace model {

namespace {

using virtualmac::Random;

constexpr std::array profiles{
    "newer-keys",   "older-pair",           "native-only",    "no-control",
    "two-banks",    "both-families",        "mixed-families", "desktop",
    "half-pair",    "discharge-only",       "no-smc",         "ups-first",
    "worn-battery", "newer-keys-and-native"};

/// A kind of deed, its values, and how often it is drawn.
struct Kind {
  std::string_view name;
  std::int64_t low, high;
  std::uint64_t weight;
};

constexpr std::array kinds{
    Kind{"connect", 0, 0, 6},       Kind{"disconnect", 0, 3, 3},   Kind{"setLimit", 20, 100, 8},
    Kind{"setAnyLimit", 0, 255, 1}, Kind{"clearLimit", 0, 0, 2},   Kind{"discharge", 1, 1, 6},
    Kind{"discharge", 0, 0, 2},     Kind{"keepAwake", 1, 1, 4},    Kind{"keepAwake", 0, 0, 2},
    Kind{"topOff", 0, 0, 3},        Kind{"cancelTopOff", 0, 0, 2}, Kind{"reset", 0, 0, 2},
    Kind{"ask", 0, 0, 4},           Kind{"quit", 0, 0, 1},         Kind{"signal", 0, 2, 1},
    Kind{"kill", 0, 0, 2},          Kind{"start", 0, 0, 4},        Kind{"plug", 0, 1, 4},
    Kind{"lid", 0, 1, 4},           Kind{"battery", 3, 100, 6},    Kind{"ambient", 10, 48, 2},
    Kind{"sleepSetting", 0, 1, 1},  Kind{"sleep", 0, 0, 2},        Kind{"wake", 0, 0, 3},
    Kind{"clock", -7200, 7200, 1},  Kind{"wait", 0, 0, 3},         Kind{"powerLoss", 0, 0, 1},
    Kind{"stranger", 0, 4, 1},      Kind{"nonsense", 0, 0, 1},     Kind{"renegotiate", 0, 0, 1},
    Kind{"display", 0, 1, 1},       Kind{"idle", 0, 3, 1},         Kind{"activity", 0, 0, 1},
    Kind{"interrupt", 0, 0, 1}};

constexpr std::uint64_t allWeights = [] {
  std::uint64_t all = 0;
  for (const Kind& kind : kinds) all += kind.weight;
  return all;
}();

constexpr std::array faults{"adapter-hidden",
                            "adapter-mistyped",
                            "adapter-unknown",
                            "assertion-refused",
                            "assertion-release-refused",
                            "assertion-secondary-refused",
                            "battery-mistyped",
                            "battery-service-missing",
                            "battery-unreadable",
                            "connection-breaks after",
                            "connection-breaks handler",
                            "connection-breaks resume",
                            "disk-call-fails fsync 5",
                            "disk-call-fails readFile 5",
                            "disk-call-fails mkdir 13",
                            "disk-call-fails openExclusive 24",
                            "disk-call-fails chmod 1",
                            "disk-full",
                            "disk-readonly",
                            "disk-rename-fails",
                            "disk-short-writes 3",
                            "helper-unsigned",
                            "helper-without-team",
                            "lid-unknown",
                            "power-registration-fails",
                            "power-sources-empty",
                            "power-sources-missing",
                            "power-sources-mistyped",
                            "power-sources-no-list",
                            "powerui-class-missing",
                            "powerui-error no",
                            "powerui-init-fails",
                            "powerui-keeps-limit",
                            "powerui-method-missing setMCLLimit:error:",
                            "powerui-missing",
                            "powerui-offers 60 100 80 0 150",
                            "powerui-offers 60 80",
                            "powerui-offers-error none",
                            "powerui-read-error no",
                            "powerui-refuses",
                            "powerui-unsupported",
                            "registry-iteration-fails",
                            "registry-unreadable",
                            "root-domain-missing",
                            "settings-mistyped",
                            "settings-refused",
                            "settings-unreadable",
                            "smc-junk CHTE 0 0 7",
                            "smc-key-missing CHTE",
                            "smc-key-missing CHIE",
                            "smc-key-missing CH0B",
                            "smc-latency 0.15",
                            "smc-latency 2",
                            "smc-latency 7",
                            "smc-missing",
                            "smc-open-refused",
                            "smc-reopen-fails",
                            "smc-result CHTE 132",
                            "smc-result CHIE 1",
                            "smc-result CH0C 130",
                            "smc-silent-refusal CHTE",
                            "smc-silent-refusal CHIE",
                            "smc-silent-refusal CH0C",
                            "smc-size CHTE 2",
                            "smc-size CHIE 0",
                            "smc-stale",
                            "smc-write-result CHTE 130",
                            "smc-write-result CHIE 132",
                            "smc-write-result CH0B 1",
                            "smc-write-result CH0J 1",
                            "smc-write-result CH0I 1",
                            "temperature-mistyped",
                            "temperature-override 45",
                            "temperature-override 44",
                            "temperature-unreadable"};

/// A failed close would keep its descriptor.
bool mayFail(virtualmac::SeamCall call) {
  using virtualmac::FailureKind;
  const FailureKind kind = virtualmac::describe(call).kind;
  return kind != FailureKind::Sure && kind != FailureKind::Release &&
         call != virtualmac::SeamCall::fileClose;
}

double drawnSeconds(Random& random, bool slow) {
  constexpr std::array seconds{0.0, 0.0, 0.05, 1.0, 6.0, 31.0, 400.0};
  constexpr std::array longer{0.0, 1.0, 31.0, 400.0, 1900.0, 3700.0, 7300.0};
  return (slow ? longer : seconds).at(random.below(seconds.size())) * random.unit();
}

Deed drawnKind(Random& random) {
  std::uint64_t left = random.below(allWeights);
  const auto* kind = kinds.begin();
  while (left >= kind->weight) left -= (kind++)->weight;
  return {.name = std::string(kind->name), .value = random.between(kind->low, kind->high)};
}

/// One machine fault in two is switched off again soon; a call's fault happens once.
Deed drawnFault(Random& random, const std::vector<Deed>& before) {
  const bool isSlow = random.chance(1, 6);
  if (isSlow || random.chance(1, 3)) {
    auto call = virtualmac::SeamCall{};
    do {
      call = static_cast<virtualmac::SeamCall>(random.below(virtualmac::seamCallCount));
    } while (!mayFail(call));
    if (isSlow) {
      return {.name = "latency",
              .value = random.between(0, 1) * random.between(1, 700),
              .fault = std::string(virtualmac::describe(call).id)};
    }
    return {.name = "callFault",
            .value = random.between(1, 8),
            .fault = std::string(virtualmac::describe(call).id)};
  }
  if (random.chance(1, 12)) {
    return {.name = "changedAnswer",
            .value = random.between(1, 8),
            .fault = random.chance(1, 3) ? "fileRead" : "smcCallStruct"};
  }
  if (!before.empty() && before.back().name == "fault" && random.chance(1, 2)) {
    return {.name = "fault", .value = 0, .fault = before.back().fault};
  }
  return {.name = "fault", .value = 1, .fault = faults.at(random.below(faults.size()))};
}

/// Adds deeds at the end of a story: name, value, seconds that pass after it, fault.
auto adderTo(Story& story) {
  return [&story](std::string name, std::int64_t value, double seconds, std::string fault = {}) {
    story.deeds.push_back({std::move(name), value, std::move(fault), seconds});
  };
}

/// The record goes back to one that tells of no stopped discharge and owns no setting, then to one
/// that tells of a stopped discharge.
void addRefusedRecords(Story& story, Random& random) {
  constexpr auto full = "disk-full";
  constexpr auto rename = "disk-rename-fails";
  const auto add = adderTo(story);
  const auto discharge = [&] {
    add("battery", random.between(70, 90), 0);
    add("discharge", 1, 1);
    add("battery", random.between(20, 50), 6);
  };
  const auto goBack = [&] {
    add("fault", 0, 0, full);
    add("fault", 1, 0, rename);
    add("setLimit", 60, 1);
    add("fault", 0, 0, rename);
  };
  add("plug", 1, 0);
  add("setLimit", 60, 1);
  add("fault", 1, 0, full);
  discharge();
  add("keepAwake", 1, 0);
  goBack();
  add("keepAwake", 0, 0);
  discharge();
  add("fault", 1, 0, full);
  add("kill", 0, 0);
  add("start", 0, 1);
  add("connect", 0, 1);
  goBack();
}

/// A client is counted in and out by its acceptance, beside one that stays or none.
void addBrokenConnection(Story& story, Random& random) {
  const std::string fault = std::string("connection-breaks ") +
                            std::array{"after", "handler", "resume"}.at(random.below(3));
  const auto add = adderTo(story);
  add("fault", 1, 0, fault);
  add("connect", 0, random.unit());
  add("fault", 0, 0, fault);
  add("connect", 0, 40 * random.unit());
}

void addPackThatIsNeverFull(Story& story, Random& random) {
  const auto add = adderTo(story);
  add("plug", 0, 0);
  add("battery", random.between(40, 95), 0);
  add("topOff", 0, 1);
  add("wait", 0, 7300);
}

/// Scenes that chance alone would seldom play to their end.
void addScene(Story& story, Random& random) {
  const auto add = adderTo(story);
  if (random.chance(1, 100)) return addPackThatIsNeverFull(story, random);
  switch (random.below(10)) {
    case 0:
      add("battery", random.between(40, 99), 0);
      add("topOff", 0, 6 * random.unit());
      return add("battery", random.between(99, 100), 12);
    case 1:
      add("battery", random.between(70, 90), 0);
      add("setLimit", random.between(20, 60), 1);
      add("keepAwake", 1, 1);
      add("lid", 1, 1);
      add("discharge", 1, 20 * random.unit());
      if (random.chance(1, 2)) {
        return add("fault", 1, 11,
                   "temperature-override " + std::to_string(random.between(43, 47)));
      }
      return add("wait", 0, 3700);
    case 2:
      add("battery", random.between(60, 90), 0);
      add("setLimit", random.between(30, 60), 1);
      add("discharge", 1, 20 * random.unit());
      return add("battery", random.between(15, 65), 12);
    case 4:
      // A refusal to write, and its end, on each side of the band.
      add("battery", random.between(0, 1) != 0 ? 95 : 40, 0);
      add("plug", 1, 0);
      add("setLimit", random.between(60, 90), 11 * random.unit());
      add("fault", 1, 11, "smc-write-result CHTE 130");
      add("battery", random.between(0, 1) != 0 ? 95 : 40,
          12 * static_cast<double>(random.between(0, 1)));
      return add("fault", 0, 11, "smc-write-result CHTE 130");
    case 5:
      // The setting is found as somebody else left it, is then ours, and is not given back.
      add("sleepSetting", 1, 0);
      add("keepAwake", 1, 1);
      add("sleepSetting", 0, 0);
      add("keepAwake", 1, 1);
      add("fault", 1, 0, "settings-refused");
      add("keepAwake", 0, 1);
      return add("fault", 0, 0, "settings-refused");
    case 6:
      add("fault", 1, 0, "powerui-refuses");
      add("reset", 0, 1);
      return add("fault", 0, 0, "powerui-refuses");
    case 7:
      return addBrokenConnection(story, random);
    case 8:
      return addRefusedRecords(story, random);
    case 3:
      // With a display the Mac stays awake under its closed lid.
      add("display", 1, 0);
      add("battery", random.between(60, 90), 0);
      add("setLimit", random.between(30, 60), 1);
      add("discharge", 1, 20 * random.unit());
      return add("lid", 1, 12);
    default:
      add("battery", random.between(60, 90), 0);
      add("setLimit", random.between(30, 99), 1);
      add("discharge", random.between(0, 1), 5 * random.unit());
      add("sleep", 0, 40 * random.unit());
      return add("wake", 0, 1);
  }
}

}  // namespace

Story storyFor(std::uint64_t seed) {
  Random random(seed);
  Story story;
  story.seed = seed;
  story.profile = random.chance(1, 2) ? "newer-keys" : profiles.at(random.below(profiles.size()));
  story.percent = static_cast<double>(random.between(5, 100));
  const std::uint64_t faultShare = random.below(3);
  story.onDemand = random.chance(1, 3);
  story.anyOrder = random.chance(1, 3);
  const bool slow = random.chance(1, 20);
  if (random.chance(1, 4)) story.deeds.push_back({"record", random.between(0, 1023), {}, 0});
  // It is drawn by itself, so that a story is the same with and without it.
  if (Random ofRecord(~seed); ofRecord.chance(1, 6)) {
    story.deeds.push_back({"foreignRecord", ofRecord.between(0, 1'000'000'000), {}, 0});
  }
  if (random.chance(1, 60)) story.deeds.push_back({"oddTeam", 0, {}, 0});
  story.deeds.push_back({"start", 0, {}, 0.1});
  story.deeds.push_back({"connect", 0, {}, 0.1});
  const std::int64_t count = random.between(4, slow ? 16 : 40);
  for (std::int64_t i = 0; i < count; ++i) {
    if (random.chance(1, 12)) addScene(story, random);
    Deed next = random.chance(faultShare, 6) ? drawnFault(random, story.deeds) : drawnKind(random);
    next.seconds = drawnSeconds(random, slow);
    story.deeds.push_back(std::move(next));
  }
  return story;
}

}  // namespace model
