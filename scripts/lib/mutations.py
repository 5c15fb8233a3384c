"""The small changes to C++ source text that scripts/mutants makes.

The text is split into tokens but not parsed; some changes therefore do not compile. The rules rely on
clang-format: a binary operator has a blank on both sides; the angle brackets of a template and the
`*` and `&` of a pointer or reference do not.
"""

import re
from dataclasses import dataclass

TOKEN = re.compile(r'''
      (?P<comment> //[^\n]* | /\*.*?\*/ )
    | (?P<directive> ^[ \t]*\#(?:\\\n|[^\n])* )
    | (?P<text> (?:u8|u|U|L)?" (?:\\.|[^"\\\n])* " )
    | (?P<character> (?:u8|u|U|L)?' (?:\\.|[^'\\\n])+ ' )
    | (?P<number> \d (?: '?[\w.] | (?<=[eEpP])[+-] )* )
    | (?P<word> [A-Za-z_]\w* )
    | (?P<symbol> <=> | <<= | >>= | \.\.\. | :: | -> | \+\+ | -- | << | >> | <= | >= | == | != | &&
                  | \|\| | [-+*/%&|^]= | [^\s\w] )
    ''', re.VERBOSE | re.DOTALL | re.MULTILINE)

OPERATORS = {
    '<': ('relation', ['<=', '>']), '<=': ('relation', ['<', '>=']),
    '>': ('relation', ['>=', '<']), '>=': ('relation', ['>', '<=']),
    '==': ('relation', ['!=']), '!=': ('relation', ['==']),
    '&&': ('condition', ['||']), '||': ('condition', ['&&']),
    '+': ('operator', ['-']), '-': ('operator', ['+']), '*': ('operator', ['/', '+']),
    '/': ('operator', ['*']), '%': ('operator', ['*', '/']), '&': ('operator', ['|']),
    '|': ('operator', ['&']), '^': ('operator', ['|']), '<<': ('operator', ['>>']),
    '>>': ('operator', ['<<']), '+=': ('operator', ['-=']), '-=': ('operator', ['+=']),
}
WORDS = {'true': ('constant', 'false'), 'false': ('constant', 'true'),
         'break': ('jump', 'continue'), 'continue': ('jump', 'break')}

# Words that begin no droppable statement and name no function.
KEYWORDS = set('''if else for while do switch case default return try catch throw using typedef namespace
    class struct enum union template static const constexpr constinit extern inline friend operator auto
    public private protected unsigned goto sizeof alignof decltype noexcept static_assert
    thread_local'''.split())
DECLARATION = re.compile(r'(?!delete\b)[\w:]+(<.*>)?[*&]* \w+\s*[=;({\[]')
PARAMETER = re.compile(r'^(const )?[\w:]+(<.*>)?[*&]* [*&]?\w+( =.*)?$', re.DOTALL)
# Functions whose result does not depend on the order of their arguments.
SYMMETRIC = {'CFEqual', 'Equal', 'max', 'min', 'swap'}
OPENING, CLOSING = '([{', ')]}'


@dataclass(frozen=True)
class Mutation:
    kind: str
    start: int
    end: int
    replacement: str

    def applied_to(self, text):
        return text[:self.start] + self.replacement + text[self.end:]

    def described_in(self, text):
        """Returns the line number, and the changed lines as `OLD => NEW`."""
        first = text.rfind('\n', 0, self.start) + 1
        last = text.find('\n', self.end)
        old = text[first:last]
        new = text[first:self.start] + self.replacement + text[self.end:last]
        return (text.count('\n', 0, self.start) + 1,
                ' '.join(old.split()) + ' => ' + ' '.join(new.split()))


@dataclass(frozen=True)
class Token:
    kind: str
    text: str
    start: int
    end: int


class Source:
    """The tokens of a source text, with the matching bracket of each bracket."""

    def __init__(self, text):
        self.text = text
        self.tokens = [Token(match.lastgroup, match.group(), match.start(), match.end())
                       for match in TOKEN.finditer(text)
                       if match.lastgroup not in ('comment', 'directive')]
        self.partner = {}
        self._in_code = []  # for each token: whether it is in the body of a function
        self._around = []  # for each token: the innermost open bracket
        self._match_brackets()

    def _match_brackets(self):
        opened, scopes = [], [False]
        for i, token in enumerate(self.tokens):
            if token.kind == 'symbol' and token.text in CLOSING and opened:
                first = opened.pop()
                self.partner[first], self.partner[i] = i, first
                if token.text == '}':
                    scopes.pop()
            self._in_code.append(scopes[-1])
            self._around.append(self.tokens[opened[-1]].text if opened else '')
            if token.kind == 'symbol' and token.text in OPENING:
                opened.append(i)
                if token.text == '{':
                    scopes.append(self._opens_code(i, scopes[-1]))

    def _opens_code(self, i, outside):
        before = self.tokens[i - 1].text if i else ';'
        if before in (')', 'else', 'do', 'try', 'noexcept', 'const', 'override', 'mutable'):
            return True
        for token in reversed(self.tokens[max(0, i - 12):i]):
            if token.text in (';', '{', '}'):
                break
            if token.text in ('namespace', 'class', 'struct', 'union', 'enum', 'extern'):
                return False
        return outside or '->' in (token.text for token in self.tokens[max(0, i - 6):i])

    def at(self, i):
        return self.tokens[i].text if 0 <= i < len(self.tokens) else ''

    def in_code(self, i):
        return self._in_code[i]

    def begins_statement(self, i):
        if not self._in_code[i] or self._around[i] != '{':
            return False
        before = self.at(i - 1)
        return (before in (';', '{', '}', 'else') or before == ':' and self._ends_label(i - 1) or
                before == ')' and self._ends_head(i - 1))

    def _ends_label(self, colon):
        first = colon
        while self.at(first - 1) not in (';', '{', '}', ':', ''):
            first -= 1
        return self.at(first) in ('case', 'default')

    def _ends_head(self, closing):
        """True if the bracket closes the condition of an if or the head of a for or while."""
        opening = self.partner.get(closing, 0)
        return self.at(opening - 1) in ('if', 'for', 'while', 'constexpr')

    def between(self, first, last):
        """The text from one token to another, inclusive."""
        return self.text[self.tokens[first].start:self.tokens[last].end]

    def is_spaced(self, i):
        token = self.tokens[i]
        return (self.text[token.start - 1] == ' ' and self.text[token.end] in ' \n')


