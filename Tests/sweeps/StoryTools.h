#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Tests/sweeps/Stage.h"

/// What the stories share: the pieces that many of them begin with, and the list they join.
namespace sweeps {

inline constexpr std::string_view newerKeysProfile = "newer-keys";
inline constexpr std::string_view olderPairProfile = "older-pair";
inline constexpr std::string_view nativeProfile = "native-only";
inline constexpr std::string_view noControlProfile = "no-control";

using MachineSetup = std::function<void(virtualmac::Machine&)>;

/// The battery shows this percentage, and is about to show the next one below when draining.
MachineSetup batteryAt(double percent);
/// A level that is shown as `percent` and falls to the next one after about six seconds of drain.
constexpr double justAbove(int percent) { return percent - 0.48; }
/// A level that is shown as `percent` and rises to the next one after some seconds of charge.
constexpr double justBelowNext(int percent) { return percent + 0.48; }

/// A client joins and asks for the limit.
void beginWithLimit(Stage& stage, std::uint8_t percent);
/// The same, and a discharge that runs.
void beginDischarge(Stage& stage, std::uint8_t limit);
/// The same with keep-awake armed and the lid closed.
void beginLidClosedDischarge(Stage& stage, std::uint8_t limit);
/// True once the log has the line of a discharge that stopped for this reason.
bool stoppedFor(Stage& stage, std::string_view reason);

std::vector<Story> limitStories();
std::vector<Story> dischargeStories();
std::vector<Story> keepAwakeStories();
std::vector<Story> lifeStories();
std::vector<Story> machineStories();

}  // namespace sweeps
