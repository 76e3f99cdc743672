#pragma once

#include <cstdint>
#include <expected>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Base/ErrorObject.h"
#include "Platform/FileSystem.h"
#include "VirtualMac/Machine/MachineContext.h"
#include "VirtualMac/Machine/NameTable.h"

namespace virtualmac {

enum class FileKind : std::uint8_t { Plain, Directory, Symlink, Fifo };

/// A file, directory, symbolic link or FIFO. Directories keep two tables of entries: the one that
/// is seen and the one that a power loss leaves.
struct DiskNode {
  FileKind kind = FileKind::Plain;
  std::uint32_t mode = 0644;
  std::string content;         ///< A file's bytes, or a link's target.
  std::string durableContent;  ///< The bytes as last synced.
  std::map<std::string, std::shared_ptr<DiskNode>, std::less<>> entries;
  std::map<std::string, std::shared_ptr<DiskNode>, std::less<>> durableEntries;
};

/// What `stat` would tell.
struct FileFacts {
  FileKind kind = FileKind::Plain;
  std::uint32_t mode = 0;
  std::size_t size = 0;
};

/// The disk, in memory, with what a crash does to it. Journals a finished replacement of a file
/// that holds a JSON object by the fields that differ from the file before, `disk  state.json
/// replaced: chargeLimit=80`, others by their size; `disk  state.json removed`; nothing for
/// temporary files.
///
/// Fault model. Written bytes are durable once the file was synced, and entries (new, replaced,
/// removed names) once their directory was; at a power loss each change that was not synced has or
/// has not reached the disk, drawn from the seed, file by file and name by name, but a replacement
/// is atomic: the name leads to the old or to the new file. An unsynced file keeps a prefix of its
/// bytes. The disk can be full, read-only, or fail any call with any errno. Anything can stand in
/// the place of a file: a link, a FIFO, a directory, a huge file. A killed process loses nothing.
/// Not modelled: bit rot, a disk that lies about a sync, ownership.
class Disk {
 public:
  Disk(MachineContext& shared, std::uint64_t seed);

  /// By hand, as another program would, at once durable. Parent directories are made as needed.
  void writeFile(std::string_view path, std::string content, std::uint32_t mode = 0644);
  void makeDirectory(std::string_view path, std::uint32_t mode = 0755);
  void makeSymlink(std::string_view path, std::string target);
  void makeFifo(std::string_view path);
  void makeHugeFile(std::string_view path);  ///< One byte more than the helper may read.
  bool remove(std::string_view path);        ///< Whole trees too. False: nothing was there.

  /// Looking on. Links are not followed.
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

  /// Drops what was not synced.
  void powerLoss();

 private:
  friend class FilesClient;
  friend class DiskWalk;
  struct Place {
    std::shared_ptr<DiskNode> directory;
    std::string name;
    std::shared_ptr<DiskNode> node;  ///< Null: the name is free.
  };
  [[nodiscard]] std::expected<Place, int> resolve(std::string_view path, bool followLast) const;
  [[nodiscard]] int refusal(std::string_view call, bool writes) const;
  std::shared_ptr<DiskNode> place(std::string_view path, DiskNode node);
  void loseUnsynced(DiskNode& directory);
  void tellReplaced(std::string_view name, const std::string& before, const std::string& after);

  MachineContext& context;
  std::shared_ptr<DiskNode> root;
  std::map<std::string, int, std::less<>> failingCalls;
  std::mt19937_64 random;
};

/// One process's descriptors and umask: the seam's calls. Descriptors start at 3.
class FilesClient {
 public:
  explicit FilesClient(Disk& storage) : disk(storage) {}

  korvel::PosixResult mkdir(const std::string& path, std::uint32_t mode);
  korvel::PosixResult chmod(const std::string& path, std::uint32_t mode);
  std::uint32_t umask(std::uint32_t mask);
  korvel::PosixResult openExclusive(const std::string& path, std::uint32_t mode);
  korvel::PosixResult openReadOnly(const std::string& path);
  korvel::PosixResult write(int descriptor, std::span<const char> bytes);
  korvel::PosixResult fsync(int descriptor);
  korvel::PosixResult close(int descriptor);
  korvel::PosixResult unlink(const std::string& path);
  std::expected<void, korvel::ErrorObject> replaceItem(const std::string& original,
                                                       const std::string& replacement);
  bool fileExists(const std::string& path);
  std::expected<std::string, korvel::ErrorObject> readFile(const std::string& path);

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
