"""What the clients do, a step each: a function of its worker, which is called again and again."""
import collections, contextlib, json, time

from soaking import wire
from soaking.system import eventually

Kind = collections.namedtuple("Kind", "name count step pause")  # pause: mean seconds between two steps


def run(worker, kind="run", *options):
    job = worker.new_job(kind)
    done = worker.tlmctl("run", *options, *job.words())
    job.submitted = b"submitted to" in done.err
    if worker.keeps(job, done):
        worker.soak.check(job, done.code, done.out, done.err)


def run_queued(worker):
    run(worker, "queue", "--queue")


def run_distributed(worker):
    run(worker, "distribute", "--distribute")


def run_heat(worker):
    job = worker.new_job("heat2d", worker.soak.heat)
    done = worker.tlmctl("--json", "run", "--reports", *job.words())
    events = [json.loads(line) for line in done.out.splitlines() if line.endswith(b"}")]
    job.submitted = any(event["event"] == "submitted" for event in events)
    progress = [event["job"]["progress"] for event in events if event["event"] == "state"]
    if progress != sorted(progress):
        worker.soak.broken(f"{job.key}: progress {progress}")
    if worker.keeps(job, done):
        worker.soak.check(job, done.code, None, done.err)


def submit(worker, job, *options):
    """Its handle, or None if the job is left to others."""
    done = worker.tlmctl("submit", *(() if job.doomed and not job.after else ("--complete-on-failure",)), *options, *job.words())
    job.submitted = done.code == 0
    if not worker.keeps(job, done):
        return None
    if done.code != 0:
        return worker.soak.broken(f"{job.key}: submit ends with {done.code}: {done.err.decode()}")
    worker.soak.handles.append(done.out.decode().strip())
    return worker.soak.handles[-1]


def wait(worker, job, handle):
    """The exit code, or None if the job is left to others."""
    done = worker.tlmctl("wait", "--timeout", "200", handle)
    if done.code == 124 and not done.killed:
        worker.soak.broken(f"{job.key} {handle} does not end")
    return done.code if worker.keeps(job, done) else None


def fetch(worker, job, handle, code):
    output = worker.tlmctl("output", handle)
    if worker.keeps(job, output):
        done = worker.tlmctl("results", handle)
        if worker.keeps(job, done):
            worker.soak.check(job, code, output.out, output.err + done.err)


def submit_and_fetch(worker):
    job = worker.new_job("submit")
    handle = submit(worker, job, *worker.rng.choice(((), ("--queue",), ("--priority", "normal"))))
    code = handle and wait(worker, job, handle)
    if handle and code is not None:
        fetch(worker, job, handle, code)


def chain(worker):
    """Three jobs, one after the other; now and then the first fails, and the others, which would not, have to be aborted."""
    jobs, handles, fails = [worker.new_job("chain") for _ in range(3)], [], worker.rng.random() < 0.3
    for job, former in zip(jobs, (None, *jobs)):
        job.doomed, job.after = fails, former
        if None not in handles:
            handles.append(submit(worker, job, *(("--after", handles[-1]) if handles else ())))
        else:
            worker.soak.settle(job, "not submitted")
    ends = [(job, handle, wait(worker, job, handle)) for job, handle in zip(jobs, handles) if handle]
    for job, handle, code in ends:
        if fails or None in [code for _, _, code in ends]:
            worker.soak.leave(job)
        else:
            fetch(worker, job, handle, code)


def cancel(worker):
    job = worker.new_job("cancel")
    job.seconds = 30
    handle = submit(worker, job, *worker.rng.choice(((), ("--queue",), ("--distribute",))))
    worker.rest(0, 4)
    job.removed = True
    if handle and worker.tlmctl("cancel", "--yes", handle).code == 0 and wait(worker, job, handle) == 124:
        worker.soak.broken(f"{job.key} goes on after it was cancelled")
    worker.soak.leave(job)


def look(worker):
    handle = worker.rng.choice(worker.soak.handles or ["4"])
    sure = [["list"], ["list", "--mine", "--state", "running"], ["queue", "status"], ["pool", "get"], ["ping"], ["temp-root"]]
    asked = worker.rng.choice(sure + [["show", handle], ["why", handle], ["watch", handle], ["doctor"], ["history"],
                                      ["wait", "--timeout", "3", handle]])
    done = worker.tlmctl(*asked)
    if asked in sure and done.code != 0 and not worker.excuses(done):
        worker.soak.broken(f"tlmctl {' '.join(asked)} ends with {done.code}: {done.err.decode()}")


def set_limits(worker):
    number, handle = str(worker.rng.randrange(1, 7)), worker.rng.choice(worker.soak.handles or ["4"])
    worker.tlmctl(*worker.rng.choice((["queue", "limit", number], ["load-limit", number], ["queue", "stop"],
                                      ["queue", "start", "--in", "1"], ["priority", handle, "normal"],
                                      ["priority", "--default", worker.rng.choice(("idle", "normal"))])))
    worker.tlmctl("queue", "start")


