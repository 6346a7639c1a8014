"""Drives real shells through the service with the client and looks at the commands it tells of."""

import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import time
import unittest

BINARIES = pathlib.Path(os.environ.get("VELOTIDE_BIN_DIR", pathlib.Path(__file__).resolve().parents[2] / "build/bin"))
VELOTIDE = str(BINARIES.absolute() / "velotide")
DEADLINE = 20.0
FILES = {".bashrc": "PS1='re@dy> '\n", ".bash_profile": "PS1='re@dy> '\n", ".zshrc": "PS1='re@dy> '\n",
         ".config/fish/config.fish": "function fish_greeting; end; function fish_prompt; printf 're@dy> '; end\n"}


def mark(payload):
    return f"\x1b]777;Velotide;{payload}\x1b\\"


def wait_until(condition, what):
    end = time.monotonic() + DEADLINE
    while not (value := condition()):
        if time.monotonic() > end:
            raise AssertionError(f"waited {DEADLINE} s in vain: {what}")
        time.sleep(0.01)
    return value


class CommandsCase(unittest.TestCase):
    def setUp(self):
        self.home = tempfile.mkdtemp(prefix="vt", dir="/tmp")  # short: socket paths are
        self.addCleanup(shutil.rmtree, self.home, ignore_errors=True)
        self.addCleanup(self.call, "stop", "--close-all", check=False)
        for name, text in FILES.items():
            path = pathlib.Path(self.home, name)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)

    def environment(self, shell="sh"):
        return {"HOME": self.home, "PATH": os.environ["PATH"], "TERM": "xterm-256color", "LANG": "C.UTF-8",
                "SHELL": shutil.which(shell), "VELOTIDE_ROOT": self.home + "/root"}

    def call(self, *words, shell="sh", check=True):
        done = subprocess.run([VELOTIDE, *words], env=self.environment(shell), cwd=self.home, timeout=60,
                              stdin=subprocess.DEVNULL, capture_output=True, check=False)
        if check and done.returncode != 0:
            raise AssertionError(f"{words}: {done.returncode}, {done.stderr!r}")
        return done

    def start(self, shell, *options, verb=("new", "-d")):
        if not shutil.which(shell):
            self.assertNotIn("CI", os.environ, f"{shell} is missing")
            self.skipTest(f"{shell} is missing")
        session = self.call(*verb, *options, shell=shell).stdout.decode().strip()
        self.wait_for_output(session, b"re@dy> ")
        return session

    def start_script(self, script):
        return self.call("new", "-d", "sh", "-c", script).stdout.decode().strip()

    def wait_for_output(self, session, text, count=1):
        wait_until(lambda: self.call("read", session).stdout.count(text) >= count, f"{text!r} in the output")

    def commands(self, session):
        found = [json.loads(line) for line in self.call("commands", session, "--json").stdout.splitlines()]
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
                    self.assertEqual(self.call("output", session, told["id"][:8].lower()).stdout, printed)
                    self.assertEqual(self.call("output", session, "last").stdout, printed)

    def test_a_running_command_can_be_watched_and_interrupted(self):
        for shell in ("bash", "zsh", "fish"):
            with self.subTest(shell=shell):
                session = self.start(shell)
                self.call("send", session, "-e", "printf abc; sleep 60")
                told = self.wait_for_commands(session, 1, running=True)[0]
                self.assertNotIn("exitCode", told)
                wait_until(lambda: self.call("output", session, "last").stdout == b"abc", "the output so far")
                watching = subprocess.Popen([VELOTIDE, "output", "-f", session, "last"], env=self.environment(),
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
                self.assertNotIn(b"Velotide;", self.call("read", session).stdout)
                self.call("send", session, "-e", "exit")
                wait_until(lambda: b'"running":false' in self.call("show", session, "--json").stdout, "the end")
                self.assertEqual(self.start(shell, session, verb=("restart", "-d")), session)
                self.type(session, "true", 1)

    def test_run_loads_the_integration_too(self):
        running = subprocess.Popen([VELOTIDE, "run", "bash"], env=self.environment(), cwd=self.home,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.addCleanup(running.stdout.close)
        running.stdin.write(b"sleep 60\n")
        running.stdin.flush()
        session = wait_until(lambda: self.call("ls", "--ids", check=False).stdout.decode().strip(), "the session")
        self.wait_for_commands(session, 1, running=True)
        running.kill()
        running.communicate()


class MarksTest(CommandsCase):
    def test_no_command_is_missed_when_many_run_at_once(self):
        pathlib.Path(self.home, "marks").write_text(
            "".join(mark("start=6c73") + f"out{n}" + mark(f"end={n % 3}") for n in range(40)))
        session = self.start_script("read line; cat marks; read line; cat marks; read line")
        self.assertEqual(self.call("commands", session, "--json").stdout, b"[]\n")
        self.call("send", session, "-e", "go")
        self.wait_for_commands(session, 8)
        following = subprocess.Popen([VELOTIDE, "commands", session, "-f", "--json"], env=self.environment(),
                                     stdout=subprocess.PIPE)
        told = [json.loads(following.stdout.readline()) for _ in range(8)]
        self.call("send", session, "-e", "go")
        told += [json.loads(following.stdout.readline()) for _ in range(40)]
        self.assertEqual([c["exitCode"] for c in told], [n % 3 for n in (*range(32, 40), *range(40))])
        self.assertEqual(len({c["id"] for c in told}), 48)
        self.assertTrue(all(c["startedAt"] <= c["endedAt"] for c in told))
        self.assertEqual(self.call("output", session, told[11]["id"]).stdout, b"out3")
        self.call("close", session)
        following.communicate(timeout=DEADLINE)
        self.assertEqual(following.returncode, 0)

    def test_what_is_not_held_or_not_there_is_said(self):
        session = self.start_script(f"printf '{mark('start=6c73')}'; head -c 2000000 /dev/zero; printf '{mark('end=0')}'; cat")
        self.wait_for_commands(session, 1)
        for name, words in (("last", b"no longer held"), ("0123", b"no longer held"), ("zz", b"No command")):
            done = self.call("output", session, name, check=False)
            self.assertEqual((done.returncode, done.stdout), (1, b""), name)
            self.assertIn(words, done.stderr)


if __name__ == "__main__":
    unittest.main()
