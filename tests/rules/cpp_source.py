"""Reads the C++ sources of this tree for the checks in this folder.

A small scanner, not a compiler: it finds functions, their lengths and their comments. It supports
only the constructs and the layout (clang-format) of this tree.
"""

import dataclasses
import pathlib
import re

PROJECT = pathlib.Path(__file__).resolve().parent.parent.parent
DAEMON = ('common', 'ChangerServerConnectionLib', 'fsclient', 'trayprobed')
PRODUCT = (*DAEMON, 'platform/linux')
BESIDE = ('changerctl', 'simulator', 'testbed', 'tools', 'bench')
FOLDERS = (*PRODUCT, *BESIDE, 'tests')

TOKEN = re.compile(r'''
    (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<preprocessor>^[ \t]*\#(?:[^\n\\]|\\.|\\\n)*)
  | (?P<string>R"(?P<delimiter>\w*)\(.*?\)(?P=delimiter)"|"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])+')
  | (?P<word>[A-Za-z_]\w*)
  | (?P<number>\d[\w.']*)
  | (?P<punctuation>::|->|<=>|[^\s\w])
''', re.VERBOSE | re.DOTALL | re.MULTILINE)

TYPE_KEYWORDS = {'class', 'struct', 'union', 'enum'}
NO_FUNCTIONS = {'using', 'typedef', 'static_assert', 'friend', 'extern', 'namespace'}
CONTROL = {'if', 'for', 'while', 'switch', 'catch', 'do', 'else', 'try', 'return'}


@dataclasses.dataclass
class Token:
    kind: str
    text: str
    first: int  # line, from 1
    last: int


@dataclasses.dataclass
class Function:
    path: str
    name: str          # with its class, if it is a member
    first: int         # line of its declaration
    last: int          # line of its closing brace or semicolon
    has_body: bool
    is_exported: bool  # at namespace scope, or a public member
    is_special: bool   # destructor, copy, operator or constructor without parameters
    has_comment: bool  # directly above it, at the end of its line, or above its group


def sources(*folders):
    """The headers and sources in these folders, or in the whole tree; paths relative to PROJECT."""
    found = [path for folder in folders or FOLDERS for path in (PROJECT / folder).rglob('*')
             if path.suffix in ('.h', '.cpp')]
    return sorted(str(path.relative_to(PROJECT)) for path in found)


def tokens_of(text):
    line = 1
    position = 0
    for match in TOKEN.finditer(text):
        line += text.count('\n', position, match.start())
        position = match.start()
        kind = match.lastgroup if match.lastgroup != 'delimiter' else 'string'
        yield Token(kind, match.group(0), line, line + match.group(0).count('\n'))


