#!/usr/bin/env python3
"""Compares docs/client.md with the sources: the methods with their arguments and replies, the errors with
their codes and texts, and the fields of both records.

usage: check_client.py REPOSITORY
       check_client.py --self-test
"""
import pathlib
import re
import sys

ARGUMENTS = {"None": "none", "UInt8": "`uint8_t`", "Boolean": "`BOOL`"}
ANSWERS = {"Pid": "`uint64_t`", "Data": "`NSData`", "Outcome": "yes", "None": "none: one-way"}
OPERATION = re.compile(r'^OPERATION\((\w+), "([\w:]+)", (\w+),\s+(\w+), "([\w-]+)"\)', re.M)
LITERAL = re.compile(r'"((?:[^"\\]|\\.)*)"')
# A piece of a text that is no literal, and what stands for it in the document.
PIECE = re.compile(r'"(?:[^"\\]|\\.)*"|(?P<N>std::to_string\((?:[^()]|\([^()]*\))*\))|(?P<KEY>\w+\.key)'
                   r'|(?P<TEXT>[\w.:<>()]+(?:\.|->)(?:message|text))')


def rows_in(document, heading):
    """The cells of the rows of the first table below a heading."""
    section = document.split(f"\n## {heading}\n", 1)[-1].split("\n## ", 1)[0]
    rows = [re.split(r" *(?<!\\)\| *", line.strip("| ")) for line in section.splitlines()
            if line.startswith("|")]
    return rows[2:]


def text_of(expression):
    """A text as the document writes it, of the expression that makes it."""
    pieces = []
    for match in PIECE.finditer(expression):
        literal = LITERAL.fullmatch(match.group())
        pieces.append(literal.group(1) if literal else match.lastgroup)
    return "".join(pieces)


def errors_in(sources, codes):
    """{(code, text)} of everything that can stand in an error."""
    found = set()
    for name, source in sources.items():
        for code, expression in re.findall(
                r'makeError\(KorvelHelperError::(\w+),\s*(".*?)\)?\);', source, re.S):
            found.add((codes[code], text_of(expression)))
        if name == "SMCWriter.cpp":
            of_case = dict(re.findall(r"WriterError::(\w+)& /\*failure\*/\) const \{\s+return "
                                      r"KorvelHelperError::(\w+);", source))
            for case, expression in re.findall(
                    r'WriterError::(\w+)&[^)]*\) const \{\s+return (".*?);', source, re.S):
                found.add((codes[of_case.get(case, "codeSMCWriteFailed")], text_of(expression)))
        if name == "PowerUIChargeBackend.cpp":
            body = source.split("BackendError::description", 1)[-1].split("\n}", 1)[0]
            found |= {(codes["codeSMCWriteFailed"], text_of(expression))
                      for expression in re.findall(r'return (".*?);', body, re.S)}
    return found


def compare(kind, documented, known):
    for item in sorted(known - documented):
        yield f"{kind}: not in the document: {item}"
    for item in sorted(documented - known):
        yield f"{kind}: only in the document: {item}"


def method_findings(document, table):
    known = [(selector, word, ARGUMENTS[argument], ANSWERS[answer])
             for _, selector, argument, answer, word in OPERATION.findall(table)]
    rows = [(row[0].strip("`"), row[1].strip("`"), row[2], row[3])
            for row in rows_in(document, "The methods")]
    if len(known) != len(rows) or not known:
        yield f"methods: {len(known)} in the source, {len(rows)} in the document"
    for wanted, row in zip(known, rows):
        fits = wanted[:2] == row[:2] and row[2].startswith(wanted[2]) and row[3].startswith(wanted[3])
        if not fits:
            yield f"methods: the document has {row}, the source {wanted}"


