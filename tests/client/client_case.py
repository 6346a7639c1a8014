"""The real client against a real service; see tests/process/runtime_process.py for the service's side."""

import subprocess

import runtime_process as process

VELOTIDE = str(process.BINARIES / "velotide")


class ClientCase(process.RuntimeCase):
    def start(self, *words, root=None):
        return subprocess.Popen([VELOTIDE, "--root", root or self.runtime.root, *words], stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def finish(self, command):
        """Exit status, standard output and standard error."""
        output, errors = command.communicate(timeout=process.DEADLINE)
        return command.returncode, output, errors

    def velotide(self, *words):
        return self.finish(self.start(*words))
