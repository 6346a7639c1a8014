"""Bytes on the socket: what makes a frame, what drops a client, and what is recorded of it."""

import json
import time
import unittest

from runtime_process import RuntimeCase, launch, new_id, wait_until

ID = "6F9619FF-8B86-4011-B42D-00C04FC964FF"
CURSOR = '{"generation":"%s","offset":%s}'
EVENT_CURSOR = '{"appEpoch":"%s","sequence":%s}'
POLICY = ('"bells":true,"commandFailures":true,"longCommandCompletion":true,"processExits":false,'
          '"longCommandSeconds":30')


def hello(more="", protocolVersion="3", id=f'"{ID}"', action='"hello"'):
    return f'{{"protocolVersion":{protocolVersion},"id":{id},"action":{action}{more}}}'


def with_launch(more):
    return f',"launch":{{"executable":"/bin/sh","directory":"/","columns":80,"rows":24{more}}}'


def agent_report(sequence):
    return (f'{{"instanceID":"{ID}","runID":"{ID}","token":"","sequence":{sequence},'
            '"activity":"idle"}')


NOT_JSON = ["", " ", "hello", hello()[:-1], hello() + "x", hello() + hello(), hello(","),
            hello(',"owner":"a\tb"'), hello(",'owner':1"), hello(',"rows":NaN'), hello(',"rows":01'),
            hello(',"rows":+1'), hello(',"rows":.5'), hello(',"owner":"\\x41"'), hello("//"),
            hello(',"owner":"\\ud800"'), "[" * 131071, '{"a":' * 26214,
            hello().encode() + b"\0", hello(',"owner":"?"').encode().replace(b"?", b"\xff"),
            hello(',"extra":"?"').encode().replace(b"?", b"\xc3"),
            hello(',"extra":"?"').encode().replace(b"?", b"\xed\xa0\x80"),
            hello(',"extra":"?"').encode().replace(b"?", b"\xc0\xaf")]

NOT_A_REQUEST = (
    ["{}", "[]", "null", "42", '"hello"', f"[{hello()}]", hello().replace("protocolVersion", "version"),
     hello().replace('"id"', '"ID"'), hello().replace('"action"', '"act"')]
    + [hello(protocolVersion=value) for value in
       ("null", '"3"', "true", "1.5", "3.0000001", "9223372036854775808", "1e300", "[3]")]
    + [hello(id=value) for value in
       ("null", "7", '""', f'"{ID[:-1]}"', f'"{ID}0"', f'"{{{ID}}}"', f'"{ID.replace("-", "")}"',
        f'"{ID.replace("6F", "6G")}"', f'"{ID.replace("-", ":")}"', f'"{ID} "')]
    + [hello(action=value) for value in ("null", "1", '""', '"Hello"', '"unsubscribe"')])

# An optional key of another type makes the frame undecodable, even where its action ignores it.
MISTYPED = [
    ("capability", "5"), ("sessionID", '"x"'), ("generation", "1"), ("controlEpoch", "[]"),
    ("launch", "[]"), ("launch", "{}"), ("after", "{}"), ("after", CURSOR % (ID, -1)),
    ("after", CURSOR % (ID, 18446744073709551616)), ("after", CURSOR % ("x", 0)),
    ("after", CURSOR % (ID, "0.5")), ("data", "5"), ("data", '"!!!!"'), ("data", '"YQ"'),
    ("data", '"YQ==YQ=="'), ("columns", '"80"'), ("rows", "24.5"), ("rows", "9223372036854775808"),
    ("rows", "-9223372036854775809"), ("owner", "{}"), ("source", '"robot"'), ("source", '"AI"'),
    ("inputSequence", '"1"'), ("inputSequence", "-1"), ("inputSequence", "18446744073709551616"),
    ("inputSequence", "1e20"), ("expectedEchoEnabled", "1"), ("expectedEchoEnabled", '"true"'),
    ("expectedForegroundPID", "2147483648"), ("expectedForegroundPID", "-2147483649"),
    ("attentionID", "true"), ("attentionVersion", "1.5"), ("reminderPolicy", f"{{{POLICY}}}"),
    ("reminderPolicy", f'{{{POLICY},"failureMinimumSeconds":"5"}}'), ("eventAfter", "{}"),
    ("eventAfter", EVENT_CURSOR % (ID, -1)), ("eventLimit", '"1"'), ("agentKind", '"shell"'),
    ("agentReport", "{}"), ("agentReport", agent_report(-1)), ("commandID", "0")]
