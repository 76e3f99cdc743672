#pragma once

#include <cstdint>
#include <expected>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "VirtualMac/Tools/HelperView.h"

namespace virtualmac {

enum class DoctorState : std::uint8_t {
#define DOCTOR_STATE(id, name, sentence, remedy) id,
#include "VirtualMac/Tools/DoctorStates.def"
#undef DOCTOR_STATE
};

/// Holds what a client can find out by itself, and what the machine knows besides.
struct ClientFindings {
  std::string problem;  ///< Why nothing was seen; empty: `told` is there.
  bool machineIsUp = false;
  bool helperRuns = false;
  bool helperHasTeam = true;  ///< By its log of its last start.
  std::optional<std::string> installedVersion;
  std::optional<Told> told;
};

/// The one state that a person has to know of, and its remedy.
struct Diagnosis {
  DoctorState state = DoctorState::inOrder;
  std::string text;
  std::string remedy;
};

Diagnosis diagnosisOf(const ClientFindings& findings);

/// Connects as a client and looks; as with every client, that arms the saved limit. The error is of
/// an identity that the machine does not know.
std::expected<ClientFindings, std::string> examine(const RootDirectory& root,
                                                   const std::string& identity,
                                                   double timeoutSeconds);

/// `not-started: launchd has … What to do: …`
std::string diagnosisText(const Diagnosis& diagnosis);
nlohmann::ordered_json diagnosisJSON(const Diagnosis& diagnosis);

}  // namespace virtualmac
