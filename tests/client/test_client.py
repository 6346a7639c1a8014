"""The client as a person and a script meet it, with the real service behind it."""

import base64
import json
import os
import pathlib
import signal
import socket
import subprocess
import unittest
import uuid

from attached_terminal import ClientCase, VELOTIDE, wait_until

DETACH = b"\x1c"


class Attaching(ClientCase):
    def test_newcomer_lands_in_a_shell_leaves_and_finds_everything_again(self):
        one = self.terminal("new", columns=91, rows=33)
        one.expect(b"Ctrl-\\ detaches.")
        one.expect(b"$ ")
        one.type(b"stty size; echo a$((1+1))b\r")
        one.expect(b"33 91")  # from the first byte
        one.expect(b"a2b")
        one.type(DETACH)
        self.assertEqual(0, one.finish())
        self.assertIn(b"velotide: detached (", one.screen)
        self.assertTrue(one.is_ordinary())
        two = self.terminal("attach", columns=70, rows=20)
        two.expect(b"a2b")
        two.type(b"stty size\r")
        two.expect(b"20 70")
        two.resize(101, 41)
        wait_until(lambda: json.loads(self.call("ls", "--json"))["columns"] == 101, "the new size")
        two.type(b"exit 3\r")
        self.assertEqual(3, two.finish())
        self.assertIn(b"velotide: exited with 3 (", two.screen)

    def test_terminal_is_given_back_on_every_way_out(self):
        switched = r"printf '\033[?1049h\033[?2004h\033[?1003h\033[?25l\033[>1uready'; "
        off = [b"\x1b[?1049l", b"\x1b[?2004l", b"\x1b[?1003l", b"\x1b[?25h", b"\x1b[<1u"]
        ways = {"detach": (lambda t, s: t.type(DETACH), 0, b"detached ("),
                "end of the program": (lambda t, s: t.type(b"\r"), 5, b"exited with 5 ("),
                "closed": (lambda t, s: self.call("close", s), 125, b"closed elsewhere ("),
                "hang-up": (lambda t, s: t.process.send_signal(signal.SIGHUP), 129, b"by signal 1 ("),
                "termination": (lambda t, s: t.process.send_signal(signal.SIGTERM), 143, b"by signal 15 ("),
                "service killed": (lambda t, s: os.kill(self.service_process(), signal.SIGKILL), 125,
                                   b"service gone (")}
        for way, (leave, status, line) in ways.items():
            with self.subTest(way):
                session = self.new("sh", "-c", switched + "read x; exit 5")
                terminal = self.terminal("attach", session)
                terminal.expect(b"ready")
                self.assertFalse(terminal.is_ordinary())
                leave(terminal, session)
                self.assertEqual(status, terminal.finish())
                self.assertTrue(terminal.is_ordinary())
                self.assertIn(line, terminal.screen)
                for sequence in off:
                    self.assertIn(sequence, terminal.screen)
                for sequence in (b"\x1b[?1000l", b"\x1b[?1h", b"\x1b[?1l"):  # never switched on
                    self.assertNotIn(sequence, terminal.screen)

    def test_suspension_gives_the_terminal_back_and_continuing_shows_everything_again(self):
        terminal = self.terminal("attach", self.new("sh", "-c", r"printf '\033[?1000hready'; read x"))
        terminal.expect(b"ready")
        terminal.process.send_signal(signal.SIGTSTP)
        wait_until(lambda: terminal.take() is not None and b"\x1b[?1000l" in terminal.screen, "modes off")
        wait_until(terminal.is_ordinary, "the terminal as before")
        terminal.process.send_signal(signal.SIGCONT)
        terminal.expect(b"\x1b[?1000l")
        terminal.expect(b"ready")
        terminal.type(b"\r")
        self.assertEqual(0, terminal.finish())

    def test_typing_of_two_clients_at_once_is_neither_lost_nor_doubled(self):
        session = self.new("sh", "-c", "stty raw -echo; echo ready; exec cat")
        both = [self.terminal("attach", session) for _ in range(2)]
        for terminal in both:
            terminal.expect(b"ready")
        texts = [b"".join(b"%c%03d" % (letter, number) for number in range(400)) for letter in b"AB"]
        for at in range(0, 1600, 8):
            for terminal, text in zip(both, texts):
                terminal.type(text[at:at + 8])
                terminal.take()
        output = lambda: self.call("read", session).split(b"ready")[1].lstrip(b"\r\n")
        wait_until(lambda: [t.take() for t in both] and len(output()) >= 3200, "all that was typed")
        typed = output()
        self.assertEqual(3200, len(typed))
        for letter, other, text in ((b"A", b"B", texts[0]), (b"B", b"A", texts[1])):
            pieces = [typed[at:at + 8] for at in range(0, 3200, 8)]
            self.assertEqual(text, b"".join(piece for piece in pieces if letter in piece and other not in piece))

    def test_an_agent_in_control_keeps_typing_out_until_it_lets_go(self):
        session = self.new("sh", "-c", "echo ready; exec cat")
        terminal = self.terminal("attach", session)
        terminal.expect(b"ready")
        held = subprocess.Popen([VELOTIDE, "send", session, "--as", "claude"], env=self.environment, stdin=subprocess.PIPE)
        self.addCleanup(held.stdin.close)
        wait_until(lambda: b"claude" in self.call("ls"), "control")
        terminal.type(b"lost")
        terminal.expect(b"claude holds control")
        held.communicate(b"from the agent\n")
        self.assertEqual(0, held.returncode)
        terminal.expect(b"control is free again")
        terminal.type(b"heard\r")
        terminal.expect(b"heard")
        self.assertEqual(b"", self.call("send", session, "word", "--enter", "--as", "claude"))
        terminal.expect(b"word")
        output = self.call("read", session)
        self.assertEqual(1, terminal.screen.count(b"holds control"))
        self.assertNotIn(b"lost", output)
        self.assertIn(b"-        -", self.call("ls"))

    def test_answers_of_the_terminal_come_once_and_only_to_who_asks_now(self):
        session = self.new("sh", "-c", r"stty raw -echo; printf '\033[6nasked'; cat -v")
        both = [self.terminal("attach", session) for _ in range(2)]
        for terminal in both:
            terminal.expect(b"asked")
            self.assertNotIn(b"\x1b[6n", terminal.screen)  # asked before anybody looked
        both[0].type(b"x")
        both[1].expect(b"x")
        both[1].type(b"\x1b[7;9R")
        both[0].type(b"\x1b[7;8R")
        both[0].expect(b"^[[7;8R")
        both[0].type(b"\x1b")  # is not held until more comes
        both[0].expect(b"^[")
        self.assertNotIn(b"7;9R", self.call("read", session))

    def test_what_a_stalled_terminal_missed_is_told_and_the_rest_goes_on(self):
        session = self.new("sh", "-c", "echo ready; read x; head -c 30000000 /dev/zero | tr '\\0' y; echo; echo done; cat")
        terminal = self.terminal("attach", session)
        terminal.expect(b"ready")
        terminal.type(b"\r")
        wait_until(lambda: json.loads(self.call("ls", "--json"))["outputOffset"] > 30000000, "the output")
        terminal.expect(b"bytes of output were skipped")
        terminal.expect(b"done")
        terminal.type(b"again\r")
        terminal.expect(b"again")
        terminal.type(DETACH)
        self.assertEqual(0, terminal.finish())

    def test_a_session_is_not_attached_to_itself(self):
        terminal = self.terminal("new", "--detach-key", "none")
        terminal.expect(b"$ ")
        terminal.type(b"%s attach; echo status $?\r" % VELOTIDE.encode())
        terminal.expect(b"shown by that very session")
        terminal.expect(b"status 125")
        inner = "%s new -d -- sh -c '%s attach $VELOTIDE_OUTER_SESSIONS </dev/tty'\r" % (VELOTIDE, VELOTIDE)
        terminal.type(inner.encode())
        wait_until(lambda: any(b"that very session" in self.call("read", session)
                               for session in self.call("ls", "--ids").decode().split()), "the refusal")
        terminal.type(b"exit\r")
        terminal.expect(b"exited with 0")


