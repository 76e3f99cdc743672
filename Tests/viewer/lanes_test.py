"""The lanes of the page, compared with those of the picture that the timeline draws."""
import pathlib
import tempfile
import xml.etree.ElementTree

import traces
from case import BrowserTest
from stub import Stub

LANES = """
  const {Run} = await import('viewer/model');
  const {Tracks} = await import('viewer/tracks');
  const {head, lines, end} = given[0];
  const run = new Run({head, end});
  run.addLines(lines.split('\\n').filter(Boolean));
  const tracks = new Tracks(run);
  tracks.update();
  return Object.fromEntries(tracks.all.map(({name, segments}) => [name, segments]));
"""
LEFT, WIDTH = 92.0, 1000.0  # The picture's plot.
EDGE = 3.0  # So near to an edge, in its pixels, a stretch's least width blurs what holds.
BARE = "#f3f4f6"
PAUSED = "#fecaca"
# The picture's lane, and what the page's lane of a name must say where the picture has a stretch.
SAME = {
    "limit": ("limit", lambda text, fill: text != ""),
    "charging": ("charging", lambda text, fill: (text == "paused") == (fill == PAUSED)),
    "adapter": ("adapter", lambda text, fill: text == "connected"),
    "inflow": ("inflow", lambda text, fill: text == "inhibited"),
    "lid": ("lid, display", lambda text, fill: "lid closed" in text),
    "sleep": ("sleep", lambda text, fill: text in ("asleep", "off")),
    "helper": ("helper", lambda text, fill: text != ""),
}


def drawn_lanes(picture):
    """name -> (from, to, fill) of every stretch of a lane of the picture, in pixels."""
    names, lanes = {}, {}
    for each in xml.etree.ElementTree.parse(picture).getroot():
        if each.tag.endswith("text") and each.get("text-anchor") == "end" and each.text in SAME:
            names[round(float(each.get("y")) - 12.5)] = each.text
        elif each.tag.endswith("rect") and each.get("height") == "16" and each.get("fill") != BARE:
            lane = names.get(round(float(each.get("y"))))
            if lane:
                left = float(each.get("x"))
                lanes.setdefault(lane, []).append((left, left + float(each.get("width")),
                                                   each.get("fill")))
    return names.values(), lanes


def drawn_at(stretches, x):
    return next((fill for left, right, fill in stretches if left <= x < right), None)


class Lanes(BrowserTest):
    def compare(self, drawn, segments, end, says):
        """Compares a lane at every moment between two edges of it that are not next to one."""
        edges = {LEFT, LEFT + WIDTH}
        edges.update(edge for left, right, _ in drawn for edge in (left, right))
        marks = [(LEFT + segment["time"] / end * WIDTH, segment["text"]) for segment in segments]
        edges.update(x for x, _ in marks)
        ordered = sorted(min(max(edge, LEFT), LEFT + WIDTH) for edge in edges)
        compared = 0
        for left, right in zip(ordered, ordered[1:]):
            if right - left <= 2 * EDGE:
                continue
            x = (left + right) / 2
            text = next((text for place, text in reversed(marks) if place <= x), "")
            fill = drawn_at(drawn, x)
            moment = (x - LEFT) / WIDTH * end
            if fill is None:
                # The picture leaves a lane bare where the page has words only for other things.
                self.assertFalse(text and says(text, None), f'"{text}" at {moment:.1f} s')
            else:
                self.assertTrue(says(text, fill), f'"{text}" at {moment:.1f} s, drawn {fill}')
            compared += 1
        return compared

    def test_every_lane_of_every_story_is_as_the_timeline_draws_it(self):
        stub = Stub()
        self.addCleanup(stub.end)
        self.browser.open(stub.address)
        compared = 0
        with tempfile.TemporaryDirectory() as folder:
            for story in sorted(traces.GALLERY.glob("*.yaml")):
                page, picture = pathlib.Path(folder, "a.html"), pathlib.Path(folder, "a.svg")
                traces.of_story(story, page, "--timeline", picture)
                run = traces.told_in(page)["runs"][0]
                told = self.browser.later(LANES, run)
                names, drawn = drawn_lanes(picture)
                for name in names:
                    lane, says = SAME[name]
                    with self.subTest(story.stem, lane=name):
                        compared += self.compare(drawn.get(name, []), told.get(lane, []), run["end"], says)
        self.assertGreater(compared, 500)
