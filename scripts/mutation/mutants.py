"""What may be broken in a source, one thing at a time, and the source with a switch for each."""

import difflib
import re
from dataclasses import dataclass, field

from cpp_text import CLOSERS, OPENERS, Code

# What an operator becomes: the type of Mutation.h that switches it, and the mutants in the order of their numbers.
OPERATORS = {
    "==": ("Equal", ["!="]), "!=": ("Unequal", ["=="]),
    "<": ("Less", ["<=", ">="]), "<=": ("LessEqual", ["<", ">"]),
    ">": ("Greater", [">=", "<="]), ">=": ("GreaterEqual", [">", "<"]),
    "+": ("Plus", ["-"]), "-": ("Minus", ["+"]), "*": ("Times", ["/"]), "/": ("Divided", ["*"]), "%": ("Rest", ["*"]),
    "&": ("And", ["|"]), "|": ("Or", ["&"]), "<<": ("ShiftLeft", [">>"]), ">>": ("ShiftRight", ["<<"]),
}
ASSIGNMENTS = {"=", "+=", "-=", "*=", "/=", "%=", "&=", "|=", "^=", "<<=", ">>="}
# No statement that begins with one of these is taken out: declarations, and what the compiler needs.
KEPT = {"return", "throw", "if", "else", "for", "while", "do", "switch", "case", "default", "using", "typedef", "const",
        "auto", "static", "constexpr", "delete", "try", "catch", "static_assert", "assert", "struct", "class", "enum",
        "unsigned", "int", "bool", "char", "public", "private", "protected"}


@dataclass(frozen=True)
class Mutant:
    number: int
    file: str
    rule: str
    start: int
    end: int
    replacement: str
    line: int  # the first line that it changes, from 1
    before: str  # what it changes, line by line, in one line
    after: str
    twin: int  # 1 for the first mutant of this file with these two texts, 2 for the next, …

    @property
    def key(self):
        """What names it as long as the lines that it changes stay as they are."""
        twin = f" #{self.twin}" if self.twin > 1 else ""
        return f"{self.file}: {self.before} => {self.after}{twin}"

    def applied(self, text):
        return text[:self.start] + self.replacement + text[self.end:]

    def diff(self, text):
        lines = difflib.unified_diff(text.splitlines(), self.applied(text).splitlines(), self.file, self.file, n=2,
                                     lineterm="")
        return "\n".join(lines)


@dataclass
class Site:
    """One place with a switch for one or two mutants."""

    rule: str
    mutants: list  # (start, end, replacement) in the source as it is
    wrap: tuple = None  # (start, end, before, after) as functions of the first number
    swap: tuple = None  # (start, end, text) likewise
    line: int = 0
    numbers: list = field(default_factory=list)


def one_line(text):
    """Without comments, so that rewording one changes no key."""
    return re.sub(r"\s+", " ", re.sub(r"//[^\n]*", "", text)).strip()


