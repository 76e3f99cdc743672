#!/usr/bin/env python3
"""Checks words that must not stand in the sources: conditional compilation in the helper, notes of
unfinished work, trailing underscores, commented-out code, headers without a guard, comments that
begin like a question and ask none.

usage: words.py REPOSITORY
       words.py --self-test
"""
import re

import tree
import web

ENDINGS = tree.SOURCES + tree.HEADERS + web.SCRIPTS + web.STYLES
CONDITIONAL = re.compile(r"^\s*#\s*(?:if|ifdef|ifndef|elif|else)\b", re.M)
CONDITIONAL_ALLOWED = {"KorvelHelper/Base/Annotations.h", "KorvelHelper/Logger.h"}
UNFINISHED = re.compile(r"\b(?:TODO|FIXME|XXX|HACK)\b")
# A library's own name is left to it.
UNDERSCORE = re.compile(r"\b(?!svr_sock_\b)[A-Za-z]\w*_\b(?!\s*\()")
USING_NAMESPACE = re.compile(r"^\s*using\s+namespace\b", re.M)
COMMENTED_CODE = re.compile(r"^\s*//(?!/)\s*(?:[\w:.<>\->*&]+\s*\(.*\);|[\w:<>]+ \w+ = .*;|(?:if|for"
                            r"|while) \(.*\) \{|return\b.*;|#\s*include\b.*|\})\s*$", re.M)
COMMENT = re.compile(r"(?P<code>.*?)///?<? ?(?P<words>.*)")


def empty_questions(text):
    """(line, words) of every comment that begins with what or who and does not go on to ask."""
    inside = False
    for number, line in enumerate(text.splitlines(), 1):
        comment = COMMENT.fullmatch(line)
        begins = comment and not (inside and not comment["code"].strip())
        if begins and re.match(r"(?:What|Who|Whoever) [^?.]*(?:\.|$)", comment["words"]):
            yield number, comment["words"]
        inside = bool(comment)


def commented(name, text):
    """A style's comments as those of C++, for the rules about comments."""
    if not name.endswith(web.STYLES):
        return text
    return re.sub(r"/\*(.*?)(?:\*/|$)", r"//\1", text, flags=re.M)


def code_of(name, text):
    return web.blanked(text) if name.endswith(web.SCRIPTS) else tree.blanked(text)


def check(root):
    found = []

    def each(pattern, text, why):
        for match in pattern.finditer(text):
            start = match.end() - len(match.group(0).lstrip())
            found.append(f"{name}:{tree.line_of(text, start)}: {match.group(0).strip()}: {why}")

    for name in tree.files(root, ENDINGS):
        text = commented(name, tree.read(root, name))
        code = code_of(name, text)
        core = name.startswith("KorvelHelper/") and not name.startswith("KorvelHelper/macOS/")
        if core and name not in CONDITIONAL_ALLOWED:
            each(CONDITIONAL, code, "no conditional compilation in the helper; platforms differ below "
                                    "the seam")
        each(UNFINISHED, text, "finish it, or write it down where work is planned")
        each(COMMENTED_CODE, text, "commented-out code")
        each(UNDERSCORE, code, "names carry no trailing underscore")
        if name.endswith(".h"):
            each(USING_NAMESPACE, code, "a header must not pull a namespace into its includers")
            if "#pragma once" not in text:
                found.append(f"{name}:1: a header without #pragma once")
        for line, words in empty_questions(text):
            found.append(f"{name}:{line}: {words}: give the comment a subject and a verb")
        if "\t" in text:
            found.append(f"{name}:{tree.line_of(text, text.index(chr(9)))}: a tab")
        if text and not text.endswith("\n"):
            found.append(f"{name}: the last line has no end")
    return found


def self_test():
    name = "KorvelHelper/A.cpp"
    tree.expect(check, {name: "// A sentence with code() in it.\nint a_b = __LINE__;\n"
                              "// What ends it? A sentence, or\n// What it says.\n",
                        "KorvelHelper/macOS/M.mm": "#if 1\n#endif\n",
                        "KorvelHelper/Logger.h": "#pragma once\n#if defined(__clang__)\n#endif\n",
                        "Tests/t.cpp": "#ifdef X\n#endif\n"})
    for text, word in [("#ifdef __APPLE__\n#endif\n", "no conditional"),
                       ("int a;  // TODO: more\n", "finish it"),
                       ("int count_ = 0;\n", "trailing underscore"),
                       ("int a;\n// callIt(3);\n", "A.cpp:2: // callIt(3);: commented-out code"),
                       ("//  return a;\n", "commented-out code"),
                       ("// What is left.\n", "A.cpp:1: What is left.: give the comment a subject"),
                       ("int a;\n/// Whoever comes\n/// first. Why?\n", "A.cpp:2:"),
                       ("int a;  ///< Who did it.\n", "a subject and a verb"),
                       ("int a;\tint b;\n", "a tab"), ("int a;", "no end")]:
        tree.expect(check, {name: text}, word)
    tree.expect(check, {"KorvelHelper/A.h": "int a();\n"}, "without #pragma once")
    tree.expect(check, {"KorvelHelper/A.h": "#pragma once\nusing namespace std;\n"}, "a namespace")
    script, style = "VirtualMac/Viewer/a.js", "VirtualMac/Viewer/a.css"
    tree.expect(check, {script: "// Why is it so?\nf(/a_ TODO_/, `b_`);\n".replace("TODO", "x"),
                        style: "/* A colour that both sides share. */\n",
                        "VirtualMac/Viewer/lib/b.js": "a_\t// TODO"})
    for text, word in [("// TODO: more\n", "finish it"), ("// const a = 1;\n", "commented-out code"),
                       ("let a_ = `${b}`;\n", "trailing underscore"), ("a\t\n", "a tab"),
                       ("// What it shows.\n", "a.js:1: What it shows.: give the comment a subject"),
                       ("f(`${b_}`);\n", "trailing underscore"), ("f();", "no end")]:
        tree.expect(check, {script: text}, word)
    tree.expect(check, {style: "/* What the list shows. */\na {}\n"}, "a subject and a verb")


if __name__ == "__main__":
    tree.run(__doc__, self_test, check, "files", "no unwanted words",
             lambda root: len(tree.files(root, ENDINGS)))
