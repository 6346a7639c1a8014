"""What each action answers, refuses, remembers and publishes."""

import os
import pathlib
import re
import time
import unittest

from runtime_process import (FEATURES, REQUIRED, RuntimeCase, encode, launch, new_id, protocol_date,
                             wait_until)

POLICY = {"bells": True, "commandFailures": True, "longCommandCompletion": True,
          "processExits": False, "longCommandSeconds": 30, "failureMinimumSeconds": 5}
INFO = {"id", "revision", "pid", "generation", "controlEpoch", "directory", "running", "columns",
        "rows", "outputOffset", "nextInputSequence", "outputRevision", "commands", "reminderPolicy"}
SESSION_ACTIONS = ["read", "subscribe", "inspectInput", "input", "resize", "close", "restartExited",
                   "acquireControl", "renewControl", "releaseControl", "bindAgent", "reportAgent",
                   "getAgentState", "configureReminders"]
STUBBORN = "trap '' HUP; echo ready; exec sleep 30"


class Answers(RuntimeCase):
    def test_hello_needs_no_token_and_answers_the_bare_skeleton(self):
        for token in (None, "", "wrong", self.runtime.capability):
            reply = self.accept(self.client.request("hello", capability=token))
            self.assertEqual(REQUIRED | {"features"}, reply.keys())
            self.assertEqual((FEATURES, "1.257.0-rc3"), (reply["features"], reply["version"]))

    def test_another_protocol_version_is_refused_before_anything_else(self):
        for version in (2, 4, 0, -3, 9223372036854775807):
            for action, token in (("hello", None), ("list", ""), ("shutdownIfEmpty", None)):
                reply = self.client.request(action, protocolVersion=version, capability=token)
                self.assertEqual("incompatible_protocol", reply["error"])
                self.assertEqual(REQUIRED | {"features", "error"}, reply.keys())

    def test_each_answer_carries_exactly_its_fields(self):
        session = self.client.create("exec sleep 30")
        state = {"session", "foregroundPID"}
        output = state | {"data", "cursor", "latestOffset", "hasGap", "attention"}
        policy = {**POLICY, "bells": False}
        for action, fields, expected in (
                ("list", {}, {"sessions"}), ("listAttention", {}, {"attention"}),
                ("readEvents", {}, {"events"}), ("diagnostics", {}, {"disconnects", "pendingWaits"}),
                ("read", {}, output), ("subscribe", {}, output),
                ("inspectInput", {}, state | {"echoEnabled"}),
                ("input", {"data": encode(b"x"), "source": "human", "inputSequence": 1},
                 state | {"echoEnabled"}), ("resize", {"columns": 1, "rows": 1000}, state),
                ("getAgentState", {}, state | {"attention"}),
                ("configureReminders", {"reminderPolicy": policy}, state),
                ("acquireControl", {"owner": "me"}, state), ("renewControl", {"owner": "me"}, state),
                ("releaseControl", {}, state), ("close", {}, {"session"})):
            with self.subTest(action):
                reply = self.accept(session.request(action, **fields))
                self.assertEqual(REQUIRED | {"features", "eventHead"} | expected, reply.keys())
                for key in {"attention", "sessions", "disconnects"} & expected - {"sessions"}:
                    self.assertEqual([], reply[key])
                if "foregroundPID" in expected:
                    self.assertEqual(session.info["pid"], reply["foregroundPID"])
        self.assertTrue(reply["session"]["running"])

    def test_sessions_are_listed_whole_and_by_their_upper_case_ids(self):
        given = ["ffffffff-0000-4000-8000-000000000000", "0a000000-0000-4000-8000-00000000000F",
                 "B0000000-0000-4000-8000-000000000000", None]
        made = [self.client.create("exec sleep 30", sessionID=one, directory="/tmp").info
                for one in given]
        self.assertEqual([one.upper() for one in given[:3]], [info["id"] for info in made[:3]])
        listed = self.client.request("list")["sessions"]
        self.assertEqual(sorted(info["id"] for info in made), [info["id"] for info in listed])
        for info in listed:
            self.assertEqual(INFO, info.keys())
        info = made[0]
        self.assertEqual([1, 1, 0, 0, True, 80, 24, "/tmp", [], POLICY], [info[key] for key in (
            "revision", "nextInputSequence", "outputOffset", "outputRevision", "running", "columns",
            "rows", "directory", "commands", "reminderPolicy")])
        self.assertEqual(8, len({info[key] for info in made for key in ("generation", "controlEpoch")}))

    def test_every_session_action_needs_its_session_then_its_generation(self):
        session = self.client.create("exec sleep 30")
        for action in SESSION_ACTIONS:
            with self.subTest(action):
                self.refuse("unavailable", session.request(action, sessionID=None))
                self.refuse("unavailable", session.request(action, sessionID=new_id(), generation=None))
                for wrong in (None, new_id()):
                    self.refuse("generation_changed",
                                session.request(action, generation=wrong, controlEpoch=None))
        for action in ("input", "close", "restartExited", "acquireControl", "renewControl",
                       "releaseControl"):
            for wrong in (None, new_id()):
                self.refuse("control_changed", session.request(action, controlEpoch=wrong))

    def test_each_precondition_has_its_word(self):
        session = self.client.create("exec sleep 30")
        head = self.client.request("list")["eventHead"]
        foreign = {"appEpoch": new_id(), "sequence": 10 ** 19}
        for word, action, fields in (
                ("resource_limit", "create", {"sessionID": session.info["id"]}),
                ("invalid_request", "create", {"launch": launch("true")}),
                ("invalid_request", "restartExited", {"launch": launch("true")}),
                ("control_owned", "shutdownIfEmpty", {}),
                ("invalid_request", "acknowledgeAttention", {"attentionID": new_id()}),
                ("invalid_request", "acknowledgeAttention", {"attentionVersion": 1}),
                ("notFound", "acknowledgeAttention", {"attentionID": new_id(), "attentionVersion": 1}),
                ("app_restarted", "readEvents", {"eventAfter": foreign}),
                ("future_cursor", "readEvents",
                 {"eventAfter": {**head, "sequence": head["sequence"] + 100}}),
                ("generation_changed", "read", {"after": {"generation": new_id(), "offset": 99}}),
                ("future_cursor", "subscribe", {"after": session.cursor(1)}),
                ("invalid_request", "configureReminders", {}),
                ("invalid_request", "configureReminders",
                 {"reminderPolicy": {**POLICY, "longCommandSeconds": -1}}),
                ("unavailable", "bindAgent", {}), ("invalidState", "reportAgent", {})):
            with self.subTest(f"{action} {fields}"):
                self.refuse(word, session.request(action, **fields))
        self.assertEqual(1, session.request("read")["session"]["revision"])