class Finder:
    def __init__(self, code):
        self.code = code
        self.sites = []

    def find(self):
        for index, token in enumerate(self.code.tokens):
            if self.code.changeable[index]:
                self._operator(index, token)
                self._not(index, token)
                self._literal(index, token)
                self._joined(index, token)
                self._condition(index, token)
                self._choice(index, token)
                self._status(index, token)
                self._added(index, token)
                self._statement(index)
        self.sites.sort(key=lambda site: (site.mutants[0][0], -site.mutants[0][1]))
        return self.sites

    def _swap(self, rule, first, last, replacements, text):
        start, end = self.code.tokens[first].start, self.code.tokens[last].end
        self.sites.append(Site(rule, [(start, end, new) for new in replacements], swap=(start, end, text)))

    def _wrap(self, rule, first, last, replacements, before, after):
        start, end = self.code.tokens[first].start, self.code.tokens[last].end
        self.sites.append(Site(rule, [(start, end, new) for new in replacements], wrap=(start, end, before, after)))

    def _operator(self, index, token):
        if token.kind == "sign" and token.text in OPERATORS and self.code.spaced(index):
            name, mutated = OPERATORS[token.text]
            if token.text == "|":
                self._or(index)
                return
            self._swap("operator", index, index, mutated,
                       lambda n: f"{token.text} ::mutation::{name}<{n}>{{}} {token.text}")

    def _or(self, index):
        """Becomes &, which binds more tightly, and so needs brackets around what stood on both sides."""
        stops = ASSIGNMENTS | {"&&", "||", "return", "?", ":", ",", ";"}
        left, right = self._extent(index, -1, stops), self._extent(index, 1, stops | {"|"})
        if left is None or right is None:
            return
        sides = [self.code.source(left, index - 1), self.code.source(index + 1, right)]
        sides = [side if re.fullmatch(r"[\w.]+", side) else f"({side})" for side in sides]
        token = self.code.tokens[index]
        self.sites.append(Site("operator", [(self.code.tokens[left].start, self.code.tokens[right].end, " & ".join(sides))],
                               swap=(token.start, token.end, lambda n: f"| ::mutation::Or<{n}>{{}} |")))

    def _not(self, index, token):
        if token.text == "!":
            self._swap("not", index, index, [""], lambda n: f"::mutation::Not<{n}>{{}}->*")

    def _literal(self, index, token):
        if token.text in ("true", "false"):
            other = "false" if token.text == "true" else "true"
            self._swap("literal", index, index, [other], lambda n: f"::mutation::negated({n}, {token.text})")
        elif token.kind == "number" and "." not in token.text:
            self._swap("literal", index, index, [f"{token.text} + 1" if self._alone(index) else f"({token.text} + 1)"],
                       lambda n: f"::mutation::number({n}, {token.text})")

    def _alone(self, index):
        return all(self.code.word(at) in {*"(){}[],;=", "return"} for at in (index - 1, index + 1))

    def _extent(self, index, step, stops):
        """The last token before one of the stops, going from the operator at index; None when there is none."""
        at = last = index
        while True:
            at += step
            text = self.code.word(at)
            if at < 0 or at >= len(self.code) or text in stops or text in (OPENERS if step < 0 else CLOSERS):
                return None if last == index else last
            at = self.code.partner.get(at, at)
            last = at

    def _joined(self, index, token):
        """An operand of && or || no longer counts."""
        if token.text not in ("&&", "||") or not self.code.spaced(index):
            return
        stops = ASSIGNMENTS | {"||", "return", "?", ":", ",", ";"} | ({"&&"} if token.text == "&&" else set())
        left, right = self._extent(index, -1, stops), self._extent(index, 1, stops)
        ways = [(left, index - 1), (index + 1, right)] if left is not None and right is not None else []
        for first, last in ways:
            start = self.code.tokens[first].start
            if any(site.rule == "operand" and site.mutants[0][:2] == (start, self.code.tokens[last].end)
                   for site in self.sites):
                continue  # the one between two of the same operators
            if token.text == "&&":
                self._wrap("operand", first, last, ["true"], lambda n: f"(::mutation::active({n}) || (", lambda n: "))")
            else:
                self._wrap("operand", first, last, ["false"], lambda n: f"(!::mutation::active({n}) && (",
                           lambda n: "))")

    def _condition(self, index, token):
        if token.text != "if" or self.code.word(index + 1) != "(":
            return
        first, last = index + 2, self.code.partner[index + 1] - 1
        for at in range(first, last + 1):
            if self.code.opener[at] == index + 1 and self.code.word(at) == ";":
                first = at + 1
        declares = any(self.code.opener[at] == index + 1 and self.code.word(at) == "=" for at in range(first, last + 1))
        if not declares:
            self._wrap("condition", first, last, ["true", "false"],
                       lambda n: f"::mutation::active({n}) || (!::mutation::active({n + 1}) && (", lambda n: "))")

    def _choice(self, index, token):
        if token.text != "?":
            return
        first = self._extent(index, -1, ASSIGNMENTS | {"return", "?", ":", ",", ";"})
        if first is not None:
            text = self.code.source(first, index - 1)
            self._wrap("choice", first, index - 1, [f"!({text})"],
                       lambda n: f"::mutation::negated({n}, static_cast<bool>(", lambda n: "))")

    def _status(self, index, token):
        if [self.code.word(index + at) for at in (0, 1, 2, 4)] == ["return", "status", "::", ";"]:
            text = self.code.source(index + 1, index + 3)
            other = "status::noRecord" if self.code.word(index + 3) == "ok" else "status::ok"
            self._swap("status", index + 1, index + 3, [other],
                       lambda n: f"::mutation::active({n}) ? static_cast<int32_t>({other}) : static_cast<int32_t>({text})")

    def _added(self, index, token):
        if token.text not in ("+=", "-="):
            return
        last = self._extent(index, 1, {",", ";"})
        if last is not None:
            other = "-=" if token.text == "+=" else "+="
            start, end = self.code.tokens[index].start, self.code.tokens[index].end
            inner = (self.code.tokens[index + 1].start, self.code.tokens[last].end)
            self.sites.append(Site("operator", [(start, end, other)],
                                   wrap=(*inner, lambda n: f"::mutation::swapped({n}, ", lambda n: ")")))

    def _begins_statement(self, index):
        brace = self.code.opener[index]
        if brace is None or self.code.word(brace) != "{":
            return False
        block = self.code.word(brace - 1) in (")", "else", "do", "const", "noexcept", "override", "mutable", ":", ";",
                                              "{", "}", "]")
        return block and (self.code.word(index - 1) in (";", "{", "}") or self._ends_label(index - 1))

    def _ends_label(self, index):
        """The colon of a case, and not that of a choice."""
        if self.code.word(index) != ":":
            return False
        while index > 0 and self.code.word(index) not in (";", "{", "}", "?", "case", "default"):
            index -= 1
        return self.code.word(index) in ("case", "default")

    def _declares(self, index):
        """Whether a name follows a type."""
        while self.code.tokens[index].kind == "word" and self.code.word(index + 1) == "::":
            index += 2
        if self.code.word(index) in ("*", "(", "++", "--"):
            return False
        after = index + 1
        if self.code.word(after) == "<" and not self.code.spaced(after):
            return True
        if self.code.word(after) in ("&", "*", "&&"):
            return not self.code.spaced(after)
        return self.code.tokens[after].kind == "word"

    def _statement(self, index):
        token = self.code.tokens[index]
        if not self._begins_statement(index) or (token.kind != "word" and token.text not in ("*", "++", "--")):
            return
        leaves = token.text in ("break", "continue") or (token.text == "return" and self.code.word(index + 1) == ";")
        if not leaves and (token.text in KEPT or self._declares(index)):
            return
        at = index
        while self.code.word(at) != ";":
            if self.code.word(at) in CLOSERS:
                return
            at = self.code.partner.get(at, at) + 1
        self._wrap("statement", index, at, [""], lambda n: f"if (!::mutation::active({n})) {{ ", lambda n: " }")


