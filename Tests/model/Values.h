#pragma once

#include <cstdint>
#include <string>

#include "Base/ErrorObject.h"
#include "Base/PropertyValue.h"
#include "Platform/PowerSources.h"
#include "Platform/SMCUserClient.h"
#include "Platform/SmartChargeRuntime.h"
#include "Tests/model/reference/Trace.h"

namespace model {

/// Adds a property list below `path`.
void flatten(Values& values, const korvel::PropertyValue& value, const std::string& path = {});
/// "{AssertLevel=i255, …}"
std::string listText(const korvel::PropertyValue& value);
/// "3 9 CHTE 0 0 ": connection, command, key, size, type, payload without zeros at its end. Any
/// other byte that is not zero is told as well.
std::string blockText(korvel::ConnectionRef connection, korvel::SMCBlockView block);
void takeBlock(Answer& answer, korvel::SMCBlockView block);
/// "No space left on device [NSPOSIXErrorDomain 28]"
std::string errorText(const korvel::ErrorObject& error);

}  // namespace model
