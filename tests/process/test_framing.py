"""Bytes on the socket: what makes a frame, what drops a client, and what is recorded of it."""

import json
import subprocess
import unittest

from runtime_process import IS_SANITIZED, RuntimeCase, launch, new_id, wait_until

ID = "6F9619FF-8B86-4011-B42D-00C04FC964FF"
POLICY = ('"bells":true,"commandFailures":true,"longCommandCompletion":true,"processExits":false,'
          '"longCommandSeconds":30')
LAUNCH = '"executable":"/bin/sh","directory":"/","columns":80,"rows":24'
REPORT = f'{{"instanceID":"{ID}","runID":"{ID}","token":"","activity":"idle","sequence":%s}}'


def hello(more="", protocolVersion="3", id=f'"{ID}"', action='"hello"'):
    return f'{{"protocolVersion":{protocolVersion},"id":{id},"action":{action}{more}}}'


# The decoder's own tests have the other texts that are no JSON.
NOT_JSON = ["", " ", "hello", hello()[:-1], hello() + "x", hello() + hello(), hello(","), hello("//"),
            hello(",'owner':1"), hello(',"rows":NaN'), hello(',"rows":01'), hello(',"rows":+1'), hello(',"rows":.5'),
            hello(',"owner":"\\x41"'), '{"a":' * 26214, hello() + "\0"]
NOT_A_REQUEST = (
    ["{}", "[]", "null", "42", '"hello"', f"[{hello()}]", hello().replace("protocolVersion", "version"),
     hello().replace('"id"', '"ID"'), hello().replace('"action"', '"act"')]
    + [hello(protocolVersion=value) for value in
       ("null", '"3"', "true", "1.5", "3.0000001", "9223372036854775808", "1e300", "[3]")]
    + [hello(id=value) for value in
       ("null", "7", '""', f'"{ID[:-1]}"', f'"{ID}0"', f'"{{{ID}}}"', f'"{ID.replace("-", "")}"',
        f'"{ID.replace("6F", "6G")}"', f'"{ID.replace("-", ":")}"', f'"{ID} "')]
    + [hello(action=value) for value in ("null", "1", '""', '"Hello"', '"unsubscribe"')])

# Every optional key with values of another type: they spoil the frame, even where its action ignores them.
MISTYPED = {
    "capability": ["5"], "sessionID": ['"x"'], "generation": ["1"], "controlEpoch": ["[]"],
    "launch": ["[]", "{}", f'{{{LAUNCH},"environment":{{}}}}', f'{{{LAUNCH},"arguments":[]}}'] + [
        f'{{{LAUNCH},"arguments":{arguments},"environment":{environment}{more}}}'
        for arguments, environment, more in (
            ("{}", "{}", ""), ("[1]", "{}", ""), ("[null]", "{}", ""), ("[]", '{"a":1}', ""),
            ("[]", "null", ""), ("[]", "{}", ',"executableName":1'), ("[]", "{}", ',"reminderPolicy":{}'))],
    "after": ["{}"] + [f'{{"generation":"{generation}","offset":{offset}}}' for generation, offset in (
        (ID, "-1"), (ID, "18446744073709551616"), (ID, "0.5"), (ID, "null"), ("x", "0"))],
    "data": ["5", '"!!!!"', '"YQ"', '"YQ==YQ=="'], "columns": ['"80"'], "owner": ["{}"],
    "rows": ["24.5", "9223372036854775808", "-9223372036854775809"], "source": ['"robot"', '"AI"'],
    "inputSequence": ['"1"', "-1", "18446744073709551616", "1e20"], "expectedEchoEnabled": ["1", '"true"'],
    "expectedForegroundPID": ["2147483648", "-2147483649"], "attentionID": ["true"],
    "attentionVersion": ["1.5"], "eventLimit": ['"1"'], "agentKind": ['"shell"'], "commandID": ["0"],
    "reminderPolicy": [f"{{{POLICY}}}", f'{{{POLICY},"failureMinimumSeconds":"5"}}'],
    "eventAfter": ["{}", f'{{"appEpoch":"{ID}","sequence":-1}}'], "agentReport": ["{}", REPORT % -1]}

