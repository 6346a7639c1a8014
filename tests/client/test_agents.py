"""Agents followed through recorded payloads of their hooks and through reports, and what the client shows of them."""

import concurrent.futures
import functools
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess

from client_case import VELOTIDE, ClientCase, process

SESSION = "3F2504E0-4F89-11D3-9A0C-0305E82C3301"


def hook(event, detail=None, **fields):
    named = {"notification_type" if event == "Notification" else "tool_name": detail} if detail else {}
    return json.dumps({"session_id": SESSION, "transcript_path": "/home/u/t.jsonl", "cwd": "/home/u",
                       "permission_mode": "default", "hook_event_name": event, **named, **fields})


codex = functools.partial(hook, turn_id="t-1", transcript_path=None, model="m")


def notified(turn, kind="agent-turn-complete"):
    return json.dumps({"type": kind, "thread-id": SESSION, "turn-id": turn, "cwd": "/home/u",
                       "input-messages": ["go"], "last-assistant-message": "done"})


class AgentCase(ClientCase):
    """A session, the helpers that an agent in it calls, and the client outside."""

    def setUp(self):
        super().setUp()
        self.start_session()

    def start_session(self, script="exec cat"):
        self.session = self.client.create(script)
        [context] = pathlib.Path(self.runtime.root, "native-tools/native-agent-contexts").iterdir()
        self.records = pathlib.Path(self.runtime.root, "native-tools/agent-records")
        self.record = self.records / context.name
        self.inside = {"PATH": "/usr/bin:/bin", "VELOTIDE_AGENT_CONTEXT": str(context)}

    def ask(self, *words):
        status, output, errors = self.velotide(*words)
        self.assertEqual((0, ""), (status, errors), words)
        return output

    def lines(self, *words):
        return [json.loads(line) for line in self.ask(*words, "--json").splitlines()]

    def agent(self, *words, given="", status=0, says=""):
        """Calls `velotide agent` as a hook does."""
        done = subprocess.run([VELOTIDE, "agent", *words], input=given, capture_output=True, text=True, timeout=60,
                              env=self.inside)
        self.assertEqual((status, ""), (done.returncode, done.stdout), (words, given, done.stderr))
        self.assertTrue(says in done.stderr if says else not done.stderr, done.stderr)

    def state(self):
        [line] = self.lines("agents")
        if line == []:
            return None
        self.assertEqual(self.session.info["id"], line["session"])
        return " ".join(line["agent"][key] for key in ("kind", "activity", "blockReason", "lastResult")
                        if key in line["agent"])

    def attention(self):
        return [item["kind"] for item in self.lines("attention") if item]


