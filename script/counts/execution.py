"""What the emulator's log of a process tells: which pieces of the program's code ran, and so how many
instructions, and which imports were called.

The log has each piece of code when it is first translated, and a line each time it runs. A piece that
ends with a jump to a known place must be followed, in its thread, by the piece at that place: so a log
that lacks a line is noticed. The same piece may come once more instead: the emulator was told to do
something else before its first instruction, and has begun it again."""
import collections
import re

from arm64_program import PLACE, Unusable, successors

# The columns of the table, and the kinds of imports that count there.
COLUMNS = {"instructions": (), "calls": (), "messages": ("message",),
           "allocations": ("memory", "both"), "system calls": ("kernel", "both")}

TOLD = re.compile(rb"^(?:(?P<begins>IN:)|0x(?P<at>[0-9a-f]+): +(?P<word>[0-9a-f]{8})\b|Trace "
                  rb"(?P<thread>\d+): (?P<piece>0x[0-9a-f]+) \[[0-9a-f]+/(?P<ran>[0-9a-f]{16})/)", re.M)
CALL_OF_A_REGISTER = 0xFFFFFC1F, 0xD63F0000


def ways_on(at, word):
    """Where the code goes on after an instruction that ends a piece; empty: the log alone knows."""
    mask, value = CALL_OF_A_REGISTER
    if word & mask == value:
        return []
    to, is_call = successors(at, word)
    return to[:1] if is_call else to


class Execution:
    """A log that is still being written; each reading counts what has come since the last one."""

    def __init__(self, path, image):
        self.path, self.image, self.at = path, image, 0
        self.begun = None     # the piece that is being told
        self.translated = {}  # its address -> its number of instructions, of the latest translation
        self.pieces = {}      # the emulator's name and address of a piece -> the same
        self.latest = {}      # thread -> the piece that it ran last, and where that goes on
        self.called = set()   # imports

    def size(self):
        return self.path.stat().st_size if self.path.exists() else 0

    def read(self):
        """The columns' counts."""
        with open(self.path, "rb") as log:
            log.seek(self.at)
            told = log.read()
        told = told[:told.rfind(b"\n") + 1]
        self.at += len(told)
        counts = collections.Counter(dict.fromkeys(COLUMNS, 0))
        for words in TOLD.finditer(told):
            if words["begins"]:
                self.begun = None
            elif words["at"]:
                self.take_instruction(int(words["at"], 16), int(words["word"], 16))
            else:
                self.take_run(words["thread"], words["piece"], int(words["ran"], 16), counts)
        return counts

    def take_instruction(self, place, word):
        own = place - PLACE + self.image.program.first
        if self.image.program.word(own) != word:
            raise Unusable(f"{self.path} tells of another program: see {own:#x}")
        if self.begun is None:
            self.begun = own
            self.translated[own] = 0
        self.translated[self.begun] += 1

    def take_run(self, thread, piece, place, counts):
        own = place - PLACE + self.image.program.first
        if own not in self.translated:
            raise Unusable(f"{self.path}: code ran that was not translated, at {own:#x}")
        length = self.pieces.setdefault((piece, own), self.translated[own])
        last, ways = self.latest.get(thread, (None, []))
        if ways and own not in ways:
            if own == last:
                return
            raise Unusable(f"{self.path} lacks a line: {own:#x} was not to follow {last:#x}")
        end = own + 4 * (length - 1)
        self.latest[thread] = own, ways_on(end, self.image.program.word(end))
        counts["instructions"] += length
        name = self.image.stubs.get(own)
        if name is not None:
            self.called.add(name)
            counts["calls"] += 1
            for column, kinds in COLUMNS.items():
                counts[column] += self.image.kinds[name] in kinds
