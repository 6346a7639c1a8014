"""Drives real shells through the service with the client and looks at the commands it tells of."""

import json
import pathlib
import signal
import subprocess

from attached_terminal import PROMPT, ClientCase, wait_until
from runtime_process import DEADLINE


def mark(payload):
    return f"\x1b]777;Velotide;{payload}\x1b\\"


BEGIN, END = mark("start=6c73"), mark("end=9")


class CommandsCase(ClientCase):
    def commands(self, session):
        return [told for line in self.call("commands", session, "--json").splitlines() if (told := json.loads(line))]

    def wait_for_commands(self, session, count, running=False):
        return wait_until(lambda: len(found := self.commands(session)) == count
                          and (found[-1]["state"] == "running") == running and found, f"{count} commands")

    def type(self, session, text, count):
        """Types a command line, as the session's count-th, and answers what is told of it when it is over."""
        self.call("send", session, "-e", text)
        return self.wait_for_commands(session, count)[-1]


class ShellsTest(CommandsCase):
    ROWS = [("echo hello", 0, b"hello\r\n"), ("printf 'no line feed'; false", 1, b"no line feed"), ("true", 0, b""),
            ("printf '\\033[31mred\\033[m\\a'", 0, b"\x1b[31mred\x1b[m\a"),
            ("echo ä; sh -c 'exit 7'", 7, "ä\r\n".encode())]

    def test_every_command_is_told_with_its_state_and_its_output(self):
        for shell, *options in (["bash"], ["bash", "-l"], ["zsh"], ["zsh", "-l"], ["fish"], ["fish", "-l"],
                                ["sh", "bash"], ["sh", "zsh", "-i"]):
            session = self.start_shell(shell, *options)
            for number, (typed, code, printed) in enumerate(self.ROWS, 1):
                with self.subTest(shell=shell, options=options, typed=typed):
                    told = self.type(session, typed, number)
                    self.assertEqual((told["state"], told["exitCode"]), ("failed" if code else "succeeded", code))
                    self.assertRegex(self.call("commands", session), rb"%b .*s  %b +%d\n$" % (
                        told["id"][:8].encode(), told["state"].encode(), code))
                    for name in (told["id"][:8].lower(), "last"):
                        self.assertEqual(self.call("output", session, name), printed)

    def test_a_running_command_can_be_watched_and_interrupted(self):
        session = self.start_shell("bash")
        self.call("send", session, "-e", "printf abc; sleep 60")
        self.assertNotIn("exitCode", self.wait_for_commands(session, 1, running=True)[0])
        wait_until(lambda: self.call("output", session, "last") == b"abc", "the output so far")
        watching = self.start("output", "-f", session, "last")
        self.assertEqual(watching.stdout.read(3), b"abc")
        self.call("send", session, "-k", "ctrl-c")
        told = self.wait_for_commands(session, 1)[0]
        self.assertEqual((told["state"], told["exitCode"]), ("failed", 130))
        self.assertIn(watching.communicate(timeout=DEADLINE)[0], (b"^C", b"^C\r\n"))
        self.assertEqual(watching.returncode, 0)

    def test_a_shell_can_be_left_alone(self):
        session = self.start_shell("bash", "--no-shell-integration")
        self.call("send", session, "-e", "echo one; env | grep -c INTEGRATION")
        self.wait_for_output(session, PROMPT, 2)
        self.assertEqual(self.commands(session), [])
        self.assertNotIn(b"Velotide;", self.call("read", session))
        self.call("send", session, "-e", "exit")
        wait_until(lambda: b'"running":false' in self.call("show", session, "--json"), "the end")
        self.assertEqual(self.start_shell("bash", session, verb=("restart", "-d")), session)
        self.type(session, "true", 1)


class MarksTest(CommandsCase):
    def test_no_command_is_missed_when_many_run_at_once(self):
        pathlib.Path(self.directory, "marks").write_text(
            "".join(BEGIN + f"out{n}" + mark(f"end={n % 3}") for n in range(40)))
        session = self.new("sh", "-c", f"read line; cat marks; read line; printf '{BEGIN}'; read line; printf '{END}'; "
                                       "cat marks; read line")
        self.assertEqual(self.call("commands", session, "--json"), b"[]\n")
        self.call("send", session, "-e", "go")
        self.wait_for_commands(session, 8)
        following = self.start("commands", session, "-f", "--json", stderr=subprocess.PIPE)
        told = [json.loads(following.stdout.readline()) for _ in range(8)]
        self.call("send", session, "-e", "go")
        running = json.loads(following.stdout.readline())
        self.assertEqual("running", running["state"])
        # The service describes the newest eight; the end of the one that ran is not among them.
        self.call("send", session, "-e", "go")
        while len(told) < 49:
            told += [c for c in [json.loads(following.stdout.readline())] if c["state"] != "running"]
        codes = [n % 3 for n in range(40)]
        self.assertEqual([c["exitCode"] for c in told], [*codes[32:], 9, *codes])
        self.assertEqual((len({c["id"] for c in told}), told[8]["id"]), (49, running["id"]))
        self.assertTrue(all(c["startedAt"] <= c["endedAt"] for c in told))
        self.assertEqual(self.call("output", session, told[12]["id"]), b"out3")
        self.call("close", session)
        self.assertEqual((b"", b""), following.communicate(timeout=DEADLINE))
        self.assertEqual(following.returncode, 0)

    def test_showing_output_leaves_the_terminal_as_it_was(self):
        session = self.new("sh", "-c", f"printf '{BEGIN}'; "
                           r"printf '\033[?1049h\033[?25l'; seq 40000; printf '\033Pq'; seq 2000; cat")
        self.wait_for_output(session, b"\x1bPq1\r\n")
        for words, sent, status in [
                (["read", session], signal.SIGINT, -2), (["output", session, "last"], signal.SIGTERM, -15),
                (["read", "-f", session], signal.SIGTSTP, None), (["output", "-f", session, "last"], signal.SIGQUIT, 0),
                (["read", session], 0, 0)]:
            with self.subTest(words, sent=sent):
                terminal = self.terminal(*words)
                terminal.expect(b"\x1b[?25l")
                terminal.process.send_signal(sent)
                terminal.expect(b"\x1b[?1049l\x1b[?25h" if sent else b"\n2000\r\r\n\x18\x1b[?1049l")
                self.assertEqual(status, None if status is None else terminal.finish())

    def test_what_is_not_held_or_not_there_is_said(self):
        session = self.new("sh", "-c", f"printf '{BEGIN}'; head -c 2000000 /dev/zero; printf '{END}'; cat")
        self.wait_for_commands(session, 1)
        for name, words in (("last", b"no longer held"), ("0123", b"no longer held"), ("zz", b"No command")):
            self.assertEqual(self.call("output", session, name, status=1), b"", name)
            self.assertIn(words, self.errors)
