"""The helper beside its peers, as a picture: a group of bars for each figure."""
import html

WIDTH, LABELS, BAR, GAP = 720, 190, 18, 6
HEAD, GROUP = 34, 3 * (BAR + GAP) + 44
STYLE = """text { font: 13px system-ui, sans-serif; fill: #1f2328; }
.title { font-weight: 600; }
.own { fill: #1a7f5a; }
.peer { fill: #8c959f; }
@media (prefers-color-scheme: dark) {
  text { fill: #e6edf3; }
  .own { fill: #3fb88a; }
  .peer { fill: #6e7681; }
}"""


def text(x, y, words, kind=""):
    return f'<text x="{x:.0f}" y="{y:.0f}"{kind}>{html.escape(words)}</text>'


def drawn(groups, names, caption):
    """SVG of groups (title, values, how a value is shown), in which the first of names is ours."""
    parts = [text(0, 16, caption)]
    for number, (title, values, show) in enumerate(groups):
        top = HEAD + number * GROUP
        parts.append(text(0, top + 14, title, ' class="title"'))
        for place, (name, value) in enumerate(zip(names, values)):
            y = top + 24 + place * (BAR + GAP)
            length = max((WIDTH - LABELS - 110) * value / max(values), 2)
            parts.append(text(0, y + 14, name))
            parts.append(f'<rect class="{"peer" if place else "own"}" x="{LABELS}" y="{y}" '
                         f'width="{length:.0f}" height="{BAR}" rx="3"/>')
            parts.append(text(LABELS + length + 8, y + 14, show(value)))
    height = HEAD + len(groups) * GROUP
    told = html.escape("; ".join(f"{title}: " + ", ".join(f"{name} {show(value)}" for name, value in zip(names, values))
                                 for title, values, show in groups))
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height}" role="img" '
            f'aria-label="{told}">\n<style>{STYLE}</style>\n' + "\n".join(parts) + "\n</svg>\n")
