"""What is known of a job, and what must come of it."""
from soaking import produce

HEAT_DECK = b"""title A rod
size 0.080 0.004
grid 320 16
conductivity 160
left temperature 90
right convection 60 25
top convection 60 25
bottom insulated
pace 3
"""
SUCCESS = ("good", "fetched by others")  # of the outcomes
AFTER = {  # what may come after a state
    "queued": ("starting", "aborted", "launch-failed"), "starting": ("running", "aborted", "launch-failed"),
    "running": ("finished", "aborted", "launch-failed"), "finished": ("removed",), "aborted": ("removed",), "launch-failed": ("removed",),
    "removed": (),
}
ANYTHING = set(AFTER)  # as long as a peer's word counts
PARTIAL = (".tmp", ".lck", ".lci")


class Job:
    def __init__(self, kind, key, directory, rng, heat):
        """If there are files of heat2d, by their suffixes, it is the program."""
        self.kind, self.key, self.directory, self.deck = kind, key, directory, f"{key}.inp"
        self.profile, self.seconds = rng.choice(list(produce.PROFILES)), round(rng.choice((0, 0, rng.uniform(0, 4))), 1)
        self.exit_code = 0 if heat else rng.choice((0, 0, 0, rng.randrange(1, 120)))
        self.written = HEAT_DECK if heat else produce.deck(key, self.profile)
        self.output = None if heat else produce.output(key, self.profile)
        self.expected = {f"{key}{suffix}": heat[suffix] for suffix in heat} or produce.results(key, self.profile, self.written)
        self.submitted = False  # as its client was told
        self.hurt = False  # its process was killed
        self.removed = False  # a client has removed it
        self.doomed = False  # must end as aborted
        self.after = None  # the job whose end it has to wait for
        self.orphan = False  # its client has gone; others look after it

    def program(self):
        return ["produce", self.key, self.profile, self.seconds, self.exit_code] if self.output is not None else ["heat2d"]

    def words(self):
        """For tlmctl. Writes the deck."""
        self.directory.mkdir(parents=True, exist_ok=True)
        (self.directory / self.deck).write_bytes(self.written)
        return ["--deck", self.directory / self.deck, "--name", self.key, "--", *self.program()]

    def misruns(self, directory):
        """What is wrong with the runs that it had, by the notes of its program."""
        runs = produce.runs(directory, self.key)
        if self.doomed and self.after and runs:
            yield "it ran after one that had failed"
        if len(runs) > 1 and self.kind not in ("distribute", "cancel"):
            yield f"it ran {len(runs)} times"
        if self.after and runs and (former := produce.runs(directory, self.after.key)):
            if not self.after.hurt and runs[0][0] < former[0][-1]:
                yield f"it ran before {self.after.key} had ended"

    def size(self):
        return len(self.written) + len(self.output or b"") + sum(map(len, self.expected.values()))

    def flaws(self, code, output):
        """What is wrong with its end. The output is None if it is not known."""
        if code not in {self.exit_code} | ({122} if self.kind == "distribute" else set()) | ({137} if self.hurt else set()):
            yield f"exit code {code} in place of {self.exit_code}"
        if output is not None and self.output is not None and not self.is_output(output):
            yield f"output of {len(output)} bytes in place of {len(self.output)}, or another one"
        found = {path.name: path.read_bytes() for path in self.directory.glob("*")}
        for name in {*found, *self.expected} - {self.deck, f"{self.key}.crc"}:
            if name not in found:
                if not self.hurt:
                    yield f"{name} is missing"
            elif name not in self.expected:
                if not (self.orphan and name.endswith(PARTIAL)):
                    yield f"{name} is nobody's"
            elif found[name] != self.expected[name] and not (self.hurt and self.output is None):
                yield f"{name} has {len(found[name])} bytes in place of {len(self.expected[name])}, or other ones"

    def is_output(self, output):
        if self.kind == "distribute":  # a run that was lost with its peer may have written before
            return set(output.splitlines()[:-1]) <= set(self.output.splitlines())
        return self.output.startswith(output) if self.hurt else output == self.output


def flaws_of_course(lines, outcome):
    """What is wrong with the job log's lines of a job, all of which is over."""
    course = [line["status"] for line in lines]
    begins = ("queued",) if outcome in SUCCESS else ("queued", "aborted")  # behind one that had failed already
    if course[0] not in begins or course[-1] != "removed":
        yield "it does not begin or end"
    for former, line in zip(lines, lines[1:]):
        allowed = ANYTHING if former["status"] != "removed" and ("peer" in former or "peer" in line) else AFTER[former["status"]]
        if line["status"] not in allowed:
            yield f"{line['status']} after {former['status']}"
    if outcome in SUCCESS and "finished" not in course:
        yield f"it has not finished, and is {outcome}"
    if outcome == "aborted, as it had to" and "finished" in course:
        yield "it has finished and must not"
