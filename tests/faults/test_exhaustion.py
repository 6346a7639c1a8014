"""The real service while the system runs out of what it lives on: descriptors, room on the disk, its root."""

import ctypes
import os
import pathlib
import resource
import shutil
import signal
import subprocess
import time
import unittest

from runtime_process import FAILURE_MESSAGE, RUNTIME, RuntimeCase, launch, wait_until

REFUSALS = {"process_launch_failed", "runtime_error"}
CAT = {"executable": "/bin/cat"}


class Exhaustion(RuntimeCase):
    starts = False

    def processor_seconds(self):
        fields = pathlib.Path(f"/proc/{self.runtime.process.pid}/stat").read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def assert_sleeps(self):
        before, end = self.processor_seconds(), time.monotonic() + 0.5
        wait_until(lambda: time.monotonic() > end, "the time passes")
        self.assertLess(self.processor_seconds() - before, 0.1)

    def limit(self, which, soft):
        """Changes a limit of the running service; answers what it was."""
        old = resource.prlimit(self.runtime.process.pid, which)
        resource.prlimit(self.runtime.process.pid, which, (soft, old[1]))
        return old[0]

    def assert_lives(self, client):
        """Output, input, a restart, the end with its status."""
        session = client.create("read line; printf '<%s>' \"$line\"; exit 7")
        session.input(b"typed\n")
        self.assertIn(b"<typed>", session.finish())
        self.assertEqual(7, session.info["exitStatus"])
        self.accept(session.request("close"))

    def test_without_descriptors_newcomers_wait_and_creations_are_refused(self):
        client = self.runtime.start(preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (20, 20)))
        watched = client.create(**CAT)
        refused, sessions = None, []
        while not refused:
            reply = client.request("create", launch=launch(**CAT))
            refused = reply.get("error")
            sessions.append(reply.get("session"))
        self.assertIn(refused, REFUSALS)
        self.assertLess(len(sessions), 20)
        crowd = [self.connect() for _ in range(10)]
        for one in crowd:
            one.send(one.text("list")[1])
        self.accept(client.request("list"))
        self.assert_sleeps()
        client = self.connect()
        for one in crowd:
            one.socket.close()
        self.accept(client.request("list"))
        watched.client = client
        watched.input(b"still served\n")
        watched.expect(b"still served\r\nstill served\r\n")
        for session in sessions[:-1]:
            self.accept(client.request("close", sessionID=session["id"], generation=session["generation"],
                                       controlEpoch=session["controlEpoch"]))
        wait_until(lambda: client.request("create", launch=launch(**CAT))["ok"], "a new session")

    def test_when_not_even_the_poll_succeeds_the_service_ends_in_order(self):
        if b"__ubsan" in pathlib.Path(RUNTIME).read_bytes():
            self.skipTest("the sanitizer's own checks need descriptors")
        session = self.runtime.start().create(**CAT)
        self.limit(resource.RLIMIT_NOFILE, 2)
        self.assertEqual(1, self.runtime.process.wait(20))
        self.assertEqual(FAILURE_MESSAGE, self.runtime.errors())
        self.assertFalse(os.path.exists(os.path.join(self.runtime.root, "runtime.sock")))
        wait_until(lambda: not os.path.exists(f"/proc/{session.info['pid']}"), "its child ends")

    def test_files_that_may_not_grow_refuse_creations_but_never_end_the_service(self):
        client = self.runtime.start()
        session = client.create(**CAT)
        before = self.limit(resource.RLIMIT_FSIZE, 0)
        self.assertEqual("runtime_error", client.request("create", launch=launch(**CAT)).get("error"))
        session.input(b"lives\n")
        session.expect(b"lives\r\nlives\r\n")
        self.limit(resource.RLIMIT_FSIZE, before)
        self.assert_lives(client)
        signals = client.create("grep SigIgn /proc/self/status")
        self.assertRegex(signals.finish(), rb"SigIgn:\s0+\r\n")

    def test_a_start_without_room_for_its_files_says_so(self):
        ended = subprocess.run([RUNTIME, "--root", self.runtime.root], stderr=subprocess.PIPE, timeout=20,
                               preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (0, 0)))
        self.assertEqual((1, FAILURE_MESSAGE), (ended.returncode, ended.stderr))

    def test_on_a_full_disk_creations_are_refused_until_there_is_room(self):
        os.mkdir(self.runtime.directory + "/disk", 0o700)
        try:
            mount_small_disk(self.runtime.directory + "/disk")
        except OSError as failure:
            self.skipTest(f"no disk of its own: {failure}")
        self.addCleanup(subprocess.run, ["umount", "-l", self.runtime.directory + "/disk"])
        self.runtime.root = self.runtime.directory + "/disk/root"
        client = self.runtime.start()
        session = client.create(**CAT)
        filling = pathlib.Path(self.runtime.directory, "disk/filling")
        with self.assertRaises(OSError), filling.open("wb", 0) as file:
            while True:
                file.write(bytes(4096))
        self.assertEqual("runtime_error", client.request("create", launch=launch(**CAT)).get("error"))
        session.input(b"lives\n")
        session.expect(b"lives\r\nlives\r\n")
        self.assert_sleeps()
        filling.unlink()
        self.assert_lives(client)

    def test_without_its_root_the_service_serves_on_and_ends_in_order(self):
        client = self.runtime.start()
        session = client.create(**CAT)
        shutil.rmtree(self.runtime.root)
        session.input(b"lives\n")
        session.expect(b"lives\r\nlives\r\n")
        self.assert_sleeps()
        client = self.runtime.clients[-1]
        self.accept(session.request("close"))
        self.accept(client.request("shutdownIfEmpty"))
        self.assertEqual(0, self.runtime.process.wait(20))

    def test_what_the_launcher_ignored_or_closed_does_not_matter(self):
        def hostile():
            signal.signal(signal.SIGCHLD, signal.SIG_IGN)
            os.closerange(0, 3)
        self.assert_lives(self.runtime.start(preexec_fn=hostile))
        for descriptor in range(3):
            self.assertEqual("/dev/null", os.readlink(f"/proc/{self.runtime.process.pid}/fd/{descriptor}"))


def mount_small_disk(path):
    """In a space of mounts that only this process and its children see."""
    new_user, new_mounts = 0x10000000, 0x20000
    libc, user = ctypes.CDLL(None, use_errno=True), os.getuid()
    if libc.unshare(new_mounts | (new_user if user else 0)) != 0:
        raise OSError(ctypes.get_errno(), "unshare")
    if user:
        pathlib.Path("/proc/self/uid_map").write_text(f"{user} {user} 1")
    options = b"size=64k,mode=0700"
    if libc.mount(None, b"/", None, 0x4000 | 0x40000, None) or libc.mount(b"small", path.encode(), b"tmpfs", 0,
                                                                          options):
        raise OSError(ctypes.get_errno(), "mount")


if __name__ == "__main__":
    unittest.main()
