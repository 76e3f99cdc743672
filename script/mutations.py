"""The single changes that can be made to the core's sources, for script/mutants.py."""
import collections
import dataclasses
import re

import tree

# A token becomes one of these.
SWAPS = {"<": ("<=",), "<=": ("<",), ">": (">=",), ">=": (">",), "==": ("!=",), "!=": ("==",),
         "&&": ("||",), "||": ("&&",), "true": ("false",), "false": ("true",), "+": ("-",),
         "-": ("+",), "+=": ("-=",), "-=": ("+=",), "*": ("/",), "/": ("*",), "++": ("--",),
         "--": ("++",)}
# Spaces tell an operator from a bracket of a template, a reference or a pointer.
TOKEN = re.compile(r"(?<= )(?:<=|>=|==|!=|&&|\|\||\+=|-=|<|>|\+|-|\*|/)(?= )|\b(?:true|false)\b|\+\+|--")
NUMBER = re.compile(r"(?<![\w.'])(?:0[xX][0-9a-fA-F]+|\d[\d']*(?:\.\d+)?)(?![\w.'])")
NEGATION = re.compile(r"(?<![\w)\]!])!(?=[\w(])")
CONDITION = re.compile(r"\bif \(((?:[^();]|\((?:[^()]|\([^()]*\))*\))+)\)")
STATEMENT = re.compile(r"^ +(?!return\b|using\b|const\b|auto\b|static|constexpr|case\b|default\b|else\b|throw\b|break\b"
                       r"|continue\b|if\b|for\b|while\b|do\b|switch\b)[\w:.>\-\[\]*]+(?:\([^{}]*\)| [+\-]?= [^{}]*);$")
LEVEL = re.compile(r"\.(log|error|fault)\(")
LEVELS = {"log": "error", "error": "fault", "fault": "error"}
TEXT = re.compile(r'"[^"\n]+"')
# Code like this only asserts what always holds, saves time, speaks to the compiler, or does nothing on
# these systems.
LEFT_ALONE = re.compile(r"\bassertCurrent\(|\btrap\(|\.reserve\(|\bva_end\(|\) (?:const )?= 0;"
                        r"|\b(?:REQUIRES|EXCLUDES|ACQUIRE|RELEASE|GUARDED_BY|CAPABILITY)\(")


@dataclasses.dataclass(frozen=True)
class Mutant:
    file: str
    start: int
    end: int
    new: str
    kind: str
    line: int
    where: str  # The line, and which of its like in the file.
    old: str

    @property
    def name(self):
        return f"{self.file}: {self.kind} `{self.old}` -> `{self.new}` in `{self.where}`"


def changes(code, plain):
    """(start, end, new, kind) of everything that may be changed. `plain` is the code without comments
    and the insides of texts, at the same offsets."""
    for found in TOKEN.finditer(plain):
        for new in SWAPS[found[0]]:
            yield *found.span(), new, "operator" if not new.isalpha() else "truth value"
    for found in NUMBER.finditer(plain):
        old = found[0].replace("'", "")
        if old.lower().startswith("0x"):
            yield *found.span(), hex(int(old, 16) ^ 1), "number"
        else:
            yield *found.span(), str(float(old) + 1 if "." in old else int(old) + 1), "number"
    for found in NEGATION.finditer(plain):
        yield *found.span(), "", "negation"
    for found in CONDITION.finditer(plain):
        yield *found.span(1), f"!({code[slice(*found.span(1))]})", "condition"
    for found in LEVEL.finditer(plain):
        yield *found.span(1), LEVELS[found[1]], "level"
    for found in TEXT.finditer(plain):
        if code[found.start() + 1] != "\\" and not code[:found.start()].endswith("#include "):
            yield found.start() + 1, found.start() + 2, "~", "text"
    yield from changed_statements(code, plain)


def changed_statements(code, plain):
    start, last = 0, None
    for line in plain.splitlines(keepends=True):
        text, end = line.rstrip("\n"), start + len(line)
        here = (start, start + len(text)) if STATEMENT.match(text) else None
        if here:
            indent = len(text) - len(text.lstrip())
            yield start + indent, here[1], ";", "statement"
            both = code[slice(*last)] + code[slice(*here)] if last else ""
            # Two plain assignments are one, in whatever order.
            if last and (both.count(" = ") < 2 or "(" in both):
                swapped = code[slice(*here)] + code[last[1]:here[0]] + code[slice(*last)]
                yield last[0], here[1], swapped, "neighbours"
        start, last = end, here


def sources(root):
    """The core's sources, and the headers that one of them, or another header, includes."""
    core = [file for file in tree.files(root, (".cpp", ".h"))
            if file.startswith("KorvelHelper/") and not file.startswith("KorvelHelper/macOS/")]
    included = {f"KorvelHelper/{each}" for file in core
                for each in re.findall(r'#include "(.*?)"', tree.read(root, file))}
    return [file for file in core if file.endswith(".cpp") or file in included]


def candidates(root):
    found = []
    for file in sources(root):
        code = tree.read(root, file)
        seen = collections.Counter()
        for start, end, new, kind in sorted(changes(code, tree.blanked(code))):
            line = tree.line_of(code, start)
            text = code.splitlines()[line - 1].strip()
            if LEFT_ALONE.search(text):
                continue
            old = code[start:end].strip() if kind != "neighbours" else "both"
            key = (kind, old, text)
            seen[key] += 1
            where = text + (f" ({seen[key]})" if seen[key] > 1 else "")
            shown = new if kind != "neighbours" else "swapped"
            found.append((Mutant(file, start, end, shown, kind, line, where, old), new))
    return found
