#!/usr/bin/env python3
"""Checks that the documents' links and the paths in their code spans lead to files of the tree, links
with a `#` also to a heading, and that the list of changes begins with the project's version.

usage: check_links.py REPOSITORY
       check_links.py --self-test
"""
import pathlib
import re
import sys
import tempfile

LINK = re.compile(r"(?<!!)\[[^\]]*\]\(([^)\s]+)\)|!\[[^\]]*\]\(([^)\s]+)\)")
FOLDERS = "KorvelHelper|VirtualMac|TinMac|Tests|Packaging|Benchmarks|docs|script|cmake|\\.github|\\.ci"
# A path with a placeholder (NAME, …, *) stands for many.
SPAN = re.compile(rf"`((?:{FOLDERS})/[^`\s]*)`")
PLACEHOLDER = re.compile(r"\b[A-Z]{4,}\b|[…*<>{}|]")


def anchors_of(text):
    """The anchors that a reader on the web makes of the headings."""
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")
            for heading in re.findall(r"^#+ (.+)$", text, re.M)}


def findings(root, name):
    text = re.sub(r"^```.*?^```$", "", (root / name).read_text(encoding="utf-8"), flags=re.M | re.S)
    folder = (root / name).parent
    for match in LINK.finditer(text):
        target = match.group(1) or match.group(2)
        if re.match(r"\w+:", target):
            continue
        path, _, anchor = target.partition("#")
        leads = (folder / path).resolve() if path else root / name
        if not leads.exists():
            yield f"{name}: the link {target} leads nowhere"
        elif anchor and anchor not in anchors_of(leads.read_text(encoding="utf-8")):
            yield f"{name}: the link {target} names no heading"
    for path in SPAN.findall(text):
        if not PLACEHOLDER.search(path) and not (root / path).exists():
            yield f"{name}: there is no {path}"


def version_findings(root):
    version = re.search(r"project\(\w+ VERSION ([\d.]+)", (root / "CMakeLists.txt").read_text("utf-8"))
    newest = re.search(r"^## ([\d.]+)", (root / "CHANGELOG.md").read_text(encoding="utf-8"), re.M)
    if newest is None or newest.group(1) != version.group(1):
        yield f"CHANGELOG.md does not begin with version {version.group(1)}"


def documents(root):
    return [str(path.relative_to(root)) for path in
            (*sorted(root.glob("*.md")), *sorted((root / "docs").glob("**/*.md")))]


def self_test():
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        (root / "docs").mkdir()
        (root / "docs/a.md").write_text("# One two\n", encoding="utf-8")
        (root / "CMakeLists.txt").write_text("project(K VERSION 1.2.0)\n", encoding="utf-8")
        (root / "CHANGELOG.md").write_text("# Changes\n\n## 1.2.0\n", encoding="utf-8")
        good = "[x](docs/a.md) [y](docs/a.md#one-two) [z](https://a.b) `docs/a.md` `docs/NAME.md`\n"
        for text, word in [(good, None), ("[x](docs/b.md)", "leads nowhere"),
                           ("[x](docs/a.md#three)", "names no heading"), ("`docs/b.md`", "there is no")]:
            (root / "R.md").write_text(text, encoding="utf-8")
            found = list(findings(root, "R.md"))
            assert (not found) if word is None else any(word in line for line in found), (text, found)
        assert documents(root) == ["CHANGELOG.md", "R.md", "docs/a.md"]
        assert not list(version_findings(root))
        (root / "CHANGELOG.md").write_text("# Changes\n\n## 1.1.0\n", encoding="utf-8")
        assert list(version_findings(root))
    print("the check finds links and paths that lead nowhere, and a list of changes that is behind")


def main(arguments):
    if arguments == ["--self-test"]:
        return self_test()
    if len(arguments) != 1:
        sys.exit(__doc__)
    root = pathlib.Path(arguments[0]).resolve()
    names = documents(root)
    found = [line for name in names for line in findings(root, name)] + list(version_findings(root))
    for line in found:
        print(line)
    if found:
        sys.exit(f"{len(found)} findings in the documents' links")
    print(f"{len(names)} documents: every link and path leads somewhere")


if __name__ == "__main__":
    main(sys.argv[1:])
