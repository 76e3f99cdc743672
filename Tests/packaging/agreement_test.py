"""The property lists, scripts, samples and checklist say the same names as the program.

usage: agreement_test.py REPOSITORY
"""
import pathlib
import plistlib
import re
import subprocess
import sys
import unittest

ROOT = None


def read(name):
    return (ROOT / name).read_text(encoding="utf-8")


def constant(header, name):
    """The text of a string constant in a C++ header."""
    found = re.search(rf"\b{name}\s*=\s*\"([^\"]*)\"", read(header))
    if found is None:
        raise AssertionError(f"{header} has no constant {name}")
    return found.group(1)


def protocol(name):
    return constant("KorvelHelper/KorvelHelperProtocol.h", name)


def operations():
    """Selector and word of each operation, in the protocol's order."""
    return re.findall(r'^OPERATION\(\w+, "([^"]+)", \w+,\s+\w+, "([^"]+)"\)$',
                      read("KorvelHelper/Operations.def"), re.M)


def job(form):
    label = protocol("KorvelHelperBundleIdentifier")
    return plistlib.loads((ROOT / f"Packaging/launchd/{form}/{label}.plist").read_bytes())


def shell_variable(name):
    """What the packaging scripts' common part makes of a variable."""
    command = f'unset KORVEL_INSTALL_ROOT; source "$1"; printf %s "${name}"'
    return subprocess.run(["bash", "-uc", command, "bash", str(ROOT / "Packaging/common.sh")],
                          check=True, capture_output=True, text=True).stdout


class InfoPropertyList(unittest.TestCase):
    def setUp(self):
        text = read("Packaging/Info.plist.in")
        self.version = re.search(r"project\(KorvelHelper VERSION ([\d.]+)",
                                 read("CMakeLists.txt")).group(1)
        self.values = plistlib.loads(text.replace("@PROJECT_VERSION@", self.version).encode())

    def test_identifier_is_the_helpers(self):
        self.assertEqual(self.values["CFBundleIdentifier"], protocol("KorvelHelperBundleIdentifier"))

    def test_version_is_the_projects(self):
        self.assertEqual(self.values["CFBundleShortVersionString"], self.version)
        self.assertEqual(self.values["CFBundleVersion"], self.version)

    def test_system_is_the_one_built_for(self):
        self.assertEqual(self.values["LSMinimumSystemVersion"], "14.0")
        self.assertIn('"CMAKE_OSX_DEPLOYMENT_TARGET": "14.0"', read("CMakePresets.json"))
        self.assertIn("set(CMAKE_OSX_DEPLOYMENT_TARGET 14.0)",
                      read("cmake/macos/cross-toolchain.cmake"))

    def test_every_variable_is_filled_in(self):
        for value in self.values.values():
            self.assertNotRegex(value, r"[@$]")


class Jobs(unittest.TestCase):
    def test_label_and_service_are_the_listeners(self):
        for form in ("bundle", "system"):
            with self.subTest(form):
                self.assertEqual(job(form)["Label"], protocol("KorvelHelperBundleIdentifier"))
                self.assertEqual(job(form)["MachServices"],
                                 {protocol("KorvelHelperMachServiceName"): True})
                self.assertEqual(job(form)["AssociatedBundleIdentifiers"],
                                 [protocol("KorvelAppBundleIdentifier")])

    def test_a_crash_restarts_and_an_orderly_end_does_not(self):
        for form in ("bundle", "system"):
            self.assertEqual(job(form)["KeepAlive"], {"SuccessfulExit": False})

    def test_nothing_lets_launchd_kill_an_idle_helper(self):
        for form in ("bundle", "system"):
            self.assertEqual(job(form).keys() & {"EnableTransactions", "EnablePressuredExit",
                                                 "ExitTimeOut", "UserName"}, set())

    def test_nothing_throttles_the_helper_while_sleep_or_its_end_waits_for_it(self):
        for form in ("bundle", "system"):
            self.assertEqual(job(form)["ProcessType"], "Interactive")
            self.assertEqual(job(form).keys() & {"LowPriorityIO", "LowPriorityBackgroundIO", "Nice",
                                                 "SoftResourceLimits", "HardResourceLimits"}, set())

    def test_the_forms_differ_in_the_program_only(self):
        self.assertEqual({path.parent.name for path in (ROOT / "Packaging").rglob("*.plist")},
                         {"bundle", "system"})
        bundle, system = ({key: value for key, value in job(form).items()
                           if key not in ("BundleProgram", "ProgramArguments")}
                          for form in ("bundle", "system"))
        self.assertEqual(bundle, system)

    def test_each_form_names_its_program(self):
        self.assertEqual(job("bundle")["BundleProgram"], shell_variable("helperInBundle"))
        self.assertNotIn("ProgramArguments", job("bundle"))
        self.assertEqual(job("system")["ProgramArguments"], [shell_variable("program")])
        self.assertNotIn("BundleProgram", job("system"))


