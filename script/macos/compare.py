#!/usr/bin/env python3
"""Compares two programs, or two folders, byte for byte, and says where they differ: at which offset
first, and in which parts of the program.

usage: compare.py FIRST SECOND

Exit status 0: the bytes are the same; 1: they differ, or one side lacks a file.
"""
import pathlib
import struct
import sys

sys.dont_write_bytecode = True
import checks  # noqa: E402
import macho  # noqa: E402

SHOWN = 32  # So many bytes of each side are shown.


def parts(program):
    """(offset, size, name) of the parts of a program that stand in its file."""
    yield 0, 32, "header"
    for command, offset, size in program.places:
        yield offset, size, f"load command: {checks.NEEDED_COMMANDS.get(command, hex(command))}"
    for section in program.sections:
        if section.offset:
            yield section.offset, section.size, f"section {section.segment},{section.name}"
    if program.symbol_table:
        symbols, count, strings, size = program.symbol_table
        yield symbols, 16 * count, "symbol table"
        yield strings, size, "names of symbols, sources and object files"
    if program.signature:
        yield *program.signature, "signature"
    for segment in program.segments:
        yield segment.offset, segment.file_size, f"segment {segment.name}"


def known_parts(data):
    try:
        return sorted(parts(macho.Program(data)), key=lambda part: part[1])
    except (macho.FormatError, struct.error, ValueError):
        return []


def first_difference(first, second):
    shorter = min(len(first), len(second))
    return next((i for i in range(shorter) if first[i] != second[i]), shorter)


def differences(first, second):
    """Lines that say where two contents differ; none when they are the same."""
    if first == second:
        return []
    offset = first_difference(first, second)
    known = known_parts(first)
    place = next((name for start, size, name in known if start <= offset < start + size), None)
    lines = [f"first difference at offset {offset:#x}" + (f", in {place}" if place else "")]
    lines += [f"  {data[offset:offset + SHOWN]!r}" for data in (first, second)]
    if len(first) != len(second):
        lines.append(f"sizes {len(first)} and {len(second)}")
    unlike = []  # A part that holds another one of these is not said again.
    for start, size, name in known:
        if first[start:start + size] != second[start:start + size] and not any(
                start <= inner and inner + length <= start + size for inner, length, _ in unlike):
            unlike.append((start, size, name))
    return lines + [f"differs: {name}" for _, _, name in unlike]


def contents(path):
    """The bytes of a file by its name, or of all files in a folder by their names in it."""
    if path.is_file():
        return {"": path.read_bytes()}
    return {file.relative_to(path).as_posix(): file.read_bytes()
            for file in path.rglob("*") if file.is_file()}


def compared(first, second):
    """Lines about every file that differs or stands on one side only."""
    sides = contents(first), contents(second)
    for name in sorted(sides[0].keys() | sides[1].keys()):
        one, other = (side.get(name) for side in sides)
        if one is None or other is None:
            yield f"{name}: only in the {'second' if one is None else 'first'}"
        elif one != other:
            yield from (f"{name}: {line}" if name else line for line in differences(one, other))


def main(arguments):
    if arguments in (["-h"], ["--help"]):
        print(__doc__.strip())
        return 0
    if len(arguments) != 2:
        sys.exit(__doc__.strip())
    sides = [pathlib.Path(argument) for argument in arguments]
    for side in sides:
        if not side.exists():
            sys.exit(f"compare: {side} does not exist")
    lines = list(compared(*sides))
    for line in lines:
        print(line)
    return 1 if lines else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
