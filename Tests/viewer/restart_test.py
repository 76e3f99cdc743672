"""A live page whose machine goes down and comes back, and one whose machine is fast."""
from case import LiveTest


class Restarts(LiveTest):
    def test_the_page_takes_up_a_machine_that_comes_back(self):
        self.expected_complaints = ["Failed to load", "ERR_", "409"]
        self.mac.command("set", "ambient", 31)
        self.open_controls()
        self.browser.until(lambda: "ambient set to 31" in self.list_text(), "the first run's line")
        port = self.mac.port
        token = self.mac.token
        self.mac.down()
        self.browser.until_text("#connection", "asked again")
        self.browser.one("fieldset.controls:disabled")
        self.mac.up(*self.words, port=port)
        self.assertEqual(self.mac.token, token)
        self.browser.until_text("#connection", "connected to the machine")
        self.mac.command("set", "ambient", 32)
        self.browser.until(lambda: "ambient set to 32" in self.list_text(), "the second run's line")
        self.assertNotIn("ambient set to 31", self.list_text())
        self.browser.one("fieldset.controls:enabled")

    def list_text(self):
        return self.browser.text("#list")