class Scripts(unittest.TestCase):
    def test_names_are_the_programs(self):
        self.assertEqual(shell_variable("label"), protocol("KorvelHelperBundleIdentifier"))
        self.assertEqual(shell_variable("appIdentifier"), protocol("KorvelAppBundleIdentifier"))
        self.assertEqual(shell_variable("job"), "/Library/LaunchDaemons/"
                         + protocol("KorvelHelperBundleIdentifier") + ".plist")

    def test_state_directory_is_the_stores(self):
        self.assertEqual(shell_variable("stateDirectory"),
                         constant("KorvelHelper/HelperPersistence.h", "directory"))

    def test_uninstall_reads_the_record_as_the_store_writes_it(self):
        for field in ("sleepDisabledByKorvel", "forceDischargeActive"):
            self.assertIn(f"'\"{field}\" : true'", read("Packaging/uninstall"))
            self.assertRegex(read("KorvelHelper/HelperRecords.h"), rf"\bbool {field}\b")


class Samples(unittest.TestCase):
    FILES = ("Packaging/samples/objc/korvel-client.m", "Packaging/samples/swift/main.swift")

    def test_shared_header_says_the_programs_names(self):
        header = read("KorvelHelper/macOS/KorvelHelperXPC/KorvelHelperXPC.h")
        for macro, name in (("KORVEL_HELPER_MACH_SERVICE_NAME", "KorvelHelperMachServiceName"),
                            ("KORVEL_HELPER_BUNDLE_IDENTIFIER", "KorvelHelperBundleIdentifier"),
                            ("KORVEL_APP_BUNDLE_IDENTIFIER", "KorvelAppBundleIdentifier"),
                            ("KORVEL_HELPER_ERROR_DOMAIN", "domain")):
            self.assertRegex(header, rf'#define {macro} "{re.escape(protocol(name))}"\n')

    def test_shared_header_declares_the_selectors_in_order(self):
        header = read("KorvelHelper/macOS/KorvelHelperXPC/KorvelHelperXPC.h")
        declared = []
        for method in re.findall(r"^- \(void\)(.*?);$", header, re.M | re.S):
            outside = re.sub(r"\(.*?\)(?=\w)", "", re.sub(r"\(void \(\^\)\(.*?\)\)", "", method,
                                                          flags=re.S))
            declared.append("".join(re.findall(r"\w+:", outside)) or outside.strip())
        self.assertEqual(declared, [selector for selector, _ in operations()])
        self.assertEqual(len(declared), 11)

    def test_client_has_the_operations_words_and_names_them_for_older_ones(self):
        client = read(self.FILES[0])
        lists = client.split("NSArray<NSString *> *plain")[1].split("const BOOL known")[0]
        taken, former = lists.split("former =")
        words = {word for _, word in operations()}
        others = {"watch", "doctor", "bundle"}
        self.assertEqual(set(re.findall(r'@"([^"]+)"', taken)), words | others)
        self.assertEqual(set(re.findall(r'^ +"  ([a-z][a-z-]*) ', client, re.M)), words | others)
        older = dict(re.findall(r'@"([^"]+)" : @"([^"]+)"', former))
        self.assertEqual(set(older), {"limit", "clear", "cancel"})
        self.assertLessEqual(set(older.values()), words)
        self.assertFalse(set(older) & words)

    def test_clients_doctor_knows_every_state_but_the_virtual_machines(self):
        doctor = read("Packaging/samples/objc/korvel-doctor.m")
        self.assertEqual(doctor.count('#include "VirtualMac/Tools/DoctorStates.def"'), 2)
        states = set(re.findall(r"^DOCTOR_STATE\((\w+)", read("VirtualMac/Tools/DoctorStates.def"),
                                re.M))
        told = set(re.findall(r"\btell\(\s*(\w+),", doctor))
        self.assertEqual(told, states - {"noMachine"})

    def test_samples_take_the_names_from_the_header(self):
        for file in self.FILES:
            code = re.sub(r"//.*", "", read(file))
            self.assertIn("KORVEL_HELPER_MACH_SERVICE_NAME", code)
            self.assertIn("KORVEL_HELPER_BUNDLE_IDENTIFIER", code)
            self.assertNotIn("com.korvel", code)

    def test_samples_ask_of_the_helper_what_it_asks_of_them(self):
        helper = read("KorvelHelper/main.cpp")
        for clause in ("anchor apple generic", "certificate leaf[subject.OU] = ",
                       "certificate leaf[field.1.2.840.113635.100.6.1.13] exists"):
            self.assertIn(clause, helper)
            for file in self.FILES:
                # The formatter breaks the Objective-C literal over lines.
                self.assertIn(clause, re.sub(r'"\s*\n\s*"', "", read(file)), file)

    def test_samples_show_the_fields_that_the_helper_reports(self):
        records = read("KorvelHelper/HelperRecords.h")
        for field in ("chargeLimit", "sailingBand", "forceDischargeActive", "topUpActive",
                      "sleepDisabledByKorvel", "lastWriteAt", "lastWriteVerified",
                      "lastDischargeAbortReason", "lastDischargeAbortAt", "helperVersion"):
            self.assertRegex(records, rf"\b{field}\b")
            for file in self.FILES:
                self.assertRegex(read(file), rf"\b{field}\b", file)