class Hooks(AgentCase):
    def follow(self, kind, steps):
        """Each payload, the state that it leads to, and attention for the block or result that the state names."""
        for payload, state in steps:
            given = {"given": payload} if isinstance(payload, str) else {}
            self.agent("hook", kind, *([] if given else payload), **given)
            self.assertEqual((state and f"{kind} {state}", (state or "").split()[1:]),
                             (self.state(), self.attention()), payload)

    def test_a_day_of_claude(self):
        working, approval, question, done = "working", "blocked approval", "blocked question", "idle completed"
        self.follow("claude", [
            (hook("SubagentStop"), None), (hook("SessionEnd"), None),
            (hook("SessionStart", source="startup"), "unknown"), (hook("UserPromptSubmit", prompt="a\0b"), working),
            (hook("PermissionRequest", "Bash"), approval), (hook("PreToolUse", "Bash", agent_id="a1"), approval),
            (hook("Notification", "idle_prompt"), approval), (hook("PostToolUseFailure", "Bash"), approval),
            (hook("SomethingNew"), approval), (hook("PermissionDenied", "Bash"), working),
            (hook("Notification", "permission_prompt"), approval),
            (hook("PostToolUse", "Bash", tool_response="x" * 300000), working),
            (hook("PreToolUse", "AskUserQuestion"), question), (hook("PostToolUse", "AskUserQuestion"), working),
            (hook("Notification", "agent_needs_input"), question),
            (hook("PreToolUse", "Bash", tool_input={"a": [1]}), working), (hook("Elicitation"), question),
            (hook("Stop", stop_hook_active=False), done),
            (hook("PostToolUse", "Bash"), done), (hook("PermissionRequest", "Bash"), done),  # too late
            (hook("UserPromptSubmit", prompt="more"), working), (hook("StopFailure"), "idle failed"),
            (hook("SessionEnd", reason="logout"), "exited failed"),
            (hook("PostToolUse", "Bash"), "exited failed"), (hook("SessionEnd"), "exited failed"),  # nor revived
            (hook("SessionStart", source="resume"), "unknown")])

    def test_a_day_of_codex(self):
        working, approval, done = "working", "blocked approval", "idle completed"
        self.follow("codex", [
            (codex("UserPromptSubmit", session_id="no UUID"), working),
            (codex("PermissionRequest", "shell", session_id="no UUID"), approval),
            # Another agent takes over once it is spoken to, and not before.
            (codex("PostToolUse", "shell"), approval), (codex("Stop"), approval),
            (codex("UserPromptSubmit", turn_id="no task"), working),
            (codex("PermissionRequest", "shell", session_id="no UUID"), working),
            (codex("UserPromptSubmit"), working), (codex("PermissionRequest", "shell"), approval),
            ([notified("t-1", "approval-requested")], approval), (codex("PreToolUse", "shell"), working),
            (codex("PermissionRequest", "shell"), approval), (codex("PostToolUse", "shell"), working),
            ([notified("t-0")], working), (codex("PermissionRequest", turn_id="t-0"), working), (codex("Stop"), done),
            ([notified("t-1")], done), (codex("SessionEnd"), done), (codex("SessionStart"), done),
            # One at rest stands in nobody's way.
            (codex("PermissionRequest", "shell", session_id="no UUID"), approval)])

    def test_an_agent_ends_with_the_command_that_runs_it_and_returns_with_another(self):
        def commands():
            return len(self.session.request("getAgentState")["session"].get("commands", []))
        self.accept(self.session.request("close"))
        self.start_session(r"while printf '\033]777;Velotide;start=636f646578\007'; read line; do "
                           r"printf '\033]777;Velotide;end=148\007'; read line; done")
        ends = [("codex", codex("PermissionRequest", "shell"), codex("PostToolUse"), "working"),
                ("codex", codex("SessionStart"), codex("SessionStart"), "unknown"),
                ("codex", notified("t-1"), notified("t-2"), "idle completed"),
                ("claude", hook("SessionStart"), hook("Notification", "permission_prompt"), "blocked approval")]
        for count, (kind, first, then, state) in enumerate(ends, 1):
            process.wait_until(lambda: commands() == count, "the command")
            self.agent("hook", kind, given=first)
            self.session.input(b"\n")
            process.wait_until(lambda: "exited" in self.state(), "the end of the agent")
            if state == "working":  # a tool's end comes late
                self.agent("hook", kind, given=codex("PostToolUse"), status=1, says="no longer holds")
                self.agent("hook", kind, given=codex("PostToolUse"))
            self.session.input(b"\n")
            process.wait_until(lambda: commands() == count + 1, "the next command")
            self.agent("hook", kind, given=then)
            self.assertEqual(f"{kind} {state}", self.state())

    def test_sixteen_at_once_keep_their_sequence(self):
        with concurrent.futures.ThreadPoolExecutor(16) as pool:
            list(pool.map(lambda _: self.agent("hook", "claude", given=hook("PreToolUse", "Bash")), range(16)))
        [line] = self.lines("agents")
        self.assertEqual(("working", 16), (line["agent"]["activity"], line["agent"]["reportSequence"]))
        bound = [event for event in self.lines("events") if event["kind"] == "agentChanged"]
        self.assertEqual(["bound", "reported"], [event["agent"]["reason"] for event in bound])

    def test_undocumented_input_is_told_and_changes_nothing(self):
        self.agent("hook", "claude", given=hook("UserPromptSubmit"))
        shapes = ["", "{", "[]", "7", "[" * 100000, hook("Stop", session_id=7), hook(7), '{"hook_event_name":"Stop"}',
                  json.dumps({"session_id": SESSION}), '{"type":"agent-turn-complete"}']
        for words, given in [*(([kind], shape) for kind in ("claude", "codex") for shape in shapes),
                             (["claude"], hook("Notification")), (["codex", "{}"], ""),
                             (["claude"], hook("Stop", session_id="s" * 1025)),
                             (["tesseral"], hook("Stop")), (["nobody"], ""), ([], "")]:
            self.agent("hook", *words, given=given, status=1, says="velotide: ")
        self.assertEqual("claude working", self.state())
        self.agent("report", "idle", "--agent-session", SESSION, "--task", "a b", status=1, says="velotide: ")
        self.agent("hook", "claude", given=hook("PermissionRequest", "Bash"))  # nothing ended
        self.assertEqual("claude blocked approval", self.state())

    def test_the_next_prompt_takes_a_lost_binding_back(self):
        self.agent("hook", "claude", given=hook("UserPromptSubmit"))
        self.accept(self.session.request("bindAgent", agentKind="codex"))
        self.agent("hook", "claude", given=hook("PostToolUse"), status=1, says="no longer holds")
        self.agent("hook", "claude", given=hook("UserPromptSubmit"))
        self.assertEqual("claude working", self.state())

    def test_an_agent_not_heard_of_for_two_minutes_stands_in_no_others_way(self):
        self.agent("hook", "claude", given=hook("UserPromptSubmit"))
        for passes, state in ((110, "claude working"), (10, "codex blocked approval")):
            record = json.loads(self.record.read_text())
            self.record.write_text(json.dumps({**record, "reportedAt": record["reportedAt"] - passes}))
            self.agent("hook", "codex", given=codex("PermissionRequest", "shell"))
            self.assertEqual(state, self.state())


