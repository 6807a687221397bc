"""Finds the small faults that scripts/mutate plants in C++ sources.

No compiler is asked: formatted code is regular enough. A binary operator has spaces around it and a
template's bracket none; a statement begins and ends on lines of its own. What is found by mistake does
not compile, or compiles to the same code, and is thrown away later.
"""

import bisect
import random
import re
from typing import NamedTuple

TOKEN = re.compile(r"""
    (?P<space> \s+ )
  | (?P<comment> //[^\n]* | /\*.*?\*/ )
  | (?P<directive> \#(?: \\\n | [^\n] )* )
  | (?P<string> (?:u8|[uUL])?R"(?P<mark>[^()\s\\]*)\(.*?\)(?P=mark)" | (?:u8|[uUL])?"(?:\\.|[^"\\\n])*"
              | (?:u8|[uUL])?'(?:\\.|[^'\\\n])+' )
  | (?P<number> \.?\d(?: [eEpP][+-] | '?[\w.] )* )
  | (?P<word> [A-Za-z_]\w* )
  | (?P<sign> <=> | <<= | >>= | -> | :: | \+\+ | -- | && | \|\| | << | >> | [-+*/%&|^=!<>]= | . )
""", re.VERBOSE | re.DOTALL)

OTHER_SIGN = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==",
              "&&": "||", "||": "&&", "+": "-", "-": "+", "+=": "-=", "-=": "+="}
RELATIONS = {"<", "<=", ">", ">=", "==", "!="}
LOGIC = {"&&", "||"}
OTHER_WORD = {"true": "false", "false": "true", "break": "continue", "continue": "break"}
NOT_NEGATED = {"=", "?", "true", "false", "nullptr", "nullopt", "make_shared", "make_unique"}
CONTROL = set("if for while switch do else try catch case default".split())
BEGIN_NO_EXPRESSION = CONTROL | set("auto break continue static_assert using".split())
INTEGER_FORMS = (
    (re.compile(r"(0[xX])([\da-fA-F']+)([uUlLzZ]*)"), 16),
    (re.compile(r"(0)([0-7']+)([uUlLzZ]*)"), 8),
    (re.compile(r"()([\d']+)([uUlLzZ]*)"), 10),
)
FRACTION = re.compile(r"(\d*\.?\d*(?:[eE][+-]?\d+)?)([fFlL]?)")
OPEN, CLOSED = {"(", "[", "{"}, {")", "]", "}"}


class Token(NamedTuple):
    kind: str
    text: str
    start: int
    end: int


class Mutation(NamedTuple):
    path: str
    line: int
    kind: str
    start: int
    end: int
    replacement: str
    is_in_body: bool  # In the code of a function. Elsewhere the layout of a class may depend on it.


def tokens_of(text):
    return [Token(found.lastgroup, found[0], *found.span()) for found in TOKEN.finditer(text)]


def other_numbers(text):
    """The number's neighbours, written as it is."""
    for form, base in INTEGER_FORMS:
        if found := form.fullmatch(text):
            prefix, digits, suffix = found[1], found[2].replace("'", ""), found[3]
            values = [value for value in (int(digits, base) + 1, int(digits, base) - 1) if value >= 0]
            return [prefix + digits_of(value, base, digits) + suffix for value in values]
    if found := FRACTION.fullmatch(text):
        return [f"{round(float(found[1]) + step, 10)!r}{found[2]}" for step in (1, -1)]
    return []


def digits_of(value, base, model):
    if base == 16:
        return f"{value:0{len(model)}{'X' if model == model.upper() else 'x'}}"
    return f"{value:o}" if base == 8 else str(value)


