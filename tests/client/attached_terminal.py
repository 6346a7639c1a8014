"""A terminal of the test's own in which the real client runs, and the real service behind it."""

import fcntl
import os
import pathlib
import pty
import select
import shutil
import struct
import subprocess
import tempfile
import termios
import unittest

from client_case import VELOTIDE
from runtime_process import wait_until

PROMPT = b"re@dy> "
START_FILES = {".bashrc": "PS1='re@dy> '\n", ".bash_profile": "PS1='re@dy> '\n", ".zshrc": "PS1='re@dy> '\n",
               ".config/fish/config.fish": "function fish_greeting; end\nfunction fish_prompt; printf 're@dy> '; end\n"}


class Terminal:
    """The client with these words on a terminal of its own; what it prints gathers in `screen`."""

    def __init__(self, words, environment, columns=80, rows=24):
        self.master, slave = pty.openpty()
        self.slave = os.open(os.ttyname(slave), os.O_RDWR | os.O_NOCTTY)  # keeps the terminal there
        self.resize(columns, rows)
        self.before = termios.tcgetattr(self.slave)
        self.screen, self.seen = b"", 0

        self.process = subprocess.Popen([VELOTIDE, *words], stdin=slave, stdout=slave, stderr=slave, env=environment,
                                        start_new_session=True,
                                        preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
        os.close(slave)

    def resize(self, columns, rows):
        fcntl.ioctl(self.master, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def type(self, text, *expected):
        while text:
            text = text[os.write(self.master, text[:1024]):]
        self.expect(*expected)

    def take(self, wait=0.0):
        """What is printed now."""
        if not select.select([self.master], [], [], wait)[0]:
            return b""
        more = os.read(self.master, 65536)
        self.screen += more
        return more

    def expect(self, *markers):
        """Waits for each marker behind the one expected before."""
        for marker in markers:
            try:
                wait_until(lambda: (self.take(0.01), marker in self.screen[self.seen:])[1], f"{marker!r} on the screen")
            except AssertionError as failure:
                raise AssertionError(f"{failure}; there is {self.screen[self.seen:][-2000:]!r}") from None
            self.seen = self.screen.index(marker, self.seen) + len(marker)

    def is_ordinary(self):
        return termios.tcgetattr(self.slave) == self.before

    def finish(self):
        """Waits for the client's end: its exit status."""
        wait_until(lambda: (self.take(), self.process.poll())[1] is not None, "the end of the client")
        while self.take(0.05):
            pass
        return self.process.returncode

    def close(self):
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

    def start(self, *words, stdin=subprocess.DEVNULL, **options):
        """The client between pipes, running."""
        client = subprocess.Popen([VELOTIDE, *words], env=self.environment, stdin=stdin,
                                  **{"stdout": subprocess.PIPE, **options})
        self.addCleanup(client.__exit__, None, None, None)
        self.addCleanup(client.kill)
        return client

    def call(self, *words, status=0, given=b"", **changes):
        """Runs the client between pipes: what it printed, once its status is as expected."""
        done = subprocess.run([VELOTIDE, *words], input=given, env={**self.environment, **changes}, cwd=self.directory,
                              capture_output=True, timeout=60, check=False)
        self.status, self.errors = done.returncode, done.stderr
        if status is not None:
            self.assertEqual(status, done.returncode, (words, done.stdout[-500:], done.stderr))
        return done.stdout

    def new(self, *command):
        return self.call("new", "-d", "--", *command).decode().strip()

    def wait_for_output(self, session, text, count=1):
        wait_until(lambda: self.call("read", session).count(text) >= count, f"{text!r} in the output")

    def start_shell(self, shell, *options, verb=("new", "-d")):
        """A session with the shell, at its first prompt; where it is missing, the test ends here."""
        if not shutil.which(shell):
            self.assertNotIn("CI", os.environ, f"{shell} is missing")
            self.skipTest(f"{shell} is missing")
        os.makedirs(self.directory + "/.config/fish", exist_ok=True)
        for name, text in START_FILES.items():
            pathlib.Path(self.directory, name).write_text(text)
        session = self.call(*verb, *options, SHELL=shutil.which(shell)).decode().strip()
        self.wait_for_output(session, PROMPT)
        return session
