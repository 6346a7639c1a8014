"""The client as a person and a script meet it, with the real service behind it."""

import base64
import fcntl
import json
import os
import pathlib
import re
import signal
import socket
import subprocess
import sys
import termios
import time

from attached_terminal import ClientCase, VELOTIDE, wait_until
from runtime_process import Client, Runtime, UNMEASURED

DETACH = b"\x1c"


def is_full(pipe):
    """Whether it takes no more: pages that are only half used count as full."""
    def held():
        return int.from_bytes(fcntl.ioctl(pipe, termios.FIONREAD, bytes(4)), sys.byteorder)
    before = held()
    time.sleep(0.1)
    return 30000 < before == held()


class Attaching(ClientCase):
    def attach(self, session, marker=b"ready"):
        terminal = self.terminal("attach", session)
        terminal.expect(marker)
        return terminal

    def test_newcomer_lands_in_a_shell_leaves_and_finds_everything_again(self):
        one = self.terminal("new", columns=91, rows=33)
        one.expect(b"Ctrl-\\ detaches.", b"$ ")
        one.type(b"stty size; echo a$((1+1))b\r", b"33 91", b"a2b")  # that size from the first byte
        one.type(DETACH)
        self.assertEqual(0, one.finish())
        two = self.terminal("attach", columns=70, rows=20)
        two.expect(b"a2b")
        two.type(b"stty size\r", b"20 70")
        two.resize(101, 41)
        wait_until(lambda: json.loads(self.call("ls", "--json"))["columns"] == 101, "the new size")
        three = self.terminal("attach", columns=90, rows=30)
        three.expect(b"detaches.")
        three.type(DETACH)
        three.finish()
        two.type(b"echo\r", b"\r\n\r\n$ ")  # from the answer on it knows that the size is another
        two.type(b"stty size\r", b"41 101")  # that of the terminal that is typed in
        two.type(b"exit 3\r")
        self.assertEqual(3, two.finish())

    def test_terminal_is_given_back_on_every_way_out(self):
        switched = r"printf '\033[?1049h\033[?2004h\033[?1003h\033[?25l\033[>1uready'; "
        off = [b"\x1b[?1049l", b"\x1b[?2004l", b"\x1b[?1003l", b"\x1b[?25h", b"\x1b[<1u"]
        for leave, status, line in [
                (lambda t, s: t.type(DETACH), 0, b"velotide: detached ("),
                (lambda t, s: t.type(b"\r"), 5, b"velotide: exited with 5 ("),
                (lambda t, s: self.call("close", s), 125, b"closed elsewhere ("),
                (lambda t, s: t.process.send_signal(signal.SIGHUP), 129, b"by signal 1 ("),
                (lambda t, s: t.process.send_signal(signal.SIGTERM), 143, b"by signal 15 ("),
                (lambda t, s: os.kill(self.service_process(), signal.SIGKILL), 125, b"service gone (")]:
            with self.subTest(line):
                session = self.new("sh", "-c", switched + "read x; exit 5")
                terminal = self.attach(session)
                self.assertFalse(terminal.is_ordinary())
                leave(terminal, session)
                self.assertEqual((status, True), (terminal.finish(), terminal.is_ordinary()))
                for sequence in (line, *off):
                    self.assertIn(sequence, terminal.screen)
                for sequence in (b"\x1b[?1000l", b"\x1b[?1h", b"\x1b[?1l"):  # never switched on
                    self.assertNotIn(sequence, terminal.screen)

    def test_suspension_gives_the_terminal_back_and_continuing_shows_everything_again(self):
        terminal = self.attach(self.new("sh", "-c", r"printf '\033[?1000hready'; read x"))
        terminal.process.send_signal(signal.SIGTSTP)
        terminal.expect(b"\x1b[?1000l")
        wait_until(terminal.is_ordinary, "the terminal as before")
        terminal.process.send_signal(signal.SIGCONT)
        terminal.expect(b"ready")
        terminal.type(b"\r")
        self.assertEqual(0, terminal.finish())
        terminal = self.terminal("new", "--", "sh", "-c", r"printf 'a\033[c\007ready'; read x")
        terminal.expect(b"a\x1b[c\aready")
        terminal.process.send_signal(signal.SIGCONT)
        terminal.expect(b"aready")  # asked and rung once

    def test_an_agent_in_control_keeps_typing_out_until_it_lets_go(self):
        session = self.new("sh", "-c", "echo ready; exec cat")
        terminal = self.attach(session)
        held = self.start("send", session, "--as", "claude", stdin=subprocess.PIPE)
        wait_until(lambda: b"claude" in self.call("ls"), "control")
        terminal.type(b"lost", b"claude holds control")
        held.communicate(b"from the agent\n")
        self.assertEqual(0, held.returncode)
        terminal.expect(b"control is free again")
        terminal.type(b"heard\r", b"heard")
        self.assertEqual(b"", self.call("send", session, "word", "--enter", "--as", "claude"))
        terminal.expect(b"word")
        self.assertEqual(1, terminal.screen.count(b"holds control"))
        self.assertNotIn(b"lost", self.call("read", session))
        self.assertIn(b"-        -", self.call("ls"))

    def test_answers_of_the_terminal_come_once_and_only_to_who_asks_now(self):
        session = self.new("sh", "-c", r"stty raw -echo; printf '\033[6nasked'; cat -v")
        self.wait_for_output(session, b"asked")
        one, two = self.attach(session, b"asked"), self.attach(session, b"asked")
        self.assertNotIn(b"\x1b[6n", one.screen + two.screen)  # asked before anybody looked
        one.type(b"x")
        two.expect(b"x")
        two.type(b"\x1b[7;9R")
        for typed, seen in ((b"\x1b[7;8R", b"^[[7;8R"), (b"\x1b", b"^[")):  # ESC is not held until more comes
            one.type(typed, seen)
        self.assertNotIn(b"7;9R", self.call("read", session))

    def test_what_a_stalled_terminal_missed_is_told_and_the_rest_goes_on(self):
        terminal = self.attach(self.new(
            "sh", "-c", "echo ready; read x; head -c 30000000 /dev/zero | tr '\\0' y; echo; echo done; cat"))
        terminal.type(b"\r")
        wait_until(lambda: json.loads(self.call("ls", "--json"))["outputOffset"] > 30000000, "the output")
        terminal.expect(b"bytes of output were skipped", b"done")
        terminal.type(b"again\r", b"again")
        session = self.new("sh", "-c", "trap 'echo drawn' WINCH; head -c 2000000 /dev/zero | tr '\\0' y; "
                                       "while sleep 0.1; do :; done")
        wait_until(lambda: json.loads(self.call("show", session, "--json"))["outputOffset"] == 2000000, "the output")
        self.attach(session, b"drawn")

    def test_a_session_is_not_attached_to_itself(self):
        terminal = self.terminal("new", "--detach-key", "none")
        terminal.expect(b"$ ")
        for words, status in (("read -f $VELOTIDE_SESSION", b"status 1\r"), ("attach", b"status 125")):
            terminal.type(f"{VELOTIDE} {words}; echo status $?\r".encode(), b"that very session", status)
        terminal.type(f"{VELOTIDE} attach ''\r".encode(), b"named \"\"")
        terminal.type(f"{VELOTIDE} new -d -- sh -c '{VELOTIDE} attach $VELOTIDE_OUTER_SESSIONS </dev/tty'\r".encode())
        wait_until(lambda: any(b"that very session" in self.call("read", session)
                               for session in self.call("ls", "--ids").decode().split()), "the refusal")


