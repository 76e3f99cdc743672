#pragma once

#include <condition_variable>
#include <cstdint>
#include <expected>
#include <memory>
#include <mutex>
#include <string>

#include "VirtualMac/Server/RootDirectory.h"
#include "VirtualMac/Web/Descriptor.h"

namespace virtualmac {

class ControlClient;

/// A machine's journal file as it grows, for any number of readers. One connection to the machine
/// tells of new lines, and readers take them from the file: so nothing is kept for them here, and
/// the machine waits for none of them.
class JournalFeed {
 public:
  /// The error says that no machine is up.
  static std::expected<std::unique_ptr<JournalFeed>, std::string> open(const RootDirectory& root);
  JournalFeed(const RootDirectory& home, ControlClient followed);
  ~JournalFeed();
  JournalFeed(const JournalFeed&) = delete;
  JournalFeed& operator=(const JournalFeed&) = delete;

  /// Returns when the machine has gone down.
  void followToTheEnd();

  /// The machine's run, as the journal's head names it; empty: it names none.
  [[nodiscard]] const std::string& run() const { return name; }
  [[nodiscard]] std::uint64_t size() const;
  /// The file from this byte on, up to the end of a line; empty: nothing is there yet.
  [[nodiscard]] std::string read(std::uint64_t from) const;
  /// Waits until the file is longer than `seen`, the machine is gone, or so many seconds have
  /// passed.
  void wait(std::uint64_t seen, double seconds);
  [[nodiscard]] bool isOver();

 private:
  bool follow();
  [[nodiscard]] std::string readRun() const;

  RootDirectory root;
  std::unique_ptr<ControlClient> machine;
  Descriptor file;
  std::string name;
  std::mutex lock;
  std::condition_variable grown;
  bool over = false;
};

}  // namespace virtualmac
