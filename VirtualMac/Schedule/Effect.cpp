#include "VirtualMac/Schedule/Effect.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <span>

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

const Row& rowOf(EffectID id) { return rows[static_cast<std::size_t>(id)]; }

std::optional<std::int64_t> wholeNumber(std::string_view digits, int base) {
  std::int64_t number = 0;
  const auto [end, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), number, base);
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return number;
}

std::string fieldsText(const EffectFields& fields) {
  std::string text;
  for (const auto& [name, value] : fields) {
    text += (text.empty() ? "" : " ") + name + (value ? "=" + *value : " gone");
  }
  return text;
}

/// How long the value at the beginning of `text` is: to the next space that is in no JSON string.
std::size_t lengthOfValue(std::string_view text) {
  bool quoted = false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (quoted && text[at] == '\\') {
      ++at;
    } else if (text[at] == '"') {
      quoted = !quoted;
    } else if (text[at] == ' ' && !quoted) {
      return at;
    }
  }
  return text.size();
}

std::optional<EffectFields> fieldsFrom(std::string_view text) {
  constexpr std::string_view gone = " gone";
  EffectFields fields;
  while (!text.empty()) {
    const std::size_t name = text.find_first_of("= ");
    if (name == std::string_view::npos) return std::nullopt;
    std::string_view rest = text.substr(name);
    std::optional<std::string> value;
    std::size_t length = gone.size();
    if (rest.front() == '=') {
      length = 1 + lengthOfValue(rest.substr(1));
      value = rest.substr(1, length - 1);
    } else if (!rest.starts_with(gone)) {
      return std::nullopt;
    }
    fields.emplace_back(text.substr(0, name), std::move(value));
    rest.remove_prefix(length);
    text = rest.substr(rest.starts_with(' ') ? 1 : 0);
  }
  return fields;
}

std::string valueText(char placeholder, const EffectValue& value) {
  if (const auto* word = std::get_if<std::string>(&value)) return *word;
  if (const auto* fields = std::get_if<EffectFields>(&value)) return fieldsText(*fields);
  const std::int64_t number = std::get<std::int64_t>(value);
  if (placeholder != 'x') return std::to_string(number);
  char text[24];
  std::snprintf(text, sizeof text, "0x%08llx", static_cast<unsigned long long>(number));
  return text;
}

std::optional<EffectValue> valueFrom(char placeholder, std::string_view text) {
  if (placeholder == 's') return std::string(text);
  if (placeholder == 'f') return fieldsFrom(text);
  if (placeholder == 'd') return wholeNumber(text, 10);
  return text.starts_with("0x") ? wholeNumber(text.substr(2), 16) : std::nullopt;
}

/// The values of a text that a pattern fits; none: it does not.
std::optional<std::vector<EffectValue>> match(std::string_view pattern, std::string_view text) {
  std::vector<EffectValue> values;
  for (;;) {
    const std::size_t open = std::min(pattern.find('{'), pattern.size());
    if (!text.starts_with(pattern.substr(0, open))) return std::nullopt;
    text.remove_prefix(open);
    if (open == pattern.size()) return text.empty() ? std::optional(values) : std::nullopt;
    const char placeholder = pattern[open + 1];
    pattern.remove_prefix(open + 3);
    // The last value reaches as far as it can, the others as little.
    const std::string_view next = pattern.substr(0, pattern.find('{'));
    const bool last = next.size() == pattern.size();
    const std::size_t end = last ? text.rfind(next) : text.find(next);
    if (end == std::string_view::npos) return std::nullopt;
    auto value = valueFrom(placeholder, text.substr(0, end));
    if (!value) return std::nullopt;
    values.push_back(*std::move(value));
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
  for (const EffectValue& value : values) {
    const std::size_t open = pattern.find('{');
    text.append(pattern.substr(0, open)).append(valueText(pattern[open + 1], value));
    pattern.remove_prefix(open + 3);
  }
  return text.append(pattern);
}

std::int64_t Effect::number(std::size_t index) const {
  return std::get<std::int64_t>(values.at(index));
}

const std::string& Effect::word(std::size_t index) const {
  return std::get<std::string>(values.at(index));
}

std::optional<std::string_view> Effect::field(std::string_view name) const {
  if (id != EffectID::fileChanged) return std::nullopt;
  for (const auto& [each, value] : std::get<EffectFields>(values.back())) {
    if (each == name && value) return *value;
  }
  return std::nullopt;
}

bool isWhole(const Effect& effect) {
  std::string asked = "ss";
  if (effect.id > EffectID::told) return false;
  if (effect.id != EffectID::told) {
    asked.clear();
    const std::string_view pattern = rowOf(effect.id).pattern;
    for (std::size_t at = pattern.find('{'); at < pattern.size(); at = pattern.find('{', at + 1)) {
      asked += pattern[at + 1] == 'x' ? 'd' : pattern[at + 1];
    }
  }
  return std::ranges::equal(asked, effect.values, {}, {},
                            [](const EffectValue& value) { return "dsf"[value.index()]; });
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
