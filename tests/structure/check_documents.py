#!/usr/bin/env python3
"""The documents name no sub-command and no long option that tlmctl does not know, and no test that is not there.
Arguments: tlmctl, the source tree."""
import functools, pathlib, re, subprocess, sys


@functools.cache
def help_of(*words):
    text = subprocess.run([sys.argv[1], *words, "--help"], capture_output=True, text=True).stdout
    return text if " ".join(["Usage: tlmctl", *words]) in text else ""  # a wrong word gives the help of all


def faults_of(said):
    typed = re.sub(r"(^| )(-[qy]|--(json|yes|quiet|server \S+|release \S+|client-host \S+))(?= )", " ", said.split(" -- ")[0])
    words = re.match(r" *([a-z][a-z-]{2,})(?: ([a-z]{3,}))?(?=\W|$)", typed)
    if not words:
        return
    name, sub = words.groups()
    text = help_of(name) if sub is None or "\nSubcommands:" not in help_of(name) else help_of(name, sub)
    if not text:
        yield "there is no command"
    for option in re.findall(r"(?<![\w-])--[a-z][\w-]+", typed):
        if not re.search(option + r"(?![\w-])", text + help_of()):
            yield "there is no option " + option


root, bad = pathlib.Path(sys.argv[2]), False
for file in [root / "README.md", *root.glob("docs/**/*.[m8]*"), *root.glob("examples/*/README.md")]:
    for number, line in enumerate(file.read_text().splitlines(), 1):
        for said in re.findall(r"(?:`|^ .*?\b)tlmctl ([^`|;&>]*)", line.split(" # ")[0]):
            for fault in faults_of(said):
                print(f"{file}:{number}: {fault}: tlmctl {said}")
                bad = True
tests = {".".join(name) for file in root.glob("tests/*/*.cpp")
         for name in re.findall(r"^TEST(?:_[FP])?\((\w+),\s*(\w+)\)", file.read_text(), re.M)}
for name in re.findall(r"`([A-Z]\w+\.[A-Z]\w+)`", (root / "docs/reliability.md").read_text()):
    if name not in tests:
        print(f"docs/reliability.md: there is no test {name}")
        bad = True
sys.exit(bad)
