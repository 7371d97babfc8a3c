#!/usr/bin/env python3
"""Makes the Debian package and takes it through its life, from installation to purge, on a copy of this machine.

    package_test.py BUILD_DIRECTORY SCRATCH_DIRECTORY CPACK

The copy is an overlay on the root in a mount namespace, with processes and a network of its own, and what is written
lies in memory. So a real installation is neither seen nor touched, nothing stays, and whoever ends the test ends all.
"""
import configparser, fcntl, glob, gzip, os, pwd, shlex, shutil, socket, struct, subprocess, sys, time

HOME, STATE, CONFIGURATION = "/opt/tessarine/lumora2010", "/var/lib/tlmjm", "/etc/tessarine/tlmjm.ini"
CLIENTS = {
    "tlmjm": ["tlmctl"],  # finds the port that stands in the configuration
    "ksbjm": ["tlmctl", "--server", ":20615", "--release", "ksb2010"],
    "vrkjm": ["tlmctl", "--server", ":20700", "--release", "vrk2010"],
}
EXAMPLES = "/usr/share/doc/tlmjm/examples"
DECKS = {"heat2d": "heat2d/fin", "pendulum": "python/swing", "primes": "shell/few"}
SITE = {f"{HOME}/bin/pendulum": f"{EXAMPLES}/python/pendulum.py", f"{HOME}/bin/primes": f"{EXAMPLES}/shell/primes.sh"}
UNITS = [f"{product}2010.service" for product in CLIENTS]

# Stands for systemctl, so that the maintainer scripts meet a running systemd. Notes what is asked of it.
SYSTEMCTL = """#!/bin/sh
echo "$@" >>/run/asked
case "$*" in
  *able*) exec /bin/systemctl --root=/ "$@" ;;
  stop*) for unit in $@; do [ $unit = stop ] || ${unit%2010*} stop; done ;;
esac
"""


def skip(reason):
    print("Skipped:", reason)
    sys.exit(77)


def run(*command):
    done = subprocess.run(command, text=True, capture_output=True)
    assert done.returncode == 0, f"{' '.join(command)} ended with {done.returncode}:\n{done.stdout}{done.stderr}"
    return done.stdout


def make_packages(build, scratch, cpack):
    """first.deb, and later.deb of a higher version."""
    run(cpack, "--config", f"{build}/CPackConfig.cmake", "-B", scratch)
    os.rename(*glob.glob(f"{scratch}/*.deb"), f"{scratch}/first.deb")
    run("lintian", "--allow-root", "--fail-on", "error", f"{scratch}/first.deb")
    run("dpkg-deb", "-R", f"{scratch}/first.deb", f"{scratch}/later")
    with gzip.open(f"{scratch}/later/usr/share/doc/tlmjm/changelog.gz", "rt") as changelog:
        version = run("dpkg-deb", "-f", f"{scratch}/first.deb", "Version").strip()
        assert changelog.readline().startswith(f"tlmjm ({version}) "), f"{version} has no entry in the changelog"
    run("sed", "-i", "s/^Version: .*/&+later/", f"{scratch}/later/DEBIAN/control")
    run("dpkg-deb", "-b", "-Znone", f"{scratch}/later", f"{scratch}/later.deb")


def enter_copy_of_machine(scratch):
    root = f"{scratch}/root"
    places = ["/"] + [place for place in ("/usr", "/etc", "/opt", "/var") if os.path.ismount(place)]
    for number, place in enumerate(places):
        layers = [root, f"{scratch}/written/{number}", f"{scratch}/work/{number}"]
        for directory in layers:
            os.makedirs(directory, exist_ok=True)
        options = f"lowerdir={place},upperdir={layers[1]},workdir={layers[2]}"
        if subprocess.run(["mount", "-t", "overlay", "overlay", "-o", options, root + place]).returncode != 0:
            skip("this system has no overlays")
    run("mount", "--rbind", "/dev", f"{root}/dev")
    for kind, place in (("tmpfs", "dev/shm"), ("tmpfs", "run"), ("tmpfs", "tmp"), ("proc", "proc")):
        run("mount", "-t", kind, kind, f"{root}/{place}")
    os.makedirs(f"{root}/run/written")
    run("mount", "--bind", f"{scratch}/written", f"{root}/run/written")
    run("cp", *glob.glob(f"{scratch}/*.deb"), f"{root}/tmp")
    with socket.socket() as any_socket:
        fcntl.ioctl(any_socket, 0x8914, struct.pack("16sh14x", b"lo", 1))  # SIOCSIFFLAGS, IFF_UP
    os.chroot(root)
    os.chdir("/tmp")
    os.environ.clear()
    os.environ.update(PATH="/usr/local/sbin:/usr/sbin:/usr/bin:/sbin:/bin", DEBIAN_FRONTEND="noninteractive")


