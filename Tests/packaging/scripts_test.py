"""The packaging scripts, run against a pretended Mac: every tool they call is a stand-in that notes
the call and plays its part of launchd, the code signature or the power settings.

usage: scripts_test.py REPOSITORY
"""
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

ROOT = None
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
  "sw_vers -productVersion") cat "$facts/system" ;;
  "launchctl print")
    [ -e "$facts/loaded" ] || exit 113
    if [ -e "$facts/running" ]; then echo "	state = running"; else echo "	state = not running"; fi ;;
  "launchctl bootout")
    [ -e "$facts/stuck" ] || rm -f "$facts/loaded" "$facts/running" ;;
  "launchctl bootstrap") [ ! -e "$facts/refuses" ] || exit 5; touch "$facts/loaded" ;;
  "launchctl kickstart") touch "$facts/running" ;;
  "codesign --verify") [ ! -e "$facts/broken" ] || exit 1 ;;
  "codesign -dv")
    echo "Identifier=$(cat "$facts/identifier")" >&2
    echo "TeamIdentifier=$(cat "$facts/team")" >&2 ;;
  "install -o") shift 6; cp "$1" "$2" ;;
  "client reset") [ ! -e "$facts/deaf" ] || exit 1 ;;
  "xcrun notarytool") [ ! -e "$facts/rejected" ] || exit 69 ;;
