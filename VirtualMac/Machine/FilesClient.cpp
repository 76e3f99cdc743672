#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "VirtualMac/Machine/Disk.h"
#include "VirtualMac/Machine/FileErrors.h"

namespace virtualmac {

namespace {

using korvel::ErrorObject;
using korvel::PosixResult;

constexpr int firstDescriptor = 3;

PosixResult failed(int error) { return PosixResult{-1, error}; }

bool isTemporary(std::string_view name) { return name.ends_with(".tmp"); }

}  // namespace

PosixResult FilesClient::addDescriptor(Descriptor descriptor) {
  int number = firstDescriptor;
  while (descriptors.contains(number)) ++number;
  descriptors.emplace(number, std::move(descriptor));
  return PosixResult{number, 0};
}

PosixResult FilesClient::mkdir(const std::string& path, std::uint32_t mode) {
  if (const int error = disk.refusal("mkdir", false)) return failed(error);
  const auto found = disk.resolve(path, false);
  if (!found) return failed(found.error());
  if (found->node != nullptr) return failed(EEXIST);
  if (disk.readOnly) return failed(EROFS);
  if (disk.full) return failed(ENOSPC);
  const DiskNode made{.kind = FileKind::Directory, .mode = mode & ~mask};
  disk.change(*found->directory, {{found->name, std::make_shared<DiskNode>(made)}});
  return {};
}

PosixResult FilesClient::chmod(const std::string& path, std::uint32_t mode) {
  if (const int error = disk.refusal("chmod", true)) return failed(error);
  const auto node = disk.existing(path, true);
  if (!node) return failed(node.error());
  (*node)->mode = mode;
  return {};
}

std::uint32_t FilesClient::umask(std::uint32_t newMask) {
  return std::exchange(mask, newMask & 0777U);
}

PosixResult FilesClient::openExclusive(const std::string& path, std::uint32_t mode) {
  if (const int error = disk.refusal("openExclusive", true)) return failed(error);
  const auto found = disk.resolve(path, false);
  if (!found) return failed(found.error());
  if (found->node != nullptr) return failed(EEXIST);
  auto made = std::make_shared<DiskNode>(DiskNode{.mode = mode & ~mask});
  disk.change(*found->directory, {{found->name, made}});
  return addDescriptor(Descriptor{std::move(made), true});
}

PosixResult FilesClient::openReadOnly(const std::string& path) {
  if (const int error = disk.refusal("openReadOnly", false)) return failed(error);
  const auto node = disk.existing(path, true);
  if (!node) return failed(node.error());
  if ((*node)->kind == FileKind::Fifo) return failed(ENXIO);
  return addDescriptor(Descriptor{*node, false});
}

PosixResult FilesClient::write(int descriptor, std::span<const char> bytes) {
  if (const int error = disk.refusal("write", true)) return failed(error);
  const auto found = descriptors.find(descriptor);
  if (found == descriptors.end() || !found->second.writable) return failed(EBADF);
  if (disk.full) return failed(ENOSPC);
  const std::size_t taken = std::min(bytes.size(), disk.shortWriteBytes.value_or(bytes.size()));
  DiskNode& node = *found->second.node;
  node.content.append(bytes.data(), taken);
  node.writtenAt = disk.context.total;
  return PosixResult{static_cast<std::int64_t>(taken), 0};
}

PosixResult FilesClient::fsync(int descriptor) {
  if (const int error = disk.refusal("fsync", false)) return failed(error);
  const auto found = descriptors.find(descriptor);
  if (found == descriptors.end()) return failed(EBADF);
  DiskNode& node = *found->second.node;
  node.durableBytes = node.content.size();
  node.durableEntries = node.entries;
  node.pending.clear();
  return {};
}

PosixResult FilesClient::close(int descriptor) {
  if (descriptors.erase(descriptor) == 0) return failed(EBADF);
  // A close that reports an error still closes.
  if (const int error = disk.refusal("close", false)) return failed(error);
  return {};
}

PosixResult FilesClient::unlink(const std::string& path) {
  if (const int error = disk.refusal("unlink", false)) return failed(error);
  const auto found = disk.resolve(path, false);
  if (!found) return failed(found.error());
  if (found->node == nullptr) return failed(ENOENT);
  if (disk.readOnly) return failed(EROFS);
  if (found->node->kind == FileKind::Directory) return failed(EPERM);
  disk.change(*found->directory, {{found->name, nullptr}});
  if (!isTemporary(found->name)) disk.context.journal.record<EffectID::fileRemoved>(found->name);
  return {};
}

std::expected<void, ErrorObject> FilesClient::replaceItem(const std::string& original,
                                                          const std::string& replacement) {
  const int error = disk.refusal("replaceItem", true);
  if (error != 0 || disk.replaceFails) {
    return std::unexpected(cocoaError(writeUnknownError, "The file couldn’t be replaced."));
  }
  const auto from = disk.resolve(replacement, false);
  const auto to = disk.resolve(original, false);
  if (!from || from->node == nullptr || !to) {
    return std::unexpected(cocoaError(noSuchFileError, "The file doesn’t exist."));
  }
  const bool intoDirectory = to->node != nullptr && to->node->kind == FileKind::Directory;
  if (intoDirectory || from->directory != to->directory) {
    return std::unexpected(cocoaError(writeUnknownError, "The file couldn’t be replaced."));
  }
  std::optional<FileCopy> before;
  if (to->node != nullptr) before = FileCopy(to->node->content);
  disk.change(*to->directory, {{to->name, from->node}, {from->name, nullptr}});
  disk.context.journal.record(changeOfFile(to->name, before, FileCopy(from->node->content)));
  return {};
}

bool FilesClient::fileExists(const std::string& path) {
  if (disk.refusal("fileExists", false) != 0) return false;
  return disk.existing(path, true).has_value();
}

std::expected<std::string, ErrorObject> FilesClient::readFile(const std::string& path) {
  if (const int error = disk.refusal("readFile", false)) {
    return std::unexpected(cocoaError(readUnknownError, std::generic_category().message(error)));
  }
  const auto node = disk.existing(path, true);
  if (!node) {
    return std::unexpected(cocoaError(readNoSuchFileError, "The file doesn’t exist."));
  }
  if ((*node)->kind != FileKind::Plain) {
    return std::unexpected(cocoaError(readUnknownError, "The file isn’t a plain file."));
  }
  if ((*node)->content.size() > largestReadableFile) {
    return std::unexpected(cocoaError(readTooLargeError, "The file is too large."));
  }
  return (*node)->content;
}

}  // namespace virtualmac
