"""A live page beside its machine: what is shown is what the machine says, and it keeps up."""
import json

from selenium.webdriver.common.keys import Keys

from case import LiveTest


def on_off(value, on, off):
    return on if value else off


class LiveState(LiveTest):
    def setUp(self):
        super().setUp()
        self.open_live()

    def shown(self):
        """Every field of the state pane as plain values: name -> text."""
        return self.browser.script("""
          return Object.fromEntries([...document.querySelectorAll('#panel-state [data-field]')]
              .filter((each) => !each.dataset.run)
              .map((each) => [each.dataset.field, each.dataset.value]))""")

    def record(self):
        """The state record on the machine's disk."""
        [path] = self.mac.root.rglob("state.json")
        return json.loads(path.read_text(encoding="utf-8"))

    def facts(self):
        """What the page must show, as `virtual-mac status --json` and the disk have it."""
        status = self.mac.status()
        facts = {
            "charge": str(int(status["batteryPercent"] + 0.5)),
            "gate": on_off(status["chargingInhibited"], "paused", "allowed"),
            "inflow": on_off(status["inflowInhibited"], "inhibited", "flows"),
            "adapter": on_off(status["adapterConnected"], "connected", "disconnected"),
            "lid": on_off(status["lidClosed"], "closed", "open"),
            "display": on_off(status["displayConnected"], "connected", "disconnected"),
            "sleepDisabled": on_off(status["sleepDisabled"], "true", "false"),
            "nativeLimit": str(status["nativeLimit"]),
            "helperStarts": str(status["helperStarts"]),
        }
        if status["power"] in ("awake", "asleep"):
            facts["sleep"] = status["power"]
        if status["helperPid"]:
            facts["helperPid"] = str(status["helperPid"])
        facts |= {f"key.{name}": " ".join(f"{byte:02x}" for byte in bytes)
                  for name, bytes in status["smcKeys"].items()}
        facts |= {f"fault.{line}": "on" for line in status["faults"]}
        facts |= {f"assertion.{each['id']}": each["type"] for each in status["assertions"]}
        facts |= {f"record.{name}": value if isinstance(value, str) else json.dumps(value)
                  for name, value in self.record().items()}
        return facts

    def assert_same(self):
        self.browser.until(lambda: self.differing() == [], "the machine's own state")

    def differing(self):
        """The fields that the page shows otherwise than the machine has them."""
        facts, shown = self.facts(), self.shown()
        beside = [name for name in shown
                  if name.split(".")[0] in ("fault", "assertion", "record") and name not in facts]
        return [f"{name}: {shown.get(name)} for {value}" for name, value in facts.items()
                if shown.get(name) != value] + [f"{name}: {shown[name]} for none" for name in beside]

    def test_the_state_is_the_machines_after_every_command(self):
        self.assert_same()
        for words in (["set", "battery", "83"], ["set", "adapter", "off"], ["set", "adapter", "on"],
                      ["set", "display", "on"], ["set", "lid", "closed"], ["set", "sleep-disabled", "on"],
                      ["fault", "smc-silent-refusal", "CHTE", "on"], ["fault", "disk-full", "on"],
                      ["fault", "disk-full", "off"], ["set", "lid", "open"]):
            with self.subTest(" ".join(words)):
                self.mac.command(*words)
                self.assert_same()
        self.mac.command("fault", "smc-silent-refusal", "CHTE", "off")
        self.mac.command("set", "sleep-disabled", "off")
        self.mac.command("set", "display", "off")
        self.assert_same()

    def test_what_the_application_asks_for_is_shown_with_the_record_of_the_disk(self):
        self.mac.command("set", "battery", 90)
        application = self.mac.application()
        self.addCleanup(application.end)
        for request in ("set-limit 70", "keep-awake on", "discharge on", "discharge off",
                        "keep-awake off", "set-limit 95"):
            with self.subTest(request):
                self.assertTrue(application.ask(request)["ok"])
                self.assert_same()
        self.assertEqual(self.shown()["record.chargeLimit"], "95")

    def test_a_helper_that_is_killed_and_started_again_is_shown(self):
        before = self.mac.until(lambda status: status["helperPid"], "a helper")
        self.mac.command("kill")
        after = self.mac.until(lambda status: status["helperPid"] not in (None, before["helperPid"]),
                               "another helper")
        self.browser.until(lambda: self.shown().get("helperPid") == str(after["helperPid"]), "its pid")
        self.assert_same()

    def test_the_list_is_the_journal_and_follows_its_end(self):
        self.mac.command("set", "ambient", 27)
        # Time all but stands still, so that the journal does too.
        self.mac.command("speed", 0.01)
        self.addCleanup(self.mac.command, "speed", 60)
        journal = self.browser.until(self.told_alike, "the journal's last line, in sight")
        self.assertIn("speed 0.01", journal[-1])

    def told_alike(self):
        """The journal, once the page's list is as long, and its last line is chosen and in sight."""
        journal = self.mac.journal()
        line = self.browser.one("#line-text").get_attribute("textContent")
        self.assertEqual((line, self.size()), (journal[-1], len(journal)))
        self.assertTrue(self.chosen_is_in_sight(), "out of sight")
        return journal

    def size(self):
        return int(self.browser.all("#entries [role=option]")[0].get_attribute("aria-setsize"))

    def test_a_moment_in_the_past_stays_while_the_machine_goes_on(self):
        self.browser.until(lambda: self.browser.all("#entries [role=option]"), "the list")
        self.press(Keys.HOME)
        first = self.mac.journal()[0]
        line = self.browser.one("#line-text")
        self.browser.until(lambda: line.get_attribute("textContent") == first, "the first line")
        before = self.size()
        self.mac.command("set", "ambient", 28)
        self.browser.until(lambda: self.size() > before, "a new line")
        self.assertEqual(line.get_attribute("textContent"), first)
        self.press("l")
        self.browser.until(lambda: line.get_attribute("textContent") != first, "the end again")


class FastMachine(LiveTest):
    """A machine whose hour is six seconds."""
    words = ("--speed", "600")

    def test_the_page_keeps_up(self):
        application = self.mac.application()
        self.addCleanup(application.end)
        application.ask("set-limit 80")
        # Each write fails and is tried again at the next tick, which a busy computer may delay.
        self.mac.command("fault", "smc-silent-refusal", "CHTE", "on")
        self.mac.command("set", "battery", 85)
        self.open_live()
        begun, lines = self.mac.status()["seconds"], len(self.mac.journal())
        self.mac.until(lambda status: status["seconds"] > begun + 3600, "another hour")
        self.mac.command("speed", 0.01)
        self.browser.until(self.is_level, "the journal's last line")
        self.assertGreater(len(self.mac.journal()), lines)

    def is_level(self):
        journal = self.mac.journal()
        rows = self.browser.all("#entries [role=option]")
        return (self.browser.one("#line-text").get_attribute("textContent") == journal[-1]
                and int(rows[0].get_attribute("aria-setsize")) == len(journal))