class Running(ClientCase):
    def test_statuses_are_passed_on_and_told_apart(self):
        pathlib.Path(self.directory, "private").touch()
        for words, status in [
                (["run", "--", "sh", "-c", "exit 255"], 255), (["run", "--", "sh", "-c", "kill -TERM $$"], 143),
                (["run", "--", "true"], 0), (["run", "--", "no-such-program"], 127), (["ls", "--nonsense"], 2),
                (["run", "--", self.directory + "/private"], 126), (["new", "--nonsense"], 125),
                (["run", "--directory", "/nowhere", "--", "true"], 125)]:
            with self.subTest(words):
                self.call(*words, status=status)
                self.assertNotIn(b"running", self.call("ls"))

    def test_what_cannot_be_done_as_asked_is_refused_before_anything_happens(self):
        session = self.new("true")
        wait_until(lambda: b"running" not in self.call("ls"), "the end of the program")
        for words, status, said in [
                (["restart", "--detach-key", "foo", session, "--", "cat"], 125, b"foo"), (["--bogus"], 2, b"bogus is no"),
                (["restart", session, "--json", "--", "true"], 125, b"--json"), (["resize", session], 2, b""),
                (["--root", "", "stop", "--close-all"], 2, b"--root"), (["--root=", "agent", "exit"], 1, b"--root"),
                (["send", session, "--as", "", "x"], 2, b"--as"), (["run", "-C", "", "pwd"], 125, b"--directory")]:
            with self.subTest(words):
                self.call(*words, status=status)
                self.assertIn(said, self.errors)
        self.assertNotIn(b"running", self.call("ls"))
        unmeasured = {**self.environment, **UNMEASURED}
        for words, status in (("ls >&-", 1), ("run echo x 1</dev/null", 125), (f"send {self.new('cat')} </", 1)):
            silent = subprocess.run(["sh", "-c", f"{VELOTIDE} {words}"], env=unmeasured, check=False)
            self.assertEqual(status, silent.returncode, words)

    def test_standard_input_and_output_pass_unchanged(self):
        everything = bytes(range(256))
        for data in [b"", b"no line end", b"\n", everything * 40, everything[::-1] * 3 + b"x" * 5000 + b"\n",
                     b"y" * 99999, b"".join(b"line %d\n" % number for number in range(30000))]:
            with self.subTest(length=len(data)):
                self.assertEqual(data, self.call("run", "--", "cat", given=data))
        self.assertEqual(b"4242\n", self.call("run", "sh", "-c", "dd bs=1 2>/dev/null | wc -c", given=b"z" * 4242))

    def test_an_interrupt_reaches_the_program_and_a_hang_up_ends_both(self):
        for sent, status, printed in ((signal.SIGINT, 9, b"heard\n"), (signal.SIGHUP, 129, b"")):
            run = self.start("run", "sh", "-c", "trap 'echo heard; exit 9' INT; echo ready; read x",
                             stdin=subprocess.PIPE)
            self.assertEqual(b"ready\n", run.stdout.readline())
            run.send_signal(sent)
            self.assertEqual((status, printed), (run.wait(20), run.stdout.read()))
            wait_until(lambda: b"running" not in self.call("ls"), "the end of the program")
        run = self.start("run", "sh", "-c", "echo ready; read x", stdin=subprocess.PIPE, stderr=subprocess.PIPE)
        run.stdout.readline()
        os.kill(self.service_process(), signal.SIGKILL)
        self.assertIn(b"connection lost", run.communicate(timeout=8)[1])
        self.assertEqual(125, run.returncode)

    def test_a_slow_reader_loses_nothing(self):
        run = self.start("run", "--", "seq", "2000000", bufsize=0)
        first = run.stdout.read(1000)
        wait_until(lambda: json.loads(self.call("ls", "--json"))["outputOffset"] > 100000, "output")
        self.assertEqual(b"".join(b"%d\n" % number for number in range(1, 2000001)),
                         first + run.communicate(timeout=60)[0])
        self.assertEqual(0, run.returncode)

    def test_a_suspended_run_loses_nothing(self):
        def offset():
            return json.loads(self.call("ls", "--json"))["outputOffset"]
        with open(self.directory + "/numbers", "w+b") as numbers:
            run = self.start("run", "--", "seq", "1000000", stdout=numbers)
            wait_until(lambda: os.path.getsize(numbers.name) > 10000, "output")
            run.send_signal(signal.SIGTSTP)
            os.waitid(os.P_PID, run.pid, os.WSTOPPED | os.WEXITED | os.WNOWAIT)
            wait_until(lambda: offset() == offset(), "the program to wait")
            run.send_signal(signal.SIGCONT)
            self.assertEqual(0, run.wait(60))
        self.assertEqual(b"".join(b"%d\n" % number for number in range(1, 1000001)),
                         pathlib.Path(numbers.name).read_bytes())

    def test_programs_start_as_from_a_shell(self):
        self.environment.update(LARGE="x" * 3000, WINDOWID="7", VELOTIDE_AGENT_CONTEXT="old")
        self.environment.pop("TERM")
        self.addCleanup(os.umask, os.umask(0o027))
        shown = self.call("run", "--", "sh", "-c", "umask; env; pwd; test -t 0 && test -t 1 && echo terminal").decode()
        for line in ("0027", "LARGE=" + "x" * 3000, "TERM=xterm-256color", "terminal", self.directory):
            self.assertIn(line, shown.split("\n"))
        self.assertNotIn("WINDOWID", shown)
        login = self.call("new", "-d", "--login").decode().strip()
        self.call("send", login, "echo $0.", "--enter")
        self.wait_for_output(login, b"-sh.")