def log_beginnings():
    """What the helper's log lines begin with, up to their first argument."""
    for file in (ROOT / "KorvelHelper").glob("*.cpp"):
        code = re.sub(r'"\s*\n\s*"', "", file.read_text(encoding="utf-8"))
        for text in re.findall(r'\b(?:log|error|fault)\(\s*"((?:[^"\\]|\\.)*)"', code):
            yield text.split("%")[0]


class Checklist(unittest.TestCase):
    def setUp(self):
        self.lines = [line for line in read("docs/macos.md").splitlines()
                      if re.match(r"\| \d+ \|", line)]

    def test_lines_are_counted_through_and_say_what_to_do_and_to_see(self):
        self.assertGreater(len(self.lines), 30)
        for number, line in enumerate(self.lines, 1):
            self.assertRegex(line, rf"^\| {number} \| [^|]*(?:\\\|[^|]*)* \| [^|]+ \|$")

    def test_lines_referred_to_by_number_are_the_ones_meant(self):
        meant = {"after line {}, `korvel-swift-client": "sudo Packaging/install KorvelHelper",
                 "From line {} on `client watch`": "`client set-limit 60`",
                 "`client doctor` before line {}": "sudo Packaging/install KorvelHelper",
                 "; after line {}; with the job": "`client ping` | the identifier",
                 "the client of line {};": "com.example.other",
                 "during line {}, before": "of a newer build"}
        text = read("docs/macos.md")
        for words, piece in meant.items():
            number = int(re.search(re.escape(words).replace(r"\{\}", r"(\d+)"), text).group(1))
            first = next(line for line in self.lines if piece in line)
            self.assertTrue(first.startswith(f"| {number} |"), words)
        self.assertEqual(len(re.findall(r"\blines? \d+", text)), len(meant))

    def test_waits_of_the_helper_are_tested_under_full_load(self):
        loaded = [line for line in self.lines if "under full load" in line]
        for deed in ("pmset sleepnow", "kill -TERM"):
            self.assertEqual(len([line for line in loaded if deed in line]), 1, deed)

    def test_a_refused_client_must_be_counted_out_again(self):
        refused = [line for line in self.lines if "com.example.other" in line]
        self.assertEqual(len(refused), 1)
        self.assertIn("(count=1)", refused[0])
        self.assertIn("(count=0)", refused[0])

    def test_what_the_text_points_at_exists(self):
        text = " ".join(read("docs/macos.md").split())
        windows = re.search(r"what is left when one runs out \((.*?)\)", text).group(1)
        names = re.findall(r'"([^"]+)"', windows)
        self.assertEqual(len(names), 2)
        for name in names:
            self.assertIn(f"- **{name}.**", read("docs/failure-modes.md"))
        self.assertIn("\n## What survives\n", read("docs/state-file.md"))
        stories = re.findall(r"`(VirtualMac/[^`]+\.yaml)`", text)
        self.assertEqual(len(stories), 1)
        self.assertTrue((ROOT / stories[0]).is_file())
        self.assertIn(f"`ProcessType` `{job('system')['ProcessType']}`", text)

    def test_log_lines_to_be_seen_are_the_helpers(self):
        beginnings = [text for text in log_beginnings() if text]
        quoted = [text for line in self.lines
                  for text in re.findall(r'(?:log|fault) "([^"]+)"', line)]
        self.assertGreater(len(quoted), 7)
        for text in quoted:
            self.assertTrue(any(text.startswith(known) or known.startswith(text)
                                for known in beginnings), text)

    def test_number_of_checks_is_the_scripts(self):
        body = read("script/macos/checks.py").split("\ndef run(")[1].split("\ndef ")[0]
        numbers = {7: "seven", 8: "eight", 9: "nine", 10: "ten"}
        self.assertIn(f"{numbers[body.count('yield ')]} times `ok`", "".join(self.lines))


if __name__ == "__main__":
    ROOT = pathlib.Path(sys.argv.pop(1)).resolve()
    unittest.main(verbosity=2)
