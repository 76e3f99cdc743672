"""What must be true of the built KorvelHelper, read from the program itself."""
import pathlib
import plistlib
import re

import macho

IDENTIFIER = "com.korvel.app.helper"
MINIMUM_SYSTEM = "14.0"

FRAMEWORKS = "/System/Library/Frameworks"
LIBRARIES = {
    f"{FRAMEWORKS}/CoreFoundation.framework/Versions/A/CoreFoundation",
    f"{FRAMEWORKS}/Foundation.framework/Versions/C/Foundation",
    f"{FRAMEWORKS}/IOKit.framework/Versions/A/IOKit",
    f"{FRAMEWORKS}/Security.framework/Versions/A/Security",
    "/usr/lib/libSystem.B.dylib",
    "/usr/lib/libc++.1.dylib",
    "/usr/lib/libobjc.A.dylib",
}

LOADER = "/usr/lib/dyld"
# Every program has these commands; the names are for the report of a missing one.
NEEDED_COMMANDS = {
    macho.LC_SEGMENT_64: "segment", macho.LC_LOAD_DYLIB: "library", macho.LC_SYMTAB: "symbol table",
    macho.LC_DYSYMTAB: "dynamic symbol table", macho.LC_LOAD_DYLINKER: "loader",
    macho.LC_UUID: "UUID", macho.LC_BUILD_VERSION: "build version", macho.LC_MAIN: "entry",
    macho.LC_CODE_SIGNATURE: "signature",
}
# A linker may add these: two ways to bind addresses, and data for tools.
USUAL_COMMANDS = {
    macho.LC_DYLD_CHAINED_FIXUPS, macho.LC_DYLD_EXPORTS_TRIE, macho.LC_DYLD_INFO_ONLY,
    macho.LC_FUNCTION_STARTS, macho.LC_DATA_IN_CODE, macho.LC_SOURCE_VERSION,
}

# The encodings that both ends of a connection compare; `C`, `B` and `Q` are an 8-bit unsigned
# integer, a Boolean and a 64-bit unsigned integer, and a block's own arguments stand in brackets.
STATUS_REPLY = '@?<v@?B@"NSError">'
DATA_REPLY = '@?<v@?@"NSData">'
PROTOCOL = "KorvelHelperProtocol"
METHODS = {
    "pingWithReply:": "v24@0:8@?<v@?Q>16",
    "capabilitiesWithReply:": f"v24@0:8{DATA_REPLY}16",
    "setChargeLimit:reply:": f"v28@0:8C16{STATUS_REPLY}20",
    "clearChargeLimitWithReply:": f"v24@0:8{STATUS_REPLY}16",
    "forceDischarge:reply:": f"v28@0:8B16{STATUS_REPLY}20",
    "setClamshellKeepAwake:reply:": f"v28@0:8B16{STATUS_REPLY}20",
    "releaseLimitUntilFullThenRestoreWithReply:": f"v24@0:8{STATUS_REPLY}16",
    "cancelTopUpWithReply:": f"v24@0:8{STATUS_REPLY}16",
    "getStateWithReply:": f"v24@0:8{DATA_REPLY}16",
    "resetAllSMCKeysWithReply:": f"v24@0:8{STATUS_REPLY}16",
    "quit": "v16@0:8",
}

# IOKit exports these, but no public header declares them; the helper uses them on purpose.
PRIVATE_FUNCTIONS = {"IOPMSetSystemPowerSetting", "IOPMCopySystemPowerSettings"}
PRIVATE_FRAMEWORK = "/System/Library/PrivateFrameworks/PowerUI.framework/PowerUI"
PRIVATE_CLASS = "PowerUISmartChargeClient"
# Compilers call these for language features, and no header declares them.
COMPILER_CALLS = re.compile(
    r"objc_(msgSend\w*|retain\w*|release\w*|autorelease\w*|store\w*|load\w*|alloc\w*|opt_\w+|"
    r"begin_catch|end_catch|exception_\w+|terminate|unsafeClaim\w+|claim\w+|initWeak|destroyWeak|"
    r"copyWeak|moveWeak|getProperty|setProperty\w*|sync_\w+)(_x\d+)?|_objc_empty_cache|"
    r"__objc_personality_v0|__CFConstantStringClassReference|_Unwind_Resume|__stack_chk_\w+|"
    r"_tlv_bootstrap|__(mem|str)\w+_chk|__\w?(div|mod)ti3|__udivmodti4|__isPlatformVersionAtLeast|"
    r"dyld_stub_binder")
# This finds functions by name, which no check would see.
LOOK_UP = "_dlsym"
# These names would mean that objects are destroyed while queues are still at work.
STATIC_DESTRUCTION = {"___cxa_atexit", "__tlv_atexit", "_atexit"}


def check_header(program):
    if program.cpu != macho.CPU_ARM64:
        yield f"the processor is {program.cpu:#x}, not arm64"
    if program.filetype != macho.FILETYPE_EXECUTE or not program.flags & macho.FLAG_PIE:
        yield "not a position-independent executable"
    if program.platform != macho.PLATFORM_MACOS:
        yield f"built for platform {program.platform}, not for macOS"
    if program.minimum_system != MINIMUM_SYSTEM:
        yield f"asks for macOS {program.minimum_system}, not {MINIMUM_SYSTEM}"


