#!/usr/bin/env python3
"""Checks the walls of the viewer: plain modules that import one another by `viewer/NAME`, without a
circle and without one that nobody imports; no page made of text, no code made of text; the network
in live.js alone, and nothing loaded from elsewhere by a style or a page. And that the viewer knows
the lines of a journal as the machine does.

usage: viewer.py REPOSITORY
       viewer.py --self-test
"""
import itertools
import pathlib
import re

import tree
import web

FOLDER = "VirtualMac/Viewer/"
BEGIN = "app"
EFFECTS, EFFECTS_HERE = "VirtualMac/Schedule/Effects.def", FOLDER + "effects.js"
EFFECT = re.compile(r'^EFFECT\((\w+), (\w+), "((?:\\.|[^"\\])*)"\)$', re.M)
EFFECT_HERE = re.compile(r"^  \['(\w+)', '(\w+)', '((?:\\.|[^'\\])*)'\],$", re.M)
NETWORK_MODULE = "live"
STATEMENT = re.compile(r"^(?:import|export)\b(?:[^;'\"]*?\bfrom)?\s*(?P<quote>['\"])(?P<name>[^'\"\n]*)"
                       r"(?P=quote)", re.M)
LATER = re.compile(r"(?<![\w.])import\s*\(\s*(?P<quote>['\"])(?P<name>[^'\"\n]*)(?P=quote)\s*\)")
RULES = (
    (re.compile(r"\b(?:innerHTML|outerHTML|insertAdjacentHTML|srcdoc|createContextualFragment"
                r"|setHTMLUnsafe)\b|\bdocument\s*\.\s*write(?:ln)?\b"),
     "makes a page of text; make elements"),
    (re.compile(r"(?<![\w.])eval\s*\(|\bnew\s+Function\b|(?<![\w.])Function\s*\("),
     "makes code of text"),
    (re.compile(r"(?<![\w.])import\s*\(\s*(?!['\"])"), "imports what no reader can see; name the module"),
    (re.compile(r"(?<![=!<>])[=!]=(?!=)"), "compares loosely; use === or !=="),
    (re.compile(r"(?<![\w.])var\s"), "declares with var; use const or let"),
    (re.compile(r"(?<![\w.])(?:console\s*\.|debugger\b|(?:window\s*\.\s*)?(?:alert|confirm|prompt)\s*\()"),
     "speaks past the page"),
)
NETWORK = (re.compile(r"(?<![\w.])(?:(?:window|globalThis|self)\s*\.\s*)?fetch\s*\(|\b(?:XMLHttpRequest"
                      r"|WebSocket|EventSource|WebTransport|RTCPeerConnection|SharedWorker|Worker"
                      r"|serviceWorker|sendBeacon|importScripts)\b"),
           "uses the network; live.js is the door to it")
STYLE_RULE = (re.compile(r"@import\b|\burl\s*\((?!\s*['\"]?data:)"), "loads something from elsewhere")
PAGE_RULES = ((re.compile(r"\bhttps?://|(?:src|href)\s*=\s*[\"']?//"), "loads something from elsewhere"),
              (re.compile(r"<[^>]*\son\w+\s*="), "handles an event in the page; listen in a module"))


def modules(root):
    """name -> text of every module; the name is that of its file without the ending."""
    return {pathlib.Path(path).stem: tree.read(root, path)
            for path in tree.files(root, web.SCRIPTS) if path.startswith(FOLDER)}


def imports(text):
    """(line, name) of everything that a module imports."""
    code = web.blanked(text)
    for match in [*STATEMENT.finditer(text), *LATER.finditer(text)]:
        if code[match.start()] != " ":
            yield tree.line_of(text, match.start()), match["name"]


def circles(graph):
    """A finding for each import that closes a circle."""
    found, done = [], set()

    def visit(name, way):
        if name in way:
            found.append(f"{FOLDER}{name}.js: imports itself: " + " → ".join(way[way.index(name):] + [name]))
        elif name not in done:
            for other in graph.get(name, ()):
                visit(other, way + [name])
            done.add(name)

    for name in sorted(graph):
        visit(name, [])
    return found


def reached(graph):
    seen, waiting = set(), [BEGIN]
    while waiting:
        name = waiting.pop()
        if name not in seen:
            seen.add(name)
            waiting += graph.get(name, ())
    return seen


def matches(path, code, pattern, why):
    return [f"{path}:{tree.line_of(code, match.start())}: {match.group(0).strip()}: {why}"
            for match in pattern.finditer(code)]


def import_findings(root):
    all_modules = modules(root)
    graph, found = {}, []
    for name, text in sorted(all_modules.items()):
        for line, imported in imports(text):
            other = imported.removeprefix("viewer/")
            if imported == other or other not in all_modules:
                found.append(f"{FOLDER}{name}.js:{line}: imports {imported}, which is no viewer/NAME "
                             "of a module here")
            else:
                graph.setdefault(name, []).append(other)
    found += circles(graph)
    # A tree without the first module has no viewer yet.
    if BEGIN in all_modules:
        found += [f"{FOLDER}{name}.js: nothing that {BEGIN}.js reaches imports it"
                  for name in sorted(set(all_modules) - reached(graph))]
    return found


