#pragma once

#include <optional>
#include <string>
#include <vector>

namespace virtualmac {

/// An expectation of a story that did not hold.
struct TraceFailure {
  double time = 0;  ///< Virtual seconds.
  int line = 0;     ///< Of the story's file.
  std::string text;
};

/// The story that a run played.
struct TraceStory {
  std::string file;
  std::string text;
};

/// A run as the viewer shows it.
struct TraceRun {
  std::string title;
  std::string head;   ///< The journal's head, `# {…}`; empty: there is none.
  std::string lines;  ///< The journal's lines, each with its newline.
  std::optional<TraceStory> story;
  std::vector<TraceFailure> failures;
  double end = 0;  ///< Virtual seconds.
};

/// One file that shows a run, or two side by side, in a browser: the viewer and all that it shows.
/// It needs no server and no network, and may load nothing. Bytes that are no UTF-8 are replaced.
std::string traceHTML(const std::vector<TraceRun>& runs);

/// The same into a file. None: done; else what went wrong.
std::optional<std::string> writeTrace(const std::string& file, const std::vector<TraceRun>& runs);

}  // namespace virtualmac
