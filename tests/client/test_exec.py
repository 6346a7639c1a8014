"""`velotide exec` in the real shells: output and status of the command, and nothing typed where it does not belong."""

import signal
import subprocess

from attached_terminal import ClientCase, wait_until
from runtime_process import DEADLINE


class Exec(ClientCase):
    def shells(self):
        for name in ("bash", "zsh", "fish"):
            with self.subTest(shell=name):
                self.session = self.start_shell(name)
                yield self.session

    def execute(self, *words, status=0):
        return self.call("exec", self.session[:8], *words, status=status)

    def test_a_command_gives_its_output_and_status(self):
        for _ in self.shells():
            for words, status, output in [
                    (["true"], 0, b""), (["sh", "-c", "exit 42"], 42, b""), (["echo one | tr o 0"], 0, b"0ne\r\n"),
                    (["printf", "%s|", "it's", "\\n \\ \\", "$HOME", "*", "!!", "a\nb\tc", ""],
                     0, b"it's|\\n \\ \\|$HOME|*|!!|a\r\nb\tc||"),
                    (["seq", "1", "3"], 0, b"1\r\n2\r\n3\r\n"), (["no-such-program"], 127, None),
                    (["echo a\necho b"], 0, b"a\r\nb\r\n")]:
                with self.subTest(words):
                    self.assertIn(output, (None, self.execute("--", *words, status=status)))
                    self.assertEqual(b"", self.errors)
            self.assertNotIn(b"dropped", self.call("status"))

    def test_a_terminal_is_shown_no_question(self):
        for session in self.shells():
            terminal = self.terminal("exec", session, "--", r"printf 'a\033[cb\033[6nc'")
            self.assertEqual((0, b"abc"), (terminal.finish(), terminal.screen.strip()))

    def test_nothing_is_typed_into_a_line_that_somebody_began(self):
        for session in self.shells():
            self.execute("--", "true")
            self.call("send", session, "echo mine")
            self.wait_for_output(session, b"mine")
            self.assertEqual(b"", self.execute("--", "echo", "theirs", status=120))
            self.assertNotIn(b"theirs", self.call("read", session))
            self.assertEqual((b"theirs\r\n", b""), (self.execute("--force", "--", "echo", "theirs"), self.errors))

    def test_what_keeps_the_end_from_being_told_has_a_status_of_its_own(self):
        for session in self.shells():
            self.execute("--timeout", "0.3", "--", "sleep 1; echo late", status=124)
            self.execute("--", "true", status=120)  # while a command runs
            self.call("wait", session, "--last-command")
            self.execute("--", "echo 'open", status=125)  # a quote
            self.assertIn(b"rejected the command, or it is not complete", self.errors)
            self.execute("--", r"printf '\033]777;Velotide;start=6c73\033\\'", status=122)
            self.call("wait", session, "--last-command")
            self.execute("--", "true")
            running = self.start("exec", session, "--", "sh", "-c",
                                 "trap exit INT; printf begun; while :; do sleep 0.05; done")
            self.assertEqual(b"begun", running.stdout.read(5))
            running.send_signal(signal.SIGINT)
            self.assertEqual(130, running.wait(DEADLINE))
            # fish tells of this end, too.
            self.execute("--", "exit 5", status=None)
            self.assertIn(self.status, (123, 5), self.errors)

    def test_control_is_let_go_on_every_way_out(self):
        session = self.start_shell("bash")
        for stop, status in ((lambda c: c.stdout.close(), 141), (lambda c: c.send_signal(signal.SIGQUIT), 131)):
            running = self.start("exec", session, "--", "while echo y; do sleep 0.01; done")
            running.stdout.read(1)
            stop(running)
            self.assertEqual(status, running.wait(DEADLINE))
            self.status = None
            while self.status != 0:  # bash goes on where the key meets it between two programs
                self.call("send", session, "-k", "ctrl-c")  # which is refused while somebody has control
                self.call("wait", session, "--last-command", "--timeout", "1", status=None)
        sending = self.start("send", session, "--as", "bot", stdin=subprocess.PIPE)
        wait_until(lambda: b"bot" in self.call("ls"), "control")
        sending.send_signal(signal.SIGINT)
        self.assertEqual(130, sending.wait(DEADLINE))
        self.assertNotIn(b"bot", self.call("ls"))

    def test_a_program_without_marks_or_under_control_of_another_is_left_alone(self):
        session = self.new("sh", "-c", "echo ready; exec cat")
        self.wait_for_output(session, b"ready")
        self.call("exec", session, "--timeout", "1.5", "--", "true", status=121)
        self.assertIn(b"waiting for the shell", self.errors)
        self.assertEqual(b"ready\r\n", self.call("read", session))
        for session in self.shells():
            self.execute("--", "true")
            self.start("send", session, "--as", "other", stdin=subprocess.PIPE)
            wait_until(lambda: b"other" in self.call("show", session), "control")
            self.execute("--", "true", status=120)
