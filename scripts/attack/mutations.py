"""The small changes of a C++ source with which scripts/attack/mutants tries the tests: see find.

Works on tokens. Comments, texts, preprocessor lines, headings of templates and static assertions stay as they are. The
layout tells what a sign means: the operator of two operands has spaces on both sides, a template's brackets have not.
"""
import collections
import re

TOKEN = re.compile(r"""(?P<skip>\s+|//[^\n]*|/\*.*?\*/|^[ ]*\#(?:\\\n|[^\n])*)"""
                   r"""|(?P<text>\w*"(?:\\.|[^"\\\n])*"|L?'(?:\\.|[^'\\\n])+')|(?P<number>\d(?:'?[\w.])*)"""
                   r"""|(?P<name>[A-Za-z_]\w*)|(?P<sign><=>|->|::|\+\+|--|<<=|>>=|[-+*/%&|^=!<>]=|&&|\|\||<<|.)""",
                   re.DOTALL | re.MULTILINE)
RELATIONS = {"<": ("<=", ">="), "<=": ("<", ">"), ">": (">=", "<="), ">=": (">", "<"), "==": ("!=",), "!=": ("==",)}
LOGIC = {"&&": "||", "||": "&&"}
SUMS = {"+": "-", "-": "+", "&": "|", "|": "&", "+=": "-=", "-=": "+=", "++": "--", "--": "++"}
CONSTANTS = {"true": "false", "false": "true", "TRUE": "FALSE", "FALSE": "TRUE", "0": "1", "1": "0"}
LOCK = re.compile(r"(const )?(std::(scoped_lock|lock_guard|unique_lock)|CAutoLock) \w+[({]")
PARAMETER = re.compile(r"const |[\w:<>]+[&*]* [&*]*\w+$|[\w:]+[&*]+$")
DECLARATION = re.compile(r"^(?!throw)[\w:]+(<.*?>)?[*&]* [*&]*[\w:]+\s*([=({\[;]|$)|= (default|delete)$|\)[\w\s]*: m_",
                         re.DOTALL | re.MULTILINE)
NO_STATEMENT = set("""break case catch class const constexpr continue default do else enum explicit extern for friend goto
                      if inline namespace private protected public return static static_assert struct switch template
                      thread_local try typedef typename using virtual while""".split())
PLAIN_RESULTS = {"true", "false", "TRUE", "FALSE", "nullptr", "{}", "0", "1", ""}

Token = collections.namedtuple("Token", "kind text start end")

# What is changed into what; before and after: the line or lines that it touches, as one line without indentation.
Mutant = collections.namedtuple("Mutant", "path line kind before after start end replacement")


def find(root, path):
    """The changes of the source at this path, from the project's folder on, in their order in the text."""
    return Source(path, (root / path).read_text(encoding="utf-8")).find()


