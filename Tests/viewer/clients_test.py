"""The application's commands from a live page: clients of their own, and the helper's answers."""
import json
import re

import case
from case import LiveTest

OPERATIONS = case.ROOT / "KorvelHelper/Operations.def"


class ApplicationClients(LiveTest):
    def setUp(self):
        super().setUp()
        self.open_controls()
        self.browser.until(lambda: self.browser.all("form.connect"), "the form for clients")

    def connect(self, name="app", identity="app"):
        field = self.browser.named("field", "Name")
        field.clear()
        field.send_keys(name)
        self.browser.one(f"form.connect option[value='{identity}']").click()
        self.browser.named("button", "Connect").click()

    def connected(self, name="app", identity="app"):
        self.connect(name, identity)
        self.browser.until(lambda: f"{name} as {identity}, connected" in self.browser.page(), "a client")
        self.addCleanup(self.gone, name)

    def gone(self, name):
        """Leaves no client for the next test."""
        self.browser.later("""
          const token = given[1];
          await fetch('/api/clients', {method: 'POST',
            headers: {'X-Virtual-Mac-Token': token, 'Content-Type': 'application/json'},
            body: JSON.stringify({do: 'disconnect', client: given[0]})});
        """, name, self.mac.token)

    def row(self, operation):
        return self.browser.one(f"[data-operation={operation}]")

    def answer(self, operation, text):
        self.browser.until_text(f"[data-operation={operation}] .outcome", text)

    def test_every_operation_of_the_protocol_has_a_control(self):
        words = re.findall(r'"([a-z-]+)"\)', OPERATIONS.read_text(encoding="utf-8"))
        self.assertEqual(len(words), 11)
        self.assertEqual([each.get_attribute("data-operation")
                          for each in self.browser.all("[data-operation]")], words)

    def test_a_limit_reaches_the_record_on_the_disk(self):
        self.connected()
        self.browser.named("field", "set-limit").send_keys("80\n")
        self.answer("set-limit", "done")
        self.mac.until_journal("chargeLimit=80")
        self.assertIn("app: set-limit 80: done", self.browser.text(".answers"))

    def test_a_refused_limit_shows_the_helpers_own_error(self):
        self.connected()
        self.browser.named("field", "set-limit").send_keys("5\n")
        application = self.mac.application()
        self.addCleanup(application.end)
        refused = application.ask("set-limit 5")
        self.assertFalse(refused["ok"])
        self.answer("set-limit", f"refused with code {refused['code']}: {refused['error']}")

    def test_a_limit_that_is_none_is_told_beside_its_field(self):
        self.connected()
        field = self.browser.named("field", "set-limit")
        field.send_keys("300\n")
        self.answer("set-limit", "Error: ")
        self.assertEqual(field.get_attribute("aria-invalid"), "true")

    def test_a_discharge_is_switched_on_and_off(self):
        self.mac.command("set", "battery", 90)
        self.connected()
        self.browser.named("field", "set-limit").send_keys("60\n")
        self.answer("set-limit", "done")
        self.browser.named("button", "on", self.row("discharge")).click()
        self.mac.until(lambda status: status["inflowInhibited"], "inhibited inflow")
        self.browser.named("button", "off", self.row("discharge")).click()
        self.mac.until(lambda status: not status["inflowInhibited"], "inflow")
        self.answer("discharge", "done")

    def test_a_top_off_begins_and_is_cancelled(self):
        self.connected()
        self.browser.named("field", "set-limit").send_keys("80\n")
        self.answer("set-limit", "done")
        self.browser.named("button", "top-off").click()
        self.answer("top-off", "done")
        self.mac.until_journal("releaseLimitUntilFullThenRestore ok")
        self.browser.named("button", "cancel-top-off").click()
        self.mac.until_journal("cancelTopUp ok")
        self.answer("cancel-top-off", "done")

    def test_the_helpers_record_and_process_are_shown(self):
        self.connected()
        self.browser.named("button", "ping").click()
        self.answer("ping", f"process {self.mac.status()['helperPid']}")
        self.browser.named("button", "state").click()
        self.answer("state", "done")
        self.assertIn("chargeLimit", json.loads(self.browser.text(".answers li:first-child pre")))

    def test_a_program_that_is_not_the_application_is_cut_off_and_told_so(self):
        self.connect("intruder", "other-team")
        self.addCleanup(self.gone, "intruder")
        self.browser.until(lambda: "intruder as other-team" in self.browser.page(), "the intruder")
        self.browser.named("button", "ping").click()
        self.answer("ping", "Error: ")
        self.assertNotIn("process", self.browser.text("[data-operation=ping] .outcome"))

    def test_a_client_disconnects_and_another_is_killed(self):
        self.connected("one")
        self.connected("two")
        self.browser.named("button", "Disconnect one").click()
        self.browser.until(lambda: "one as app, connected" not in self.browser.page(), "one is gone")
        self.browser.named("button", "Kill two").click()
        self.browser.until(lambda: "two as app, connected" not in self.browser.page(), "two is gone")
        self.mac.until_journal("client disconnected (count=0)")

    def test_without_a_client_a_command_says_what_to_do(self):
        self.browser.until(lambda: "No application is connected" in self.browser.page(), "no client")
        self.browser.named("button", "ping").click()
        self.answer("ping", "Error: connect an application first")