class Server:
    """A product's server, run as its unit says."""

    def __init__(self, product):
        self.product, self.client = product, CLIENTS[product]
        unit = configparser.ConfigParser(strict=False, interpolation=None)
        unit.read(f"/lib/systemd/system/{product}2010.service")
        self.manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.manager.bind("")  # to a name that nobody else has
        environment = {"PATH": os.environ["PATH"], "NOTIFY_SOCKET": "@" + self.manager.getsockname()[1:].decode()}
        self.process = subprocess.Popen(shlex.split(unit["Service"]["ExecStart"]), env=environment, cwd="/",
                                        user=unit["Service"]["User"], group="tlmjm", extra_groups=[])
        limit = time.monotonic() + 30
        while subprocess.run([*self.client, "ping"], capture_output=True).returncode != 0:
            assert self.process.poll() is None and time.monotonic() < limit, f"{product} does not serve"
            time.sleep(0.05)

    def analyse(self, programs):
        assert self.process.poll() is None, f"{self.product} has ended"
        directory = f"/tmp/jobs/{self.product}"
        shutil.rmtree(directory, ignore_errors=True)
        os.makedirs(directory)
        decks = [shutil.copy(f"{EXAMPLES}/{DECKS[program]}.inp", directory) for program in programs]
        jobs = [run(*self.client, "submit", "--deck", deck, program).strip()
                for program, deck in zip(programs, decks)]
        for job, deck in zip(jobs, decks):
            run(*self.client, "watch", job)
            run(*self.client, "results", "--dir", directory, job)
            assert os.path.getsize(deck.replace(".inp", ".dat")) > 0
        past = run("tlmctl", "history", "--server-log", f"/var/log/tlmjm/{self.product[:3]}2010_jobs.jsonl")
        assert past.count(" finished, exit code 0") >= len(DECKS), past
        assert os.stat(f"{STATE}/{self.product[:3]}2010.sta").st_uid == pwd.getpwnam("tlmjm").pw_uid

    def ended(self):
        assert self.process.wait(30) == 0, f"{self.product} ended with {self.process.returncode}"


def install():
    run("dpkg", "--no-triggers", "-i", "first.deb")
    state = os.stat(STATE)
    assert (state.st_uid, state.st_mode & 0o777) == (pwd.getpwnam("tlmjm").pw_uid, 0o750)
    assert open("/run/asked").read() == "daemon-reload\n", "an installation neither enables nor starts anything"
    run("systemd-analyze", "verify", *UNITS)
    run("systemctl", "--quiet", "enable", *UNITS)
    with open(CONFIGURATION, "a") as configuration:
        configuration.write("TSQOR_JMPORT=23170\n")
    for program, source in SITE.items():
        os.symlink(source, program)
    run("python3", "-c", "import tlmjob; assert not tlmjob.attach()")


def upgrade_below(servers):
    os.remove("/run/asked")
    said = run("dpkg", "--no-triggers", "-i", "later.deb")
    asked = open("/run/asked").read()
    assert all(f"restart {product}2010" in said for product in CLIENTS) and "restart" not in asked, said + asked
    for server in servers:
        server.analyse(["heat2d"])


def remove_and_purge(servers):
    kept = [CONFIGURATION, *(entry.path for entry in os.scandir(STATE))]
    run("dpkg", "--no-triggers", "-r", "tlmjm")
    for server in servers:
        server.ended()
    for program in SITE:
        os.remove(program)
    os.removedirs(f"{HOME}/bin")
    assert not os.path.exists(HOME) and all(map(os.path.exists, kept)), kept
    run("dpkg", "--no-triggers", "-P", "tlmjm")
    names = r".*/[^/]*\(tlm\|ksbjm\|vrkjm\|tessarine\)[^/]*"
    left = run("find", "/run/written", "!", "-type", "c", "!", "-path", "*/var/cache/*", "-regex", names)
    assert not left, left


def main(build, scratch, cpack, inside=None):
    if not inside:
        if missing := [tool for tool in ("dpkg-shlibdeps", "lintian", "systemd-analyze") if not shutil.which(tool)]:
            skip(f"not installed: {', '.join(missing)}")
        alone = ["unshare", "--mount", "--net", "--ipc", "--pid", "--fork", "--kill-child", "--mount-proc"]
        if os.geteuid() != 0 or subprocess.run([*alone, "true"], stderr=subprocess.DEVNULL).returncode != 0:
            skip("an installation into a namespace takes the rights of root")
        os.makedirs(scratch, exist_ok=True)
        os.execvp("unshare", [*alone, sys.executable, __file__, build, scratch, cpack, "inside"])

    os.umask(0o022)
    run("mount", "-t", "tmpfs", "tmpfs", scratch)
    make_packages(build, scratch, cpack)
    enter_copy_of_machine(scratch)
    # Where it is really installed, with programs of the site's own.
    run("dpkg", "--no-triggers", "--purge", "tlmjm")
    run("rm", "-rf", HOME)
    for path, text in (("/usr/local/sbin/systemctl", SYSTEMCTL), ("/etc/hosts", "127.0.0.1 localhost\n")):
        with open(path, "w") as file:
            file.write(text)
    os.chmod("/usr/local/sbin/systemctl", 0o755)
    os.makedirs("/run/systemd/system")

    install()
    servers = [Server(product) for product in CLIENTS]
    for server in servers:
        server.analyse(DECKS)
    run("python3", "-c", "import tlm; tlm.JobManager(port=23170).ping()")
    upgrade_below(servers)
    run("tlmjm", "stop")
    servers[0].ended()
    servers[0] = Server("tlmjm")  # from the new package, on the port of the configuration as it was edited
    remove_and_purge(servers)


if __name__ == "__main__":
    main(*sys.argv[1:])
