#include "TinMac/Glue/Exports.h"

#include <array>

#include "TinMac/Frameworks/Below.h"
#include "TinMac/Frameworks/BelowClient.h"
#include "TinMac/Frameworks/BelowServices.h"

namespace tinmac {

namespace {

#define GLUE(function) \
  Export { "_" #function, reinterpret_cast<void*>(&(function)) }

const std::array table{
    GLUE(tinOutgoingValue),
    GLUE(tinServiceMatching),
    GLUE(tinObjectRelease),
    GLUE(tinObjectConformsTo),
    GLUE(tinEntryProperty),
    GLUE(tinEntryProperties),
    GLUE(tinEntryIterator),
    GLUE(tinIteratorNext),
    GLUE(tinServiceOpen),
    GLUE(tinServiceClose),
    GLUE(tinCallStruct),
    GLUE(tinPowerSourcesInfo),
    GLUE(tinPowerSourcesList),
    GLUE(tinPowerSourceDescription),
    GLUE(tinPowerSourcesRelease),
    GLUE(tinAssertionCreate),
    GLUE(tinAssertionRelease),
    GLUE(tinSetPowerSetting),
    GLUE(tinPowerSettings),
    GLUE(tinPowerRegister),
    GLUE(tinPowerDeregister),
    GLUE(tinPowerAllow),
    GLUE(tinPortSource),
    GLUE(tinPortDestroy),
    GLUE(tinMainRunLoop),
    GLUE(tinRunLoopAddSource),
    GLUE(tinRunLoopRemoveSource),
    GLUE(tinStaticCodeWithPath),
    GLUE(tinGuestWithPid),
    GLUE(tinStaticCodeOf),
    GLUE(tinSigningInformation),
    GLUE(tinCodeRelease),
    GLUE(tinSecondsSince2001),
    GLUE(tinBundleExecutablePath),
    GLUE(tinBundleInfo),
    GLUE(tinPowerUILoad),
    GLUE(tinPowerUIClass),
    GLUE(tinPowerUIIsClass),
    GLUE(tinPowerUIClassMethod),
    GLUE(tinPowerUIInstanceMethod),
    GLUE(tinPowerUIAlloc),
    GLUE(tinPowerUIInit),
    GLUE(tinPowerUIResponds),
    GLUE(tinPowerUIBoolean),
    GLUE(tinPowerUIInt32),
    GLUE(tinPowerUIObject),
    GLUE(tinPowerUISetUInt8),
    GLUE(tinPowerUIRelease),
    GLUE(tinListen),
    GLUE(tinListenWithin),
    GLUE(tinEndpointEnd),
    GLUE(tinConnectionExport),
    GLUE(tinConnectionReplyClasses),
    GLUE(tinConnectionRequirement),
    GLUE(tinConnectionHandler),
    GLUE(tinConnectionResume),
    GLUE(tinCurrentPeer),
    GLUE(tinReplyValues),
    GLUE(tinReplySend),
    GLUE(tinReplyDrop),
    GLUE(tinRequirementParses),
    GLUE(tinClientOpen),
    GLUE(tinClientOpenWithin),
    GLUE(tinClientSend),
    GLUE(tinClientInvalidate),
    GLUE(tinClientClose),
    GLUE(tinAnswerTell),
    GLUE(tinClientsQuiet),
};

#undef GLUE

}  // namespace

std::span<const Export> glueExports() { return table; }

}  // namespace tinmac
