"""Proof that a release's checks can fail: copies of a good folder, each spoiled in one thing."""
import json

import bill
import bill_checks

MAN = b"/home/somebody/KorvelHelper/main.cpp"


def edited(change, sealed=True):
    """A case that changes the document; `sealed` gives it the name of its new content, as a maker
    who was wrong from the start would have."""
    def spoil(contents):
        document = json.loads(contents[bill_checks.BILL])
        change(document)
        if sealed:
            document["documentNamespace"] = bill.namespace(document)
        return contents | {bill_checks.BILL: json.dumps(document).encode()}
    return spoil


def set_in(place, key, value):
    """A case that sets, or with None removes, a field of the entry that `place` finds."""
    def change(document):
        entry = place(document)
        if value is None:
            del entry[key]
        else:
            entry[key] = value
    return edited(change)


def entry(kind, identifier):
    return lambda document: bill_checks.named(document[kind], identifier)


def first_header(document):
    return bill_checks.contained(document, bill.LIBRARY)[0]


def without_related(kind):
    """A case that takes away the first relationship of a kind."""
    def change(document):
        places = [r["relationshipType"] for r in document["relationships"]]
        del document["relationships"][places.index(kind)]
    return edited(change)


def wrong_sum(place, algorithm):
    def change(document):
        for value in place(document)["checksums"]:
            if value["algorithm"] == algorithm:
                value["checksumValue"] = "0" * len(value["checksumValue"])
    return edited(change)


def without_tool(name):
    def change(document):
        gone = next(p["SPDXID"] for p in document["packages"] if p["name"] == name)
        document["packages"] = [p for p in document["packages"] if p["SPDXID"] != gone]
        document["relationships"] = [r for r in document["relationships"]
                                     if r["spdxElementId"] != gone]
    return edited(change)


def put(name, change):
    """A case that changes one file's bytes."""
    return lambda contents: contents | {name: change(contents[name])}


def without(name):
    return lambda contents: {key: value for key, value in contents.items() if key != name}


HELPER, LIBRARY = entry("packages", bill.HELPER), entry("packages", bill.LIBRARY)
PROGRAM = entry("files", f"{bill.IDENTIFIER}File-{bill.PROGRAM_NAME}")
WHOLE = lambda document: document  # noqa: E731

