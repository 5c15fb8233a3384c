#!/usr/bin/env python3
"""check_style.py: what the formatter cannot hold. Prints each line that breaks a rule.

- A header has an include guard of its own, whose name ends with the file's.
- A comment at the left margin of a header is a block; members and ends of lines take //. In sources
  only a block at the left margin, which opens the file or a part of it, is not //. There is no ///.
- An accessor of a class is named without Get.
"""

import pathlib
import re
import sys

sys.dont_write_bytecode = True

from cpp_source import PROJECT, functions_of, sources, tokens_of

CLASSES_IN = ('platform/linux/src/', 'simulator/', 'testbed/', 'tools/', 'bench/', 'tests/')

broken = []
guards = {}


def refuse(path, line, why):
    broken.append(f'{path}:{line}: {why}')


def check_guard(path, lines):
    guard = re.fullmatch(r'#ifndef (\w+)', lines[0])
    if guard is None or lines[1] != f'#define {guard.group(1)}' or lines[-1] != '#endif':
        refuse(path, 1, 'no include guard around the whole header')
        return
    name = guard.group(1)
    if not name.endswith(f'_{pathlib.Path(path).stem.upper()}_H'):
        refuse(path, 1, f'the include guard {name} is not named after the file')
    if name in guards:
        refuse(path, 1, f'{guards[name]} has the same include guard')
    guards[name] = path


def check_comments(path, text):
    lines = text.split('\n')
    for token in tokens_of(text):
        if token.kind != 'comment':
            continue
        column = lines[token.first - 1].find(token.text.split('\n')[0])
        if token.text.startswith('///'):
            refuse(path, token.first, 'a comment with ///')
        elif path.endswith('.h') and column == 0 and token.text.startswith('//'):
            refuse(path, token.first, 'a comment at the left margin of a header that is no block')
        elif path.endswith('.cpp') and column > 0 and lines[token.first - 1].strip().startswith('/*'):
            refuse(path, token.first, 'a block comment inside the code')


def check_accessors(path):
    for function in functions_of(path):
        owner, _, name = function.name.rpartition('::')
        if owner and re.match(r'Get[A-Z]', name) and name != 'GetName':  # GoogleTest calls that
            refuse(path, function.first, f'{function.name}: an accessor is named without Get')


def main():
    for path in sources():
        text = (PROJECT / path).read_text()
        if path.endswith('.h'):
            check_guard(path, text.rstrip('\n').split('\n'))
        check_comments(path, text)
        if path.endswith('.h') and path.startswith(CLASSES_IN):
            check_accessors(path)
    print('\n'.join(broken) or 'No rule is broken.')
    return 1 if broken else 0


sys.exit(main())
