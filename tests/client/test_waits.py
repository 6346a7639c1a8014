"""`velotide wait` and `velotide call`: every outcome has its exit status, and nothing is missed."""

import json
import os
import pathlib
import signal

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

    def begin(self, *words):
        waiting = self.start(*words)
        process.wait_until(lambda: self.pending() == 1, "the wait is pending")
        return waiting

    def test_what_happens_while_waiting_ends_the_wait(self):
        self.session.input(b"start\n")
        self.session.expect(b"start=")
        command = self.session.request("getAgentState")["session"]["commands"][-1]["id"]
        grant = self.session.request("bindAgent", agentKind="codex")["agentGrant"]

        def tell(activity, sequence, **more):
            report = {key: grant[key] for key in ("instanceID", "runID", "token")}
            self.accept(self.session.request("reportAgent", agentReport={
                **report, "sequence": sequence, "kind": "codex", "activity": activity, **more}))
        for words, happens, expected, printed in [
                (["--output"], lambda: self.session.input(b"hello\n"), 0, None),
                (["--event"], lambda: self.session.input(b"hello\n"), 0, "outputChanged\n"),
                (["--agent", "idle"], lambda: tell("idle", 1), 0, "idle\n"),
                (["--attention"], lambda: tell("blocked", 2, blockReason="approval"), 0, None),
                (["--last-command"], lambda: self.session.input(b"end3\n"), 0, "failed\n"),
                (["--output", "--after", "999999"], lambda: self.session.request("close"), 4, "")]:
            with self.subTest(words):
                waiting = self.begin("wait", self.tab, *words)
                happens()
                status, output, errors = self.finish(waiting)
                self.assertEqual(expected, status, errors)
                self.assertIn(printed, (None, output))
        self.assertEqual(4, self.velotide("wait", self.tab, "--command", command)[0])

    def test_what_stands_already_is_answered_at_once(self):
        self.session.input(b"start\nend0\n")
        self.session.expect(b"end=0")
        unknown = process.new_id()
        epoch = self.client.request("readEvents")["events"]["nextCursor"]["appEpoch"]
        for words, status, output in [
                (["--last-command"], 0, "succeeded\n"), (["--event", "--after", epoch + ":0"], 0, "registered\n"),
                (["--output", "--after", "0"], 0, None), (["--command", unknown], 4, ""),
                (["--event", "--timeout", "0"], 124, ""), (["--output", "--timeout", "0.05"], 124, ""),
                (["--event", "--after", epoch + ":999999"], 1, ""),
                (["--event", "--after", unknown + ":0"], 1, ""), (["--agent", "idle"], 1, ""),
                (["--agent", "asleep"], 2, ""), (["--event", "--output"], 2, ""), ([], 2, "")]:
            with self.subTest(words):
                result = self.velotide("wait", self.tab, *words)
                self.assertEqual(status, result[0], result)
                self.assertIn(output, (None, result[1]))

        self.assertEqual(1, self.velotide("wait", "", "--event", "--timeout", "0")[0])

    def test_an_interrupted_wait_is_cancelled_and_one_without_a_service_ends(self):
        waiting = self.begin("wait", self.tab, "--output")
        waiting.send_signal(signal.SIGINT)
        self.assertEqual(130, self.finish(waiting)[0])
        self.assertEqual(0, self.pending())
        self.assertEqual([], os.listdir(os.path.join(self.runtime.root, "native-tools", "responses")))
        waiting = self.begin("wait", self.tab, "--output")
        self.runtime.kill()
        self.assertEqual(3, self.finish(waiting)[0])

    def test_a_request_that_is_given_up_is_not_carried_out_later(self):
        self.addCleanup(os.kill, self.runtime.process.pid, signal.SIGCONT)
        os.kill(self.runtime.process.pid, signal.SIGSTOP)
        requests = pathlib.Path(self.runtime.root, "native-tools", "requests")
        calling = self.start("call", "cancel_all_waits", "noResponse:=true")
        process.wait_until(lambda: list(requests.glob("*.json")), "the request")
        calling.send_signal(signal.SIGINT)
        self.assertEqual((130, []), (self.finish(calling)[0], os.listdir(requests)))

    def test_a_long_wait_goes_on_where_the_one_before_ended(self):
        root = pathlib.Path(self.runtime.directory, "other")
        mailbox = root / "native-tools"
        for directory in (root, mailbox, mailbox / "requests", mailbox / "responses"):
            directory.mkdir(0o700)
        epoch = process.new_id()

        def put(path, **record):
            new = path.with_suffix(".new")
            new.touch(0o600)
            new.write_text(json.dumps({**record, "schemaVersion": 1, "version": "1"}))
            new.rename(path)

        def at(sequence):
            return {"appEpoch": epoch, "sequence": sequence}
        put(mailbox / "runtime.json", appEpoch=epoch, pid=os.getpid(), cursor=at(0))
        waiting = self.start("wait", "--event", "--after", epoch + ":5", "--json", root=root)
        for expected, outcome, sequence in [(5, "timeout", 9), (9, "timeout", 12), (12, "matched", 13)]:
            [path] = process.wait_until(lambda: list(mailbox.glob("requests/*.json")), "a request")
            request = json.loads(path.read_text())
            path.unlink()
            self.assertEqual((at(expected), 60), (request["waitSpec"]["after"], request["waitSpec"]["timeoutSeconds"]))
            put(mailbox / "responses" / path.name, id=request["id"], action="wait_session", ok=True, appName="Velotide",
                snapshotSequence=0, waitResult={"waitID": request["id"], "outcome": outcome, "cursor": at(sequence)})
        status, output, errors = self.finish(waiting)
        self.assertEqual((0, 13), (status, json.loads(output)["cursor"]["sequence"]), errors)

    def test_calls_print_the_answer_and_tell_its_error_word(self):
        for words, status, word in [
                (["list_attention"], 0, '"attention":[]'), (["get_agent_state", "--tab", self.tab[:8]], 0, '"ok":true'),
                (["read_session_events", "eventLimit:=5"], 0, '"nextCursor"'),
                (["get_agent_state"], 1, "unavailable"), (["dance", "tab=" + self.tab], 1, "invalidCapability"),
                (["cancel_wait", "--json", '{"controlID": "x"}'], 1, "invalidSpec"),
                (["cancel_wait", "noResponse:=true"], 0, ""),
                (["list_attention", "tabb=1"], 2, "tabb"), (["list_attention", "--json", '{"tabb":1}'], 2, "tabb"),
                (["list_attention", "eventLimit=1"], 2, "form"), (["list_attention", "eventLimit:="], 2, "form"),
                (["list_attention", 'eventLimit:=5,"tab":"x"'], 2, "form"),
                (["list_attention", "--json", "[]"], 2, "object"), (["list_attention", "--tab", ""], 1, 'named ""')]:
            with self.subTest(words):
                result = self.velotide("call", *words)
                self.assertEqual(status, result[0], result)
                self.assertIn(word, result[1] if status == 0 else result[2])
