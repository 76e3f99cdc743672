#include "VirtualMac/Scenarios/StoryText.h"

#include <fmt/format.h>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/parser.h>

#include <sstream>

#include "VirtualMac/Machine/Bounds.h"

namespace virtualmac {

namespace {

/// Looks at the parser's events and keeps nothing but a depth. A defect ends the parsing, like the
/// parser's own errors.
class Examiner final : public YAML::EventHandler {
 public:
  void OnDocumentStart(const YAML::Mark&) override {}
  void OnDocumentEnd() override {}
  void OnNull(const YAML::Mark&, YAML::anchor_t) override {}
  void OnAlias(const YAML::Mark& mark, YAML::anchor_t) override {
    throw StoryDefect{mark.line + 1,
                      "aliases (*name) are not taken; to tell something often, repeat it"};
  }
  void OnScalar(const YAML::Mark&, const std::string&, YAML::anchor_t,
                const std::string&) override {}
  void OnSequenceStart(const YAML::Mark& mark, const std::string&, YAML::anchor_t,
                       YAML::EmitterStyle::value) override {
    open(mark);
  }
  void OnSequenceEnd() override { --depth; }
  void OnMapStart(const YAML::Mark& mark, const std::string&, YAML::anchor_t,
                  YAML::EmitterStyle::value) override {
    open(mark);
  }
  void OnMapEnd() override { --depth; }

 private:
  void open(const YAML::Mark& mark) {
    if (++depth <= bounds::deepestStory) return;
    throw StoryDefect{mark.line + 1, fmt::format("nested more than {} deep", bounds::deepestStory)};
  }

  std::size_t depth = 0;
};

}  // namespace

std::optional<StoryDefect> storyDefect(const std::string& text) {
  std::istringstream stream(text);
  Examiner examiner;
  try {
    YAML::Parser(stream).HandleNextDocument(examiner);
  } catch (const StoryDefect& found) {
    return found;
  } catch (const YAML::Exception& failure) {
    return StoryDefect{
        failure.mark.line + 1,
        failure.msg + " (a phrase with \": \" or a leading quote needs '...' around it)"};
  }
  return std::nullopt;
}

}  // namespace virtualmac
