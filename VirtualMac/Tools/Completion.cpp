#include "VirtualMac/Tools/Completion.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <set>
#include <string_view>
#include <utility>

namespace virtualmac {

namespace {

using Words = std::span<const std::string>;

std::vector<std::string_view> partsOf(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  while (true) {
    const std::size_t end = text.find(separator);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

/// A type is the kind of a value and the checks of it, `TEXT:{first,second}`.
Offers valuesOf(const CLI::Option& option, Words before, const ValueKinds& kinds) {
  const std::string type = option.get_type_name();
  for (const std::string_view part : partsOf(type, ':')) {
    if (const auto kind = kinds.find(part); kind != kinds.end()) return kind->second(before);
    if (!part.starts_with('{') || !part.ends_with('}')) continue;
    Offers offers;
    for (const std::string_view word : partsOf(part.substr(1, part.size() - 2), ','))
      offers.words.push_back({std::string(word), ""});
    return offers;
  }
  return {};
}

/// Keeps the words that go on as `begun` does, and puts `prefix` before each.
Offers narrowed(Offers offers, std::string_view begun, std::string_view prefix) {
  std::erase_if(offers.words, [&](const Offer& offer) { return !offer.word.starts_with(begun); });
  for (Offer& offer : offers.words) offer.word.insert(0, prefix);
  return offers;
}

/// Reads a command line as the program would, up to its last word.
class Reader {
 public:
  Reader(const CLI::App& program, const ValueKinds& valueKinds)
      : command(&program), kinds(valueKinds) {}

  void read(const std::string& word) {
    if (awaiting != nullptr) {
      awaiting = nullptr;
      return;
    }
    if (!onlyPlain) {
      onlyPlain = word == "--";
      if (onlyPlain) return;
      if (word.starts_with('-')) return readOption(word);
      const CLI::App* next = plain.empty() ? commandNamed(word) : nullptr;
      if (next != nullptr) {
        command = next;
        return;
      }
    }
    plain.push_back(word);
  }

  [[nodiscard]] Offers offersTo(const std::string& begun) const {
    if (awaiting != nullptr) return valuesFor(*awaiting, begun, "");
    if (begun.starts_with('-') && !onlyPlain) {
      const std::size_t equals = begun.find('=');
      if (equals == std::string::npos) return narrowed(options(), begun, "");
      const CLI::Option* option = optionNamed(begun.substr(0, equals));
      if (option == nullptr) return {};
      return valuesFor(*option, begun.substr(equals + 1), begun.substr(0, equals + 1));
    }
    Offers offers = plainOffers(begun);
    const bool isNothing = offers.words.empty() && !offers.files && !offers.folders;
    return isNothing && begun.empty() && !onlyPlain ? options() : offers;
  }

 private:
  void readOption(const std::string& word) {
    const std::size_t equals = word.find('=');
    const CLI::Option* option = optionNamed(word.substr(0, equals));
    if (option == nullptr) return;
    given.insert(option);
    if (equals == std::string::npos && option->get_items_expected_min() > 0) awaiting = option;
  }

  [[nodiscard]] const CLI::App* commandNamed(const std::string& word) const {
    const auto all = command->get_subcommands(nullptr);
    const auto found = std::ranges::find(all, word, &CLI::App::get_name);
    return found == all.end() ? nullptr : *found;
  }

  /// Those of the command, and of the commands around it.
  [[nodiscard]] std::vector<const CLI::Option*> everyOption() const {
    std::vector<const CLI::Option*> all;
    for (const CLI::App* each = command; each != nullptr; each = each->get_parent()) {
      const auto own = each->get_options();
      all.insert(all.end(), own.begin(), own.end());
      if (!each->get_fallthrough()) break;
    }
    std::erase_if(all, [](const CLI::Option* option) { return !option->nonpositional(); });
    return all;
  }

  [[nodiscard]] const CLI::Option* optionNamed(const std::string& word) const {
    const auto all = everyOption();
    const auto found = std::ranges::find_if(
        all, [&](const CLI::Option* option) { return option->check_name(word); });
    return found == all.end() ? nullptr : *found;
  }

  [[nodiscard]] Offers options() const {
    Offers offers;
    std::set<std::string> told;
    for (const CLI::Option* option : everyOption()) {
      const auto excluded = option->get_excludes();
      const bool isExcluded = std::ranges::any_of(
          excluded, [this](const CLI::Option* other) { return given.contains(other); });
      if (given.contains(option) || isExcluded || option->get_lnames().empty()) continue;
      std::string word = "--" + option->get_lnames().front();
      // The commands around this one have their own --help.
      if (told.insert(word).second)
        offers.words.push_back({std::move(word), option->get_description()});
    }
    return offers;
  }

  [[nodiscard]] Offers valuesFor(const CLI::Option& option, std::string_view begun,
                                 std::string prefix) const {
    const char delimiter = option.get_delimiter();
    const std::size_t last = delimiter == '\0' ? std::string_view::npos : begun.rfind(delimiter);
    if (last != std::string_view::npos) {
      prefix += begun.substr(0, last + 1);
      begun.remove_prefix(last + 1);
    }
    return narrowed(valuesOf(option, {}, kinds), begun, prefix);
  }

  [[nodiscard]] Offers plainOffers(const std::string& begun) const {
    Offers offers;
    for (const CLI::App* each : command->get_subcommands(nullptr))
      offers.words.push_back({each->get_name(), each->get_description()});
    if (!offers.words.empty()) return narrowed(std::move(offers), begun, "");
    Words before = plain;
    for (const CLI::Option* option : command->get_options()) {
      if (option->nonpositional()) continue;
      const auto most = static_cast<std::size_t>(option->get_items_expected_max());
      if (before.size() < most) return narrowed(valuesOf(*option, before, kinds), begun, "");
      before = before.subspan(most);
    }
    return {};
  }

  const CLI::App* command;
  const ValueKinds& kinds;
  const CLI::Option* awaiting = nullptr;  ///< The option that the next word is a value of.
  bool onlyPlain = false;                 ///< After "--".
  std::vector<std::string> plain;         ///< The words that are neither commands nor options.
  std::set<const CLI::Option*> given;
};

}  // namespace

Offers offersFor(const CLI::App& program, Words words, const ValueKinds& kinds) {
  if (words.empty()) return {};
  Reader reader(program, kinds);
  for (const std::string& word : words.first(words.size() - 1)) reader.read(word);
  return reader.offersTo(words.back());
}

}  // namespace virtualmac
