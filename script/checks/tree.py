"""What the checks of the tree share: its C++ files, their code without comments and literals, and
how findings are reported."""
import contextlib
import json
import pathlib
import re
import sys
import tempfile

SCRIPT_FOLDERS = (".ci", "cmake", "script")
TOP_FOLDERS = ("KorvelHelper", "VirtualMac", "TinMac", "Tests", "Benchmarks", "Packaging")
SOURCES = (".cpp", ".mm", ".cc", ".m")
HEADERS = (".h", ".hpp", ".def")
THIRD_PARTY = ("VirtualMac/Viewer/lib/", "Tests/viewer/lib/")
# A quote after a digit is a digit separator and begins no character.
LITERAL_OR_COMMENT = re.compile(
    r'R"(?P<mark>[^()\\ ]{0,16})\(.*?\)(?P=mark)"'
    r'|"(?:[^"\\\n]|\\.)*"'
    r"|(?<![0-9a-fA-F])'(?:[^'\\\n]|\\.)+'"
    r"|//[^\n]*"
    r"|/\*.*?\*/",
    re.S)


def files(root, suffixes=SOURCES + HEADERS):
    """Paths of the tree's own files with one of these endings, C++ by default, relative to `root`,
    sorted."""
    found = []
    for folder in TOP_FOLDERS:
        for path in (root / folder).rglob("*"):
            if path.suffix in suffixes and path.is_file():
                found.append(path.relative_to(root).as_posix())
    return sorted(name for name in found if not name.startswith(THIRD_PARTY))


def scripts(root):
    """Paths of the Python and shell files, told by their ending or their first line, and which of
    the two: pairs (name, "python" or "shell"), sorted."""
    found = []
    for folder in TOP_FOLDERS + SCRIPT_FOLDERS:
        for path in (root / folder).rglob("*"):
            if not path.is_file() or path.suffix not in (".py", ".sh", ""):
                continue
            with path.open("rb") as file:
                first = file.readline() if path.suffix == "" else b"#! " + path.suffix.encode()
            kind = re.match(rb"#!.*(python|\.py|\b(?:ba)?sh\b|\.sh)", first)
            if kind:
                found.append((path.relative_to(root).as_posix(),
                              "python" if b"py" in kind.group(1) else "shell"))
    return sorted(found)


def read(root, name):
    return (root / name).read_text(encoding="utf-8")


def commands(build):
    """The build's commands, one for each source, also of those that are compiled several at once."""
    for command in json.loads((build / "compile_commands.json").read_text(encoding="utf-8")):
        whole = pathlib.Path(command["directory"], command["file"]).resolve()
        if whole.parent.name != "Unity":
            yield command | {"file": str(whole)}
            continue
        for source in re.findall(r'^#include "(.*)"$', whole.read_text(encoding="utf-8"), re.M):
            yield command | {"file": source,
                             "command": command["command"].replace(str(whole), source)}


def blanked(text):
    """The text with comments and the insides of literals blanked; lines keep their numbers."""
    def blank(match):
        whole = match.group(0)
        kept = re.sub(r"[^\n]", " ", whole)
        return kept if whole.startswith("/") else '"' + kept[1:-1] + '"'
    return LITERAL_OR_COMMENT.sub(blank, text)


def line_of(text, offset):
    return text.count("\n", 0, offset) + 1


def includes(text):
    """(line, name, angled) of every include directive."""
    for number, line in enumerate(text.splitlines(), 1):
        match = re.match(r'\s*#\s*(?:include|import)\s*(?:"([^"]+)"|<([^>]+)>)', line)
        if match:
            yield number, match.group(1) or match.group(2), match.group(2) is not None


@contextlib.contextmanager
def made_of(contents):
    """A temporary tree with the given files, for self-tests."""
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        for name, text in contents.items():
            path = root / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text, encoding="utf-8")
        yield root


def expect(check, contents, *words):
    """Self-test: `check` of a tree gives exactly one finding for each of `words`, in order."""
    with made_of(contents) as root:
        found = check(root)
    missing = len(found) != len(words) or any(w not in f for w, f in zip(words, found))
    if missing:
        sys.exit("self-test: expected findings with " + repr(list(words)) + ", got:\n  "
                 + "\n  ".join(found or ["none"]))


def report(found, checked, kind, summary):
    """Prints findings and ends with status 1 when there are any, or when nothing was checked."""
    for line in found:
        print(line)
    if checked == 0:
        sys.exit(f"no {kind} found: nothing was checked")
    if found:
        sys.exit(f"{len(found)} findings in {checked} {kind}")
    print(f"{checked} {kind}: {summary}")


def run(document, self_test, check, kind, summary, count):
    """The command line of a check: ROOT, or --self-test."""
    arguments = sys.argv[1:]
    if arguments == ["--self-test"]:
        self_test()
        print("the check passes a clean tree and finds each kind of defect")
    elif len(arguments) == 1 and not arguments[0].startswith("-"):
        root = pathlib.Path(arguments[0]).resolve()
        report(check(root), count(root), kind, summary)
    else:
        sys.exit(document.strip())
