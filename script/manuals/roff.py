"""Markdown as the documents use it, and texts of the programs, in the language of manual pages."""
import re

CELL = re.compile(r"(?<!\\)\|")
CODE = re.compile(r"`([^`]+)`")
LINK = re.compile(r"!?\[((?:[^\[\]]|\[[^\]]*\])*)\]\([^)\s]*\)")
STRONG = re.compile(r"\*\*(.+?)\*\*")
SLANTED = re.compile(r"(?<![\w*])\*([^*\s][^*]*)\*(?![\w*])")


def plain(text):
    """A text without markup, safe anywhere in a line."""
    return text.replace("\\", "\\e").replace("-", "\\-")


def line(text):
    """Guards a line's begin, where a point or an apostrophe would be a request."""
    return "\\&" + text if text[:1] in (".", "'") else text


def inline(text):
    """Markup within a paragraph. The code in it is kept from the other rules."""
    kept = []

    def keep(match):
        kept.append(f"\\fB{plain(match.group(1))}\\fR")
        return f"\0{len(kept) - 1}\0"

    text = LINK.sub(r"\1", CODE.sub(keep, text.replace("\\|", "|")))
    text = text.replace("\\", "\\e")
    text = STRONG.sub(r"\\fB\1\\fR", text)
    text = SLANTED.sub(r"\\fI\1\\fR", text)
    text = re.sub(r"(?<![\w-])--(?=\w)", r"\\-\\-", text)
    return re.sub("\0(\\d+)\0", lambda match: kept[int(match.group(1))], text)


def filled(text):
    return line(inline(" ".join(text.split())))


def code(lines):
    return [".PP", ".RS 4", ".EX", *(line(plain(each)) for each in lines), ".EE", ".RE"]


def heading(level, text):
    words = re.sub(r"[`*]", "", LINK.sub(r"\1", text))
    if level > 2:
        return [f'.SS "{plain(words)}"']
    return [f'.SH "{plain(words.upper())}"']


def cells(row):
    return [cell.strip() for cell in CELL.split(row.strip())[1:-1]]


def table(rows):
    """A row is a paragraph under its first cell; a column beyond the second is told by its name."""
    names, out = cells(rows[0]), []
    for row in rows[2:]:
        first, *others = cells(row)
        texts = [inline(each) if index == 0 else f"({inline(name.lower())}: {inline(each)})"
                 for index, (name, each) in enumerate(zip(names[1:], others)) if each]
        out += [".TP", line(inline(first)), line(" ".join(texts) or "\\&")]
    return out


def blocks(text):
    """(kind, lines) of every block of a document."""
    lines = re.sub(r"<!--.*?-->\n?", "", text, flags=re.S).splitlines()
    at = 0
    while at < len(lines):
        first, begin = lines[at], at
        at += 1
        if not first.strip():
            continue
        if first.startswith("```"):
            while not lines[at].startswith("```"):
                at += 1
            at += 1
            yield "code", lines[begin + 1:at - 1]
        elif first.startswith("    "):
            while at < len(lines) and lines[at].startswith("    "):
                at += 1
            yield "code", [each[4:] for each in lines[begin:at]]
        elif first.startswith("#"):
            yield "heading", [first]
        elif first.startswith("|"):
            while at < len(lines) and lines[at].startswith("|"):
                at += 1
            yield "table", lines[begin:at]
        else:
            new = re.compile(r"\s*$|```|#|\||- |\d+\. ")
            while at < len(lines) and not new.match(lines[at]):
                at += 1
            yield "item" if re.match(r"- |\d+\. ", first) else "paragraph", lines[begin:at]


def document(text, with_tables=True):
    """A whole document, or a section of one, without a heading of the first level."""
    out = []
    for kind, lines in blocks(text):
        whole = " ".join(each.strip() for each in lines)
        if kind == "code":
            out += code(lines)
        elif kind == "heading":
            marks, words = whole.split(" ", 1)
            out += heading(len(marks), words) if len(marks) > 1 else []
        elif kind == "table" and with_tables:
            out += table(lines)
        elif kind == "item":
            mark, words = whole.split(" ", 1)
            sign = "\\(bu" if mark == "-" else mark
            out += [f'.IP "{sign}" 4', filled(words)]
        elif kind == "paragraph" and not whole.startswith("!["):
            out += [".PP", filled(whole)]
    return without_idle(out)


def without_idle(lines):
    """No paragraph is begun where a section does it."""
    return [each for before, each in zip(["", *lines], lines)
            if each != ".PP" or not before.startswith((".SH", ".SS"))]
