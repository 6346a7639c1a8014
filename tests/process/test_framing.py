"""Bytes on the socket: what makes a frame, what drops a client, and what is recorded of it."""

import json
import subprocess
import unittest

from runtime_process import IS_SANITIZED, RuntimeCase, launch, new_id, wait_until

ID = "6F9619FF-8B86-4011-B42D-00C04FC964FF"
LAUNCH = '"executable":"/bin/sh","directory":"/","columns":80,"rows":24'


def hello(more="", protocolVersion="3", id=f'"{ID}"', action='"hello"'):
    return f'{{"protocolVersion":{protocolVersion},"id":{id},"action":{action}{more}}}'


# The decoder's own tests have the other texts that are no JSON.
NOT_A_REQUEST = (
    ["", hello()[:-1], hello() + hello(), hello("//"), hello(',"rows":NaN'), hello(',"rows":01'), hello() + "\0",
     '{"a":' * 26214, "{}", "null", f"[{hello()}]", hello().replace('"id"', '"ID"'), hello().replace("protocol", "")]
    + [hello(protocolVersion=value) for value in ("null", '"3"', "3.0000001", "9223372036854775808", "[3]")]
    + [hello(id=value) for value in ("null", "7", f'"{ID[:-1]}"', f'"{ID}0"', f'"{{{ID}}}"', f'"{ID} "')]
    + [hello(action=value) for value in ("null", "1", '""', '"Hello"', '"unsubscribe"')])

# A value of another type or beyond its range spoils the frame, even where its action ignores it.
MISTYPED = [
    '"capability":5', '"sessionID":"x"', '"after":{}', '"data":"YQ"', '"rows":24.5', '"rows":9223372036854775808',
    '"source":"AI"', '"inputSequence":-1', '"inputSequence":18446744073709551616', '"expectedEchoEnabled":1',
    '"expectedForegroundPID":2147483648', '"agentKind":"shell"',
    f'"launch":{{{LAUNCH},"environment":{{}}}}', f'"launch":{{{LAUNCH},"arguments":[]}}',
    f'"launch":{{{LAUNCH},"arguments":[1],"environment":{{}}}}',
    f'"launch":{{{LAUNCH},"arguments":[],"environment":{{"a":1}}}}']

GOOD = [
    hello(action='"\\u0068ello"', protocolVersion="3e0"), hello(',"sessionID":null,"launch":null,"data":null'),
    hello(',"inputSequence":18446744073709551615,"rows":-9223372036854775808,"expectedForegroundPID":-2147483648'),
    hello(',"unknown":"' + "x" * (131071 - len(hello(',"unknown":""'))) + '"'),
    hello(f',"launch":{{{LAUNCH},"arguments":["\\u0000"],"environment":{{"":""}},"reminderPolicy":null}}')]


class Frames(RuntimeCase):
    def test_a_frame_waits_for_its_line_feed_while_others_are_served(self):
        raw = hello(',"owner":"é😀"').encode() + b"\n"
        for cut in (1, raw.index(b"\x98"), len(raw) - 1):
            split = self.connect()
            split.send(raw[:cut])
            self.accept(self.client.request("hello"))
            self.accept(self.client.request("hello"))
            split.send(raw[cut:] + raw[:cut])
            self.assertEqual(ID, split.frame()["id"])
            split.send(raw[cut:])
            self.assertEqual(ID, split.frame()["id"])

    def test_what_a_client_sent_before_it_left_is_carried_out(self):
        leaving = self.connect()
        leaving.send(b"".join(leaving.text("create", launch=launch(executable="/bin/cat"))[1] for _ in range(16)))
        leaving.socket.close()
        wait_until(lambda: len(self.client.request("list")["sessions"]) == 16, "all sessions")
        self.assertFalse(self.client.request("diagnostics").get("disconnects"))

    def test_every_decodable_form_is_answered(self):
        for raw in GOOD:
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
        expected = []
        for raw in NOT_A_REQUEST + [hello(f',{field}') for field in MISTYPED]:
            # Every other one right behind a request, whose answer is discarded with it; the longest comes in pieces.
            action = (None, "hello", None, "list", None, "diagnostics")[len(expected) % 6] if len(raw) < 9999 else None
            broken = self.connect()
            broken.send((broken.text(action)[1] if action else b"") + raw.encode() + b"\n")
            self.assertEqual(b"", broken.read_to_end())
            expected.append(("invalid_frame", False, action, action is not None))
            self.assertEqual(expected[-32:], [(drop["reason"], drop["subscribed"], drop.get("lastAction"),
                                               drop["queuedBytes"] > 0) for drop in self.drops()])

    def test_131072_waiting_bytes_are_kept_and_one_more_drops_the_client(self):
        created = new_id()
        request = self.client.text("create", sessionID=created, launch=launch("exec sleep 30"))[1]
        complete = request[:-2] + b" " * (131080 - len(request)) + request[-2:]
        for raw, action in ((b"[" * 131072 + b"\n", None), (complete, "create")):
            before, full = self.drops(), self.connect()
            full.send(raw[:131072])
            for _ in range(16):  # the turns that reading them can need
                self.accept(self.client.request("hello"))
            self.assertEqual(before, self.drops())
            full.send(raw[131072:])
            full.read_to_end()
            drop = self.drops()[-1]
            self.assertEqual(("request_too_large", action), (drop["reason"], drop.get("lastAction")))
        # What it had completed was still carried out.
        sessions = self.client.request("list")["sessions"]
        self.assertEqual([created], [info["id"] for info in sessions])

    def test_the_33rd_client_is_closed_and_the_others_stay(self):
        others = [self.client] + [self.connect() for _ in range(31)]
        for client in others:
            self.accept(client.request("hello"))
        self.assertEqual(b"", self.connect().read_to_end())
        for client in others:
            self.accept(client.request("hello"))
        others[5].socket.close()

        def admitted():
            client = self.connect()
            client.send(hello().encode() + b"\n")
            return client.receive()
        wait_until(admitted, "a place is free again")
        self.assertEqual([], self.client.request("diagnostics")["disconnects"])


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
        for client in [self.connect() for _ in range(4)]:
            client.send(b"".join(client.text("read", **reading)[1] for _ in range(40)))
        wait_until(lambda: len(self.client.request("diagnostics")["disconnects"]) == 4, "cut-offs")
        wait_until(lambda: self.resident() - before < 1048576, "memory given back")

    def resident(self):
        shown = subprocess.check_output(["ps", "-o", "rss=", "-p", str(self.runtime.process.pid)])
        return int(shown) * 1024
