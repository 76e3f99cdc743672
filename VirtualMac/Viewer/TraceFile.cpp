#include "VirtualMac/Viewer/TraceFile.h"

#include <cerrno>
#include <fstream>
#include <nlohmann/json.hpp>
#include <system_error>

#include "VirtualMac/Viewer/ViewerPage.h"

namespace virtualmac {

namespace {

using nlohmann::ordered_json;

/// A journal's head is one JSON object behind this.
constexpr std::string_view headMark = "# ";

ordered_json objectOf(const TraceRun& run) {
  ordered_json head;
  if (run.head.starts_with(headMark))
    head = ordered_json::parse(run.head.substr(headMark.size()), nullptr, false);
  ordered_json story;
  if (run.story) story = {{"file", run.story->file}, {"text", run.story->text}};
  ordered_json failures = ordered_json::array();
  for (const TraceFailure& each : run.failures)
    failures.push_back({{"time", each.time}, {"line", each.line}, {"text", each.text}});
  return {{"title", run.title},
          {"head", head.is_object() ? std::move(head) : ordered_json()},
          {"lines", run.lines},
          {"story", std::move(story)},
          {"failures", std::move(failures)},
          {"end", run.end}};
}

/// No text in it can end the element that it stands in, and it is ASCII, so that no reader mistakes
/// its encoding.
std::string traceJSON(const std::vector<TraceRun>& runs) {
  ordered_json all = ordered_json::array();
  for (const TraceRun& run : runs) all.push_back(objectOf(run));
  const std::string plain = ordered_json{{"version", 1}, {"runs", std::move(all)}}.dump(
      -1, ' ', true, ordered_json::error_handler_t::replace);
  std::string safe;
  safe.reserve(plain.size());
  for (const char character : plain) {
    if (character == '<') {
      safe += "\\u003c";
    } else {
      safe += character;
    }
  }
  return safe;
}

}  // namespace

std::string traceHTML(const std::vector<TraceRun>& runs) { return recordedPage(traceJSON(runs)); }

std::optional<std::string> writeTrace(const std::string& file, const std::vector<TraceRun>& runs) {
  errno = 0;
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  if (out) out << traceHTML(runs) << std::flush;
  if (out) return std::nullopt;
  const int reason = errno == 0 ? EIO : errno;
  return file + " cannot be written: " + std::generic_category().message(reason);
}

}  // namespace virtualmac
