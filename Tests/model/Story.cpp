#include "Tests/model/Story.h"

#include "Tests/model/reference/Model.h"

namespace model {

std::string Story::text() const {
  std::string text = "seed " + std::to_string(seed) + ", " + profile + ", battery " +
                     std::to_string(static_cast<int>(percent)) + " %" +
                     (onDemand ? ", started on demand" : "") +
                     (anyOrder ? ", threads in any order" : "") + "\n";
  for (const Deed& deed : deeds) {
    text += "  " + deed.name + ' ' + (deed.fault.empty() ? "" : '[' + deed.fault + "] ") +
            std::to_string(deed.value) + ", then " + std::to_string(deed.seconds) + " s\n";
  }
  return text;
}

void Reach::add(const Played& run) {
  constexpr std::string_view head = "logEmit com.korvel.app.helper ";
  for (const Item& item : run.trace) {
    for (const Event& event : item.events) {
      if (event.text.starts_with(head)) lines.insert("log " + event.text.substr(head.size()));
    }
  }
}

std::optional<Difference> compared(const Played& run, int mistake, Reach* reach) {
  Model model(mistake);
  try {
    for (const Item& item : run.trace) {
      const auto before = reach != nullptr ? model.states() : std::map<std::string, std::string>{};
      model.play(item, run.trace);
      if (reach == nullptr || item.cause == Cause::Start || item.cause == Cause::End) continue;
      for (const auto& [topic, state] : model.states()) {
        if (before.at(topic) != state) {
          reach->lines.insert("state " + topic + ' ' + before.at(topic) + ' ' + state);
        }
      }
    }
    model.end(run.at, run.order);
    for (const auto& [order, heard] : run.outcomes) {
      const auto told = model.outcomes().find(order);
      const std::string expected = told == model.outcomes().end() ? "" : told->second;
      if (heard != expected) return Difference{order, run.at, "answer " + expected, heard};
    }
  } catch (const Difference& found) {
    return found;
  }
  return std::nullopt;
}

Story shortest(Story story, int mistake) {
  const auto differs = [mistake](const Story& tried) {
    return compared(played(tried), mistake).has_value();
  };
  for (std::size_t piece = story.deeds.size(); piece > 0; piece /= 2) {
    for (std::size_t at = 0; at + piece <= story.deeds.size();) {
      Story tried = story;
      const auto from = tried.deeds.begin() + static_cast<std::ptrdiff_t>(at);
      tried.deeds.erase(from, from + static_cast<std::ptrdiff_t>(piece));
      if (differs(tried)) {
        story = std::move(tried);
      } else {
        at += piece;
      }
    }
  }
  return story;
}

}  // namespace model
