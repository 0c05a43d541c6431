"""The single faults that can be planted in a C++ source file; what scripts/mutants draws from.

The reader knows tokens and brackets, not the language: a fault that does not compile is found out by the compiler. What
only speaks (comments, string literals, log calls, dumps) and what the compiler checks by itself (static assertions) is
blanked out before the search, so that no fault falls there.
"""

import re
from collections import namedtuple

# kind: one of KINDS; text[begin:end] is replaced.
Fault = namedtuple("Fault", "path kind begin end replacement")
KINDS = ("operator", "constant", "cell", "statement")

# Written with a blank on both sides, so that template brackets, references and pointers are none of them.
BINARY = {
    "==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"],
    "&&": ["||"], "||": ["&&"], "+": ["-"], "-": ["+"], "*": ["+"], "/": ["*"], "%": ["/"], "&": ["|"], "|": ["&"],
    "^": ["|"], "<<": [">>"], ">>": ["<<"], "+=": ["-="], "-=": ["+="], "|=": ["&="], "&=": ["|="],
}
SILENT = re.compile(
    r"\b(static_assert|__attribute__|LOG_[A-Z]+|KZ_DEBUG_PRINT|kzDebugPrint|hexprint\w*|[dD]ump\w*|printf|"
    r"fprintf(?=\(stderr))\s*(?=\()"
)
LITERAL_OR_COMMENT = re.compile(
    r'//[^\n]*|/\*.*?\*/|R"(?P<tag>[^()\s]*)\(.*?\)(?P=tag)"|"(?:[^"\\\n]|\\.)*"|^[ \t]*#(?:[^\n]*\\\n)*[^\n]*',
    re.S | re.M,
)
# break, continue, return without a value, a call, an assignment or an increment; not what begins with two words.
STATEMENT = re.compile(
    r"^[ ]{4,}(?!(?:for|if|while|switch|void|bool|int)\b)"
    r"(?P<text>(?:break|continue|return|(?:\+\+|--|\*)?[A-Za-z_][\w:.]*(?:(?:->|\.|::)\w+|\[[^\]\n]*\]|\(\))*"
    r"\s*(?:[-+|&^]?=(?!=)|\(|\+\+|--)[^;{}]*);)",
    re.M,
)
DECLARES = re.compile(r"using|typedef|friend|static_cast<void>|[\w:]+\([^;]*\)( const| noexcept| override| = \w+)+;")
NUMBER = re.compile(r"(?<![\w.'])(0[xX][\da-fA-F]+|\d+)([uUlLzZ]*)(?![\w.'])")
CHARACTER = re.compile(r"(?<!\w)'([ !#-&(-\[\]-~])'")
OPENING, CLOSING = "([{", ")]}"


def blank(text, begin, end, keep=""):
    """The text with a stretch made of blanks; lines and the characters of `keep` stay."""
    return text[:begin] + re.sub(rf"[^\n{re.escape(keep)}]" if keep else r"[^\n]", " ", text[begin:end]) + text[end:]


def closing_of(text, opening):
    """Where the bracket that opens at `opening` closes; the end of the text when it does not."""
    depth = 0
    for at in range(opening, len(text)):
        depth += (text[at] in OPENING) - (text[at] in CLOSING)
        if depth == 0:
            return at
    return len(text)


def code_of(text):
    """The text with everything blanked out that cannot be at fault. String literals keep their quotes."""
    code = text
    for match in LITERAL_OR_COMMENT.finditer(text):
        code = blank(code, match.start(), match.end(), keep='"' if match.group().startswith(('"', "R")) else "")
    # Character literals may hold brackets: they count as words from here on, apart from the search for themselves.
    code = re.sub(r"'(?:[^'\\\n]|\\[^\n]+?)'", lambda match: "'" + "_" * (len(match.group()) - 2) + "'", code)
    for match in SILENT.finditer(code):
        code = blank(code, match.start(), closing_of(code, match.end()) + 1)
    return code


