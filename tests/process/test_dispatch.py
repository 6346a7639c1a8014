"""What each action answers, refuses, remembers and publishes."""

import os
import pathlib
import re
import unittest

from runtime_process import FEATURES, REQUIRED, RuntimeCase, encode, launch, new_id, protocol_date, wait_until

POLICY = {"bells": True, "commandFailures": True, "longCommandCompletion": True, "processExits": False,
          "longCommandSeconds": 30, "failureMinimumSeconds": 5}
INFO = {"id", "revision", "pid", "generation", "controlEpoch", "directory", "running", "columns", "rows",
        "outputOffset", "nextInputSequence", "outputRevision", "commands", "reminderPolicy"}
SESSION_ACTIONS = ["read", "subscribe", "inspectInput", "input", "resize", "close", "restartExited",
                   "acquireControl", "renewControl", "releaseControl", "bindAgent", "reportAgent",
                   "getAgentState", "configureReminders"]
SLEEP = "exec sleep 30"
STUBBORN = "trap '' HUP; echo ready; exec sleep 30"


class Answers(RuntimeCase):
    def test_hello_needs_no_token_but_every_request_this_protocol_version(self):
        for token in (None, "", "wrong", self.runtime.capability):
            reply = self.accept(self.client.request("hello", capability=token))
            self.assertEqual(REQUIRED | {"features"}, reply.keys())
            self.assertEqual((FEATURES, "1.257.0-rc3"), (reply["features"], reply["version"]))
        for version in (2, 4, 0, -3, 9223372036854775807):
            for action, token in (("hello", None), ("list", ""), ("shutdownIfEmpty", None)):
                reply = self.client.request(action, protocolVersion=version, capability=token)
                self.assertEqual("incompatible_protocol", reply["error"])
                self.assertEqual(REQUIRED | {"features", "error"}, reply.keys())

    def test_each_answer_carries_exactly_its_fields(self):
        session, state = self.client.create(SLEEP), {"session", "foregroundPID"}
        output = state | {"data", "cursor", "latestOffset", "hasGap", "attention"}
        typed = {"data": encode(b"x"), "source": "human", "inputSequence": 1}
        for action, fields, expected in (
                ("list", {}, {"sessions"}), ("listAttention", {}, {"attention"}),
                ("readEvents", {}, {"events"}), ("diagnostics", {}, {"disconnects", "pendingWaits"}),
                ("read", {}, output), ("subscribe", {}, output),
                ("inspectInput", {}, state | {"echoEnabled"}), ("input", typed, state | {"echoEnabled"}),
                ("resize", {"columns": 1, "rows": 1000}, state), ("getAgentState", {}, state | {"attention"}),
                ("configureReminders", {"reminderPolicy": {**POLICY, "bells": False}}, state),
                ("acquireControl", {"owner": "me"}, state), ("renewControl", {"owner": "me"}, state),
                ("releaseControl", {}, state), ("close", {}, {"session"})):
            with self.subTest(action):
                reply = self.accept(session.request(action, **fields))
                self.assertEqual(REQUIRED | {"features", "eventHead"} | expected, reply.keys())
                for key in {"attention", "disconnects"} & expected:
                    self.assertEqual([], reply[key])
                self.assertEqual(session.info["pid"], reply.get("foregroundPID", session.info["pid"]))
        self.assertTrue(reply["session"]["running"])

    def test_sessions_are_listed_whole_and_by_their_upper_case_ids(self):
        given = ["ffffffff-0000-4000-8000-000000000000", "0a000000-0000-4000-8000-00000000000F",
                 "B0000000-0000-4000-8000-000000000000", None]
        made = [self.client.create(SLEEP, sessionID=one, directory="/tmp").info for one in given]
        self.assertEqual([one.upper() for one in given[:3]], [info["id"] for info in made[:3]])
        listed = self.client.request("list")["sessions"]
        self.assertEqual(sorted(info["id"] for info in made), [info["id"] for info in listed])
        self.assertEqual([INFO] * 4, [info.keys() for info in listed])
        self.assertEqual(8, len({info[key] for info in made for key in ("generation", "controlEpoch")}))
        self.assertEqual([1, 1, 0, 0, True, 80, 24, "/tmp", [], POLICY], [made[0][key] for key in (
            "revision", "nextInputSequence", "outputOffset", "outputRevision", "running", "columns", "rows",
            "directory", "commands", "reminderPolicy")])

    def test_every_session_action_needs_its_session_then_its_generation(self):
        session = self.client.create(SLEEP)
        for action in SESSION_ACTIONS:
            with self.subTest(action):
                self.refuse("unavailable", session.request(action, sessionID=None))
                self.refuse("unavailable", session.request(action, sessionID=new_id(), generation=None))
                for wrong in (None, new_id()):
                    self.refuse("generation_changed", session.request(action, generation=wrong, controlEpoch=None))
        for action in ("input", "close", "restartExited", "acquireControl", "renewControl", "releaseControl"):
            for wrong in (None, new_id()):
                self.refuse("control_changed", session.request(action, controlEpoch=wrong))

    def test_each_precondition_has_its_word(self):
        session = self.client.create(SLEEP)
        head = self.client.request("list")["eventHead"]
        for word, action, fields in (
                ("resource_limit", "create", {"sessionID": session.info["id"]}),
                ("invalid_request", "create", {"launch": launch("true")}),
                ("invalid_request", "restartExited", {"launch": launch("true")}),
                ("control_owned", "shutdownIfEmpty", {}),
                ("invalid_request", "acknowledgeAttention", {"attentionID": new_id()}),
                ("invalid_request", "acknowledgeAttention", {"attentionVersion": 1}),
                ("notFound", "acknowledgeAttention", {"attentionID": new_id(), "attentionVersion": 1}),
                ("app_restarted", "readEvents", {"eventAfter": {"appEpoch": new_id(), "sequence": 10 ** 19}}),
                ("future_cursor", "readEvents", {"eventAfter": {**head, "sequence": head["sequence"] + 100}}),
                ("generation_changed", "read", {"after": {"generation": new_id(), "offset": 99}}),
                ("future_cursor", "subscribe", {"after": session.cursor(1)}),
                ("invalid_request", "configureReminders", {}),
                ("invalid_request", "configureReminders",
                 {"reminderPolicy": {**POLICY, "longCommandSeconds": -1}})):
            with self.subTest(f"{action} {fields}"):
                self.refuse(word, session.request(action, **fields))
        self.assertEqual(1, session.request("read")["session"]["revision"])


