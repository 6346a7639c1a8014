"""Drives real shells with shell integration through a pseudo-terminal."""

import os
import pty
import pwd
import re
import select
import shlex
import shutil
import signal
import tempfile
import time
import unittest
from pathlib import Path

SCRIPTS = Path(__file__).resolve().parents[2] / "shell-integration"
PREFIX = b"\x1b]777;Velotide;"
PROMPT = rb"re@dy> "
DEADLINE = 20
USER = pwd.getpwuid(os.getuid()).pw_name


def marks(output):
    """(name, value) of each mark: hexadecimal text decoded, a context as its five fields."""
    found = []
    position = output.find(PREFIX)
    while position >= 0:
        begin = position + len(PREFIX)
        end = min(e for e in (output.find(b"\a", begin), output.find(b"\x1b\\", begin)) if e >= 0)
        assert end - position <= 32768, "a mark longer than the service keeps"
        name, _, value = output[begin:end].decode("ascii").partition("=")
        text = lambda digits: bytes.fromhex(digits).decode("utf-8").strip()
        if name == "context":
            value = [int(field) if i == 2 else text(field) for i, field in enumerate(value.split(","))]
        found.append((name, text(value) if name == "start" else int(value) if name == "end" else value))
        position = output.find(PREFIX, end)
    return found


def commands(output):
    return [mark for mark in marks(output) if mark[0] in ("start", "end")]


class Terminal:
    """One shell on a pseudo-terminal, in a home folder of its own."""

    def __init__(self, arguments, files=None, environment=None, hosted=True):
        self.home = tempfile.mkdtemp()
        for name, text in (files or {}).items():
            path = Path(self.home, name)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)
        variables = {"HOME": self.home, "PATH": os.environ["PATH"], "TERM": "xterm", "LANG": "C.UTF-8", "USER": USER}
        variables.update({"VELOTIDE_AGENT_CONTEXT": "/context"} if hosted else {})
        variables.update(environment or {})
        program = shutil.which(arguments[0].lstrip("-"))
        self.pid, self.fd = pty.fork()
        if self.pid == 0:
            os.chdir(self.home)
            os.execve(program, arguments, variables)
        self.output = b""
        self.wait(PROMPT, 0)

    def wait(self, pattern, since, again=b""):
        """Reads until the pattern appears; keys to press again are those that a busy shell may lose."""
        deadline = time.monotonic() + DEADLINE
        while not re.search(pattern, self.output[since:], re.DOTALL):
            left = deadline - time.monotonic()
            if select.select([self.fd], [], [], max(0, min(left, 1) if again else left))[0]:
                self.output += os.read(self.fd, 65536)
            elif left > 0:
                os.write(self.fd, again)
            else:
                raise AssertionError(f"no {pattern!r} after {self.output[since:]!r}")

    def type(self, *steps):
        """Types keys, each step until its pattern appears or, if it names none, the prompt. Answers what was printed."""
        begin = len(self.output)
        for step in steps:
            keys, pattern = step if isinstance(step, tuple) else (step, PROMPT)
            since = len(self.output)
            rest = keys.encode()
            while rest:  # the terminal's buffer holds less than a long line
                rest = rest[os.write(self.fd, rest[:1024]) :]
                if select.select([self.fd], [], [], 0)[0]:
                    self.output += os.read(self.fd, 65536)
            # Between two reads readline may drop an interrupt, with or without integration.
            self.wait(pattern, since, b"\x03" if keys == "\x03" else b"")
        return self.output[begin:]

    def close(self):
        os.close(self.fd)
        os.kill(self.pid, signal.SIGKILL)
        os.waitpid(self.pid, 0)
        shutil.rmtree(self.home, ignore_errors=True)


# How README.md has each shell started: words after its name, environment.
BASH = (["--rcfile", f"{SCRIPTS}/load.bash"], {})
BASH_LOGIN = (["--posix"], {"ENV": f"{SCRIPTS}/load.bash"})
BASH_HOOK_LOGIN = ([], {
    "VELOTIDE_BASH_INTEGRATION": f"{SCRIPTS}/velotide.bash",
    "PROMPT_COMMAND": '. "$VELOTIDE_BASH_INTEGRATION"; eval "${__velotide_last_hooks-}"',
})
BASH_32_LOGIN = ([], {**BASH_HOOK_LOGIN[1], "VELOTIDE_ASSUME_BASH_VERSION": "302"})
ZSH = ([], {"ZDOTDIR": f"{SCRIPTS}/zsh"})
FISH = (["--init-command", f"source '{SCRIPTS}/velotide.fish'"], {})

