"""Reads C++ that clang-format has laid out: its tokens, its brackets, and where the code of functions is."""

import re
from dataclasses import dataclass

TOKEN = re.compile(r"""
    (?P<skip>\s+|//[^\n]*|/\*.*?\*/)
  | (?P<text>(?:u8|[uUL])?"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])+')
  | (?P<number>0[xX][0-9a-fA-F']+[uUlLzZ]*|0[bB][01']+[uUlLzZ]*|[0-9][0-9'.]*(?:[eE][-+]?[0-9]+)?[uUlLzZfF]*)
  | (?P<word>[A-Za-z_][A-Za-z_0-9]*)
  | (?P<sign><<=|>>=|<=>|->\*|\.\.\.|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|[-+*/%&|^~!=<>?:;,.(){}\[\]])
""", re.VERBOSE | re.DOTALL)

OPENERS = {"(": ")", "[": "]", "{": "}"}
CLOSERS = {")", "]", "}"}


class Unreadable(Exception):
    """The text is not C++ as this reads it."""


@dataclass(frozen=True)
class Token:
    kind: str  # "word", "number", "text" or "sign"
    text: str
    start: int
    end: int


def without_directives(text):
    """The same text, of the same length, with every preprocessor line blank."""
    blank = lambda match: re.sub(r"[^\n]", " ", match.group())
    return re.sub(r"^[ \t]*#(?:[^\n]*\\\n)*[^\n]*", blank, text, flags=re.MULTILINE)


def tokens_of(text):
    """Every token outside comments and preprocessor lines."""
    text = without_directives(text)
    tokens, at = [], 0
    while at < len(text):
        match = TOKEN.match(text, at)
        if match is None:
            raise Unreadable(f"no token at {text[at:at + 20]!r}")
        if match.lastgroup != "skip":
            tokens.append(Token(match.lastgroup, match.group(), match.start(), match.end()))
        at = match.end()
    return tokens


class Code:
    """Tokens with their partners, and whether each one is code of a function that may be changed."""

    def __init__(self, text):
        self.text = text
        self.tokens = tokens_of(text)
        self.partner = self._pair()
        self.opener = self._surround()  # index of the innermost bracket around each token, or None
        self.changeable = self._code_of_functions()
        self._leave_constants()
        self._leave_prefetches()

    def __len__(self):
        return len(self.tokens)

    def word(self, index):
        return self.tokens[index].text if 0 <= index < len(self.tokens) else ""

    def spaced(self, index):
        """Blanks on both sides: that is how operators with two operands are laid out, and nothing else is."""
        token = self.tokens[index]
        return self.text[token.start - 1].isspace() and self.text[token.end].isspace()

    def source(self, first, last):
        """The text of the tokens first to last."""
        return self.text[self.tokens[first].start:self.tokens[last].end]

    def _pair(self):
        partner, open_ones = {}, []
        for index, token in enumerate(self.tokens):
            if token.kind != "sign":
                continue
            if token.text in OPENERS:
                open_ones.append(index)
            elif token.text in CLOSERS:
                if not open_ones or OPENERS[self.tokens[open_ones[-1]].text] != token.text:
                    raise Unreadable(f"{token.text} closes nothing")
                partner[index] = open_ones.pop()
                partner[partner[index]] = index
        if open_ones:
            raise Unreadable("a bracket is left open")
        return partner

    def _surround(self):
        around, opener = [], []
        for index in range(len(self.tokens)):
            if index in self.partner and self.partner[index] < index:
                around.pop()
            opener.append(around[-1] if around else None)
            if index in self.partner and self.partner[index] > index:
                around.append(index)
        return opener

    def _stretch_before(self, index):
        """The tokens of the declaration that a brace ends, without what stands in its brackets."""
        words, at = [], index - 1
        while at >= 0 and self.tokens[at].text not in ("{", "}", ";"):
            words.append(self.tokens[at].text)
            at = self.partner[at] if self.tokens[at].text in CLOSERS else at
            if self.tokens[at].text in OPENERS:
                words.append(self.tokens[at].text)
            at -= 1
        return words[::-1]

    def _opens_function(self, index):
        words = self._stretch_before(index)
        if {"namespace", "class", "struct", "union", "enum"} & set(words) and ")" not in words:
            return False
        return "(" in words

    def _code_of_functions(self):
        inside = [False] * len(self.tokens)
        index = 0
        while index < len(self.tokens):
            if self.tokens[index].text == "{" and self._opens_function(index):
                end = self.partner[index]
                inside[index + 1:end] = [True] * (end - index - 1)
                index = end
            index += 1
        return inside

    def _leave(self, first, last):
        for index in range(first, min(last + 1, len(self.tokens))):
            self.changeable[index] = False

    def _leave_constants(self):
        """What the compiler alone evaluates cannot be switched when a program runs."""
        for index, token in enumerate(self.tokens):
            if token.text in ("static_assert", "assert", "sizeof", "alignas", "decltype") and self.word(index + 1) == "(":
                self._leave(index, self.partner[index + 1])
            elif token.text == "constexpr" and self.word(index - 1) != "if":
                self._leave(index, self._end_of_declaration(index))
            elif token.text == "case":
                self._leave(index, self._next(index, ":"))
            elif token.text in ("using", "typedef", "operator", "asm"):
                self._leave(index, index + 1)
            elif token.text == "<" and not self.spaced(index):
                end = self._end_of_angle(index)
                if end is not None:
                    self._leave(index, end)

    def _leave_prefetches(self):
        """A statement that only asks for memory ahead changes no result, whatever it asks for."""
        for index, token in enumerate(self.tokens):
            if not re.fullmatch(r"(__builtin_)?prefetch([A-Z]\w*)?", token.text) or self.word(index + 1) != "(":
                continue
            end, start = self.partner[index + 1] + 1, index
            while self.word(start - 1) in (".", "->", "::") and self.tokens[start - 2].kind == "word":
                start -= 2
            if self.word(start - 1) in (";", "{", "}", ")", ":") and self.word(end) == ";":
                self._leave(start, end)

    def _next(self, index, text):
        while index < len(self.tokens) - 1 and self.tokens[index].text != text:
            index += 1
        return index

    def _end_of_declaration(self, index):
        while index < len(self.tokens):
            text = self.tokens[index].text
            if text == ";":
                return index
            if text in OPENERS:
                index = self.partner[index]
                if text == "{" and self.word(index + 1) != ";":
                    return index
            index += 1
        return len(self.tokens) - 1

    def _end_of_angle(self, index):
        depth, at = 0, index - 1
        while (at := at + 1) < len(self.tokens):
            text = self.tokens[at].text
            if text in OPENERS:
                at = self.partner[at]
            elif text == "<":
                depth += 1
            elif text in (">", ">>"):
                depth -= len(text)
                if depth <= 0:
                    return at
            elif text in CLOSERS or text in (";", "&&", "||"):
                return None
        return None
