#!/usr/bin/env python3
"""Makes the two files that each Debian package has to bring along: its copyright, with the licences of
the libraries that are compiled in, and its changelog.

usage: debian.py REPOSITORY VERSION MAINTAINER FOLDER
"""
import gzip
import pathlib
import re
import sys

import history

# Debian's packages of libraries that come as headers, and so end up in the programs.
COMPILED_IN = ("libasio-dev", "libcli11-dev", "nlohmann-json3-dev")
CHART = "VirtualMac/Viewer/lib/uPlot-LICENSE"
PACKAGE = "virtual-mac"


def licence_sentences(root):
    readme = (root / "README.md").read_text(encoding="utf-8")
    return re.search(r"^## Licence\n\n(.*?none is granted\.)$", readme, re.M | re.S).group(1)


def copyright_text(root):
    parts = [f"{PACKAGE}, the virtual Mac and its programs\n\n{licence_sentences(root)}\n\n"
             "The programs contain the libraries below, which have licences of their own.\n"]
    for name in COMPILED_IN:
        text = pathlib.Path("/usr/share/doc", name, "copyright").read_text(encoding="utf-8")
        parts.append(f"From Debian's {name}:\n\n{text}")
    parts.append(f"The chart library of the page:\n\n{(root / CHART).read_text(encoding='utf-8')}")
    return f"\n{'-' * 78}\n".join(part.rstrip() + "\n" for part in parts)


def changelog_text(root, version, maintainer):
    return (f"{PACKAGE} ({version}) unstable; urgency=medium\n\n"
            f"  * CHANGELOG.md beside this file tells the changes.\n\n"
            f" -- {maintainer}  {history.mail_date_of(root)}\n")


def main(arguments):
    if len(arguments) != 4:
        sys.exit(__doc__)
    root, version, maintainer, folder = arguments
    root, folder = pathlib.Path(root), pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "copyright").write_text(copyright_text(root), encoding="utf-8")
    text = changelog_text(root, version, maintainer)
    (folder / "changelog.gz").write_bytes(gzip.compress(text.encode(), mtime=0))


if __name__ == "__main__":
    main(sys.argv[1:])
