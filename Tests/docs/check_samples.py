#!/usr/bin/env python3
"""Compares the code that documents show with the samples from which it is cut. In a document a comment
before a block of code says `<!-- from FILE: NAME -->`; in the file that part begins after the comment
`docs/… shows this as "NAME".` and ends before `docs/… shows up to here.`

usage: check_samples.py REPOSITORY [--write]     --write puts the samples' code into the documents
       check_samples.py --self-test
"""
import pathlib
import re
import sys
import tempfile

SHOWN = re.compile(r"^<!-- from (\S+): ([^\n]+) -->\n```(\w+)\n(.*?)^```$", re.M | re.S)
BEGIN = re.compile(r'^.*\b(docs/\S+\.md) shows this as "(.+)"\.$')
END = re.compile(r"^.*\b(docs/\S+\.md) shows up to here\.$")
SAMPLES = "Packaging/samples"
# Blocks in these languages are cut from a sample; a document must not have others of them.
LANGUAGES = {"cpp": ".cpp", "objc": ".m", "swift": ".swift", "python": ".py"}


def parts_of(text):
    """{(document, name): code} of a sample."""
    parts, name, lines = {}, None, []
    for line in text.splitlines():
        begin, end = BEGIN.match(line), END.match(line)
        if begin:
            name, lines = begin.groups(), []
        elif end and name is not None:
            parts[name] = "\n".join(lines).strip("\n") + "\n"
            name = None
        elif name is not None:
            lines.append(line)
    return parts


def samples_of(root):
    """{(document, file, name): code} of all samples."""
    return {(document, str(path.relative_to(root)), name): code
            for path in sorted((root / SAMPLES).rglob("*")) if path.suffix in LANGUAGES.values()
            for (document, name), code in parts_of(path.read_text(encoding="utf-8")).items()}


def written(document, text, samples):
    """The document's text with the samples' code in it."""
    def block(match):
        file, name, language, shown = match.groups()
        code = samples.get((document, file, name), shown)
        return f"<!-- from {file}: {name} -->\n```{language}\n{code}```"
    return SHOWN.sub(block, text)


def findings(document, text, samples):
    blocks = SHOWN.findall(text)
    for file, name, _, shown in blocks:
        code = samples.get((document, file, name))
        if code is None:
            yield f"{document}: {file} has no part \"{name}\""
        elif code != shown:
            yield f"{document}: \"{name}\" is not what {file} has (--write puts it there)"
    of_no_sample = len(re.findall(r"^```(?:" + "|".join(LANGUAGES) + ")$", text, re.M)) - len(blocks)
    if of_no_sample:
        yield f"{document}: {of_no_sample} blocks of code are from no sample"
    named = {(file, name) for file, name, _, _ in blocks}
    for owner, file, name in samples:
        if owner == document and (file, name) not in named:
            yield f"{document}: does not show \"{name}\" of {file}"


def self_test():
    sample = ('int a;\n// docs/d.md shows this as "One".\n\nint b;\n\n  int c;\n\n'
              "// docs/d.md shows up to here.\nint d;\n")
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        (root / SAMPLES / "cpp").mkdir(parents=True)
        (root / SAMPLES / "cpp/a.cpp").write_text(sample, encoding="utf-8")
        samples = samples_of(root)
    assert list(samples.values()) == ["int b;\n\n  int c;\n"], samples
    head = "x\n\n<!-- from Packaging/samples/cpp/a.cpp: One -->\n"
    good = head + "```cpp\nint b;\n\n  int c;\n```\n"
    assert not list(findings("docs/d.md", good, samples))
    assert written("docs/d.md", head + "```cpp\n```\n", samples) == good
    for bad, word in [(good.replace("int b", "int x"), "is not what"),
                      (good.replace("One", "Two"), 'no part "Two"'),
                      (good + "```cpp\nint e;\n```\n", "1 blocks of code are from no sample"),
                      ("nothing\n", 'does not show "One"')]:
        assert any(word in line for line in findings("docs/d.md", bad, samples)), word
    print("the check finds code that no sample has, and parts of samples that nobody shows")


def main(arguments):
    if arguments == ["--self-test"]:
        return self_test()
    if len(arguments) not in (1, 2) or arguments[1:] not in ([], ["--write"]):
        sys.exit(__doc__)
    root = pathlib.Path(arguments[0])
    samples = samples_of(root)
    found = []
    for document in sorted({document for document, _, _ in samples}):
        path = root / document
        text = path.read_text(encoding="utf-8")
        if arguments[1:]:
            text = written(document, text, samples)
            path.write_text(text, encoding="utf-8")
        found += findings(document, text, samples)
    for line in found:
        print(line)
    if found or not samples:
        sys.exit(f"{len(found)} findings in the code of the documents")
    print(f"{len(samples)} pieces of code in the documents, each as its sample has it")


if __name__ == "__main__":
    main(sys.argv[1:])
