"""A client of the job manager in one file. Needs Python 3.8 and nothing else.

    import socket, time, tlm

    with tlm.JobManager("127.0.0.1") as manager:
        manager.hello("plm300", socket.gethostname(), 0)
        directory, _ = manager.map_client_directory("/home/me/plate/", "")
        manager.put_files([tlm.FileItem(directory + "/plate.inp", "/home/me/plate/plate.inp")])
        handle = manager.submit_job(tlm.Submission(work_dir="/home/me/plate/", command="heat2d plate.inp",
                                                   input_file="plate.inp", result_stem="plate", input_stem="plate"))
        while manager.get_job(handle)[0].status in tlm.UNFINISHED:
            time.sleep(1)
        files, sent = manager.request_results(handle, into="/home/me/plate")
        manager.results_received(handle)

Each operation of the server is a method. A method waits for the server's answer, also that of an operation that has no
results. Texts are str; bytes that are no UTF-8 stand in them as os.fsdecode has them. Numbers that do not fit raise
OverflowError, texts that are too long ValueError, both before anything is sent. A call that the server does not answer
as it should raises Refused, and the connection can be used on. After any other error (OSError, ProtocolError) it is
closed. A JobManager is used by one thread at a time.
"""
from __future__ import annotations

import dataclasses
import enum
import os
import re
import socket
import struct
from collections.abc import Callable, Sequence
from typing import NamedTuple, Optional, Union

PORT = 20317
PROGRAM, VERSION = 0x514A4D50, 1
STRING_LIMIT = 0x1000000  # bytes
_PACKET_SIZE = 0x200000  # from this length on a record is sent
_PIECE = 0x10000  # bytes of a file that are held in memory
_LONGEST_LIST = 1_000_000
_LAST_FRAGMENT = 0x80000000


class Refused(Exception):
    """The server has not carried out a call."""

    NAMES = {1: "PROG_UNAVAIL", 3: "PROC_UNAVAIL", 5: "SYSTEM_ERR"}

    def __init__(self, call: str, status: int):
        super().__init__(f"{call}: {self.NAMES.get(status, status)}")
        self.status = status


class ProtocolError(Exception):
    """What came is no answer of a job manager."""


@dataclasses.dataclass
class FileItem:
    """A file on its way: `source` is read by its sender, `destination` is its name at the receiver; `offset` bytes at its
    beginning are there already. Of a file that was received, `path` tells where it is, None if nobody wanted it."""

    destination: str
    source: str = ""
    offset: int = 0
    path: Optional[str] = None


# Where files are received: in a directory, each by the last part of its destination, or where a function says. A file
# for which the function gives None is dropped.
Receiver = Union[str, "os.PathLike[str]", Callable[[FileItem], Optional[str]]]


class Operation(NamedTuple):
    name: str
    request: tuple  # of pairs of name and wire type
    reply: tuple


# What stands between "catalogue" and "end" is written by scripts/protocol.
# catalogue: values


class Status(enum.IntEnum):
    """Values of Task.status."""

    QUEUED = 1  # waits for a worker or the distributor
    LAUNCH_FAILED = 2  # could not be started, or ended with exit code 255
    RUNNING = 3  # a process runs, here or on a peer
    STARTING = 4  # a worker has taken it
    FINISHED = 5  # ended with success
    ABORTED = 6  # ended without success, or was removed before its end
    REMOVED = 7  # finished and given up; the next sweep frees it
    PROGRESS_NOTICE = 9  # what one reader is told once after a report of progress


# Values of Submission.run_class
RUN_AT_ONCE = 0  # however many jobs run
RUN_QUEUED = 1  # when the queue runs and has room
RUN_DISTRIBUTED = 2  # the same, or on a peer that has less to do
# Bits of Task.result_flags
RESULTS_AVAILABLE = 1
RESULTS_BEING_SENT = 2
# end of values
UNFINISHED = (Status.QUEUED, Status.RUNNING, Status.STARTING, Status.PROGRESS_NOTICE)
# catalogue: records


