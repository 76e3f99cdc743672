"""Makes the bill of materials of a built helper, an SPDX 2.3 document: the program, the headers of
the one library that were compiled into it, and the tools that built it."""
import datetime
import hashlib
import json
import pathlib
import re
import uuid

IDENTIFIER = "SPDXRef-"
DOCUMENT, HELPER, LIBRARY = "SPDXRef-DOCUMENT", "SPDXRef-Helper", "SPDXRef-nlohmann-json"
PROGRAM_NAME = "KorvelHelper"
LIBRARY_FOLDER = "nlohmann"
LIBRARY_HOME = "https://github.com/nlohmann/json"
LIBRARY_SUPPLIER = "Person: Niels Lohmann"
UNKNOWN = "NOASSERTION"
# The helper's own objects; a build may have compiled tests too.
HELPER_OBJECTS = "KorvelHelper/"


class BillError(Exception):
    """The build does not say what the bill must say."""


def digest(algorithm, data):
    return hashlib.new(algorithm, data, usedforsecurity=False).hexdigest()


def checksums(data):
    """Both checksums of a file; the format demands the first and the second is the one to trust."""
    return [{"algorithm": name, "checksumValue": digest(name.lower(), data)}
            for name in ("SHA1", "SHA256")]


def checksum(entry, algorithm):
    return next((c["checksumValue"] for c in entry.get("checksums", ())
                 if c.get("algorithm") == algorithm), None)


def verification_code(files):
    """The format's one checksum for the files of a package."""
    sums = sorted(checksum(file, "SHA1") or "" for file in files)
    return digest("sha1", "".join(sums).encode())


def headers_read(dependencies, build):
    """Paths of all files that the compilers of the helper read, by what ninja recorded
    (`ninja -t deps`); paths there may be relative to the build's directory."""
    wanted, found = False, set()
    for line in dependencies.splitlines():
        if line and not line[0].isspace():
            wanted = line.startswith(HELPER_OBJECTS)
        elif wanted and line.strip():
            found.add(pathlib.Path(build, line.strip()))
    return found


def library_headers(paths):
    """The library's headers among `paths`, by the names under which sources include them."""
    headers = {}
    for path in paths:
        if LIBRARY_FOLDER in path.parts:
            parts = path.parts
            last = len(parts) - 1 - parts[::-1].index(LIBRARY_FOLDER)
            headers["/".join(parts[last:])] = path.read_bytes()
    if f"{LIBRARY_FOLDER}/json.hpp" not in headers:
        raise BillError("the build has not recorded that the helper's sources read "
                        "nlohmann/json.hpp")
    return headers


def sdk_headers(paths, sdk):
    """The SDK's version, how many of `paths` lie in it, and one SHA-256 over names and contents."""
    names = sorted(path.relative_to(sdk).as_posix() for path in paths if path.is_relative_to(sdk))
    listing = "".join(f"{digest('sha256', (sdk / name).read_bytes())}  {name}\n" for name in names)
    return sdk_version(sdk), len(names), digest("sha256", listing.encode())


def sdk_version(sdk):
    """The version that the SDK says of itself; None for one without such a file."""
    settings = pathlib.Path(sdk, "SDKSettings.json")
    return json.loads(settings.read_bytes())["Version"] if settings.is_file() else None


def library_version(headers):
    text = b"\n".join(headers.values()).decode("utf-8")
    numbers = []
    for part in ("MAJOR", "MINOR", "PATCH"):
        found = set(re.findall(rf"#\s*define NLOHMANN_JSON_VERSION_{part}\s+(\d+)", text))
        if len(found) != 1:
            raise BillError(f"the library's headers name {len(found)} versions, not one")
        numbers += found
    return ".".join(numbers)


def notices(data, tag):
    """The values of a tag such as SPDX-License-Identifier in a file, each once, in its order."""
    values = re.findall(rf"{tag}: (.+?)\s*$", data.decode("utf-8"), re.M)
    return list(dict.fromkeys(values))


def file_entry(identifier, name, data, kind):
    licences = notices(data, "SPDX-License-Identifier") if kind == "SOURCE" else []
    owners = notices(data, "SPDX-FileCopyrightText") if kind == "SOURCE" else []
    return {
        "SPDXID": identifier, "fileName": f"./{name}", "fileTypes": [kind],
        "checksums": checksums(data), "licenseConcluded": " AND ".join(licences) or UNKNOWN,
        "licenseInfoInFiles": licences or [UNKNOWN],
        "copyrightText": "\n".join(f"Copyright {owner}" for owner in owners) or UNKNOWN,
    }