def field_findings(document, source):
    state, capabilities = source.split("std::string encodeReply(const HelperCapabilities", 1)
    required = set(re.findall(r'fields\.required\("(\w+)"', source))
    for heading, text in [("The record", state.split("// ---- Reading", 1)[0]),
                          ("The capabilities", capabilities.split("std::string encodeFile", 1)[0])]:
        known = re.findall(r'\{"(\w+)",', text)
        rows = rows_in(document, heading)
        names = [row[0].strip("`") for row in rows]
        if sorted(known) != sorted(names) or not known:
            yield f"{heading}: the source has {known}, the document {names}"
        for row in rows if heading == "The record" else []:
            if (row[2] == "never") != (row[0].strip("`") in required):
                yield f"{heading}: {row[0]} is absent: {row[2]}?"


def findings(document, table, header, sources):
    codes = dict(re.findall(r"constexpr std::int64_t (code\w+) = (\d+);", header))
    yield from method_findings(document, table)
    rows = [(row[0], row[1].strip("`")) for row in rows_in(document, "Errors")]
    yield from compare("errors", {row for row in rows if row[1]}, errors_in(sources, codes))
    yield from compare("codes", {code for code, _ in rows}, set(codes.values()))
    yield from field_findings(document, sources["HelperRecords.cpp"])


def self_test():
    table = 'OPERATION(ping, "pingWithReply:", None, Pid, "ping")\n'
    header = "inline constexpr std::int64_t codeA = 400;\nconstexpr std::int64_t codeSMCWriteFailed = 500;"
    sources = {"A.cpp": 'reply(makeError(KorvelHelperError::codeA,\n "got " + std::to_string(*n) +\n "."));',
               "SMCWriter.cpp": 'operator()(const WriterError::X& failure) const {\n  return "key " '
                                '+ failure.key;\n}',
               "HelperRecords.cpp": '{"limit", x}, {"why", y}\n// ---- Reading\nfields.required("limit", \n'
                                    'std::string encodeReply(const HelperCapabilities& c) {{"new", z}}\n'
                                    "std::string encodeFile("}
    good = ("\n## The methods\n| a |\n|---|\n| `pingWithReply:` | `ping` | none | `uint64_t`, x | y |\n"
            "\n## Errors\n| a |\n|---|\n| 400 | `got N.` | x |\n| 500 | `key KEY` | x |\n"
            "\n## The record\n| a |\n|---|\n| `limit` | integer | never | x |\n| `why` | text | at times | y |\n"
            "\n## The capabilities\n| a |\n|---|\n| `new` | x |\n")
    assert not list(findings(good, table, header, sources)), list(findings(good, table, header, sources))
    for old, new, word in [("pingWithReply:", "pongWithReply:", "methods: the document has"),
                           ("none |", "`BOOL` |", "methods: the document has"),
                           ("got N.", "got N", "errors: not in the document: ('400', 'got N.')"),
                           ("| 500 |", "| 501 |", "codes: only in the document: 501"),
                           ("`why`", "`whence`", "The record: the source has"),
                           ("at times", "never", "is absent: never?"), ("`new`", "`old`", "The capabilities:")]:
        assert any(word in line for line in findings(good.replace(old, new), table, header, sources)), word
    print("the check finds methods, errors and fields that differ")


def main(arguments):
    if arguments == ["--self-test"]:
        return self_test()
    if len(arguments) != 1:
        sys.exit(__doc__)
    helper = pathlib.Path(arguments[0]) / "KorvelHelper"
    sources = {path.name: path.read_text(encoding="utf-8") for path in sorted(helper.glob("*.cpp"))}
    document = (helper.parent / "docs/client.md").read_text(encoding="utf-8")
    found = list(findings(document, (helper / "Operations.def").read_text(encoding="utf-8"),
                          (helper / "KorvelHelperProtocol.h").read_text(encoding="utf-8"), sources))
    for line in found:
        print(line)
    if found:
        sys.exit(f"{len(found)} differences between docs/client.md and the sources")
    print("methods, errors and fields of docs/client.md are those of the sources")


if __name__ == "__main__":
    main(sys.argv[1:])