@dataclasses.dataclass
class Submission:
    """What a client says of a job that it submits."""
    analysis_id: str = ""
    work_dir: str = ""  # the client's directory
    command: str = ""  # one or more command lines, separated by ';' outside quotes
    input_file: str = ""  # the one file of the job's stem that is no result
    result_stem: str = ""  # base name of the result files and of the output file
    input_stem: str = ""  # when it differs from result_stem, older results are deleted before the run
    client_note: str = ""
    task_key: str = ""  # handed to the child through its environment
    process_id: int = 0
    run_class: int = 0
    predecessor: int = 0  # handle of the job that must finish first, 0 for none
    complete_on_failure: bool = False  # counts as complete with results even if it never reported success
    reserved_flag: bool = False


@dataclasses.dataclass
class Task:
    """What the server knows of a job."""
    analysis_id: str = ""
    work_dir: str = ""  # the client's directory
    command: str = ""  # one or more command lines, separated by ';' outside quotes
    input_file: str = ""  # the one file of the job's stem that is no result
    result_stem: str = ""  # base name of the result files and of the output file
    input_stem: str = ""  # when it differs from result_stem, older results are deleted before the run
    client_note: str = ""
    task_key: str = ""  # handed to the child through its environment
    process_id: int = 0
    client_host: str = ""
    client_port: int = 0  # of the session that owns the job, 0 for none
    run_class: int = 0
    predecessor: int = 0  # handle of the job that must finish first, 0 for none
    status: int = 0
    result_flags: int = 0
    exit_code: int = 0
    scheduled: int = 0  # when it was submitted
    started: int = 0  # when its last process was started
    reserved_time: int = 0
    elapsed: int = 0  # seconds between started and the end of the last process
    progress: int = 0
    priority: int = 0
    complete_on_failure: bool = False  # counts as complete with results even if it never reported success
    reserved_flag: bool = False
    task_type: int = 0
    task_level: int = 0
    update_timestamp: int = 0  # a counter of changes, not a time


