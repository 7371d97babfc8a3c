"""Reports of an analysis program to the job manager that runs it.

The program need not know whether it is a job: if it is not, every call returns at once, does nothing and prints
nothing. A job is known by the process that the job manager has started. If that is a script or an interpreter, the
programs that it starts report for it.

    import tlmjob

    tlmjob.attach()
    for step in range(steps):
        if tlmjob.stop_requested():
            sys.exit(3)
        ...
        tlmjob.progress(100 * step // steps)
    ...                             # write the result files
    tlmjob.results_available()
    tlmjob.succeeded()

Any thread may call. In a process made by os.fork() or multiprocessing, the calls do nothing.
"""
import atexit
import ctypes
import os
import re
import socket
import struct
import sys
import threading
import time

__all__ = ["attach", "progress", "required_level", "results_available", "succeeded", "retry", "stop_requested",
           "detach"]


def attach():
    """Call it first: the calls below do nothing before, and from now on the job manager asks the program to end rather
    than ending it. Does not wait for the job manager. If that cannot be reached, a line on standard error says so, and
    the program goes on alone. A success that was reported for the job before counts no more. True if the program is a
    job. No effect if it is attached."""
    global _reporter, _process
    if _is_copy():
        return False
    with _lock:
        if _reporter or _stop_seen:
            return True
        job, manager = _own_job()
        if not job:
            return False
        if not _process:
            atexit.register(detach)
        _process = os.getpid()
        _reporter = _Reporter(job, manager)
        return True


def progress(percent):
    """How far the analysis is, 0 to 100; what lies outside is taken for the nearer of the two. Does not wait, so it may
    be called often: of several percentages only the latest is sent. What is no number counts as 0."""
    _put(lambda: {"progress": _percentage(percent)})


def required_level(type, level):
    """What the analysis takes, two numbers with a meaning of the site's own. Does not wait; only the latest pair is
    sent. What is no number counts as 0."""
    _put(lambda: {"level": struct.pack(">QQ", _whole(type) % 2**64, _whole(level) % 2**64)})


def results_available():
    """The result files are there, whole: clients may fetch them from now on, while the program goes on. Returns when
    the job manager knows, or when a stop is requested, or when the job manager has not answered for 60 seconds; then
    the line on standard error says that the program goes on alone. So do the next two."""
    _deliver(results=True)


def succeeded():
    """The analysis has succeeded. A job whose program ends without this counts as failed, whatever its exit code."""
    _deliver(succeeded=True)


def retry():
    """The analysis should be tried again. The job manager notes it down."""
    _deliver(retry=True)


def stop_requested():
    """True if the job manager has asked the program to end. Cheap enough for every iteration. Once it is true it stays
    true, also when the program detaches, and the program has 10 seconds to end before it is made to."""
    global _stop_seen
    reporter = _current()
    if reporter and reporter.stop_requested():
        _stop_seen = True
    return _stop_seen and not _is_copy()


def detach():
    """No more reports will come. Returns as results_available does, with all of them delivered. At the end of the
    interpreter it is called by itself."""
    global _reporter
    reporter = _current()
    if reporter:
        reporter.finish()
        stop_requested()
        with _lock:
            if _reporter is reporter:
                reporter.stop.close()
                _reporter = None


# -- the program's side

_STOP_INTERVAL = 0.05  # seconds
_PATIENCE = 60  # seconds
_lock = threading.Lock()
_reporter = None  # of the attached program, guarded by _lock
_process = None  # that has attached last
# From then on the job manager waits for the end and hears nothing more; its event goes with the attachment.
_stop_seen = False


def _is_copy():
    """What that process has forked has copies of lock and reporter, but not of the threads that work with them."""
    return _process is not None and _process != os.getpid()


def _current():
    return None if _is_copy() else _reporter


def _put(make_message):
    reporter = _current()
    if reporter:
        reporter.put(make_message())


# An analysis of hours must not end by what it reports, be it None, a NaN or of a class that cannot be compared.
def _percentage(value):
    try:
        return int(max(0, min(100, value))) if value == value else 0
    except Exception:
        return 0


def _whole(value):
    try:
        return int(value)
    except Exception:
        return 0


def _deliver(**message):
    reporter = _current()
    if reporter:
        reporter.put(message)
        reporter.wait_until(lambda: not reporter.waiting and not reporter.sending)


