#pragma once

// A class of ours writes what is called and no more. Without the attribute the compiler would add
// an accessor for each of the other properties that Apple's header declares, and nobody would
// notice that it is called.
#pragma clang attribute push(__attribute__((objc_requires_property_definitions)), \
                             apply_to = objc_interface)
#import <Foundation/Foundation.h>
#import <objc/Protocol.h>
#import <objc/message.h>
#import <objc/runtime.h>
#pragma clang attribute pop