class Replays(RuntimeCase):
    def test_a_repeated_request_is_answered_from_memory_byte_for_byte(self):
        exited = self.client.create("exit 3")
        exited.finish()
        session = self.client.create("stty raw -echo; printf R; exec cat")
        session.expect(b"R")
        policy = {**POLICY, "longCommandSeconds": 0.5}
        for action, target, fields in (
                ("create", session, {"sessionID": new_id(), "launch": launch("exec sleep 30")}),
                ("input", session, {"data": encode(b"once."), "source": "human", "inputSequence": 1}),
                ("resize", session, {"columns": 90, "rows": 30}),
                ("configureReminders", session, {"reminderPolicy": policy}),
                ("acquireControl", session, {"owner": "me"}),
                ("renewControl", session, {"owner": "me"}), ("releaseControl", session, {}),
                ("restartExited", exited, {"launch": launch("exec sleep 30")}),
                ("close", exited, {})):
            with self.subTest(action):
                quoted = {"sessionID": target.info["id"], "generation": target.info["generation"],
                          "controlEpoch": target.info["controlEpoch"], **fields, "id": new_id()}
                first = self.accept(self.client.request(action, **quoted))
                self.assertIn("eventHead", first)
                if action != "create":
                    target.info = first["session"]
                without_head = re.sub(rb'"eventHead":\{[^}]*\},?', b"", first.raw)
                for client in (self.client, self.connect()):
                    self.assertEqual(without_head.replace(b",}", b"}"),
                                     client.request(action, **quoted).raw)
                self.refuse("invalid_request", self.client.request("list", id=quoted["id"]))
                self.refuse("invalid_capability",
                            self.client.request(action, **{**quoted, "capability": ""}))
                if action == "input":
                    session.input(b"twice.", inputSequence=2)
                    self.assertEqual(b"Ronce.twice.", session.expect(b"twice."))

    def test_refusals_and_reads_are_not_remembered(self):
        session = self.client.create("stty raw -echo; printf R; exec cat")
        session.expect(b"R")
        identifier = new_id()
        self.refuse("control_changed", session.input(b"x", id=identifier, inputSequence=7))
        self.accept(session.input(b"x", id=identifier))
        first = session.request("read", id=new_id())
        session.expect(b"x")
        again = session.request("read", id=first["id"])
        self.assertEqual((b"Rx", True), (again.output, "eventHead" in again))

    def test_1024_newer_answers_push_the_oldest_out_of_memory(self):
        session = self.client.create("exec sleep 30")
        first = session.request("resize", columns=1, rows=1)
        for turn in range(1023):
            session.request("resize", columns=2, rows=1 + turn % 1000)
        self.assertNotIn("eventHead", session.request("resize", id=first["id"], columns=1, rows=1))
        session.request("resize", columns=3, rows=3)
        again = session.request("resize", id=first["id"], columns=1, rows=1)
        self.assertEqual((True, first["session"]["revision"] + 1025),
                         ("eventHead" in again, again["session"]["revision"]))


