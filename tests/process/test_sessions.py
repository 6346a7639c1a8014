"""Bytes through real terminals: output, input, control, resizing, ends and subscriptions."""

import os
import pathlib
import time

from runtime_process import REQUIRED, RuntimeCase, encode, wait_until

RAW_CAT = "stty raw -echo; printf R; exec cat"


def counted(lines):
    """What `seq 1 lines` prints through a terminal."""
    return b"".join(b"%d\r\n" % line for line in range(1, lines + 1))


class Output(RuntimeCase):
    def test_a_child_gets_its_size_name_directory_and_sorted_environment(self):
        directory = os.path.realpath(self.runtime.directory)
        for changes, name in (({}, "/bin/sh"), ({"executableName": "a name"}, "a name")):
            session = self.client.create('stty size; pwd; printf "%s|" "$0" "$@"', columns=101, rows=33,
                                         directory=directory, **changes)
            self.assertEqual(f"33 101\r\n{directory}\r\n{name}|".encode(), session.finish())
        given = {"b": "1", "B": "=2=", "A_": "x y", "A": "é", "é": "", "TERM": "dumb",
                 "VELOTIDE_AGENT_CONTEXT": "mine", "ARVEN_AGENT_CONTEXT": "mine"}
        session = self.client.create(executable="/usr/bin/env", environment=given)
        printed = dict(line.split("=", 1) for line in session.finish().decode().split("\r\n")[:-1])
        self.assertEqual(sorted(given), list(printed))
        context = printed["VELOTIDE_AGENT_CONTEXT"]
        self.assertTrue(context.startswith(os.path.join(self.runtime.root, "native-tools", "")), context)
        self.assertEqual({**given, "VELOTIDE_AGENT_CONTEXT": context, "ARVEN_AGENT_CONTEXT": context}, printed)

    def test_a_reader_of_overwritten_output_is_told_of_the_gap(self):
        session, printed = self.client.create("seq 1 200000; exec sleep 30"), counted(200000)
        end, oldest = len(printed), len(printed) - 1048576
        wait_until(lambda: session.request("read")["latestOffset"] == end, "all output")
        for after, gap in ((None, True), (oldest - 1, True), (oldest, False), (end - 65536, False), (end, False)):
            reply = session.request("read", after=None if after is None else session.cursor(after))
            start = max(after or 0, oldest)
            stop = min(start + 65536, end)
            self.assertEqual((gap, session.cursor(stop), end),
                             (reply["hasGap"], reply["cursor"], reply["latestOffset"]))
            self.assertTrue(reply.output == printed[start:stop])
        self.refuse("future_cursor", session.request("read", after=session.cursor(end + 1)))
        begin, frame = time.monotonic(), session.request("subscribe")
        while frame["cursor"]["offset"] < end:
            frame = self.client.frame()
        self.assertLess(time.monotonic() - begin, 0.5)  # no turn of the 15 waits for something to happen


class Ends(RuntimeCase):
    def test_an_exited_session_stays_readable_and_refuses_the_rest(self):
        session = self.client.create("read line; echo $line")
        self.accept(session.request("acquireControl", owner="me"))
        self.accept(session.input(b"last words\n", source="ai", owner="me"))
        self.assertEqual(b"last words\r\n" * 2, session.finish())
        self.assertEqual(set(), {"controlOwner", "controlExpiresAt"} & session.info.keys())
        self.refuse_what_needs_a_terminal(session)
        for action in ("acquireControl", "releaseControl"):
            self.refuse("unavailable", session.request(action))
        self.assertNotIn("foregroundPID", self.accept(session.request("close")))

    def test_output_may_end_before_the_child_does(self):
        flag = pathlib.Path(self.runtime.directory, "flag")
        session = self.client.create("printf x; exec <&- >&- 2>&-; "
                                     f"until [ -e {flag} ]; do sleep 0.02; done; exit 5")
        session.read_until(lambda reply: "foregroundPID" not in reply, "the end of the output")
        self.assertEqual((b"x", True), (session.seen, session.info["running"]))
        self.refuse_what_needs_a_terminal(session)
        flag.touch()
        session.finish()
        self.assertEqual(5, session.info["exitStatus"])

    def test_a_terminal_that_is_opened_again_is_read_again(self):
        session = self.client.create("exec <&- >&- 2>&-; sleep 0.5; head -c 100000 /dev/zero >/dev/tty; exit 7")
        self.assertEqual(bytes(100000), session.finish())
        self.assertEqual(7, session.info["exitStatus"])

    def refuse_what_needs_a_terminal(self, session):
        self.refuse("unavailable", session.input(b"y"))
        self.refuse("unavailable", session.request("inspectInput"))
        self.refuse("resize_failed", session.request("resize", columns=9, rows=9))