class Running(ClientCase):
    def test_statuses_are_passed_on_and_told_apart(self):
        (private := open(self.directory + "/private", "w")).close()
        rows = [(["sh", "-c", "exit 7"], 7), (["sh", "-c", "kill -TERM $$"], 143), (["no-such-program"], 127),
                ([private.name], 126), (["true"], 0)]
        for command, status in rows:
            with self.subTest(command):
                self.call("run", "--", *command, status=status)
                self.assertNotIn(b"running", self.call("ls"))
        self.call("run", "--directory", "/nowhere", "--", "true", status=125)
        self.call("new", "--nonsense", status=125)
        self.call("ls", "--nonsense", status=2)

    def test_standard_input_and_output_pass_unchanged(self):
        everything = bytes(range(256))
        rows = [b"", b"no line end", b"\n", everything * 40, everything[::-1] * 3 + b"x" * 5000 + b"\n",
                b"y" * 99999, b"".join(b"line %d\n" % number for number in range(30000))]
        for data in rows:
            with self.subTest(length=len(data)):
                self.assertEqual(data, self.call("run", "--", "cat", given=data))
        self.assertEqual(b"4242\n", self.call("run", "sh", "-c", "dd bs=1 2>/dev/null | wc -c", given=b"z" * 4242))

    def test_an_interrupt_reaches_the_program_and_a_hang_up_ends_both(self):
        for sent, status, printed in ((signal.SIGINT, 9, b"heard\n"), (signal.SIGHUP, 129, b"")):
            run = subprocess.Popen([VELOTIDE, "run", "sh", "-c", "trap 'echo heard; exit 9' INT; echo ready; read x"],
                                   env=self.environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
            self.assertEqual(b"ready\n", run.stdout.readline())
            run.send_signal(sent)
            self.assertEqual((status, printed), (run.wait(20), run.stdout.read()))
            wait_until(lambda: b"running" not in self.call("ls"), "the end of the program")
            run.stdin.close()
            run.stdout.close()

    def test_a_slow_reader_loses_nothing(self):
        run = subprocess.Popen([VELOTIDE, "run", "--", "seq", "2000000"], env=self.environment,
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, bufsize=0)
        first = run.stdout.read(1000)
        wait_until(lambda: json.loads(self.call("ls", "--json"))["outputOffset"] > 100000, "output")
        output = first + run.communicate(timeout=60)[0]
        self.assertEqual(0, run.returncode)
        self.assertEqual(b"".join(b"%d\n" % number for number in range(1, 2000001)), output)

    def test_programs_start_as_from_a_shell(self):
        self.environment.update(LARGE="x" * 3000, WINDOWID="7", VELOTIDE_AGENT_CONTEXT="old")
        self.environment.pop("TERM")
        os.umask(0o027)
        self.addCleanup(os.umask, 0o022)
        shown = self.call("run", "--", "sh", "-c", "umask; env; pwd; test -t 0 && test -t 1 && echo terminal").decode()
        for line in ("0027", "LARGE=" + "x" * 3000, "TERM=xterm-256color", "terminal", self.directory):
            self.assertIn(line, shown.split("\n"))
        self.assertNotIn("WINDOWID", shown)
        login = self.new("sh", "-c", "true") and self.call("new", "-d", "--login").decode().strip()
        self.call("send", login, "echo $0.", "--enter")
        wait_until(lambda: b"-sh." in self.call("read", login), "the name of a login shell")


class Listing(ClientCase):
    def test_names_output_and_positions(self):
        self.assertEqual(b"[]\n", self.call("ls", "--json", status=3))
        session = self.new("sh", "-c", "printf one; read x; printf two; exit 4")
        wait_until(lambda: self.call("read", session[:4].lower()) == b"one", "the output")
        self.call("read", session, "--show-cursor")
        position = self.errors.split()[-1].decode()
        follow = subprocess.Popen([VELOTIDE, "read", "-f", "--json", "--after", position, session[:8]],
                                  env=self.environment, stdout=subprocess.PIPE)
        self.call("send", session, given=b"\n")
        lines = [json.loads(line) for line in follow.communicate(timeout=20)[0].splitlines()]
        self.assertEqual(("exited", 4), (lines[-1]["ended"], lines[-1]["exitStatus"]))
        self.assertTrue(b"".join(base64.b64decode(line.get("data", "")) for line in lines).endswith(b"two"))
        self.assertEqual(4, json.loads(self.call("show", session, "--json"))["exitStatus"])
        self.call("send", session, "late", status=1)
        self.call("restart", session, "--", "sh", "-c", "printf three")
        wait_until(lambda: self.call("read", session) == b"three", "the new output")
        self.call("read", session, "--after", position, status=1)
        steering = "\u009b2J\u202e\x1b[2J"
        os.mkdir(f"{self.directory}/{steering}")
        named = self.call("new", "-d", "--directory", steering, "--", "true").decode().strip()
        for shown in (self.call("ls"), self.call("show", named)):
            self.assertIn("/?2J??[2J\n", shown.decode())
        self.call("show", "", status=1)
        self.call("show", "xyz", status=1)
        self.assertIn(b"velotide ls", self.errors)
        self.assertRegex(self.call("status"), rb"sessions: +2, 0 of them running\n")
        self.assertRegex(self.call("events"), rb"processExited")
        self.call("close", "--exited")
        self.assertEqual(b"[]\n", self.call("ls", "--json"))
        self.call("stop")
        self.assertFalse(json.loads(self.call("status", "--json", status=3))["isRunning"])


class Completing(ClientCase):
    def test_shells_complete_verbs_options_and_sessions(self):
        session = self.new("cat")
        self.environment["PATH"] = os.path.dirname(VELOTIDE) + ":" + self.environment["PATH"]
        for shell in ("bash", "zsh", "fish"):
            with open(f"{self.directory}/{shell}", "wb") as script:
                script.write(self.call("completion", shell))
            subprocess.run([shell, "-n", script.name], check=True)
        bash = f". {self.directory}/bash; COMP_WORDS=(velotide %s); COMP_CWORD=%d; _velotide; echo ${{COMPREPLY[*]}}"
        fish = f"source {self.directory}/fish; complete -C 'velotide %s'"
        for words, found in (("att", "attach attention"), ("ls --j", "--json"), ("show " + session[:3], session)):
            for shell, line in (("bash", bash % (words, words.count(" ") + 1)), ("fish", fish % words)):
                with self.subTest(shell=shell, words=words):
                    shown = subprocess.check_output([shell, "-c", line], env=self.environment).decode()
                    for word in found.split():
                        self.assertIn(word, shown)


class Failing(ClientCase):
    def test_two_that_start_the_service_at_once_both_succeed(self):
        started = [subprocess.Popen([VELOTIDE, "new", "-d", "--", "cat"], env=self.environment, stdin=subprocess.DEVNULL,
                                    stdout=subprocess.PIPE) for _ in range(6)]
        names = {process.communicate(timeout=30)[0] for process in started}
        self.assertEqual((6, 6), (len(names), len(self.call("ls", "--ids").split())))

    def test_each_cause_has_its_words(self):
        os.mkdir(self.root, 0o700)
        self.call("ls", status=3)
        self.assertIn(b"velotide new", self.errors)
        with socket.socket(socket.AF_UNIX) as stale:
            stale.bind(self.root + "/runtime.sock")
        self.call("ls", status=3)
        self.assertIn(b"stale", self.errors)
        session = self.new("cat")
        with self.subTest("sessions hold the service"):
            self.call("stop", status=1)
            self.assertIn(session[:8].encode(), self.errors)
        with self.subTest("overloaded"):
            info = json.loads(self.call("show", session, "--json"))
            capability = pathlib.Path(self.root, "ui-capability").read_text()
            for number in range(32):
                other = socket.socket(socket.AF_UNIX)
                self.addCleanup(other.close)
                other.connect(self.root + "/runtime.sock")
                request = {"protocolVersion": 3, "id": str(uuid.UUID(int=number)), "action": "subscribe",
                           "capability": capability, "sessionID": info["id"], "generation": info["generation"]}
                other.sendall(json.dumps(request).encode() + b"\n")
                other.recv(1)
            self.call("ls", status=1)
            self.assertIn(b"overloaded", self.errors)
            other.close()
        os.chmod(self.root + "/ui-capability", 0o640)
        self.call("ls", status=1)
        self.assertIn(b"open to others", self.errors)
        os.chmod(self.root, 0o755)
        self.call("ls", status=1)
        self.assertIn(b"chmod 700", self.errors)
        os.chmod(self.root, 0o700)
        os.chmod(self.root + "/ui-capability", 0o600)


if __name__ == "__main__":
    unittest.main()
