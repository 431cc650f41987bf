#!/usr/bin/env python3
"""Takes a picture of a terminal: terminal.py FILE COLUMNS TITLE COMMAND...

Runs each command line in the shell, on a terminal of its own with so many columns, and draws what a user would have seen
as SVG.
"""
import fcntl
import io
import os
import pty
import struct
import subprocess
import sys
import termios

from rich.console import Console
from rich.terminal_theme import SVG_EXPORT_THEME
from rich.text import Text

# As the library's own, but with fonts of the machine that shows it: a picture loads nothing.
FORMAT = """<svg class="rich-terminal" viewBox="0 0 {width} {height}" xmlns="http://www.w3.org/2000/svg">
<style>
.{unique_id}-matrix {{ font-family: "DejaVu Sans Mono", Menlo, Consolas, monospace; font-size: {char_height}px;
  line-height: {line_height}px; }}
.{unique_id}-title {{ font-size: 18px; font-weight: bold; font-family: sans-serif; }}
{styles}
</style>
<defs>
<clipPath id="{unique_id}-clip-terminal"><rect x="0" y="0" width="{terminal_width}" height="{terminal_height}"/></clipPath>
{lines}
</defs>
{chrome}
<g transform="translate({terminal_x}, {terminal_y})" clip-path="url(#{unique_id}-clip-terminal)">
{backgrounds}
<g class="{unique_id}-matrix">
{matrix}
</g>
</g>
</svg>
"""


def run(command, columns):
    """What a command writes to a terminal."""
    ours, theirs = pty.openpty()
    fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("HHHH", 50, columns, 0, 0))
    child = subprocess.Popen(["sh", "-c", command], stdin=theirs, stdout=theirs, stderr=theirs, start_new_session=True,
                             env={**os.environ, "TERM": "xterm-256color", "COLUMNS": str(columns)})
    os.close(theirs)
    written = b""
    while True:
        try:
            chunk = os.read(ours, 65536)
        except OSError:  # the last one has closed the terminal
            break
        if not chunk:
            break
        written += chunk
    os.close(ours)
    if child.wait() < 0:
        raise SystemExit(f"terminal.py: {command}: ended by a signal")
    return written.decode("utf-8").replace("\r\n", "\n")


def main(path, columns, title, *commands):
    console = Console(record=True, width=int(columns), file=io.StringIO(), force_terminal=True, color_system="truecolor",
                      legacy_windows=False)
    for command in commands:
        console.print(Text.from_ansi(f"\033[1m$ {command}\033[0m"))
        console.print(Text.from_ansi(run(command, int(columns)).rstrip("\n")))
        console.print()
    console.save_svg(path, title=title, theme=SVG_EXPORT_THEME, code_format=FORMAT, unique_id="terminal")


main(*sys.argv[1:])