GOOD = [
    hello("".join(f',"{key}":null' for key in MISTYPED)), hello(protocolVersion="3.0"),
    hello(protocolVersion="3e0"), hello(id=f'"{ID.lower()}"'), hello(action='"\\u0068ello"'),
    " \t" + hello().replace(",", " , ").replace(":", " : ") + " \r",
    hello(',"unknown":{"a":[1,{"b":null}],"c":"\\u0000"},"other":[[],{}],"":-1.5e3'),
    hello(',"inputSequence":18446744073709551615,"rows":-9223372036854775808'
          ',"expectedForegroundPID":-2147483648,"eventLimit":9223372036854775807'),
    hello(',"owner":"\\u0000\\ud83d\\ude00é","data":""'),
    hello(',"unknown":"' + "x" * (131071 - len(hello(',"unknown":""'))) + '"'),
    hello(f',"launch":{{{LAUNCH},"arguments":["\\u0000"],"environment":{{"":""}},"reminderPolicy":null}}'),
    hello(f',"reminderPolicy":{{{POLICY},"failureMinimumSeconds":-5,"more":1}}'),
    hello(',"agentKind":"codex","agentReport":' + REPORT % 18446744073709551615)]


class Frames(RuntimeCase):
    def test_a_frame_waits_for_its_line_feed_while_others_are_served(self):
        raw = hello(',"owner":"é😀"').encode() + b"\n"
        for cut in (1, len(raw) // 2, raw.index(b"\xa9"), raw.index(b"\x98"), len(raw) - 1):
            with self.subTest(cut=cut):
                split = self.connect()
                split.send(raw[:cut])
                self.accept(self.client.request("hello"))
                self.accept(self.client.request("hello"))
                split.send(raw[cut:] + raw[:cut])
                self.assertEqual(ID, split.frame()["id"])
                split.send(raw[cut:])
                self.assertEqual(ID, split.frame()["id"])

    def test_requests_sent_at_once_are_all_answered_in_order(self):
        for count in (2, 8, 9, 20, 100):
            with self.subTest(count=count):
                sent = [self.client.text("list" if turn % 3 else "hello") for turn in range(count)]
                self.client.send(b"".join(raw for _, raw in sent))
                got = [self.client.frame() for _ in sent]
                self.assertEqual([identifier for identifier, _ in sent], [one["id"] for one in got])
                self.assertTrue(all(one["ok"] for one in got))

    def test_every_decodable_form_is_answered(self):
        for raw in GOOD:
            with self.subTest(raw[:200]):
                self.client.send(raw.encode() + b"\n")
                reply = self.accept(self.client.frame())
                self.assertEqual((ID, "hello"), (reply["id"], reply["action"]))
        self.assertEqual([], self.client.request("diagnostics")["disconnects"])


class Drops(RuntimeCase):
    def drops(self):
        observer = self.connect()
        drops = observer.request("diagnostics")["disconnects"]
        observer.socket.close()
        for drop in drops:
            self.assertGreaterEqual(drop.pop("idleSeconds"), 0)
        return drops

    def test_an_undecodable_frame_drops_its_client_alone(self):
        mistyped = [hello(f',"{key}":{value}') for key, values in MISTYPED.items() for value in values]
        count = 0
        for raw in NOT_JSON + NOT_A_REQUEST + mistyped:
            with self.subTest(raw[:200]):
                broken = self.connect()
                broken.send(raw.encode() + b"\n")
                self.assertEqual(b"", broken.read_to_end())
                count += 1
                expected = {"reason": "invalid_frame", "subscribed": False, "queuedBytes": 0}
                self.assertEqual([expected] * min(count, 32), self.drops())

    def test_a_broken_frame_behind_a_good_one_discards_the_unsent_answer(self):
        broken = self.connect()
        broken.send(broken.text("list")[1] + b"\n")
        self.assertEqual(b"", broken.read_to_end())
        drop = self.drops()[0]
        self.assertEqual(("invalid_frame", "list"), (drop["reason"], drop["lastAction"]))
        self.assertGreater(drop["queuedBytes"], 0)

    def fill(self, client, raw):
        """Sends the bytes and lets the service take as many turns as reading them can need."""
        client.send(raw)
        for _ in range(2 * len(raw) // 16384):
            self.accept(self.client.request("hello"))

    def test_131072_waiting_bytes_are_kept_and_one_more_drops_the_client(self):
        full = self.connect()
        self.fill(full, b"[" * 131072)
        self.assertEqual([], self.drops())
        full.send(b"\n")
        self.assertEqual(b"", full.read_to_end())
        expected = {"reason": "request_too_large", "subscribed": False, "queuedBytes": 0}
        self.assertEqual([expected], self.drops())

    def test_a_complete_first_line_of_an_overflowing_buffer_is_still_executed(self):
        full, created = self.connect(), new_id()
        raw = full.text("create", sessionID=created, launch=launch("exec sleep 30"))[1]
        raw = raw[:-2] + b" " * (131080 - len(raw)) + raw[-2:]
        self.fill(full, raw[:131072])
        full.send(raw[131072:])
        full.read_to_end()
        self.assertEqual([("request_too_large", "create")],
                         [(drop["reason"], drop["lastAction"]) for drop in self.drops()])
        sessions = self.client.request("list")["sessions"]
        self.runtime.children |= {info["pid"] for info in sessions}
        self.assertEqual([created], [info["id"] for info in sessions])

    def test_the_33rd_client_is_closed_and_the_others_stay(self):
        others = [self.client] + [self.connect() for _ in range(31)]
        for client in others:
            self.accept(client.request("hello"))
        extra = self.connect()
        self.assertEqual(b"", extra.read_to_end())
        for client in others:
            self.accept(client.request("hello"))
        others[5].socket.close()

        def admitted():
            client = self.connect()
            client.send(hello().encode() + b"\n")
            return client.receive()
        wait_until(admitted, "a place is free again")
        self.assertEqual([], self.client.request("diagnostics")["disconnects"])

    def test_the_newest_32_of_40_drops_are_kept_oldest_first(self):
        actions = ["hello", "list", "readEvents", "listAttention", "diagnostics"] * 8
        for action in actions:
            broken = self.connect()
            broken.request(action)
            broken.send(b"{\n")
            broken.read_to_end()
        self.assertEqual(actions[8:], [drop["lastAction"] for drop in self.drops()])


class SlowClients(RuntimeCase):
    def test_a_subscriber_that_never_reads_is_cut_off_at_two_mebibytes(self):
        session = self.client.create("exec yes 0123456789abcdef")
        stalled = self.connect()
        identifier, raw = stalled.text("subscribe", sessionID=session.info["id"],
                                       generation=session.info["generation"])
        stalled.send(raw)
        drop = wait_until(lambda: self.client.request("diagnostics")["disconnects"], "a cut-off")[0]
        self.assertEqual(("output_backpressure", "subscribe", True),
                         (drop["reason"], drop["lastAction"], drop["subscribed"]))
        self.assertLessEqual(drop["queuedBytes"], 2097152)
        self.assertGreater(drop["queuedBytes"], 2097152 - 100000)
        lines = [json.loads(line) for line in stalled.read_to_end().split(b"\n")[:-1]]
        self.assertEqual({identifier}, {line["id"] for line in lines})

    @unittest.skipIf(IS_SANITIZED, "freed memory is kept")
    def test_what_slow_clients_filled_is_given_back(self):
        session = self.client.create("head -c 100000 /dev/zero; exec sleep 30")
        session.read_until(lambda reply: len(session.seen) == 100000, "all output")
        reading = {"sessionID": session.info["id"], "generation": session.info["generation"]}
        before = self.resident()
        for rounds in range(1, 4):
            for client in [self.connect() for _ in range(4)]:
                client.send(b"".join(client.text("read", **reading)[1] for _ in range(40)))
            wait_until(lambda: len(self.client.request("diagnostics")["disconnects"]) == 4 * rounds, "cut-offs")
        wait_until(lambda: self.resident() - before < 1048576, "memory given back")

    @unittest.skipIf(IS_SANITIZED, "freed memory is kept")
    def test_what_was_pasted_once_is_given_back(self):
        sessions = [self.client.create("stty raw -echo; echo ready; exec cat >/dev/null") for _ in range(16)]
        for session in sessions:
            session.expect(b"ready")
        before = self.resident()
        for session in sessions:
            self.accept(session.input(b"x" * 65536))
        wait_until(lambda: self.resident() - before < 524288, "memory given back")

    def resident(self):
        shown = subprocess.check_output(["ps", "-o", "rss=", "-p", str(self.runtime.process.pid)])
        return int(shown) * 1024


if __name__ == "__main__":
    unittest.main()
