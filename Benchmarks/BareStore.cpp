#include "Benchmarks/BareStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "HelperPersistence.h"

namespace benchmarks {

namespace {

/// True: all succeeded.
bool plainWrite(const std::string& directory, const std::string& file, const std::string& temporary,
                const std::string& payload) {
  const mode_t mask = umask(0077);
  if (mkdir(directory.c_str(), 0700) != 0) chmod(directory.c_str(), 0700);
  unlink(temporary.c_str());
  const int out = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
  bool good = out >= 0 &&
              write(out, payload.data(), payload.size()) == static_cast<ssize_t>(payload.size());
  good = good && fsync(out) == 0;
  close(out);
  good = good && rename(temporary.c_str(), file.c_str()) == 0;
  const int entry = open(directory.c_str(), O_RDONLY);
  good = good && entry >= 0 && fsync(entry) == 0;
  close(entry);
  std::array<char, 4096> back{};
  const int in = open(file.c_str(), O_RDONLY);
  const ssize_t count = read(in, back.data(), back.size());
  close(in);
  umask(mask);
  return good && count == static_cast<ssize_t>(payload.size()) &&
         payload.compare(0, payload.size(), back.data(), payload.size()) == 0;
}

}  // namespace

ScratchRoot::ScratchRoot(const std::filesystem::path& parent) {
  path = (std::filesystem::absolute(parent) / "store-benchmark-XXXXXX").string();
  if (mkdtemp(path.data()) == nullptr) std::abort();
  std::filesystem::create_directories(path + "/Library/Application Support");
}

ScratchRoot::~ScratchRoot() {
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
}

void bareStoreWrites(benchmark::State& state, const ScratchRoot& root) {
  const std::string directory = root.path + std::string(korvel::HelperPersistence::directory);
  const std::string payload = korvel::encodeFile(korvel::HelperState{});
  for (auto _ : state) {
    if (!plainWrite(directory, directory + "/state.json", directory + "/state.json.tmp", payload)) {
      state.SkipWithError("the write failed");
    }
  }
}

}  // namespace benchmarks
