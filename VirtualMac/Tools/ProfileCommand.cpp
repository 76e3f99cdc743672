#include "VirtualMac/Tools/ProfileCommand.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "VirtualMac/Machine/Bounds.h"
#include "VirtualMac/Machine/Profile.h"
#include "VirtualMac/Tools/CommandLine.h"
#include "VirtualMac/Tools/JSONLine.h"
#include "VirtualMac/Tools/ProfileImport.h"

namespace virtualmac {

namespace {

constexpr const char* never = "SMC keys, lid, display, the charge limit of macOS";

struct ProfileChoices {
  std::string dump;
  std::string like = "newer-keys";
  std::string output;
  bool asJSON = false;
};

std::expected<std::string, std::string> dumpText(const std::string& path) {
  if (path != "-") return readTextFile(path);
  std::string text(bounds::longestText + 1, '\0');
  std::cin.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(std::cin.gcount()));
  if (text.size() <= bounds::longestText) return text;
  return std::unexpected(fmt::format("standard input: larger than {} bytes", bounds::longestText));
}

std::string valuesText(const nlohmann::ordered_json& values) {
  std::string text;
  for (const auto& [key, value] : values.items())
    text += fmt::format("{}{} {}", text.empty() ? "" : ", ", key, value.dump());
  return text;
}

/// Says where each field is from, on standard error, as the profile may be on standard output.
void tell(const ProfileChoices& choices, const ImportedProfile& made) {
  fmt::print(stderr, "from the dump:   {}\n", valuesText(made.taken));
  fmt::print(stderr, "as in {}: {}; {}\n", choices.like, never, fmt::join(made.kept, ", "));
  for (const std::string& odd : made.odd) fmt::print(stderr, "odd in the dump: {}\n", odd);
}

int report(const ProfileChoices& choices, const ImportedProfile& made) {
  const std::string text = made.profile.dump(2) + '\n';
  const auto failed = [&](const std::string& problem) {
    return complain("virtual-mac", choices.asJSON, problem, exitFailed);
  };
  if (!choices.output.empty() && !writeTextFile(choices.output, text))
    return failed(choices.output + " cannot be written");
  if (!choices.asJSON) {
    tell(choices, made);
    if (choices.output.empty()) fmt::print("{}", text);
    return exitDone;
  }
  nlohmann::ordered_json answer{{"ok", true}};
  if (!choices.output.empty()) answer["file"] = choices.output;
  answer["like"] = choices.like;
  answer["taken"] = made.taken;
  answer["kept"] = made.kept;
  answer["odd"] = made.odd;
  answer["profile"] = made.profile;
  printJSON(answer);
  return exitDone;
}

int import(const ProfileChoices& choices) {
  const auto wrong = [&](const std::string& problem) {
    return complain("virtual-mac", choices.asJSON, problem, exitUsage);
  };
  if (!choices.output.empty() && !choices.output.ends_with(".json"))
    return wrong(choices.output + " must end in .json, as a profile's file does");
  const auto base = profileText(choices.like);
  if (!base) return wrong(base.error());
  const auto text = dumpText(choices.dump);
  if (!text) return wrong(text.error());
  const std::string name = choices.dump == "-" ? "standard input" : choices.dump;
  const auto dump = batteryDumpFrom(*text);
  if (!dump) return wrong(name + ' ' + dump.error());
  const auto made = importProfile(*dump, *base);
  return made ? report(choices, *made) : wrong(name + ' ' + made.error());
}

}  // namespace

void addProfile(CLI::App& program, std::function<int()>& chosen) {
  const auto choices = std::make_shared<ProfileChoices>();
  CLI::App* profile = program.add_subcommand("profile", "Make a kind of Mac: profile import FILE");
  profile->require_subcommand(1);
  CLI::App* command =
      profile->add_subcommand("import",
                              "Make a profile from a dump of a real Mac's battery (ioreg -a -r -c "
                              "AppleSmartBattery)");
  command->add_option("dump", choices->dump, "The dump; - reads it from input")
      ->required()
      ->type_name("FILE");
  command->add_option("--like", choices->like, "Profile, or JSON file, for what no dump tells")
      ->type_name("PROFILE")
      ->capture_default_str()
      ->check(notEmpty());
  command->add_option("--output", choices->output, "JSON file to write; default: standard output")
      ->type_name("FILE")
      ->check(notEmpty());
  command->callback([choices, &program, &chosen] {
    choices->asJSON = program.get_option("--json")->as<bool>();
    chosen = [choices] { return import(*choices); };
  });
}

}  // namespace virtualmac
