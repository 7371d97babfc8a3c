#!/usr/bin/env python3
"""The program of the jobs. All that it writes is a function of its arguments and of its deck, so that others know it:

    produce KEY PROFILE SECONDS EXIT_CODE DECK

Its runs are witnessed: each notes when it begins and when it ends.
"""
import hashlib, os, pathlib, sys, time

RUNS = "SOAK_RUNS"  # the variable with the directory of the notes

# Sizes of the results, of the output, of the deck; bytes.
PROFILES = {
    "small": ([10, 100, 1000], 200, 50),
    "empty": ([0, 0], 0, 0),
    "many": ([number * 7 % 300 for number in range(120)], 2000, 5000),
    "large": ([3 << 20, 1_500_001], 100, 1 << 20),
    "loud": ([4097], 1 << 20, 4096),
}


def content(key, name, size):
    return hashlib.shake_128(f"{key} {name}".encode()).digest(size)


def deck(key, profile):
    return content(key, "deck", PROFILES[profile][2])


def output(key, profile):
    lines = content(key, "output", PROFILES[profile][1] // 2).hex()
    return "".join(f"{lines[start:start + 79]}\n" for start in range(0, len(lines), 79)).encode()


def results(key, profile, deck_bytes):
    files = {f"{key}.{number:03}": content(key, number, size) for number, size in enumerate(PROFILES[profile][0])}
    return {**files, f"{key}.sum": hashlib.sha256(deck_bytes).digest()}


def runs(directory, key):
    """Begin and end of each run, in nanoseconds of the same clock; no end if it was killed."""
    return sorted([int(time) for time in path.read_text().split()] for path in directory.glob(f"{key}.*"))


def note_time(key):
    with open(pathlib.Path(os.environ[RUNS]) / f"{key}.{os.getpid()}", "a") as file:
        file.write(f"{time.monotonic_ns()}\n")


def main(key, profile, seconds, exit_code, deck_name):
    note_time(key)
    text = output(key, profile)
    with open(deck_name, "rb") as file:
        given = file.read()
    os.write(1, text[:len(text) // 2])
    time.sleep(float(seconds))
    for name, data in results(key, profile, given).items():
        # A run that its server has given up may still be here beside the one that took its place.
        with open(f"part-{os.getpid()}", "wb") as file:
            file.write(data)
        os.rename(file.name, name)
    sys.stdout.buffer.write(text[len(text) // 2:])
    sys.stdout.flush()
    note_time(key)
    sys.exit(int(exit_code))


if __name__ == "__main__":
    main(*sys.argv[1:])
