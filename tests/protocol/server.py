"""A server of the test's own, and a look into what goes over the wire."""
import contextlib
import os
import random
import shutil
import socket
import subprocess
import tempfile
import time


def free_port():
    while True:
        with socket.socket() as probe, contextlib.suppress(OSError):
            probe.bind(("127.0.0.1", random.randint(20400, 32767)))
            return probe.getsockname()[1]


def listens(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


class Server:
    """Runs from construction until the end of the with block. `home` is a directory of its own, with a program `do` that
    runs its arguments as a shell command."""

    def __init__(self, executable, home=None, **settings):
        self.home, self.port = home or os.path.realpath(tempfile.mkdtemp(prefix="tlmjm-protocol-")), free_port()
        os.makedirs(self.home, exist_ok=True)
        for name in ("bin", "tmp", "client"):
            os.mkdir(f"{self.home}/{name}")
        with open(f"{self.home}/bin/do", "w", opener=lambda path, flags: os.open(path, flags, 0o755)) as program:
            program.write('#!/bin/sh\neval "$*"\n')
        environment = {**os.environ, "TSQOR_HOME": self.home, "TSQOR_TMP": f"{self.home}/tmp",
                       "TSQOR_JMPORT": str(self.port), "TS_MACHINE_REGISTRY": f"{self.home}/none",
                       "TS_USER_REGISTRY": f"{self.home}/none", **settings}
        self._log = open(f"{self.home}/server.log", "w")
        self.process = subprocess.Popen([executable, "debug"], env=environment, cwd=self.home, stdin=subprocess.DEVNULL,
                                        stdout=self._log, stderr=self._log)

    def __enter__(self):
        limit = time.monotonic() + 30
        while not listens(self.port):
            assert self.process.poll() is None and time.monotonic() < limit, open(self._log.name).read()
            time.sleep(0.02)
        return self

    def __exit__(self, *failure):
        self.process.terminate()
        self.process.wait(30)
        self._log.close()
        shutil.rmtree(self.home)
