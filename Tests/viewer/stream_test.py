"""How the page follows a journal, tried with a server that behaves as badly as a test wants."""
import threading

from case import BrowserTest
from stub import Stub

HEAD = '# {"journal":1,"run":"one","profile":"newer-keys"}\n'
START = """
  const {startLive} = await import('viewer/live');
  window.told = {runs: [], lines: [], states: [], texts: [], statuses: []};
  window.live = startLive({
    token: given[0], silence: given[1],
    onRun: (head) => told.runs.push(head),
    onLines: (lines) => told.lines.push(...lines),
    onConnection: ({state, text}) => { told.states.push(state); told.texts.push(text); },
  });
  live.addEventListener('status', ({detail}) => told.statuses.push(detail.number));
"""


class JournalStream(BrowserTest):
    notes_addresses = True

    def setUp(self):
        super().setUp()
        self.over = threading.Event()  # Streams that would go on forever end with the test.
        self.addCleanup(self.over.set)

    def serve(self, **routes):
        stub = Stub(**{"api_status": lambda request: request.give_json({"number": 0}), **routes})
        self.addCleanup(stub.end)
        return stub

    def follow(self, stub, token="word", silence=60000):
        self.browser.open(stub.address)
        self.browser.later(START, token, silence)
        self.addCleanup(self.browser.script, "live.stop()")

    def told(self):
        return self.browser.script("return told")

    def until_lines(self, *lines):
        self.browser.until(lambda: self.told()["lines"] == list(lines), f"lines {lines}")

    def test_lines_are_whole_however_the_stream_is_cut(self):
        text = (HEAD + "1.000 mac   lid closed\n\n" + '2.000 log   A default "5 °C … done"\n\n').encode()

        def journal(request):
            request.begin_stream("one")
            for place in range(len(text)):
                request.stream(text[place:place + 1])
            self.over.wait()

        self.follow(self.serve(api_journal=journal))
        self.until_lines("1.000 mac   lid closed", '2.000 log   A default "5 °C … done"')
        self.assertEqual([run["run"] for run in self.told()["runs"]], ["one"])
        self.assertEqual(self.told()["states"], ["connecting", "live"])

    def test_a_lost_connection_is_taken_up_at_the_byte_where_it_ended(self):
        lines = ["1.000 mac   lid closed — again\n", "2.000 mac   lid open\n"]
        whole = (HEAD + "".join(lines)).encode()

        def journal(request):
            request.begin_stream("one")
            begin = int(request.query["from"])
            # The first connection ends in the middle of a line, after a sign of life.
            cut = len((HEAD + lines[0]).encode())
            if begin == 0:
                request.stream(whole[:cut] + b"\n" + b"\n" + whole[cut:cut + 5])
                return
            request.stream(whole[begin:])
            self.over.wait()

        stub = self.serve(api_journal=journal)
        self.follow(stub)
        self.until_lines(*(line.rstrip("\n") for line in lines))
        self.assertEqual(stub.asked("/api/journal"),
                         [{"from": "0"}, {"from": str(len((HEAD + lines[0]).encode())), "run": "one"}])
        self.assertEqual(len(self.told()["runs"]), 1)
        self.assertEqual(self.told()["states"], ["connecting", "live", "lost", "live"])
        self.assertIn("went down", self.told()["texts"][2])

    def test_another_run_is_read_from_its_start(self):
        self.expected_complaints = ["409"]
        runs = iter(["one", "two"])

        def journal(request):
            if request.query.get("run") == "one":
                request.give_json({"ok": False, "error": "another run", "run": "two"}, 409)
                return
            run = next(runs)
            request.begin_stream(run)
            request.stream(HEAD.replace("one", run).encode() + b"1.000 mac   lid closed\n")
            if run == "two":
                self.over.wait()

        self.follow(self.serve(api_journal=journal))
        self.browser.until(lambda: len(self.told()["runs"]) == 2, "a second run")
        self.assertEqual([run["run"] for run in self.told()["runs"]], ["one", "two"])
        self.until_lines("1.000 mac   lid closed", "1.000 mac   lid closed")

    def test_a_machine_that_falls_silent_is_asked_again(self):
        def journal(request):
            request.begin_stream("one")
            request.stream(HEAD.encode() if request.query["from"] == "0" else b"1.000 mac   lid open\n")
            self.over.wait()

        stub = self.serve(api_journal=journal)
        self.follow(stub, silence=500)
        self.until_lines("1.000 mac   lid open")
        self.assertEqual(self.told()["states"][:3], ["connecting", "live", "lost"])

    def test_a_refusal_is_told_in_the_servers_words_and_not_tried_again(self):
        self.expected_complaints = ["401"]
        stub = self.serve(api_journal=lambda request: request.give_json(
            {"ok": False, "error": "the token is not this machine's"}, 401))
        self.follow(stub)
        self.browser.until(lambda: "refused" in self.told()["states"], "a refusal")
        self.assertIn("the token is not this machine's", self.told()["texts"])
        answer = self.browser.later("return live.clients()")
        self.assertEqual(answer, {"ok": False, "error": "no /api/clients"})
        self.expected_complaints.append("404")
        self.assertEqual(len(stub.asked("/api/journal")), 1)

    def test_without_a_token_nothing_is_asked(self):
        stub = self.serve()
        self.follow(stub, token="")
        self.assertEqual(self.told()["states"], ["refused"])
        self.assertIn("virtual-mac up --web", self.told()["texts"][0])
        self.assertEqual(stub.requests, [])

    def test_the_token_goes_in_a_header_and_never_in_an_address(self):
        stub = self.serve(api_journal=self.endless)
        self.follow(stub, token="secret")
        self.browser.until(lambda: stub.asked("/api/status"), "a status")
        for _, query, headers in list(stub.requests):
            self.assertEqual(headers.get("X-Virtual-Mac-Token"), "secret")
            self.assertNotIn("secret", str(query))
        self.assertFalse([each for each in self.browser.addresses() if "secret" in each])

    def endless(self, request):
        request.begin_stream("one")
        request.stream(HEAD.encode())
        self.over.wait()

    def test_a_slow_status_does_not_take_the_place_of_a_newer_one(self):
        numbers = iter(range(1, 1000))
        newer = threading.Event()

        def status(request):
            number = next(numbers)
            if number == 1:
                newer.wait(30)
            request.give_json({"number": number})
            if number == 2:
                newer.set()

        stub = self.serve(api_journal=self.endless, api_status=status,
                          api_machine=lambda request: request.give_json({"ok": True}))
        self.follow(stub)
        self.browser.until(lambda: stub.asked("/api/status"), "a first question")
        self.browser.later("await live.command(['touch'])")
        self.browser.until(lambda: len(self.told()["statuses"]) >= 2, "two answers")
        self.assertEqual(self.told()["statuses"][:2], [2, 3])

    def test_a_page_that_nobody_looks_at_asks_for_no_status(self):
        stub = self.serve(api_journal=self.endless)
        self.follow(stub)
        self.browser.until(lambda: len(stub.asked("/api/status")) > 2, "some questions")
        self.browser.script("Object.defineProperty(document, 'visibilityState',"
                            " {value: 'hidden', configurable: true})")
        before = self.browser.until(lambda: self.count_when_quiet(stub), "a second without a question")
        self.browser.script("delete document.visibilityState")
        self.browser.until(lambda: len(stub.asked("/api/status")) > before, "further questions")

    def count_when_quiet(self, stub):
        """How many questions came so far, or None if one more came within a second."""
        before = len(stub.asked("/api/status"))
        self.browser.later("await new Promise((done) => setTimeout(done, 1000))")
        return before if len(stub.asked("/api/status")) == before else None

    def test_a_machine_that_is_not_there_answers_every_command_in_words(self):
        self.expected_complaints = ["Failed to load", "ERR_"]
        stub = Stub(api_journal=self.endless, api_status=lambda request: request.give_json({}))
        self.follow(stub)
        self.browser.until(lambda: "live" in self.told()["states"], "a connection")
        self.over.set()
        stub.end()
        answer = self.browser.later("return live.command(['touch'])")
        self.assertEqual(answer, {"ok": False, "error": "the machine does not answer"})
        self.browser.until(lambda: self.told()["states"][-1] == "lost", "a lost connection")
