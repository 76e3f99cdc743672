#include "VirtualMac/Tools/CompletionCommand.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "VirtualMac/Tools/CommandLine.h"
#include "VirtualMac/Tools/CompletionValues.h"
#include "VirtualMac/Tools/JSONLine.h"

namespace virtualmac {

namespace {

/// In each text PROGRAM is the program's name, and FUNCTION is that name without a dash.
constexpr std::string_view bashScript = R"(# bash completion for PROGRAM
_FUNCTION() {
  local current=${COMP_WORDS[COMP_CWORD]} word text
  # Bash cuts --option=value into three words.
  local -a words=()
  for word in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
    [[ $word == = ]] || words+=("$word")
  done
  if [[ $current == = ]]; then
    current=
    words+=("")
  fi
  COMPREPLY=()
  while IFS=$'\t' read -r word text; do
    case $word in
      :files) compopt -o filenames 2>/dev/null
        mapfile -t -O ${#COMPREPLY[@]} COMPREPLY < <(compgen -f -- "$current") ;;
      :folders) compopt -o filenames 2>/dev/null
        mapfile -t -O ${#COMPREPLY[@]} COMPREPLY < <(compgen -d -- "$current") ;;
      *) COMPREPLY+=("$word") ;;
    esac
  done < <("${COMP_WORDS[0]/#\~\//$HOME/}" completion words -- "${words[@]}" 2>/dev/null)
}
complete -F _FUNCTION PROGRAM
)";

constexpr std::string_view zshScript = R"(#compdef PROGRAM
_FUNCTION() {
  local line files=
  local -a offers
  for line in "${(@f)$(${(Q)words[1]} completion words -- "${(@Q)words[2,CURRENT]}" 2>/dev/null)}"; do
    case $line in
      '') ;;
      :files) files=_files ;;
      :folders) files='_files -/' ;;
      *) offers+=("${${line%%$'\t'*}//:/\\:}:${line#*$'\t'}") ;;
    esac
  done
  (( $#offers )) && _describe -V PROGRAM offers
  if [[ -n $files ]]; then
    compset -P '--*='
    ${=files}
  fi
}
if [[ $funcstack[1] == _PROGRAM ]]; then
  _FUNCTION "$@"
else
  compdef _FUNCTION PROGRAM
fi
)";

constexpr std::string_view fishScript = R"(# fish completion for PROGRAM
function __FUNCTION_offers
  set -l words (commandline -opc)
  set -l current (commandline -ct)
  for line in ($words[1] completion words -- $words[2..-1] "$current" 2>/dev/null)
    switch $line
      case ':files*'
        __fish_complete_path (string replace -r -- '^--[^=]*=' '' "$current")
      case ':folders*'
        __fish_complete_directories (string replace -r -- '^--[^=]*=' '' "$current")
      case '*'
        echo $line
    end
  end
end
complete -c PROGRAM -f -a '(__FUNCTION_offers)'
)";

const std::map<std::string, std::string_view>& scripts() {
  static const std::map<std::string, std::string_view> all = {
      {"bash", bashScript}, {"fish", fishScript}, {"zsh", zshScript}};
  return all;
}

std::string withNames(std::string_view script, const std::string& program) {
  std::string name = program;
  std::ranges::replace(name, '-', '_');
  std::string text(script);
  for (const auto& [mark, meant] : {std::pair{"PROGRAM", program}, std::pair{"FUNCTION", name}}) {
    const std::string_view word = mark;
    for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at))
      text.replace(at, word.size(), meant);
  }
  return text;
}

/// A shell shows one line, so a sentence is cut at a space.
std::string shortened(const std::string& sentence) {
  constexpr std::size_t longest = 72;
  if (sentence.size() <= longest) return sentence;
  return sentence.substr(0, sentence.rfind(' ', longest)) + " ...";
}

void printOffers(const Offers& offers) {
  for (const Offer& offer : offers.words) fmt::print("{}\t{}\n", offer.word, shortened(offer.text));
  if (offers.files) fmt::print(":files\n");
  if (offers.folders) fmt::print(":folders\n");
}

void printOffersAsJSON(const Offers& offers) {
  nlohmann::ordered_json words = nlohmann::json::array();
  for (const Offer& offer : offers.words)
    words.push_back({{"word", offer.word}, {"text", offer.text}});
  printJSON({{"ok", true}, {"words", words}, {"files", offers.files}, {"folders", offers.folders}});
}

struct CompletionChoices {
  std::string shell;
  std::vector<std::string> words;
};

}  // namespace

void addCompletion(CLI::App& program, std::function<int()>& chosen) {
  const auto choices = std::make_shared<CompletionChoices>();
  CLI::App* command =
      program.add_subcommand("completion", "Print what completes this program's words in a shell");
  command->add_option("shell", choices->shell, "The shell; words: what may follow those given")
      ->required()
      ->check(CLI::IsMember({"bash", "zsh", "fish", "words"}));
  command->add_option("words", choices->words,
                      "For words: -- and those after the program's name, the last one begun");
  command->footer(
      fmt::format("In ~/.bashrc: source <({0} completion bash)\n"
                  "In ~/.zshrc, after compinit: source <({0} completion zsh)\n"
                  "In fish: {0} completion fish > ~/.config/fish/completions/{0}.fish",
                  program.get_name()));
  command->callback([choices, &program, &chosen] {
    const bool asJSON = program.get_option("--json")->as<bool>();
    chosen = [choices, asJSON, &program] {
      const auto script = scripts().find(choices->shell);
      if (script == scripts().end()) {
        const Offers offers = offersFor(program, choices->words, programValues());
        asJSON ? printOffersAsJSON(offers) : printOffers(offers);
        return exitDone;
      }
      const std::string text = withNames(script->second, program.get_name());
      if (asJSON)
        printJSON({{"ok", true}, {"script", text}});
      else
        fmt::print("{}", text);
      return exitDone;
    };
  });
}

}  // namespace virtualmac
