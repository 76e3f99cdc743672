"""A pretended Mac for the packaging scripts: every tool that they call is a stand-in, which notes the
call and plays its part of launchd, the code signature or the power settings.
"""
import os
import pathlib
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
LABEL = "com.korvel.app.helper"
RECORD = '{\n  "chargeLimit" : 80,\n  "sleepDisabledByKorvel" : %s\n}'

# One script stands in for all tools; files in its folder hold the simulated machine's facts.
STAND_IN = r"""#!/bin/bash
tool=$(basename "$0")
facts=$(dirname "$0")
echo "$tool $*" >>"$facts/calls"
case "$tool $1" in
  "id -u") cat "$facts/uid" ;;
  "uname -s") cat "$facts/kernel" ;;
  "uname -m") cat "$facts/processor" ;;
  "sysctl -n") [ "$2" = hw.optional.arm64 ] && cat "$facts/silicon" ;;
  "sw_vers -productVersion") cat "$facts/system" ;;
  "launchctl print")
    [ -e "$facts/loaded" ] || exit 113
    echo "	path = $(cat "$facts/loaded")"
    if [ -e "$facts/running" ]; then echo "	state = running"; else echo "	state = not running"; fi
    printf '\tevents = {\n\t\tpath = /elsewhere\n\t}\n'
    [ ! -e "$facts/talkative" ] || yes "	more = more" 2>/dev/null | head -n 20000 ;;
  "launchctl bootout")
    [ -e "$facts/stuck" ] || rm -f "$facts/loaded" "$facts/running" ;;
  "launchctl bootstrap") [ ! -e "$facts/refuses" ] || exit 5; echo "$3" >"$facts/loaded" ;;
  "launchctl kickstart") touch "$facts/running" ;;
  "codesign --verify") [ ! -e "$facts/broken" ] || exit 1 ;;
  "codesign -dv")
    case $2 in *.app) of=application- ;; *) of= ;; esac
    echo "Identifier=$(cat "$facts/${of}identifier")" >&2
    echo "TeamIdentifier=$(cat "$facts/${of}team")" >&2 ;;
  "install -o") shift 6; cp "$1" "$2" ;;
  "client reset") [ ! -e "$facts/deaf" ] || exit 1 ;;
  "plutil -extract") cat "$facts/executable" 2>/dev/null ;;
  "xcrun notarytool") [ ! -e "$facts/rejected" ] || exit 69 ;;
esac
"""
TOOLS = ("id", "uname", "sysctl", "sw_vers", "launchctl", "codesign", "install", "client", "pmset",
         "sleep", "plutil", "xcrun", "ditto", "spctl")


class PretendedMac(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.facts = pathlib.Path(folder.name, "tools")
        self.disk = pathlib.Path(folder.name, "disk")
        self.facts.mkdir()
        self.disk.mkdir()
        for tool in TOOLS:
            (self.facts / tool).write_text(STAND_IN, encoding="utf-8")
            (self.facts / tool).chmod(0o755)
        for fact, value in (("uid", "0"), ("kernel", "Darwin"), ("processor", "arm64"),
                            ("silicon", "1"), ("system", "14.5"),
                            ("identifier", LABEL), ("team", "ABCDE12345"),
                            ("application-identifier", "com.korvel.app"),
                            ("application-team", "ABCDE12345"), ("executable", "Korvel")):
            self.let(fact, value)
        self.built = self.disk / "KorvelHelper"
        self.built.write_text("new program", encoding="utf-8")
        self.program = self.disk / "Library/PrivilegedHelperTools" / LABEL
        self.job = self.disk / f"Library/LaunchDaemons/{LABEL}.plist"
        self.state = self.disk / "Library/Application Support" / LABEL / "state.json"

    def let(self, fact, value=""):
        (self.facts / fact).write_text(value + "\n", encoding="utf-8")

    def run_script(self, name, *arguments):
        environment = {"PATH": f"{self.facts}:{os.environ['PATH']}",
                       "KORVEL_INSTALL_ROOT": str(self.disk)}
        return subprocess.run([str(ROOT / "Packaging" / name), *map(str, arguments)],
                              env=environment, capture_output=True, text=True, check=False)

    def succeed(self, name, *arguments):
        done = self.run_script(name, *arguments)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done

    def calls(self, *wanted):
        """The noted calls that begin with one of the wanted words, machine paths cut off."""
        path = self.facts / "calls"
        lines = path.read_text(encoding="utf-8").splitlines() if path.exists() else []
        return [line.replace(str(self.disk), "") for line in lines if line.startswith(wanted)]

    def changes(self):
        return self.calls("launchctl boot", "launchctl kick", "launchctl en", "install", "client",
                          "pmset", "sleep")

    def put_installed(self, sleep_disabled="false", loaded=True, running=True):
        for path, text in ((self.program, "old program"), (self.job, "job"),
                           (self.state, RECORD % sleep_disabled)):
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text, encoding="utf-8")
        if loaded:
            self.let("loaded", str(self.job))
        if running:
            self.let("running")

    def put_registered(self):
        """As launchd tells of a job that an application has registered."""
        self.let("loaded", "(submitted by smd.321)")
        self.let("running")

    def assert_refused(self, done, piece):
        self.assertNotEqual(done.returncode, 0)
        self.assertIn(piece, done.stderr)
        self.assertEqual(self.changes(), [])
