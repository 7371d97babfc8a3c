#!/usr/bin/env python3
"""Keeps the promises of the source tree: arrows between layers point down, and the system is met in one folder only."""
import pathlib, re, sys

# From the top down: a folder includes only itself and those behind it.
LAYERS = ["shell", "server", "dist", "exec", "store", "jm", "rpc", "libtsenv", "util", "platform"]
# Beside them, each on top of one folder.
CLIENTS = {"report": "jm", "tlmctl": "report", "tlmjob": "report"}

SYSTEM = re.compile(
    r"#\s*include\s*<(sys/|unistd|fcntl|poll|netinet/|arpa/|netdb|signal|csignal|spawn|pthread|semaphore|dirent|dlfcn|pwd|errno)"
    r"|#\s*if(n?def)?\s.*(__linux__|__unix__|_WIN32|__APPLE__)|/proc/|\bfork\s*\(")


def allowed(folder):
    if folder in CLIENTS:
        return {folder} | allowed(CLIENTS[folder])
    return set(LAYERS[LAYERS.index(folder):])


def faults(source):
    for path in sorted(source.rglob("*")):
        if path.suffix not in (".h", ".cpp", ".def"):
            continue
        name = path.relative_to(source)
        folder = name.parts[0]
        for number, line in enumerate(path.read_text().splitlines(), 1):
            where = f"{name}:{number}"
            included = re.match(r'#include "([^/"]+)/', line)
            if included and included.group(1) not in allowed(folder):
                yield f"{where}: {folder} includes {included.group(1)}"
            if name.parts[:2] != ("platform", "posix") and SYSTEM.search(line):
                yield f"{where}: a system's own service: {line.strip()}"


if __name__ == "__main__":
    found = list(faults(pathlib.Path(sys.argv[1])))
    print("\n".join(found) or "no faults")
    sys.exit(1 if found else 0)