class Source:
    """A source and what can be wrong in it."""

    def __init__(self, path, text):
        self.path, self.text = path, text
        self.line_starts = [0] + [found.end() for found in re.finditer("\n", text)]
        self.tokens = [token for token in tokens_of(text)
                       if token.kind not in ("space", "comment", "directive")]
        self.find_scopes()
        self.find_silent_parts()

    # What surrounds each token.

    def find_scopes(self):
        """The innermost block of each token ("file", "class", "enum", "body" of a function or a value,
        "block" of a statement), the ends of statements, and the outermost functions."""
        self.scopes, self.borders, self.functions = [], [], []
        blocks, head, depths = ["file"], [], [0]
        function = None  # How many blocks are around the one that we are in, and where its code starts.
        for at, token in enumerate(self.tokens):
            if token.text == "}" and len(blocks) > 1:
                blocks.pop()
                depths.pop()
                if function and len(blocks) == function[0]:
                    self.functions.append((function[1], token.start))
                    function = None
            self.scopes.append(blocks[-1])
            if token.text in ("{", "}") or (token.text == ";" and depths[-1] == 0):
                self.borders.append(token.end)
            if token.text == "{":
                kind = self.kind_of_block(head, blocks[-1])
                if not function and kind == "body" and self.begins_function(at, head):
                    function = len(blocks), token.end
                blocks.append(kind)
                depths.append(0)
            depths[-1] += (token.text == "(") - (token.text == ")")
            head = [] if token.text in ("{", "}", ";") else head + [token.text]

    @staticmethod
    def kind_of_block(head, outer):
        if outer in ("body", "block") and (not head or head[0] not in ("struct", "class", "enum", "union")):
            return "block" if head and head[0] in CONTROL else "body"
        if "namespace" in head or head[:1] == ["extern"] and len(head) == 2:
            return "file"
        if "enum" in head:
            return "enum"
        return "class" if {"class", "struct", "union"} & set(head) and "(" not in head else "body"

    def begins_function(self, at, head):
        """Whether a body is code, and no value."""
        ends_of_heads = (")", "const", "noexcept", "override", "final", "mutable")
        ends_values_of_members = "}"
        return self.text_at(at - 1) in (*ends_of_heads, ends_values_of_members) or "->" in head

    def find_silent_parts(self):
        """Marks what the compiler alone reads: checks, types, attributes, and values that only number."""
        self.is_silent = [scope == "enum" for scope in self.scopes]
        for at, token in enumerate(self.tokens):
            end = at
            if token.text in ("static_assert", "using", "typedef", "friend"):
                end = self.index_of(at, {";"})
            elif token.text == "template" and self.text_at(at + 1) == "<":
                end = self.index_of(at + 1, {">"})
            elif token.text == "__attribute__" or (token.text == self.text_at(at + 1) == "["):
                end = self.closing(at + 1)
            elif token.text == "=" and self.text_at(at - 1) in (")", "const", "noexcept", "override"):
                end = at + 1  # A function without a body.
            self.is_silent[at:end] = [True] * (end - at)
            if end > at and end < len(self.tokens):
                self.is_silent[end] = True

    def text_at(self, at):
        return self.tokens[at].text if 0 <= at < len(self.tokens) else ""

    def index_of(self, start, wanted):
        """The first token from `start` on that is wanted and in no bracket; that which closes one around,
        or the count of all, if there is none."""
        depth = 0
        for at in range(start, len(self.tokens)):
            text = self.tokens[at].text
            if depth == 0 and (text in wanted or text in CLOSED):
                return at
            depth += (text in OPEN) - (text in CLOSED)
        return len(self.tokens)

    def closing(self, at):
        """The bracket that closes the one at `at`."""
        return self.index_of(at + 1, set())

    def is_spaced(self, at):
        token = self.tokens[at]
        return self.text[token.start - 1].isspace() and self.text[token.end:token.end + 1].isspace()

    def joins_texts(self, at):
        return "string" in (token.kind for token in self.tokens[at - 1:at + 2])

    def line_of(self, position):
        return bisect.bisect_right(self.line_starts, position)

    # Mutations. Each of the following functions yields a kind, the start, the end and the new text.

    def mutations(self):
        for at in range(len(self.tokens)):
            if not self.is_silent[at]:
                for kind, start, end, replacement in self.mutations_at(at):
                    yield Mutation(self.path, self.line_of(start), kind, start, end, replacement,
                                   self.scopes[at] in ("body", "block"))

    def mutations_at(self, at):
        token = self.tokens[at]
        span = (token.start, token.end)
        if token.kind == "number":
            yield from (("constant", *span, other) for other in other_numbers(token.text))
            yield from self.shifts_at(at)
        elif token.text in ("true", "false"):
            yield ("constant", *span, OTHER_WORD[token.text])
        elif token.kind == "sign":
            yield from self.signs_at(at)
        elif token.kind == "word":
            yield from self.words_at(at)
        if self.scopes[at] in ("body", "block"):
            yield from self.statements_at(at)

    def signs_at(self, at):
        token = self.tokens[at]
        if token.text in OTHER_SIGN and self.is_spaced(at) and not self.joins_texts(at):
            kind = ("relation" if token.text in RELATIONS else
                    "and/or" if token.text in LOGIC else "plus/minus")
            yield (kind, token.start, token.end, OTHER_SIGN[token.text])
        if token.text in LOGIC and self.is_spaced(at):
            yield from self.negated_operand(at + 1, LOGIC | {",", ";", "?"})
        elif token.text == "!":
            yield ("not", token.start, token.end, "")
        elif token.text == "?":
            yield from self.swapped_branches(at)

    def words_at(self, at):
        token, following = self.tokens[at], self.text_at(at + 1)
        if token.text == "KXSwap" and following == "::":
            order = self.tokens[at + 2]
            yield ("byte order", order.start, order.end, "no" if order.text == "yes" else "yes")
        elif re.fullmatch(r"__builtin_bswap\d+", token.text):
            yield ("byte order", token.start, token.end, "")
        elif token.text in ("break", "continue") and following == ";":
            yield ("jump", token.start, token.end, OTHER_WORD[token.text])
        elif token.text == "return":
            yield from self.negated_operand(at + 1, {";", "?", "&&", "||"})
        elif token.text == "if":
            yield from self.negated_condition(at)
        elif token.text == "KXLog" and following == "(":
            yield from self.emptied_log(at)

    def shifts_at(self, at):
        """A shift by whole bytes."""
        token = self.tokens[at]
        is_byte_count = re.fullmatch(r"\d+", token.text) and int(token.text) in range(8, 64, 8)
        if self.text_at(at - 1) in ("<<", ">>") and is_byte_count:
            yield ("byte order", token.start, token.end, str(int(token.text) - 8))

    def negated_operand(self, first, ends):
        last = self.index_of(first, ends) - 1
        operand = self.tokens[first:last + 1]
        texts = {token.text for token in operand}
        if operand and operand[0].kind == "word" and not texts & (RELATIONS | LOGIC | NOT_NEGATED):
            yield ("not", operand[0].start, operand[0].start, "!")

    def negated_condition(self, at):
        opening = at + 1 + (self.text_at(at + 1) == "constexpr")
        if self.text_at(opening) != "(":
            return
        last = self.closing(opening) - 1
        semicolon = self.index_of(opening + 1, {";"})
        first = semicolon + 1 if semicolon < last else opening + 1
        if self.index_of(first, {"="}) > last:  # Else it declares something.
            start, end = self.tokens[first].start, self.tokens[last].end
            yield ("branch", start, end, f"!({self.text[start:end]})")

    def swapped_branches(self, at):
        colon = self.end_of_branch(at + 1)
        if self.text_at(colon) == ":":
            end = self.end_of_branch(colon + 1)
            one = self.tokens[at + 1].start, self.tokens[colon - 1].end
            other = self.tokens[colon + 1].start, self.tokens[end - 1].end
            yield ("branch", one[0], other[1],
                   self.text[slice(*other)] + self.text[one[1]:other[0]] + self.text[slice(*one)])

    def end_of_branch(self, at):
        """The token that ends the operand of `?:` at `at`, in which there may be others."""
        open_questions = 0
        while True:
            at = self.index_of(at, {"?", ":", ";", ","})
            if self.text_at(at) == "?":
                open_questions += 1
            elif self.text_at(at) == ":" and open_questions:
                open_questions -= 1
            else:
                return at
            at += 1

    def emptied_log(self, at):
        first = last = at + 4  # After the category.
        while last < len(self.tokens) and self.tokens[last].kind == "string":
            last += 1
        if last > first and self.text_at(at + 3) == "," and self.text_at(last) in (",", ")"):
            yield ("log", self.tokens[first].start, self.tokens[last - 1].end, '""')

    def statements_at(self, at):
        """A dropped statement; its semicolon stays, so that an `if` keeps its branch."""
        if self.text_at(at - 1) not in (";", "{", "}", ")", "else", ":", "do"):
            return
        token = self.tokens[at]
        end = self.index_of(at, {";"})
        if self.text_at(end) != ";" or end == at:
            return
        is_jump = token.text in ("return", "throw")
        is_last_of_function = self.scopes[at] == "body" and self.text_at(end + 1) == "}"
        if is_jump and is_last_of_function and self.text_at(at - 1) != ")":
            return
        before = self.text[self.line_starts[self.line_of(token.start) - 1]:token.start]
        after = self.text[self.tokens[end].end:].split("\n", 1)[0].strip()
        if (not before.strip() and (not after or after.startswith("//"))
                and (is_jump or self.is_expression(at, end))):
            yield ("statement", token.start, self.tokens[end].start, "")

    def is_expression(self, first, end):
        """Whether the statement is none of those with a keyword, and declares nothing."""
        token = self.tokens[first]
        if token.text in BEGIN_NO_EXPRESSION:
            return False
        if token.kind != "word" and token.text not in ("(", "*", "++", "--", "::"):
            return False
        for at in range(first, end):
            token, following = self.tokens[at], self.tokens[at + 1]
            if token.text in OPEN or token.text in ("=", ".", "->"):
                return True
            is_type = token.kind == "word" or (at > first and token.text in (">", "&", "*", "&&"))
            if is_type and following.kind == "word":
                return False
        return True

    # One of them.

    def function_around(self, mutation):
        """The start and end of the code of the function around the mutation, if there is one."""
        at = bisect.bisect(self.functions, (mutation.start,)) - 1
        if at >= 0 and mutation.end <= self.functions[at][1]:
            return self.functions[at]
        return None

    def apply(self, mutation):
        return self.text[:mutation.start] + mutation.replacement + self.text[mutation.end:]

    def texts(self, mutation):
        """The code around the mutation before and after it, from the start of its statement to the end of
        its line, on one line and without comments."""
        start = self.line_starts[mutation.line - 1]
        borders_before = bisect.bisect_right(self.borders, mutation.start)
        if borders_before:
            start = min(start, self.borders[borders_before - 1])
        rest = self.text[mutation.end:].split("\n", 1)[0]
        return (on_one_line(self.text[start:mutation.end] + rest),
                on_one_line(self.text[start:mutation.start] + mutation.replacement + rest))


