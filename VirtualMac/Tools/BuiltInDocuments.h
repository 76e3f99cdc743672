#pragma once

#include <string_view>

namespace virtualmac::documents {

// The documents that the programs answer from, as they were compiled in.

std::string_view logMessages();     ///< docs/log-messages.md
std::string_view behaviour();       ///< docs/behaviour.md
std::string_view scenarioSchema();  ///< docs/schema/scenario.schema.json
std::string_view profileSchema();   ///< docs/schema/profile.schema.json

}  // namespace virtualmac::documents
