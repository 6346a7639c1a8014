"""Agents in sessions, followed through recorded payloads of their hooks and through reports."""

import concurrent.futures
import json
import os
import shutil

from agent_case import SESSION, AgentCase, wait_until


def claude(event, **fields):
    return json.dumps({"session_id": SESSION, "transcript_path": "/home/u/t.jsonl", "cwd": "/home/u",
                       "permission_mode": "default", "hook_event_name": event, **fields})


def codex(event, turn="t-1", **fields):
    return json.dumps({"session_id": SESSION, "turn_id": turn, "transcript_path": None, "cwd": "/home/u", "model": "m",
                       "permission_mode": "default", "hook_event_name": event, **fields})


def notified(turn):
    return json.dumps({"type": "agent-turn-complete", "thread-id": SESSION, "turn-id": turn, "cwd": "/home/u",
                       "input-messages": ["go"], "last-assistant-message": "done"})


class Hooks(AgentCase):
    def follow(self, kind, steps):
        for payload, state, attention in steps:
            if isinstance(payload, tuple):
                self.agent("hook", kind, *payload)
            else:
                self.agent("hook", kind, given=payload)
            self.assertEqual((state, attention), (self.state(), self.attention()), payload)

    def test_a_day_of_claude(self):
        working, done = "claude working", "claude idle completed"
        self.follow("claude", [
            (claude("SubagentStop"), None, []),
            (claude("SessionStart", source="startup"), "claude unknown", []),
            (claude("UserPromptSubmit", prompt="go"), working, []),
            (claude("PermissionRequest", tool_name="Bash"), "claude blocked approval", ["approval"]),
            (claude("PostToolUse", tool_name="Bash", tool_response="x" * 300000), working, []),
            (claude("PreToolUse", tool_name="AskUserQuestion"), "claude blocked question", ["question"]),
            (claude("Stop", stop_hook_active=False), done, ["completed"]),
            (claude("PostToolUse", tool_name="Bash"), done, ["completed"]),
            (claude("UserPromptSubmit", prompt="more"), working, []),
            (claude("StopFailure"), "claude idle failed", ["failed"]),
            (claude("SessionEnd", reason="logout"), "claude exited failed", ["failed"]),
            (claude("SessionStart", source="resume"), "claude unknown", []),
        ])

    def test_a_day_of_codex(self):
        self.follow("codex", [
            ((notified("t-0"),), "codex idle completed", ["completed"]),
            (codex("UserPromptSubmit"), "codex working", []),
            (codex("PermissionRequest", tool_name="shell"), "codex blocked approval", ["approval"]),
            (codex("PostToolUse"), "codex working", []),
            ((notified("t-0"),), "codex working", []),
            (codex("Stop"), "codex idle completed", ["completed"]),
            ((notified("t-1"),), "codex idle completed", ["completed"]),
        ])

    def test_an_agent_ends_with_the_command_that_runs_it(self):
        self.accept(self.session.request("close"))
        self.start_session(r"printf '\033]777;Velotide;start=636f646578\007'; read line; "
                           r"printf '\033]777;Velotide;end=0\007'; exec cat")
        wait_until(lambda: self.session.request("getAgentState")["session"].get("commands"), "the command")
        self.agent("hook", "codex", notified("t-1"))
        self.session.input(b"\n")
        wait_until(lambda: self.state() == "codex exited completed", "the end of the agent")

    def test_sixteen_at_once_keep_their_sequence(self):
        with concurrent.futures.ThreadPoolExecutor(16) as pool:
            for call in [pool.submit(self.agent, "hook", "claude", given=claude("PreToolUse", tool_name="Bash"))
                         for _ in range(16)]:
                call.result()
        [line] = self.lines("agents")
        self.assertEqual(("working", 16), (line["agent"]["activity"], line["agent"]["reportSequence"]))
        bound = [event for event in self.lines("events") if event["kind"] == "agentChanged"]
        self.assertEqual(["bound", "reported"], [event["agent"]["reason"] for event in bound])

    def test_undocumented_input_is_told_and_changes_nothing(self):
        self.agent("hook", "claude", given=claude("UserPromptSubmit"))
        for words, given in [(("claude",), ""), (("claude",), "{"), (("claude",), "[" * 100000),
                             (("claude",), claude("Notification")), (("claude",), json.dumps({"session_id": SESSION})),
                             (("claude",), claude("Stop", session_id=7)), (("codex", "{}"), ""), (("codex",), "x"),
                             (("tesseral",), claude("Stop")), (("nobody",), ""), ((), "")]:
            self.agent("hook", *words, given=given, status=1, says="velotide: ")
        self.assertEqual("claude working", self.state())

    def test_the_next_prompt_takes_a_lost_binding_back(self):
        self.agent("hook", "claude", given=claude("UserPromptSubmit"))
        self.accept(self.session.request("bindAgent", agentKind="codex"))
        self.agent("hook", "claude", given=claude("PostToolUse"), status=1, says="no longer holds")
        self.agent("hook", "claude", given=claude("PostToolUse"))
        self.assertEqual("codex unknown", self.state())
        self.agent("hook", "claude", given=claude("UserPromptSubmit"))
        self.assertEqual("claude working", self.state())


class Reports(AgentCase):
    def test_every_kind_binds_reports_and_leaves(self):
        for kind in ("claude", "codex", "tesseral"):
            self.agent("report", "working", status=1, says="No agent is bound")
            self.agent("bind", kind)
            self.agent("report", "blocked", "question", "--agent-session", SESSION, "--task", "build/7")
            self.assertEqual((f"{kind} blocked question", ["question"]), (self.state(), self.attention()))
            self.assertIn("task build/7", self.ask("attention"))
            for words in (("blocked",), ("idle", "approval"), ("working", "completed"), ("sleeping",),
                          ("idle", "--task", "x"), ("idle", "--agent-session", SESSION, "--task", "a b")):
                self.agent("report", *words, status=1, says="velotide: ")
            self.agent("report", "idle", "failed")
            self.agent("exit")
            self.assertEqual((f"{kind} exited failed", ["failed"]), (self.state(), self.attention()))
            self.ask("ack", "--all")
            self.assertEqual([], self.attention())

    def test_outside_a_session_all_is_silent_and_well(self):
        calls = [("bind", "claude"), ("report", "working"), ("exit",), ("hook", "claude"), ("hook", "codex", "{")]
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
                            (lambda: write(json.dumps(forged)), "no longer holds")]:
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
