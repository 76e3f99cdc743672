#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace virtualmac {

/// How the run of one scenario file ended.
enum class Fate : std::uint8_t { Passed, Failed, Unreadable, Stopped, NotPlayed };

struct PlayedStory {
  std::string file;
  std::string name = {};  ///< Empty: it could not be read.
  Fate fate = Fate::NotPlayed;
  double virtualSeconds = 0;
  double realSeconds = 0;
  std::string trouble = {};  ///< In one line, why it did not pass.
  std::string report = {};   ///< The same at length, with the lines of the file.
};

/// `3 scenarios: 2 passed, 1 failed; 02:10:00 of virtual time in 0.4 s`, for standard output.
std::string totalLine(const std::vector<PlayedStory>& stories);

/// The stories as JUnit XML, which build servers read: a test case each. `suite` says how they were
/// played.
std::string junitXML(const std::vector<PlayedStory>& stories, std::string_view suite);

}  // namespace virtualmac
