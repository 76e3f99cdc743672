"""What must be true of a folder that script/macos-release wrote: the program, its bill of
materials, the checksums, and that nothing tells of the machine that built it. A folder is given as
the contents of its files by their names."""
import functools
import json
import plistlib
import re

import bill
import macho

BILL, SUMS = f"{bill.PROGRAM_NAME}.spdx.json", "SHA256SUMS"
LICENCES = "third-party-licences.txt"
DEBUG_SYMBOLS = f"{bill.PROGRAM_NAME}.dSYM/"
LIBRARY_LICENCE = "MIT"
NEEDED_TOOLS = ("clang", "lld", "cmake", "macOS SDK")

DOCUMENT_FORMS = {
    "spdxVersion": r"SPDX-2\.3", "dataLicense": r"CC0-1\.0", "SPDXID": bill.DOCUMENT,
    "name": r".+", "documentNamespace": r"[a-z]+:[^#\s]+",
}
CREATED = r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ"
NAME_FORM = r"SPDXRef-[A-Za-z0-9.-]+"
LICENCE_FORM = r"NOASSERTION|NONE|[A-Za-z0-9][A-Za-z0-9.+() -]*"
PACKAGE_FORMS = {
    "SPDXID": NAME_FORM, "name": r".+", "licenseConcluded": LICENCE_FORM,
    "licenseDeclared": LICENCE_FORM, "copyrightText": r"(?s).+",
    "supplier": r"NOASSERTION|(Person|Organization): .+",
    "downloadLocation": r"NOASSERTION|NONE|(git\+)?https://\S+",
}
FILE_FORMS = {
    "SPDXID": NAME_FORM, "fileName": r"\./[^/].*", "licenseConcluded": LICENCE_FORM,
    "copyrightText": r"(?s).+",
}
SUM_FORMS = {"SHA1": r"[0-9a-f]{40}", "SHA256": r"[0-9a-f]{64}"}

# Paths that the program needs on a Mac, and the neutral names of cmake/macos/Reproducible.cmake.
KNOWN_PLACES = (b"/System/Library/", b"/usr/lib/dyld", b"/usr/lib/lib", b"/korvel/", b"/sdk/",
                b"/compiler/", b"/Library/Application Support/com.korvel.app.helper")
PATH = re.compile(rb"(?<![\w.)\]:/-])/(?:[A-Za-z0-9_.@+][A-Za-z0-9_.@+ -]+/)+[A-Za-z0-9_.@+-]*")

# Such a path gives a machine away whatever stands before it.
HOMES = re.compile(rb"/(?:home|Users|root|tmp|private|opt|mnt|var)/[\w./+@-]*")


def misfits(entry, forms, of):
    for key, form in forms.items():
        value = entry.get(key)
        if not isinstance(value, str) or not re.fullmatch(form, value):
            yield f"{of}: {key} is {value!r}"


def named(entries, identifier):
    return next((entry for entry in entries if entry.get("SPDXID") == identifier), {})


def contained(document, owner):
    """The files that the document says a package contains."""
    wanted = {r.get("relatedSpdxElement") for r in document["relationships"]
              if (r.get("spdxElementId"), r.get("relationshipType")) == (owner, "CONTAINS")}
    return [file for file in document["files"] if file.get("SPDXID") in wanted]


def check_document(document):
    yield from misfits(document, DOCUMENT_FORMS, "document")
    creation = document.get("creationInfo", {})
    yield from misfits(creation, {"created": CREATED}, "creationInfo")
    if not any(re.fullmatch(r"(Tool|Person|Organization): .+", c)
               for c in creation.get("creators", ())):
        yield "creationInfo: names no creator"
    if document.get("documentNamespace") != bill.namespace(document):
        yield ("documentNamespace is not the one of this content: the bill was changed after it "
               "was made")