def operators(code):
    for match in re.finditer(r"(?<= )(\S{1,2})(?=[ \n])", code):
        for replacement in BINARY.get(match.group(), []):
            yield match.start(), match.end(), replacement
    for match in re.finditer(r"(?<![\w)\]]) ?(!)(?=[\w(:*])", code):
        yield match.start(1), match.end(1), ""
    for match in re.finditer(r"\+\+|--", code):
        yield match.start(), match.end(), "--" if match.group() == "++" else "++"
    for match in re.finditer(r"\b(?:if|while) \(", code):
        begin, end = match.end(), closing_of(code, match.end() - 1)
        if not re.search(r"[;!]|&&|\|\||[<>=]=| [<>] ", code[begin:end]):  # those have faults of their own
            yield begin, begin, "!"


def constants(code, text):
    for match in NUMBER.finditer(code):
        if re.search(r"\)[\s\w]*=\s*$", code[max(0, match.start() - 24) : match.start()]):
            continue  # a pure virtual function
        digits, suffix = match.groups()
        base = 16 if digits[:2] in ("0x", "0X") else 8 if digits[0] == "0" and len(digits) > 1 else 10
        number = int(digits, base)
        for other in {number + 1, max(number - 1, 0), 0 if number > 1 else number} - {number}:
            yield match.start(), match.end(), {16: "0x%X", 8: "0%o", 10: "%d"}[base] % other + suffix
    for match in re.finditer(r"\b(true|false)\b", code):
        yield match.start(), match.end(), "false" if match.group() == "true" else "true"
    for match in CHARACTER.finditer(text):
        if code[match.start() : match.end()] == "'_'":
            yield match.start(1), match.end(1), "0" if match.group(1) != "0" else "1"


def elements(code, opening):
    """The stretches between the commas of a brace list; nothing for a block of statements."""
    closing = closing_of(code, opening)
    if ";" in code[opening:closing]:
        return []
    stretches, begin, at = [], opening + 1, opening + 1
    while at <= closing and at < len(code):
        if at == closing or code[at] == ",":
            word = code[begin:at]
            if word.strip():
                begin += len(word) - len(word.lstrip())
                stretches.append((begin, begin + len(word.strip())))
            begin = at + 1
        elif code[at] in OPENING:
            at = closing_of(code, at)
        at += 1
    return stretches


def cells(code, text):
    """A cell of a table takes the value of its column in the next row, an element of a list that of the next."""

    def swaps(mine, other):
        if not re.search(r'["\n]| = ', mine + other) and mine != other:
            yield other

    for match in re.finditer(r"\{", code):
        rows = elements(code, match.start())
        if len(rows) < 2:
            continue
        plain = not any(code[begin] == "{" for begin, _ in rows)
        if plain and not re.search(r"(=|[\w\]]|\breturn)\s*$", code[max(0, match.start() - 60) : match.start()]):
            continue  # a row: its table is looked at as a whole
        for (begin, end), (next_begin, next_end) in zip(rows, rows[1:]):
            columns = [((begin, end), (next_begin, next_end))]
            if code[begin] == "{" and code[next_begin] == "{":
                columns = list(zip(elements(code, begin), elements(code, next_begin)))
            for (left, right), (other_left, other_right) in columns:
                if "{" not in code[left:right] + code[other_left:other_right]:
                    for other in swaps(text[left:right], text[other_left:other_right]):
                        yield left, right, other


def statements(code):
    for match in STATEMENT.finditer(code):
        statement = match.group("text")
        if not DECLARES.match(statement):
            yield match.start("text"), match.end("text"), ";" + "\n" * statement.count("\n")


def faults_of(path, text):
    """Every fault of one file, in the order of the file within its kind."""
    code = code_of(text)
    found = {
        "operator": operators(code),
        "constant": constants(code, text),
        "cell": cells(code, text),
        "statement": statements(code),
    }
    return [
        Fault(path, kind, begin, end, replacement)
        for kind in KINDS
        for begin, end, replacement in sorted(set(found[kind]))
        if text[begin:end] != replacement
    ]
