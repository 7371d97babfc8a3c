"""Servers, their processes and their figures, and a road to them on which connections break."""
import contextlib, os, pathlib, random, re, select, signal, socket, subprocess, threading, time

from soaking import wire

COMPLAINTS = re.compile(r"Sanitizer|runtime error:|[Aa]ssertion|terminate called|FATAL")
CLAIMS = []


def free_port():
    """Nobody listens there. The datagram port of that number stays taken, by which others know that it is somebody's."""
    while True:
        with socket.socket() as probe, contextlib.suppress(OSError):
            CLAIMS.append(socket.socket(type=socket.SOCK_DGRAM))
            CLAIMS[-1].bind(("", random.randint(20400, 32699)))
            probe.bind(CLAIMS[-1].getsockname())
            return probe.getsockname()[1]


def eventually(condition, seconds, pause=0.1):
    end = time.monotonic() + seconds
    while not (value := condition()) and time.monotonic() < end:
        time.sleep(pause)
    return value


def processes_in(directory):
    """Process ids and command lines of what has its current directory there."""
    for entry in pathlib.Path("/proc").glob("[0-9]*"):
        with contextlib.suppress(OSError):
            if os.readlink(entry / "cwd").startswith(f"{directory}/"):
                yield int(entry.name), (entry / "cmdline").read_bytes().replace(b"\0", b" ").decode(errors="replace")


def is_empty(directory):
    with contextlib.suppress(OSError):
        return not os.listdir(directory)
    return True


def signal_job(directory, pid, command, number):
    """False if the process is not that of the job any more."""
    with contextlib.suppress(OSError), os.fdopen(os.pidfd_open(pid)) as held:
        if (pid, command) in processes_in(directory):
            signal.pidfd_send_signal(held.fileno(), number)
            return True
    return False


class Server:
    def __init__(self, name, scratch, binary, settings):
        self.name, self.port, self.root, self.binary = name, free_port(), scratch / name, binary
        self.log = open(scratch / f"{name}.log", "ab")
        self.settings = {**settings, "TSQOR_JMPORT": str(self.port), "TSQOR_TMP": str(self.root)}
        self.process = None

    def start(self):
        self.process = subprocess.Popen([self.binary, "debug"], env=self.settings, cwd=self.root.parent, stdout=self.log,
                                        stdin=subprocess.DEVNULL, stderr=self.log, start_new_session=True)
        if not eventually(lambda: self.process.poll() is not None or self.sweep(), 60) or self.process.poll() is not None:
            raise RuntimeError(f"the {self.name} server does not start, see {self.log.name}")

    def kill(self):
        """As a service manager does it: the jobs go, too."""
        self.process.kill()
        self.process.wait()
        while jobs := list(processes_in(self.root)):
            for pid, _ in jobs:
                with contextlib.suppress(OSError):
                    os.kill(pid, signal.SIGKILL)

    def sweep(self):
        """A client with a directory that is new to it makes the server look for what has expired. False without answer."""
        with contextlib.suppress(OSError), wire.Connection(self.port, 20) as connection:
            return connection.hello().map("/sweep")

    def figures(self):
        own, directories, files = pathlib.Path(f"/proc/{self.process.pid}"), 0, set()
        table = (self.root / "tlm2010.sta").read_text()
        for place, below, names in os.walk(self.root):
            # A kill may come between the making of a directory and its record.
            directories += sum(1 for name in below if name in table or not is_empty(f"{place}/{name}"))
            for name in names:
                with contextlib.suppress(OSError):
                    if pathlib.Path(place) != self.root:  # where the tables are
                        files.add(os.stat(f"{place}/{name}").st_ino)
        status = dict(re.findall(r"^(\w+):\s*(\d+)", (own / "status").read_text(), re.M))
        locks = [line for line in open("/proc/locks") if int(line.split()[-3].split(":")[2]) in files]
        children = [child for path in own.glob("task/*/children") for child in path.read_text().split()]
        return {"RSS, KiB": int(status["VmRSS"]), "descriptors": len(os.listdir(own / "fd")), "children": len(children),
                "threads": int(status["Threads"]), "directories": directories, "files": len(files), "locks": len(locks)}

    def complaints(self):
        with open(self.log.name, errors="replace") as log:
            return [line.strip() for line in log if COMPLAINTS.search(line)][:5]


class Road(threading.Thread):
    """Passes connections on to a port, and resets a share of them after a number of bytes."""

    def __init__(self, port, rng, share, least, most, count):
        super().__init__(daemon=True)
        self.target, self.rng, self.share, self.least, self.most, self.count = port, rng, share, least, most, count
        self.listener = socket.create_server(("127.0.0.1", free_port()), backlog=100)
        self.port = self.listener.getsockname()[1]
        self.start()

    def run(self):
        while True:
            near = self.listener.accept()[0]
            left = self.least * (self.most / self.least) ** self.rng.random() if self.rng.random() < self.share else 1 << 62
            threading.Thread(target=self.carry, args=(near, left), daemon=True).start()

    def carry(self, near, left):
        with near, contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", self.target), 60) as far:
            near.settimeout(60)
            while left > 0:
                for source in select.select([near, far], [], [])[0]:
                    data = source.recv(1 << 16)
                    if not data:
                        return
                    (far if source is near else near).sendall(data)
                    left -= len(data)
            self.count()
            wire.reset(far)
            wire.reset(near)