# end of records
# catalogue: tables
_RECORDS = {
    Submission: (("analysis_id", "string"), ("work_dir", "string"), ("command", "string"), ("input_file", "string"),
        ("result_stem", "string"), ("input_stem", "string"), ("client_note", "string"), ("task_key", "string"),
        ("process_id", "i64"), ("run_class", "u32"), ("predecessor", "u64"), ("complete_on_failure", "bool"),
        ("reserved_flag", "bool"),),
    Task: (("analysis_id", "string"), ("work_dir", "string"), ("command", "string"), ("input_file", "string"),
        ("result_stem", "string"), ("input_stem", "string"), ("client_note", "string"), ("task_key", "string"),
        ("process_id", "i64"), ("client_host", "string"), ("client_port", "u32"), ("run_class", "u32"),
        ("predecessor", "u64"), ("status", "u32"), ("result_flags", "u32"), ("exit_code", "u32"),
        ("scheduled", "i64"), ("started", "i64"), ("reserved_time", "i64"), ("elapsed", "u32"), ("progress", "i32"),
        ("priority", "u32"), ("complete_on_failure", "bool"), ("reserved_flag", "bool"), ("task_type", "u64"),
        ("task_level", "u64"), ("update_timestamp", "u64"),),
}
OPERATIONS = {
    1: Operation("Hello", (("version_token", "string"), ("client_host", "string"), ("callback_port", "u32"),),
        (("found", "bool"),)),
    2: Operation("SubmitJob", (("submission", "Submission"),), (("handle", "u64"),)),
    3: Operation("ClientFileExists", (("path", "string"),), (("exists", "bool"),)),
    4: Operation("MapClientDirectory", (("client_directory", "string"), ("server_directory", "string"),),
        (("server_directory", "string"), ("mapped", "bool"),)),
    5: Operation("PutFiles", (("files", "FileTransferList"),), (("stored", "bool"),)),
    6: Operation("StartQueue", (("delay", "u64"),), (("done", "bool"),)),
    7: Operation("StopQueue", (), (("was_running", "bool"),)),
    8: Operation("IsQueueRunning", (), (("running", "bool"),)),
    9: Operation("SetQueueLimit", (("count", "u32"),), (("accepted", "bool"),)),
    10: Operation("GetQueueLimit", (), (("limit", "u32"),)),
    11: Operation("SetDefaultPriority", (("priority", "u32"),), (("done", "bool"),)),
    12: Operation("GetDefaultPriority", (), (("priority", "u32"),)),
    13: Operation("RemoveJob", (("handle", "u64"),), (("found", "bool"),)),
    14: Operation("SetJobPriority", (("handle", "u64"), ("priority", "u32"),), (("found", "bool"),)),
    15: Operation("ResultsNotSent", (("handle", "u64"),), (("owned", "bool"),)),
    16: Operation("Reserved16", (("value", "u64"),), (("done", "bool"),)),
    17: Operation("Shutdown", (), ()),
    18: Operation("AttachProcess", (("process_id", "u64"), ("command", "string"), ("directory", "string"),),
        (("handle", "u64"),)),
    19: Operation("SetProgress", (("process_id", "u64"), ("progress", "u32"),), (("found", "bool"),)),
    20: Operation("ResultsAvailable", (("process_id", "u64"),), (("found", "bool"),)),
    21: Operation("JobSucceeded", (("process_id", "u64"),), (("found", "bool"),)),
    22: Operation("RequestRetry", (("process_id", "u64"),), (("found", "bool"),)),
    23: Operation("GetJob", (("handle", "u64"), ("task", "Task"),), (("task", "Task"), ("changed", "bool"),)),
    24: Operation("RequestResults", (("handle", "u64"), ("files", "FileTransferList"),),
        (("files", "FileTransferList"), ("sent", "bool"),)),
    25: Operation("GetServerPool", (), (("pool", "StringList"),)),
    26: Operation("SetServerPool", (("pool", "StringList"),), ()),
    27: Operation("GetLocalLimit", (), (("limit", "u32"),)),
    28: Operation("SetLocalLimit", (("limit", "u32"),), (("accepted", "bool"),)),
    29: Operation("GetJobCount", (), (("count", "u32"),)),
    30: Operation("TakeOwnership", (("handle", "u64"),), (("owned", "bool"),)),
    31: Operation("SetListening", (("on", "bool"),), ()),
    32: Operation("WatchOutput", (("handle", "u64"), ("offset", "u32"),), ()),
    33: Operation("RefreshJobs", (), ()),
    34: Operation("Reserved34", (("first", "u64"), ("second", "u32"),), ()),
    35: Operation("ResultsReceived", (("handle", "u64"),), ()),
    36: Operation("ReadOutput", (("handle", "u64"), ("offset", "u32"), ("text", "string"),), (("text", "string"),)),
    37: Operation("SetTempRoot", (("directory", "string"), ("expiry", "u32"),), (("moved", "bool"),)),
    38: Operation("GetTempRoot", (), (("directory", "string"), ("expiry", "u32"),)),
    39: Operation("GetQueueStartTime", (), (("time", "u64"),)),
    40: Operation("SetEnvironment", (("variables", "EnvList"),), ()),
    41: Operation("ClientFileMatches", (("path", "string"), ("size", "u32"), ("unused", "u32"),),
        (("matches", "bool"),)),
    42: Operation("CheckClientFiles", (("entries", "StringList"),), (("missing", "StringList"),
        ("all_match", "bool"),)),
    43: Operation("UpdateClientFiles", (("deletions", "StringList"), ("files", "FileTransferList"),),
        (("updated", "bool"),)),
    44: Operation("ResultsIncomplete", (("handle", "u64"), ("names", "StringList"),), ()),
    45: Operation("RequiredLevel", (("process_id", "u64"), ("type", "u64"), ("level", "u64"),), ()),
    46: Operation("AbortAllJobs", (), (("done", "bool"),)),
    47: Operation("ListJobs", (("handles", "HandleList"),), (("handles", "HandleList"),)),
    48: Operation("ReleaseJob", (("handle", "u64"),), ()),
    49: Operation("ListRemovedJobs", (("handles", "HandleList"),), (("handles", "HandleList"),)),
}
# end of tables


