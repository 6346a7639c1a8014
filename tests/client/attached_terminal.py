"""A terminal of the test's own in which the real client runs, and the real service behind it."""

import fcntl
import os
import pty
import select
import shutil
import signal
import struct
import subprocess
import tempfile
import termios
import unittest

from client_case import VELOTIDE
from runtime_process import wait_until


class Terminal:
    """The client with these words on a terminal of its own; what it prints gathers in `screen`."""

    def __init__(self, words, environment, columns=80, rows=24):
        self.master, slave = pty.openpty()
        self.slave = os.open(os.ttyname(slave), os.O_RDWR | os.O_NOCTTY)  # keeps the terminal there
        self.resize(columns, rows)
        self.before = termios.tcgetattr(self.slave)
        self.screen, self.seen = b"", 0

        def take_terminal():
            os.setsid()
            fcntl.ioctl(0, termios.TIOCSCTTY, 0)

        self.process = subprocess.Popen([VELOTIDE, *words], stdin=slave, stdout=slave, stderr=slave,
                                        env=environment, preexec_fn=take_terminal)
        os.close(slave)

    def resize(self, columns, rows):
        fcntl.ioctl(self.master, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def type(self, text):
        while text:
            text = text[os.write(self.master, text[:1024]):]

    def take(self, wait=0.0):
        """What is printed now."""
        if not select.select([self.master], [], [], wait)[0]:
            return b""
        more = os.read(self.master, 65536)
        self.screen += more
        return more

    def expect(self, marker):
        """Waits for the marker behind the one expected before; what came up to its end."""
        def found():
            self.take(0.01)
            return marker in self.screen[self.seen:]
        try:
            wait_until(found, f"{marker!r} on the screen")
        except AssertionError as failure:
            raise AssertionError(f"{failure}; there is {self.screen[self.seen:][-2000:]!r}") from None
        begin, self.seen = self.seen, self.screen.index(marker, self.seen) + len(marker)
        return self.screen[begin:self.seen]

    def is_ordinary(self):
        return termios.tcgetattr(self.slave) == self.before

    def finish(self):
        """Waits for the client's end: its exit status."""
        def ended():
            self.take()
            return self.process.poll() is not None
        wait_until(ended, "the end of the client")
        while self.take(0.05):
            pass
        return self.process.returncode

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        os.close(self.master)
        os.close(self.slave)


class ClientCase(unittest.TestCase):
    """A test with a root directory of its own; its service is started by the client and ended with the test."""

    def setUp(self):
        self.directory = tempfile.mkdtemp(prefix="vt", dir="/tmp")  # short: socket paths are
        self.addCleanup(shutil.rmtree, self.directory, ignore_errors=True)
        self.root = self.directory + "/root"
        self.environment = {"PATH": os.environ["PATH"], "HOME": self.directory, "TERM": "xterm-256color",
                            "LANG": "C.UTF-8", "SHELL": "/bin/sh", "PS1": "$ ", "VELOTIDE_ROOT": self.root}
        self.addCleanup(self.call, "stop", "--close-all", status=None)

    def service_process(self):
        return int(subprocess.check_output(["pgrep", "-f", f"velotide-runtime --root {self.root}$"]))

    def terminal(self, *words, **options):
        terminal = Terminal(words, self.environment, **options)
        self.addCleanup(terminal.close)
        return terminal

    def call(self, *words, status=0, given=b"", **changes):
        """Runs the client between pipes: what it printed, once its status is as expected."""
        done = subprocess.run([VELOTIDE, *words], input=given, env={**self.environment, **changes}, cwd=self.directory,
                              capture_output=True, timeout=60, check=False)
        self.errors = done.stderr
        if status is not None:
            self.assertEqual(status, done.returncode, (words, done.stdout[-500:], done.stderr))
        return done.stdout

    def new(self, *command):
        return self.call("new", "-d", "--", *command).decode().strip()
