"""Reads what the checks need of a 64-bit Mach-O program: load commands, segments, imports, and the
Objective-C protocols with their methods' extended type encodings."""
import dataclasses
import struct

MAGIC_64 = 0xFEEDFACF
CPU_ARM64 = 0x0100000C
FILETYPE_EXECUTE = 2
FLAG_PIE = 0x200000

LC_SYMTAB, LC_SEGMENT_64, LC_RPATH = 0x2, 0x19, 0x8000001C
LC_BUILD_VERSION, LC_DYLD_CHAINED_FIXUPS, LC_MAIN = 0x32, 0x80000034, 0x80000028
LC_DYSYMTAB, LC_LOAD_DYLINKER, LC_UUID, LC_CODE_SIGNATURE = 0xB, 0xE, 0x1B, 0x1D
LC_FUNCTION_STARTS, LC_DATA_IN_CODE, LC_SOURCE_VERSION = 0x26, 0x29, 0x2A
LC_DYLD_INFO_ONLY, LC_DYLD_EXPORTS_TRIE = 0x80000022, 0x80000033
LC_LOAD_DYLIB, LC_LOAD_WEAK_DYLIB = 0xC, 0x80000018
LC_REEXPORT_DYLIB, LC_LAZY_LOAD_DYLIB, LC_LOAD_UPWARD_DYLIB = 0x8000001F, 0x20, 0x80000023
DYLIB_COMMANDS = {LC_LOAD_DYLIB: "load", LC_LOAD_WEAK_DYLIB: "weak load",
                  LC_REEXPORT_DYLIB: "re-export", LC_LAZY_LOAD_DYLIB: "lazy load",
                  LC_LOAD_UPWARD_DYLIB: "upward load"}
PLATFORM_MACOS = 1
PROT_WRITE, PROT_EXECUTE = 2, 4
# The targets of the first format are addresses, those of the second are offsets.
FORMAT_64, FORMAT_64_OFFSET = 2, 6


class FormatError(Exception):
    """The file is not what this reader knows."""


@dataclasses.dataclass
class Section:
    segment: str
    name: str
    address: int
    size: int
    offset: int


@dataclasses.dataclass
class Segment:
    name: str
    address: int
    size: int
    offset: int
    file_size: int
    maximum_protection: int
    initial_protection: int


@dataclasses.dataclass
class Protocol:
    name: str
    methods: dict  # selector -> extended type encoding, in the order of declaration


def text(raw):
    return raw.split(b"\0", 1)[0].decode("ascii")


def text_at(data, offset):
    return data[offset:data.index(b"\0", offset)].decode("ascii")


