#include "Tests/model/reference/Script.h"

namespace model {

void Script::begin(const Item& begun) {
  current = &begun;
  position = 0;
  moment = begun.at;
  place = begun.order;
}

const Answer& Script::expect(const std::string& effect, bool open) {
  if (position == current->events.size()) {
    if (!current->ended) throw CutOff{};
    throw Difference{current->endOrder, current->endAt, effect, "nothing more"};
  }
  const Event& event = current->events[position++];
  const bool fits = open ? event.text.starts_with(effect) : event.text == effect;
  if (!fits) throw Difference{event.order, event.at, effect, event.text};
  if (event.at != moment) {
    throw Difference{event.order, event.at, effect + " at " + std::to_string(moment),
                     "at " + std::to_string(event.at)};
  }
  if (!event.answer.given) throw CutOff{};
  moment = event.answeredAt;
  place = event.answeredOrder;
  return event.answer;
}

const Answer& Script::expectUntil(const std::string& effect, std::int64_t until) {
  const Answer& answer = expect(effect);
  if (moment == until) return answer;
  throw Difference{place, moment, effect + " until " + std::to_string(until),
                   "until " + std::to_string(moment)};
}

void Script::finish() const {
  if (position == current->events.size()) return;
  const Event& event = current->events[position];
  throw Difference{event.order, event.at, "nothing more", event.text};
}

}  // namespace model
