"""Installing and removing, and the help of every script, on a pretended Mac.

usage: scripts_test.py
"""
import unittest

from pretended_mac import LABEL, PretendedMac, ROOT


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
        self.let("silicon", "0")
        self.assert_refused(self.run_script("install", self.built), "no Apple silicon")
        (self.facts / "silicon").unlink()
        self.assert_refused(self.run_script("install", self.built), "no Apple silicon")

    def test_a_translated_shell_does_not_hide_apple_silicon(self):
        self.let("processor", "x86_64")
        self.succeed("install", self.built)
        self.assertEqual(self.program.read_text(encoding="utf-8"), "new program")

    def test_refuses_while_an_application_has_registered_the_helper(self):
        self.put_registered()
        done = self.run_script("install", self.built)
        self.assert_refused(done, 'from "(submitted by smd.321)" and not from')
        self.assertIn("let the application unregister it", done.stderr)
        self.assertFalse(self.program.exists() or self.job.exists())

    def test_refuses_a_job_that_was_loaded_from_elsewhere(self):
        self.put_installed()
        self.let("loaded", "/Users/somebody/helper.plist")
        self.assert_refused(self.run_script("install", self.built), "sudo launchctl bootout system/")
        self.assertEqual(self.program.read_text(encoding="utf-8"), "old program")

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

    def test_a_running_helper_counts_as_running_however_much_launchd_says_of_it(self):
        self.put_installed()
        self.let("talkative")
        self.succeed("uninstall")
        self.assertEqual(self.changes(), [f"launchctl bootout system/{LABEL}"])

    def test_leaves_a_helper_alone_that_an_application_has_registered(self):
        self.put_installed()
        self.put_registered()
        done = self.run_script("uninstall", "--client", "client")
        self.assert_refused(done, "let the application unregister it")
        self.assertTrue(self.program.exists() and self.job.exists() and self.state.exists())

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


class Help(PretendedMac):
    def test_every_script_tells_its_use(self):
        for name in ("sign", "notarize", "install", "uninstall"):
            done = self.succeed(name, "--help")
            self.assertTrue(done.stdout.startswith("usage: "), done.stdout)
            self.assertEqual(self.changes(), [])


if __name__ == "__main__":
    unittest.main(verbosity=2)
