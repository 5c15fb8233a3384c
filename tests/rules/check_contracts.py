#!/usr/bin/env python3
"""check_contracts.py [FOLDER...]: prints the functions that a header exports without a comment.

At least 95 % of the exported functions of each folder must have a comment: directly above, at the end
of the line, or above their group of declarations. Destructors, copies, operators and constructors
without parameters need none.
"""

import sys

sys.dont_write_bytecode = True

from cpp_source import BESIDE, DAEMON, functions_of, sources

FOLDERS = (*DAEMON, 'platform/linux/include', 'platform/linux/src', *BESIDE)
LEAST_SHARE = 0.95


def main():
    is_broken = False
    for folder in sys.argv[1:] or FOLDERS:
        exported = [function for path in sources(folder) if path.endswith('.h')
                    for function in functions_of(path)
                    if function.is_exported and not function.is_special]
        missing = [function for function in exported if not function.has_comment]
        is_short = len(exported) - len(missing) < LEAST_SHARE * len(exported)
        is_broken |= is_short
        print(f'{folder}: {len(exported) - len(missing)} of {len(exported)} exported functions have a'
              f' contract{": too few" if is_short else ""}')
        for function in missing:
            print(f'    {function.path}:{function.first}: {function.name}')
    return 1 if is_broken else 0


sys.exit(main())