def mutations(text, rng):
    """Returns one mutation of each kind for each possible place, chosen at random by rng."""
    source = Source(text)
    found = []
    for i in range(len(source.tokens)):
        for maker in (operator, negation, condition, constant, letter, statement, arguments):
            found += maker(source, i, rng)
    return found


def changed(kind, token, replacement):
    return [Mutation(kind, token.start, token.end, replacement)]


def operator(source, i, rng):
    token = source.tokens[i]
    if token.kind == 'symbol' and token.text in OPERATORS and source.is_spaced(i):
        kind, choices = OPERATORS[token.text]
        return changed(kind, token, rng.choice(choices))
    return []


def negation(source, i, rng):
    token = source.tokens[i]
    return changed('condition', token, '') if token.text == '!' else []


def condition(source, i, rng):
    if source.at(i) not in ('if', 'while') or source.at(i + 1) != '(' or i + 1 not in source.partner:
        return []
    first, last = i + 2, source.partner[i + 1] - 1
    for j in range(first, last):
        if source.at(j) == ';':
            first = j + 1
    whole = source.between(first, last)
    forms = ['!({})', '({}) && false'] + ['({}) || true'] * (source.at(i) == 'if')
    return [Mutation('condition', source.tokens[first].start, source.tokens[last].end,
                     rng.choice(forms).format(whole))]


def constant(source, i, rng):
    token = source.tokens[i]
    if token.text in WORDS and token.kind == 'word':
        kind, replacement = WORDS[token.text]
        return changed(kind, token, replacement)
    if token.kind != 'number':
        return []
    match = re.match(r"(0[xX][\da-fA-F']+|[\d']+)(.*)", token.text)
    digits, rest = match.groups()
    value = int(digits.replace("'", ''), 0 if digits[:2] in ('0x', '0X') else 10)
    value = max(0, value + rng.choice((-1, 1))) if value else 1
    return changed('constant', token, (hex(value) if 'x' in digits.lower() else str(value)) + rest)


def letter(source, i, rng):
    token = source.tokens[i]
    if token.kind not in ('text', 'character'):
        return []
    places = [place.start() for place in re.finditer(r'(?:\\.)|[^\\"\']', token.text)
              if len(place.group()) == 1 and place.start() > token.text.index(token.text[-1])]
    if not places:
        return []
    place = rng.choice(places)
    old = token.text[place]
    new = {'z': 'y', 'Z': 'Y', '9': '8'}.get(old) or (chr(ord(old) + 1) if old.isalnum() else '_')
    return changed('letter', token,
                   token.text[:place] + (new if new != old else '-') + token.text[place + 1:])


def statement(source, i, rng):
    token = source.tokens[i]
    if not source.begins_statement(i):
        return []
    starts_well = token.kind == 'word' and token.text not in KEYWORDS or token.text in ('*', '++', '--')
    if not starts_well and not (token.text == 'return' and source.at(i + 1) == ';'):
        return []
    last = i
    while source.at(last) not in (';', '{', ')', ']', '}', ''):
        last = source.partner.get(last, last) + 1
    if source.at(last) != ';' or DECLARATION.match(source.between(i, last)):
        return []
    return [Mutation('statement', token.start, source.tokens[last].end, ';')]


def arguments(source, i, rng):
    token = source.tokens[i]
    if token.kind != 'word' or token.text in KEYWORDS | SYMMETRIC or source.at(i + 1) != '(':
        return []
    if i + 1 not in source.partner or not source.in_code(i):
        return []
    parts = split_arguments(source, i + 1)
    if token.text.isupper():
        parts = parts[2:]  # an error macro: its first arguments are the chain and the call
    pairs = [(a, b) for a, b in zip(parts, parts[1:]) if can_change_places(source, a, b)]
    if not pairs:
        return []
    first, second = rng.choice(pairs)
    gap = source.text[source.tokens[first[1]].end:source.tokens[second[0]].start]
    return [Mutation('arguments', source.tokens[first[0]].start, source.tokens[second[1]].end,
                     source.between(*second) + gap + source.between(*first))]


def split_arguments(source, opening):
    """Returns the first and the last token of each argument between the brackets."""
    closing = source.partner[opening]
    parts = []
    first = j = opening + 1
    while j < closing:
        following = source.partner.get(j, j) + 1
        if following == closing or source.at(following) == ',':
            parts.append((first, following - 1))
            first = following = following + 1
        j = following
    return parts


def can_change_places(source, one, other):
    kinds = [source.tokens[first].kind == 'text' and first == last for first, last in (one, other)]
    texts = [source.between(*part) for part in (one, other)]
    return kinds[0] == kinds[1] and texts[0] != texts[1] and not PARAMETER.match(texts[0])
