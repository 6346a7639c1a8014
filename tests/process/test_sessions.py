"""Bytes through real terminals: output, input, control, resizing, ends and subscriptions."""

import os
import pathlib
import unittest

from runtime_process import REQUIRED, RuntimeCase, encode, launch, protocol_date, wait_until

RAW_CAT = "stty raw -echo; printf R; exec cat"


def counted(lines):
    """What `seq 1 lines` prints through a terminal."""
    return b"".join(b"%d\r\n" % line for line in range(1, lines + 1))


class Output(RuntimeCase):
    def test_every_byte_arrives_as_it_was_written(self):
        path = pathlib.Path(self.runtime.directory, "bytes")
        path.write_bytes(bytes(range(256)) * 1200)
        session = self.client.create(f"stty -opost; cat {path}; exit 4")
        self.assertTrue(session.finish() == path.read_bytes())

    def test_a_child_gets_its_size_name_directory_and_sorted_environment(self):
        directory = os.path.realpath(self.runtime.directory)
        session = self.client.create('stty size; pwd; printf "%s|" "$0" "$@"', columns=101, rows=33,
                                     directory=directory)
        self.assertEqual(f"33 101\r\n{directory}\r\n/bin/sh|".encode(), session.finish())
        session = self.client.create(executableName="a name")
        session.input(b'printf "<%s>" "$0"; exit\n')
        self.assertIn(b"<a name>", session.finish())
        given = {"b": "1", "B": "=2=", "A_": "x y", "A": "é", "é": "", "TERM": "dumb"}
        session = self.client.create(executable="/usr/bin/env", environment=given)
        lines = session.finish().decode().split("\r\n")[:-1]
        self.assertEqual([f"{key}={given[key]}" for key in sorted(given)],
                         [line for line in lines if "_AGENT_CONTEXT=" not in line])

    def test_a_reader_of_overwritten_output_is_told_of_the_gap(self):
        session, printed = self.client.create("seq 1 200000; exec sleep 30"), counted(200000)
        end, oldest = len(printed), len(printed) - 1048576
        wait_until(lambda: session.request("read")["latestOffset"] == end, "all output")
        for after, gap in ((None, True), (0, True), (oldest - 1, True), (oldest, False),
                           (oldest + 7, False), (end - 65536, False), (end, False)):
            with self.subTest(after=after):
                reply = session.request("read", after=None if after is None else session.cursor(after))
                start = max(after or 0, oldest)
                stop = min(start + 65536, end)
                self.assertEqual((gap, session.cursor(stop), end),
                                 (reply["hasGap"], reply["cursor"], reply["latestOffset"]))
                self.assertTrue(reply.output == printed[start:stop])
        self.refuse("future_cursor", session.request("read", after=session.cursor(end + 1)))


class Ends(RuntimeCase):
    def test_an_exited_session_stays_readable_and_refuses_the_rest(self):
        session = self.client.create("read line; echo $line")
        self.accept(session.request("acquireControl", owner="me"))
        self.accept(session.input(b"last words\n", source="ai", owner="me"))
        self.assertEqual(b"last words\r\n" * 2, session.finish())
        self.assertEqual(set(), {"controlOwner", "controlExpiresAt"} & session.info.keys())
        for word, action, fields in (
                ("unavailable", "inspectInput", {}), ("unavailable", "input", {}),
                ("resize_failed", "resize", {"columns": 9, "rows": 9}),
                ("unavailable", "acquireControl", {}), ("unavailable", "releaseControl", {})):
            with self.subTest(action):
                self.refuse(word, session.request(action, **fields))
        self.assertNotIn("foregroundPID", self.accept(session.request("close")))

    def test_output_may_end_before_the_child_does(self):
        flag = pathlib.Path(self.runtime.directory, "flag")
        session = self.client.create("printf x; exec <&- >&- 2>&-; "
                                     f"until [ -e {flag} ]; do sleep 0.02; done; exit 5")
        session.read_until(lambda reply: "foregroundPID" not in reply, "the end of the output")
        self.assertEqual((b"x", True), (session.seen, session.info["running"]))
        self.refuse("unavailable", session.input(b"y"))
        self.refuse("unavailable", session.request("inspectInput"))
        self.refuse("resize_failed", session.request("resize", columns=9, rows=9))
        flag.touch()
        session.finish()
        self.assertEqual(5, session.info["exitStatus"])


