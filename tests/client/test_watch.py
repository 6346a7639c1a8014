"""The live view on a real terminal: what is on it, what its keys do, and how it is left."""

import fcntl
import os
import pty
import re
import select
import signal
import struct
import subprocess
import sys
import termios

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "process"))
from runtime_process import BINARIES, DEADLINE, RuntimeCase, wait_until  # noqa: E402


class Terminal:
    """A terminal with the client on it; keeps the lines that the client drew since it last cleared them."""

    def __init__(self, root):
        self.master, self.slave = pty.openpty()
        self.size(80, 24)
        self.modes = termios.tcgetattr(self.slave)
        self.seen = b""
        self.process = subprocess.Popen(
            [str(BINARIES / "velotide"), "--root", root, "watch"], start_new_session=True,
            stdin=self.slave, stdout=self.slave, stderr=self.slave, env={**os.environ, "NO_COLOR": "1"},
            preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))

    def size(self, columns, rows):
        fcntl.ioctl(self.master, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def lines(self):
        while select.select([self.master], [], [], 0.02)[0]:
            self.seen += os.read(self.master, 65536)
        shown = self.seen[max(self.seen.rfind(b"\x1b[2J"), 0):]
        drawn = dict(re.findall(rb"\x1b\[(\d+);1H\x1b\[2K([^\x1b]*)", shown))
        return [drawn[row].decode().rstrip() for row in sorted(drawn, key=int)]

    def expect(self, pattern, deadline=DEADLINE):
        wait_until(lambda: re.search(pattern, "\n".join(self.lines()), re.M), pattern, deadline)

    def close(self):
        self.process.kill()
        self.process.wait()
        os.close(self.master)
        os.close(self.slave)


class Watch(RuntimeCase):
    def watch(self):
        terminal = Terminal(self.runtime.root)
        self.addCleanup(terminal.close)
        terminal.expect("^> ")
        return terminal

    def assert_left(self, terminal):
        terminal.lines()
        self.assertIn(b"\x1b[?7h\x1b[?25h\x1b[?1049l", terminal.seen)
        self.assertEqual(terminal.modes, termios.tcgetattr(terminal.slave))

    def test_attention_appears_and_is_acknowledged(self):
        quiet = self.client.create("read line")
        loud = self.client.create("read line; printf '\\a'; read line")
        terminal = self.watch()
        terminal.expect(f"^[> ] {quiet.info['id'][:8]} .* running .* /$")
        loud.input(b"\n")
        terminal.expect(f"^.\\*{loud.info['id'][:8]}  bell +[01]s ", deadline=1)
        terminal.expect("^velotide: 2 sessions, 1 with news$")
        os.write(terminal.master, b"\x1b[H")
        terminal.expect(f"^>\\*{loud.info['id'][:8]}")
        os.write(terminal.master, b"a")
        terminal.expect(f"^Acknowledged: bell of {loud.info['id'][:8]}")
        terminal.expect(f"^> {loud.info['id'][:8]}  - ")
        self.assertEqual([], self.connect().request("listAttention")["attention"])

    def test_follows_the_terminal(self):
        ids = {self.client.create("read line").info["id"][:8] for _ in range(3)}
        terminal = self.watch()
        names = lambda: set(re.findall(r"^[> ] (\w{8})", "\n".join(terminal.lines()), re.M))  # noqa: E731
        wait_until(lambda: names() == ids, "all sessions")
        terminal.size(20, 4)
        wait_until(lambda: len(names()) == 2 and max(map(len, terminal.lines())) <= 20, "a page")
        os.write(terminal.master, b"G")
        wait_until(lambda: len(names()) == 1, "the other page")
        terminal.size(200, 60)
        wait_until(lambda: names() == ids, "all sessions again")

    def test_closes_running_sessions_only_when_told_twice(self):
        self.client.create("read line")
        terminal = self.watch()
        # What is typed ahead of the question is no answer.
        for keys, question in ((b"xy", "y closes"), (b"n", "q quit$"), (b"x", "y closes")):
            os.write(terminal.master, keys)
            terminal.expect(question)
        self.assertEqual(1, len(self.connect().request("list")["sessions"]))
        os.write(terminal.master, b"y")
        terminal.expect("^No sessions")
        self.assertEqual([], self.connect().request("list")["sessions"])

    def test_comes_back_from_a_session_and_from_suspension(self):
        self.client.create("read line; echo heard $line; read line")
        terminal = self.watch()
        for keys, answer in ((b"\r", b"detaches"), (b"hello\n", b"heard hello")):
            os.write(terminal.master, keys)
            wait_until(lambda: (terminal.lines(), answer in terminal.seen)[1], answer)
        os.write(terminal.master, b"\x1c")
        terminal.expect("^> ")
        terminal.process.send_signal(signal.SIGTSTP)
        wait_until(lambda: os.waitid(os.P_PID, terminal.process.pid, os.WSTOPPED | os.WNOHANG), "stopped")
        self.assert_left(terminal)
        terminal.seen = b""
        terminal.process.send_signal(signal.SIGCONT)
        terminal.expect("^> ")
        self.assertNotEqual(terminal.modes, termios.tcgetattr(terminal.slave))

    def test_leaves_the_terminal_as_it_was(self):
        self.client.create("read line")
        for end, status in ((b"q", 0), (b"\x03", 0), (signal.SIGTERM, 143), (signal.SIGINT, 130), (None, 143)):
            with self.subTest(end=end):
                terminal = self.watch()
                if end is None:
                    self.runtime.kill()
                    terminal.expect("^service gone, waiting")
                tell = terminal.process.send_signal
                os.write(terminal.master, end) if isinstance(end, bytes) else tell(end or signal.SIGTERM)
                self.assertEqual(status, terminal.process.wait(DEADLINE))
                self.assert_left(terminal)