class _Reporter:
    """The job manager may be waiting for the job to end on its stop event, and answers no call meanwhile. So the calls
    have a thread of their own, and whoever waits for them looks at the event. Nor does one wait for a job manager that
    has stopped answering; should it answer after all, it gets what was put."""

    def __init__(self, job, manager):
        self.changed = threading.Condition()  # guards all below
        self.waiting = {}
        self.sending, self.sending_since = True, time.monotonic()  # until the first is fetched: attaching counts
        self.finished = self.closed = self.has_complained = False
        product = _PRODUCTS.get(os.environ.get("TSJM_CLIENT"), _PRODUCTS["tlm"])
        self.stop = _StopEvent(f"/{product.release}_{job}", job == os.getpid())
        try:
            threading.Thread(target=self._serve, args=(job, product, manager), daemon=True).start()
        except (RuntimeError, MemoryError):
            self.closed = True

    def put(self, message):
        with self.changed:
            if not self.finished:
                self.waiting.update(message)
            self.changed.notify_all()

    def finish(self):
        with self.changed:
            self.finished = True
            self.changed.notify_all()
        self.wait_until(lambda: False)

    def wait_until(self, condition):
        with self.changed:
            while not (self.closed or condition() or self.stop_requested()):
                if self.sending and time.monotonic() - self.sending_since > _PATIENCE:
                    self._complain_once()
                    break
                self.changed.wait(_STOP_INTERVAL)

    def _complain_once(self):
        if not self.has_complained:
            self.has_complained = True
            print(f"{_program()}: no job manager to report to, going on without", file=sys.stderr)

    def stop_requested(self):
        return self.stop.is_set()

    def _serve(self, job, product, manager):
        try:
            with _Connection(product.port(manager)) as connection:
                text = lambda name: struct.pack(">I", len(name)) + name + bytes(-len(name) % 4)
                call = lambda operation, *rest: connection.call(operation, struct.pack(">Q", job), *rest)
                call(_ATTACH, text(os.fsencode(_program())), text(os.fsencode(os.getcwd())))
                while message := self._fetch():
                    if "level" in message:
                        call(_LEVEL, message["level"])
                    if "progress" in message:
                        call(_PROGRESS, struct.pack(">I", message["progress"]))
                    for name, operation in (("retry", _RETRY), ("results", _RESULTS), ("succeeded", _SUCCEEDED)):
                        if name in message:
                            call(operation)
        except Exception:
            self._complain_once()
        finally:
            with self.changed:
                self.closed = True
                self.changed.notify_all()

    def _fetch(self):
        """Says that the message before was delivered. Empty once all were, after finish."""
        with self.changed:
            self.sending = False
            self.changed.notify_all()
            self.changed.wait_for(lambda: self.finished or self.waiting)
            message, self.waiting = self.waiting, {}
            self.sending, self.sending_since = bool(message), time.monotonic()
            return message


def _program():
    return os.path.basename((getattr(sys, "argv", None) or [""])[0]) or "python"


# -- the job manager's side

_ATTACH, _PROGRESS, _RESULTS, _SUCCEEDED, _RETRY, _LEVEL = 18, 19, 20, 21, 22, 45

class _Connection:
    """Calls to the job manager, one at a time: XDR in records of RFC 5531."""

    def __init__(self, port):
        self.socket = socket.create_connection(("127.0.0.1", port), None)
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def call(self, operation, *arguments):
        """Waits for the reply, of which only the status is of use here."""
        record = struct.pack(">10I", 1, 0, 2, 0x514A4D50, 1, operation, 0, 0, 0, 0) + b"".join(arguments)
        self.socket.sendall(struct.pack(">I", 0x80000000 | len(record)) + record)
        reply, last = b"", False
        while not last:
            mark, = struct.unpack(">I", self._receive(4))
            last = mark & 0x80000000
            reply += self._receive(mark & 0x7FFFFFFF)
        if struct.unpack_from(">6I", reply)[2::3] != (0, 0):
            raise ConnectionError("the job manager has refused the call")

    def _receive(self, size):
        data = b""
        while len(data) < size:
            piece = self.socket.recv(min(size - len(data), 65536))
            if not piece:
                raise ConnectionError("the job manager has closed the connection")
            data += piece
        return data


class _Product:
    """What hangs on the product of the job manager, which it tells its jobs by TSJM_CLIENT."""

    def __init__(self, release, prefix, name, port):
        self.release, self.variable, self.name, self.default_port = release, prefix + "_JMPORT", name, port

    def port(self, manager):
        """Of the job manager with this process id, 0 if that is not known."""
        number = re.match(r"\s*[-+]?\d+", self._port_setting(manager) or "")
        port = int(number.group()) if number else 0
        return port & 0xFFFF if port > 1024 else self.default_port

    def _port_setting(self, manager):
        """From the first place that has it, of those in which the job manager looks."""
        if self.variable in os.environ:
            return os.environ[self.variable]
        home = os.environ.get("XDG_CONFIG_HOME") or os.path.expanduser("~/.config")
        key = rf"SOFTWARE\Corvanta\{self.name}\2010\Environment"
        for registry in (os.environ.get("TS_USER_REGISTRY") or home + "/corvanta/registry.ini",
                         os.environ.get("TS_MACHINE_REGISTRY") or "/etc/corvanta/registry.ini"):
            value = _setting(registry, key, self.variable)
            if value is not None and not value.startswith("dword:"):  # a number counts for nothing
                return _expanded(value.removeprefix("expand:"))
        value = _setting(_executable(manager) + ".ini", "ENVIRONMENT", self.variable) or ""
        return value[1:-1] if len(value) > 1 and value[0] == value[-1] and value[0] in "'\"" else value


