#pragma once

#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>

namespace benchmarks {

/// A temporary directory with a Mac's folders, removed with the object.
class ScratchRoot {
 public:
  explicit ScratchRoot(const std::filesystem::path& parent);
  ~ScratchRoot();
  ScratchRoot(const ScratchRoot&) = delete;
  ScratchRoot& operator=(const ScratchRoot&) = delete;

  std::string path;
};

/// The floor of a store write: makes the calls that a durable, verified one needs (mkdir, chmod,
/// unlink, open, write, fsync, close, rename, the directory's fsync, and a read), in plain C.
void bareStoreWrites(benchmark::State& state, const ScratchRoot& root);

}  // namespace benchmarks
