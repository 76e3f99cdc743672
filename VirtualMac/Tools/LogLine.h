#pragma once

#include <string>
#include <string_view>

namespace virtualmac {

/// A line of the helper's log as some program printed it, taken apart.
struct PrintedLogLine {
  std::string category = {};  ///< Empty: the line does not say.
  std::string level = {};     ///< As above.
  std::string text = {};
  bool wasCut = false;           ///< The Mac prints no more of it.
  std::string otherSource = {};  ///< It is no line of the helper's log, but one of this.
};

/// Takes the forms of `virtual-mac log` and `journal`, also with --json, of the helper's standard
/// error, of a Mac's log in its styles, and the text alone.
PrintedLogLine logLineFrom(std::string_view line);

}  // namespace virtualmac
