#pragma once

#include <expected>
#include <string>
#include <string_view>
#include <variant>

#include "Base/ErrorObject.h"
#include "HelperRecords.h"
#include "Logger.h"
#include "Platform/FileSystem.h"

namespace korvel {

/// The durable store of the one state record. A write is done when the new file was written in
/// full, flushed, put in place, and read back byte for byte; a read never fails. No lock: one
/// caller at a time.
class HelperPersistence {
 public:
  static constexpr std::string_view directory =
      "/Library/Application Support/com.korvel.app.helper";
  static constexpr std::string_view statePath =
      "/Library/Application Support/com.korvel.app.helper/state.json";
  static constexpr std::string_view temporaryPath =
      "/Library/Application Support/com.korvel.app.helper/state.json.tmp";

  /// Why a write failed. Only after `Rename` does the disk surely still hold the previous record.
  struct PersistenceError {
    enum class Kind : unsigned char { DirectoryCreate, Write, Rename, Verify };
    Kind kind;
    ErrorObject underlying;
    [[nodiscard]] std::string description() const;
  };

  HelperPersistence(FileSystem& fileSystem, Logger logger) : files(fileSystem), log(logger) {}

  /// The record on disk; HelperState::empty(), with a log line, when it is missing or corrupt.
  HelperState read();
  std::expected<void, PersistenceError> write(const HelperState& state);

 private:
  struct Missing {};
  struct Corrupt {
    std::string error;
  };
  using LoadResult = std::variant<HelperState, Corrupt, Missing>;
  using StepResult = std::expected<void, PersistenceError>;

  LoadResult load();
  StepResult ensureDirectory();
  StepResult writeTemporary(std::string_view payload);
  StepResult replaceAndVerify(std::string_view payload);
  void flushDirectoryEntry();

  FileSystem& files;
  Logger log;
};

}  // namespace korvel
