#!/usr/bin/env python3
"""Follows docs/macos.md from the dump of a real Mac's battery to a virtual Mac that has it: the
document's commands, but for the one of the Mac, and the figures in the status.

usage: import_test.py REPOSITORY PROGRAMS
       import_test.py --self-test
"""
import json
import os
import pathlib
import plistlib
import re
import subprocess
import sys
import tempfile

SECTION = "\n## A real Mac as a profile\n"
FIGURES = {"IOObjectClass": "AppleSmartBattery", "DesignCapacity": 6068, "AppleRawMaxCapacity": 5500,
           "CurrentCapacity": 63, "MaxCapacity": 100, "Temperature": 2875, "ExternalConnected": False,
           "Amperage": -1100, "BatterySerialNumber": "F5D-PRIVATE"}


def commands_in(document):
    """(those of the Mac, those of the virtual Mac)"""
    section = document.split(SECTION, 1)[-1].split("\n## ", 1)[0]
    lines = [line for block in re.findall(r"^```\n(.*?)^```$", section, re.M | re.S)
             for line in block.splitlines()]
    return ([line for line in lines if not line.startswith("virtual-mac ")],
            [line for line in lines if line.startswith("virtual-mac ")])


def findings(profile, output, status):
    if status != 0:
        yield f"a command ended with status {status}"
    for words in ("from the dump:", "as in newer-keys: SMC keys", "battery is up at 1x",
                  "63 %, draining"):
        if words not in output:
            yield f'not seen: "{words}"'
    if profile.get("battery", {}).get("designCapacityMilliampHours") != 6068:
        yield "the profile has another capacity than the dump"
    if "PRIVATE" in json.dumps(profile) + output:
        yield "the profile tells the serial number"


def self_test():
    document = (f"{SECTION}\n```\nioreg -a > x\n```\nand\n```\nvirtual-mac up\nvirtual-mac status\n```\n"
                "## Next\n```\nvirtual-mac down\n```\n")
    assert commands_in(document) == (["ioreg -a > x"], ["virtual-mac up", "virtual-mac status"])
    output = "from the dump: as in newer-keys: SMC keys battery is up at 1x 63 %, draining"
    profile = {"battery": {"designCapacityMilliampHours": 6068}}
    assert not list(findings(profile, output, 0))
    assert len(list(findings(profile, output, 1))) == 1
    assert len(list(findings({}, output, 0))) == 1
    assert len(list(findings(profile, output.replace("63 %", "50 %"), 0))) == 1
    assert len(list(findings(profile, output + "F5D-PRIVATE", 0))) == 1
    print("the check finds a failed command, a lost figure and a serial number")


def main(arguments):
    if arguments == ["--self-test"]:
        return self_test()
    if len(arguments) != 2:
        sys.exit(__doc__)
    root, programs = (pathlib.Path(argument).resolve() for argument in arguments)
    on_mac, here = commands_in((root / "docs/macos.md").read_text(encoding="utf-8"))
    assert on_mac == ["ioreg -a -r -c AppleSmartBattery > battery.plist"], on_mac
    assert here, "the document shows no command"
    with tempfile.TemporaryDirectory(prefix="vm-") as name:
        folder = pathlib.Path(name)
        (folder / "battery.plist").write_bytes(plistlib.dumps([FIGURES]))
        environment = {**os.environ, "XDG_RUNTIME_DIR": name, "VIRTUAL_MAC_ROOT": "",
                       "PATH": f"{programs}:{os.environ['PATH']}"}
        try:
            done = subprocess.run(["bash", "-e"], cwd=folder, input="\n".join(here), text=True,
                                  capture_output=True, env=environment, timeout=60, check=False)
            profile = json.loads((folder / "battery.json").read_text(encoding="utf-8"))
        finally:
            subprocess.run([programs / "virtual-mac", "down"], env=environment, check=False,
                           capture_output=True)
    output = done.stdout + done.stderr
    found = list(findings(profile, output, done.returncode))
    if found:
        sys.exit("\n".join([output, *found]))
    print("the document's way from a dump to a virtual Mac with that battery can be gone")


if __name__ == "__main__":
    main(sys.argv[1:])
