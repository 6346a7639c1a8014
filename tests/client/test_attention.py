"""Attention and events as the client shows, follows and acknowledges them."""

import json
import subprocess

from agent_case import CLIENT, SESSION, AgentCase, wait_until


class Views(AgentCase):
    def follow(self, *words):
        process = subprocess.Popen([CLIENT, "--root", self.runtime.root, *words], stdout=subprocess.PIPE, text=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process.stdout

    def test_attention_is_followed_and_acknowledged_by_item_and_session(self):
        changes = self.follow("attention", "--follow", "--json")
        self.agent("bind", "claude")
        self.agent("report", "blocked", "approval")
        item = json.loads(changes.readline())
        self.assertEqual(("approval", 1), (item["kind"], item["version"]))
        self.ask("ack", item["id"][:6].lower())
        seen = json.loads(changes.readline())
        self.assertEqual((2, True), (seen["version"], "readAt" in seen))
        self.assertIn("seen", self.ask("attention"))
        self.agent("report", "idle", "completed")
        self.assertIn("resolvedAt", json.loads(changes.readline()))
        self.ask("ack", "--session", self.session.info["id"][:6])
        self.assertEqual("completed", json.loads(changes.readline())["kind"])
        self.assertIn("resolvedAt", json.loads(changes.readline()))
        self.assertEqual("[]\n", self.ask("attention", "--json"))
        for words, status in [(("ack",), 2), (("ack", item["id"]), 1)]:
            self.assertEqual(status, self.run_client("--root", self.runtime.root, *words).returncode)

    def test_events_go_on_behind_a_cursor_and_its_failures_are_told_apart(self):
        shown = self.follow("events", "--follow", "--json")
        self.agent("bind", "claude")
        first = wait_until(lambda: next((event for event in map(json.loads, shown) if "agent" in event), None), "it")
        epoch, sequence = first["cursor"]["appEpoch"], first["cursor"]["sequence"]
        self.agent("report", "working")
        [event] = self.lines("events", "--after", f"{epoch}:{sequence}")
        self.assertEqual((sequence + 1, "working"), (event["cursor"]["sequence"], event["agent"]["activity"]))
        for kind in ("claude", "codex") * 600:
            self.accept(self.session.request("bindAgent", agentKind=kind))
        for cursor, status, says in [(f"{epoch}:{sequence}", 1, "no longer held"), (f"{epoch}:99999", 1, "newest is"),
                                     (f"{SESSION}:1", 1, "restarted"), ("x:1", 2, "no cursor"),
                                     (f"{epoch}:", 2, "no cursor")]:
            done = self.run_client("--root", self.runtime.root, "events", "--after", cursor)
            self.assertEqual((status, ""), (done.returncode, done.stdout))
            self.assertIn(says, done.stderr)
        self.assertEqual(1024, len(self.lines("events")))
