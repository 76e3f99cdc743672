"""The controls of a live page, judged by the machine and not by the page."""
import re

from case import LiveTest


class LiveControls(LiveTest):
    def setUp(self):
        super().setUp()
        self.open_controls()

    def names_of(self, attribute):
        return [each.get_attribute(attribute) for each in self.browser.all(f"[{attribute}]")]

    def outcome(self, setting):
        return f"[data-setting={setting}] .outcome"

    def test_every_setting_of_the_machine_has_a_control(self):
        refused = self.mac.try_command("set", "nothing", "1").stderr
        allowed = re.search(r"allowed: ([^)]*)\)", refused).group(1).split(", ")
        self.assertEqual(sorted(self.names_of("data-setting")), sorted(allowed))

    def test_a_number_is_set_with_the_keyboard(self):
        self.browser.named("field", "battery (0 to 100)").send_keys("55\n")
        self.mac.until(lambda status: 53 < status["batteryPercent"] < 57, "a battery at 55 %")
        self.browser.until_text(self.outcome("battery"), "battery is set to 55")

    def test_a_word_is_set_with_one_button(self):
        lid = self.browser.one("[data-setting=lid]")
        self.browser.named("button", "closed", lid).click()
        self.mac.until(lambda status: status["lidClosed"], "a closed lid")
        self.browser.named("button", "open", lid).click()
        self.mac.until(lambda status: not status["lidClosed"], "an open lid")
        self.browser.until_text(self.outcome("lid"), "lid is set to open")

    def test_a_wrong_number_is_told_beside_its_field_and_changes_nothing(self):
        field = self.browser.named("field", "ambient (-40 to 120)")
        before = self.mac.journal()
        field.send_keys("200\n")
        self.browser.until_text(self.outcome("ambient"), "-40 to 120")
        said = self.mac.try_command("set", "ambient", "200").stderr
        self.assertIn(self.browser.text(self.outcome("ambient")).removeprefix("Error: "), said)
        self.assertEqual(field.get_attribute("aria-invalid"), "true")
        self.assertEqual(self.browser.one(self.outcome("ambient")).get_attribute("role"), "status")
        self.assertEqual(self.browser.one(self.outcome("ambient")).get_attribute("id"),
                         field.get_attribute("aria-describedby"))
        self.assertEqual(self.browser.driver.switch_to.active_element, field)
        self.assertFalse([line for line in self.mac.journal()[len(before):] if "ambient" in line])

    def test_what_this_mac_cannot_do_is_told_in_the_machines_words(self):
        self.mac.command("set", "adapter", "off")
        self.addCleanup(self.mac.command, "set", "adapter", "on")
        adapter = self.browser.one("[data-setting=adapter]")
        self.browser.named("button", "renegotiate", adapter).click()
        self.browser.until_text(self.outcome("adapter"), "no adapter is connected")

    def test_every_deed_is_there_and_one_acts(self):
        deeds = self.browser.one("[role=group][aria-label=Deeds]")
        words = [each.text for each in self.browser.all("button", deeds)]
        self.assertEqual(sorted(words), ["power-loss", "reboot", "sleep", "touch", "wake"])
        self.browser.named("button", "sleep", deeds).click()
        self.mac.until(lambda status: status["power"] == "asleep", "sleep")
        self.browser.named("button", "wake", deeds).click()
        self.mac.until(lambda status: status["power"] == "awake", "a machine that is awake")

    def test_a_reboot_says_what_it_does_and_starts_the_machine_again(self):
        deeds = self.browser.one("[role=group][aria-label=Deeds]")
        self.assertIn("Reboot ends the helper", self.browser.page())
        before = self.mac.status()["helperStarts"]
        self.browser.named("button", "reboot", deeds).click()
        self.mac.until(lambda status: status["helperStarts"] > before and status["helperPid"],
                       "a helper of another boot")

    def test_a_signal_reaches_the_helper(self):
        pid = self.mac.until(lambda status: status["helperPid"], "a helper")["helperPid"]
        self.browser.named("button", "KILL", self.browser.one("[aria-label=Signal]")).click()
        self.mac.until(lambda status: status["helperPid"] not in (None, pid), "another helper")

    def test_the_speed_is_chosen_or_given(self):
        preset = self.browser.named("button", "600", self.browser.one("[aria-label=Speed]"))
        preset.click()
        self.mac.until(lambda status: status["speed"] == 600, "speed 600")
        self.browser.until(lambda: preset.get_attribute("aria-pressed") == "true", "600 is pressed")
        self.browser.named("field", "speed").send_keys("60\n")
        self.mac.until(lambda status: status["speed"] == 60, "speed 60")
        self.browser.until(lambda: preset.get_attribute("aria-pressed") == "false", "600 is not")

    def test_commands_act_in_the_order_in_which_they_are_given(self):
        adapter = self.browser.one("[data-setting=adapter]")
        before = len(self.mac.journal())
        for word in ("off", "on", "off", "on"):
            self.browser.named("button", word, adapter).click()
        told = self.browser.until(
            lambda: (lines := [line.split(None, 2)[2] for line in self.mac.journal()[before:]
                               if " mac   adapter " in line]) and len(lines) >= 4 and lines,
            "four deeds")
        self.assertEqual(told, ["adapter disconnected", "adapter connected"] * 2)