class Replays(RuntimeCase):
    def test_a_repeated_request_is_answered_from_memory_byte_for_byte(self):
        exited = self.client.create("exit 3")
        exited.finish()
        session = self.client.create("stty raw -echo; printf R; exec cat")
        session.expect(b"R")
        for target, action, fields in (
                (session, "create", {"sessionID": new_id(), "launch": launch(SLEEP)}),
                (session, "input", {"data": encode(b"once."), "source": "human", "inputSequence": 1}),
                (session, "resize", {"columns": 90, "rows": 30}),
                (session, "configureReminders", {"reminderPolicy": {**POLICY, "longCommandSeconds": 0.5}}),
                (session, "acquireControl", {"owner": "me"}), (session, "renewControl", {"owner": "me"}),
                (session, "releaseControl", {}), (exited, "restartExited", {"launch": launch(SLEEP)}),
                (exited, "close", {})):
            with self.subTest(action):
                quoted = {"sessionID": target.info["id"], "generation": target.info["generation"],
                          "controlEpoch": target.info["controlEpoch"], **fields, "id": new_id()}
                first = self.accept(self.client.request(action, **quoted))
                remembered = re.sub(rb'"eventHead":\{[^}]*\},?', b"", first.raw).replace(b",}", b"}")
                self.assertIn("eventHead", first)
                for client in (self.client, self.connect()):
                    self.assertEqual(remembered, client.request(action, **quoted).raw)
                self.refuse("invalid_request", self.client.request("list", id=quoted["id"]))
                self.refuse("invalid_capability", self.client.request(action, **{**quoted, "capability": ""}))
                if action != "create":
                    target.info = first["session"]
        session.input(b"twice.", inputSequence=1)
        self.assertEqual(b"Ronce.twice.", session.expect(b"twice."))

    def test_refusals_and_reads_are_not_remembered(self):
        session, identifier = self.client.create("stty raw -echo; printf R; exec cat"), new_id()
        session.expect(b"R")
        self.refuse("control_changed", session.input(b"x", id=identifier, inputSequence=7))
        self.accept(session.input(b"x", id=identifier))
        first = session.request("read")
        session.expect(b"x")
        again = session.request("read", id=first["id"])
        self.assertEqual((b"Rx", True), (again.output, "eventHead" in again))

    def test_1024_newer_answers_push_the_oldest_out_of_memory(self):
        session = self.client.create(SLEEP)
        first = session.request("resize", columns=1, rows=1)
        for turn in range(1023):
            session.request("resize", columns=2, rows=1 + turn % 1000)
        self.assertNotIn("eventHead", session.request("resize", id=first["id"], columns=1, rows=1))
        session.request("resize", columns=3, rows=3)
        again = session.request("resize", id=first["id"], columns=1, rows=1)
        self.assertEqual(first["session"]["revision"] + 1025, again["session"]["revision"])


