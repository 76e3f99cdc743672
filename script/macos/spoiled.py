"""Proof that the checks can fail: copies of a good program, each with one thing spoiled."""
import struct

import checks
import macho


def replaced(data, old, new):
    if len(old) != len(new) or data.count(old) == 0:
        raise AssertionError(f"cannot spoil {old!r}")
    return data.replace(old, new)


def command_offset(data, wanted):
    (count,) = struct.unpack_from("<I", data, 16)
    offset = 32
    for _ in range(count):
        command, size = struct.unpack_from("<2I", data, offset)
        if command == wanted:
            return offset
        offset += size
    raise AssertionError(f"no load command {wanted:#x}")


def patched(data, offset, form, value):
    spoiled = bytearray(data)
    struct.pack_into(form, spoiled, offset, value)
    return bytes(spoiled)


def spoil_build_version(data, field, value):
    return patched(data, command_offset(data, macho.LC_BUILD_VERSION) + 8 + 4 * field, "<I", value)


def spoil_segment(data, name, protection_offset):
    place = data.index(name.ljust(16, b"\0"))
    return patched(data, place + protection_offset, "<I", 7)


# Each case has a name, the change that spoils it, and a text that the finding must contain.
CASES = [
    ("processor", lambda d: patched(d, 4, "<I", 0x01000007), "not arm64"),
    ("file type", lambda d: patched(d, 12, "<I", 6), "not a position-independent executable"),
    ("platform", lambda d: spoil_build_version(d, 0, 2), "built for platform 2"),
    ("system", lambda d: spoil_build_version(d, 1, 0x000F0000), "asks for macOS 15.0"),
    ("identifier", lambda d: replaced(d, b"<string>com.korvel.app.helper<",
                                      b"<string>com.korvel.app.hElper<"), "CFBundleIdentifier is"),
    ("property list", lambda d: replaced(d, b"<plist ", b"<pl@st "), "cannot be read"),
    ("variable", lambda d: replaced(d, b"<string>KorvelHelper<", b"<string>${Product_N}<"),
     "nobody filled in"),
    ("no property list", lambda d: replaced(d, b"__info_plist", b"__info_plxst"),
     "no embedded property list"),
    ("load command", lambda d: patched(d, command_offset(d, macho.LC_FUNCTION_STARTS), "<I", 0x27),
     "has the unexpected load command 0x27"),
    ("missing load command", lambda d: patched(d, command_offset(d, macho.LC_UUID), "<I",
                                               macho.LC_SOURCE_VERSION), "has no UUID"),
    ("loader", lambda d: replaced(d, b"/usr/lib/dyld\0", b"/usr/lib/dylx\0"),
     "is loaded by /usr/lib/dylx"),
    ("library", lambda d: replaced(d, b"Security.framework/Versions/A/Security\0",
                                   b"Sxcurity.framework/Versions/A/Security\0"),
     "unexpected load of /System/Library/Frameworks/Sxcurity"),
    ("missing library", lambda d: replaced(d, b"/usr/lib/libobjc.A.dylib\0",
                                           b"/usr/lib/libobjx.A.dylib\0"),
     "does not load /usr/lib/libobjc.A.dylib"),
    ("argument width", lambda d: replaced(d, b'v28@0:8C16@?<v@?B@"NSError">20\0',
                                          b'v28@0:8S16@?<v@?B@"NSError">20\0'),
     "setChargeLimit:reply: is encoded"),
    ("reply class", lambda d: replaced(d, b'v24@0:8@?<v@?@"NSData">16\0',
                                       b'v24@0:8@?<v@?@"NSDate">16\0'),
     "getStateWithReply: is encoded"),
    ("selector", lambda d: replaced(d, b"\0cancelTopUpWithReply:\0", b"\0cancelTopOpWithReply:\0"),
     "the protocol lacks cancelTopUpWithReply:"),
    ("protection at start", lambda d: spoil_segment(d, b"__DATA", 52),
     "segment __DATA starts writable and executable"),
    ("greatest protection", lambda d: spoil_segment(d, b"__TEXT", 48),
     "segment __TEXT may become writable and executable"),
    ("private function", lambda d: replaced(d, b"_IOServiceClose\0", b"_IOServiceXlose\0"),
     "IOServiceXlose is declared in no public header"),
    ("look-up by name", lambda d: replaced(d, b"_dlopen\0", b"_dlsym\0\0"), "_dlsym is called"),
    ("static destructor", lambda d: replaced(d, b"_IOIteratorNext\0", b"___cxa_atexit\0\0\0"),
     "___cxa_atexit is called"),
    ("private framework", lambda d: replaced(d, b"/PrivateFrameworks/PowerUI.framework/",
                                             b"/PrivateFrameworks/PowerUX.framework/"),
     "names another private framework"),
    ("private class", lambda d: replaced(d, b"PowerUISmartChargeClient", b"PowerUISmartChargeKlient"),
     "does not name PowerUISmartChargeClient"),
]


def missed(data, sdk, version):
    """The spoiled copies that no check complained about as it should."""
    words = checks.declared_words(sdk)
    for what, spoil, piece in CASES:
        program = macho.Program(spoil(data))
        findings = [f for _, found in checks.run(program, words, version) for f in found]
        if not any(piece in finding for finding in findings):
            yield f"{what}: expected \"{piece}\" among {findings}"
