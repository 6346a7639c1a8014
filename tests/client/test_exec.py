"""`velotide exec` in the real shells: output and status of the command, and nothing typed where it does not belong."""

import os
import shutil
import signal
import unittest

from attached_terminal import Terminal
from client_case import INTEGRATION, ClientCase, process

SHELLS = {
    "bash": (["--noprofile", "--rcfile", str(INTEGRATION / "load.bash")], {}),
    "zsh": (["-d"], {"ZDOTDIR": str(INTEGRATION / "zsh")}),
    "fish": (["--init-command", f"source '{INTEGRATION}/velotide.fish'"], {}),
}


class Exec(ClientCase):
    def shells(self):
        """Each shell that is there (in CI all must be), with a session of it."""
        for name, (arguments, more) in SHELLS.items():
            path = shutil.which(name)
            if not path and not os.environ.get("CI"):
                continue
            self.assertTrue(path, name)
            with self.subTest(shell=name):
                session = self.client.create(None, executable=path, arguments=arguments,
                                             environment=self.environment(**more))
                self.execute = lambda *words: self.velotide("exec", session.info["id"][:8], *words)
                yield session

    def test_a_command_gives_its_output_and_status(self):
        for _ in self.shells():
            for words, expected in [
                    (["true"], (0, b"")), (["sh", "-c", "exit 42"], (42, b"")), (["echo one | tr o 0"], (0, b"0ne\r\n")),
                    (["printf", "%s|", "it's", "\\n \\ \\", "$HOME", "*", "!!", "a\nb\tc", ""],
                     (0, b"it's|\\n \\ \\|$HOME|*|!!|a\r\nb\tc||")),
                    (["seq", "1", "3"], (0, b"1\r\n2\r\n3\r\n")), (["no-such-program"], (127, None)),
                    (["echo a\necho b"], (0, b"a\r\nb\r\n"))]:
                with self.subTest(words):
                    status, output, errors = self.execute("--", *words)
                    self.assertEqual((expected[0], ""), (status, errors))
                    self.assertIn(expected[1], (None, output))

    def test_a_terminal_is_shown_no_question(self):
        for session in self.shells():
            terminal = Terminal(["exec", session.info["id"], "--", r"printf 'a\033[cb\033[6nc'"],
                                self.environment(VELOTIDE_ROOT=self.runtime.root))
            self.addCleanup(terminal.close)
            self.assertEqual((0, b"abc"), (terminal.finish(), terminal.screen.strip()))

    def test_nothing_is_typed_into_a_line_that_somebody_began(self):
        for session in self.shells():
            self.assertEqual(0, self.execute("--", "true")[0])
            session.request("getAgentState")
            self.accept(session.input(b"echo mine"))
            session.expect(b"mine")
            status, output, errors = self.execute("--", "echo", "theirs")
            self.assertEqual((120, b""), (status, output), errors)
            session.request("getAgentState")
            self.assertNotIn(b"theirs", session.expect(b"mine"))
            self.assertEqual((0, b"theirs\r\n", ""), self.execute("--force", "--", "echo", "theirs"))

    def test_what_keeps_the_end_from_being_told_has_a_status_of_its_own(self):
        for session in self.shells():
            self.assertEqual(124, self.execute("--timeout", "0.3", "--", "sleep 1; echo late")[0])
            self.assertEqual(120, self.execute("--", "true")[0], "while a command runs")
            self.assertEqual(0, self.velotide("wait", session.info["id"], "--last-command")[0])
            self.assertEqual(125, self.execute("--", "echo 'open")[0], "an open quote")
            self.assertEqual(122, self.execute("--", r"printf '\033]777;Velotide;start=6c73\033\\'")[0])
            self.assertEqual(0, self.velotide("wait", session.info["id"], "--last-command")[0])
            self.assertEqual(0, self.execute("--", "true")[0])
            running = self.start("exec", session.info["id"], "--", "sh", "-c",
                                 "trap exit INT; printf begun; while :; do sleep 0.05; done")
            self.assertEqual(b"begun", running.stdout.read(5))
            running.send_signal(signal.SIGINT)
            self.assertEqual(130, running.wait(process.DEADLINE))
            running.communicate()
            # fish tells of this end, too.
            status, _, errors = self.execute("--", "exit 5")
            self.assertIn(status, (123, 5), errors)

    def test_a_program_without_marks_or_under_control_of_another_is_left_alone(self):
        session = self.client.create("echo ready; exec cat")
        session.expect(b"ready")
        self.assertEqual(121, self.velotide("exec", session.info["id"], "--timeout", "0.5", "--", "true")[0])
        self.assertEqual(b"ready\r\n", session.expect(b"ready"))
        for session in self.shells():
            self.assertEqual(0, self.execute("--", "true")[0])
            session.request("getAgentState")
            self.accept(session.request("acquireControl", owner="other"))
            self.assertEqual(120, self.execute("--", "true")[0])


if __name__ == "__main__":
    unittest.main()
