#pragma once

#include <string>

namespace virtualmac {

class MachineServer;

/// The machine at one glance: a few lines for a person.
std::string statusText(MachineServer& server);
/// The same as one JSON object.
std::string statusJSON(MachineServer& server);

}  // namespace virtualmac
