#include "VirtualMac/Tools/CompletionValues.h"

#include <algorithm>
#include <set>
#include <string_view>

#include "VirtualMac/Machine/CodeSignatures.h"
#include "VirtualMac/Machine/ConnectionBreak.h"
#include "VirtualMac/Machine/Deeds.h"
#include "VirtualMac/Machine/Faults.h"
#include "VirtualMac/Machine/Profile.h"
#include "VirtualMac/Schedule/SeamCall.h"
#include "VirtualMac/Server/ControlCommands.h"

namespace virtualmac {

namespace {

using Before = std::span<const std::string>;

Offers wordsAlone(const std::vector<std::string>& words) {
  Offers offers;
  for (const std::string& word : words) offers.words.push_back({word, ""});
  return offers;
}

Offers profiles(Before) {
  Offers offers{.files = true};
  for (const std::string& name : builtInProfileNames()) {
    const auto profile = loadProfile(name);
    offers.words.push_back({name, profile ? profile->description : ""});
  }
  return offers;
}

/// A setting, and then its value.
Offers settings(Before before) {
  if (before.size() > 1) return {};
  if (before.size() == 1) {
    const Deed* deed = deedNamed(before.front());
    return deed != nullptr && deed->values ? wordsAlone(deed->values->words) : Offers{};
  }
  Offers offers;
  for (const Deed& deed : deedCatalogue()) {
    if (deed.values) offers.words.push_back({std::string(deed.name), deed.values->text()});
  }
  return offers;
}

/// The hardware keys of all built-in profiles.
Offers keys() {
  std::set<std::string> names;
  for (const std::string& name : builtInProfileNames()) {
    const auto profile = loadProfile(name);
    if (!profile) continue;
    for (const SMCKeyProfile& key : profile->smcKeys) names.insert(key.name);
  }
  return wordsAlone({names.begin(), names.end()});
}

/// The values of a fault's first argument, where they are known.
Offers faultArgument(const Fault& fault) {
  if (fault.arguments.starts_with("KEY")) return keys();
  Offers offers;
  if (fault.arguments == "MOMENT") {
    for (const auto& [name, moment] : connectionBreaks)
      offers.words.push_back({std::string(name), ""});
  }
  if (fault.name == "call-latency") {
    for (const SeamCallDescription& call : seamCalls)
      offers.words.push_back({std::string(call.id), ""});
  }
  return offers;
}

/// A fault, its arguments, and then on or off.
Offers faults(Before before) {
  Offers offers;
  if (before.empty()) {
    offers.words.push_back({"list", "Name every fault"});
    for (const Fault& fault : faultCatalogue())
      offers.words.push_back({std::string(fault.name), std::string(fault.text)});
    return offers;
  }
  if (before.back() == "on" || before.back() == "off") return offers;
  const auto all = faultCatalogue();
  const auto fault = std::ranges::find(all, before.front(), &Fault::name);
  if (fault == all.end()) return offers;
  const std::size_t arguments = before.size() - 1;
  if (arguments == 0) offers = faultArgument(*fault);
  if (arguments >= fault->needed()) offers.words.push_back({"on", ""});
  if (arguments >= fault->selectors() && !fault->momentary) offers.words.push_back({"off", ""});
  return offers;
}

}  // namespace

ValueKinds programValues() {
  // It names every built-in identity.
  const auto identities = [](Before) { return wordsAlone(CodeSignatures({}).names()); };
  const auto once = [](const std::vector<std::string>& words) {
    return [words](Before before) { return before.empty() ? wordsAlone(words) : Offers{}; };
  };
  return {{"FILE", [](Before) { return Offers{.files = true}; }},
          {"FOLDER", [](Before) { return Offers{.folders = true}; }},
          {"PROFILE", profiles},
          {"IDENTITY", identities},
          {"SETTING", settings},
          {"FAULT", faults},
          {"SIGNAL", once(signalNames())},
          {"SWITCH", once(onOrOff.words)}};
}

}  // namespace virtualmac
