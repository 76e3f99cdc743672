#include "VirtualMac/Schedule/FaultTable.h"

#include <stdexcept>
#include <utility>

namespace virtualmac {

namespace {

constexpr std::int64_t inputOutputErrno = 5;
constexpr std::int64_t kernError = static_cast<std::int32_t>(0xE00002BCU);
constexpr std::int64_t securityInternalError = -2070;

bool canFail(SeamCall call) {
  const FailureKind kind = describe(call).kind;
  return kind != FailureKind::Sure && kind != FailureKind::Release;
}

}  // namespace

CallCounts operator-(const CallCounts& later, const CallCounts& earlier) {
  CallCounts result;
  for (std::size_t i = 0; i < seamCallCount; ++i) {
    result.byCall[i] = later.byCall[i] - earlier.byCall[i];
  }
  result.total = later.total - earlier.total;
  return result;
}

std::string CallCounts::text() const {
  std::string result;
  for (std::size_t i = 0; i < seamCallCount; ++i) {
    if (byCall[i] == 0) continue;
    if (!result.empty()) result += ", ";
    result += std::string(seamCalls[i].id) + ' ' + std::to_string(byCall[i]);
  }
  return result;
}

std::optional<InjectedFault> plainFault(SeamCall call) {
  switch (describe(call).kind) {
    case FailureKind::Kern:
      return InjectedFault{kernError, {}};
    case FailureKind::Security:
      return InjectedFault{securityInternalError, {}};
    case FailureKind::Posix:
    case FailureKind::File:
      return InjectedFault{inputOutputErrno, "Input/output error"};
    case FailureKind::Slot:
      return InjectedFault{1, "The operation couldn’t be completed."};
    case FailureKind::Object:
    case FailureKind::Property:
    case FailureKind::Boolean:
      return InjectedFault{};
    case FailureKind::Sure:
    case FailureKind::Release:
      return std::nullopt;
  }
  return std::nullopt;
}

FaultTable::RuleId FaultTable::add(Rule rule) {
  if (rule.fault && !canFail(rule.call)) {
    throw std::invalid_argument(std::string(describe(rule.call).id) + " cannot fail");
  }
  rule.id = ++lastId;
  rules.push_back(std::move(rule));
  return lastId;
}

FaultTable::RuleId FaultTable::failNth(SeamCall call, std::uint64_t n, InjectedFault fault) {
  return failFrom(call, n, std::move(fault), 1);
}

FaultTable::RuleId FaultTable::failEvery(SeamCall call, std::uint64_t n, InjectedFault fault) {
  return add({.call = call, .first = n, .every = n, .fault = std::move(fault)});
}

FaultTable::RuleId FaultTable::failFrom(SeamCall call, std::uint64_t n, InjectedFault fault,
                                        std::uint64_t count) {
  return add({.call = call, .first = n, .remaining = count, .fault = std::move(fault)});
}

FaultTable::RuleId FaultTable::failAlways(SeamCall call, InjectedFault fault) {
  return failFrom(call, 1, std::move(fault));
}

FaultTable::RuleId FaultTable::failWhen(SeamCall call, std::function<bool()> condition,
                                        InjectedFault fault) {
  return add({.call = call, .condition = std::move(condition), .fault = std::move(fault)});
}

void FaultTable::setLatency(SeamCall call, double seconds) {
  latency[static_cast<std::size_t>(call)] = seconds;
}

FaultTable::RuleId FaultTable::delayNth(SeamCall call, std::uint64_t n, double seconds) {
  return add({.call = call, .first = n, .remaining = 1, .delaySeconds = seconds});
}

void FaultTable::remove(RuleId rule) {
  std::erase_if(rules, [rule](const Rule& each) { return each.id == rule; });
}

void FaultTable::clear() {
  rules.clear();
  latency.fill(0);
  failIndex = 0;
  killIndex = 0;
}

FaultTable::Verdict FaultTable::next(SeamCall call) {
  const auto index = static_cast<std::size_t>(call);
  ++made.byCall[index];
  ++made.total;
  if (observer) observer(call);
  Verdict verdict;
  verdict.latencySeconds = latency[index];
  if (made.total == killIndex) verdict.kill = true;
  if (made.total == failIndex) {
    failedCall = call;
    verdict.fault = plainFault(call);
  }
  if (!rules.empty()) applyRules(call, verdict);
  if (verdict.fault) ++injections;
  return verdict;
}

void FaultTable::applyRules(SeamCall call, Verdict& verdict) {
  for (Rule& rule : rules) {
    if (rule.call != call) continue;
    ++rule.seen;
    if (rule.seen < rule.first || rule.remaining == 0) continue;
    if ((rule.seen - rule.first) % rule.every != 0) continue;
    if (rule.condition && !rule.condition()) continue;
    if (rule.remaining != forever) --rule.remaining;
    verdict.latencySeconds += rule.delaySeconds;
    if (!verdict.fault) verdict.fault = rule.fault;
  }
}

}  // namespace virtualmac