_PRODUCTS = {
    "tlm": _Product("tlm2010", "TSQOR", "Corvanta Tessarine Lumora", 20317),
    "ksb": _Product("ksb2010", "KSB", "Corvanta Tessarine Kestrel", 20615),
    "vrk": _Product("vrk2010", "VRK", "Corvanta Tessarine Vireo", 20700),
}


def _setting(path, section, name):
    """Of a file with sections; case does not count."""
    inside = False
    try:
        with open(path, encoding="utf-8-sig", errors="replace") as file:
            for line in map(str.strip, file):
                key, equals, value = line.partition("=")
                if line.startswith((";", "#")):
                    continue
                if line.startswith("[") and line.endswith("]"):
                    inside = line[1:-1].strip().lower() == section.lower()
                elif inside and equals and key.strip().lower() == name.lower():
                    return value.strip()
    except OSError:
        pass
    return None


def _expanded(text):
    """With %NAME% replaced by the variable. The second sign of an unknown name may be the first one of a known name."""
    result = ""
    while text:
        name, sign, rest = text[1:].partition("%") if text.startswith("%") else ("", "", "")
        known = sign and name in os.environ
        result += os.environ[name] if known else text[0]
        text = rest if known else text[1:]
    return result


def _executable(process):
    try:
        return os.readlink(f"/proc/{process}/exe").removesuffix(" (deleted)")
    except OSError:
        return ""


class _StopEvent:
    """The event by which the job is asked to end: a named semaphore. All processes of a job share one, whose name goes
    with its maker."""

    def __init__(self, name, replace):
        self.name, self.semaphore, self.is_maker, self.was_set = name.encode(), None, False, False
        try:
            self.system = system = ctypes.CDLL(None)
            system.sem_open.restype = ctypes.c_void_p
            if replace:  # what stands there is of a former process of this id
                system.sem_unlink(self.name)
            self.semaphore = system.sem_open(self.name, os.O_CREAT | os.O_EXCL, 0o600, 0)
            self.is_maker = bool(self.semaphore)
            if not self.is_maker and self._is_whole():
                self.semaphore = system.sem_open(self.name, 0)
        except (OSError, AttributeError):
            pass  # a system without such events

    def _is_whole(self):
        """A shorter file, made by whoever, would end this process when it is touched."""
        status = os.stat("/dev/shm/sem." + self.name[1:].decode())
        return status.st_size >= 32 and status.st_uid == os.geteuid()

    def is_set(self):
        value = ctypes.c_int()
        if self.semaphore and not self.was_set:
            self.system.sem_getvalue(ctypes.c_void_p(self.semaphore), ctypes.byref(value))
            self.was_set = value.value > 0
        return self.was_set

    def close(self):
        if self.is_maker:
            self.system.sem_unlink(self.name)


# -- the job

_JOB_MANAGERS = ("tlmjm", "ksbjm", "vrkjm")


def _own_job():
    """The process that the job manager has started for the job to which this process belongs, which is this one or one
    further up, and the job manager itself. 0 for both if it is no job's."""
    process = os.getpid()
    while process:
        parent = _parent(process)
        if _is_job_manager(parent):
            return process, parent
        process = parent
    # A job's process leads a group, so what it has left behind still knows it. If it has ended, so has the job.
    leader = os.getpgrp() if hasattr(os, "getpgrp") else 0
    manager = _parent(leader)
    return (leader, manager) if _is_job_manager(manager) else (0, 0)


def _parent(process):
    """0 if there is none."""
    entry = _look_up(process)
    return entry[0] if entry else 0


def _is_job_manager(process):
    entry = _look_up(process)
    return bool(entry) and entry[1] in _JOB_MANAGERS


def _look_up(process):
    """Parent and program of a process; None if there is none."""
    try:
        with open(f"/proc/{process}/stat", encoding="utf-8", errors="replace") as file:
            name, _, rest = file.read().partition("(")[2].rpartition(")")
        return int(rest.split()[1]), name
    except (OSError, ValueError, IndexError):
        return None
