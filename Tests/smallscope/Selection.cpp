#include "Tests/smallscope/Selection.h"

#include <charconv>
#include <set>
#include <stdexcept>
#include <string>

#include "VirtualMac/Schedule/Random.h"

namespace smallscope {

namespace {

std::string_view textOr(Environment environment, const char* name, std::string_view otherwise) {
  const char* const value = environment(name);
  return value == nullptr || *value == '\0' ? otherwise : std::string_view(value);
}

std::uint64_t numberOr(Environment environment, const char* name, std::uint64_t otherwise) {
  const std::string_view text = textOr(environment, name, "");
  if (text.empty()) return otherwise;
  std::uint64_t number = 0;
  const char* const begin = text.data();
  const char* const end = begin + text.size();
  const auto read = std::from_chars(begin, end, number);
  if (read.ec != std::errc() || read.ptr != end || number == 0) {
    throw std::invalid_argument(std::string(name) + " takes a whole number from 1, not \"" +
                                std::string(text) + '"');
  }
  return number;
}

}  // namespace

Selection selectionFrom(Environment environment) {
  Selection selection;
  selection.full = textOr(environment, "KORVEL_FULL", "") == "1";
  selection.shard = Shard::from(textOr(environment, "KORVEL_SHARD", "1/1"));
  selection.seed = numberOr(environment, "KORVEL_SEED", 1);
  selection.killAt = numberOr(environment, "KORVEL_K", 0);
  const std::string_view sequence = textOr(environment, "KORVEL_SEQUENCE", "");
  if (!sequence.empty()) selection.sequence = sequenceFrom(sequence);
  if (selection.killAt > 0 && !selection.sequence) {
    throw std::invalid_argument("KORVEL_K needs KORVEL_SEQUENCE, whose last step it is about");
  }
  return selection;
}

std::vector<std::uint64_t> chosen(const Selection& selection, std::uint64_t total,
                                  std::uint64_t few, std::uint64_t salt) {
  std::set<std::uint64_t> numbers;
  virtualmac::Random random(selection.seed * 1000 + salt);
  while (!selection.full && numbers.size() < std::min(few, total)) {
    numbers.insert(random.below(total));
  }
  if (selection.full) {
    for (std::uint64_t number = 0; number < total; ++number) numbers.insert(number);
  }
  std::erase_if(numbers, [&](std::uint64_t number) { return !selection.shard.takes(number); });
  return {numbers.begin(), numbers.end()};
}

}  // namespace smallscope
