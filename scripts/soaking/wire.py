"""Calls written out by hand, for clients that are none of ours or mean no good."""
import socket, struct

PROGRAM, VERSION = 0x514A4D50, 1
HELLO, SUBMIT, MAP, PUT, GET_JOB, RESULTS, COUNT, OWN, RECEIVED, OUTPUT, MATCHES, CHECK, LIST = (
    1, 2, 4, 5, 23, 24, 29, 30, 35, 36, 41, 42, 47)
HARMLESS = GET_JOB, RESULTS, OUTPUT, MATCHES, CHECK, LIST  # whatever their arguments are
# Of a letter for each field: I, q, Q as struct has them, s for a text.
TASK, SUBMISSION = "ssssssssqsIIQIIIqqqIIIIIQQQ", "ssssssssqIQII"


def text(value):
    value = value if isinstance(value, bytes) else value.encode()
    return struct.pack(">I", len(value)) + value + bytes(-len(value) % 4)


def pack(form, *values):
    return b"".join(text(value) if kind == "s" else struct.pack(">" + kind, value) for kind, value in zip(form, values))


def record(payload):
    return struct.pack(">I", 0x80000000 | len(payload)) + payload


def call(procedure, arguments=b"", program=PROGRAM, version=VERSION):
    return struct.pack(">10I", 7, 0, 2, program, version, procedure, 0, 0, 0, 0) + arguments


def reset(connection):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


class Connection:
    """To be used with 'with'. Waits end with an exception after the patience, in seconds."""

    def __init__(self, port, patience=60):
        self.socket = socket.create_connection(("127.0.0.1", port), patience)
        self.moved, self.record = 0, b""  # bytes, and what has not been taken of the last record

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def send(self, data):
        self.socket.sendall(data)
        self.moved += len(data)

    def receive(self, size):
        data = bytearray()
        while len(data) < size:
            piece = self.socket.recv(min(size - len(data), 1 << 16))
            if not piece:
                raise OSError("the server has closed the connection")
            data += piece
        self.moved += size
        return memoryview(data)

    def take(self, size):
        """From as many records as it takes: the end of a message is not marked."""
        data = bytearray()
        while len(data) < size:
            if not self.record:
                self.record = self.receive(struct.unpack(">I", self.receive(4))[0] & 0x7FFFFFFF)
            missing = size - len(data)
            data += self.record[:missing]
            self.record = self.record[missing:]
        return bytes(data)

    def one(self, kind):
        if kind != "s":
            return struct.unpack(">" + kind, self.take(struct.calcsize(">" + kind)))[0]
        size = self.one("I")
        return self.take(size + -size % 4)[:size]

    def all(self, form):
        return [self.one(kind) for kind in form]

    def ask(self, procedure, arguments=b""):
        """The results are to be taken from this connection, all of them."""
        self.send(record(call(procedure, arguments)))
        if (header := self.take(24)) != struct.pack(">6I", 7, 1, 0, 0, 0, 0):
            raise OSError(f"the call {procedure} was refused: {header.hex()}")
        return self

    def hello(self):
        assert self.ask(HELLO, pack("ssI", "tlm2010", socket.gethostname(), 0)).one("I") == 1, "Hello was refused"
        return self

    def map(self, directory):
        return self.ask(MAP, pack("ss", directory, "")).all("sI")[0].decode()

    def put(self, files):
        items = [pack("ssI", path, path, 0) + (text(data) if data else b"") + bytes(4) for path, data in files.items()]
        return self.ask(PUT, pack("I", len(files)) + b"".join(items)).one("I")

    def job(self, handle):
        """Status and exit code."""
        empty = ["" if kind == "s" else 0 for kind in TASK]
        task = self.ask(GET_JOB, pack("Q" + TASK, handle, *empty)).all(TASK + "I")
        return task[13], task[15]

    def files(self):
        found = {}
        for _ in range(self.one("I")):
            destination, _, _ = self.all("ssI")
            found[destination.decode().rsplit("/", 1)[-1]] = b"".join(iter(lambda: self.one("s"), b""))
        self.one("I")
        return found

    def results(self, handle):
        return self.ask(RESULTS, pack("QI", handle, 0)).files()


def hostile_bytes(rng):
    """What no client of good will sends."""
    arguments = bytearray(pack("QIs", rng.randrange(100), 0, "a" * 40))
    for _ in range(rng.randrange(4)):
        arguments[rng.randrange(len(arguments))] ^= 1 << rng.randrange(8)
    valid = record(call(rng.choice(HARMLESS), bytes(arguments)))
    return rng.choice((
        valid, valid[:rng.randrange(1, len(valid))], rng.randbytes(rng.randrange(1, 4096)),
        struct.pack(">I", rng.choice((0, 1, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF))) + rng.randbytes(40),
        record(call(rng.choice((0, 16, 50, 9999)), rng.randbytes(8), rng.choice((PROGRAM, 1)), rng.randrange(3))),
        record(call(CHECK, struct.pack(">I", rng.choice((1 << 31, 1 << 20))) + text("a") * 1000)),
        record(call(MATCHES, struct.pack(">I", rng.choice((1 << 24, (1 << 24) + 1, 0xFFFFFFFF))) + bytes(64)))))