class Scanner:
    """Walks through the scopes of one file and collects its functions."""

    def __init__(self, path):
        self.path = path
        text = (PROJECT / path).read_text()
        every = list(tokens_of(text))
        self.comment_ends = set()  # last lines of comments
        self.trailing = set()  # lines with code and a comment behind it
        code_lines = set()
        for token in every:
            if token.kind == 'comment':
                if token.first in code_lines:
                    self.trailing.add(token.first)
                else:
                    self.comment_ends.add(token.last)
            else:
                code_lines.update(range(token.first, token.last + 1))
        self.tokens = [token for token in every if token.kind not in ('comment', 'preprocessor')]
        self.functions = []
        self.documented_until = 0  # last line of a documented declaration, while its group lasts
        self.index = 0

    def scan(self):
        self.scope('', True)
        return self.functions

    def scope(self, owner, is_public):
        """Reads declarations up to the closing brace of a namespace or class."""
        while self.index < len(self.tokens):
            token = self.tokens[self.index]
            if token.text == '}':
                self.index += 1
                return
            if token.text in ('public', 'private', 'protected'):
                is_public = token.text == 'public'
                self.index += 2
                continue
            if token.text == ';':
                self.index += 1
                continue
            self.declaration(owner, is_public)

    def declaration(self, owner, is_public):
        head = []
        depth = 0
        while self.index < len(self.tokens):
            token = self.tokens[self.index]
            if depth == 0 and token.text in (';', '{', '}'):
                break
            depth += {'(': 1, ')': -1, '[': 1, ']': -1}.get(token.text, 0)
            if depth > 0 and token.text == '{':
                self.skip_braces()
                continue
            head.append(token)
            self.index += 1
        if not head or self.index >= len(self.tokens):
            self.index += 1
            return
        name = self.function_name(head, owner)
        end = self.tokens[self.index]
        words = [token.text for token in head]
        if end.text == '{' and name is None and (words[0] == 'namespace' or '"C"' in words):
            self.index += 1
            hidden = words == ['namespace']
            self.scope(owner, is_public and not hidden)
            return
        if end.text == '{' and name is None and self.is_type(words) and 'enum' not in words:
            self.index += 1
            keyword = next(i for i, word in enumerate(words) if word in TYPE_KEYWORDS)
            type_name = next((word for word in words[keyword + 1:] if re.match(r'\w', word)), '')
            self.scope(f'{owner}{type_name}::', is_public and words[keyword] != 'class')
            return
        if end.text == '{':
            # Members of a constructor that are initialised with braces come before its body.
            while True:
                self.skip_braces()
                follows = self.tokens[self.index] if self.index < len(self.tokens) else None
                if name is None or follows is None or follows.text not in (',', '{'):
                    break
                while self.tokens[self.index].text != '{':
                    self.index += 1
            last = self.tokens[self.index - 1]
        else:
            last = end
            self.index += 1
        if name is not None:
            self.add(head, name, owner, last, end.text == '{', is_public)

    def add(self, head, name, owner, last, has_body, is_public):
        first = head[0].first
        documented = (first - 1 in self.comment_ends or self.documented_until == first - 1 or
                      (not has_body and not self.trailing.isdisjoint(range(first, last.last + 1))))
        if documented:
            self.documented_until = last.last
        # A member that is defined outside its class has its contract in the class.
        is_member_outside = f'::{name}(' in ''.join(token.text for token in head)
        self.functions.append(Function(
            self.path, owner + name, first, last.last, has_body, is_public and not is_member_outside,
            self.is_special(head, name, owner), documented))

    def skip_braces(self):
        depth = 0
        while True:
            depth += {'{': 1, '}': -1}.get(self.tokens[self.index].text, 0)
            self.index += 1
            if depth == 0:
                return

    @staticmethod
    def is_type(words):
        return any(word in TYPE_KEYWORDS for word in words) and '(' not in words

    @staticmethod
    def function_name(head, owner):
        """The name before the parameters; None if `head` declares no function."""
        words = [token.text for token in head]
        while words and words[0] == 'template':
            depth = 0
            for i, word in enumerate(words[1:], 1):
                depth += {'<': 1, '>': -1}.get(word, 0)
                if depth == 0:
                    words = words[i + 1:]
                    break
        if words[:1] == ['extern'] and '"C"' in words[:2]:
            words = words[2:]
        if not words or words[0] in NO_FUNCTIONS or '(' not in words:
            return None
        if words[0] == '__attribute__':
            words = words[words.index(')') + 2:]
            if '(' not in words:
                return None
        if 'operator' in words:
            at = words.index('operator')
            return ' '.join(words[at:words.index('(', at + 2) if '(' in words[at + 2:] else at + 2])
        at = words.index('(')
        before = words[:at]
        if '=' in before or not before or not re.match(r'[A-Za-z_~]', before[-1]):
            return None
        if before[-1] in CONTROL or before[-1] in ('decltype', 'noexcept', 'requires', 'alignas'):
            return None
        name = before[-1]
        if len(before) > 1 and before[-2] == '~':
            name = '~' + name
        if len(before) == 1 and owner.rstrip(':').split('::')[-1] != name:
            return None  # neither a type in front of it nor a constructor
        return name

    @staticmethod
    def is_special(head, name, owner):
        words = [token.text for token in head]
        if name.startswith(('~', 'operator')):
            return True
        if words[-2:] in (['=', 'default'], ['=', 'delete']):
            return True
        own_type = owner.rstrip(':').split('::')[-1]
        if name != own_type:
            return False
        at = words.index('(')
        parameters = words[at + 1:words.index(')', at)]
        return not parameters or own_type in parameters


def functions_of(path):
    return Scanner(path).scan()
