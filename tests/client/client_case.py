"""The real client against a real service; see tests/process/runtime_process.py for the service's side."""

import os
import subprocess

import runtime_process as process

VELOTIDE = str(process.BINARIES / "velotide")
INTEGRATION = process.REPOSITORY / "shell-integration"


class ClientCase(process.RuntimeCase):
    def start(self, *words, root=None):
        return subprocess.Popen([VELOTIDE, "--root", root or self.runtime.root, *words], stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def velotide(self, *words):
        """Exit status, standard output and standard error."""
        command = self.start(*words)
        output, errors = command.communicate(timeout=process.DEADLINE)
        return command.returncode, output, errors.decode()

    def environment(self, **more):
        home = os.path.join(self.runtime.directory, "home")
        os.makedirs(home, exist_ok=True)
        return {"PATH": os.environ["PATH"], "HOME": home, "TERM": "xterm-256color", "LANG": "C.UTF-8", **more}