BASH_RC = f"""PS1='re@dy> '; HISTCONTROL=ignoreboth; PS0='<begins>'; alias local=false history=false
trap 'seen=$?; shown=$BASH_COMMAND' DEBUG
. {shlex.quote(str(SCRIPTS))}/velotide.bash; . {shlex.quote(str(SCRIPTS))}/velotide.bash
"""
STRING_HOOK = """PROMPT_COMMAND='printf "<ends %s>" "$?"'\n"""
ARRAY_HOOKS = """PROMPT_COMMAND=(: 'printf "<ends %s>" "$?"')\n"""
ZSH_RC = f"""PS1='re@dy> '; setopt no_prompt_sp hist_ignore_space; alias -g local=broken; alias printf=broken
preexec() {{ builtin printf '<begins>' }}; precmd() {{ builtin printf '<ends %s>' $? }}
array_hook() {{ builtin printf '<array %s>' $? }}; precmd_functions=(array_hook)
source {shlex.quote(str(SCRIPTS))}/velotide.zsh; source {shlex.quote(str(SCRIPTS))}/velotide.zsh
"""
FISH_RC = f"""function fish_greeting; end; function fish_title; end
function fish_prompt; printf '<ends %s>re@dy> ' $status; end
function event_hook --on-event fish_postexec; printf '<array %s>' $status; end
function begin_hook --on-event fish_preexec; printf '<begins>'; end
source '{SCRIPTS}/velotide.fish'; source '{SCRIPTS}/velotide.fish'
"""
# Name: shell, how it is started, its start-up file. The older paths of bash run in the newest.
SHELLS = {
    "bash5.1": ("bash", BASH, {".bashrc": STRING_HOOK + BASH_RC}),
    "bash-arrays": ("bash", BASH, {".bashrc": ARRAY_HOOKS + BASH_RC}),
    "bash4.4": ("bash", (BASH[0], {"VELOTIDE_ASSUME_BASH_VERSION": "404"}), {".bashrc": STRING_HOOK + BASH_RC}),
    "bash3.2": ("bash", (BASH[0], {"VELOTIDE_ASSUME_BASH_VERSION": "302"}), {".bashrc": STRING_HOOK + BASH_RC}),
    "zsh": ("zsh", ZSH, {".zshrc": ZSH_RC}),
    "fish": ("fish", FISH, {".config/fish/config.fish": FISH_RC}),
}
LONG = "echo " + "é" * 9000
LOOP = "for i in 1 2\ndo true\ndone"
# What is typed, the commands (text, status) it makes, the shells or rows above it is for ("" is all), what else must show.
SITUATIONS = [
    (["echo 'žluť 漢字 🙂' %41 -n\r"], [("echo 'žluť 漢字 🙂' %41 -n", 0)], "", "žluť 漢字 🙂".encode()),
    (["\r", "   \r"], [], "", b""),
    (["(exit 7)\r"], [("(exit 7)", 7)], "bash zsh", b"<ends 7>"),
    (["sh -c 'exit 7'\r"], [("sh -c 'exit 7'", 7)], "zsh fish", b"<array 7>"),
    (["echo 'a\rb'\r"], [("echo 'a\nb'", 0)], "", b"a\r\nb\r\n"),
    ([LOOP.replace("\n", "\r") + "\r"], [("for i in 1 2; do true; done", 0)], "bash", b""),
    ([LOOP.replace("\n", "\r") + "\r"], [(LOOP, 0)], "zsh", b""),
    (["true | false\r"] * 2, [("true | false", 1)] * 2, "", b"<ends 1>"),
    ([" echo hidden\r"], [("echo hidden", 0)], "", b"hidden\r\n"),
    (["echo )\r", "\x03"], [], "bash zsh", b""),
    ([("echo )\r", rb"\^\r\n"), ("\x15true\r", rb";end=0.*re@dy> ")], [("true", 0)], "fish", b""),
    (["no-such-program\r"], [("no-such-program", 127)], "", b"<ends 127>"),
    (["exec /no/such/program\r"], [("exec /no/such/program", 127)], "bash fish", b""),
    ([("sh -c 'echo $((6 * 7)); exec sleep 60'\r", b"42\r\n"), "\x03"], [("sh -c 'echo $((6 * 7)); exec sleep 60'", 130)],
     "", b"<ends 130>"),
    ([("Z", b"Z"), "\x03"], [], "", b""),
    (["echo a bee\r", "echo $_ last\r"], [("echo a bee", 0), ("echo $_ last", 0)], "bash zsh", b"bee last"),
    (["\x1b[200~echo p; false\necho q\x1b[201~\r"], [("echo p; false", 1), ("echo q", 0)], "bash5.1 bash4.4", b"q\r\n"),
    (["{ true; } >caught\r", "cat caught\r"], [("{ true; } >caught", 0), ("cat caught", 0)], "bash", b""),
    (["# nothing\r"], [], "bash fish", b""),
    (["  # a\x1b\r#b\x1b\r true # c\r"], [("# a\n#b\n true # c", 0)], "fish", b""),
    ([("PS1='inner> ' bash --norc\r", b"inner> "), ("echo inside\r", b"inner> "), "exit 4\r"],
     [("PS1='inner> ' bash --norc", 4)], "bash", b"inside\r\n"),
    (["f() { false; }\r", "f\r"], [("f() { false; }", 0), ("f", 1)], "bash zsh", b""),
    (["false\r", "echo seen $seen $shown\r"], [("false", 1), ("echo seen $seen $shown", 0)], "bash", b"seen 1 echo seen"),
    (["trap -p DEBUG\r"], [("trap -p DEBUG", 0)], "bash", b"'seen=$?; shown=$BASH_COMMAND'"),
    (["false | true\r", "echo ${PIPESTATUS[*]}\r"], [("false | true", 0), ("echo ${PIPESTATUS[*]}", 0)], "bash", b"1 0\r\n"),
    ([LONG + "\r"], [("echo " + "é" * 7997, 0)], "", b""),
    (["mkdir -p 'ů,\x16\t'; cd 'ů,\x16\t'\r"], [("mkdir -p 'ů,\t'; cd 'ů,\t'", 0)], "bash zsh", b""),
    (["set -x\r", "set +x\r"], [("set -x", 0), ("set +x", 0)], "bash zsh", b""),
    (["set -u\r", "true\r", "set +u\r"], [("set -u", 0), ("true", 0), ("set +u", 0)], "bash zsh", b""),
    (["set -e; ! true\r", "true\r"], [("set -e; ! true", 1), ("true", 0)], "bash zsh", b""),
    (["true &\r"], [("true &", 0)], "", b""),
]


