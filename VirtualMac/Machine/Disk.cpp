#include "VirtualMac/Machine/Disk.h"

#include <cerrno>
#include <deque>
#include <utility>

#include "VirtualMac/Machine/FileErrors.h"

namespace virtualmac {

namespace {

/// Symbolic links followed in one look-up before it is given up.
constexpr int deepestLinks = 32;
/// Unsynced changes reach the disk by themselves after this time.
constexpr Nanoseconds writeBackDelay = 30 * nanosecondsPerSecond;

std::deque<std::string> components(std::string_view path) {
  std::deque<std::string> parts;
  while (!path.empty()) {
    const std::size_t end = path.find('/');
    const std::string_view part = path.substr(0, end);
    if (!part.empty() && part != ".") parts.emplace_back(part);
    path.remove_prefix(end == std::string_view::npos ? path.size() : end + 1);
  }
  return parts;
}

DiskNode directoryNode(std::uint32_t mode) { return {.kind = FileKind::Directory, .mode = mode}; }

void applyChange(DiskNode::Entries& entries, const DiskNode::Entries& names) {
  for (const auto& [name, node] : names) {
    if (node == nullptr) {
      entries.erase(name);
    } else {
      entries.insert_or_assign(name, node);
    }
  }
}

void syncEntries(DiskNode& directory) {
  directory.durableEntries = directory.entries;
  directory.pending.clear();
}

void syncTree(DiskNode& node) {
  node.durableBytes = node.content.size();
  syncEntries(node);
  for (const auto& [name, child] : node.entries) syncTree(*child);
}

}  // namespace

Disk::Disk(MachineContext& shared, std::uint64_t seed)
    : context(shared), root(std::make_shared<DiskNode>(directoryNode(0755))), random(seed) {
  makeDirectory("/Library/Application Support");
}

std::expected<Disk::Place, int> Disk::resolve(std::string_view path, bool followLast) const {
  std::deque<std::string> pending = components(path);
  Place place{nullptr, "", root};
  int links = 0;
  while (!pending.empty()) {
    if (place.node == nullptr) return std::unexpected(ENOENT);
    if (place.node->kind != FileKind::Directory) return std::unexpected(ENOTDIR);
    const std::string name = std::move(pending.front());
    pending.pop_front();
    const std::shared_ptr<DiskNode> directory = place.node;
    const auto found = directory->entries.find(name);
    const std::shared_ptr<DiskNode> child =
        found == directory->entries.end() ? nullptr : found->second;
    const bool follows = followLast || !pending.empty();
    if (child != nullptr && child->kind == FileKind::Symlink && follows) {
      if (++links > deepestLinks) return std::unexpected(ELOOP);
      std::deque<std::string> target = components(child->content);
      pending.insert(pending.begin(), target.begin(), target.end());
      place = Place{nullptr, "", child->content.starts_with('/') ? root : directory};
    } else {
      place = Place{directory, name, child};
    }
  }
  return place;
}

int Disk::refusal(std::string_view call, bool writes) const {
  const auto found = failingCalls.find(call);
  if (found != failingCalls.end()) return found->second;
  return writes && readOnly ? EROFS : 0;
}

void Disk::failCall(std::string_view call, int error) {
  failingCalls.insert_or_assign(std::string(call), error);
}

void Disk::clearCall(std::string_view call) { failingCalls.erase(std::string(call)); }

void Disk::change(DiskNode& directory, DiskNode::Entries names) {
  applyChange(directory.entries, names);
  directory.pending.push_back(DiskNode::Change{std::move(names), context.total});
}

void Disk::place(std::string_view path, DiskNode node) {
  std::shared_ptr<DiskNode> directory = root;
  std::deque<std::string> parts = components(path);
  while (parts.size() > 1) {
    std::shared_ptr<DiskNode>& next = directory->entries[parts.front()];
    if (next == nullptr) next = std::make_shared<DiskNode>(directoryNode(0755));
    syncEntries(*directory);
    directory = next;
    parts.pop_front();
  }
  if (parts.empty()) return;
  node.durableBytes = node.content.size();
  directory->entries.insert_or_assign(parts.front(), std::make_shared<DiskNode>(std::move(node)));
  syncEntries(*directory);
}

void Disk::writeFile(std::string_view path, std::string content, std::uint32_t mode) {
  place(path, {.mode = mode, .content = std::move(content)});
}

void Disk::makeDirectory(std::string_view path, std::uint32_t mode) {
  place(path, directoryNode(mode));
}

void Disk::makeSymlink(std::string_view path, std::string target) {
  place(path, {.kind = FileKind::Symlink, .content = std::move(target)});
}

void Disk::makeFifo(std::string_view path) { place(path, {.kind = FileKind::Fifo}); }

void Disk::makeHugeFile(std::string_view path) {
  writeFile(path, std::string(largestReadableFile + 1, ' '));
}

bool Disk::remove(std::string_view path) {
  const auto found = resolve(path, false);
  if (!found || found->node == nullptr || found->directory == nullptr) return false;
  found->directory->entries.erase(found->name);
  syncEntries(*found->directory);
  return true;
}

std::expected<std::shared_ptr<DiskNode>, int> Disk::existing(std::string_view path,
                                                             bool followLast) const {
  const auto found = resolve(path, followLast);
  if (!found) return std::unexpected(found.error());
  if (found->node == nullptr) return std::unexpected(ENOENT);
  return found->node;
}

std::optional<FileFacts> Disk::facts(std::string_view path) const {
  const auto node = existing(path, false);
  if (!node) return std::nullopt;
  return FileFacts{(*node)->kind, (*node)->mode, (*node)->content.size()};
}

std::optional<std::string> Disk::content(std::string_view path) const {
  const auto node = existing(path, false);
  if (!node || (*node)->kind != FileKind::Plain) return std::nullopt;
  return (*node)->content;
}

std::vector<std::string> Disk::list(std::string_view directory) const {
  std::vector<std::string> names;
  const auto node = existing(directory, true);
  if (!node) return names;
  for (const auto& [name, each] : (*node)->entries) names.push_back(name);
  return names;
}

void Disk::powerLoss() { loseUnsynced(*root); }

void Disk::syncAll() { syncTree(*root); }

void Disk::loseUnsynced(DiskNode& directory) {
  const auto aged = [this](Nanoseconds since) { return context.total - since >= writeBackDelay; };
  std::size_t kept = 0;
  while (kept < directory.pending.size() && aged(directory.pending[kept].madeAt)) ++kept;
  kept += static_cast<std::size_t>(random.below(directory.pending.size() - kept + 1));
  for (std::size_t i = 0; i < kept; ++i) {
    applyChange(directory.durableEntries, directory.pending[i].names);
  }
  directory.entries = directory.durableEntries;
  directory.pending.clear();
  for (const auto& [name, node] : directory.entries) {
    const std::size_t unsynced = node->content.size() - node->durableBytes;
    if (unsynced > 0 && !aged(node->writtenAt)) {
      node->content.resize(node->durableBytes +
                           static_cast<std::size_t>(random.below(unsynced + 1)));
    }
    node->durableBytes = node->content.size();
    loseUnsynced(*node);
  }
}

}  // namespace virtualmac
