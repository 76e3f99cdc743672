#!/usr/bin/env python3
"""Checks lengths: of functions, sources, headers, tables, JavaScript, styles, Python and shell files.

usage: sizes.py REPOSITORY
       sizes.py --self-test
"""
import ast
import re

import tree
import web

FUNCTION_LINES = 70
SEAM_HEADER_LINES, HEADER_LINES, SOURCE_LINES, SHELL_LINES = 80, 150, 400, 150
# The core stays one declaration, so that its fields and their guards are read side by side.
LONGER = {"KorvelHelper/HelperImpl.h": 230}
NOT_A_FUNCTION = re.compile(r"^\s*(?:inline\s+)?(?:namespace|class|struct|union|enum|extern)\b|=\s*$")


def function_bodies(code):
    """(first line, last line) of every outermost function body: a block at namespace or class level
    whose head has a parameter list. A lambda counts as part of the function it stands in. The
    format gives a block's brace a space and an initialiser's none."""
    stack, head_start, body = [], 0, None
    for offset, character in enumerate(code):
        if character == "{" and not code[offset - 1].isspace():
            stack.append(None)
            continue
        if character == "}" and stack and stack[-1] is None:
            stack.pop()
            continue
        if character == "{":
            head = code[head_start:offset]
            head = re.sub(r"^\s*(?:#[^\n]*\n\s*)+", "", head)
            head = re.sub(r"^\s*template\s*<[^{;]*?>\s*(?=\w)", "", head)
            is_function = body is None and ")" in head and not NOT_A_FUNCTION.search(head)
            stack.append(is_function)
            if is_function:
                start = offset - len(head.lstrip())
                body = tree.line_of(code, start)
        elif character == "}" and stack:
            if stack.pop():
                yield body, tree.line_of(code, offset)
                body = None
        if character in "{};" and body is None:
            head_start = offset + 1


def script_functions(text):
    """(first line, last line) of every outermost function of a JavaScript file."""
    return function_bodies(re.sub(r"\bexport (?:default )?", lambda match: " " * len(match.group(0)),
                                  web.blanked(text)))


def python_functions(text):
    """(first line, last line) of every function of a Python file."""
    return [(node.lineno, node.end_lineno) for node in ast.walk(ast.parse(text))
            if isinstance(node, (ast.FunctionDef, ast.AsyncFunctionDef))]


def lines_of_source(name):
    if name.endswith(tree.SOURCES):
        return SOURCE_LINES
    seam = name.startswith("KorvelHelper/Platform/")
    return LONGER.get(name, SEAM_HEADER_LINES if seam else HEADER_LINES)


def findings(name, text, allowed, functions):
    lines = text.count("\n")
    if lines > allowed:
        yield f"{name}: {lines} lines, {allowed} at most"
    for first, last in functions:
        if last - first + 1 > FUNCTION_LINES:
            yield (f"{name}:{first}: a function of {last - first + 1} lines, "
                   f"{FUNCTION_LINES} at most")


def check(root):
    found = []
    for name in tree.files(root):
        text = tree.read(root, name)
        found += findings(name, text, lines_of_source(name), function_bodies(tree.blanked(text)))
    for name in tree.files(root, web.SCRIPTS + web.STYLES):
        text = tree.read(root, name)
        functions = script_functions(text) if name.endswith(web.SCRIPTS) else []
        found += findings(name, text, SOURCE_LINES, functions)
    for name, language in tree.scripts(root):
        text = tree.read(root, name)
        if language == "python":
            found += findings(name, text, SOURCE_LINES, python_functions(text))
        else:
            found += findings(name, text, SHELL_LINES, [])
    return found


def self_test():
    short = "namespace n {\nclass C {\n int f(int a) const { return a; }\n};\n}\n"
    long_body = "  x = {1, 2};\n" * 69
    tree.expect(check, {"KorvelHelper/A.cpp": short + "void f() {\n" + "  ;\n" * 68 + "}\n"})
    tree.expect(check, {"KorvelHelper/A.cpp": short + "void f() {\n" + long_body + "}\n"},
                "A.cpp:6: a function of 71 lines")
    tree.expect(check, {"KorvelHelper/A.cpp":
                        "C::C(int a)\n    : b{a} {\n" + long_body + "}\n"}, "A.cpp:1: a function")
    tree.expect(check, {"Tests/unit/T.cpp": "TEST(A, B) {\n" + long_body + "}\n"}, "T.cpp:1:")
    tree.expect(check, {"Tests/unit/T.cpp": "\n" * 401}, "401 lines, 400 at most")
    tree.expect(check, {"KorvelHelper/M.h": "\n" * 151}, "151 lines, 150 at most")
    tree.expect(check, {"VirtualMac/M.def": "\n" * 151}, "M.def: 151 lines, 150 at most")
    tree.expect(check, {"script/a.py": "\n" * 401, "script/b": "#!/usr/bin/env bash\n" * 151,
                        "script/c": "text\n" * 999, "script/d.sh": "\n" * 150},
                "a.py: 401 lines, 400 at most", "b: 151 lines, 150 at most")
    tree.expect(check, {"Tests/t.py": "\ndef f():\n" + "    pass\n" * 70}, "t.py:2: a function of 71")
    statements = "    f({a: `${b}}`}, /[{]/);\n"
    methods = "export class A {\n" + ("  m(a = {}) {\n" + statements * 34 + "  }\n") * 2 + "}\n"
    tree.expect(check, {"VirtualMac/Viewer/a.js": methods, "VirtualMac/Viewer/lib/b.js": "\n" * 999})
    tree.expect(check, {"VirtualMac/Viewer/a.js": "const a = {};\nexport function f({b}) {\n"
                        + statements * 69 + "}\n" + "\n" * 330, "VirtualMac/Viewer/a.css": "\n" * 401},
                "a.css: 401 lines", "a.js: 402 lines, 400 at most", "a.js:2: a function of 71 lines")
    tree.expect(check, {"KorvelHelper/Platform/P.h": "\n" * 81}, "81 lines, 80 at most")
    assert list(function_bodies(tree.blanked("struct A { int x = 1; };\nint f() { return '{'; }\n"
                                             "int g() {\n}\n"))) == [(2, 2), (3, 4)]


if __name__ == "__main__":
    tree.run(__doc__, self_test, check, "files", "every file and function is short enough",
             lambda root: len(tree.files(root, tree.SOURCES + tree.HEADERS + web.SCRIPTS + web.STYLES))
             + len(tree.scripts(root)))
