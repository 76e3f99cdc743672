#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Tests/sweeps/Stage.h"

/// The stories share these beginnings and lists.
namespace sweeps {

inline constexpr std::string_view newerKeysProfile = "newer-keys";
inline constexpr std::string_view olderPairProfile = "older-pair";
inline constexpr std::string_view nativeProfile = "native-only";
inline constexpr std::string_view noControlProfile = "no-control";

using MachineSetup = std::function<void(virtualmac::Machine&)>;

/// Sets the battery to show this percentage, close to the next one below when draining.
MachineSetup batteryAt(double percent);
/// Returns a level shown as `percent` that falls to the next after about six seconds of drain.
constexpr double justAbove(int percent) { return percent - 0.48; }
/// Returns a level shown as `percent` that rises to the next after some seconds of charge.
constexpr double justBelowNext(int percent) { return percent + 0.48; }

/// Connects a client, which asks for the limit, and lets some seconds pass.
void beginWithLimit(Stage& stage, std::uint8_t percent, double seconds = 0);
/// Does the same and starts a top-off.
void beginTopOff(Stage& stage, std::uint8_t limit);
/// Starts a discharge instead, and lets some seconds pass.
void beginDischarge(Stage& stage, std::uint8_t limit, double seconds = 0);
/// Does the same with keep-awake armed and the lid closed.
void beginLidClosedDischarge(Stage& stage, std::uint8_t limit);
/// Returns true once the log says that a discharge stopped for this reason.
bool stoppedFor(Stage& stage, std::string_view reason);

std::vector<Story> limitStories();
std::vector<Story> dischargeStories();
std::vector<Story> keepAwakeStories();
std::vector<Story> lifeStories();
std::vector<Story> machineStories();

}  // namespace sweeps
