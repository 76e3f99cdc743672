#include "VirtualMac/Web/JournalFeed.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>

#include "VirtualMac/Machine/JournalHead.h"
#include "VirtualMac/Server/ControlClient.h"

namespace virtualmac {

namespace {

constexpr std::size_t chunkSize = std::size_t{64} << 10U;

Descriptor opened(const RootDirectory& root) {
  return Descriptor(::open(root.journal().c_str(), O_RDONLY | O_CLOEXEC));
}

}  // namespace

std::expected<std::unique_ptr<JournalFeed>, std::string> JournalFeed::open(
    const RootDirectory& root) {
  auto machine = ControlClient::connect(root);
  if (!machine) return std::unexpected(machine.error());
  auto feed = std::make_unique<JournalFeed>(root, *std::move(machine));
  if (feed->follow()) return feed;
  return std::unexpected("the machine went down");
}

JournalFeed::JournalFeed(const RootDirectory& home, ControlClient followed)
    : root(home),
      machine(std::make_unique<ControlClient>(std::move(followed))),
      file(opened(root)),
      name(readRun()) {}

JournalFeed::~JournalFeed() = default;

bool JournalFeed::follow() {
  return machine->send({{"command", "follow"}}) && machine->receive().has_value();
}

void JournalFeed::followToTheEnd() {
  while (machine->receive()) {
    const std::lock_guard held(lock);
    grown.notify_all();
  }
  const std::lock_guard held(lock);
  over = true;
  grown.notify_all();
}

std::string JournalFeed::readRun() const {
  const std::string begin = read(0);
  const auto head = JournalHead::from(std::string_view(begin).substr(0, begin.find('\n')));
  return head ? head->run : std::string();
}

std::uint64_t JournalFeed::size() const {
  struct stat facts{};
  if (file.get() < 0 || ::fstat(file.get(), &facts) != 0) return 0;
  return static_cast<std::uint64_t>(facts.st_size);
}

std::string JournalFeed::read(std::uint64_t from) const {
  std::string text(chunkSize, '\0');
  const ssize_t got = ::pread(file.get(), text.data(), text.size(), static_cast<off_t>(from));
  text.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  // A line that has not come whole waits for its end, unless it is longer than the chunk.
  if (text.size() < chunkSize || text.contains('\n')) text.resize(text.rfind('\n') + 1);
  return text;
}

void JournalFeed::wait(std::uint64_t seen, double seconds) {
  std::unique_lock held(lock);
  grown.wait_for(held, std::chrono::duration<double>(seconds),
                 [&] { return over || size() > seen; });
}

bool JournalFeed::isOver() {
  const std::lock_guard held(lock);
  return over;
}

}  // namespace virtualmac