class LiveFaults(LiveTest):
    def setUp(self):
        super().setUp()
        self.open_controls()

    def choose(self, search):
        field = self.browser.named("field", "Search faults")
        field.clear()
        field.send_keys(search)

    def offered(self):
        return [each.text for each in self.browser.all("select[size] option")]

    def outcome(self):
        return self.browser.one(".fault-form + .outcome").text

    def test_every_fault_of_the_machine_is_offered(self):
        names = [line.split()[0] for line in self.mac.command("fault", "list").splitlines()
                 if not line.startswith("on: ")]
        self.assertGreater(len(names), 50)
        self.assertEqual(self.offered(), names)

    def test_faults_are_found_by_name_and_by_what_goes_wrong(self):
        self.choose("silent")
        self.assertEqual(self.offered(), ["smc-silent-refusal"])
        self.choose("change nothing")
        self.assertIn("smc-silent-refusal", self.offered())
        self.assertIn("Writes of a key succeed and change nothing.", self.browser.page())
        self.choose("nonsense")
        self.assertEqual(self.offered(), [])
        self.assertIn("0 of ", self.browser.page())

    def test_a_fault_is_switched_on_with_its_argument_and_off_again(self):
        self.choose("smc-silent")
        self.browser.named("field", "KEY").send_keys("CHTE\n")
        self.mac.until(lambda status: status["faults"] == ["smc-silent-refusal CHTE"], "the fault")
        self.browser.until_text(".active-faults", "smc-silent-refusal CHTE")
        self.browser.named("button", "Switch off smc-silent-refusal CHTE").click()
        self.mac.until(lambda status: status["faults"] == [], "no fault")
        self.browser.until(lambda: "No fault is on." in self.browser.page(), "no fault on the page")

    def test_a_fault_with_words_is_switched_on_and_off(self):
        self.choose("powerui-error")
        self.browser.named("field", "TEXT (words)").send_keys("it is too late\n")
        self.mac.until(lambda status: status["faults"] == ["powerui-error it is too late"], "the fault")
        self.browser.named("button", "Switch off").click()
        self.mac.until(lambda status: status["faults"] == [], "no fault")

    def test_a_fault_from_the_command_line_is_shown(self):
        self.mac.command("fault", "disk-full", "on")
        self.browser.until_text(".active-faults", "disk-full")
        self.mac.command("fault", "disk-full", "off")
        self.browser.until(lambda: "disk-full" not in self.browser.text(".active-faults"), "it is off")

    def test_a_wrong_argument_is_told_beside_its_field(self):
        self.choose("smc-result")
        key = self.browser.named("field", "KEY")
        key.send_keys("CHTE\n")
        self.browser.until(lambda: self.outcome().startswith("Error: "), "an error")
        said = self.mac.try_command("fault", "smc-result", "CHTE", "on").stderr
        self.assertIn(self.outcome().removeprefix("Error: "), said)
        self.assertEqual(key.get_attribute("aria-invalid"), "true")
        self.assertEqual(self.mac.status()["faults"], [])
