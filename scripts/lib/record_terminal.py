#!/usr/bin/python3
"""record_terminal.py PICTURE COMMAND...: runs the command on a terminal of 120 columns and 28 rows, and
writes what the terminal shows as an animated SVG for light and dark pages. Ends with the command's status,
and writes nothing if that is not 0.

The frames stand below each other; the animation moves them through the picture. A viewer without animation
shows the frame in the middle of the recording."""

import os
import pty
import re
import sys
import termios
import time
from xml.sax.saxutils import escape

import pyte

COLUMNS, ROWS = 120, 28
INTERVAL = 0.5  # seconds between two frames
PAUSE = 8  # frames for which the last one is shown again
CHARACTER, LINE = 8.4, 18  # pixels
MARGIN = 12
STYLE = """
svg { font: 14px monospace; fill: #24292f; }
.page { fill: #f6f8fa; }
.bold { font-weight: bold; }
.dim { fill: #57606a; }
.green { fill: #116329; }
.red { fill: #a40e26; }
.brown { fill: #7d4e00; }
.cyan { fill: #1b5f7a; }
@media (prefers-color-scheme: dark) {
    svg { fill: #d0d7de; }
    .page { fill: #161b22; }
    .dim { fill: #8b949e; }
    .green { fill: #56d364; }
    .red { fill: #ff7b72; }
    .brown { fill: #e3b341; }
    .cyan { fill: #56d4dd; }
}
"""
CLASSES = {"magenta": "dim", "green": "green", "red": "red", "brown": "brown", "cyan": "cyan"}


class Terminal(pyte.Screen):
    """pyte knows no faint text; it is magenta here, which nothing else is."""

    def select_graphic_rendition(self, *attributes):
        super().select_graphic_rendition(*(35 if a == 2 else a for a in attributes))


def record(command):
    """Returns the frames, each a list of lines, and the command's status."""
    child, terminal = pty.fork()
    if child == 0:
        termios.tcsetwinsize(sys.stdout.fileno(), (ROWS, COLUMNS))
        os.environ["TERM"] = "xterm"
        os.execvp(command[0], command)
    screen = Terminal(COLUMNS, ROWS)
    stream = pyte.ByteStream(screen)
    frames = []
    start = time.monotonic()
    while True:
        try:
            output = os.read(terminal, 65536)
        except OSError:  # the end of a terminal
            break
        missed = int((time.monotonic() - start) / INTERVAL) - len(frames)
        frames += [lines_of(screen)] * missed
        stream.feed(output)
    frames += [lines_of(screen)] * PAUSE
    return frames, os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])


def class_of(character):
    classes = [CLASSES.get(character.fg), "bold" if character.bold else None]
    return " ".join(filter(None, classes))


def lines_of(screen):
    """Returns each line of the screen as SVG."""
    return [line_of([screen.buffer[row][column] for column in range(COLUMNS)]) for row in range(ROWS)]


def line_of(characters):
    """Places each piece between two spaces by itself: SVG does not keep them."""
    text = "".join(character.data for character in characters)
    classes = [class_of(character) for character in characters]
    ends = [column for column in range(1, COLUMNS) if classes[column] != classes[column - 1]]
    spans = zip([0] + ends, ends + [COLUMNS])
    return "".join(piece_of(start + piece.start(), piece.group(), classes[start])
                   for start, end in spans
                   for piece in re.finditer(r"\S+( \S+)*", text[start:end]))


def piece_of(column, text, style):
    attribute = f' class="{style}"' if style else ""
    return (f'<text x="{column * CHARACTER:.1f}" textLength="{len(text) * CHARACTER:.1f}"{attribute}>'
            f"{escape(text)}</text>")


def write_picture(path, frames):
    width, height = COLUMNS * CHARACTER + 2 * MARGIN, ROWS * LINE + 2 * MARGIN
    numbers = {}  # from a line to its number
    strip = []
    for frame, lines in enumerate(frames):
        for row, line in enumerate(lines):
            if line:
                number = numbers.setdefault(line, len(numbers))
                strip.append(f'<use href="#l{number}" x="{MARGIN}" '
                             f'y="{frame * height + MARGIN + row * LINE + 14}"/>')
    animation = (f"#strip {{ animation: play {len(frames) * INTERVAL}s steps({len(frames)}) infinite; }}\n"
                 f"@keyframes play {{ from {{ transform: none; }} "
                 f"to {{ transform: translateY({-len(frames) * height}px); }} }}\n"
                 "@media (prefers-reduced-motion) { #strip { animation: none; } }\n")
    with open(path, "w", encoding="utf-8") as picture:
        picture.write(f'<svg xmlns="http://www.w3.org/2000/svg" width="{width:.0f}" height="{height}" '
                      f'viewBox="0 0 {width:.0f} {height}">\n<style>{STYLE}{animation}</style>\n'
                      '<rect width="100%" height="100%" rx="6" class="page"/>\n<defs>\n')
        for line, number in numbers.items():
            picture.write(f'<g id="l{number}">{line}</g>\n')
        picture.write(f'</defs>\n<g id="strip" transform="translate(0 {-(len(frames) // 2) * height})">\n')
        picture.write("\n".join(strip) + "\n</g>\n</svg>\n")


def main():
    frames, status = record(sys.argv[2:])
    if status == 0:
        write_picture(sys.argv[1], frames)
    return status


if __name__ == "__main__":
    sys.exit(main())