class Input(RuntimeCase):
    def refuse_all(self, session, rows):
        """Every row is refused with its word and changes nothing."""
        before = session.request("getAgentState")["session"]
        for word, action, fields in rows:
            if action == "input":
                fields = {"data": encode(b"q"), "source": "human",
                          "inputSequence": session.info["nextInputSequence"], **fields}
            with self.subTest(f"{word}: {action} {fields}"):
                self.refuse(word, session.request(action, **fields))
        self.assertEqual(before, session.request("getAgentState")["session"])

    def test_input_reaches_the_child_whole_and_counts_its_sequence(self):
        session, big = self.client.create(RAW_CAT), bytes(range(256)) * 256
        session.expect(b"R")
        self.refuse_all(session, [("resource_limit", "input", {"data": encode(big + b"x")}),
                                  ("resource_limit", "input", {"data": "", "source": None}),
                                  ("resource_limit", "input", {"data": None, "source": "ai"})])
        for sequence, data in enumerate((b"a", big, b"\x00\xff\n\r"), 1):
            self.assertEqual(sequence, session.info["nextInputSequence"])
            self.assertFalse(self.accept(session.input(data))["echoEnabled"])
            expected = session.seen + data
            session.read_until(lambda reply: len(session.seen) >= len(expected), "the echo")
            self.assertTrue(session.seen == expected)

    def test_input_the_terminal_does_not_take_is_bounded_and_dropped_on_release(self):
        session = self.client.create("stty raw -echo; printf R; exec sleep 30")
        session.expect(b"R")
        replies = [session.input(b"z" * 65536) for _ in range(8)]
        taken = [reply["ok"] for reply in replies].index(False)
        self.assertIn(taken, (2, 3), "two fill the queue, the terminal itself may hold a third")
        self.refuse("resource_limit", replies[taken])
        self.assertEqual(taken + 1, session.info["nextInputSequence"])
        epoch = session.info["controlEpoch"]
        self.accept(session.request("releaseControl"))
        self.assertNotEqual(epoch, session.info["controlEpoch"])
        self.assertEqual(1, session.info["nextInputSequence"])
        self.accept(session.input(b"z" * 65536))

    def test_the_refusals_of_input_come_in_their_order(self):
        session = self.client.create("exec sleep 30")
        me, reply = session.info["pid"], {"source": "protocolReply"}
        self.refuse_all(session, [
            ("control_changed", "input", {"controlEpoch": None}),
            ("control_changed", "input", {"controlEpoch": None, "source": None, "data": None}),
            ("invalid_request", "input", {"source": None, "inputSequence": 9}),
            ("control_changed", "input", {"source": "ai", "owner": "me"}),
            ("invalid_request", "input", {**reply, "inputSequence": 9}),
            ("invalid_request", "input", {**reply, "data": encode(b"\x1b[1;1Rx")}),
            ("control_changed", "input", {**reply, "data": encode(b"\x1b[c"), "inputSequence": 2}),
            ("control_changed", "input", {"inputSequence": None}),
            ("control_changed", "input", {"inputSequence": 2, "expectedEchoEnabled": False}),
            ("input_echo_changed", "input", {"expectedEchoEnabled": False, "expectedForegroundPID": 0}),
            ("input_foreground_changed", "input", {"expectedEchoEnabled": True, "expectedForegroundPID": 0}),
            ("input_foreground_changed", "input", {"expectedForegroundPID": -1}),
            ("input_foreground_changed", "input", {"expectedForegroundPID": me + 1}),
            ("resize_failed", "resize", {}), ("resize_failed", "resize", {"columns": 80}),
            ("resize_failed", "resize", {"columns": 0, "rows": 1}),
            ("resize_failed", "resize", {"columns": 1001, "rows": 1}),
            ("resize_failed", "resize", {"columns": 1, "rows": 1001}),
            ("resize_failed", "resize", {"columns": 2 ** 32 + 1, "rows": 1}),
            ("resize_failed", "resize", {"columns": 1, "rows": -2 ** 63})])
        self.accept(session.input(b"\x1b[12;40R" * 16, **reply, controlEpoch=None))
        reply = session.input(b"a", expectedEchoEnabled=True, expectedForegroundPID=me)
        self.assertTrue(self.accept(reply)["echoEnabled"])
        self.assertEqual(3, session.info["nextInputSequence"])

    def test_the_lease_keeps_people_and_other_owners_out_until_released(self):
        session, owner = self.client.create("stty -echo; printf R; exec sleep 30"), "~ " * 64
        session.expect(b"R")
        free = session.info["controlEpoch"]
        self.refuse_all(session, [("invalid_request", "acquireControl", {"owner": wrong})
                                  for wrong in (None, "", "x" * 129, "a\tb", "é", "\x7f")]
                        + [("control_changed", "renewControl", {"owner": "me"})])
        self.accept(session.input(b"a"))
        self.accept(session.request("acquireControl", owner=owner))
        held, expiry = session.info["controlEpoch"], session.info["controlExpiresAt"]
        self.assertEqual((owner, 1), (session.info["controlOwner"], session.info["nextInputSequence"]))
        self.assertNotEqual(free, held)
        self.assertLess(abs(expiry - protocol_date() - 120), 10)
        self.refuse_all(session, [
            ("control_owned", "input", {"inputSequence": 9}),
            ("control_changed", "input", {"source": "ai"}),
            ("control_changed", "input", {"source": "ai", "owner": "other"}),
            ("control_changed", "input", {"controlEpoch": free}),
            ("control_owned", "acquireControl", {"owner": "other"}),
            ("control_changed", "acquireControl", {"owner": owner, "controlEpoch": free}),
            ("control_changed", "renewControl", {"owner": "other"}),
            ("control_owned", "releaseControl", {"owner": "other"})])
        typed = {"source": "ai", "data": encode(b"x"), "inputSequence": 1}
        for action, fields in (("acquireControl", {}), ("renewControl", {}), ("input", typed)):
            before = session.info
            self.accept(session.request(action, owner=owner, **fields))
            self.assertEqual(held, session.info["controlEpoch"])
            for key in ("controlExpiresAt", "revision"):
                self.assertGreater(session.info[key], before[key])
        self.accept(session.input(b"\x1b[c", source="protocolReply", controlEpoch=None))
        self.accept(session.request("releaseControl"))
        self.assertEqual(set(), {"controlOwner", "controlExpiresAt"} & session.info.keys())
        self.assertNotIn(session.info["controlEpoch"], (free, held))
        self.accept(session.input(b"a", inputSequence=1))

    def test_a_resize_reaches_the_child_and_the_echo_state_the_client(self):
        session = self.client.create("trap 'stty size; stty -echo; echo off' WINCH; echo ready; "
                                     "while :; do sleep 5 & wait; done")
        session.expect(b"ready")
        self.assertTrue(self.accept(session.request("inspectInput"))["echoEnabled"])
        self.accept(session.request("resize", columns=123, rows=45))
        self.assertEqual((123, 45), (session.info["columns"], session.info["rows"]))
        self.assertIn(b"45 123\r\n", session.expect(b"off"))
        self.assertFalse(self.accept(session.request("inspectInput"))["echoEnabled"])
        self.refuse_all(session, [("input_echo_changed", "input", {"expectedEchoEnabled": True})])