class Reports(AgentCase):
    def test_every_kind_binds_reports_and_leaves(self):
        for kind in ("claude", "codex", "tesseral"):
            self.agent("report", "working", status=1, says="No agent is bound")
            self.agent("bind", kind)
            self.agent("report", "blocked", "question", "--agent-session", SESSION, "--task", "build/7")
            self.assertEqual((f"{kind} blocked question", ["question"]), (self.state(), self.attention()))
            self.assertIn("task build/7", self.ask("attention"))
            for words in (["blocked"], ["idle", "approval"], ["working", "completed"], ["sleeping"],
                          ["idle", "--task", "x"], ["idle", "--agent-session", SESSION, "--task", "a b"]):
                self.agent("report", *words, status=1, says="velotide: ")
            self.agent("report", "idle", "failed")
            self.agent("exit")
            self.assertEqual((f"{kind} exited failed", ["failed"]), (self.state(), self.attention()))
            self.ask("ack", "--all")
            self.assertEqual([], self.attention())

    def test_outside_a_session_all_is_silent_and_well(self):
        calls = [["bind", "claude"], ["report", "working"], ["exit"], ["hook", "claude"], ["hook", "codex", "{"]]
        context = self.inside.pop("VELOTIDE_AGENT_CONTEXT")
        for elsewhere in (None, "", "/nowhere", context + ".gone"):
            self.inside.update({} if elsewhere is None else {"VELOTIDE_AGENT_CONTEXT": elsewhere})
            for words in calls:
                self.agent(*words, given="{")
        self.inside["VELOTIDE_AGENT_CONTEXT"] = context
        kept = shutil.copy(context, self.runtime.directory)
        self.runtime.kill()
        shutil.copy(kept, context)  # as a service that was killed leaves it
        for words in calls[:3]:
            self.agent(*words)

    def test_what_others_could_have_written_is_not_believed(self):
        self.agent("bind", "claude")
        own = self.record.read_text()
        elsewhere = shutil.copy(self.record, self.runtime.directory)
        forged = json.loads(own)
        forged["grant"]["token"] = SESSION + SESSION

        def write(text, mode=0o600):
            self.record.touch(mode)
            self.record.write_text(text)
        for forge, says in [(lambda: self.record.symlink_to(elsewhere), "not believed"),
                            (lambda: os.mkfifo(self.record, 0o600), "not believed"),
                            (lambda: write(own, 0o644), "not believed"), (lambda: write("{}"), "does not hold"),
                            (lambda: write(""), "does not hold"),
                            (lambda: write(json.dumps(forged)), "no longer holds"),
                            (lambda: self.record.with_suffix(".lock").chmod(0o640), "not believed")]:
            self.record.unlink()
            forge()
            self.agent("report", "working", status=1, says=says)
            self.assertEqual("claude unknown", self.state())
        self.records.chmod(0o755)
        self.agent("bind", "claude", status=1, says="chmod 700")
        os.chmod(self.inside["VELOTIDE_AGENT_CONTEXT"], 0o640)
        self.agent("bind", "claude", status=1, says="not believed")

    def test_records_of_sessions_that_are_gone_are_removed(self):
        self.agent("bind", "claude")
        self.accept(self.session.request("close"))
        self.start_session()
        self.agent("bind", "codex")
        self.assertEqual({self.record.stem}, {path.stem for path in self.records.iterdir()})


