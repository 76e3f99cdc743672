#include <IOKit/ps/IOPowerSources.h>

#import "TinMac/Frameworks/Arguments.h"
#import "TinMac/Frameworks/Conversion.h"

using namespace tinmac;

/// An info or a list of the machine's, given back with the last reference.
@interface TinPowerSourcesObject : NSObject {
 @public
  uint64_t name;
}
@end

@implementation TinPowerSourcesObject
- (void)dealloc {
  tinPowerSourcesRelease(name);
  [super dealloc];
}
@end

@interface TinPowerSourcesInfo : TinPowerSourcesObject {
 @public
  /// Every description that was given: it is borrowed from the info.
  NSMutableArray* descriptions;
}
@end

@implementation TinPowerSourcesInfo
- (void)dealloc {
  [descriptions release];
  [super dealloc];
}
@end

@interface TinPowerSource : NSObject {
 @public
  uint64_t name;
  /// The machine's list, which lives as long as one of its elements.
  TinPowerSourcesObject* list;
}
@end

@implementation TinPowerSource
- (void)dealloc {
  [list release];
  [super dealloc];
}
@end

namespace {

void appendSource(void* sources, std::uint64_t name) {
  TinPowerSource* source = [[TinPowerSource alloc] init];
  source->name = name;
  append(static_cast<NSMutableArray*>(sources), source);
  [source release];
}

TinPowerSourcesInfo* infoIn(CFTypeRef blob, const char* function) {
  expectKind((id)blob, [TinPowerSourcesInfo class], function);
  return (TinPowerSourcesInfo*)blob;
}

}  // namespace

TIN_EXPORT CFTypeRef IOPSCopyPowerSourcesInfo() {
  const std::uint64_t name = tinPowerSourcesInfo();
  if (name == 0) return nullptr;
  TinPowerSourcesInfo* info = [[TinPowerSourcesInfo alloc] init];
  info->name = name;
  info->descriptions = makeArray();
  return (CFTypeRef)info;
}

TIN_EXPORT CFArrayRef IOPSCopyPowerSourcesList(CFTypeRef blob) {
  NSMutableArray* sources = makeArray();
  std::uint32_t isArray = 0;
  const std::uint64_t name =
      tinPowerSourcesList(infoIn(blob, __func__)->name, &isArray, appendSource, sources);
  if (name == 0) {
    [sources release];
    return nullptr;
  }
  TinPowerSourcesObject* list = [[TinPowerSourcesObject alloc] init];
  list->name = name;
  if (isArray == 0) {  // The type is a promise of the header that the power daemon may break.
    [sources release];
    return static_cast<CFArrayRef>((CFTypeRef)list);
  }
  for (const id source : elementsOf(sources)) {
    ((TinPowerSource*)source)->list = [list retain];
  }
  [list release];
  return (CFArrayRef)sources;
}

TIN_EXPORT CFDictionaryRef IOPSGetPowerSourceDescription(CFTypeRef blob, CFTypeRef source) {
  TinPowerSourcesInfo* info = infoIn(blob, __func__);
  expectKind((id)source, [TinPowerSource class], __func__);
  ValueBuilder told;
  tinPowerSourceDescription(info->name, ((TinPowerSource*)source)->name, told.sink());
  const id description = told.take();
  if (description == nil) return nullptr;
  append(info->descriptions, description);
  [description release];
  return (CFDictionaryRef)description;
}
