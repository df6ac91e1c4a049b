"""Finds the places of a C++ source where one small change makes another program.

The source is read by its tokens, not parsed: the tree is formatted, so an operator between two values
has spaces around it and a template's bracket has none. A change that doesn't compile isn't counted.
"""

import dataclasses
import re

OPERATORS = {" == ": " != ", " != ": " == ", " < ": " <= ", " <= ": " < ", " > ": " >= ",
             " >= ": " > ", " && ": " || ", " || ": " && "}
# Comments, raw strings, strings, characters, preprocessor lines, attributes, compile-time checks.
NOT_CODE = re.compile(
    r"""//[^\n]*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|(?<![0-9a-fA-F])'(?:\\.|[^'\\\n])+'"""
    r"""|^[ \t]*\#(?:\\\n|[^\n])*|\[\[.*?\]\]|\bstatic_assert\(.*?\);|\bif constexpr \(""",
    re.DOTALL | re.MULTILINE)
NUMBER = re.compile(r"(?<![\w.'])(0x[0-9A-Fa-f']+|[0-9][0-9']*)(?=[uUlL]*\b)(?![\w.]*\.)")
CONDITION = re.compile(r"\b(?:if|while) \(")
CALL = re.compile(r"(?<=[;{}):])\s*\n\s*((?:\w+(?:::|\.|->|\(\)\.|\(\)->))*\w+)\(")
NO_CALLS = {"if", "for", "while", "switch", "return", "catch", "defined", "sizeof"}


@dataclasses.dataclass(frozen=True)
class Site:
    path: str
    begin: int
    end: int
    before: str
    replacement: str
    kind: str
    line: int

    def key(self):
        return f"{self.path}:{self.begin}:{self.end}:{self.replacement}"


def closing(code, opened):
    """The place of the bracket that closes the one at `opened`, or -1."""
    depth = 0
    for place in range(opened, len(code)):
        depth += {"(": 1, ")": -1}.get(code[place], 0)
        if depth == 0:
            return place
    return -1


def sites(path, text):
    # The same text with blanks for what isn't code; lines and places stay.
    code = NOT_CODE.sub(lambda found: re.sub(r"[^\n]", " ", found.group()), text)
    found = []

    def add(begin, end, replacement, kind):
        found.append(Site(path, begin, end, text[begin:end], replacement, kind, text.count("\n", 0, begin) + 1))

    for old, new in OPERATORS.items():
        kind = "junction" if old.strip() in ("&&", "||") else "comparison"
        # An operator may end its line.
        for match in re.finditer(r"(?<= )" + re.escape(old.strip()) + r"(?=[ \n])", code):
            add(match.start(), match.end(), new.strip(), kind)
    for match in NUMBER.finditer(code):
        value = int(match.group(1).replace("'", ""), 0)
        add(match.start(1), match.end(1), str(value + 1), "constant")
    for match in re.finditer(r"\breturn (true|false);", code):
        other = "false" if match.group(1) == "true" else "true"
        add(match.start(1), match.end(1), other, "answer")
    for match in re.finditer(r"(?<!return )\b(true|false)\b", code):
        other = "false" if match.group(1) == "true" else "true"
        add(match.start(1), match.end(1), other, "constant")
    for match in CONDITION.finditer(code):
        end = closing(code, match.end() - 1)
        begin = code.rfind(";", match.end(), end) + 1 or match.end()
        if end > 0 and " = " not in code[begin:end]:
            add(begin, end, f"!({text[begin:end].strip()})", "condition")
    for match in CALL.finditer(code):
        end = closing(code, match.end() - 1)
        if match.group(1) not in NO_CALLS and end > 0 and code[end + 1:end + 2] == ";":
            add(match.start(1), end + 1, "(void)0", "call")
    return found
