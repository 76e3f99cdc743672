#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Stories of an update in which the helper, its client and its state file are of different
/// versions, and which something interrupts. Every one of them ends in the same way: the installer
/// tries again, and then the limit is held, no setting and no assertion of the work before is left,
/// and charging goes back to macOS when the last client leaves.
namespace upgrade {

/// The state file that the first helper finds.
struct FoundFile {
  std::string_view name;
  std::optional<std::string_view> text;
  bool hasLimit = false;  ///< It can be read, and somebody chose its limit.
  int band = 5;           ///< The band that a helper takes from it.
};

/// The helper that runs first, and the one that is installed in its place.
struct Versions {
  std::string_view name;
  std::string_view before;
  std::string_view after;
};

enum class Client { Older, Today, Newer };
enum class Work { Holding, Discharging, ToppingOff };

/// A step of the update, during which something interrupts it.
struct Moment {
  std::string_view name;
  bool live = true;            ///< A helper is replaced; else a new one finds another's file.
  std::string_view slowCall;   ///< This platform call takes long, so that the step is met.
  bool helperRuns = true;      ///< There is somebody to send a signal to.
  bool clientIsThere = false;  ///< A client can quit the helper, or die.
};

enum class Interruption { None, Kill, Term, Abort, PowerLoss, Reboot, Sleep, Quit, ClientDies };

struct Case {
  const FoundFile& file;
  const Versions& versions;
  Client client;
  Work work;
  const Moment& moment;
  Interruption interruption;

  [[nodiscard]] std::string name() const;
  [[nodiscard]] std::string story() const;  ///< As YAML.
};

void PrintTo(const Moment& moment, std::ostream* out);

const std::vector<Moment>& moments();
/// All cases of a moment.
std::vector<Case> casesOf(const Moment& moment);
/// A selection. When `step` has no factor in common with the number of pairings, which are 84 or
/// 56, it meets all of them in turn.
std::vector<Case> everyNth(const std::vector<Case>& all, std::size_t step);

}  // namespace upgrade
