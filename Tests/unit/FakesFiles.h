#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Platform/FileSystem.h"

namespace korvel::test {

/// Directories and files in memory, with modes, a file mask and a descriptor table.
class FakeFiles final : public FileSystem {
 public:
  struct Node {
    bool isDirectory = false;
    std::uint32_t mode = 0;
    std::string content;
  };

  std::map<std::string, Node> nodes;
  std::uint32_t mask = 0022;
  std::map<int, std::string> descriptors;  ///< Open ones, and the path behind each.

  /// Failures by call: the name, then a space and the number of that call from 1 ("fsync 2").
  std::map<std::string, int> failures;
  /// What the next calls of write return, before writes succeed again. A positive value writes that
  /// many bytes.
  std::deque<PosixResult> writes;
  std::optional<ErrorObject> replaceError;
  std::optional<ErrorObject> readError;
  std::optional<std::string> readBack;  ///< In place of a file's content.
  /// Runs before every call, with its name.
  std::function<void(const std::string&)> beforeCall = [](const std::string&) {};

  std::vector<std::string> calls;  ///< "mkdir", "open state.json.tmp", …
  std::vector<std::uint32_t> masksOfCreation;
  /// The mode of each call that takes one, before the mask has its say: "mkdir 0700".
  std::vector<std::string> modes;

  PosixResult mkdir(const std::string& path, std::uint32_t mode) override {
    noteMode("mkdir", mode);
    if (const auto failed = enter("mkdir")) return *failed;
    if (nodes.contains(path)) return {-1, EEXIST};
    nodes[path] = {true, mode & ~mask, ""};
    return {};
  }
  PosixResult chmod(const std::string& path, std::uint32_t mode) override {
    noteMode("chmod", mode);
    if (const auto failed = enter("chmod")) return *failed;
    nodes.at(path).mode = mode;
    return {};
  }
  std::uint32_t umask(std::uint32_t newMask) override {
    calls.emplace_back("umask");
    return std::exchange(mask, newMask);
  }
  PosixResult openExclusive(const std::string& path, std::uint32_t mode) override {
    noteMode("openExclusive", mode);
    if (const auto failed = enter("openExclusive")) return *failed;
    if (nodes.contains(path)) return {-1, EEXIST};
    masksOfCreation.push_back(mask);
    nodes[path] = {false, mode & ~mask, ""};
    return newDescriptor(path);
  }
  PosixResult openReadOnly(const std::string& path) override {
    if (const auto failed = enter("openReadOnly")) return *failed;
    return nodes.contains(path) ? newDescriptor(path) : PosixResult{-1, ENOENT};
  }
  PosixResult write(int descriptor, std::span<const char> bytes) override {
    if (const auto failed = enter("write")) return *failed;
    std::size_t size = bytes.size();
    if (!writes.empty()) {
      const PosixResult scripted = writes.front();
      writes.pop_front();
      if (scripted.value <= 0) return scripted;
      size = std::min(size, static_cast<std::size_t>(scripted.value));
    }
    nodes.at(descriptors.at(descriptor)).content.append(bytes.data(), size);
    return {static_cast<std::int64_t>(size), 0};
  }
  PosixResult fsync(int descriptor) override {
    EXPECT_TRUE(descriptors.contains(descriptor));
    if (const auto failed = enter("fsync")) return *failed;
    return {};
  }
  PosixResult close(int descriptor) override {
    EXPECT_EQ(descriptors.erase(descriptor), 1U) << "closed what was not open";
    if (const auto failed = enter("close")) return *failed;
    return {};
  }
  PosixResult unlink(const std::string& path) override {
    if (const auto failed = enter("unlink")) return *failed;
    return nodes.erase(path) == 1 ? PosixResult{} : PosixResult{-1, ENOENT};
  }
  std::expected<void, ErrorObject> replaceItem(const std::string& original,
                                               const std::string& replacement) override {
    enter("replaceItem");
    if (replaceError) return std::unexpected(*replaceError);
    nodes[original] = nodes.at(replacement);
    nodes.erase(replacement);
    return {};
  }
  bool fileExists(const std::string& path) override {
    enter("fileExists");
    return nodes.contains(path);
  }
  std::expected<std::string, ErrorObject> readFile(const std::string& path) override {
    enter("readFile");
    if (readError) return std::unexpected(*readError);
    if (readBack) return *readBack;
    return nodes.at(path).content;
  }

 private:
  std::optional<PosixResult> enter(const std::string& name) {
    beforeCall(name);
    calls.push_back(name);
    const auto found = failures.find(name + " " + std::to_string(++counts[name]));
    if (found == failures.end()) return std::nullopt;
    return PosixResult{-1, found->second};
  }
  void noteMode(const std::string& name, std::uint32_t mode) {
    std::string octal;
    for (; mode != 0; mode /= 8) octal.insert(octal.begin(), static_cast<char>('0' + mode % 8));
    modes.push_back(name + " 0" + octal);
  }
  PosixResult newDescriptor(const std::string& path) {
    descriptors[next] = path;
    return {next++, 0};
  }

  std::map<std::string, int> counts;
  int next = 3;
};

}  // namespace korvel::test
