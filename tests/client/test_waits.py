"""`velotide wait` and `velotide call`: every outcome has its exit status, and nothing is missed."""

import json
import os
import signal
import unittest

from client_case import ClientCase, process

# A program that prints marks as a shell does, a command at a time.
MARKS = r"""while read -r line; do case $line in
start) printf '\033]777;Velotide;start=6c73\033\\' ;;
end*) printf '\033]777;Velotide;end=%s\033\\' "${line#end}" ;;
*) echo "$line" ;; esac; done"""


class Waits(ClientCase):
    def setUp(self):
        super().setUp()
        self.session = self.client.create(MARKS)
        self.tab = self.session.info["id"]

    def pending(self):
        return self.client.request("diagnostics")["pendingWaits"]

    def await_pending(self):
        process.wait_until(lambda: self.pending() == 1, "the wait is pending")

    def finish(self, command):
        output, errors = command.communicate(timeout=process.DEADLINE)
        return command.returncode, output.decode().strip(), errors.decode()

    def test_what_happens_while_waiting_ends_the_wait(self):
        self.session.input(b"start\n")
        self.session.expect(b"start=")
        command = self.session.request("getAgentState")["session"]["commands"][-1]["id"]
        grant = self.session.request("bindAgent", agentKind="codex")["agentGrant"]
        report = {"instanceID": grant["instanceID"], "runID": grant["runID"], "token": grant["token"]}

        def tell(activity, sequence, **more):
            self.accept(self.session.request("reportAgent", agentReport={
                **report, "sequence": sequence, "kind": "codex", "activity": activity, **more}))
        for words, happens, expected in [
                (["--output"], lambda: self.session.input(b"hello\n"), (0, None)),
                (["--event"], lambda: self.session.input(b"hello\n"), (0, "outputChanged")),
                (["--agent", "idle"], lambda: tell("idle", 1), (0, "idle")),
                (["--attention"], lambda: tell("blocked", 2, blockReason="approval"), (0, None)),
                (["--last-command"], lambda: self.session.input(b"end3\n"), (0, "failed")),
                (["--output", "--after", "999999"], lambda: self.session.request("close"), (4, ""))]:
            with self.subTest(words):
                waiting = self.start("wait", self.tab, *words)
                self.await_pending()
                happens()
                status, output, errors = self.finish(waiting)
                self.assertEqual(expected[0], status, errors)
                self.assertIn(expected[1], (None, output))
        self.assertEqual(4, self.velotide("wait", self.tab, "--command", command)[0])

    def test_what_stands_already_is_answered_at_once(self):
        self.session.input(b"start\nend0\n")
        self.session.expect(b"end=0")
        unknown = process.new_id()
        epoch = self.client.request("readEvents")["events"]["nextCursor"]["appEpoch"]
        for words, status, output in [
                (["--last-command"], 0, b"succeeded\n"), (["--event", "--after", epoch + ":0"], 0, b"registered\n"),
                (["--output", "--after", "0"], 0, None), (["--command", unknown], 4, b""),
                (["--event", "--timeout", "0"], 124, b""), (["--output", "--timeout", "0.05"], 124, b""),
                (["--event", "--after", epoch + ":999999"], 1, b""),
                (["--event", "--after", unknown + ":0"], 1, b""), (["--agent", "idle"], 1, b""),
                (["--agent", "asleep"], 2, b""), (["--event", "--output"], 2, b""), ([], 2, b"")]:
            with self.subTest(words):
                result = self.velotide("wait", self.tab, *words)
                self.assertEqual(status, result[0], result)
                self.assertIn(output, (None, result[1]))

    def test_an_interrupted_wait_is_cancelled_and_one_without_a_service_ends(self):
        waiting = self.start("wait", self.tab, "--output")
        self.await_pending()
        waiting.send_signal(signal.SIGINT)
        self.assertEqual(130, self.finish(waiting)[0])
        self.assertEqual(0, self.pending())
        self.assertEqual([], os.listdir(os.path.join(self.runtime.root, "native-tools", "responses")))
        waiting = self.start("wait", self.tab, "--output")
        self.await_pending()
        self.runtime.kill()
        self.assertEqual(3, self.finish(waiting)[0])

    def test_a_long_wait_goes_on_where_the_one_before_ended(self):
        root = os.path.join(self.runtime.directory, "other")
        for part in ("", "native-tools", "native-tools/requests", "native-tools/responses"):
            os.mkdir(os.path.join(root, part), 0o700)
        epoch = process.new_id()
        mailbox = os.path.join(root, "native-tools")

        def put(name, record):
            path = os.path.join(mailbox, name)
            with open(os.open(path + ".new", os.O_CREAT | os.O_WRONLY, 0o600), "w") as file:
                json.dump(record, file)
            os.rename(path + ".new", path)
        put("runtime.json", {"schemaVersion": 1, "appEpoch": epoch, "pid": os.getpid(), "version": "1",
                             "cursor": {"appEpoch": epoch, "sequence": 0}})
        waiting = self.start("wait", "--event", "--after", epoch + ":5", "--json", root=root)
        for expected, outcome, sequence in [(5, "timeout", 9), (9, "timeout", 12), (12, "matched", 13)]:
            names = process.wait_until(lambda: [name for name in os.listdir(mailbox + "/requests")
                                                if name.endswith(".json")], "a request")
            with open(os.path.join(mailbox, "requests", names[0])) as file:
                request = json.load(file)
            self.assertEqual((expected, 60), (request["waitSpec"]["after"]["sequence"],
                                              request["waitSpec"]["timeoutSeconds"]))
            os.unlink(os.path.join(mailbox, "requests", names[0]))
            put("responses/" + names[0], {
                "id": request["id"], "action": "wait_session", "version": "1", "schemaVersion": 1, "ok": True,
                "appName": "Velotide", "snapshotSequence": 0, "waitResult": {
                    "waitID": request["id"], "outcome": outcome,
                    "cursor": {"appEpoch": epoch, "sequence": sequence}}})
        status, output, errors = self.finish(waiting)
        self.assertEqual((0, 13), (status, json.loads(output)["cursor"]["sequence"]), errors)

    def test_calls_print_the_answer_and_tell_its_error_word(self):
        for words, status, word in [
                (["list_attention"], 0, '"attention":[]'), (["get_agent_state", "--tab", self.tab[:8]], 0, '"ok":true'),
                (["read_session_events", "eventLimit:=5"], 0, '"nextCursor"'),
                (["get_agent_state"], 1, "unavailable"), (["dance", "tab=" + self.tab], 1, "invalidCapability"),
                (["cancel_wait", "--json", '{"controlID": "x"}'], 1, "invalidSpec"),
                (["cancel_wait", "noResponse:=true"], 0, ""),
                (["list_attention", "tabb=1"], 2, "tabb"), (["list_attention", "eventLimit=1"], 2, "form")]:
            with self.subTest(words):
                result = self.velotide("call", *words)
                self.assertEqual(status, result[0], result)
                self.assertIn(word, result[1].decode() if status == 0 else result[2])


if __name__ == "__main__":
    unittest.main()
