#pragma once

#include <expected>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "VirtualMac/Tools/LogTable.h"

namespace virtualmac {

/// A text or a code within a message.
struct ExplainedPart {
  std::string text;    ///< As it stands in the line.
  std::string source;  ///< The title of its codes; empty: it is a text.
  std::string name;    ///< The code's name; empty: a text, or a code that is not known.
  std::string meaning;
  std::string remedy;
};

struct Explanation {
  const LogMessage* message = nullptr;
  std::vector<ExplainedPart> parts;  ///< In the order of the line.
};

/// Finds the message that a line was made of. The error names the nearest ones.
std::expected<Explanation, std::string> explain(std::string_view line);

/// For a person: several lines.
std::string explanationText(const Explanation& explanation);
nlohmann::ordered_json explanationJSON(const Explanation& explanation);

}  // namespace virtualmac
