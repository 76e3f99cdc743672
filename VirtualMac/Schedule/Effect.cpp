#include "VirtualMac/Schedule/Effect.h"

#include <algorithm>
#include <charconv>

namespace virtualmac {

namespace {

struct Row {
  std::string_view kind, pattern;
};
constexpr Row rows[] = {
#define EFFECT(id, kind, pattern) {#kind, pattern},
#include "VirtualMac/Schedule/Effects.def"
#undef EFFECT
};

constexpr std::string_view place = "{}", otherPlaces = "{*}";

const Row& rowOf(EffectID id) { return rows[static_cast<std::size_t>(id)]; }

/// Cuts a text at the spaces that are in no JSON string.
std::vector<std::string> wordsIn(std::string_view text) {
  std::vector<std::string> words(1);
  bool quoted = false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == ' ' && !quoted) {
      words.emplace_back();
      continue;
    }
    if (text[at] == '"') quoted = !quoted;
    words.back() += text[at];
    if (quoted && text[at] == '\\' && at + 1 < text.size()) words.back() += text[++at];
  }
  return words;
}

/// The values of a text that a pattern fits; none: it does not.
std::optional<std::vector<std::string>> match(std::string_view pattern, std::string_view text) {
  std::vector<std::string> values;
  for (;;) {
    const std::size_t open = std::min(pattern.find('{'), pattern.size());
    if (!text.starts_with(pattern.substr(0, open))) return std::nullopt;
    text.remove_prefix(open);
    pattern.remove_prefix(open);
    if (pattern.empty()) return text.empty() ? std::optional(values) : std::nullopt;
    if (pattern == otherPlaces) {
      for (std::string& word : wordsIn(text)) values.push_back(std::move(word));
      return values;
    }
    pattern.remove_prefix(place.size());
    // The last value reaches as far as it can, the others as little.
    const std::string_view next = pattern.substr(0, pattern.find('{'));
    const std::size_t end = next == pattern ? text.rfind(next) : text.find(next);
    if (end == std::string_view::npos) return std::nullopt;
    values.emplace_back(text.substr(0, end));
    text.remove_prefix(end);
  }
}

}  // namespace

std::string_view Effect::kind() const {
  return id == EffectID::told ? std::string_view(word(0)) : rowOf(id).kind;
}

std::string Effect::text() const {
  if (id == EffectID::told) return word(1);
  std::string text;
  std::string_view pattern = rowOf(id).pattern;
  for (const std::string& value : values) {
    const std::size_t open = pattern.find('{');
    text.append(pattern.substr(0, open)).append(pattern.empty() ? " " : "").append(value);
    pattern.remove_prefix(std::min(pattern.size(), pattern.find('}', open) + 1));
  }
  return text.append(pattern);
}

std::int64_t Effect::number(std::size_t index) const {
  std::int64_t number = 0;
  std::from_chars(word(index).data(), word(index).data() + word(index).size(), number);
  return number;
}

std::optional<std::string_view> Effect::field(std::string_view name) const {
  if (id != EffectID::fileChanged) return std::nullopt;
  for (const std::string_view change : values) {
    const bool isOf = change.starts_with(name) && change.substr(name.size()).starts_with('=');
    if (isOf) return change.substr(name.size() + 1);
  }
  return std::nullopt;
}

bool isWhole(const Effect& effect) {
  if (effect.id >= EffectID::told) return effect.id == EffectID::told && effect.values.size() == 2;
  const std::string_view pattern = rowOf(effect.id).pattern;
  const std::size_t places = placesIn(pattern);
  return effect.values.size() == places ||
         (pattern.ends_with(otherPlaces) && effect.values.size() > places);
}

Effect effectFrom(std::string_view kind, std::string_view text) {
  for (std::size_t id = 0; id < std::size(rows); ++id) {
    if (rows[id].kind != kind) continue;
    if (auto values = match(rows[id].pattern, text)) {
      return {static_cast<EffectID>(id), *std::move(values)};
    }
  }
  return {EffectID::told, {std::string(kind), std::string(text)}};
}

}  // namespace virtualmac