class _Stream:
    """The records of a connection. One piece that is written stands whole in one record."""

    def __init__(self, connection: socket.socket):
        self._connection = connection
        self._input = connection.makefile("rb")
        self._left = 0  # bytes of the current fragment
        self._gathered = bytearray(4)

    def write(self, piece: bytes) -> None:
        if len(self._gathered) >= _PACKET_SIZE:
            self.flush()
        self._gathered += piece

    def flush(self) -> None:
        struct.pack_into(">I", self._gathered, 0, _LAST_FRAGMENT | len(self._gathered) - 4)
        self._connection.sendall(self._gathered)
        del self._gathered[4:]

    def read(self, count: int) -> bytes:
        parts = []
        while count:
            if not self._left:
                self._left = int.from_bytes(self._take(4), "big") & ~_LAST_FRAGMENT
            parts.append(self._take(min(count, self._left)))
            count -= len(parts[-1])
            self._left -= len(parts[-1])
        return b"".join(parts)

    def close(self) -> None:
        self._input.close()
        self._connection.close()

    def _take(self, count: int) -> bytes:
        taken = self._input.read(count)
        if len(taken) != count:
            raise ConnectionResetError("the server has closed the connection")
        return taken


def _padding(length: int) -> int:
    return -length % 4


def _put_number(size: int, signed: bool = False) -> Callable:
    return lambda stream, value: stream.write(int(value).to_bytes(size, "big", signed=signed))


def _get_number(size: int, signed: bool = False) -> Callable:
    return lambda stream: int.from_bytes(stream.read(size), "big", signed=signed)


def _encoded(text: Union[str, bytes]) -> bytes:
    data = text if isinstance(text, bytes) else text.encode("utf-8", "surrogateescape")
    if len(data) > STRING_LIMIT:
        raise ValueError(f"a text of {len(data)} bytes is too long: {STRING_LIMIT} are the limit")
    return data


def _put_string(stream: _Stream, text: Union[str, bytes]) -> None:
    data = _encoded(text)
    stream.write(len(data).to_bytes(4, "big") + data + bytes(_padding(len(data))))


def _get_string(stream: _Stream) -> str:
    length = _GET["u32"](stream)
    if length > STRING_LIMIT:
        raise ProtocolError(f"a text of {length} bytes")
    return stream.read(length + _padding(length))[:length].decode("utf-8", "surrogateescape")


def _put_list(put: Callable) -> Callable:
    def put_all(stream, values):
        _PUT["u32"](stream, len(values))
        for value in values:
            put(stream, value)

    return put_all


def _get_list(get: Callable) -> Callable:
    def get_all(stream):
        count = _GET["u32"](stream)
        if count > _LONGEST_LIST:
            raise ProtocolError(f"a list of {count} items")
        return [get(stream) for _ in range(count)]

    return get_all


def _put_variable(stream: _Stream, variable: tuple) -> None:
    name, value = variable
    _put_string(stream, name)
    _put_string(stream, value)


def _put_record(record: type) -> Callable:
    def put(stream, value):
        for name, kind in _RECORDS[record]:
            _PUT[kind](stream, getattr(value, name))

    return put


def _get_record(record: type) -> Callable:
    return lambda stream: record(*[_GET[kind](stream) for _, kind in _RECORDS[record]])


def _put_file(stream: _Stream, item: FileItem) -> None:
    with open(item.source, "rb") as file:
        file.seek(item.offset)
        _put_string(stream, item.destination)
        _put_string(stream, item.source)
        _PUT["u32"](stream, item.offset)
        while piece := file.read(_PIECE):
            _put_string(stream, piece)
    _PUT["u32"](stream, 0)


def _get_file(stream: _Stream, path_for: Callable) -> FileItem:
    item = FileItem(_get_string(stream), _get_string(stream), _GET["u32"](stream))
    item.path = path_for(item)
    with open(os.devnull if item.path is None else item.path + ".tmp", "r+b" if item.offset else "wb") as file:
        file.seek(item.offset)
        while length := _GET["u32"](stream):
            for start in range(0, length, _PIECE):
                file.write(stream.read(min(_PIECE, length - start)))
            stream.read(_padding(length))
    return item


def _get_files(stream: _Stream, into: Receiver) -> list:
    directory = None if callable(into) else os.fspath(into)

    def path_in_directory(item):
        name = re.split(r"[/\\]", item.destination)[-1]
        if name in ("", ".", "..") or "\0" in name:
            raise ProtocolError(f"{item.destination!r} is no name of a file")
        return os.path.join(directory, name)

    items = _get_list(lambda stream: _get_file(stream, into if callable(into) else path_in_directory))(stream)
    for path in {item.path for item in items} - {None}:
        os.replace(path + ".tmp", path)
    return items


