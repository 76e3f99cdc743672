"""What the Mac's program is made of and with: its imports, the stubs by which it calls them, what
the system's loader has to do for it, its sizes, its compiler and SDK."""
import pathlib
import re

from arm64_program import Program, Unusable, build_of, run

KINDS = ("memory", "kernel", "both", "message", "at-times", "neither", "data")
COUNTED = ("memory", "kernel", "both", "message")  # whose calls are told apart

STUB = re.compile(r"^(0x[0-9a-f]+) +\d+ (\S+)$", re.M)
FIXUP = re.compile(r"^(?P<segment>\S+) +(?P<section>\S+) +0x\S+ +0x\S+ +(?P<kind>bind|rebase)\b"
                   r"(?P<rest>.*)$", re.M)
LOOKED_UP = re.compile(r"^ +imports_count += (\d+)$", re.M)
POINTER_READ = re.compile(r"literal pool symbol address: (\S+)$", re.M)
PRODUCER = re.compile(r'DW_AT_producer\t\("(.*)"\)')
BUILT_FOR = re.compile(r"LC_BUILD_VERSION\n.*\n +platform macos\n +sdk (\S+)\n.*\n.*\n"
                       r" +tool (\S+)\n +version (\S+)")
FOUNDATION = re.compile(r"/Foundation \(offset \d+\)\n.*\n +current version (\S+)")


def read_kinds(text):
    """Symbol -> kind, of the file of imports."""
    kinds, current = {}, None
    for line in text.splitlines():
        words = line.split("#")[0].split()
        if words and not line[0].isspace():
            current = words.pop(0)
            if current not in KINDS:
                raise Unusable(f"a kind of import is not known: {current}")
        for name in words:
            if name in kinds:
                raise Unusable(f"the import has two kinds: {name}")
            kinds[name] = current
    return kinds


def plain(symbol):
    """The name of a symbol as C has it."""
    return symbol.removeprefix("_")


def faults_of(kinds, imports, past_stubs):
    """What is wrong with the kinds, as texts. The stubs count the calls of a function; so one whose
    calls matter must not be called by a pointer too."""
    return ([f"the program imports {name}, which has no kind" for name in sorted(imports - set(kinds))]
            + [f"{name} has a kind, and the program does not import it"
               for name in sorted(set(kinds) - imports)]
            + [f"the program has a pointer to {name}, past its stub: its calls cannot be counted"
               for name in sorted(past_stubs) if kinds.get(name) in COUNTED])


class Image:
    def __init__(self, path, kinds):
        self.program, self.kinds = Program(path), kinds
        listed = objdump(path, "--indirect-symbols").split("Indirect symbols for ")
        stubs = [part for part in listed if part.startswith("(__TEXT,__stubs)")]
        if len(stubs) != 1:
            raise Unusable(f"{path} has no table of stubs")
        self.stubs = {int(at, 16): plain(name) for at, name in STUB.findall(stubs[0])}
        self.imports = {plain(name) for name in run(
            ["llvm-nm-19", "--undefined-only", "--format=just-symbols", str(path)]).split()}
        fixups = [found.groupdict() for found in FIXUP.finditer(objdump(path, "--dyld-info"))]
        self.facts = self.sizes() | {
            "imports": len(self.imports),
            "symbols looked up": int(only(LOOKED_UP, objdump(path, "--chained-fixups"))[0]),
            "binds": sum(each["kind"] == "bind" for each in fixups),
            "rebases": sum(each["kind"] == "rebase" for each in fixups)}
        past_stubs = {plain(name) for name in POINTER_READ.findall(objdump(path, "--disassemble"))}
        past_stubs |= {plain(each["rest"].split()[2]) for each in fixups
                       if each["kind"] == "bind" and each["section"] != "__got"}
        self.faults = faults_of(kinds, self.imports, past_stubs)

    def sizes(self):
        sections = self.program.sections
        return {"bytes of instructions": sections["__TEXT", "__text"],
                "bytes of text": sum(size for (segment, _), size in sections.items()
                                     if segment == "__TEXT"),
                "bytes of data": sum(size for (segment, _), size in sections.items()
                                     if segment.startswith("__DATA"))}


def objdump(path, option):
    return run(["llvm-objdump-19", "--macho", option, str(path)])


def only(pattern, text):
    found = pattern.search(text)
    if not found:
        raise Unusable(f"llvm's tools do not say: {pattern.pattern}")
    return found.groups()


def tools(path):
    """What the program was made with, as it and the debug information of its objects say."""
    headers = objdump(path, "--private-headers")
    sdk, linker, version = only(BUILT_FOR, headers)
    folder = build_of(path)
    objects = {line.split(" OSO ", 1)[1].split("(")[0] for line in run(
        ["llvm-nm-19", "--debug-syms", "--no-sort", str(path)]).splitlines() if " OSO " in line}
    producers = set(PRODUCER.findall(run(
        ["llvm-dwarfdump-19", "--debug-info", "--recurse-depth=0",
         *(str(pathlib.Path(folder, name)) for name in sorted(objects))])))
    if not producers:
        raise Unusable(f"no object of {path} names its compiler")
    return {"compiler": ", ".join(sorted(producers)), "linker": f"{linker} {version}",
            "SDK": f"macOS {sdk}, Foundation {only(FOUNDATION, headers)[0]}"}
