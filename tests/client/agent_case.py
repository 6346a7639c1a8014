"""A session on a service of its own, the helpers that an agent in it calls, and the client outside."""

import json
import pathlib
import subprocess

from runtime_process import BINARIES, RuntimeCase, wait_until

CLIENT = str(BINARIES / "velotide")
SESSION = "3F2504E0-4F89-11D3-9A0C-0305E82C3301"


class AgentCase(RuntimeCase):
    def setUp(self):
        super().setUp()
        self.start_session()

    def start_session(self, script="exec cat"):
        self.session = self.client.create(script)
        [context] = pathlib.Path(self.runtime.root, "native-tools/native-agent-contexts").iterdir()
        self.records = pathlib.Path(self.runtime.root, "native-tools/agent-records")
        self.record = self.records / context.name
        self.inside = {"PATH": "/usr/bin:/bin", "VELOTIDE_AGENT_CONTEXT": str(context)}

    def run_client(self, *words, given=""):
        return subprocess.run([CLIENT, *words], input=given, capture_output=True, text=True, timeout=60,
                              env=self.inside)

    def ask(self, *words):
        done = self.run_client("--root", self.runtime.root, *words)
        self.assertEqual((0, ""), (done.returncode, done.stderr), words)
        return done.stdout

    def lines(self, *words):
        return [json.loads(line) for line in self.ask(*words, "--json").splitlines()]

    def agent(self, *words, given="", status=0, says=""):
        """Calls `velotide agent` as a hook does."""
        done = self.run_client("agent", *words, given=given)
        self.assertEqual((status, ""), (done.returncode, done.stdout), (words, given, done.stderr))
        self.assertIn(says, done.stderr)
        if not says:
            self.assertEqual("", done.stderr)

    def state(self):
        [line] = self.lines("agents")
        if line == []:
            return None
        self.assertEqual(self.session.info["id"], line["session"])
        agent = line["agent"]
        return " ".join([agent["kind"], agent["activity"]] +
                        [agent[key] for key in ("blockReason", "lastResult") if key in agent])

    def attention(self):
        return [item["kind"] for item in self.lines("attention") if item]