class Program:
    def __init__(self, data):
        self.data = data
        self.segments, self.sections, self.dylibs, self.rpaths = [], [], [], []
        self.commands, self.places = set(), []  # The places are (command, offset, size).
        self.signature = None  # This is (offset, size) of the code signature in the file.
        self.platform = self.minimum_system = self.loader = None
        self.symbol_table = self.fixups = None
        if len(data) < 32 or self.unpack("<I", 0) != (MAGIC_64,):
            raise FormatError("not a thin 64-bit Mach-O file")
        _, self.cpu, _, self.filetype, count, _, self.flags, _ = self.unpack("<8I", 0)
        offset = 32
        for _ in range(count):
            command, size = self.unpack("<2I", offset)
            self.read_command(command, offset)
            self.places.append((command, offset, size))
            offset += size
        self.base = next((s.address for s in self.segments if s.name == "__TEXT"), 0)

    def unpack(self, form, offset):
        return struct.unpack_from(form, self.data, offset)

    def read_command(self, command, offset):
        self.commands.add(command)
        if command == LC_SEGMENT_64:
            self.read_segment(offset)
        elif command in DYLIB_COMMANDS:
            (name,) = self.unpack("<I", offset + 8)
            self.dylibs.append((DYLIB_COMMANDS[command], text_at(self.data, offset + name)))
        elif command == LC_RPATH:
            (name,) = self.unpack("<I", offset + 8)
            self.rpaths.append(text_at(self.data, offset + name))
        elif command == LC_LOAD_DYLINKER:
            (name,) = self.unpack("<I", offset + 8)
            self.loader = text_at(self.data, offset + name)
        elif command == LC_BUILD_VERSION:
            self.platform, version = self.unpack("<2I", offset + 8)
            self.minimum_system = f"{version >> 16}.{version >> 8 & 255}"
        elif command == LC_SYMTAB:
            self.symbol_table = self.unpack("<4I", offset + 8)
        elif command == LC_DYLD_CHAINED_FIXUPS:
            (self.fixups,) = self.unpack("<I", offset + 8)
        elif command == LC_CODE_SIGNATURE:
            self.signature = self.unpack("<2I", offset + 8)

    def read_segment(self, offset):
        (name, address, size, file_offset, file_size, maximum, initial, count, _) = self.unpack(
            "<16s4Q4I", offset + 8)
        self.segments.append(Segment(text(name), address, size, file_offset, file_size, maximum,
                                     initial))
        for index in range(count):
            section, segment, start, length, place = self.unpack("<16s16s2QI",
                                                                 offset + 72 + 80 * index)
            self.sections.append(Section(text(segment), text(section), start, length, place))

    def section(self, segment, name):
        """The content of a section; none when there is no such section."""
        for found in self.sections:
            if (found.segment, found.name) == (segment, name):
                return self.data[found.offset:found.offset + found.size]
        return None

    def imports(self):
        """(symbol, install name of the library it is looked up in) of every undefined symbol."""
        table, count, strings, _ = self.symbol_table
        for index in range(count):
            name, kind, _, description, _ = self.unpack("<IBBHQ", table + 16 * index)
            if kind & 0xE0 == 0 and kind & 0x0E == 0 and kind & 1:
                ordinal = description >> 8
                known = 0 < ordinal <= len(self.dylibs)
                library = self.dylibs[ordinal - 1][1] if known else "any library"
                yield text_at(self.data, strings + name), library

    # --- Pointers and their targets

    def offset_of(self, address):
        for segment in self.segments:
            if segment.address <= address < segment.address + segment.file_size:
                return segment.offset + address - segment.address
        raise FormatError(f"address {address:#x} is in no segment of the file")

    def pointer_format(self):
        starts = self.fixups + self.unpack("<I", self.fixups + 4)[0]
        (count,) = self.unpack("<I", starts)
        for info in self.unpack(f"<{count}I", starts + 4):
            if info:
                return self.unpack("<H", starts + info + 6)[0]
        return FORMAT_64_OFFSET

    def pointer(self, address):
        """The address stored at `address`; 0 for none and for one that another library fills in."""
        (raw,) = self.unpack("<Q", self.offset_of(address))
        if self.fixups is None:
            return raw
        if raw >> 63:
            return 0
        target = raw & ((1 << 36) - 1)
        form = self.pointer_format()
        if form == FORMAT_64:
            return target
        if form == FORMAT_64_OFFSET:
            return target + self.base if target else 0
        raise FormatError(f"pointer format {form} is not known")

    def string(self, address):
        return text_at(self.data, self.offset_of(address))

    def relative(self, address):
        return address + self.unpack("<i", self.offset_of(address))[0]

    def selectors(self, method_list):
        """The selectors of a method list, in its order."""
        if method_list == 0:
            return
        size, count = self.unpack("<2I", self.offset_of(method_list))
        for index in range(count):
            entry = method_list + 8 + index * (size & 0xFFFC)
            if size & 0x80000000:  # Three 32-bit distances; the first leads to a selector reference.
                name = self.relative(entry)
                yield self.string(name if size & 0x40000000 else self.pointer(name))
            else:
                yield self.string(self.pointer(entry))

    def protocols(self):
        listed = next((s for s in self.sections if s.name == "__objc_protolist"), None)
        for place in range(listed.address, listed.address + listed.size, 8) if listed else ():
            protocol = self.pointer(place)
            methods = {}
            types = self.pointer(protocol + 72)
            for index, selector in enumerate(self.selectors(self.pointer(protocol + 24))):
                methods[selector] = self.string(self.pointer(types + 8 * index)) if types else None
            yield Protocol(self.string(self.pointer(protocol + 8)), methods)