class Views(AgentCase):
    def follow(self, *words):
        self.following = self.start(*words, "--follow", "--json")
        self.addCleanup(self.following.communicate)
        self.addCleanup(self.following.kill)
        return map(json.loads, self.following.stdout)

    def test_attention_is_followed_and_acknowledged_by_item_and_session(self):
        changes = self.follow("attention")
        self.agent("bind", "claude")
        self.agent("report", "blocked", "approval")
        item = next(changes)
        self.assertEqual(("approval", 1), (item["kind"], item["version"]))
        self.ask("ack", item["id"][:6].lower())
        seen = next(changes)
        self.assertEqual((2, True), (seen["version"], "readAt" in seen))
        self.assertIn("seen", self.ask("attention"))
        self.agent("report", "idle", "completed")
        self.assertIn("resolvedAt", next(changes))
        self.ask("ack", "--session", self.session.info["id"][:6])
        self.assertEqual("completed", next(changes)["kind"])
        self.assertIn("resolvedAt", next(changes))
        self.assertEqual("[]\n", self.ask("attention", "--json"))
        for words, status, says in [([], 2, "Name the items"), ([item["id"]], 1, "No active item is named"),
                                    ([""], 1, 'is named ""'), (["--session", "", item["id"]], 1, "No session is")]:
            refused = self.velotide("ack", *words)
            self.assertEqual((status, True), (refused[0], says in refused[2]), refused)

    def test_a_change_is_told_with_its_own_time(self):
        following = self.start("attention", "--follow")
        following.stdout.readline()
        self.client.create("printf '\\a'; sleep 1.1; printf '\\a'; exec cat")
        created, updated = (following.stdout.readline()[:19] for _ in range(2))
        following.send_signal(signal.SIGTERM)
        self.assertLess(created, updated)
        self.assertEqual((0, "", ""), self.finish(following))

    def test_events_go_on_behind_a_cursor_and_its_failures_are_told_apart(self):
        shown = self.follow("events")
        self.agent("bind", "claude")
        cursor = next(event for event in shown if "agent" in event)["cursor"]
        epoch, sequence = cursor["appEpoch"], cursor["sequence"]
        self.agent("report", "working")
        [event] = self.lines("events", "--after", f"{epoch}:{sequence}")
        self.assertEqual((sequence + 1, "working"), (event["cursor"]["sequence"], event["agent"]["activity"]))
        for kind in ("claude", "codex") * 600:
            self.accept(self.session.request("bindAgent", agentKind=kind))
        for cursor, status, says in [(f"{epoch}:{sequence}", 1, "no longer held"), (f"{epoch}:99999", 1, "newest is"),
                                     (f"{SESSION}:1", 1, "restarted"), ("x:1", 2, "no cursor"),
                                     (f"{epoch}:", 2, "no cursor")]:
            done = self.velotide("events", "--after", cursor)
            self.assertEqual((status, ""), done[:2])
            self.assertIn(says, done[2])
        self.assertEqual(1024, len(self.lines("events")))
        self.following.send_signal(signal.SIGSTOP)
        self.runtime.kill()
        self.runtime.start()
        self.following.send_signal(signal.SIGCONT)
        self.assertIn("Start again", self.following.communicate(timeout=process.DEADLINE)[1])


