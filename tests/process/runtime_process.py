"""Starts the real service in a root directory of its own and speaks raw JSON lines to it.

Nothing here shares code with the service, so that a mistake made alike in its encoder and decoder still
shows. Every wait polls under a generous deadline; a failing test prints the last frames.
"""

import base64
import json
import os
import pathlib
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import uuid

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
BINARIES = pathlib.Path(os.environ.get("VELOTIDE_BIN_DIR", REPOSITORY / "build" / "bin")).absolute()
RUNTIME = str(BINARIES / "velotide-runtime")
# The sanitizers need descriptors of their own and keep freed memory for a while.
IS_SANITIZED = b"__ubsan" in pathlib.Path(RUNTIME).read_bytes()
FAILURE_MESSAGE = b"Velotide Runtime could not start or continue.\n"
FEATURES = ["restart_exited_v1", "agent_tools_v1", "event_wait_v1", "command_lifecycle_v1", "terminal_attention_v1"]
REQUIRED = {"protocolVersion", "version", "serviceEpoch", "id", "action", "ok"}
# A measurement of coverage keeps its file open, which then takes the number of a descriptor that was closed.
UNMEASURED = {"LLVM_PROFILE_FILE": os.devnull}
DEADLINE = 20.0  # seconds; only a broken service ever waits this long


def new_id():
    return str(uuid.uuid4()).upper()


def encode(data):
    return base64.b64encode(data).decode()


def launch(script=None, **changes):
    """A launch description; with a script, of a shell that runs it."""
    return {"executable": "/bin/sh", "arguments": [] if script is None else ["-c", script], "directory": "/",
            "environment": {"PATH": "/usr/bin:/bin"}, "columns": 80, "rows": 24, **changes}


def wait_until(condition, what, deadline=DEADLINE):
    """Polls until the condition answers something true, and returns that."""
    end = time.monotonic() + deadline
    while not (value := condition()):
        if time.monotonic() > end:
            raise AssertionError(f"waited {deadline} s in vain: {what}")
        time.sleep(0.005)
    return value


class Frame(dict):
    """A decoded answer or push that remembers the bytes it came as."""

    def __init__(self, raw):
        super().__init__(json.loads(raw.decode("utf-8")))
        self.raw = raw

    @property
    def output(self):
        return base64.b64decode(self["data"], validate=True)


class Client:
    """One connection. A field given as None is left out of the request."""

    def __init__(self, runtime):
        self.runtime = runtime
        self.incoming = b""
        self.socket = socket.socket(socket.AF_UNIX)
        try:
            self.socket.connect(os.path.join(runtime.root, "runtime.sock"))
        except OSError:
            self.socket.close()
            raise
        self.socket.settimeout(DEADLINE)
        runtime.clients.append(self)

    def send(self, raw):
        self.runtime.note(">", raw)
        try:
            self.socket.sendall(raw)
        except (BrokenPipeError, ConnectionResetError):
            pass  # dropped while sending; what the test reads next tells

    def receive(self):
        """More bytes, or none once the connection has ended."""
        try:
            return self.socket.recv(65536)
        except ConnectionResetError:
            return b""

    def frame(self):
        """The next line from the service, which must be a well-formed response."""
        while b"\n" not in self.incoming:
            if not (received := self.receive()):
                raise AssertionError("the service closed the connection")
            self.incoming += received
        line, self.incoming = self.incoming.split(b"\n", 1)
        self.runtime.note("<", line)
        frame = Frame(line)
        if not REQUIRED <= frame.keys() or frame["protocolVersion"] != 3 or None in frame.values():
            raise AssertionError(f"not a response: {line[:400]!r}")
        return frame

    def read_to_end(self):
        """What still comes until the service closes the connection."""
        while received := self.receive():
            self.incoming += received
        return self.incoming

    def text(self, action, **fields):
        request = {"protocolVersion": 3, "id": new_id(), "action": action,
                   "capability": self.runtime.capability, **fields}
        request = {key: value for key, value in request.items() if value is not None}
        return request["id"], json.dumps(request, ensure_ascii=False).encode() + b"\n"

    def request(self, action, **fields):
        """Sends one request and returns its answer; pushes that come before it are passed over."""
        identifier, raw = self.text(action, **fields)
        self.send(raw)
        while True:
            frame = self.frame()
            if frame["id"] == identifier.upper() and frame["action"] == action:
                return frame

    def create(self, script=None, sessionID=None, **changes):
        reply = self.request("create", sessionID=sessionID, launch=launch(script, **changes))
        if not reply["ok"]:
            raise AssertionError(f"create failed: {reply['error']}")
        return Session(self, reply["session"])


