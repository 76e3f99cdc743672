#pragma once

#import "TinMac/Frameworks/Apple.h"

/// Protocols as the program's metadata describe them, and classes that are made while it runs.
namespace tinmac {

/// The name of the protocol as it was written.
const char* protocolName(Protocol* protocol);
/// The method's types with the classes of its arguments and the signatures of its blocks, such as
/// v24@0:8@?<v@?@"NSData">16; searched in the protocol and in those it takes up. Null: the protocol
/// has no such method, or no such types.
const char* extendedTypes(Protocol* protocol, SEL selector);

/// Says which implementation a made class has for a selector; null: none, and the superclass is
/// asked. `ofClass`: a method of the class itself. Asked again at every look-up. Any thread.
using MethodFinder = IMP (*)(void* context, SEL selector, bool ofClass);

/// A class whose methods `finder` knows and whose instances are laid out like those of
/// `superclass`. It stays for the process's life and is not found by its name.
Class makeClass(const char* name, Class superclass, MethodFinder finder, void* context);

/// Asked by NSClassFromString for a name that no image has. What it gives is passed on as it is,
/// also when it is no class. Nil: nobody has it. Set once, before the program starts.
using ClassFinder = id (*)(const char* name);
void setClassFinder(ClassFinder finder);

}  // namespace tinmac