def check_entries(document):
    for entry in document["packages"]:
        of = f"package {entry.get('name')}"
        yield from misfits(entry, PACKAGE_FORMS, of)
        files = contained(document, entry.get("SPDXID"))
        if bool(files) != entry.get("filesAnalyzed"):
            yield (f"{of}: filesAnalyzed is {entry.get('filesAnalyzed')}, and it has {len(files)} "
                   f"files")
        code = entry.get("packageVerificationCode", {}).get("packageVerificationCodeValue")
        if files and code != bill.verification_code(files):
            yield f"{of}: the verification code is not that of its files"
    for entry in document["files"]:
        of = f"file {entry.get('fileName')}"
        yield from misfits(entry, FILE_FORMS, of)
        yield from misfits({name: bill.checksum(entry, name) for name in SUM_FORMS}, SUM_FORMS, of)


def check_relationships(document):
    entries = [document, *document["packages"], *document["files"]]
    names = [entry.get("SPDXID") for entry in entries]
    for name in sorted({name for name in names if names.count(name) > 1}, key=str):
        yield f"{name} names two things"
    related = {(r.get("spdxElementId"), r.get("relationshipType"), r.get("relatedSpdxElement"))
               for r in document["relationships"]}
    for one, kind, other in sorted(related, key=str):
        for end in (one, other):
            if end not in names:
                yield f"{one} {kind} {other}: there is no {end}"
    for wanted in ((bill.DOCUMENT, "DESCRIBES", bill.HELPER),
                   (bill.HELPER, "DEPENDS_ON", bill.LIBRARY)):
        if wanted not in related:
            yield f"does not say: {' '.join(wanted)}"
    ends = {end for one, _, other in related for end in (one, other)}
    for name in names:
        if name not in ends:
            yield f"{name} is related to nothing"


def check_helper(document, program):
    files = contained(document, bill.HELPER)
    if [file.get("fileName") for file in files] != [f"./{bill.PROGRAM_NAME}"]:
        yield f"the helper contains {[file.get('fileName') for file in files]}"
        return
    for algorithm in SUM_FORMS:
        if bill.checksum(files[0], algorithm) != bill.digest(algorithm.lower(), program):
            yield f"{bill.PROGRAM_NAME}: the {algorithm} is not that of the program"
    entry = named(document["packages"], bill.HELPER)
    try:
        values = plistlib.loads(macho.Program(program).section("__TEXT", "__info_plist") or b"")
    except Exception as error:  # plistlib raises many kinds, and each says the same here.
        yield f"the program's version cannot be read: {error}"
        return
    if entry.get("versionInfo") != values.get("CFBundleShortVersionString"):
        yield (f"the helper's version is {entry.get('versionInfo')}, the program says "
               f"{values.get('CFBundleShortVersionString')}")
    if not re.fullmatch(r"built from commit [0-9a-f]{40}", entry.get("sourceInfo", "")):
        yield f"the helper's sourceInfo names no commit: {entry.get('sourceInfo')!r}"


def check_library(document, headers):
    """`headers` are the library's own headers by their names; empty when there are none to compare
    with."""
    entry = named(document["packages"], bill.LIBRARY)
    version = entry.get("versionInfo")
    if not re.fullmatch(r"\d+\.\d+\.\d+", version or ""):
        yield f"the library's version is {version!r}"
    for key, wanted in (("supplier", bill.LIBRARY_SUPPLIER), ("licenseConcluded", LIBRARY_LICENCE),
                        ("licenseDeclared", LIBRARY_LICENCE),
                        ("downloadLocation", f"git+{bill.LIBRARY_HOME}.git@v{version}")):
        if entry.get(key) != wanted:
            yield f"the library's {key} is {entry.get(key)!r}, not {wanted!r}"
    locators = [r.get("referenceLocator") for r in entry.get("externalRefs", ())]
    if locators != [f"pkg:github/nlohmann/json@v{version}"]:
        yield f"the library is referred to as {locators}"
    files = {file.get("fileName", "").removeprefix("./include/"): file
             for file in contained(document, bill.LIBRARY)}
    if f"{bill.LIBRARY_FOLDER}/json.hpp" not in files:
        yield "the library contains no nlohmann/json.hpp"
    for name, file in files.items() if headers else ():
        if name not in headers:
            yield f"{name} is not among the headers to compare with"
        elif bill.checksum(file, "SHA256") != bill.digest("sha256", headers[name]):
            yield f"{name}: the SHA256 is not that of the header"