def on_one_line(code):
    text = "".join(" " if token.kind in ("space", "comment") else token.text for token in tokens_of(code))
    return " ".join(text.split())


# Drawing.

def shares_of(sizes, count):
    """How many of `count` each name gets: in proportion to its size, two at least if there are enough."""
    least = min(2, count // len(sizes)) if sizes else 0
    shares = {name: min(least, size) for name, size in sizes.items()}
    while sum(shares.values()) < min(count, sum(sizes.values())):
        hungriest = max(sizes, key=lambda name: sizes[name] / (shares[name] + 1))
        shares[hungriest] += 1
    return shares


def in_random_order(by_line, chance):
    """The mutations of some lines: a line by chance, of its kinds one, of these one, until none is left."""
    while by_line:
        line = chance.choice(list(by_line))
        kind = chance.choice(list(by_line[line]))
        group = by_line[line][kind]
        yield group.pop(chance.randrange(len(group)))
        if not group:
            del by_line[line][kind]
        if not by_line[line]:
            del by_line[line]


def draw(sources, count, seed):
    """The mutants' places. Each place is the list of mutations for one mutant; the first that is any good is
    taken. A folder's lines of logic, those in which something can be wrong, are divided evenly among its
    places. Also the number of these lines in each folder."""
    folders = {}
    for source in sources:
        lines = folders.setdefault(source.path.rpartition("/")[0], {})
        for mutation in source.mutations():
            kinds = lines.setdefault((source.path, mutation.line), {})
            kinds.setdefault(mutation.kind, []).append(mutation)
    sizes = {folder: len(lines) for folder, lines in folders.items() if lines}
    places = []
    for folder, share in shares_of(sizes, count).items():
        chance = random.Random(f"{seed} {folder}")
        lines = sorted(folders[folder])
        for place in range(share):
            stretch = lines[place * len(lines) // share:(place + 1) * len(lines) // share]
            places.append(list(in_random_order({line: folders[folder][line] for line in stretch}, chance)))
    return places, sizes