def effect_findings(root):
    """Rows of the table of effects that the viewer's own copy lacks, has otherwise or elsewhere."""
    here = next((path for path in tree.files(root, web.SCRIPTS) if path == EFFECTS_HERE), None)
    if here is None:
        return []
    rows = [(name, kind, text.replace('\\"', '"'))
            for name, kind, text in EFFECT.findall(tree.read(root, EFFECTS))]
    copies = EFFECT_HERE.findall(tree.read(root, here))
    for place, (row, copy) in enumerate(itertools.zip_longest(rows, copies)):
        if row != copy:
            return [f"{here}: row {place + 1} is {copy}, and {row} in {EFFECTS}"]
    return []


def check(root):
    found = import_findings(root) + effect_findings(root)
    for name, text in sorted(modules(root).items()):
        code = web.blanked(text)
        rules = RULES if name == NETWORK_MODULE else RULES + (NETWORK,)
        for pattern, why in rules:
            found += matches(f"{FOLDER}{name}.js", code, pattern, why)
    for path in tree.files(root, web.STYLES + (".html",)):
        if path.startswith(FOLDER):
            for pattern, why in (STYLE_RULE,) if path.endswith(web.STYLES) else PAGE_RULES:
                found += matches(path, tree.read(root, path), pattern, why)
    return found


def self_test():
    app, other = FOLDER + "app.js", FOLDER + "other.js"
    clean = {app: "// fetch('x') and a == b in a comment\nimport {f} from 'viewer/other';\n"
                  "import('viewer/late');f(`eval( ${'innerHTML'}`, /fetch(/, a === b, a / b, 'var x');\n",
             other: "import {\n  startLive,\n} from 'viewer/live';\nexport const f = startLive;\n",
             FOLDER + "live.js": "export const startLive = () => fetch('/api');\n",
             FOLDER + "late.js": "",
             FOLDER + "lib/big.js": "eval('x'); var y;\n",
             FOLDER + "a.css": "a { background: url(data:image/png;base64,AA); }\n",
             FOLDER + "index.html": '<a href="#token">x</a>\n'}
    tree.expect(check, clean)
    for line, word in [
            ("node.innerHTML = text;", "makes a page of text"), ("x = `${eval('1')}`;", "code of text"),
            ("document.write('x');", "makes a page"), ("new Function('x');", "code of text"),
            ("await import(name);", "what no reader can see"),
            ("await import('viewer/none');", "is no viewer/NAME"), ("if (a == b) f();", "loosely"),
            ("var a = 1;", "with var"), ("console.log(1);", "past the page"),
            ("window.fetch('x');", "uses the network"), ("new EventSource('x');", "uses the network"),
            ("const s = navigator.sendBeacon;", "uses the network"),
            ("import 'https://elsewhere/x.js';", "is no viewer/NAME"),
            ("import {a} from './other.js';", "is no viewer/NAME"),
            ("export {a} from 'viewer/none';", "is no viewer/NAME")]:
        tree.expect(check, clean | {app: clean[app] + line + "\n"}, "app.js:4: ")
        tree.expect(check, clean | {app: clean[app] + line + "\n"}, word)
    effects = clean | {EFFECTS: '// Rows.\nEFFECT(logged, log, "{} \\"{}\\"")\nEFFECT(woke, power, "awake")\n',
                       app: "import 'viewer/other';\nimport 'viewer/late';\nimport 'viewer/effects';\n"}
    copies = "export const effectRows = [\n  ['logged', 'log', '{} \"{}\"'],\n  ['woke', 'power', 'awake'],\n];\n"
    tree.expect(check, effects | {EFFECTS_HERE: copies})
    tree.expect(check, effects | {EFFECTS_HERE: copies.replace("'awake'", "'awoke'")}, "effects.js: row 2 is")
    tree.expect(check, effects | {EFFECTS_HERE: copies.replace("  ['woke', 'power', 'awake'],\n", "")},
                "effects.js: row 2 is None")
    tree.expect(check, clean | {FOLDER + "lone.js": ""}, "lone.js: nothing that app.js reaches")
    tree.expect(check, clean | {FOLDER + "live.js": "import 'viewer/other';\n"},
                "other.js: imports itself: other → live → other")
    tree.expect(check, clean | {FOLDER + "a.css": "@import 'x.css';\nb { src: url(x.woff); }\n"},
                "a.css:1: @import", "a.css:2: url(")
    tree.expect(check, clean | {FOLDER + "index.html": '<img src="http://x/">\n<p onclick="f()">\n'},
                "index.html:1: http://", "index.html:2: <p onclick=")


if __name__ == "__main__":
    tree.run(__doc__, self_test, check, "modules", "the viewer keeps its walls",
             lambda root: len(modules(root)))
