"""Signing and notarizing on a pretended Mac.

usage: signing_test.py
"""
import unittest

from pretended_mac import LABEL, PretendedMac, ROOT


class Sign(PretendedMac):
    IDENTITY = "Developer ID Application: Somebody (ABCDE12345)"

    def test_helper_is_signed_hardened_stamped_and_by_name(self):
        self.succeed("sign", self.IDENTITY, self.built)
        self.assertEqual(self.calls("codesign --force"), [
            f"codesign --force --options runtime --timestamp --identifier {LABEL} "
            f"--sign {self.IDENTITY} /KorvelHelper"])

    def put_in_bundle(self):
        helper = self.disk / "Korvel.app/Contents/MacOS/KorvelHelper"
        helper.parent.mkdir(parents=True)
        helper.write_text("new program", encoding="utf-8")
        return helper

    def test_an_application_is_refused_and_keeps_its_entitlements(self):
        app = self.put_in_bundle().parents[2]
        for words in ((self.built, app), (app,)):
            done = self.run_script("sign", self.IDENTITY, *words)
            self.assert_refused(done, "it would lose its entitlements. Nothing was signed")
            self.assertEqual(self.calls("codesign"), [])
        self.assertIn("An application is not signed here", self.succeed("sign", "--help").stdout)

    def test_a_helper_in_a_bundle_is_signed_alone_and_the_next_step_is_said(self):
        done = self.succeed("sign", self.IDENTITY, self.put_in_bundle())
        self.assertEqual([c.split()[-1] for c in self.calls("codesign --force")],
                         ["/Korvel.app/Contents/MacOS/KorvelHelper"])
        self.assertIn("let its own build sign it now", done.stdout)
        self.assertNotIn("let its own build", self.succeed("sign", self.IDENTITY, self.built).stdout)

    def test_no_script_signs_anything_but_the_helper(self):
        for name in ("common.sh", "install", "uninstall", "notarize"):
            self.assertNotRegex((ROOT / "Packaging" / name).read_text(encoding="utf-8"),
                                r"codesign [^\n]*(--force|--sign|-s )", name)

    def test_a_signature_without_a_team_is_a_failure(self):
        self.let("team", "not set")
        done = self.run_script("sign", "-", self.built)
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("without a team", done.stderr)


class Notarize(PretendedMac):
    def setUp(self):
        super().setUp()
        self.app = self.disk / "Korvel.app"
        self.helper = self.app / "Contents/MacOS/KorvelHelper"
        self.helper.parent.mkdir(parents=True)
        self.helper.write_text("program", encoding="utf-8")

    def assert_not_sent(self, piece):
        done = self.run_script("notarize", "profile", self.app)
        self.assert_refused(done, piece)
        self.assertEqual(self.calls("xcrun", "ditto"), [])

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
        self.assert_not_sent("does not hold")

    def test_a_bundle_without_a_usable_helper_is_not_sent(self):
        self.let("identifier", "com.example.other")
        self.assert_not_sent("not as com.korvel.app.helper")
        self.helper.unlink()
        self.assert_not_sent("has no helper at Contents/MacOS/KorvelHelper")

    def test_an_application_that_the_helper_would_refuse_is_not_sent(self):
        self.let("application-team", "OTHER12345")
        self.assert_not_sent("of different teams")
        self.let("application-identifier", "com.example.other")
        self.assert_not_sent("not as com.korvel.app")

    def test_an_executable_whose_name_ends_the_helpers_path_is_not_sent(self):
        for name in ("Helper", "KorvelHelper", "r"):
            self.let("executable", name)
            self.assert_not_sent(f'the application\'s executable, "{name}"')
        self.let("executable", "Korvel")
        self.succeed("notarize", "profile", self.app)

    def test_a_bundle_that_names_no_executable_is_not_sent(self):
        (self.facts / "executable").unlink()
        self.assert_not_sent("names no executable")
        self.let("executable", "")
        self.assert_not_sent("names no executable")


if __name__ == "__main__":
    unittest.main(verbosity=2)