_PUT = {"u32": _put_number(4), "i32": _put_number(4, True), "u64": _put_number(8), "i64": _put_number(8, True),
        "bool": lambda stream, value: stream.write(int(bool(value)).to_bytes(4, "big")), "string": _put_string,
        "HandleList": _put_list(_put_number(8)), "StringList": _put_list(_put_string),
        "EnvList": _put_list(_put_variable), "FileTransferList": _put_list(_put_file),
        "Submission": _put_record(Submission), "Task": _put_record(Task)}
_GET = {"u32": _get_number(4), "i32": _get_number(4, True), "u64": _get_number(8), "i64": _get_number(8, True),
        "bool": lambda stream: any(stream.read(4)), "string": _get_string, "HandleList": _get_list(_get_number(8)),
        "StringList": _get_list(_get_string), "Task": _get_record(Task)}


class _Nowhere:
    """Takes what is written, to find out whether it can be written."""

    def write(self, piece: bytes) -> None:
        pass


def _check(kind: str, value) -> None:
    if kind == "FileTransferList":
        for item in value:
            open(item.source, "rb").close()
            _encoded(item.destination), _encoded(item.source), _PUT["u32"](_Nowhere(), item.offset)
    else:
        _PUT[kind](_Nowhere(), value)


class JobManager:
    """A connection to a job manager, and a session there."""

    def __init__(self, host: str = "127.0.0.1", port: int = PORT, timeout: Optional[float] = None):
        """`timeout` is the longest wait for a sign of the server, in seconds. A call may take long: without one, it is
        waited for as long as the connection holds."""
        connection = socket.create_connection((host, port), timeout)
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self._stream = _Stream(connection)
        self._xid = 0

    def __enter__(self) -> JobManager:
        return self

    def __exit__(self, *failure) -> None:
        self.close()

    def close(self) -> None:
        """The jobs of the session stay, and belong to nobody until a client of this machine takes them."""
        self._stream.close()

    def ping(self) -> None:
        """Returns when the server has answered."""
        self._exchange(0, "ping", (), (), (), None)

    # catalogue: methods

    def hello(self, version_token: str, client_host: str, callback_port: int) -> bool:
        """Opens the session: who calls, and the install that its programs run from. Its jobs are known by
        `client_host`. Gives `found`: the version token, a name with the digits of a release, has an install.
        Without it no job can be submitted.
        """
        return self._call(1, version_token, client_host, callback_port)

    def submit_job(self, submission: Submission) -> int:
        """Makes a job. Gives its `handle`, 0 if it was refused.
        """
        return self._call(2, submission)

    def client_file_exists(self, path: str) -> bool:
        """Is the client's file there, in the directory that stands for its own? Gives `exists`.
        """
        return self._call(3, path)

    def map_client_directory(self, client_directory: str, server_directory: str = "") -> tuple[str, bool]:
        """Gives the server's directory that stands for one of the client's, and makes it if there is none. What
        `server_directory` holds in the request is ignored. Gives `mapped`, always true. Returns server_directory,
        mapped.
        """
        return self._call(4, client_directory, server_directory)

    def put_files(self, files: Sequence[FileItem]) -> bool:
        """Receives files. Gives `stored`: all destinations exist.
        """
        return self._call(5, files)

    def start_queue(self, delay: int) -> bool:
        """Starts the queue, now or after `delay` seconds; a delay of all bits set cancels a start that is due.
        Gives `done`, always true.
        """
        return self._call(6, delay)

    def stop_queue(self) -> bool:
        """Stops the queue; what runs goes on. Gives `was_running`.
        """
        return self._call(7)

    def is_queue_running(self) -> bool:
        """Gives `running`: jobs are being started from the queue.
        """
        return self._call(8)

    def set_queue_limit(self, count: int) -> bool:
        """Sets how many jobs of the queue run at once. Gives `accepted`, false for 0.
        """
        return self._call(9, count)

    def get_queue_limit(self) -> int:
        """Gives the `limit` that SetQueueLimit sets.
        """
        return self._call(10)

    def set_default_priority(self, priority: int) -> bool:
        """Sets the priority of new jobs. Gives `done`, always true.
        """
        return self._call(11, priority)

    def get_default_priority(self) -> int:
        """Gives the `priority` of new jobs.
        """
        return self._call(12)

    def remove_job(self, handle: int) -> bool:
        """Ends a job and those that wait for it, or gives it up if it has ended. Gives `found`.
        """
        return self._call(13, handle)

    def set_job_priority(self, handle: int, priority: int) -> bool:
        """Sets the priority of a job, and of its process. Gives `found`.
        """
        return self._call(14, handle, priority)

    def results_not_sent(self, handle: int) -> bool:
        """Owner only. All results count as not sent from now on. Gives `owned`.
        """
        return self._call(15, handle)

    def reserved16(self, value: int) -> bool:
        """No effect. Gives `done`, always false.
        """
        return self._call(16, value)

    def shutdown(self) -> None:
        """Ends the server.
        """
        return self._call(17)

    def attach_process(self, process_id: int, command: str, directory: str) -> int:
        """A process announces itself: the job that was started as this process, or else a new job, belongs to the
        session from now on. Of a process id the low 32 bits count, here and below. Gives the `handle`.
        """
        return self._call(18, process_id, command, directory)

    def set_progress(self, process_id: int, progress: int) -> bool:
        """How far the analysis is. Gives `found`: a job has announced itself with this process id.
        """
        return self._call(19, process_id, progress)

    def results_available(self, process_id: int) -> bool:
        """There are results to fetch. Gives `found`.
        """
        return self._call(20, process_id)

    def job_succeeded(self, process_id: int) -> bool:
        """The analysis has succeeded. Gives `found`.
        """
        return self._call(21, process_id)

    def request_retry(self, process_id: int) -> bool:
        """The job is to be run once more when its process has ended. Gives `found`.
        """
        return self._call(22, process_id)

    def get_job(self, handle: int, task: Task = Task()) -> tuple[Task, bool]:
        """Reads a job. Gives `changed`: it has changed since the `update_timestamp` of the request's task. An
        unknown handle leaves the task as it was. Returns task, changed.
        """
        return self._call(23, handle, task)

    def request_results(self, handle: int, files: Sequence[FileItem] = (), *, into: Receiver) -> tuple[list[FileItem], bool]:
        """Owner only. Sends the result files that are new or have changed since they were last sent; the request's
        list is empty. Gives `sent`: there were results to send. Returns files, sent.
        """
        return self._call(24, handle, files, into=into)

    def get_server_pool(self) -> list[str]:
        """Gives the peers to which jobs are passed on.
        """
        return self._call(25)

    def set_server_pool(self, pool: Sequence[str]) -> None:
        """Replaces the peers to which jobs are passed on, for good.
        """
        return self._call(26, pool)

    def get_local_limit(self) -> int:
        """Gives the `limit` that SetLocalLimit sets.
        """
        return self._call(27)

    def set_local_limit(self, limit: int) -> bool:
        """Sets the number of jobs from which on new ones are passed on to peers. Gives `accepted`, false for 0.
        """
        return self._call(28, limit)

    def get_job_count(self) -> int:
        """Gives the `count` of the jobs that run or could start now.
        """
        return self._call(29)

    def take_ownership(self, handle: int) -> bool:
        """Makes the session the owner of a job that has none. Gives `owned`.
        """
        return self._call(30, handle)

    def set_listening(self, on: bool) -> None:
        """The session listens for output, or no longer.
        """
        return self._call(31, on)

    def watch_output(self, handle: int, offset: int) -> None:
        """The session watches the output of a job from this offset on: more of it changes the job's
        `update_timestamp`.
        """
        return self._call(32, handle, offset)

    def refresh_jobs(self) -> None:
        """The session has been brought up to date. Nothing is sent.
        """
        return self._call(33)

    def reserved34(self, first: int, second: int) -> None:
        """No effect.
        """
        return self._call(34, first, second)

    def results_received(self, handle: int) -> None:
        """Owner only. The results of RequestResults have arrived.
        """
        return self._call(35, handle)

    def read_output(self, handle: int, offset: int, text: str = "") -> str:
        """Owner only. Appends the job's output, from the offset on, to the text of the request.
        """
        return self._call(36, handle, offset, text)

    def set_temp_root(self, directory: str, expiry: int) -> bool:
        """Moves the root of the jobs' directories, and sets after how many seconds without use one is deleted.
        Gives `moved`.
        """
        return self._call(37, directory, expiry)

    def get_temp_root(self) -> tuple[str, int]:
        """Gives what SetTempRoot sets. Returns directory, expiry.
        """
        return self._call(38)

    def get_queue_start_time(self) -> int:
        """Gives the `time` of the start that StartQueue has put off, 0 for none.
        """
        return self._call(39)

    def set_environment(self, variables: Sequence[tuple[str, str]]) -> None:
        """Sets variables of the environment of later jobs; an empty value removes one.
        """
        return self._call(40, variables)

    def client_file_matches(self, path: str, size: int, unused: int) -> bool:
        """Is the client's file there with this size in bytes? Gives `matches`.
        """
        return self._call(41, path, size, unused)

    def check_client_files(self, entries: Sequence[str]) -> tuple[list[str], bool]:
        """Checks many files; an entry is `SIZE:ANY:PATH`. The entries of those that are missing or have another
        size come back as `FOUND:0:PATH`. Gives `all_match`. Returns missing, all_match.
        """
        return self._call(42, entries)

    def update_client_files(self, deletions: Sequence[str], files: Sequence[FileItem]) -> bool:
        """Receives files, then deletes the listed paths. Gives `updated`: all were deleted, and all destinations
        exist.
        """
        return self._call(43, deletions, files)

    def results_incomplete(self, handle: int, names: Sequence[str]) -> None:
        """Owner only. Names the result files that have not arrived: they count as not sent.
        """
        return self._call(44, handle, names)

    def required_level(self, process_id: int, type: int, level: int) -> None:
        """What the next run of the analysis needs: a type and a level of its own.
        """
        return self._call(45, process_id, type, level)

    def abort_all_jobs(self) -> bool:
        """Ends or gives up all jobs. Gives `done`.
        """
        return self._call(46)

    def list_jobs(self, handles: Sequence[int] = ()) -> list[int]:
        """Appends the handles of all jobs to those of the request.
        """
        return self._call(47, handles)

    def release_job(self, handle: int) -> None:
        """The job is to be removed once it has ended.
        """
        return self._call(48, handle)

    def list_removed_jobs(self, handles: Sequence[int] = ()) -> list[int]:
        """Appends the handles of the jobs that were removed last to those of the request.
        """
        return self._call(49, handles)
    # end of methods

    def _call(self, number: int, *arguments, into: Optional[Receiver] = None):
        name, request, reply = OPERATIONS[number]
        for (_, kind), value in zip(request, arguments):
            _check(kind, value)
        results = self._exchange(number, name, request, arguments, reply, into)
        return tuple(results) if len(results) > 1 else results[0] if results else None

    def _exchange(self, number, name, request, arguments, reply, into) -> list:
        try:
            self._begin(number)
            for (_, kind), value in zip(request, arguments):
                _PUT[kind](self._stream, value)
            self._stream.flush()
            self._end(name)
            return [_get_files(self._stream, into) if kind == "FileTransferList" else _GET[kind](self._stream)
                    for _, kind in reply]
        except Refused:
            raise
        except BaseException as failure:
            self.close()
            if name == "Shutdown" and isinstance(failure, ConnectionError):
                return []  # a server that ends does not answer
            raise

    def _begin(self, number: int) -> None:
        self._xid = self._xid + 1 & 0xFFFFFFFF
        self._stream.write(struct.pack(">10I", self._xid, 0, 2, PROGRAM, VERSION, number, 0, 0, 0, 0))

    def _end(self, name: str) -> None:
        xid, kind, reply_status, _, _, accepted_status = struct.unpack(">6I", self._stream.read(24))
        if (xid, kind, reply_status) != (self._xid, 1, 0):
            raise ProtocolError("the answer belongs to no call")
        if accepted_status:
            raise Refused(name, accepted_status)