def check_licences(document, text):
    """The library's licence wants its own text and the owners' notices to come with the program."""
    owners = named(document["packages"], bill.LIBRARY).get("copyrightText", "").split("\n")
    for words in (*owners, "Permission is hereby granted, free of charge"):
        if words not in text:
            yield f"{LICENCES} lacks: {words}"


def check_tools(document):
    wanted = ("BUILD_TOOL_OF", bill.HELPER)
    tools = {r.get("spdxElementId") for r in document["relationships"]
             if (r.get("relationshipType"), r.get("relatedSpdxElement")) == wanted}
    found = [entry for entry in document["packages"] if entry.get("SPDXID") in tools]
    for name in NEEDED_TOOLS:
        entry = next((entry for entry in found if entry.get("name") == name), None)
        if entry is None:
            yield f"{name} is not among the tools"
        elif not (entry.get("versionInfo")
                  or re.search(r"[0-9a-f]{64}", entry.get("comment", ""))):
            yield f"{name} has neither a version nor a checksum"


@functools.cache
def strange_paths(data):
    """The paths in a file that only its builder's machine can have; debug symbols are long, and a
    self-test asks for the same ones every time."""
    found = {path for path in PATH.findall(data) if not path.startswith(KNOWN_PLACES)}
    found |= {path for path in HOMES.findall(data) if not any(path in whole for whole in found)}
    return sorted(found)


def check_places(contents, forbidden):
    """Paths of the machine that built it; `forbidden` are words that no file may hold."""
    for name, data in sorted(contents.items()):
        for path in strange_paths(data):
            yield f"{name}: holds the path {path.decode()}"
        for word in forbidden:
            if word.encode() in data:
                yield f"{name}: holds {word}"


def check_sums(contents):
    listed = {}
    for line in contents.get(SUMS, b"").decode().splitlines():
        value, _, name = line.partition("  ")
        if not re.fullmatch(SUM_FORMS["SHA256"], value) or name in listed:
            yield f"{SUMS}: cannot be used: {line}"
        listed[name] = value
    for name in sorted(listed.keys() | contents.keys() - {SUMS}):
        if name not in listed:
            yield f"{SUMS}: does not list {name}"
        elif name not in contents:
            yield f"{SUMS}: lists {name}, which is not there"
        elif listed[name] != bill.digest("sha256", contents[name]):
            yield f"{SUMS}: the checksum of {name} is another"


def run(contents, headers=None, forbidden=()):
    """(what is checked, findings) of every check."""
    missing = [name for name in (bill.PROGRAM_NAME, BILL, LICENCES, SUMS) if name not in contents]
    yield "program, bill, licences and checksums are there", [f"{name} is missing" for name in missing]
    if missing:
        return
    try:
        document = json.loads(contents[BILL])
        for key in ("packages", "files", "relationships"):
            document[key] = list(document[key])
    except (ValueError, KeyError, TypeError) as error:
        yield "the bill is an SPDX document", [f"cannot be read: {error!r}"]
        return
    program = contents[bill.PROGRAM_NAME]
    yield "the bill is an SPDX 2.3 document, unchanged", list(check_document(document))
    yield "every package and file is described, with its checksums", list(check_entries(document))
    yield "everything is named once and related", list(check_relationships(document))
    yield "the helper: version, commit and checksums of this program", list(
        check_helper(document, program))
    yield "the library: version, supplier, licence, origin and headers", list(
        check_library(document, headers or {}))
    yield "the library's licence and owners", list(
        check_licences(document, contents[LICENCES].decode()))
    yield "the tools that built it", list(check_tools(document))
    yield "no path of the machine that built it", list(check_places(contents, forbidden))
    yield "SHA256SUMS lists every file as it is", list(check_sums(contents))
