#!/usr/bin/env python3
"""A job goes through a stunnel pair with the commands and the configuration that the threat model shows.

    tunnel_test.py BIN_DIRECTORY THREAT_MODEL
"""
import contextlib, os, random, re, shutil, socket, subprocess, sys, tempfile, time

BIN, DOCUMENT = sys.argv[1], open(sys.argv[2]).read()
os.environ["PATH"] += ":/usr/sbin:/sbin"
STUNNEL = shutil.which("stunnel4") or shutil.which("stunnel")
if not STUNNEL or not shutil.which("openssl"):
    print("Skipped: stunnel or openssl is not installed")
    sys.exit(77)


def free_port():
    while True:
        with socket.socket() as probe, contextlib.suppress(OSError):
            probe.bind(("127.0.0.1", random.randint(20400, 32767)))
            return probe.getsockname()[1]


def listens(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


def certify(name):
    """A machine of that name, with a key and a certificate."""
    os.mkdir(name)
    command = re.search(r"^    sudo (openssl req .*)", DOCUMENT, re.M)[1]
    subprocess.run(command, shell=True, check=True, cwd=name, capture_output=True)
    return name


def configure(machine, title, trusted, changes):
    shutil.copy(f"{trusted}/own.crt", f"{machine}/others.crt")
    text = re.search(rf"^    ; {title}\n((?:    .+\n)+)", DOCUMENT, re.M)[1]
    for shown, meant in {**changes, "/etc/stunnel": os.path.abspath(machine)}.items():
        assert shown in text, f"the configuration {title} has no {shown}"
        text = text.replace(shown, meant)
    with open(f"{machine}/tlmjm.conf", "w") as file:
        file.write(text)
    return [STUNNEL, f"{machine}/tlmjm.conf"]


@contextlib.contextmanager
def running(port, command, environment=None):
    log = tempfile.TemporaryFile("w+")
    process = subprocess.Popen(command, env=environment, stdin=subprocess.DEVNULL, stdout=log, stderr=log)
    try:
        limit = time.monotonic() + 30
        while not listens(port):
            log.seek(0)
            assert process.poll() is None and time.monotonic() < limit, f"{command} does not listen:\n{log.read()}"
            time.sleep(0.05)
        yield
    finally:
        process.terminate()
        process.wait(30)


def tlmctl(port, *words):
    return subprocess.run([f"{BIN}/tlmctl", "--server", f"127.0.0.1:{port}", *words], text=True, capture_output=True,
                          timeout=60, env={**os.environ, "HOME": os.getcwd(), "XDG_STATE_HOME": os.getcwd()})


def main():
    server, entry, exit_ = free_port(), free_port(), free_port()
    settings = {"TSQOR_JMPORT": str(server), "TSQOR_LISTEN": "127.0.0.1", "TSQOR_HOME": os.getcwd(),
                "TSQOR_TMP": os.path.abspath("tmp"), "TS_MACHINE_REGISTRY": "none", "TS_USER_REGISTRY": "none"}
    os.mkdir("bin")
    with open("bin/upper", "w", opener=lambda path, flags: os.open(path, flags, 0o755)) as program:
        program.write("#!/bin/sh\ntr a-z A-Z <part.inp >part.dat\necho done\n")
    with open("part.inp", "w") as deck:
        deck.write("load\n" * 100000)

    host, client, stranger = (certify(name) for name in ("host", "client", "stranger"))
    ways_in = {"127.0.0.1:20317": f"127.0.0.1:{server}", "20319": f"127.0.0.1:{exit_}"}
    ways_out = {"127.0.0.1:20317": f"127.0.0.1:{entry}", "server.example.org:20319": f"127.0.0.1:{exit_}"}
    nobody = {"cert = /etc/stunnel/own.crt\n": "", "key = /etc/stunnel/own.key\n": ""}
    at_host = configure(host, "on the server", client, ways_in)

    with running(server, [f"{BIN}/tlmjm", "debug"], {**os.environ, **settings}), running(exit_, at_host):
        with running(entry, configure(client, "on a client", host, ways_out)):
            done = tlmctl(entry, "run", "--", "upper", "part.inp")
            assert done.returncode == 0 and "done" in done.stdout, f"{done.returncode}: {done.stdout}{done.stderr}"
            with open("part.dat") as result:
                assert result.read() == "LOAD\n" * 100000
        for case, machine, trusted, changes in (
                ("a client with another certificate", stranger, host, ways_out),
                ("a client without a certificate", client, host, {**nobody, **ways_out}),
                ("a server with another certificate", client, stranger, ways_out)):
            with running(entry, configure(machine, "on a client", trusted, changes)):
                done = tlmctl(entry, "ping")
                assert done.returncode != 0, f"{case} gets through: {done.stdout}"
        assert tlmctl(server, "ping").returncode == 0, "the server has ended"


with tempfile.TemporaryDirectory() as scratch:
    os.chdir(scratch)
    main()
    os.chdir("/")