MISTYPED_LAUNCH = [
    ',"environment":{}', ',"arguments":[]', ',"arguments":{},"environment":{}',
    ',"arguments":[1],"environment":{}', ',"arguments":[null],"environment":{}',
    ',"arguments":[],"environment":{"a":1}', ',"arguments":[],"environment":null',
    ',"arguments":[],"environment":{},"executableName":1',
    ',"arguments":[],"environment":{},"reminderPolicy":{}']

NULLABLE = ["capability", "sessionID", "generation", "controlEpoch", "launch", "after", "data",
            "columns", "rows", "owner", "source", "inputSequence", "expectedEchoEnabled",
            "expectedForegroundPID", "attentionID", "attentionVersion", "reminderPolicy",
            "eventAfter", "eventLimit", "agentKind", "agentReport", "commandID"]
GOOD = [
    hello("".join(f',"{key}":null' for key in NULLABLE)),
    hello(',"unknown":{"a":[1,{"b":null}],"c":"\\u0000"},"other":[[],{}],"":-1.5e3'),
    hello(id=f'"{ID.lower()}"'), hello(protocolVersion="3.0"), hello(protocolVersion="3e0"),
    hello(action='"\\u0068ello"'), " \t" + hello().replace(",", " , ").replace(":", " : ") + " \r",
    hello(',"inputSequence":18446744073709551615,"rows":-9223372036854775808'
          ',"expectedForegroundPID":-2147483648,"eventLimit":9223372036854775807'),
    hello(',"owner":"\\u0000\\ud83d\\ude00é","data":""'),
    hello(',"unknown":"' + "x" * (131071 - len(hello(',"unknown":""'))) + '"'),
    hello(with_launch(',"arguments":["\\u0000"],"environment":{"":""},"reminderPolicy":null')),
    hello(f',"reminderPolicy":{{{POLICY},"failureMinimumSeconds":-5,"more":1}}'),
    hello(',"agentKind":"codex","agentReport":' + agent_report(18446744073709551615))]


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
    def last_drop(self):
        drop = self.client.request("diagnostics")["disconnects"][-1]
        self.assertGreaterEqual(drop.pop("idleSeconds"), 0)
        return drop

    def test_an_undecodable_frame_drops_its_client_alone(self):
        optional = [hello(f',"{key}":{value}') for key, value in MISTYPED]
        launches = [hello(with_launch(more)) for more in MISTYPED_LAUNCH]
        for count, raw in enumerate(NOT_JSON + NOT_A_REQUEST + optional + launches, 1):
            with self.subTest(raw[:200]):
                broken = self.connect()
                broken.send((raw if isinstance(raw, bytes) else raw.encode()) + b"\n")
                broken.closed()
                self.assertEqual(b"", broken.incoming)
                drops = self.client.request("diagnostics")["disconnects"]
                self.assertEqual(min(count, 32), len(drops))
                self.assertEqual(["invalid_frame", False, 0],
                                 [drops[-1][key] for key in ("reason", "subscribed", "queuedBytes")])
                self.assertNotIn("lastAction", drops[-1])

    def test_a_broken_frame_behind_a_good_one_discards_the_unsent_answer(self):
        broken = self.connect()
        broken.send(broken.text("list")[1] + b"\n")
        broken.closed()
        drop = self.last_drop()
        self.assertEqual(("invalid_frame", "list"), (drop["reason"], drop["lastAction"]))
        self.assertEqual(b"", broken.incoming)
        self.assertGreater(drop["queuedBytes"], 0)

    def fill(self, client, raw):
        """Sends the bytes and lets the service take as many turns as reading them can need."""
        client.send(raw)
        for _ in range(2 * len(raw) // 16384):
            self.accept(self.client.request("hello"))

    def test_131072_waiting_bytes_are_kept_and_one_more_drops_the_client(self):
        for filler in (b"[", b" "):
            full = self.connect()
            self.fill(full, filler * 131072)
            self.assertEqual([], [drop for drop in self.client.request("diagnostics")["disconnects"]
                                  if drop["reason"] != "request_too_large"])
            full.send(b"[")
            full.closed()
            self.assertEqual({"reason": "request_too_large", "subscribed": False, "queuedBytes": 0},
                             self.last_drop())

    def test_a_complete_first_line_of_an_overflowing_buffer_is_still_executed(self):
        full, created = self.connect(), new_id()
        raw = full.text("create", sessionID=created, launch=launch("exec sleep 30"))[1]
        raw = raw[:-2] + b" " * (131080 - len(raw)) + raw[-2:]
        self.fill(full, raw[:131072])
        full.send(raw[131072:])
        full.closed()
        self.assertEqual(("request_too_large", "create"),
                         tuple(self.last_drop()[key] for key in ("reason", "lastAction")))
        sessions = self.client.request("list")["sessions"]
        self.runtime.children |= {info["pid"] for info in sessions}
        self.assertEqual([created], [info["id"] for info in sessions])

    def test_the_33rd_client_is_closed_and_the_others_stay(self):
        others = [self.client] + [self.connect() for _ in range(31)]
        for client in others:
            self.accept(client.request("hello"))
        extra = self.connect()
        extra.closed()
        self.assertEqual(b"", extra.incoming)
        for client in others:
            self.accept(client.request("hello"))
        others[5].close()

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
            broken.closed()
        drops = self.client.request("diagnostics")["disconnects"]
        self.assertEqual(actions[8:], [drop["lastAction"] for drop in drops])


class SlowClients(RuntimeCase):
    def test_a_subscriber_that_never_reads_is_cut_off_at_two_mebibytes(self):
        session = self.client.create("exec yes 0123456789abcdef")
        stalled = self.connect()
        identifier, raw = stalled.text("subscribe", sessionID=session.info["id"],
                                       generation=session.info["generation"])
        stalled.send(raw)
        drops = wait_until(lambda: self.client.request("diagnostics")["disconnects"], "the cut-off")
        drop = drops[0]
        self.assertEqual(("output_backpressure", "subscribe", True),
                         (drop["reason"], drop["lastAction"], drop["subscribed"]))
        self.assertLessEqual(drop["queuedBytes"], 2097152)
        self.assertGreater(drop["queuedBytes"], 2097152 - 100000)
        stalled.closed()
        lines = [json.loads(line) for line in stalled.incoming.split(b"\n")[:-1]]
        self.assertGreater(len(lines), 0)
        self.assertEqual({identifier}, {line["id"] for line in lines})

    def test_idle_clients_end_after_five_seconds_and_subscribers_stay(self):
        session = self.client.create("head -c 100000 /dev/zero; exec sleep 30")
        session.read_until(lambda reply: len(session.seen) == 100000, "all output")
        subscribed = self.connect()
        mine = {"sessionID": session.info["id"], "generation": session.info["generation"]}
        self.accept(subscribed.request("subscribe", **mine))
        begin = time.monotonic()
        silent, half, stalled = self.connect(), self.connect(), self.connect()
        half.send(b'{"protocolVersion":3')
        for _ in range(12):
            stalled.send(stalled.text("read", **mine)[1])
        for client in (silent, half):
            client.closed()
            self.assertTrue(5 <= time.monotonic() - begin < 8, time.monotonic() - begin)
        fresh = self.connect()
        drops = wait_until(lambda: fresh.request("diagnostics")["disconnects"], "the stalled one")
        self.assertEqual([("write_deadline", "read", False)],
                         [(drop["reason"], drop["lastAction"], drop["subscribed"]) for drop in drops])
        self.assertGreater(drops[0]["queuedBytes"], 0)
        self.assertGreater(drops[0]["idleSeconds"], 5)
        self.accept(subscribed.request("hello"))


if __name__ == "__main__":
    unittest.main()
