#!/usr/bin/env python3
"""check_style.py: the rules that clang-format cannot check. Prints each line that breaks one.

- A header has its own include guard, whose name ends with the name of the file.
- Comments are //, except blocks at the left margin: every such comment of a header, and those that
  open a source or a part of it. There is no ///.
- The name of a class's accessor does not begin with Get.
"""

import pathlib
import re
import sys

sys.dont_write_bytecode = True

from cpp_source import PROJECT, functions_of, sources, tokens_of

FOLDERS_WITH_CLASSES = ('changerctl/', 'platform/linux/src/', 'simulator/', 'testbed/', 'tools/', 'bench/', 'tests/')

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
            refuse(path, token.first, 'not a block comment, at the left margin of a header')
        elif path.endswith('.cpp') and column > 0 and lines[token.first - 1].strip().startswith('/*'):
            refuse(path, token.first, 'a block comment inside the code')


def check_accessors(path):
    for function in functions_of(path):
        owner, _, name = function.name.rpartition('::')
        if owner and re.match(r'Get[A-Z]', name) and name != 'GetName':  # required by GoogleTest
            refuse(path, function.first, f'{function.name}: the name of an accessor begins with Get')


def main():
    for path in sources():
        text = (PROJECT / path).read_text()
        if path.endswith('.h'):
            check_guard(path, text.rstrip('\n').split('\n'))
        check_comments(path, text)
        if path.endswith('.h') and path.startswith(FOLDERS_WITH_CLASSES):
            check_accessors(path)
    print('\n'.join(broken) or 'No rule is broken.')
    return 1 if broken else 0


sys.exit(main())
