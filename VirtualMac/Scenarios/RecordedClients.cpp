#include "VirtualMac/Scenarios/RecordedClients.h"

#include <algorithm>
#include <ranges>

namespace virtualmac {

std::string RecordedClients::connect(std::int64_t pid, const std::string& identity) {
  const auto isTaken = [this](const std::string& name) {
    return std::ranges::find(clients, name, &Client::name) != clients.end();
  };
  std::string name = identity;
  for (int number = 2; isTaken(name); ++number) name = identity + '-' + std::to_string(number);
  clients.push_back({pid, name, identity});
  const std::string as = identity == usual ? "" : " as " + identity;
  return "connect" + named(clients.back()) + as;
}

RecordedClients::Client* RecordedClients::find(std::int64_t pid) {
  const auto latestFirst = clients | std::views::reverse;
  const auto found = std::ranges::find(latestFirst, pid, &Client::pid);
  return found == latestFirst.end() ? nullptr : &*found;
}

RecordedClients::Client* RecordedClients::latest() {
  const auto latestFirst = clients | std::views::reverse;
  const auto found = std::ranges::find(latestFirst, false, &Client::isOver);
  return found == latestFirst.end() ? nullptr : &*found;
}

void RecordedClients::leave(std::int64_t pid) {
  const Client* leaving = find(pid);
  if (leaving == nullptr) return;
  std::erase_if(clients, [name = leaving->name](const Client& each) { return each.name == name; });
}

}  // namespace virtualmac
