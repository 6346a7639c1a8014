"""What each action answers, refuses, remembers and publishes."""

import os
import pathlib
import re
import time

from runtime_process import FEATURES, REQUIRED, RuntimeCase, encode, launch, new_id, wait_until

POLICY = {"bells": True, "commandFailures": True, "longCommandCompletion": True, "processExits": False,
          "longCommandSeconds": 30, "failureMinimumSeconds": 5}
SLEEP = "exec sleep 30"


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
            reply = self.accept(session.request(action, **fields))
            self.assertEqual(REQUIRED | {"features", "eventHead"} | expected, reply.keys())
            self.assertEqual(session.info["pid"], reply.get("foregroundPID", session.info["pid"]))
        self.assertTrue(reply["session"]["running"])

    def test_sessions_are_listed_whole_and_by_their_upper_case_ids(self):
        given = ["ffffffff-0000-4000-8000-000000000000", "0a000000-0000-4000-8000-00000000000F", None]
        made = [self.client.create(SLEEP, sessionID=one, directory="/tmp").info for one in given]
        self.assertEqual([one.upper() for one in given[:2]], [info["id"] for info in made[:2]])
        listed = self.client.request("list")["sessions"]
        self.assertEqual(sorted(info["id"] for info in made), [info["id"] for info in listed])
        self.assertEqual(6, len({info[key] for info in made for key in ("generation", "controlEpoch")}))
        fresh = {"revision": 1, "nextInputSequence": 1, "outputOffset": 0, "outputRevision": 0, "running": True,
                 "columns": 80, "rows": 24, "directory": "/tmp", "commands": [], "reminderPolicy": POLICY}
        for info in listed:
            named = {key: info.pop(key) for key in ("id", "pid", "generation", "controlEpoch")}
            self.assertEqual(fresh, info, named)

    def test_every_session_action_needs_its_session_then_its_generation(self):
        session = self.client.create(SLEEP)
        controlling = ["input", "close", "restartExited", "acquireControl", "renewControl", "releaseControl"]
        for action in controlling + ["read", "subscribe", "inspectInput", "resize", "bindAgent", "reportAgent",
                                     "getAgentState", "configureReminders"]:
            self.refuse("unavailable", session.request(action, sessionID=None))
            self.refuse("unavailable", session.request(action, sessionID=new_id(), generation=None))
            for wrong in (None, new_id()):
                self.refuse("generation_changed", session.request(action, generation=wrong, controlEpoch=None))
        for action in controlling:
            for wrong in (None, new_id()):
                self.refuse("control_changed", session.request(action, controlEpoch=wrong))

    def test_each_precondition_has_its_word(self):
        session = self.client.create(SLEEP)
        for word, action, fields in (
                ("resource_limit", "create", {"sessionID": session.info["id"]}),
                ("invalid_request", "create", {"launch": launch("true")}),
                ("invalid_request", "restartExited", {"launch": launch("true")}),
                ("control_owned", "shutdownIfEmpty", {}),
                ("invalid_request", "acknowledgeAttention", {"attentionID": new_id()}),
                ("notFound", "acknowledgeAttention", {"attentionID": new_id(), "attentionVersion": 1}),
                ("generation_changed", "read", {"after": {"generation": new_id(), "offset": 99}}),
                ("invalid_request", "configureReminders", {}),
                ("invalid_request", "configureReminders",
                 {"reminderPolicy": {**POLICY, "longCommandSeconds": -1}})):
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
        # Neither refusals nor reads are remembered.
        identifier, before = new_id(), session.request("read")
        self.refuse("control_changed", session.input(b"twice.", id=identifier, inputSequence=7))
        self.accept(session.input(b"twice.", id=identifier))
        self.assertEqual(b"Ronce.twice.", session.expect(b"twice."))
        self.assertEqual(b"Ronce.twice.", session.request("read", id=before["id"]).output)

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
        empty = self.client.request("readEvents")["events"]
        self.assertEqual({"events": [], "nextCursor": self.cursor(0), "hasMore": False}, empty)
        session = self.client.create("printf bye; exit 7")
        self.assertEqual(b"bye", session.finish())
        head = session.request("close")["eventHead"]
        batch = self.client.request("readEvents", eventAfter=self.cursor(0))["events"]
        for event in batch["events"]:
            self.assertLess(abs(event.pop("occurredAt") - (time.time() - 978307200)), 60)
        own = [{"kind": "registered", "location": "mainWindow"}, {"kind": "outputChanged", "revision": 1},
               {"kind": "processExited"}, {"kind": "closed"}]
        events = [{"cursor": self.cursor(number), "tabID": session.info["id"], **fields}
                  for number, fields in enumerate(own, 1)]
        self.assertEqual({"events": events, "nextCursor": head, "hasMore": False}, batch)


