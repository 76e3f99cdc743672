"""The viewer's JavaScript without comments and the insides of literals, for the checks of the tree."""
import re

SCRIPTS = (".js",)
STYLES = (".css",)
# Before a regular expression stands an operator, an opening bracket or one of these words.
BEFORE_EXPRESSION = re.compile(r"(?:^|[=(,;:!&|?{}\[+*%~^<>-]|\b(?:return|typeof|case|in|of|await|=>))\s*$")
EXPRESSION = re.compile(r"/(?![*/])(?:[^\\/\[\n]|\\.|\[(?:[^\\\]\n]|\\.)*\])+/[a-z]*")
TOKEN = re.compile(r"""//[^\n]*|/\*.*?\*/|'(?:[^'\\\n]|\\.)*'|"(?:[^"\\\n]|\\.)*"|[`{}/]""", re.S)


def spaces(text):
    return re.sub(r"[^\n]", " ", text)


def template(text, start, stack):
    """The end of a template's text that begins at `start`: behind its last character, or behind the
    `${` of an expression, which `stack` is told."""
    part = re.compile(r"(?:[^`\\$]|\\.|\$(?!\{))*(`|\$\{)", re.S).match(text, start)
    if part is None:
        return len(text), ""
    if part.group(1) == "${":
        stack.append("`")
    return part.end(), part.group(1)


def blanked(text):
    """The text with comments and the insides of literals blanked; the expressions in templates stay
    and lines keep their numbers."""
    out, position, stack = [], 0, []
    while match := TOKEN.search(text, position):
        token, start = match.group(0), match.start()
        out.append(text[position:start])
        position = match.end()
        if token == "`" or (token == "}" and stack and stack[-1] == "`"):
            if token == "}":
                stack.pop()
            position, ending = template(text, match.end(), stack)
            inside = text[match.end():position - len(ending)]
            out.append(token + spaces(inside) + ending)
        elif token in "{}":
            if token == "{":
                stack.append("{")
            elif stack:
                stack.pop()
            out.append(token)
        elif token == "/":
            expression = EXPRESSION.match(text, start)
            before = "".join(out)[-200:]
            if expression and BEFORE_EXPRESSION.search(before):
                position = expression.end()
                out.append("/" + spaces(expression.group(0)[1:-1]) + "/")
            else:
                out.append(token)
        elif token.startswith("/"):
            out.append(spaces(token))
        else:
            out.append(token[0] + spaces(token[1:-1]) + token[-1])
    return "".join(out) + text[position:]
