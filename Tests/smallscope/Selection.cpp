#include "Tests/smallscope/Selection.h"

#include <set>
#include <stdexcept>
#include <string>

#include "VirtualMac/Schedule/Random.h"

namespace smallscope {

using longrun::numberOr;
using longrun::Shard;
using longrun::textOr;

Selection selectionFrom(longrun::Environment environment) {
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