class Subscriptions(RuntimeCase):
    def push(self, first, condition=lambda push: True):
        """The watcher's next push that meets the condition; all belong to one subscription."""
        while True:
            push = self.watcher.frame()
            self.assertEqual((first["id"], "subscribe"), (push["id"], push["action"]))
            if condition(push):
                return push

    def subscribe(self, session, watcher=None, **fields):
        self.watcher = watcher or self.connect()
        return self.accept(self.watcher.request("subscribe", sessionID=session.info["id"],
                                                generation=session.info["generation"], **fields))

    def test_every_subscriber_gets_all_bytes_in_contiguous_chunks_of_64_kib(self):
        flag = pathlib.Path(self.runtime.directory, "flag")
        session = self.client.create("head -c 204800 /dev/zero; "
                                     f"until [ -e {flag} ]; do sleep 0.02; done; seq 1 60000; exit 6")
        wait_until(lambda: session.request("read")["latestOffset"] == 204800, "the first part")
        printed, watchers = bytes(204800) + counted(60000), []
        for _ in range(4):
            first = self.subscribe(session, after=session.cursor(0))
            self.assertEqual((65536, session.cursor(65536)), (len(first.output), first["cursor"]))
            watchers.append((self.watcher, first))
        for self.watcher, first in watchers:
            self.assertEqual([65536, 65536, 8192], [len(self.push(first).output) for _ in range(3)])
        flag.touch()
        keys = REQUIRED | {"session", "data", "cursor", "latestOffset", "hasGap", "attention", "eventHead"}
        for self.watcher, first in watchers:
            got, running = bytes(204800), True
            while running or len(got) < len(printed):
                push = self.push(first)
                got, running = got + push.output, push["session"]["running"]
                self.assertEqual((session.cursor(len(got)), False), (push["cursor"], push["hasGap"]))
                self.assertEqual(keys, push.keys() - {"foregroundPID"})
            self.assertTrue(got == printed)
            self.assertEqual(6, push["session"]["exitStatus"])

    def test_changes_of_control_are_pushed_and_a_close_ends_the_subscription(self):
        session = self.client.create("exec sleep 30")
        first = self.subscribe(session)
        self.assertEqual((b"", False, 0), (first.output, first["hasGap"], first["latestOffset"]))
        for action in ("acquireControl", "renewControl", "releaseControl"):
            session.request(action, owner="me")
            push = self.push(first)
            self.assertEqual((session.info, b""), (push["session"], push.output))
        session.request("close")
        last = self.push(first)
        self.assertEqual((REQUIRED | {"error"}, "target_closed"), (last.keys(), last["error"]))
        self.assertEqual([], self.accept(self.watcher.request("list"))["sessions"])

    def test_a_second_subscription_replaces_the_first_unless_it_is_refused(self):
        one, two = self.client.create(RAW_CAT), self.client.create(RAW_CAT)
        for session in (one, two):
            session.expect(b"R")
        first = self.subscribe(one)
        self.refuse("generation_changed", self.watcher.request("subscribe", sessionID=two.info["id"]))
        one.input(b"1")
        self.assertEqual(b"1", self.push(first, lambda push: push.output).output)
        second = self.subscribe(two, self.watcher, after=two.cursor(1))
        one.input(b"ignored")
        one.expect(b"ignored")
        two.input(b"2")
        self.assertEqual(b"2", self.push(second, lambda push: push.output).output)

    def test_a_restart_drops_the_subscriber_of_the_old_output(self):
        session = self.client.create("echo gone")
        session.finish()
        self.subscribe(session)
        self.accept(session.request("restartExited", launch=launch("exec sleep 30")))
        self.watcher.read_to_end()
        drop = self.client.request("diagnostics")["disconnects"][-1]
        self.assertEqual(("subscription_failed", "subscribe", True),
                         (drop["reason"], drop["lastAction"], drop["subscribed"]))


class AgentContext(RuntimeCase):
    def test_both_context_variables_replace_what_the_client_gave(self):
        given = {"VELOTIDE_AGENT_CONTEXT": "mine", "ARVEN_AGENT_CONTEXT": "mine", "W": ""}
        session = self.client.create("/usr/bin/env; exec sleep 30", environment=given)
        lines = dict(line.split("=", 1) for line in session.expect(b"W=\r\n").decode().splitlines())
        path = lines["VELOTIDE_AGENT_CONTEXT"]
        self.assertEqual(path, lines["ARVEN_AGENT_CONTEXT"])
        self.assertTrue(path.startswith(os.path.join(self.runtime.root, "native-tools", "")), path)
        self.assertEqual(0o600, os.stat(path).st_mode & 0o777)


if __name__ == "__main__":
    unittest.main()
