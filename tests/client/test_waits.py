"""`velotide wait` and `velotide call`: every outcome has its exit status, and nothing is missed."""

import json
import os
import pathlib
import shutil
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
        self.epoch = self.client.request("readEvents")["eventHead"]["appEpoch"]

    def pending(self):
        return self.client.request("diagnostics")["pendingWaits"]

    def flood(self):
        """Another session makes more events than the log holds."""
        self.client.create(r"for i in $(seq 600); do printf '\033]777;Velotide;start=6c73\033\\"
                           r"\033]777;Velotide;end=0\033\\'; done; echo over; cat").expect(b"over")

    def begin(self, *words):
        waiting = self.start(*words)
        process.wait_until(lambda: self.pending() == 1, "the wait is pending")
        return waiting

    def test_what_happens_while_waiting_or_since_a_position_ends_the_wait(self):
        self.session.input(b"start\n")
        self.session.expect(b"start=")
        command = self.session.request("getAgentState")["session"]["commands"][-1]["id"]
        grant = self.session.request("bindAgent", agentKind="codex")["agentGrant"]

        def tell(activity, sequence, **more):
            report = {key: grant[key] for key in ("instanceID", "runID", "token")}
            self.accept(self.session.request("reportAgent", agentReport={
                **report, "sequence": sequence, "kind": "codex", "activity": activity, **more}))
        tell("blocked", 1, blockReason="approval")
        tell("idle", 2)
        tell("blocked", 3, blockReason="question")
        for words, floods, expected, told in [
                (["--agent", "idle"], False, 0, "idle\n"), (["--attention"], False, 0, "approval\n"),
                (["--agent", "idle"], True, 124, "may be missed"), (["--attention"], True, 0, "question\n"),
                (["--event"], True, 1, "leave --after out")]:
            if floods:
                self.flood()
            result = self.velotide("wait", self.tab, *words, "--after", self.epoch + ":0", "--timeout", "0")
            self.assertEqual((expected, True), (result[0], told in result[1] + result[2]), (words, result))
        for words, happens, expected, printed in [
                (["--output"], lambda: self.session.input(b"hello\n"), 0, None),
                (["--agent", "idle"], lambda: tell("idle", 4), 0, "idle\n"),
                (["--event"], lambda: (self.flood(), self.session.input(b"hello\n")), 0, "outputChanged\n"),
                (["--attention"], lambda: (self.flood(), self.session.input(b"hello\n"), tell("working", 5),
                                           tell("blocked", 6, blockReason="approval")), 0, "approval\n"),
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
        epoch = self.epoch
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

        shown = self.velotide("wait", self.tab, "--output", "--timeout", "0", "--show-cursor")[2]
        self.assertRegex(shown, r"cursor \d+\n")

    def test_an_interrupted_wait_is_cancelled_and_one_without_a_service_ends(self):
        waiting = self.begin("wait", self.tab, "--output")
        waiting.send_signal(signal.SIGINT)
        self.assertEqual(130, self.finish(waiting)[0])
        self.assertEqual(0, self.pending())
        self.assertEqual([], os.listdir(os.path.join(self.runtime.root, "native-tools", "responses")))
        waiting = self.begin("wait", self.tab, "--output")
        self.runtime.kill()
        self.assertEqual(3, self.finish(waiting)[0])

    def test_a_long_wait_goes_on_and_what_is_given_up_is_not_carried_out_later(self):
        root = pathlib.Path(self.runtime.directory, "other")  # the same service, but this is its mailbox
        mailbox = root / "native-tools"
        for directory in (root, mailbox, mailbox / "requests", mailbox / "responses"):
            directory.mkdir(0o700)
        (root / "runtime.sock").symlink_to(self.runtime.root + "/runtime.sock")
        shutil.copy(self.runtime.root + "/ui-capability", root)
        epoch = self.epoch

        def request():
            [path] = process.wait_until(lambda: list(mailbox.glob("requests/*.json")), "a request")
            return path

        def put(path, **record):
            new = path.with_suffix(".new")
            new.touch(0o600)
            new.write_text(json.dumps({**record, "schemaVersion": 1, "version": "1"}))
            new.rename(path)

        def at(sequence):
            return {"appEpoch": epoch, "sequence": sequence}
        put(mailbox / "runtime.json", appEpoch=epoch, pid=os.getpid(), cursor=at(0))
        waiting = self.start("wait", "--event", "--after", epoch + ":5", "--json", root=root)
        for expected, length, outcome, sequence in [(5, 0, "timeout", 9), (9, 60, "timeout", 12),
                                                    (12, 60, "cursorExpired", 2000), (1936, 60, "matched", 1999)]:
            path = request()
            spec = json.loads(path.read_text())["waitSpec"]
            path.unlink()
            self.assertEqual((at(expected), length), (spec["after"], spec["timeoutSeconds"]))
            put(mailbox / "responses" / path.name, id=path.stem, action="wait_session", ok=True, appName="Velotide",
                snapshotSequence=0, waitResult={"waitID": path.stem, "outcome": outcome, "cursor": at(sequence)})
        status, output, errors = self.finish(waiting)
        self.assertEqual((0, 1999), (status, json.loads(output)["cursor"]["sequence"]), errors)
        spec = 'waitSpec:={"condition":"events","after":{"appEpoch":"%s","sequence":0}}' % epoch
        waits = ["wait", self.tab, "--attention", "--after", epoch + ":5"]
        for words, left in [(["call", "cancel_all_waits", "noResponse:=true"], []),
                            (["call", "wait_session", spec], []), (waits, []), (waits, ["cancel_wait"])]:
            waiting = self.start(*words, root=root)
            path = request()
            if left:  # the wait has begun, and the log is being read
                path.unlink()
                self.assertIn("read_session_events", request().read_text())
            waiting.send_signal(signal.SIGINT)
            self.assertEqual(130, self.finish(waiting)[0])
            self.assertEqual(left, [json.loads(path.read_text())["action"] for path in mailbox.glob("requests/*")])

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