class Input(RuntimeCase):
    def refuse_all(self, session, action, word, *rows):
        """With the fields of each row the action is refused and changes nothing."""
        before = session.request("getAgentState")["session"]
        for fields in rows:
            self.refuse(word, session.input(b"q", **fields) if action == "input"
                        else session.request(action, **fields))
        self.assertEqual(before, session.request("getAgentState")["session"])

    def test_input_reaches_the_child_whole_and_counts_its_sequence(self):
        session, big = self.client.create(RAW_CAT), bytes(range(256)) * 256
        session.expect(b"R")
        self.refuse_all(session, "input", "resource_limit", {"data": encode(big + b"x")}, {"data": "", "source": None},
                        {"data": None, "source": "ai"})
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
        self.accept(session.request("releaseControl"))
        self.assertEqual(1, session.info["nextInputSequence"])
        self.accept(session.input(b"z" * 65536))

    def test_the_refusals_of_input_come_in_their_order(self):
        session = self.client.create("exec sleep 30")
        me, reply = session.info["pid"], {"source": "protocolReply"}
        self.refuse_all(session, "input", "control_changed", {"controlEpoch": None},
                        {"controlEpoch": None, "source": None, "data": None}, {"source": "ai", "owner": "me"},
                        {**reply, "data": encode(b"\x1b[c"), "inputSequence": 2},
                        {"inputSequence": 2, "expectedEchoEnabled": False})
        self.refuse_all(session, "input", "invalid_request", {"source": None, "inputSequence": 9},
                        {**reply, "inputSequence": 9}, {**reply, "data": encode(b"\x1b[1;1Rx")})
        self.refuse_all(session, "input", "input_echo_changed",
                        {"expectedEchoEnabled": False, "expectedForegroundPID": 0})
        self.refuse_all(session, "input", "input_foreground_changed", {"expectedForegroundPID": me + 1},
                        {"expectedEchoEnabled": True, "expectedForegroundPID": 0})
        self.refuse_all(session, "resize", "resize_failed", {}, {"columns": 80}, {"columns": 0, "rows": 1},
                        {"columns": 1001, "rows": 1}, {"columns": 2 ** 32 + 1, "rows": 1},
                        {"columns": 1, "rows": -2 ** 63})
        self.accept(session.input(b"\x1b[12;40R" * 16, **reply, controlEpoch=None))
        self.assertTrue(session.request("inspectInput")["echoEnabled"])
        reply = session.input(b"a", expectedEchoEnabled=True, expectedForegroundPID=me)
        self.assertTrue(self.accept(reply)["echoEnabled"])
        self.assertEqual(3, session.info["nextInputSequence"])

    def test_the_lease_keeps_people_and_other_owners_out_until_released(self):
        session, owner = self.client.create("stty -echo; printf R; exec sleep 30"), "~ " * 64
        session.expect(b"R")
        free = session.info["controlEpoch"]
        self.refuse_all(session, "acquireControl", "invalid_request",
                        *({"owner": wrong} for wrong in (None, "", "x" * 129, "a\tb", "é", "\x7f")))
        self.refuse_all(session, "renewControl", "control_changed", {"owner": "me"})
        self.accept(session.input(b"a"))
        self.accept(session.request("acquireControl", owner=owner))
        held = session.info["controlEpoch"]
        self.assertEqual((owner, 1), (session.info["controlOwner"], session.info["nextInputSequence"]))
        self.assertNotEqual(free, held)
        self.refuse_all(session, "input", "control_owned", {"inputSequence": 9})
        self.refuse_all(session, "input", "control_changed", {"source": "ai", "owner": "other"}, {"controlEpoch": free})
        self.refuse_all(session, "acquireControl", "control_changed", {"owner": owner, "controlEpoch": free})
        for action, word in (("acquireControl", "control_owned"), ("renewControl", "control_changed"),
                             ("releaseControl", "control_owned")):
            self.refuse_all(session, action, word, {"owner": "other"})
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
        for _ in range(2):
            first = self.subscribe(session, after=session.cursor(0))
            self.assertEqual((65536, session.cursor(65536)), (len(first.output), first["cursor"]))
            self.assertEqual([65536, 65536, 8192], [len(self.push(first).output) for _ in range(3)])
            watchers.append((self.watcher, first))
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
