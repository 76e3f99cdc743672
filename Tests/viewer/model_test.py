"""What the page works out from a journal, compared with the machine that wrote it."""
import json
import pathlib
import re
import tempfile

import traces
from case import BrowserTest
from stub import Stub

FOLD = """
  const {Run} = await import('viewer/model');
  const {title, head, story, failures, end, lines} = given[0];
  const run = new Run({title, head, story, failures, end});
  run.addLines(lines.split('\\n').filter(Boolean));
  const state = run.stateAt(run.entries.length - 1);
  return {values: state.values, causes: state.causes, entries: run.entries.length};
"""
AFTER = re.compile(r"^(?:never|always|ends):", re.M)
WORDS_OF_FIELDS = {
    "gate": {"paused": "gate paused", "allowed": "gate charging"},
    "inflow": {"inhibited": "inflow inhibited", "flows": "inflow on"},
    "adapter": {"connected": "adapter connected", "disconnected": "adapter disconnected"},
    "lid": {"closed": "lid closed", "open": "lid open"},
    "display": {"connected": "display connected", "disconnected": "display disconnected"},
    "sleepDisabled": {True: "sleep-disabled on", False: "sleep-disabled off"},
    "sleep": {"awake": "awake", "asleep": "asleep"},
    "helper": {"running": "helper running", "not running": "helper stopped"},
}
QUOTED = re.compile(r"[ ,:\[\]{}#&*!|>'\"%@`]")


def clock(seconds):
    minutes, second = divmod(int(seconds), 60)
    hours, minute = divmod(minutes, 60)
    days, hour = divmod(hours, 24)
    return (f"{days}d " if days else "") + f"{hour:02}:{minute:02}:{second:02}"


def with_step(text, seconds, phrases):
    """The story with one step more at its end."""
    expected = ", ".join("'" + phrase.replace("'", "''") + "'" for phrase in phrases)
    step = f"  - {{at: '{clock(seconds)}', expect: [{expected}]}}\n"
    text = re.sub(r"^ends:.*\n", "", text, flags=re.M)
    steps = re.search(r"^steps:", text, re.M).end()
    place = AFTER.search(text, steps)
    if place is None:
        return text.rstrip("\n") + "\n" + step
    return text[:place.start()] + step + text[place.start():]


def phrases_of(values):
    """What a state says, in the words of stories."""
    said = [words[values[field]] for field, words in WORDS_OF_FIELDS.items()
            if values.get(field) in words]
    if values.get("battery") == "present":
        said.append(f"battery {values['charge']}")
    said.append(f"assertions {len(values['assertions'])}")
    said.append(f"native-limit {values.get('nativeLimit', 0)}")
    exited = re.fullmatch(r"exited (\d+)", values["helper"])
    if exited:
        said.append(f"helper {exited.group(0)}")
    for field, value in values.items():
        if field.startswith("key."):
            said.append(f"{field[4:]}={value}")
        if field.startswith("record.") and not QUOTED.search(value):
            said.append(f"saved {field[7:]}={value}")
    return said


class Model(BrowserTest):
    def setUp(self):
        super().setUp()
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        stub = Stub()
        self.addCleanup(stub.end)
        self.browser.open(stub.address)

    def play(self, name, text):
        story, page = self.folder / f"{name}.yaml", self.folder / f"{name}.html"
        story.write_text(text, encoding="utf-8")
        done = traces.of_story(story, page)
        return done, traces.told_in(page)["runs"][0]

    def quiet_second(self, name, text):
        """The first whole second after the story's end around which nothing happens, and the run."""
        end = int(self.play(name, text)[1]["end"])
        for second in range(end + 2, end + 60):
            _, run = self.play(name, with_step(text, second, ["assertions >= 0"]))
            if not [line for line in run["lines"].split("\n")
                    if line and abs(traces.time_of(line) - second) <= 0.3]:
                return second, run
        raise AssertionError(f"{name} never comes to rest")

    def test_at_the_end_of_every_story_the_page_knows_the_machine_as_it_is(self):
        stories = sorted(traces.GALLERY.glob("*.yaml"))
        self.assertGreater(len(stories), 40)
        for story in stories:
            with self.subTest(story.stem):
                text = story.read_text(encoding="utf-8")
                second, run = self.quiet_second(story.stem, text)
                told = self.browser.later(FOLD, run)
                phrases = phrases_of(told["values"])
                self.assertGreater(len(phrases), 6)
                done, _ = self.play(story.stem, with_step(text, second, phrases))
                self.assertEqual(done.returncode, 0, f"{phrases}\n{done.stdout}{done.stderr}")
