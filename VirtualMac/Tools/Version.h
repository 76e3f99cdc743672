#pragma once

#include <string>

namespace CLI {
class App;
}

namespace virtualmac {

/// The commit that a program is built from, in a generated source of the program's own. `-dirty`:
/// the tree had changes beside it; `unknown`: it was no repository.
extern const char* const builtCommit;

/// Adds `--version`, which tells the program's name, version, commit and compiler; with `--json`,
/// where the program has that, as an object.
void addVersion(CLI::App& program, const std::string& commit);

}  // namespace virtualmac