def keep_files(worker):
    names = [worker.soak.scratch / "files" / f"{worker.name}-{number}" for number in range(3)]
    names[0].parent.mkdir(exist_ok=True)
    for name in names:
        name.write_bytes(worker.rng.randbytes(worker.rng.choice((0, 10, 100_000, 2_000_000))))
    done = [worker.tlmctl("--json", "--yes", "files", word, *names) for word in ("put", "check", "delete")]
    if any(worker.excuses(one) for one in done):
        return
    said = [json.loads(one.out or "{}") for one in done]
    if any(file["travels"] for file in said[1].get("files", [{"travels": True}])) or said[2].get("deleted") != 3:
        worker.soak.broken(f"files: {said}, {[one.err for one in done]}")


# -- without tlmctl


def run_by_hand(worker):
    """Now and then the connection is reset while the results come."""
    soak, job = worker.soak, worker.new_job("by hand")
    home, job.submitted = f"{job.directory}/", True
    job.directory.mkdir(parents=True)
    with wire.Connection(soak.main.port) as connection:
        connection.put({f"{connection.hello().map(home)}/{job.deck}": job.written})
        command = " ".join(map(str, [*job.program(), job.deck]))
        handle = connection.ask(wire.SUBMIT, wire.pack(wire.SUBMISSION, job.key, home, command, job.deck, job.key, job.key, "", "",
                                                       0, worker.rng.randrange(2), 0, 1, 0)).one("Q")
        soak.handles.append(str(handle))
        ended = eventually(lambda: (state := connection.job(handle))[0] in (2, 5, 6) and state, 200)
        if not ended:
            return soak.broken(f"{job.key} {handle} does not end")
        output = connection.ask(wire.OUTPUT, wire.pack("QIs", handle, 0, "")).one("s")
        if worker.rng.random() < 0.3:
            connection.send(wire.record(wire.call(wire.RESULTS, wire.pack("QI", handle, 0))))
            connection.receive(4)
            worker.rest(0, 0.1)
            wire.reset(connection.socket)
    with wire.Connection(soak.main.port) as connection:
        connection.hello()
        if not eventually(lambda: connection.ask(wire.OWN, wire.pack("Q", handle)).one("I"), 60):
            return soak.broken(f"{job.key} {handle} stays another one's")
        for name, data in connection.results(handle).items():
            (job.directory / name).write_bytes(data)
        connection.ask(wire.RECEIVED, wire.pack("Q", handle))
    soak.check(job, ended[1], output)


def be_hostile(worker):
    with wire.Connection(worker.soak.main.port) as connection, contextlib.suppress(OSError):
        connection.socket.settimeout(1)  # what it has to say may be nothing
        for _ in range(worker.rng.randrange(1, 5)):
            worker.soak.count("hostile messages")
            connection.send(wire.hostile_bytes(worker.rng))
            connection.socket.recv(1 << 16)
        wire.reset(connection.socket)


def scan(worker):
    for _ in range(20):
        worker.soak.count("connections without a call")
        with wire.Connection(worker.soak.main.port) as connection:
            if worker.rng.random() < 0.5:
                wire.reset(connection.socket)


def read_slowly(worker):
    """A long question, or half of it, and an answer as long, which is read slowly or not at all until the reset."""
    names = [f"{worker.soak.main.root}/{'n' * 200}{number}" for number in range(12000)]
    question = wire.record(wire.call(wire.CHECK, wire.pack("I" + "s" * len(names), len(names), *names)))
    worker.soak.count("slow readers")
    with wire.Connection(worker.soak.main.port) as connection, contextlib.suppress(OSError):
        connection.hello().socket.settimeout(5)
        connection.send(question[:worker.rng.choice((len(question), len(question) // 2))])
        end, share = time.monotonic() + worker.rng.uniform(0, 5), worker.rng.choice((0, 64, 4096))
        while time.monotonic() < end:
            time.sleep(0.05)
            connection.socket.recv(share)
        wire.reset(connection.socket)


def ping(worker):
    begin = time.monotonic()
    try:
        with wire.Connection(worker.soak.main.port) as connection:
            connection.hello().ask(wire.COUNT)
    except OSError as error:
        worker.soak.broken(f"no answer to a ping: {error}")
    worker.soak.latencies.append(time.monotonic() - begin)


CLIENTS = [
    Kind("run", 6, run, 2), Kind("queue", 2, run_queued, 2), Kind("distribute", 4, run_distributed, 2),
    Kind("heat2d", 2, run_heat, 2), Kind("submit", 3, submit_and_fetch, 2), Kind("chain", 2, chain, 2), Kind("cancel", 2, cancel, 2),
    Kind("look", 3, look, 0.5), Kind("limits", 1, set_limits, 1), Kind("files", 1, keep_files, 2),
    Kind("by hand", 3, run_by_hand, 2), Kind("hostile", 2, be_hostile, 0.3), Kind("scan", 1, scan, 2),
    Kind("slow reader", 2, read_slowly, 2), Kind("ping", 1, ping, 0.25),
]