esac
"""
TOOLS = ("id", "uname", "sw_vers", "launchctl", "codesign", "install", "client", "pmset", "sleep",
         "xcrun", "ditto", "spctl")


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
                            ("system", "14.5"),
                            ("identifier", LABEL), ("team", "ABCDE12345")):
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
            self.let("loaded")
        if running:
            self.let("running")

    def assert_refused(self, done, piece):
        self.assertNotEqual(done.returncode, 0)
        self.assertIn(piece, done.stderr)
        self.assertEqual(self.changes(), [])


class Install(PretendedMac):
    def test_first_install_places_then_loads(self):
        self.succeed("install", self.built)
        self.assertEqual([c.split()[:2] for c in self.changes()],
                         [["install", "-o"], ["install", "-o"], ["launchctl", "enable"],
                          ["launchctl", "bootstrap"]])
        self.assertIn("install -o root -g wheel -m 0755", self.changes()[0])
        self.assertIn("install -o root -g wheel -m 0644", self.changes()[1])
        self.assertEqual(self.program.read_text(encoding="utf-8"), "new program")
        self.assertEqual(self.job.read_bytes(), (
            ROOT / f"Packaging/launchd/system/{LABEL}.plist").read_bytes())

    def test_update_stops_the_old_helper_before_it_is_replaced(self):
        self.put_installed()
        self.succeed("install", self.built)
        self.assertEqual(self.changes()[0], f"launchctl bootout system/{LABEL}")
        self.assertTrue(self.changes()[1].startswith("install"))
        self.assertEqual(self.program.read_text(encoding="utf-8"), "new program")
        self.assertTrue(self.state.exists())

    def test_a_helper_that_does_not_end_is_not_replaced(self):
        self.put_installed()
        self.let("stuck")
        done = self.run_script("install", self.built)
        self.assertNotEqual(done.returncode, 0)
        self.assertEqual(self.calls("sleep"), ["sleep 1"] * 30)
        self.assertEqual(self.program.read_text(encoding="utf-8"), "old program")

    def test_refuses_a_program_without_a_team(self):
        self.let("team", "not set")
        self.assert_refused(self.run_script("install", self.built), "without a team")

    def test_refuses_a_program_of_another_name(self):
        self.let("identifier", "com.example.other")
        self.assert_refused(self.run_script("install", self.built), "not as com.korvel.app.helper")

    def test_refuses_a_broken_signature(self):
        self.let("broken")
        self.assert_refused(self.run_script("install", self.built), "no valid signature")

    def test_refuses_an_old_system(self):
        self.let("system", "13.6.7")
        self.assert_refused(self.run_script("install", self.built), "too old")

    def test_refuses_another_processor(self):
        self.let("processor", "x86_64")
        self.assert_refused(self.run_script("install", self.built), "no Apple silicon")

    def test_refuses_another_system(self):
        self.let("kernel", "Linux")
        self.assert_refused(self.run_script("install", self.built), "this is not macOS")
        self.assertEqual(self.calls("sw_vers"), [])

    def test_refuses_a_plain_user(self):
        self.let("uid", "501")
        self.assert_refused(self.run_script("install", self.built), "must be run as root")

    def test_fails_when_launchd_refuses(self):
        self.let("refuses")
        self.assertNotEqual(self.run_script("install", self.built).returncode, 0)


class Uninstall(PretendedMac):
    def assert_all_gone(self):
        self.assertFalse(self.program.exists())
        self.assertFalse(self.job.exists())
        self.assertFalse(self.state.parent.exists())

    def test_running_helper_is_stopped_then_removed(self):
        self.put_installed()
        self.succeed("uninstall")
        self.assertEqual(self.changes(), [f"launchctl bootout system/{LABEL}"])
        self.assert_all_gone()

    def test_reset_is_asked_for_before_the_helper_is_stopped(self):
        self.put_installed()
        done = self.run_script("uninstall", "--client", "client")
        self.assertEqual(self.changes(), ["client reset", f"launchctl bootout system/{LABEL}"])
        self.assertIn("has reset every key", done.stdout)
        self.assert_all_gone()

    def test_a_failed_reset_is_told_and_the_shutdown_restores(self):
        self.put_installed()
        self.let("deaf")
        done = self.succeed("uninstall", "--client", "client")
        self.assertIn("could not be asked to reset", done.stdout)
        self.assertEqual(self.changes()[-1], f"launchctl bootout system/{LABEL}")

    def test_idle_helper_is_started_and_given_time_before_it_is_stopped(self):
        self.put_installed(running=False)
        self.run_script("uninstall")
        self.assertEqual(self.changes(), [f"launchctl kickstart system/{LABEL}", "sleep 3",
                                          f"launchctl bootout system/{LABEL}"])
        self.assert_all_gone()

    def test_unloaded_helper_is_loaded_once_more_to_restore(self):
        self.put_installed(loaded=False, running=False)
        self.run_script("uninstall")
        self.assertEqual([c.split()[1] for c in self.calls("launchctl")
                          if c.split()[1] != "print"],
                         ["enable", "bootstrap", "kickstart", "bootout"])
        self.assert_all_gone()

    def test_nothing_is_removed_when_the_helper_cannot_restore(self):
        self.put_installed(loaded=False, running=False)
        self.let("refuses")
        self.assertNotEqual(self.run_script("uninstall").returncode, 0)
        self.assertTrue(self.program.exists() and self.job.exists() and self.state.exists())

    def test_nothing_is_removed_while_the_helper_still_runs(self):
        self.put_installed()
        self.let("stuck")
        self.assertNotEqual(self.run_script("uninstall").returncode, 0)
        self.assertTrue(self.program.exists() and self.job.exists() and self.state.exists())

    def test_sleep_disabled_is_cleared_only_when_the_record_owns_it(self):
        self.put_installed(sleep_disabled="true")
        self.run_script("uninstall")
        self.assertEqual(self.calls("pmset"), ["pmset -a disablesleep 0"])

    def test_somebody_elses_sleep_disabled_is_left_alone(self):
        self.put_installed(sleep_disabled="false")
        self.run_script("uninstall")
        self.assertEqual(self.calls("pmset"), [])

    def test_a_discharge_that_nobody_ended_keeps_everything(self):
        self.put_installed()
        self.state.write_text('{\n  "forceDischargeActive" : true\n}', encoding="utf-8")
        done = self.run_script("uninstall")
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("without restoring", done.stderr)
        self.assertTrue(self.program.exists() and self.job.exists() and self.state.exists())

    def test_keep_state_keeps_the_record(self):
        self.put_installed()
        self.run_script("uninstall", "--keep-state")
        self.assertFalse(self.program.exists())
        self.assertTrue(self.state.exists())

    def test_an_absent_helper_is_no_failure_and_nothing_is_called_removed(self):
        for words in ((), ("--keep-state",), ("--client", "client")):
            done = self.succeed("uninstall", *words)
            self.assertEqual(done.stdout, "nothing to remove\n")
            self.assertEqual(self.changes(), [])

    def test_what_is_left_of_a_helper_is_removed_and_said(self):
        for left in (self.program, self.job, self.state):
            left.parent.mkdir(parents=True, exist_ok=True)
            left.write_text("left over", encoding="utf-8")
            done = self.run_script("uninstall")
            self.assertEqual((done.returncode, done.stdout.splitlines()[-1]), (0, "removed"))
            self.assert_all_gone()
        self.job.symlink_to("/nowhere")
        self.assertTrue(self.run_script("uninstall").stdout.endswith("removed\n"))
        self.assertFalse(self.job.is_symlink())

    def test_refuses_another_system(self):
        self.put_installed()
        self.let("kernel", "Linux")
        self.assert_refused(self.run_script("uninstall"), "this is not macOS; nothing was done")
        self.assertTrue(self.program.exists() and self.job.exists() and self.state.exists())

    def test_refuses_a_plain_user(self):
        self.put_installed()
        self.let("uid", "501")
        self.assert_refused(self.run_script("uninstall"), "must be run as root")
        self.assertTrue(self.program.exists())

    def test_an_unknown_argument_removes_nothing(self):
        self.put_installed()
        self.assert_refused(self.run_script("uninstall", "--keep"), "unknown argument")
        self.assertTrue(self.program.exists())


class Sign(PretendedMac):
    IDENTITY = "Developer ID Application: Somebody (ABCDE12345)"

    def test_helper_is_signed_hardened_stamped_and_by_name(self):
        self.succeed("sign", self.IDENTITY, self.built)
        self.assertEqual(self.calls("codesign --force"), [
            f"codesign --force --options runtime --timestamp --identifier {LABEL} "
            f"--sign {self.IDENTITY} /KorvelHelper"])

    def test_the_bundle_is_sealed_after_the_helper_in_it(self):
        app = self.disk / "Korvel.app"
        app.mkdir()
        self.run_script("sign", self.IDENTITY, self.built, app)
        self.assertEqual([c.split()[-1] for c in self.calls("codesign --force")],
                         ["/KorvelHelper", "/Korvel.app"])
        self.assertIn("--identifier com.korvel.app ", self.calls("codesign --force")[1])

    def test_a_signature_without_a_team_is_a_failure(self):
        self.let("team", "not set")
        done = self.run_script("sign", "-", self.built)
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("without a team", done.stderr)


class Notarize(PretendedMac):
    def setUp(self):
        super().setUp()
        self.app = self.disk / "Korvel.app"
        self.app.mkdir()

    def test_submits_waits_and_staples(self):
        self.succeed("notarize", "profile", self.app)
        submitted, stapled = self.calls("xcrun")
        self.assertRegex(submitted, r"notarytool submit .*/Korvel\.app\.zip --keychain-profile profile "
                                    r"--wait$")
        self.assertEqual(stapled, "xcrun stapler staple /Korvel.app")

    def test_a_rejected_bundle_gets_no_ticket(self):
        self.let("rejected")
        self.assertNotEqual(self.run_script("notarize", "profile", self.app).returncode, 0)
        self.assertEqual(len(self.calls("xcrun stapler")), 0)

    def test_an_unsigned_bundle_is_not_sent(self):
        self.let("broken")
        self.assertNotEqual(self.run_script("notarize", "profile", self.app).returncode, 0)
        self.assertEqual(self.calls("xcrun"), [])


class Help(PretendedMac):
    def test_every_script_tells_its_use(self):
        for name in ("sign", "notarize", "install", "uninstall"):
            done = self.succeed(name, "--help")
            self.assertTrue(done.stdout.startswith("usage: "), done.stdout)
            self.assertEqual(self.changes(), [])


if __name__ == "__main__":
    ROOT = pathlib.Path(sys.argv.pop(1)).resolve()
    unittest.main(verbosity=2)
