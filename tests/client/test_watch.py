"""The live view on a real terminal: what is on it, what its keys do, and how it is left."""

import os
import re
import signal

from attached_terminal import Terminal
from runtime_process import DEADLINE, RuntimeCase, wait_until


class View(Terminal):
    def lines(self):
        """What the client drew since it last cleared the screen."""
        while self.take(0.02):
            pass
        shown = self.screen[max(self.screen.rfind(b"\x1b[2J"), 0):]
        drawn = dict(re.findall(rb"\x1b\[(\d+);1H\x1b\[2K([^\x1b]*)", shown))
        return [drawn[row].decode().rstrip() for row in sorted(drawn, key=int)]

    def names(self):
        return set(re.findall(r"^[> ] (\w{8})", "\n".join(self.lines()), re.M))

    def expect(self, *patterns, deadline=DEADLINE):
        for pattern in patterns:
            wait_until(lambda: re.search(pattern, "\n".join(self.lines()), re.M), pattern, deadline)


class Watch(RuntimeCase):
    def watch(self):
        terminal = View(["--root", self.runtime.root, "watch"], {**os.environ, "NO_COLOR": "1"})
        self.addCleanup(terminal.close)
        terminal.expect("^> ")
        return terminal

    def assert_left(self, terminal):
        terminal.lines()
        self.assertIn(b"\x1b[?7h\x1b[?25h\x1b[?1049l", terminal.screen)
        self.assertTrue(terminal.is_ordinary())

    def test_attention_appears_and_is_acknowledged(self):
        quiet, loud = (self.client.create(script) for script in ("read x", "read x; printf '\\a'; read x"))
        name = loud.info["id"][:8]
        terminal = self.watch()
        terminal.expect(f"^[> ] {quiet.info['id'][:8]} .* running .* /$")
        loud.input(b"\n")
        terminal.expect(f"^.\\*{name}  bell +[01]s ", "^velotide: 2 sessions, 1 with news$", deadline=1)
        terminal.type(b"\x1b[H", f"^>\\*{name}")
        terminal.type(b"a", f"^Acknowledged: bell of {name}", f"^> {name}  - ")
        self.assertEqual([], self.connect().request("listAttention")["attention"])

    def test_follows_the_terminal(self):
        ids = {self.client.create("read line").info["id"][:8] for _ in range(3)}
        terminal = self.watch()
        for size, keys, count in (((20, 4), b"", 2), ((20, 4), b"G", 1), ((200, 60), b"", 3)):
            terminal.resize(*size)
            terminal.type(keys)
            wait_until(lambda: len(terminal.names() & ids) == count, f"{count} sessions")
            self.assertLessEqual(max(map(len, terminal.lines())), size[0])

    def test_closes_running_sessions_only_when_told_twice(self):
        self.client.create("read line")
        terminal = self.watch()
        # What is typed ahead of the question is no answer.
        for keys, question in ((b"xy", "y closes"), (b"n", "q quit$"), (b"x", "y closes")):
            terminal.type(keys, question)
        self.assertEqual(1, len(self.connect().request("list")["sessions"]))
        terminal.type(b"y", "^No sessions")
        self.assertEqual([], self.connect().request("list")["sessions"])

    def test_comes_back_from_a_session_and_from_suspension(self):
        self.client.create("read line; echo heard $line; read line")
        terminal = self.watch()
        for keys, answer in ((b"\r", b"detaches"), (b"hello\n", b"heard hello")):
            terminal.type(keys)
            wait_until(lambda: (terminal.take(0.01), answer in terminal.screen)[1], answer)
        terminal.type(b"\x1c", "^> ")
        terminal.type(b"\r")
        wait_until(lambda: (terminal.take(0.01), terminal.screen.count(b"detaches") == 2)[1], "the session again")
        terminal.type(b"\n")
        wait_until(lambda: (terminal.take(0.01), b"exited with 0" in terminal.screen)[1], "its end")
        terminal.type(b" ", "^>.* exited 0 +[0-9]+s ")
        terminal.process.send_signal(signal.SIGTSTP)
        wait_until(lambda: os.waitid(os.P_PID, terminal.process.pid, os.WSTOPPED | os.WNOHANG), "stopped")
        self.assert_left(terminal)
        terminal.screen = b""
        terminal.process.send_signal(signal.SIGCONT)
        terminal.expect("^> ")
        self.assertFalse(terminal.is_ordinary())

    def test_leaves_the_terminal_as_it_was(self):
        self.client.create("read line")
        for end, status in ((b"q", 0), (b"\x03", 0), (signal.SIGTERM, 143), (signal.SIGINT, 130), (None, 143)):
            with self.subTest(end=end):
                terminal = self.watch()
                if end is None:
                    self.runtime.kill()
                    terminal.expect("^service gone, waiting")
                tell = terminal.type if isinstance(end, bytes) else terminal.process.send_signal
                tell(end or signal.SIGTERM)
                self.assertEqual(status, terminal.process.wait(DEADLINE))
                self.assert_left(terminal)
