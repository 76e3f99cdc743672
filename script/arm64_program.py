"""An arm64 program of a Mac: its instructions, and which of them only unwinding comes to, while an
exception leaves a function that does not catch it."""
import re
import struct
import subprocess

PLACE = 0x60_0000_0000  # TinMac/Glue/Launch.cpp puts the program here.
SEGMENT = 0x19
POINTER_TARGET = (1 << 36) - 1
OMITTED, LEB_OFFSETS, WORD_OFFSETS = 0xFF, 0x01, 0x03


class Unusable(Exception):
    """The program and what came from it do not fit together."""


def run(command):
    done = subprocess.run(command, check=False, capture_output=True, text=True)
    if done.returncode != 0 or done.stderr:
        raise Unusable(f"{command[0]}: status {done.returncode}\n{done.stderr}".rstrip())
    return done.stdout


def build_of(program):
    """The build's directory, below which the debug map names the object files."""
    for folder in program.resolve().parents:
        if (folder / "CMakeCache.txt").is_file():
            return folder
    raise Unusable(f"{program} lies in no build, so its object files are not known")


class Cursor:
    """Reads numbers of DWARF's kinds one after the other."""

    def __init__(self, contents, at):
        self.contents, self.at = contents, at

    def byte(self):
        self.at += 1
        return self.contents[self.at - 1]

    def leb(self, signed=False):
        value = shift = 0
        while True:
            piece = self.byte()
            value |= (piece & 0x7F) << shift
            shift += 7
            if piece < 0x80:
                return value - (1 << shift) if signed and piece & 0x40 else value

    def offset(self, encoding):
        if encoding == LEB_OFFSETS:
            return self.leb()
        if encoding != WORD_OFFSETS:
            raise Unusable(f"an exception table's offsets have encoding {encoding:#x}")
        self.at += 4
        return struct.unpack_from("<I", self.contents, self.at - 4)[0]


def catches(contents, actions, action):
    """Whether a chain of actions has one that is more than a cleanup."""
    while action:
        cursor = Cursor(contents, actions + action - 1)
        if cursor.leb(signed=True) != 0:
            return True
        here = cursor.at
        step = cursor.leb(signed=True)
        action = here + step - actions + 1 if step else 0
    return False


def landing_pads(contents, table, function):
    """Pairs (address, whether it catches) of one function's exception table."""
    cursor = Cursor(contents, table)
    if cursor.byte() != OMITTED:
        raise Unusable("an exception table has a base of its own")
    if cursor.byte() != OMITTED:
        cursor.leb()
    encoding = cursor.byte()
    length = cursor.leb()
    actions = cursor.at + length
    while cursor.at < actions:
        cursor.offset(encoding)
        cursor.offset(encoding)
        pad, action = cursor.offset(encoding), cursor.leb()
        if pad:
            yield function + pad, catches(contents, actions, action)


def relative(word, low, bits):
    value = word >> low & (1 << bits) - 1
    return 4 * (value - (1 << bits) if value >> bits - 1 else value)


def successors(at, word):
    """Addresses that an instruction of this kind may go on with, and whether it is a call."""
    if word & 0xFC000000 == 0x14000000:
        return [at + relative(word, 0, 26)], False
    if word & 0xFC000000 == 0x94000000:
        return [at + relative(word, 0, 26), at + 4], True
    if word & 0xFF000010 == 0x54000000 or word & 0x7E000000 == 0x34000000:
        return [at + relative(word, 5, 19), at + 4], False
    if word & 0x7E000000 == 0x36000000:
        return [at + relative(word, 5, 14), at + 4], False
    ends = word & 0xFFFFFC1F in (0xD61F0000, 0xD65F0000) or word & 0xFFE0001F == 0xD4200000
    return ([] if ends else [at + 4]), False


class Program:
    def __init__(self, path):
        self.path, self.contents = path, path.read_bytes()
        self.segments, self.sections, self.code = {}, {}, range(0)
        count, offset = struct.unpack_from("<I", self.contents, 16)[0], 32
        for _ in range(count):
            kind, size = struct.unpack_from("<II", self.contents, offset)
            if kind == SEGMENT:
                self.read_segment(offset)
            offset += size
        if not self.code:
            raise Unusable(f"{path} has no code")
        self.first, self.text_offset = self.segments["__TEXT"][:2]

    def read_segment(self, offset):
        name, address, _, at, size = struct.unpack_from("<16sQQQQ", self.contents, offset + 8)
        name = name.rstrip(b"\0").decode()
        self.segments[name] = address, at, size
        for index in range(struct.unpack_from("<I", self.contents, offset + 64)[0]):
            section, _, start, length = struct.unpack_from(
                "<16s16sQQ", self.contents, offset + 72 + 80 * index)
            section = section.rstrip(b"\0").decode()
            self.sections[name, section] = length
            if section == "__text":
                self.code = range(start, start + length, 4)

    def word(self, address):
        """The text segment's four bytes at the address; none outside of it."""
        at = address - self.first
        if not 0 <= at <= self.segments["__TEXT"][2] - 4:
            return None
        return struct.unpack_from("<I", self.contents, self.text_offset + at)[0]

    def pads(self):
        listed = run(["llvm-objdump-19", "--macho", "--unwind-info", str(self.path)])
        found = {}
        for function, table in re.findall(
                r"^ +\[\d+\]: function offset=(0x[0-9a-f]+), LSDA offset=(0x[0-9a-f]+)$", listed,
                re.M):
            for pad, catching in landing_pads(self.contents, self.text_offset + int(table, 16),
                                              self.first + int(function, 16)):
                found[pad] = found.get(pad, False) or catching
        return found

    def taken(self):
        """Addresses that data or instructions name, besides branches; rather too many."""
        found = set()
        for name, (_, at, size) in self.segments.items():
            if name.startswith("__DATA"):
                for (pointer,) in struct.iter_unpack("<Q", self.contents[at:at + size & ~7]):
                    target = pointer & POINTER_TARGET
                    found |= {target, target + self.first}
        for address in self.code:
            word = self.word(address)
            if word & 0x9F000000 == 0x10000000:
                found.add(address + relative(word, 5, 19) + (word >> 29 & 3))
        return found

    def only_unwinding(self):
        """The instructions that cleanups come to, and nothing else."""
        pads, taken, called = self.pads(), self.taken(), set()
        after = {}
        for address in self.code:
            after[address], calling = successors(address, self.word(address))
            if calling:
                called.add(after[address][0])
            # A call that does not come back may be the last instruction before a landing pad.
            after[address] = [to for to in after[address]
                              if to in self.code and not (to == address + 4 and to in pads)]
        starts = {int(line, 16) for line in run(
            ["llvm-objdump-19", "--macho", "--function-starts", str(self.path)]).split("\n")
                  if re.fullmatch("[0-9a-f]{16}", line)}
        roots = {start for start in starts if start in taken or start not in called}
        normal = flood(roots | {pad for pad, catching in pads.items() if catching}, after)
        cleanup = flood({pad for pad, catching in pads.items() if not catching}, after)
        # A table of jumps leads to the rest.
        normal |= flood(set(after) - normal - cleanup, after)
        return cleanup - normal


def flood(roots, after):
    reached, waiting = set(), [root for root in roots if root in after]
    while waiting:
        address = waiting.pop()
        if address not in reached:
            reached.add(address)
            waiting.extend(after[address])
    return reached