class ShellIntegrationTest(unittest.TestCase):
    def start(self, shell, launch=([], {}), files=None, hosted=True, login=""):
        if not shutil.which(shell):
            self.assertNotIn("CI", os.environ, f"{shell} is missing")
            self.skipTest(f"{shell} is missing")
        words = ["-" + shell if login == "-" else shell, *launch[0], *(["-l"] if login == "-l" else [])]
        terminal = Terminal(words, files, launch[1], hosted)
        self.addCleanup(terminal.close)
        return terminal

    def test_every_command_is_reported_once_with_text_status_and_place(self):
        for name, (shell, launch, files) in SHELLS.items():
            terminal = self.start(shell, launch, files)
            place = lambda folder: [("shell", shell),
                                    ("context", [folder, USER, os.getuid(), os.uname().nodename, shell])]
            self.assertEqual(marks(terminal.output), place(terminal.home), name)
            self.assertEqual(marks(terminal.type("cd /usr\r")),
                             place(terminal.home) + [("start", "cd /usr"), ("end", 0)] + place("/usr"), name)
            terminal.type("cd\r")
            for steps, made, only, shown in SITUATIONS:
                if only and not {shell, name} & set(only.split()):
                    continue
                with self.subTest(shell=name, typed=steps):
                    printed = terminal.type(*steps)
                    expected = [m for text, status in made for m in (("start", text), ("end", status))]
                    self.assertEqual(commands(printed), expected)
                    self.assertIn(shown, printed)
                    if steps[0] != "set -x\r":
                        self.assertNotIn(b"__velotide", printed)

    def test_an_untracked_shell_prints_nothing_more(self):
        outside, empty, inside = ({}, {"VELOTIDE_AGENT_CONTEXT": ""}, {"VELOTIDE_AGENT_CONTEXT": "/context"})
        fixed = dict.fromkeys((".bashrc", ".bash_profile"), "PS1='re@dy> '; readonly LC_ALL=C.UTF-8")
        rows = [(*how, environment, "") for how in SHELLS.values() for environment in (outside, empty)]
        for shell, launch, files, environment, login in rows + [("bash", BASH, fixed, inside, ""),
                                                                ("bash", BASH_32_LOGIN, fixed, inside, "-l")]:
            with self.subTest(shell=shell, launch=launch, environment=environment):
                terminal = self.start(shell, (launch[0], {**launch[1], **environment}), files, False, login)
                terminal.type("echo one\r")
                self.assertNotRegex(terminal.output, b"Velotide;|bash: ")

    def test_hooks_last_and_let_those_of_the_user_run(self):
        hook, fault = """PROMPT_COMMAND%s;printf "<x%%s>" $?'""", """trap 'printf "<x%s>" $?' ERR"""
        for name, step in [
                ("bash5.1", "unset PROMPT_COMMAND"), ("bash5.1", "PROMPT_COMMAND=:"), ("bash5.1", "PROMPT_COMMAND=(: :)"),
                ("bash5.1", "unset PS0"), ("bash4.4", "PROMPT_COMMAND=\"false; $PROMPT_COMMAND\""),
                ("bash3.2", "PROMPT_COMMAND=\"$PROMPT_COMMAND; ls\""), ("bash5.1", "shopt -u promptvars"),
                ("bash5.1", hook % "+='"), ("bash5.1", hook % "=\"$PROMPT_COMMAND\"'"),
                ("bash5.1", "PROMPT_COMMAND=\"${PROMPT_COMMAND:+$PROMPT_COMMAND ;}ls\""),
                ("bash5.1", fault), ("bash4.4", fault), ("bash3.2", fault), ("bash5.1", "readonly HISTTIMEFORMAT='%F %T '"),
                ("bash3.2", "readonly HISTTIMEFORMAT='%F %T '"), ("zsh", "setopt prompt_sp no_prompt_percent"),
                ("zsh", "preexec_functions=()"), ("zsh", "precmd_functions=()")]:
            with self.subTest(shell=name, step=step):
                terminal = self.start(*SHELLS[name])
                terminal.type(step + "\r", "true\r")
                printed = terminal.type("sh -c 'exit 9'\r", " ls /nowhere\r")
                self.assertEqual(commands(printed),
                                 [("start", "sh -c 'exit 9'"), ("end", 9), ("start", "ls /nowhere"), ("end", 2)])
                self.assertEqual(re.findall(b"<x(.)>", printed), [b"9", b"2"] if "<x" in step else [])
                self.assertNotIn(b"bash: ", printed)

    def test_a_shell_starts_as_it_would_without(self):
        bash = {f: f"started=$started+{f}\nPS1='re@dy> '\n" for f in (".bashrc", ".bash_profile", ".bash_login", ".profile")}
        zsh = {f: f"started=$started+{f}+$0\nPS1='re@dy> '\n" for f in (".zshenv", ".zprofile", ".zshrc", ".zlogin")}
        moved = {".zshenv": "export ZDOTDIR=$HOME/dots\n", **{"dots/" + f: text for f, text in zsh.items()}}
        moved["dots/.zshrc"] += "precmd_functions=(:)\n"
        fish = {".config/fish/config.fish": "function fish_greeting; end; function fish_prompt; printf 're@dy> '; end\n"}
        look = "echo $0 $started $- $SHLVL $HISTFILE; shopt; set -o; env | grep -v ^_="
        zsh_look = "echo $0 $started $- $SHLVL $HISTFILE $ZDOTDIR; setopt; env | grep -v ^_="
        fish_look = "status is-login; echo $status $SHLVL; env | grep -v ^_="
        rows = [("bash", BASH, bash, look, ""), ("bash", BASH_LOGIN, bash, look, "-l"),
                ("bash", BASH_LOGIN, {f: bash[f] for f in (".bashrc", ".profile")}, look, "-"),
                ("bash", BASH_32_LOGIN, bash, look, "-l"), ("bash", BASH_HOOK_LOGIN, bash, look, "-l"),
                ("zsh", ZSH, zsh, zsh_look, ""), ("zsh", ZSH, zsh, zsh_look, "-"), ("zsh", ZSH, moved, zsh_look, "-l"),
                ("fish", FISH, fish, fish_look, ""), ("fish", FISH, fish, fish_look, "-l")]
        for shell, launch, files, command, login in rows:
            with self.subTest(shell=shell, login=login, launch=launch[0]):
                shown = []
                for how in (([], {}), launch):
                    terminal = self.start(shell, how, files, login=login)
                    terminal.type(f"{{ {command}; }} >found 2>&1\r" if shell != "fish" else f"begin; {command}; end >found\r")
                    found = Path(terminal.home, "found").read_text().replace(terminal.home, "HOME")
                    shown.append(sorted(line for line in found.splitlines() if "ASSUME" not in line))
                self.assertEqual(*shown)
                self.assertIn(("end", 0), marks(terminal.output))