# Each case has a name, the change that spoils it, and a text that the finding must contain.
CASES = [
    ("no bill", without(bill_checks.BILL), "KorvelHelper.spdx.json is missing"),
    ("no program", without(bill.PROGRAM_NAME), "KorvelHelper is missing"),
    ("no licences", without(bill_checks.LICENCES), "third-party-licences.txt is missing"),
    ("licence", put(bill_checks.LICENCES, lambda b: b.replace(b"granted", b"refused")),
     "lacks: Permission"),
    ("owner", put(bill_checks.LICENCES, lambda b: b.replace(b"Copyright", b"By")),
     "lacks: Copyright"),
    ("no sums", without(bill_checks.SUMS), "SHA256SUMS is missing"),
    ("no document", put(bill_checks.BILL, lambda b: b[:-9]), "cannot be read"),
    ("no packages", set_in(WHOLE, "packages", None), "cannot be read: KeyError('packages')"),
    ("format", set_in(WHOLE, "spdxVersion", "SPDX-2.2"), "spdxVersion is 'SPDX-2.2'"),
    ("licence of the bill", set_in(WHOLE, "dataLicense", None), "dataLicense is None"),
    ("date", set_in(lambda d: d["creationInfo"], "created", "yesterday"), "created is 'yesterday'"),
    ("creator", set_in(lambda d: d["creationInfo"], "creators", ["me"]), "names no creator"),
    ("late change", edited(lambda d: HELPER(d).update(supplier="Person: Me"), sealed=False),
     "was changed after it was made"),
    ("field of a package", set_in(LIBRARY, "copyrightText", None), "copyrightText is None"),
    ("identifier", set_in(HELPER, "SPDXID", "SPDXRef-a b"), "SPDXID is 'SPDXRef-a b'"),
    ("analysed files", set_in(HELPER, "filesAnalyzed", False), "filesAnalyzed is False"),
    ("verification code", set_in(LIBRARY, "packageVerificationCode", {}), "not that of its files"),
    ("field of a file", set_in(first_header, "licenseConcluded", ""), "licenseConcluded is ''"),
    ("file name", set_in(first_header, "fileName", "/usr/include/a.h"),
     "fileName is '/usr/include"),
    ("no checksum", set_in(first_header, "checksums", []), "SHA256 is None"),
    ("two of a name", edited(lambda d: d["packages"].append(LIBRARY(d))), "names two things"),
    ("relation to nothing", set_in(lambda d: d["relationships"][0], "relatedSpdxElement",
     "SPDXRef-X"),
     "there is no SPDXRef-X"),
    ("not described", without_related("DESCRIBES"), "does not say: SPDXRef-DOCUMENT DESCRIBES"),
    ("no dependency", without_related("DEPENDS_ON"), "does not say: SPDXRef-Helper DEPENDS_ON"),
    ("not the program's", without_related("CONTAINS"), "the helper contains []"),
    ("tool of nothing", without_related("BUILD_TOOL_OF"), "is related to nothing"),
    ("checksum of the program", wrong_sum(PROGRAM, "SHA256"),
     "the SHA256 is not that of the program"),
    ("other checksum", wrong_sum(PROGRAM, "SHA1"), "the SHA1 is not that of the program"),
    ("program", put(bill.PROGRAM_NAME, lambda b: b + b"\0"),
     "the SHA256 is not that of the program"),
    ("version", set_in(HELPER, "versionInfo", "9.9.9"), "version is 9.9.9, the program says"),
    ("commit", set_in(HELPER, "sourceInfo", "built today"), "names no commit"),
    ("library's version", set_in(LIBRARY, "versionInfo", "3"), "the library's version is '3'"),
    ("library's supplier", set_in(LIBRARY, "supplier", "Person: Me"), "the library's supplier is"),
    ("library's licence", set_in(LIBRARY, "licenseDeclared", "GPL-2.0-only"), "licenseDeclared is"),
    ("library's origin", set_in(LIBRARY, "downloadLocation", "https://example.com/json"),
     "the library's downloadLocation is"),
    ("library's reference", set_in(LIBRARY, "externalRefs", []),
     "the library is referred to as []"),
    ("library's header", edited(lambda d: first_header(d).update(fileName="./include/a.h")
                                or [f.update(fileName="./b") for f in d["files"]
                                    if f["fileName"].endswith("/json.hpp")]),
     "contains no nlohmann/json.hpp"),
    ("compiler", without_tool("clang"), "clang is not among the tools"),
    ("version of a tool", set_in(lambda d: next(p for p in d["packages"] if p["name"] == "lld"),
                                 "versionInfo", None), "lld has neither a version nor a checksum"),
    ("path in the program", put(bill.PROGRAM_NAME, lambda b: b + MAN),
     "holds the path /home/somebody"),
    ("path after an option", put(bill.PROGRAM_NAME, lambda b: b + b"-I" + MAN),
     "holds the path /home"),
    ("unknown path in the bill", set_in(HELPER, "comment", "/building/place/a"),
     "holds the path /building/place"),
    ("forbidden word", put(bill.PROGRAM_NAME, lambda b: b + b"unspeakable"), "holds unspeakable"),
    ("sum of the bill", put(bill_checks.BILL, lambda b: b + b"\n"),
     "checksum of KorvelHelper.spdx.json"),
    ("a file more", lambda contents: contents | {"more": b""}, "does not list more"),
    ("a sum more", put(bill_checks.SUMS, lambda b: b + b"0" * 64 + b"  less\n"),
     "lists less, which"),
    ("sum without form", put(bill_checks.SUMS, lambda b: b"x" + b), "cannot be used: x"),
]
FORBIDDEN = ["unspeakable"]


def missed(contents):
    """The spoiled copies that no check complained about as it should, and complaints about the
    folder before anything is spoiled, because they would be taken for a notice of it."""
    for _, found in bill_checks.run(contents, forbidden=FORBIDDEN):
        yield from (f"nothing is spoiled yet: {finding}" for finding in found)
    for what, spoil, piece in CASES:
        findings = [finding for _, found in bill_checks.run(spoil(contents), forbidden=FORBIDDEN)
                    for finding in found]
        if not any(piece in finding for finding in findings):
            yield f"{what}: expected \"{piece}\" among {findings}"