class Session:
    """A session as its client last saw it; requests quote that generation and control epoch."""

    def __init__(self, client, info):
        self.client, self.info, self.seen = client, info, b""

    def request(self, action, **fields):
        reply = self.client.request(action, **{
            "sessionID": self.info["id"], "generation": self.info["generation"],
            "controlEpoch": self.info["controlEpoch"], **fields})
        self.info = reply.get("session", self.info)
        return reply

    def input(self, typed, **fields):
        return self.request("input", **{"data": encode(typed), "source": "human",
                                        "inputSequence": self.info["nextInputSequence"], **fields})

    def cursor(self, offset):
        return {"generation": self.info["generation"], "offset": offset}

    def read_until(self, condition, what):
        """Reads on from what was seen until condition(reply) holds; returns the last reply."""
        def step():
            reply = self.request("read", after=self.cursor(len(self.seen)))
            if not reply["ok"] or reply["hasGap"]:
                raise AssertionError(f"cannot read on at {len(self.seen)}: {reply.raw[:400]!r}")
            self.seen += reply.output
            return reply if condition(reply) else None
        return wait_until(step, what)

    def expect(self, marker):
        self.read_until(lambda reply: marker in self.seen, f"output {marker!r}")
        return self.seen

    def finish(self):
        """Waits for the end of both child and output; returns everything printed."""
        self.read_until(lambda reply: not reply["session"]["running"]
                        and "foregroundPID" not in reply
                        and reply["latestOffset"] == len(self.seen), "the end of the session")
        return self.seen


class Runtime:
    """One service process and everything the test started through it."""

    def __init__(self):
        self.directory = tempfile.mkdtemp(prefix="vt", dir="/tmp")  # short: socket paths are
        self.root = os.path.join(self.directory, "root")
        self.capability = self.process = None
        self.frames, self.clients = [], []

    def note(self, direction, raw):
        shown = raw if len(raw) <= 600 else raw[:400] + b" ... %d bytes" % len(raw)
        self.frames.append(f"{direction} {shown.decode('utf-8', 'backslashreplace').rstrip()}")

    def start(self, **options):
        """Starts the service, waits for its first answer and returns a client."""
        with open(os.path.join(self.directory, "errors"), "wb") as errors:
            self.process = subprocess.Popen([RUNTIME, "--root", self.root], stdin=subprocess.DEVNULL,
                                            stdout=errors, stderr=errors, **options)
        client = wait_until(self._connect, "the service listens")
        client.send(client.text("hello")[1])
        client.frame()  # the token file is complete once the loop answers
        self.capability = pathlib.Path(self.root, "ui-capability").read_text()
        return client

    def _connect(self):
        if self.process.poll() is not None:
            raise AssertionError(f"ended with {self.process.returncode}: {self.errors()}")
        try:
            return Client(self)
        except (FileNotFoundError, ConnectionRefusedError):
            return None

    def errors(self):
        return pathlib.Path(self.directory, "errors").read_bytes()

    def kill(self):
        if self.process is not None:
            self.process.kill()
            self.process.wait()

    def close(self):
        if self.process is not None:
            self.frames.append(f"standard error: {self.errors()}")
        self.kill()
        for client in self.clients:
            client.socket.close()
        shutil.rmtree(self.directory, ignore_errors=True)


class RuntimeCase(unittest.TestCase):
    """A test with a service of its own, started unless the class says otherwise."""

    starts = True

    def setUp(self):
        self.runtime = Runtime()
        self.addCleanup(self.runtime.close)
        if self.starts:
            self.client = self.runtime.start()

    def run(self, result=None):
        before = len(result.failures) + len(result.errors)
        super().run(result)
        if len(result.failures) + len(result.errors) > before:
            print(f"\nframes of {self.id()}:", *self.runtime.frames[-40:], sep="\n  ", file=sys.stderr)
        return result

    def connect(self):
        return Client(self.runtime)

    def accept(self, reply):
        self.assertEqual((True, None), (reply["ok"], reply.get("error")))
        return reply

    def refuse(self, word, reply):
        """A refusal carries its word, the features and the event head, and nothing else."""
        self.assertEqual((False, word), (reply["ok"], reply.get("error")))
        self.assertEqual(REQUIRED | {"error", "features", "eventHead"}, reply.keys())