class Listing(ClientCase):
    def test_names_output_and_positions(self):
        self.assertEqual(b"[]\n", self.call("ls", "--json", status=3))
        session = self.new("sh", "-c", "printf one; read x; printf two; exit 4")
        self.wait_for_output(session[:4].lower(), b"one")
        self.assertEqual(b"one", self.call("read", session, "--show-cursor"))
        position = self.errors.split()[-1].decode()
        follow = self.start("read", "-f", "--json", "--after", position, session[:8])
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
        wait_until(lambda: b"running" not in self.call("ls"), "the end of both")
        for verb, name in (("show", ""), ("show", "xyz"), ("close", "")):
            self.call(verb, name, status=1)
            self.assertIn(b"velotide ls", self.errors)
        self.assertRegex(self.call("status"), rb"sessions: +2, 0 of them running\n")
        self.assertRegex(self.call("events"), rb"processExited")
        self.call("close", "--exited")
        self.assertEqual(b"[]\n", self.call("ls", "--json"))
        self.call("stop")
        self.assertFalse(json.loads(self.call("status", "--json", status=3))["isRunning"])

    def test_words_are_taken_as_they_were_typed(self):
        session = self.new("cat")
        for text in ("[a,b]", '["c", "d"]', "[ -f e ]", "[]"):
            self.call("send", session, text, "-e")
            self.wait_for_output(session, text.encode() + b"\r\n")
        keys = self.new("sh", "-c", r"stty raw -echo; printf '\033[?1hready'; cat -v")
        self.wait_for_output(keys, b"ready")
        self.call("send", keys, "-k", "up", "-k", "F1")
        self.wait_for_output(keys, b"^[OA^[OP")  # in the form that the program asked for
        for words, status in (("ls -- foo", 2), ("close --exited -- -x", 1), ("call list_attention -- foo", 2),
                              ("run echo [a,b] -- c", 0), (f"show -- {session}", 0), (f"close -- {session}", 0)):
            with self.subTest(words):
                shown = self.call(*words.split(), status=status)
                self.assertTrue(shown == b"[a,b] -- c\n" or not words.startswith("run"), shown)

    def test_a_reader_that_is_slow_and_a_pipe_that_never_blocks_lose_nothing(self):
        session = self.new("sh", "-c", "seq 40000; cat")
        self.wait_for_output(session, b"\n40000\r\n")
        reading, writing = os.pipe()
        os.set_blocking(writing, False)
        client = self.start("read", session, stdout=writing)
        os.close(writing)
        wait_until(lambda: is_full(reading) or client.poll(), "a full pipe")
        with open(reading, "rb") as pipe:
            self.assertTrue(pipe.read().endswith(b"\n40000\r\n"))
        self.assertEqual(0, client.wait(20))

    def test_a_signal_ends_those_who_follow_also_when_nobody_reads(self):
        session = self.new("sh", "-c", "while echo aaaaaaaaaaaaaaaa; do :; done")
        for words in (["read", "-f", session], ["events", "-f"]):
            following = self.start(*words, stderr=subprocess.DEVNULL)
            wait_until(lambda: is_full(following.stdout), "a full pipe")
            following.send_signal(signal.SIGTERM)
            self.assertIn(following.wait(20), (0, 1), words)

    def test_following_goes_on_with_the_program_that_took_the_place(self):
        session = self.new("sh", "-c", "printf one; read x")
        follow = self.start("read", "-f", "--json", session, stderr=subprocess.DEVNULL)
        self.assertIn(b"data", follow.stdout.readline())
        follow.send_signal(signal.SIGSTOP)
        self.call("send", session, given=b"\n")
        wait_until(lambda: b"running" not in self.call("ls"), "the end")
        self.call("restart", "-d", session, "--", "sh", "-c", "printf two; read x")
        follow.send_signal(signal.SIGCONT)
        cursor = next(told["cursor"] for line in follow.stdout if b"two" in base64.b64decode(
            (told := json.loads(line))["data"]))
        self.call("read", session, "--after", f"{cursor['generation']}:{cursor['offset']}")


