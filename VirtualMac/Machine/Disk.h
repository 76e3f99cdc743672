#pragma once

#include <cstdint>
#include <expected>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Base/ErrorObject.h"
#include "Platform/FileSystem.h"
#include "VirtualMac/Machine/DiskNode.h"
#include "VirtualMac/Machine/MachineContext.h"
#include "VirtualMac/Schedule/Random.h"

namespace virtualmac {

/// The facts that `stat` would tell.
struct FileFacts {
  FileKind kind = FileKind::Plain;
  std::uint32_t mode = 0;
  std::size_t size = 0;
};

/// The disk, in memory, and the effect of a crash on it. Journals each finished replacement by the
/// fields of its JSON object that differ from the file before, and removals, but nothing of names
/// that end in ".tmp":
///   disk  state.json created: chargeLimit=80 …
///   disk  state.json replaced: chargeLimit=75 lastWriteAt=2026-01-01T00:00:05Z
///   disk  state.json replaced: no field differs
///   disk  state.json replaced: 12 bytes
///   disk  state.json removed
///
/// Fault model. Written bytes become durable when the file is synced, and entries (new, replaced,
/// removed names) when their directory is; 30 s later both do by themselves. Of the bytes of a file
/// and the operations of a directory that are not yet durable, a power loss keeps the first ones;
/// the seed decides how many. An operation is all or nothing, so a replaced name leads to the old
/// or to the new file. The disk can be full, read-only, or fail any call with any errno. Anything
/// can stand in the place of a file: a link, a FIFO, a directory, a huge file. A killed process
/// loses nothing. Not modelled: bit rot, a disk that lies about a sync, ownership, lost modes;
/// opening a FIFO, which would block, fails.
class Disk {
 public:
  Disk(MachineContext& shared, std::uint64_t seed);

  /// Another program's changes, durable at once. Parent directories are made as needed.
  void writeFile(std::string_view path, std::string content, std::uint32_t mode = 0644);
  void makeDirectory(std::string_view path, std::uint32_t mode = 0755);
  void makeSymlink(std::string_view path, std::string target);
  void makeFifo(std::string_view path);
  void makeHugeFile(std::string_view path);  ///< One byte more than the helper may read.
  bool remove(std::string_view path);        ///< Whole trees too. False: nothing was there.

  /// Reads without a process. Links are not followed.
  [[nodiscard]] std::optional<FileFacts> facts(std::string_view path) const;
  [[nodiscard]] std::optional<std::string> content(std::string_view path) const;
  [[nodiscard]] std::vector<std::string> list(std::string_view directory) const;

  /// Faults.
  bool full = false;
  bool readOnly = false;
  bool replaceFails = false;
  std::optional<std::size_t> shortWriteBytes;  ///< No write takes more at once.
  /// Makes a call (its name in the seam: "mkdir", "fsync", …) fail with an errno until it is
  /// cleared.
  void failCall(std::string_view call, int error);
  void clearCall(std::string_view call);
  /// The errno with which a fault makes a call fail; 0: none.
  [[nodiscard]] int refusal(std::string_view call, bool writes) const;

  /// Makes everything durable, as an orderly shutdown does.
  void syncAll();
  /// Drops unsynced data, as told above.
  void powerLoss();

 private:
  friend class FilesClient;
  struct Place {
    std::shared_ptr<DiskNode> directory;
    std::string name;
    std::shared_ptr<DiskNode> node;  ///< Null: the name is free.
  };
  [[nodiscard]] std::expected<Place, int> resolve(std::string_view path, bool followLast) const;
  /// The errno is ENOENT for a free name too.
  [[nodiscard]] std::expected<std::shared_ptr<DiskNode>, int> existing(std::string_view path,
                                                                       bool followLast) const;
  void place(std::string_view path, DiskNode node);
  void change(DiskNode& directory, DiskNode::Entries names);
  void loseUnsynced(DiskNode& directory);

  MachineContext& context;
  std::shared_ptr<DiskNode> root;
  std::map<std::string, int, std::less<>> failingCalls;
  Random random;
};

/// A file as far as the journal compares it. The journal tells only the size of a longer file, and
/// of one that is no JSON object or is nested too deeply.
struct FileCopy {
  FileCopy() = default;
  explicit FileCopy(std::string_view whole);
  std::string bytes;       ///< At most bounds::longestCompared of them.
  std::uint64_t size = 0;  ///< The file's.
  friend bool operator==(const FileCopy&, const FileCopy&) = default;
};

/// The effect of replacing `before` (none: the name was free) by `after`.
Effect changeOfFile(std::string_view name, const std::optional<FileCopy>& before,
                    const FileCopy& after);

/// The seam's file calls as one process makes them, with its umask and its descriptors, from 3 on.
class FilesClient final : public korvel::FileSystem {
 public:
  explicit FilesClient(Disk& storage) : disk(storage) {}

  korvel::PosixResult mkdir(const std::string& path, std::uint32_t mode) override;
  korvel::PosixResult chmod(const std::string& path, std::uint32_t mode) override;
  std::uint32_t umask(std::uint32_t mask) override;
  korvel::PosixResult openExclusive(const std::string& path, std::uint32_t mode) override;
  korvel::PosixResult openReadOnly(const std::string& path) override;
  korvel::PosixResult write(int descriptor, std::span<const char> bytes) override;
  korvel::PosixResult fsync(int descriptor) override;
  korvel::PosixResult close(int descriptor) override;
  korvel::PosixResult unlink(const std::string& path) override;
  std::expected<void, korvel::ErrorObject> replaceItem(const std::string& original,
                                                       const std::string& replacement) override;
  bool fileExists(const std::string& path) override;
  std::expected<std::string, korvel::ErrorObject> readFile(const std::string& path) override;

  [[nodiscard]] std::size_t openDescriptors() const { return descriptors.size(); }
  [[nodiscard]] std::uint32_t currentUmask() const { return mask; }
  void dropAll() { descriptors.clear(); }

 private:
  struct Descriptor {
    std::shared_ptr<DiskNode> node;
    bool writable = false;
  };
  korvel::PosixResult addDescriptor(Descriptor descriptor);

  Disk& disk;
  std::uint32_t mask = 022;
  std::map<int, Descriptor> descriptors;
};

}  // namespace virtualmac
