"""The real service where the system or its launcher leaves it next to nothing; fault_cases_test.cpp has the rest."""

import os
import resource
import signal
import unittest

from runtime_process import FAILURE_MESSAGE, IS_SANITIZED, UNMEASURED, RuntimeCase, launch, wait_until

CAT = {"executable": "/bin/cat"}


class Exhaustion(RuntimeCase):
    starts = False

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

    @unittest.skipIf(IS_SANITIZED, "its own checks need descriptors")
    def test_when_not_even_the_poll_succeeds_the_service_ends_in_order(self):
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

    def test_what_the_launcher_ignored_or_closed_does_not_matter(self):
        def hostile():
            for name in ("CHLD", "HUP", "INT", "TSTP", "TTOU", "PIPE"):
                signal.signal(getattr(signal, f"SIG{name}"), signal.SIG_IGN)
            signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGHUP})
            os.closerange(0, 3)
            os.environ.update(UNMEASURED)
        client = self.runtime.start(preexec_fn=hostile)
        self.assert_lives(client)
        signals = client.create(executable="/bin/grep", arguments=["-E", "Sig(Blk|Ign)", "/proc/self/status"])
        self.assertRegex(signals.finish(), rb"SigBlk:\s0+\r\nSigIgn:\s0+\r\n")
        for descriptor in range(3):
            self.assertEqual("/dev/null", os.readlink(f"/proc/{self.runtime.process.pid}/fd/{descriptor}"))