class Completing(ClientCase):
    def test_shells_complete_verbs_options_and_sessions(self):
        session = self.new("cat")
        os.mkdir(self.directory + "/two words")
        self.environment["PATH"] = os.path.dirname(VELOTIDE) + ":" + self.environment["PATH"]
        starts = {"bash": ("--norc", "bind 'set show-all-if-ambiguous on'"),
                  "zsh": ("-f", "autoload -U compinit; compinit -uD"), "fish": ("-N", "true")}
        for shell, (option, start) in starts.items():
            script = pathlib.Path(self.directory, shell)
            script.write_bytes(self.call("completion", shell))
            subprocess.run([shell, "-n", script], check=True)
            terminal = self.terminal("run", "--", shell, option, columns=200, rows=100)
            terminal.type(f"{start}; export VELOTIDE_ROOT=/nowhere; . {script}; echo ready''.\r".encode(), b"ready.")
            here = f"--root {self.root} "
            for words, found, *absent in (
                    ("att", "attach attention"), ("ls --j", "--json"), (f"{here}show ", session),
                    ("--ver", "--version"), ("-q --root /tmp atta", "attach"), ("ls --ro", "--root"),
                    ("agent ", "bind report exit hook"), ("agent report ", "idle blocked", "hook"),
                    (f"{here}wait X --agent ", "idle blocked", session), ("completion ", "bash zsh fish"),
                    (f"show {here}{session[:8].lower()}", session), (f"{here}ack --session ", session),
                    (f"{here}send -k ", "", session), (f"new -C {self.directory}/two", r"two\ words"),
                    ("run -C / velotide-ru", "velotide-runtime")):
                with self.subTest(shell=shell, words=words):
                    begin = terminal.seen
                    terminal.type(b"velotide " + words.encode() + b"\t\x01echo \x05 do''ne\r", b"done\r\n")
                    shown = re.sub(r"\x1b\[[0-9;?]*[a-zA-Z]|\x1b\(B", "", terminal.screen[begin:terminal.seen].decode())
                    self.assertEqual([], [word for word in found.split() if word not in shown], shown)
                    for word in ("bad option", *absent):  # as zsh complains of the script
                        self.assertNotIn(word, shown)


