#include "HelperPersistence.h"

#include <cerrno>
#include <system_error>
#include <utility>

namespace korvel {

namespace {

using Error = HelperPersistence::PersistenceError;

constexpr std::uint32_t privateMask = 0077;
constexpr std::uint32_t directoryMode = 0700;
constexpr std::uint32_t fileMode = 0600;
constexpr std::string_view ownDomain = "com.korvel.app.helper.persistence";

/// Hides new files from everybody else for the length of a scope.
class ScopedFileMask {
 public:
  explicit ScopedFileMask(FileSystem& fileSystem)
      : files(fileSystem), previous(files.umask(privateMask)) {}
  ~ScopedFileMask() { files.umask(previous); }
  ScopedFileMask(const ScopedFileMask&) = delete;
  ScopedFileMask& operator=(const ScopedFileMask&) = delete;

 private:
  FileSystem& files;
  std::uint32_t previous;
};

ErrorObject errorObject(std::string_view domain, std::int64_t code, std::string text) {
  return {std::string(domain), code, {{localizedDescriptionKey, std::move(text)}}};
}

ErrorObject posixError(int number) {
  return errorObject("NSPOSIXErrorDomain", number, std::generic_category().message(number));
}

std::string printed(const ErrorObject& error) {
  return error.localizedDescription() + " [" + error.domain + " " + std::to_string(error.code) +
         "]";
}

std::unexpected<Error> failure(Error::Kind kind, ErrorObject underlying) {
  return std::unexpected(Error{kind, std::move(underlying)});
}

/// Writes everything, however small the pieces. Otherwise the errno of the call that stopped it.
std::expected<void, int> writeFully(FileSystem& files, int descriptor, std::string_view payload) {
  while (!payload.empty()) {
    const PosixResult written = files.write(descriptor, payload);
    if (written.value > 0) {
      payload.remove_prefix(static_cast<std::size_t>(written.value));
    } else if (written.value != -1 || written.error != EINTR) {
      // A write of no bytes need not set errno, and an errno of 0 would read as "Success".
      return std::unexpected(written.error == 0 ? EIO : written.error);
    }
  }
  return {};
}

}  // namespace

std::string HelperPersistence::PersistenceError::description() const {
  switch (kind) {
    case Kind::DirectoryCreate:
      return "mkdir failed: " + printed(underlying);
    case Kind::Write:
      return "write failed: " + printed(underlying);
    case Kind::Rename:
      return "atomic rename failed: " + printed(underlying);
    case Kind::Verify:
      break;
  }
  return "read-back verify failed: " + printed(underlying);
}

HelperPersistence::LoadResult HelperPersistence::load() {
  const std::string path(statePath);
  if (!files.fileExists(path)) return Missing{};
  const auto content = files.readFile(path);
  if (!content) return Corrupt{printed(content.error())};
  auto state = decodeStateFile(*content);
  if (!state) return Corrupt{std::move(state.error())};
  return *std::move(state);
}

HelperState HelperPersistence::read() {
  LoadResult result = load();
  if (auto* loaded = std::get_if<HelperState>(&result)) return std::move(*loaded);
  if (const auto* corrupt = std::get_if<Corrupt>(&result)) {
    log.fault(
        "state.json corrupt — %{public}s; continuing with empty defaults until next setChargeLimit",
        corrupt->error.c_str());
  } else {
    log.log(
        "state.json missing — first run or post-uninstall reinstall; continuing with empty "
        "defaults");
  }
  return HelperState::empty();
}

HelperPersistence::StepResult HelperPersistence::write(const HelperState& state) {
  const ScopedFileMask mask(files);
  if (StepResult made = ensureDirectory(); !made) return made;
  const std::string payload = encodeFile(state);
  if (payload.empty()) {
    return failure(Error::Kind::Write,
                   errorObject(ownDomain, -2, "the state holds a date that is not a number"));
  }
  if (StepResult written = writeTemporary(payload); !written) return written;
  return replaceAndVerify(payload);
}

HelperPersistence::StepResult HelperPersistence::ensureDirectory() {
  const std::string path(directory);
  const PosixResult made = files.mkdir(path, directoryMode);
  if (made.value == 0) return {};
  if (made.error != EEXIST) return failure(Error::Kind::DirectoryCreate, posixError(made.error));
  const PosixResult tightened = files.chmod(path, directoryMode);
  if (tightened.value == 0) return {};
  return failure(Error::Kind::DirectoryCreate, posixError(tightened.error));
}

// Descriptors are closed by hand: a destructor would also run, and could fail, while a killed
// process unwinds.
HelperPersistence::StepResult HelperPersistence::writeTemporary(std::string_view payload) {
  const std::string path(temporaryPath);
  const PosixResult removed = files.unlink(path);
  if (removed.value != 0 && removed.error != ENOENT) {
    return failure(Error::Kind::Write, posixError(removed.error));
  }
  const PosixResult opened = files.openExclusive(path, fileMode);
  if (opened.value < 0) return failure(Error::Kind::Write, posixError(opened.error));
  const int descriptor = static_cast<int>(opened.value);
  std::expected<void, int> stored = writeFully(files, descriptor, payload);
  if (stored) {
    const PosixResult flushed = files.fsync(descriptor);
    if (flushed.value != 0) stored = std::unexpected(flushed.error);
  }
  files.close(descriptor);
  if (stored) return {};
  files.unlink(path);
  return failure(Error::Kind::Write, posixError(stored.error()));
}

HelperPersistence::StepResult HelperPersistence::replaceAndVerify(std::string_view payload) {
  const std::string path(statePath);
  const std::string temporary(temporaryPath);
  if (auto replaced = files.replaceItem(path, temporary); !replaced) {
    files.unlink(temporary);
    return failure(Error::Kind::Rename, std::move(replaced.error()));
  }
  flushDirectoryEntry();
  auto content = files.readFile(path);
  if (!content) return failure(Error::Kind::Verify, std::move(content.error()));
  if (*content == payload) return {};
  return failure(
      Error::Kind::Verify,
      errorObject(ownDomain, -1,
                  "on-disk bytes (" + std::to_string(content->size()) +
                      ") differ from intended payload (" + std::to_string(payload.size()) + ")"));
}

void HelperPersistence::flushDirectoryEntry() {
  const std::string path(directory);
  const PosixResult opened = files.openReadOnly(path);
  if (opened.value < 0) {
    log.error("fsync parent dir: open(%{public}s) errno=%{public}d", path.c_str(), opened.error);
    return;
  }
  const int descriptor = static_cast<int>(opened.value);
  files.fsync(descriptor);
  files.close(descriptor);
}

}  // namespace korvel