class Source:
    def __init__(self, path, text):
        self.path = path
        self.text = text
        self.tokens = [Token(match.lastgroup, match.group(), match.start(), match.end())
                       for match in TOKEN.finditer(text) if match.lastgroup != "skip"]
        self.closing = {}  # index of each bracket's partner
        self.within = []  # the bracket in which each token stands
        opened = []
        for index, token in enumerate(self.tokens):
            if token.kind == "sign" and token.text in ")]}":
                self.closing[opened.pop()] = index
            self.within.append(self.tokens[opened[-1]].text if opened else "")
            if token.kind == "sign" and token.text in "([{":
                opened.append(index)
        self.mutants = []

    def add(self, kind, start, end, replacement):
        first = self.text.rfind("\n", 0, start) + 1
        last = self.text.find("\n", end)
        before = self.text[first:last]
        after = self.text[first:start] + replacement + self.text[end:last]
        self.mutants.append(Mutant(self.path, self.text.count("\n", 0, start) + 1, kind, " ".join(before.split()),
                                   " ".join(after.split()), start, end, replacement))

    def find(self):
        index = 0
        while index < len(self.tokens):
            token = self.tokens[index]
            if token.text in ("static_assert", "template"):
                while self.tokens[index].text not in ";{":
                    index += 1
            elif token.kind == "sign":
                self.find_sign(token)
            elif token.kind != "text":
                self.find_constant(token)
            if token.kind == "name" and index + 1 < len(self.tokens) and self.tokens[index + 1].text == "(":
                self.find_call(index)
            if self.begins_statement(index):
                self.find_statement(index)
            index += 1
        return self.mutants

    def find_sign(self, token):
        spaced = self.text[token.start - 1].isspace() and self.text[token.end : token.end + 1].isspace()
        if spaced and token.text in RELATIONS:
            for other in RELATIONS[token.text]:
                self.add("relation", token.start, token.end, other)
        elif spaced and token.text in LOGIC:
            self.add("logic", token.start, token.end, LOGIC[token.text])
        elif token.text == "!":
            self.add("logic", token.start, token.end, "")
        elif token.text in SUMS and (spaced or token.text in ("++", "--")):
            self.add("arithmetic", token.start, token.end, SUMS[token.text])

    def find_constant(self, token):
        integer = re.fullmatch(r"(0[xX][\da-fA-F']+|[\d']+)([uUlL]*)", token.text)
        if token.text in CONSTANTS:
            self.add("constant", token.start, token.end, CONSTANTS[token.text])
        elif integer:
            digits = integer.group(1).replace("'", "")
            is_octal = digits[0] == "0" and digits.isdigit()
            value = (int(digits, 8) if is_octal else int(digits, 0)) + 1
            self.add("constant", token.start, token.end, (f"0{value:o}" if is_octal else str(value)) + integer.group(2))

    def parts_of(self, index, separator):
        """Start and end of each part of what stands between the bracket at the index and its partner."""
        parts, start, inner = [], self.tokens[index].end, index + 1
        while inner <= self.closing[index]:
            if self.tokens[inner].text == separator or inner == self.closing[index]:
                text = self.text[start : self.tokens[inner].start]
                parts.append((start + len(text) - len(text.lstrip()), self.tokens[inner].start))
                start = self.tokens[inner].end
            inner = self.closing.get(inner, inner) + 1
        return parts

    def find_call(self, index):
        """The condition of an if, or the arguments of a call."""
        if self.tokens[index].text == "if":
            start, end = self.parts_of(index + 1, ";")[-1]
            condition = self.text[start:end]
            if not DECLARATION.search(condition) and not condition.startswith("const "):
                self.add("condition", start, end, f"!({condition})")
        elif self.tokens[index].text not in NO_STATEMENT:
            parts = self.parts_of(index + 1, ",")
            for (start, end), (next_start, next_end) in zip(parts, parts[1:]):
                one, other = self.text[start:end], self.text[next_start:next_end]
                if one != other and not PARAMETER.match(one) and not PARAMETER.match(other):
                    self.add("arguments", start, next_end, other + self.text[end:next_start] + one)

    def begins_statement(self, index):
        token, before = self.tokens[index], self.tokens[index - 1].text
        begins_line = self.text[self.text.rfind("\n", 0, token.start) + 1 : token.start].isspace()
        after_label = before == ":" and begins_line and self.tokens[index - 2].text not in NO_STATEMENT
        return (self.within[index] == "{" and (token.kind == "name" or token.text in ("*", "++", "--", "::"))
                and (before in ("{", "}", ";") or after_label))

    def find_statement(self, index):
        last = index
        while last < len(self.tokens) and self.tokens[last].text not in (";", "}"):
            last = self.closing.get(last, last) + 1
        start, end = self.tokens[index].start, self.tokens[min(last, len(self.tokens) - 1)].start
        words, first = self.text[start:end], self.tokens[index].text
        if LOCK.match(words):
            self.add("lock", start, end, "")
        elif first in ("break", "continue"):
            self.add("jump", start, end, "")
            self.add("jump", start, end, "continue" if first == "break" else "break")
        elif first == "return":
            self.find_result(start + len("return "), end)
        elif first not in NO_STATEMENT and not DECLARATION.search(words) and re.search(r"[(=]|\+\+|--|throw", words):
            self.add("statement", start, end, "")

    def find_result(self, start, end):
        result = self.text[start:end]
        if result not in PLAIN_RESULTS:
            self.add("result", start, end, "{}")
            if re.search(r" (==|!=|<|>|<=|>=|&&|\|\|) |^!| TRUE : FALSE", result):
                self.add("result", start, end, "true")