def check_property_list(program, version):
    content = program.section("__TEXT", "__info_plist")
    if content is None:
        yield "no embedded property list"
        return
    try:
        values = plistlib.loads(content)
    except Exception as error:  # plistlib raises many kinds, and each says the same here.
        yield f"the embedded property list cannot be read: {error}"
        return
    for key, wanted in (("CFBundleIdentifier", IDENTIFIER), ("CFBundleShortVersionString", version),
                        ("CFBundleVersion", version), ("CFBundleInfoDictionaryVersion", "6.0"),
                        ("LSMinimumSystemVersion", MINIMUM_SYSTEM)):
        if values.get(key) != wanted:
            yield f"the embedded {key} is {values.get(key)!r}, not {wanted!r}"
    if re.search(rb"@\w+@|\$[({]", content):
        yield "the embedded property list holds a variable that nobody filled in"


def check_libraries(program):
    loaded = {name for kind, name in program.dylibs if kind == "load"}
    for name in sorted(LIBRARIES - loaded):
        yield f"does not load {name}"
    for kind, name in program.dylibs:
        if kind != "load" or name not in LIBRARIES:
            yield f"has an unexpected {kind} of {name}"
    for path in program.rpaths:
        yield f"has a run path: {path}"


def check_commands(program):
    for command, what in NEEDED_COMMANDS.items():
        if command not in program.commands:
            yield f"has no {what}"
    known = NEEDED_COMMANDS.keys() | USUAL_COMMANDS
    for command in sorted(program.commands - known):
        yield f"has the unexpected load command {command:#x}"
    if program.loader != LOADER:
        yield f"is loaded by {program.loader}, not by {LOADER}"


def check_protocol(program):
    found = next((p for p in program.protocols() if p.name == PROTOCOL), None)
    if found is None:
        yield f"no protocol {PROTOCOL}"
        return
    for selector, wanted in METHODS.items():
        if selector not in found.methods:
            yield f"the protocol lacks {selector}"
        elif found.methods[selector] != wanted:
            yield f"{selector} is encoded {found.methods[selector]}, not {wanted}"
    for selector in found.methods.keys() - METHODS.keys():
        yield f"the protocol has an unexpected {selector}"


def check_segments(program):
    both = macho.PROT_WRITE | macho.PROT_EXECUTE
    for segment in program.segments:
        for kind, bits in (("starts", segment.initial_protection),
                           ("may become", segment.maximum_protection)):
            if bits & both == both:
                yield f"segment {segment.name} {kind} writable and executable"


def declared_words(sdk):
    """Every word in the public headers of what the program links."""
    folders = [sdk / "usr/include"] + [
        sdk / f"System/Library/Frameworks/{name}.framework/Headers"
        for name in ("CoreFoundation", "Foundation", "IOKit", "Security")]
    words = set()
    for folder in folders:
        for header in folder.rglob("*.h"):
            if "c++" not in header.parts:
                words.update(re.findall(rb"[A-Za-z_]\w*", header.read_bytes()))
    return {word.decode() for word in words}


def check_imports(program, words):
    for symbol, library in program.imports():
        name = symbol.removeprefix("_").split("$_")[-1]
        if library not in LIBRARIES:
            yield f"{symbol} is looked up in {library}"
        if symbol == LOOK_UP:
            yield f"{symbol} is called: what it looks up is out of sight"
        if symbol in STATIC_DESTRUCTION:
            yield f"{symbol} is called: something with static storage is destroyed at exit"
        if library.endswith("libc++.1.dylib"):
            continue
        public = name in words or COMPILER_CALLS.fullmatch(name)
        if not public and name not in PRIVATE_FUNCTIONS:
            yield f"{name} is declared in no public header"


def check_private_names(program):
    strings = b"\0".join(filter(None, (program.section("__TEXT", name)
                                       for name in ("__cstring", "__const", "__objc_classname"))))
    for path in sorted(set(re.findall(rb"/System/Library/PrivateFrameworks/[ -~]*", strings))):
        if path.decode() != PRIVATE_FRAMEWORK:
            yield f"names another private framework: {path.decode()}"
    for wanted in (PRIVATE_FRAMEWORK, PRIVATE_CLASS):
        if wanted.encode() not in strings:
            yield f"does not name {wanted}"


def run(program, words, version):
    """(what is checked, findings) of every check; `words` are the public ones."""
    yield "arm64 program for macOS 14.0", list(check_header(program))
    yield "embedded property list: identifier and version", list(
        check_property_list(program, version))
    yield "the load commands of a plain program and no others", list(check_commands(program))
    yield "loads the seven expected libraries and no others", list(check_libraries(program))
    yield "signatures of the protocol's eleven methods", list(check_protocol(program))
    yield "no segment both writable and executable", list(check_segments(program))
    yield "imports: public, known by library, nothing destroyed at exit", list(
        check_imports(program, words))
    yield "names one private framework and its class", list(check_private_names(program))


def project_version(root):
    text = (pathlib.Path(root) / "CMakeLists.txt").read_text(encoding="utf-8")
    return re.search(r"project\(KorvelHelper VERSION ([\d.]+)", text).group(1)