def package(identifier, name, version, **more):
    entry = {
        "SPDXID": identifier, "name": name, "versionInfo": version, "supplier": UNKNOWN,
        "downloadLocation": UNKNOWN, "filesAnalyzed": False, "licenseConcluded": UNKNOWN,
        "licenseDeclared": UNKNOWN, "copyrightText": UNKNOWN, **more,
    }
    return {key: value for key, value in entry.items() if value is not None}


def helper_package(version, commit, files):
    return package(
        HELPER, PROGRAM_NAME, version, filesAnalyzed=True, primaryPackagePurpose="APPLICATION",
        packageVerificationCode={"packageVerificationCodeValue": verification_code(files)},
        licenseInfoFromFiles=[UNKNOWN], sourceInfo=f"built from commit {commit}")


def library_package(version, files):
    """The library as its headers describe it; each of them must name its licence."""
    licences = sorted({licence for file in files for licence in file["licenseInfoInFiles"]})
    if UNKNOWN in licences:
        raise BillError("a header of the library names no licence")
    owners = sorted({line for file in files for line in file["copyrightText"].split("\n")})
    return package(
        LIBRARY, "nlohmann-json", version, supplier=LIBRARY_SUPPLIER, filesAnalyzed=True,
        downloadLocation=f"git+{LIBRARY_HOME}.git@v{version}", homepage=LIBRARY_HOME,
        licenseConcluded=" AND ".join(licences), licenseDeclared=" AND ".join(licences),
        licenseInfoFromFiles=licences, copyrightText="\n".join(owners),
        primaryPackagePurpose="LIBRARY",
        packageVerificationCode={"packageVerificationCodeValue": verification_code(files)},
        externalRefs=[{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                       "referenceLocator": f"pkg:github/nlohmann/json@v{version}"}])


def tool_packages(tools, sdk):
    for name, version in tools:
        yield package(f"{IDENTIFIER}Tool-{re.sub('[^A-Za-z0-9.-]', '-', name)}", name, version,
                      primaryPackagePurpose="APPLICATION")
    if sdk is not None:
        version, count, value = sdk
        yield package(
            f"{IDENTIFIER}Tool-macOS-SDK", "macOS SDK", version, primaryPackagePurpose="FRAMEWORK",
            comment=f"{count} headers were read; the list of their checksums, as sha256sum prints "
                    f"it and sorted by name, has the SHA-256 {value}")


def namespace(document):
    """The document's unique name, made of all that it says: equal bills have equal names."""
    said = {key: value for key, value in document.items() if key != "documentNamespace"}
    value = digest("sha256", json.dumps(said, sort_keys=True).encode())
    return f"urn:uuid:{uuid.uuid5(uuid.NAMESPACE_OID, value)}"


def make(program, version, commit, epoch, headers, tools, sdk):
    """The document. `program` and the values of `headers` are bytes, `epoch` is in seconds since
    1970, `tools` are pairs of name and version, `sdk` is what `sdk_headers` gave, or None."""
    program_file = file_entry(f"{IDENTIFIER}File-{PROGRAM_NAME}", PROGRAM_NAME, program, "BINARY")
    header_files = [
        file_entry(f"{IDENTIFIER}File-header-{number}", f"include/{name}", data, "SOURCE")
        for number, (name, data) in enumerate(sorted(headers.items()), 1)]
    library = library_version(headers)
    used = list(tool_packages(tools, sdk))

    def related(one, kind, other):
        return {"spdxElementId": one, "relationshipType": kind, "relatedSpdxElement": other}

    created = datetime.datetime.fromtimestamp(epoch, datetime.timezone.utc)
    document = {
        "spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": DOCUMENT,
        "name": f"{PROGRAM_NAME}-{version}", "documentNamespace": None,
        "creationInfo": {"created": created.strftime("%Y-%m-%dT%H:%M:%SZ"),
                         "creators": [f"Tool: {PROGRAM_NAME}-macos-sbom-{version}"]},
        "packages": [helper_package(version, commit, [program_file]),
                     library_package(library, header_files), *used],
        "files": [program_file, *header_files],
        "relationships": [
            related(DOCUMENT, "DESCRIBES", HELPER),
            related(HELPER, "CONTAINS", program_file["SPDXID"]),
            related(HELPER, "DEPENDS_ON", LIBRARY),
            *(related(LIBRARY, "CONTAINS", file["SPDXID"]) for file in header_files),
            *(related(tool["SPDXID"], "BUILD_TOOL_OF", HELPER) for tool in used)],
    }
    document["documentNamespace"] = namespace(document)
    return document
