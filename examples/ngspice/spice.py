#!/usr/bin/python3
"""Runs ngspice in batch mode on a circuit deck.

    spice DECK

STEM.raw gets the waveforms and STEM.log all that ngspice says; its warnings and errors are the output, too. As a job it
reports how far a transient analysis is, and success; by hand it just does its work. README.md lists the exit codes.
"""
import os
import re
import signal
import subprocess
import sys

UNITS = {"t": 1e12, "g": 1e9, "meg": 1e6, "k": 1e3, "m": 1e-3, "u": 1e-6, "n": 1e-9, "p": 1e-12, "f": 1e-15, "": 1.0}
NUMBER = re.compile(r"((?:\d+\.?\d*|\.\d+)(?:e[+-]?\d+)?)(t|g|meg|k|m|u|n|p|f|)s?$", re.I)
ANALYSIS = re.compile(r"^\s*\.(tran|ac|dc|op|noise|tf|pz|sens|disto|sp|pss)\b(.*)", re.I | re.M)
CONTROL = re.compile(r"^\s*\.control\b", re.I | re.M)
TIME = re.compile(rb"\s*Reference value :\s*(\S+)\s*")
# ngspice can say each of these and end with 0 all the same.
FAILURE = re.compile(rb"^\s*(fatal )?error\b.*:|no such command|simulation(\(s\) aborted| interrupted)|write error"
                     rb"|^Warning from checkvalid|^No \.measure possible", re.I)


def report(*words):
    """To the job manager. Without one, or without tlmctl, nothing happens."""
    try:
        subprocess.run(["tlmctl", "report", *words], timeout=10, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL)
    except (OSError, subprocess.TimeoutExpired):
        pass


def end_of_time(deck):
    """Of the deck's only analysis, if that is a transient one. Of others nobody can say how far they are: then 0."""
    analyses = ANALYSIS.findall(re.sub(r"\n\+", " ", deck))
    if len(analyses) != 1 or analyses[0][0].lower() != "tran":
        return 0.0
    end = NUMBER.match((analyses[0][1].split() + ["", ""])[1])
    return float(end[1]) * UNITS[end[2].lower()] if end else 0.0


def follow(messages, log, end):
    """Passes on what ngspice says on standard error, but not the time it has reached. Whether that was a failure."""
    rest, percent, failed = b"", 0, False
    while piece := os.read(messages.fileno(), 4096):
        *lines, rest = re.split(rb"(?<=[\r\n])", rest + piece)
        for line in lines:
            if reached := TIME.fullmatch(line):
                before, percent = percent, min(99, int(100 * float(reached[1]) / end)) if end else 0
                if percent > before:
                    report("progress", str(percent))
            elif line.strip():
                for output in (log, sys.stdout.buffer):
                    output.write(line)
                    output.flush()
                failed = failed or bool(FAILURE.search(line))
    return failed


def simulate(path, raw, log):
    """The exit code of ngspice as a shell gives it; 1 if it ought not to be 0. What stops this script stops ngspice."""
    with open(path, encoding="utf-8", errors="replace") as file:
        deck = file.read()
    # A deck with commands says itself what is to be written. With -r that would be lost.
    output = [] if CONTROL.search(deck) else ["-r", raw]
    solver = subprocess.Popen(["ngspice", "-b", *output, path], stdin=subprocess.DEVNULL, stdout=log,
                              stderr=subprocess.PIPE)
    stops = []

    def stop(signal_number, _):
        stops.append(signal_number)
        solver.terminate()

    former = {wanted: signal.signal(wanted, stop) for wanted in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP)}
    failed = follow(solver.stderr, log, end_of_time(deck))
    code = solver.wait()
    for wanted, handler in former.items():
        signal.signal(wanted, handler)
    if stops:  # also if ngspice was interrupted with it: then it would end with 0
        return 128 + stops[0]
    with open(log.name, "rb") as said:
        failed = failed or b"No. of Data Rows : 0\n" in said.read()  # such an analysis is not in the raw file
    if code == 0 and (output or os.path.exists(raw)):
        for name, points in plots(raw):
            print(f"{name}: {points} points", flush=True)
    return 128 - code if code < 0 else code or int(failed)


def plots(path):
    """Name and points of each plot of a raw file: a header in text, then numbers, binary or in text as well. ValueError
    if some are missing, or all."""
    if os.path.getsize(path) == 0:
        raise ValueError(f"{path}: no plots")
    with open(path, "rb") as file:
        while line := next_line(file):
            header = {}
            while line not in (b"Binary:\n", b"Values:\n"):
                if not line:
                    raise ValueError(f"{path}: a plot without numbers")
                key, _, value = line.decode("utf-8", "replace").partition(": ")
                header[key] = value.strip()
                line = next_line(file)
            try:
                name, points, variables = header["Plotname"], int(header["No. Points"]), int(header["No. Variables"])
                width = 16 if "complex" in header["Flags"] else 8
            except KeyError as error:
                raise ValueError(f"{path}: a plot without {error}") from None
            if line == b"Values:\n":
                complete = all(next_line(file) for _ in range(points * variables))
            else:
                end = file.tell() + points * variables * width
                complete = end <= os.path.getsize(path)
                file.seek(end if complete else 0)
            if min(points, variables) <= 0 or not complete:
                raise ValueError(f"{name}: no points, or not all of them")
            yield name, points


def next_line(file):
    """That is not blank; empty at the end."""
    return next((line for line in file if line.strip()), b"")


def main():
    if len(sys.argv) != 2 or sys.argv[1].endswith((".raw", ".log")):
        sys.exit("usage: spice DECK")
    # tlmctl lies beside this script, and the site's own ngspice may.
    os.environ["PATH"] = os.path.dirname(os.path.abspath(sys.argv[0])) + ":" + os.environ.get("PATH", os.defpath)
    os.environ.setdefault("HOME", os.getcwd())  # without one ngspice crashes
    stem = os.path.splitext(os.path.basename(sys.argv[1]))[0]
    report("attach")
    try:
        for suffix in (".raw", ".log"):  # of an earlier run
            if os.path.exists(stem + suffix):
                os.remove(stem + suffix)
        with open(stem + ".log", "ab", buffering=0) as log:
            code = simulate(sys.argv[1], stem + ".raw", log)
    except FileNotFoundError as error:
        sys.exit(f"spice: there is no {error.filename}")
    except (OSError, ValueError) as error:
        sys.exit(f"spice: {error}")
    if code == 0:
        report("results")
        report("succeeded")
    sys.exit(code)


if __name__ == "__main__":
    main()
