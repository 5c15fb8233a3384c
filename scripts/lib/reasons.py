"""Reads a list of accepted exceptions with their reasons.

An entry is a line `FILE: TEXT`; the indented lines below it are the reason. Three dots in FILE or TEXT
match any characters. A sequence of white space equals one blank. A line that begins with # is a
comment.
"""

import re


def squeeze(text):
    return ' '.join(text.split())


class Reasons:
    def __init__(self, path):
        self.path = path
        self.entries = []  # [pattern, reason, times used]
        with open(path, encoding='utf-8') as file:
            for line in file:
                self._read(line.rstrip())

    def _read(self, line):
        if not line or line.startswith('#'):
            return
        if line[0].isspace():
            self.entries[-1][1] = squeeze(self.entries[-1][1] + ' ' + line)
        else:
            self.entries.append([squeeze(line), '', 0])

    def find(self, file, text):
        """Returns the reason for this text in this file, or None."""
        for entry in self.entries:
            pattern = '.*'.join(re.escape(part) for part in entry[0].split('...'))
            if entry[1] and re.fullmatch(pattern, f'{file}: {squeeze(text)}'):
                entry[2] += 1
                return entry[1]
        return None

    def unused(self):
        return [pattern for pattern, reason, used in self.entries if not used]
