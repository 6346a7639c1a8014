"""Drives real shells through the service with the client and looks at the commands it tells of."""

import json
import os
import pathlib
import shutil
import subprocess
import unittest

from attached_terminal import ClientCase, wait_until
from client_case import VELOTIDE
from runtime_process import DEADLINE

FILES = {".bashrc": "PS1='re@dy> '\n", ".bash_profile": "PS1='re@dy> '\n", ".zshrc": "PS1='re@dy> '\n",
         ".config/fish/config.fish": "function fish_greeting; end; function fish_prompt; printf 're@dy> '; end\n"}


def mark(payload):
    return f"\x1b]777;Velotide;{payload}\x1b\\"


class CommandsCase(ClientCase):
    def setUp(self):
        super().setUp()
        for name, text in FILES.items():
            path = pathlib.Path(self.directory, name)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)

    def start(self, shell, *options, verb=("new", "-d")):
        if not shutil.which(shell):
            self.assertNotIn("CI", os.environ, f"{shell} is missing")
            self.skipTest(f"{shell} is missing")
        session = self.call(*verb, *options, SHELL=shutil.which(shell)).decode().strip()
        self.wait_for_output(session, b"re@dy> ")
        return session

    def wait_for_output(self, session, text, count=1):
        wait_until(lambda: self.call("read", session).count(text) >= count, f"{text!r} in the output")

    def commands(self, session):
        found = [json.loads(line) for line in self.call("commands", session, "--json").splitlines()]
        return [] if found == [[]] else found

    def wait_for_commands(self, session, count, running=False):
        def are_there():
            found = self.commands(session)
            return found if len(found) == count and (found[-1]["state"] == "running") == running else None
        return wait_until(are_there, f"{count} commands")

    def type(self, session, text, count):
        """Types a command line, as the session's count-th, and answers what is told of it when it is over."""
        self.call("send", session, "-e", text)
        return self.wait_for_commands(session, count)[-1]


class ShellsTest(CommandsCase):
    ROWS = [("echo hello", 0, b"hello\r\n"), ("printf 'no line feed'; false", 1, b"no line feed"), ("true", 0, b""),
            ("printf '\\033[31mred\\033[m\\a'", 0, b"\x1b[31mred\x1b[m\a"), ("echo ä; sh -c 'exit 7'", 7, "ä\r\n".encode())]

    def test_every_command_is_told_with_its_state_and_its_output(self):
        for shell, options in (("bash", ()), ("bash", ("-l",)), ("zsh", ()), ("zsh", ("-l",)), ("fish", ()),
                               ("fish", ("-l",)), ("sh", ("bash",)), ("sh", ("zsh", "-i"))):
            session = self.start(shell, *options)
            for number, (typed, code, printed) in enumerate(self.ROWS, 1):
                with self.subTest(shell=shell, options=options, typed=typed):
                    told = self.type(session, typed, number)
                    self.assertEqual((told["state"], told["exitCode"]), ("failed" if code else "succeeded", code))
                    self.assertLessEqual(told["startedAt"], told["endedAt"])
                    self.assertRegex(self.call("commands", session), rb"%b .*s  %b +%d\n$" % (
                        told["id"][:8].encode(), told["state"].encode(), code))
                    self.assertEqual(self.call("output", session, told["id"][:8].lower()), printed)
                    self.assertEqual(self.call("output", session, "last"), printed)

    def test_a_running_command_can_be_watched_and_interrupted(self):
        for shell in ("bash", "zsh", "fish"):
            with self.subTest(shell=shell):
                session = self.start(shell)
                self.call("send", session, "-e", "printf abc; sleep 60")
                told = self.wait_for_commands(session, 1, running=True)[0]
                self.assertNotIn("exitCode", told)
                wait_until(lambda: self.call("output", session, "last") == b"abc", "the output so far")
                watching = subprocess.Popen([VELOTIDE, "output", "-f", session, "last"], env=self.environment,
                                            stdout=subprocess.PIPE)
                self.assertEqual(watching.stdout.read(3), b"abc")
                self.call("send", session, "-k", "ctrl-c")
                told = self.wait_for_commands(session, 1)[0]
                self.assertEqual((told["state"], told["exitCode"]), ("failed", 130))
                self.assertIn(watching.communicate(timeout=DEADLINE)[0], (b"^C", b"^C\r\n"))
                self.assertEqual(watching.returncode, 0)

    def test_a_shell_can_be_left_alone(self):
        for shell in ("bash", "zsh", "fish"):
            with self.subTest(shell=shell):
                session = self.start(shell, "--no-shell-integration")
                self.call("send", session, "-e", "echo one; env | grep -c INTEGRATION")
                self.wait_for_output(session, b"re@dy> ", 2)
                self.assertEqual(self.commands(session), [])
                self.assertNotIn(b"Velotide;", self.call("read", session))
                self.call("send", session, "-e", "exit")
                wait_until(lambda: b'"running":false' in self.call("show", session, "--json"), "the end")
                self.assertEqual(self.start(shell, session, verb=("restart", "-d")), session)
                self.type(session, "true", 1)

    def test_run_loads_the_integration_too(self):
        running = subprocess.Popen([VELOTIDE, "run", "bash"], env=self.environment, cwd=self.directory,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.addCleanup(running.stdout.close)
        running.stdin.write(b"sleep 60\n")
        running.stdin.flush()
        session = wait_until(lambda: self.call("ls", "--ids", status=None).decode().strip(), "the session")
        self.wait_for_commands(session, 1, running=True)
        running.kill()
        running.communicate()


class MarksTest(CommandsCase):
    def test_no_command_is_missed_when_many_run_at_once(self):
        pathlib.Path(self.directory, "marks").write_text(
            "".join(mark("start=6c73") + f"out{n}" + mark(f"end={n % 3}") for n in range(40)))
        session = self.new("sh", "-c", "read line; cat marks; read line; cat marks; read line")
        self.assertEqual(self.call("commands", session, "--json"), b"[]\n")
        self.call("send", session, "-e", "go")
        self.wait_for_commands(session, 8)
        following = subprocess.Popen([VELOTIDE, "commands", session, "-f", "--json"], env=self.environment,
                                     stdout=subprocess.PIPE)
        told = [json.loads(following.stdout.readline()) for _ in range(8)]
        self.call("send", session, "-e", "go")
        told += [json.loads(following.stdout.readline()) for _ in range(40)]
        self.assertEqual([c["exitCode"] for c in told], [n % 3 for n in (*range(32, 40), *range(40))])
        self.assertEqual(len({c["id"] for c in told}), 48)
        self.assertTrue(all(c["startedAt"] <= c["endedAt"] for c in told))
        self.assertEqual(self.call("output", session, told[11]["id"]), b"out3")
        self.call("close", session)
        following.communicate(timeout=DEADLINE)
        self.assertEqual(following.returncode, 0)

    def test_what_is_not_held_or_not_there_is_said(self):
        session = self.new("sh", "-c", f"printf '{mark('start=6c73')}'; head -c 2000000 /dev/zero; printf '{mark('end=0')}'; cat")
        self.wait_for_commands(session, 1)
        for name, words in (("last", b"no longer held"), ("0123", b"no longer held"), ("zz", b"No command")):
            self.assertEqual(self.call("output", session, name, status=1), b"", name)
            self.assertIn(words, self.errors)


if __name__ == "__main__":
    unittest.main()
