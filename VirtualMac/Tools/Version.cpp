#include "VirtualMac/Tools/Version.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

namespace virtualmac {

void addVersion(CLI::App& program, const std::string& commit) {
  const auto text = [&program, commit] {
    const CLI::Option* json = program.get_option_no_throw("--json");
    if (json == nullptr || json->count() == 0)
      return fmt::format("{} {}, commit {}, {}", program.get_name(), KORVEL_VERSION, commit,
                         KORVEL_COMPILER);
    return nlohmann::ordered_json{{"ok", true},
                                  {"program", program.get_name()},
                                  {"version", KORVEL_VERSION},
                                  {"commit", commit},
                                  {"compiler", KORVEL_COMPILER}}
        .dump();
  };
  program.set_version_flag("--version", text, "Print version, commit and compiler, and exit");
}

}  // namespace virtualmac
