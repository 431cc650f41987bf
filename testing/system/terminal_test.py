#!/usr/bin/python3
"""Runs amporactl on a pseudo terminal, and with pipes whose reader has gone: terminal_test.py AMPORACTL"""
import datetime
import fcntl
import os
import pty
import re
import select
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unittest

PROGRAM = sys.argv.pop()
MINUTE = datetime.timedelta(minutes=1)
LIMIT_SECONDS = 20
COLOUR = re.compile(r"\x1b\[[0-9;]*m")
CLEAR = "\x1b[H\x1b[2J"
COLUMNS = 40


def calendar(time_):
    return struct.pack("<8H", time_.year, time_.month, time_.isoweekday() % 7, time_.day, time_.hour, time_.minute,
                       time_.second, 0)


class Case(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = os.path.join(scratch.name, "AmporaSrv")
        os.mkdir(self.folder)
        self.environment = {"AMPORA_COMMON_APPDATA": scratch.name, "XDG_CONFIG_DIRS": scratch.name,
                            "HOME": scratch.name, "LANG": "C.UTF-8", "TERM": "xterm"}
        self.put_day()

    def put(self, company, data_type, records):
        """records: value, minutes from midnight to the start, minutes of length"""
        now = datetime.datetime.now()
        midnight = now.replace(hour=0, minute=0, second=0, microsecond=0)
        content = struct.pack("<4I", 0x10000, data_type, len(records), 0) + calendar(now)
        for value, start, length in records:
            content += struct.pack("<Q", value) + calendar(midnight + start * MINUTE)
            content += calendar(midnight + (start + length) * MINUTE)
        name = os.path.join(self.folder, f"{company}_{data_type:08X}.dat")
        with open(name + ".new", "wb") as file:
            file.write(content)
        os.rename(name + ".new", name)

    def put_day(self):
        self.put("tokyo", 1, [(30000 + start, start, 5) for start in range(0, 600, 5)])
        self.put("tokyo", 4, [(31000 + start, start, 60) for start in range(0, 1440, 60)])
        self.put("tokyo", 8, [(48231, 840, 60)])
        self.put("tokyo", 16, [(43800, 840, 60)])

    def start(self, *arguments, columns=COLUMNS, **environment):
        """Starts the program on a terminal of its own; the process and our end of the terminal."""
        ours, its = pty.openpty()
        fcntl.ioctl(its, termios.TIOCSWINSZ, struct.pack("4H", 24, columns, 0, 0))
        process = subprocess.Popen([PROGRAM, *arguments], stdin=its, stdout=its, stderr=its, start_new_session=True,
                                   env=self.environment | environment,
                                   preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
        os.close(its)
        self.addCleanup(os.close, ours)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process, ours

    def read(self, terminal, until=None):
        """What the program writes, to its end or until a text is in it, with plain line ends."""
        text = b""
        deadline = time.monotonic() + LIMIT_SECONDS
        while until is None or until not in text.decode(errors="replace"):
            ready, _, _ = select.select([terminal], [], [], max(deadline - time.monotonic(), 0))
            self.assertTrue(ready, f"nothing more came after {text!r}")
            try:
                part = os.read(terminal, 65536)
            except OSError:  # its end
                part = b""
            if not part:
                self.assertIsNone(until, f"it ended after {text!r}")
                break
            text += part
        return text.decode(errors="replace").replace("\r\n", "\n")

    def run_to_end(self, *arguments, **options):
        process, terminal = self.start(*arguments, **options)
        text = self.read(terminal)
        return process.wait(LIMIT_SECONDS), text

    def assert_fits(self, text, columns=COLUMNS):
        for line in COLOUR.sub("", text).replace(CLEAR, "").splitlines():
            self.assertLessEqual(len(line), columns, line)


class OnATerminal(Case):
    def test_fits_40_columns(self):
        for command, sample in ((["show"], "instant usage"), (["show", "tokyo", "instant"], "30000"),
                                (["chart", "tokyo"], "peak supply 48,231 MW")):
            code, text = self.run_to_end(*command)
            self.assertEqual(code, 0, text)
            self.assertIn(sample, text)
            self.assert_fits(text)

    def test_chart_takes_the_width_of_the_terminal(self):
        _, text = self.run_to_end("chart", "tokyo", columns=100)
        self.assertEqual(max(len(line) for line in COLOUR.sub("", text).splitlines()), 100)

    def test_colours_only_where_they_are_allowed(self):
        self.assertRegex(self.run_to_end("chart", "tokyo")[1], COLOUR)
        for refusal in ({"NO_COLOR": "1"}, {"TERM": "dumb"}):
            self.assertNotIn("\x1b", self.run_to_end("chart", "tokyo", **refusal)[1])

    def test_ascii_alone_where_the_locale_has_no_more(self):
        self.assertIn("█", self.run_to_end("chart", "tokyo")[1])
        self.assertTrue(self.run_to_end("chart", "tokyo", LC_ALL="C")[1].isascii())


class Watching(Case):
    def test_table_and_chart_are_renewed_on_a_change_and_end_with_ctrl_c(self):
        for command, before, after in ((["watch"], "32380", "77777"), (["watch", "tokyo"], "50,000", "80,000")):
            process, terminal = self.start(*command)
            text = self.read(terminal, before)
            self.assertTrue(text.startswith(CLEAR), text)
            self.put("tokyo", 4, [(77777, 0, 60)])
            text += self.read(terminal, after)
            self.assertEqual(text.count(CLEAR), 2)
            self.assert_fits(text)
            os.write(terminal, b"\x03")
            self.assertEqual(process.wait(LIMIT_SECONDS), -signal.SIGINT)
            self.put_day()

    def test_waits_for_a_folder_that_comes_and_goes(self):
        moved = self.folder + ".away"
        os.rename(self.folder, moved)
        _, terminal = self.start("watch")
        self.read(terminal, "no data files in")
        os.rename(moved, self.folder)
        self.read(terminal, "instant usage")
        os.rename(self.folder, moved)
        self.read(terminal, "no data files in")


class WithoutAReader(Case):
    """Of standard output."""

    def run_unread(self, *arguments, handler):
        reader, writer = os.pipe()
        os.close(reader)
        process = subprocess.Popen([PROGRAM, *arguments], stdout=writer, stderr=subprocess.PIPE, text=True,
                                   env=self.environment, restore_signals=False,
                                   preexec_fn=lambda: signal.signal(signal.SIGPIPE, handler))
        os.close(writer)
        return process

    def test_ends_quietly(self):
        for command in (["show"], ["chart", "tokyo"], ["show", "--json"], ["watch"], ["--help"]):
            for handler, code in ((signal.SIG_DFL, -signal.SIGPIPE), (signal.SIG_IGN, 1)):
                process = self.run_unread(*command, handler=handler)
                _, err = process.communicate(timeout=LIMIT_SECONDS)
                self.assertEqual((process.returncode, err), (code, ""), command)

    def test_watch_ends_at_the_next_change(self):
        reader, writer = os.pipe()
        with subprocess.Popen([PROGRAM, "watch"], stdout=writer, env=self.environment) as process:
            os.close(writer)
            self.assertIn(b"COMPANY", os.read(reader, 65536))
            os.close(reader)
            self.put("tokyo", 4, [])
            self.assertEqual(process.wait(LIMIT_SECONDS), -signal.SIGPIPE)


unittest.main()
