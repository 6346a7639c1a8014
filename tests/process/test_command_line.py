"""Starting and ending the service: arguments, root directory, lock, token, socket."""

import os
import pathlib
import stat
import subprocess
import unittest

from runtime_process import FAILURE_MESSAGE, RUNTIME, RuntimeCase

NOBODY = 65534


def mode(path):
    return stat.S_IMODE(os.lstat(path).st_mode)


# What makes a prepared root directory unacceptable.
SPOILT = {
    "mode 0750": lambda root: root.chmod(0o750),
    "mode 0701": lambda root: root.chmod(0o701),
    "a link": lambda root: (root.rename(f"{root}-real"), root.symlink_to(f"{root}-real")),
    "a file": lambda root: (root.rmdir(), root.touch()),
    "lock is a link": lambda root: (root.joinpath("elsewhere").touch(0o600),
                                    root.joinpath("runtime.lock").symlink_to("elsewhere")),
    "lock has mode 0640": lambda root: root.joinpath("runtime.lock").touch(0o640),
    "lock is a directory": lambda root: root.joinpath("runtime.lock").mkdir(0o700),
    "lock is a fifo": lambda root: os.mkfifo(root.joinpath("runtime.lock"), 0o600),
    "socket is a directory": lambda root: root.joinpath("runtime.sock").mkdir(),
    "token is a directory": lambda root: root.joinpath("ui-capability").mkdir(),
}
if os.getuid() == 0:
    SPOILT["foreign"] = lambda root: os.chown(root, NOBODY, -1)
    SPOILT["lock is foreign"] = lambda root: (root.joinpath("runtime.lock").touch(0o600),
                                              os.chown(root.joinpath("runtime.lock"), NOBODY, -1))


class Start(RuntimeCase):
    starts = False

    def assert_start_fails(self, *arguments):
        ended = subprocess.run([RUNTIME, *arguments], cwd=self.runtime.directory, timeout=20,
                               stdin=subprocess.DEVNULL, capture_output=True)
        self.assertEqual((1, FAILURE_MESSAGE, b""), (ended.returncode, ended.stderr, ended.stdout), arguments)

    def test_anything_but_root_and_one_absolute_path_fails_and_touches_nothing(self):
        root = self.runtime.root
        for arguments in ([], ["--root"], [root], ["--root", root, root], ["-root", root], ["--root=" + root],
                          [root, "--root"], ["--help"], ["--root", ""], ["--root", "root"], ["--root", "./root"],
                          ["--root", root + "\udcff"]):
            self.assert_start_fails(*arguments)
        nobody, errors = os.pipe()
        os.close(nobody)
        self.assertEqual(1, subprocess.run([RUNTIME], stderr=errors, check=False).returncode)
        os.close(errors)
        self.assertEqual([], os.listdir(self.runtime.directory))

    def test_a_root_that_others_could_have_prepared_is_refused(self):
        for what, spoil in SPOILT.items():
            root = pathlib.Path(self.runtime.directory, what.replace(" ", "-"))
            root.mkdir(0o700)
            spoil(root)
            for end in ("", "/", "/."):
                self.assert_start_fails("--root", str(root) + end)
            self.assertFalse(root.joinpath("ui-capability").is_file())
            self.assertEqual([], list(root.glob("capability-*")))

    def test_the_longest_root_serves_and_an_orderly_end_leaves_lock_and_token(self):
        base = self.runtime.directory
        fill = 99 - len(base) - len("//runtime.sock")
        self.assert_start_fails("--root", os.path.join(base, "r" * (fill + 1)))
        self.assert_start_fails("--root", os.path.join(base, "é" + "r" * (fill - 1)))
        root = self.runtime.root = os.path.join(base, "r" * fill)
        os.mkdir(root, 0o700)
        pathlib.Path(root, "runtime.sock").write_text("in the way, to be replaced")
        client = self.runtime.start()
        client.send(b"".join(client.text(action)[1] for action in ("shutdownIfEmpty", "create", "diagnostics")))
        self.assertEqual([None, "unavailable", None], [client.frame().get("error") for _ in range(3)])
        self.assertEqual(b"", client.read_to_end())
        self.assertEqual((0, b""), (self.runtime.process.wait(20), self.runtime.errors()))
        self.assertEqual({"native-tools", "runtime.lock", "ui-capability"}, set(os.listdir(root)))

    def test_files_are_private_although_the_launcher_was_permissive(self):
        root = self.runtime.root = os.path.join(self.runtime.directory, "a", "b")
        self.assertEqual(b"0077\r\n", self.runtime.start(umask=0).create("umask").finish())
        one = "[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"
        self.assertRegex(self.runtime.capability, f"^{one}{one}$")
        self.assertEqual([0o700, 0o700], [mode(os.path.dirname(root)), mode(root)])
        for name in ("runtime.sock", "runtime.lock", "ui-capability"):
            self.assertEqual(0o600, mode(os.path.join(root, name)), name)
        self.assertEqual(self.runtime.process.pid, os.getsid(self.runtime.process.pid))

    def test_a_second_instance_fails_and_leaves_the_first_untouched(self):
        client = self.runtime.start()
        path = os.path.join(self.runtime.root, "runtime.sock")
        before = os.stat(path)
        self.assert_start_fails("--root", self.runtime.root)
        self.assertEqual((before.st_ino, before.st_mtime), (os.stat(path).st_ino, os.stat(path).st_mtime))
        self.assertEqual(self.runtime.capability, pathlib.Path(self.runtime.root, "ui-capability").read_text())
        self.accept(client.request("list"))
        self.accept(self.connect().request("list"))

    def test_a_restart_after_a_crash_replaces_socket_token_and_epoch(self):
        first = self.runtime.start()
        token, epoch = self.runtime.capability, first.request("hello")["serviceEpoch"]
        self.runtime.kill()
        self.assertTrue(os.path.exists(os.path.join(self.runtime.root, "runtime.sock")))
        second = self.runtime.start()
        self.assertNotEqual(token, self.runtime.capability)
        self.assertNotEqual(epoch, second.request("hello")["serviceEpoch"])
        self.refuse("invalid_capability", second.request("list", capability=token))
        self.accept(second.request("list"))


class Admission(RuntimeCase):
    def test_only_the_exact_token_authorizes(self):
        token = self.runtime.capability
        letter = next(index for index, sign in enumerate(token) if sign.isalpha())
        lower = token[:letter] + token[letter].lower() + token[letter + 1:]
        for text in (None, "", lower, token + "A", token[:-1], token[:-1] + "-", token + "\0"):
            self.refuse("invalid_capability", self.client.request("list", capability=text))
        self.accept(self.client.request("list", capability=token))

    @unittest.skipUnless(os.getuid() == 0, "needs the right to act as another user")
    def test_a_process_of_another_user_is_closed_without_an_answer(self):
        path = os.path.join(self.runtime.root, "runtime.sock")
        for opened in (self.runtime.directory, self.runtime.root, path):
            os.chmod(opened, 0o777)
        stranger = os.fork()
        if stranger == 0:
            status = 99
            try:
                os.setuid(NOBODY)
                status = len(self.connect().receive())
            finally:
                os._exit(status)
        self.assertEqual(0, os.waitpid(stranger, 0)[1], "neither bytes nor an error")
        self.accept(self.client.request("diagnostics"))