def lines_of(text, start, end):
    """The whole lines that a stretch touches, as offsets."""
    first = text.rfind("\n", 0, start) + 1
    last = text.find("\n", end)
    return first, len(text) if last < 0 else last


def mutants_of(file, text, first_number=1):
    """All mutants of a source, and the places of their switches. Numbers follow the order of the source."""
    sites, mutants, seen, number = Finder(Code(text)).find(), [], {}, first_number
    for site in sites:
        site.line = text.count("\n", 0, site.mutants[0][0]) + 1
        for start, end, new in site.mutants:
            first, last = lines_of(text, start, end)
            before, after = one_line(text[first:last]), one_line(text[first:start] + new + text[end:last]) or "nothing"
            seen[before, after] = seen.get((before, after), 0) + 1
            mutants.append(Mutant(number, file, site.rule, start, end, new, site.line, before, after,
                                  seen[before, after]))
            site.numbers.append(number)
            number += 1
    return mutants, sites


def switched(text, sites, left_out=frozenset()):
    """The source with the switches of all sites but those of which a number is left out; lines stay where they are."""
    swaps, edges = {}, []
    for site in sites:
        if left_out & set(site.numbers):
            continue
        number = site.numbers[0]
        if site.swap is not None:
            start, end, new = site.swap
            swaps[start] = (end, new(number))
        else:
            start, end, before, after = site.wrap
            # At one place, what ends comes first, the innermost of it before all; of what begins, the outermost.
            edges.append((end, 0, end - start, after(number)))
            edges.append((start, 1, start - end, before(number)))
    result, at = [], 0
    marks = sorted([(place, order, size, new, place) for place, order, size, new in edges] +
                   [(start, 2, 0, new, end) for start, (end, new) in swaps.items()], key=lambda mark: mark[:3])
    for place, _, _, new, end in marks:
        result.append(text[at:place] + new)
        at = end
    return "".join(result) + text[at:]