class Events(RuntimeCase):
    def cursor(self, sequence):
        return {"appEpoch": self.client.request("hello")["serviceEpoch"], "sequence": sequence}

    def test_a_session_leaves_its_story_in_the_log(self):
        self.assertEqual({"events": [], "nextCursor": self.cursor(0), "hasMore": False},
                         self.client.request("readEvents")["events"])
        session = self.client.create("printf bye; exit 7")
        self.assertEqual(b"bye", session.finish())
        head = session.request("close")["eventHead"]
        batch = self.client.request("readEvents", eventAfter=self.cursor(0))["events"]
        for event in batch["events"]:
            self.assertLess(abs(event.pop("occurredAt") - protocol_date()), 60)
        own = [{"kind": "registered", "location": "mainWindow"}, {"kind": "outputChanged", "revision": 1},
               {"kind": "processExited"}, {"kind": "closed"}]
        events = [{"cursor": self.cursor(number), "tabID": session.info["id"], **fields}
                  for number, fields in enumerate(own, 1)]
        self.assertEqual({"events": events, "nextCursor": head, "hasMore": False}, batch)
        some = self.client.request("readEvents", eventAfter=self.cursor(1), eventLimit=2)["events"]
        self.assertEqual({"events": [2, 3], "nextCursor": self.cursor(3), "hasMore": True},
                         {**some, "events": [event["cursor"]["sequence"] for event in some["events"]]})


class Lifecycle(RuntimeCase):
    def test_an_exited_session_restarts_under_its_id(self):
        session = self.client.create("exit 3")
        session.finish()
        old = session.info
        self.refuse("invalid_request", session.request("restartExited"))
        missing = launch(executable="/nowhere/to/be/found")
        self.refuse("process_launch_failed", session.request("restartExited", launch=missing))
        self.assertEqual(old, session.request("read")["session"])
        self.accept(session.request("restartExited", launch=launch(f"echo again; {SLEEP}")))
        self.assertEqual((old["id"], True), (session.info["id"], session.info["running"]))
        for key in ("generation", "controlEpoch", "pid"):
            self.assertNotEqual(old[key], session.info[key])
        session.seen = b""
        session.expect(b"again\r\n")
        self.refuse("generation_changed", session.request("read", generation=old["generation"]))

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
        wait_until(lambda: self.client.request("create", launch=launch("true"))["ok"], "the retired child makes room")

    def test_shutdown_writes_the_last_answers_before_the_process_ends(self):
        sent = [self.client.text(action) for action in
                ("shutdownIfEmpty", "create", "shutdownIfEmpty", "diagnostics")]
        self.client.send(b"".join(raw for _, raw in sent))
        replies = [self.client.frame() for _ in sent]
        self.assertEqual([identifier for identifier, _ in sent], [one["id"] for one in replies])
        self.assertEqual([None, "unavailable", None, None], [one.get("error") for one in replies])
        self.client.read_to_end()
        self.assertEqual((0, b""), (self.runtime.process.wait(20), self.runtime.errors()))


class Launches(RuntimeCase):
    def rules(self):
        """Yields (changes to a launch that works, the word that refuses it or None)."""
        directory, invalid, failed = self.runtime.directory, "invalid_request", "process_launch_failed"
        pathlib.Path(directory, "plain").write_text("not a program")
        deep = directory + "/." * ((1023 - len(directory)) // 2)
        deep += "/" * (1023 - len(deep))
        bulk = 65536 - len("/bin/sh" "/" "-c" ":" "é=ü".encode())
        for key, value, word in (
                ("executable", "bin/sh", invalid), ("executable", "", invalid),
                ("executable", directory + "/missing", failed), ("executable", directory + "/plain", failed),
                ("directory", "tmp", invalid), ("directory", directory + "/missing", failed),
                ("directory", directory + "/plain", failed), ("directory", deep, None),
                ("directory", deep + "/", invalid), ("executableName", "", invalid),
                ("executable", "/bin/sh\0", invalid), ("directory", "/\0", invalid),
                ("executableName", "\0", invalid), ("arguments", ["-c", ":\0"], invalid),
                ("environment", {"a\0": ""}, invalid), ("environment", {"a": "\0"}, invalid),
                ("environment", {"": "x"}, invalid), ("environment", {"a=b": "x"}, invalid),
                ("environment", {"=": ""}, invalid)):
            yield {key: value}, word
        for extra, word in ((0, None), (1, invalid)):
            yield {"arguments": ["-c", ":"] + [""] * (254 + extra)}, word
            yield {"environment": {f"k{turn}": "" for turn in range(512 + extra)}}, word
            text = "é" * (bulk // 2) + "x" * (bulk % 2 + extra)
            yield {"arguments": ["-c", ":", text], "environment": {"é": "ü"}}, word
        for size, word in ((1, None), (1000, None), (0, invalid), (1001, invalid), (-1, invalid),
                           (2 ** 32 + 80, invalid), (2 ** 63 - 1, invalid)):
            yield {"columns": size}, word
            yield {"rows": size}, word
        for seconds, word in ((0, None), (-0.001, invalid)):
            yield {"reminderPolicy": {**POLICY, "failureMinimumSeconds": seconds}}, word

    def test_a_launch_that_breaks_a_rule_leaves_nothing_behind(self):
        for changes, word in self.rules():
            with self.subTest(f"{changes}"[:200]):
                changes = {"arguments": ["-c", ":"], **changes}
                if word is None:
                    self.accept(self.client.create(**changes).request("close"))
                    continue
                self.refuse(word, self.client.request("create", launch=launch(**changes)))
                self.assertEqual([], self.client.request("list")["sessions"])


if __name__ == "__main__":
    unittest.main()