class Floods(ClientCase):
    """The client's requests pass through the test, which decides what happens between them."""

    def relay(self, *words):
        """The client, and what passes its next request on, if it has one."""
        root = self.runtime.directory + "/" + "".join(words)
        os.mkdir(root, 0o700)
        shutil.copy(self.runtime.root + "/ui-capability", root)
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(root + "/runtime.sock")
            listener.listen()
            client = self.start(*words, root=root)
            connection = listener.accept()[0]
        connection.settimeout(process.DEADLINE)
        self.addCleanup(connection.close)
        requests = connection.makefile("rb")

        def pass_on():
            if request := requests.readline():
                self.client.send(request)
                connection.sendall(self.client.frame().raw + b"\n")
            return request
        return client, pass_on

    def happen(self, count):
        for kind in ("claude", "codex") * (count // 2):
            self.accept(self.session.request("bindAgent", agentKind=kind))

    def end(self, client, pass_on):
        client.send_signal(signal.SIGTERM)
        while pass_on():
            pass
        return self.finish(client)

    def test_nobody_is_kept_by_what_happens_without_end(self):
        self.session = self.client.create("exec cat")
        for words, sent, count in ((["events", "-f"], signal.SIGINT, 2), (["attention", "-f"], signal.SIGTERM, 2),
                                   (["events"], 0, 300)):
            client, pass_on = self.relay(*words)
            for passed in range(9):
                self.happen(count)
                client.send_signal(sent if passed == 4 else 0)
                if not pass_on():
                    break
            self.assertEqual(0, self.finish(client)[0], words)

    def bells(self, *versions):
        """The items by session, once they have these versions."""
        def items():
            found = {item["tabID"]: item for item in self.client.request("listAttention")["attention"]}
            return sorted(item["version"] for item in found.values()) == sorted(versions) and found
        return process.wait_until(items, "the bells")

    def test_an_item_that_keeps_changing_shields_no_other(self):
        loud = self.client.create("while printf '\\a'; do read x; done")
        self.bells(1)
        self.client.create("printf '\\a'; exec cat")
        self.bells(1, 1)
        client, pass_on = self.relay("ack", "--all")
        for version in range(2, 18):  # eight attempts
            pass_on()
            loud.input(b"\n")
            self.bells(1, version)
        self.assertTrue(pass_on())
        self.assertEqual((1, {loud.info["id"]}), (self.finish(client)[0], set(self.bells(17))))

    def test_dropped_events_are_counted_and_of_dropped_changes_the_sum_is_told(self):
        events, pass_events = self.relay("events", "-f")
        for _ in range(2):  # while the log is empty
            pass_events()
        kept, rings, seen = (self.client.create("printf '\\a'; read x; printf '\\a'; exec cat") for _ in range(3))
        item = self.bells(1, 1, 1)[seen.info["id"]]
        client, pass_on = self.relay("attention", "-f", "--json")
        pass_on()
        self.accept(seen.request("acknowledgeAttention", attentionID=item["id"], attentionVersion=1))
        rings.input(b"\n")
        new = self.client.create("printf '\\a'; exec cat")
        self.bells(1, 1, 2)
        self.session = kept
        self.happen(1100)
        for passes in (pass_on, pass_events, pass_events):
            passes()
        self.assertRegex(self.end(events, pass_events)[2], " [0-9]+ events came faster")
        told = [json.loads(line) for line in self.end(client, pass_on)[1].splitlines()[3:]]
        self.assertEqual([(seen.info["id"], 1, True), (rings.info["id"], 2, False), (new.info["id"], 1, False)],
                         [(item["tabID"], item["version"], "resolvedAt" in item) for item in told])