class Lifecycle(RuntimeCase):
    def test_an_exited_session_restarts_under_its_id_and_drops_its_subscriber(self):
        session, watcher = self.client.create("exit 3"), self.connect()
        session.finish()
        old = session.info
        watcher.request("subscribe", sessionID=old["id"], generation=old["generation"])
        self.refuse("invalid_request", session.request("restartExited"))
        missing = launch(executable="/nowhere/to/be/found")
        self.refuse("process_launch_failed", session.request("restartExited", launch=missing))
        self.assertEqual(old, session.request("read")["session"])
        self.accept(session.request("restartExited", launch=launch(f"echo again; {SLEEP}")))
        self.assertEqual((old["id"], True), (session.info["id"], session.info["running"]))
        for key in ("generation", "controlEpoch", "pid"):
            self.assertNotEqual(old[key], session.info[key])
        session.expect(b"again\r\n")
        watcher.read_to_end()
        drop = self.client.request("diagnostics")["disconnects"][-1]
        self.assertEqual(("subscription_failed", "subscribe", True),
                         (drop["reason"], drop["lastAction"], drop["subscribed"]))

    def test_64_sessions_and_retired_children_are_the_limit(self):
        stubborn = self.client.create("trap '' HUP; echo ready; exec sleep 30")
        stubborn.expect(b"ready")
        for _ in range(63):
            self.client.create(executable="/bin/sleep", arguments=["30"])
        self.refuse("resource_limit", self.client.request("create", launch=launch("true")))
        self.accept(stubborn.request("close"))
        self.assertEqual(63, len(self.client.request("list")["sessions"]))
        self.refuse("resource_limit", self.client.request("create", launch=launch("true")))
        os.kill(stubborn.info["pid"], 9)
        wait_until(lambda: self.client.request("create", launch=launch("true"))["ok"], "the retired child makes room")


class Launches(RuntimeCase):
    def test_a_launch_that_breaks_a_rule_leaves_nothing_behind(self):
        invalid, failed = "invalid_request", "process_launch_failed"
        missing, plain = (os.path.join(self.runtime.directory, name) for name in ("missing", "plain"))
        pathlib.Path(plain).write_text("not a program")
        deep = "/tmp" + "/." * 509 + "/"  # 1,023 bytes
        left = 65536 - len("/bin/sh" "/" "-c" ":" "PATH=/usr/bin:/bin")
        bulk = "é" * (left // 2) + "x" * (left % 2)
        entries = {f"k{turn}": "" for turn in range(512)}
        for word, key, values in (
                (failed, "executable", [missing, plain]), (failed, "directory", [missing, plain]),
                (invalid, "executable", ["bin/sh", "", "/bin/sh\0"]), (invalid, "executableName", ["", "\0"]),
                (None, "directory", [deep]), (invalid, "directory", ["tmp", "/\0", deep + "/"]),
                (None, "arguments", [["-c", ":"] + [""] * 254, ["-c", ":", bulk]]),
                (invalid, "arguments", [["-c", ":\0"], [""] * 257, ["-c", ":", bulk + "x"]]),
                (None, "environment", [entries]), (invalid, "environment", [
                    {"a\0": ""}, {"a": "\0"}, {"": "x"}, {"a=b": "x"}, {**entries, "a": ""}]),
                (None, "columns", [1, 1000]), (None, "rows", [1, 1000]),
                (invalid, "columns", [0, 1001, -1, 2 ** 32 + 80, 2 ** 63 - 1]), (invalid, "rows", [0, 1001, -1]),
                (None, "reminderPolicy", [{**POLICY, "failureMinimumSeconds": 0}]),
                (invalid, "reminderPolicy", [{**POLICY, "failureMinimumSeconds": -0.001}])):
            for value in values:
                changes = {"arguments": ["-c", ":"], key: value}
                if word is None:
                    self.accept(self.client.create(**changes).request("close"))
                    continue
                self.refuse(word, self.client.request("create", launch=launch(**changes)))
                self.assertEqual([], self.client.request("list")["sessions"])