class Events(RuntimeCase):
    def read(self, sequence, **fields):
        after = {"appEpoch": self.epoch, "sequence": sequence}
        return self.client.request("readEvents", eventAfter=after, **fields)

    def setUp(self):
        super().setUp()
        hello = self.client.request("hello")
        self.epoch = hello["serviceEpoch"]

    def test_a_session_leaves_its_story_in_the_log(self):
        self.assertEqual({"events": [], "nextCursor": {"appEpoch": self.epoch, "sequence": 0},
                          "hasMore": False}, self.client.request("readEvents")["events"])
        session = self.client.create("printf bye; exit 7")
        self.assertEqual(b"bye", session.finish())
        head = session.request("close")["eventHead"]
        batch = self.read(0)["events"]
        kinds = [event["kind"] for event in batch["events"]]
        self.assertEqual(["registered", "outputChanged", "processExited", "closed"], kinds)
        own = [{"location": "mainWindow"}, {"revision": 1}, {}, {}]
        for number, (event, extra) in enumerate(zip(batch["events"], own), 1):
            self.assertLess(abs(event.pop("occurredAt") - protocol_date()), 60)
            self.assertEqual({"cursor": {"appEpoch": self.epoch, "sequence": number},
                              "tabID": session.info["id"], "kind": kinds[number - 1], **extra}, event)
        self.assertEqual([head, head, False], [batch["nextCursor"], batch["events"][-1]["cursor"],
                                               batch["hasMore"]])

    def test_the_log_keeps_its_newest_1024_events_and_says_what_expired(self):
        session = self.client.create("head -c 12000000 /dev/zero; exec sleep 30")
        wait_until(lambda: session.request("read")["latestOffset"] == 12000000, "all output")
        head = self.client.request("list")["eventHead"]["sequence"]
        self.assertGreater(head, 1025)
        self.refuse("cursor_expired", self.read(head - 1025))
        for after, limit, count in ((1024, None, 100), (1024, 5000, 1024), (1024, 0, 1),
                                    (1024, -9, 1), (50, 50, 50), (50, 49, 49), (0, 10, 0)):
            with self.subTest(after=after, limit=limit):
                batch = self.read(head - after, eventLimit=limit)["events"]
                self.assertEqual([head - after + 1 + turn for turn in range(count)],
                                 [event["cursor"]["sequence"] for event in batch["events"]])
                self.assertEqual((head - after + count, count < after),
                                 (batch["nextCursor"]["sequence"], batch["hasMore"]))


class Lifecycle(RuntimeCase):
    def test_an_exited_session_restarts_under_its_id(self):
        session = self.client.create("exit 3")
        session.finish()
        old = dict(session.info)
        self.refuse("invalid_request", session.request("restartExited"))
        self.refuse("process_launch_failed", session.request(
            "restartExited", launch=launch(executable="/nowhere/to/be/found")))
        self.assertEqual(old, session.request("read")["session"])
        self.accept(session.request("restartExited", launch=launch("echo again; exec sleep 30")))
        self.assertEqual((old["id"], True), (session.info["id"], session.info["running"]))
        for key in ("generation", "controlEpoch", "pid"):
            self.assertNotEqual(old[key], session.info[key])
        session.seen = b""
        session.expect(b"again\r\n")
        self.refuse("generation_changed", session.request("read", generation=old["generation"]))
        self.assertEqual(1, len(self.client.request("list")["sessions"]))

    def test_64_sessions_and_retired_children_are_the_limit(self):
        stubborn = self.client.create(STUBBORN)
        stubborn.expect(b"ready")
        for _ in range(63):
            self.client.create(executable="/bin/sleep", arguments=["30"])
        self.refuse("resource_limit", self.client.request("create", launch=launch("true")))
        self.accept(stubborn.request("close"))
        self.assertEqual(63, len(self.client.request("list")["sessions"]))
        self.refuse("resource_limit", self.client.request("create", launch=launch("true")))
        os.kill(stubborn.info["pid"], 9)
        wait_until(lambda: self.client.request("create", launch=launch("true"))["ok"],
                   "the retired child makes room")

    def test_shutdown_kills_a_child_that_ignores_the_hang_up_after_three_seconds(self):
        session = self.client.create(STUBBORN)
        session.expect(b"ready")
        begin = time.monotonic()
        self.accept(session.request("close"))
        self.refuse("unavailable", session.request("read"))
        self.accept(self.client.request("shutdownIfEmpty"))
        self.refuse("unavailable", self.client.request("create"))
        self.accept(self.client.request("shutdownIfEmpty"))
        os.kill(session.info["pid"], 0)
        self.assertEqual(0, self.runtime.process.wait(20))
        self.assertTrue(3 <= time.monotonic() - begin < 6, time.monotonic() - begin)
        with self.assertRaises(ProcessLookupError):
            os.kill(session.info["pid"], 0)

    def test_shutdown_writes_the_last_answers_before_the_process_ends(self):
        sent = [self.client.text(action) for action in
                ("shutdownIfEmpty", "create", "shutdownIfEmpty", "diagnostics")]
        self.client.send(b"".join(raw for _, raw in sent))
        replies = [self.client.frame() for _ in sent]
        self.assertEqual([identifier for identifier, _ in sent], [one["id"] for one in replies])
        self.assertEqual([None, "unavailable", None, None], [one.get("error") for one in replies])
        self.client.closed()
        self.assertEqual((0, b""), (self.runtime.process.wait(20), self.runtime.errors()))