class Failing(ClientCase):
    def test_two_that_start_the_service_at_once_both_succeed(self):
        started = [self.start("new", "-d", "--", "cat") for _ in range(6)]
        names = {client.communicate(timeout=30)[0] for client in started}
        self.assertEqual((6, 6), (len(names), len(self.call("ls", "--ids").split())))

    def test_each_cause_has_its_words(self):
        def fails(words, status=1, verb="ls"):
            self.call(verb, status=status)
            self.assertIn(words, self.errors)
        os.mkdir(self.root)
        os.chmod(self.root, 0o755)
        fails(b"Name another")
        os.chmod(self.root, 0o700)
        fails(b"velotide new", status=3)
        with socket.socket(socket.AF_UNIX) as stale:
            stale.bind(self.root + "/runtime.sock")
        fails(b"stale", status=3)
        session = self.new("cat")
        fails(session[:8].encode(), verb="stop")  # its sessions hold the service
        fails(b"--follow SESSION\n", 125, "attach")  # which needs a terminal
        for verb, usage in (("run", b"] [--] COMMAND..."), ("exec", b"] SESSION -- COMMAND..."), ("close", b"]")):
            told = self.call(verb, "--help")
            self.assertIn(usage + b"\n", told)
            self.assertEqual(verb == "exec", b"Exit status" in told)
        info = json.loads(self.call("show", session, "--json"))
        key = pathlib.Path(self.root, "ui-capability")
        full = Runtime()
        full.root, full.capability = self.root, key.read_text()
        for _ in range(32):
            Client(full).request("subscribe", sessionID=info["id"], generation=info["generation"])
        fails(b"overloaded")
        full.close()
        kept = key.rename(key.with_suffix(".kept"))
        for spoil in (lambda: key.symlink_to(kept), lambda: os.mkfifo(key, 0o600), lambda: key.touch(0o640)):
            spoil()
            fails(b"open to others")
            key.unlink()
        os.chmod(self.root, 0o755)
        fails(b"chmod 700")
        os.chmod(self.root, 0o700)
        kept.rename(key)