class Launches(RuntimeCase):
    def rules(self):
        """(what, the word that refuses it or None, changes to a launch that works)"""
        base = pathlib.Path(self.runtime.directory)
        (base / "plain").write_text("not a program")
        directory = str(base)
        deep = directory + "/." * ((1023 - len(directory)) // 2)
        deep += "/" * (1023 - len(deep))
        fixed = len("/bin/sh" "/" "-c" ":" "é=ü".encode())
        bulk = [["-c", ":", "é" * ((65536 - fixed) // 2) + "x" * (extra + (65536 - fixed) % 2)]
                for extra in (0, 1)]
        invalid, failed = "invalid_request", "process_launch_failed"
        yield "relative executable", invalid, {"executable": "bin/sh"}
        yield "empty executable", invalid, {"executable": ""}
        yield "missing executable", failed, {"executable": directory + "/missing"}
        yield "plain file as executable", failed, {"executable": directory + "/plain"}
        yield "relative directory", invalid, {"directory": "tmp"}
        yield "missing directory", failed, {"directory": directory + "/missing"}
        yield "file as directory", failed, {"directory": directory + "/plain"}
        yield "directory of 1023 bytes", None, {"directory": deep}
        yield "directory of 1024 bytes", invalid, {"directory": deep + "/"}
        yield "empty name", invalid, {"executableName": ""}
        for count, word in ((256, None), (257, invalid)):
            yield f"{count} arguments", word, {"arguments": ["-c", ":"] + [""] * (count - 2)}
        for count, word in ((512, None), (513, invalid)):
            yield f"{count} entries", word, {"environment": {f"k{turn}": "" for turn in range(count)}}
        for extra, word in ((0, None), (1, invalid)):
            yield f"65536+{extra} bytes", word, {"arguments": bulk[extra], "environment": {"é": "ü"}}
        for key, value in (("executable", "/bin/sh\0"), ("directory", "/\0"), ("executableName", "\0"),
                           ("arguments", ["-c", ":\0"]), ("environment", {"a\0": ""}),
                           ("environment", {"a": "\0"}), ("environment", {"": "x"}),
                           ("environment", {"a=b": "x"}), ("environment", {"=": ""})):
            yield f"{key} {value!r}", invalid, {key: value}
        for key in ("columns", "rows"):
            for size, word in ((1, None), (1000, None), (0, invalid), (1001, invalid), (-1, invalid),
                               (2 ** 32 + 80, invalid), (2 ** 63 - 1, invalid)):
                yield f"{size} {key}", word, {key: size}
        for seconds, word in ((0, None), (-0.001, invalid)):
            policy = {**POLICY, "failureMinimumSeconds": seconds}
            yield f"policy of {seconds} s", word, {"reminderPolicy": policy}

    def test_a_launch_that_breaks_a_rule_leaves_nothing_behind(self):
        begin = self.client.request("list")["eventHead"]["sequence"]
        good = 0
        for what, word, changes in self.rules():
            with self.subTest(what):
                reply = self.client.request("create", launch=launch(**{"arguments": ["-c", ":"], **changes}))
                if word:
                    self.refuse(word, reply)
                    self.assertEqual([], self.client.request("list")["sessions"])
                    continue
                info = self.accept(reply)["session"]
                self.accept(self.client.request("close", sessionID=info["id"], generation=info["generation"],
                                                controlEpoch=info["controlEpoch"]))


if __name__ == "__main__":
    unittest.main()
