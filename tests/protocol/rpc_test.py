#!/usr/bin/env python3
"""A client that rpcgen has made of docs/protocol/tlm.x works with the server, and so does the health check that the
administration manual shows.

    rpc_test.py SERVER SOURCE_TREE BUILD_DIRECTORY
"""
import os
import re
import shutil
import subprocess
import sys

import server

os.environ["PATH"] += ":/usr/sbin:/sbin"
SERVER, ROOT, BUILD = sys.argv[1:]
TIRPC = "/usr/include/tirpc"
if not all(map(shutil.which, ("rpcgen", "rpcinfo", "cc"))) or not os.path.isdir(TIRPC):
    print("Skipped: rpcsvc-proto, rpcbind or libtirpc-dev is not installed")
    sys.exit(77)


def run(*command):
    subprocess.run(command, check=True, cwd=BUILD, timeout=120)


def build_client():
    shutil.rmtree(BUILD, ignore_errors=True)
    os.makedirs(BUILD)
    shutil.copy(f"{ROOT}/docs/protocol/tlm.x", BUILD)
    made = {"-h": "tlm.h", "-c": "tlm_xdr.c", "-l": "tlm_client.c"}
    for kind, file in made.items():
        run("rpcgen", "-C", kind, "-o", file, "tlm.x")
    include = ("-I", ".", "-isystem", TIRPC)
    run("cc", "-c", *include, *list(made.values())[1:])
    run("cc", "-Wall", "-Wextra", "-Wno-missing-field-initializers", "-Werror", *include, "-o", "rpc_client",
        f"{ROOT}/tests/protocol/rpc_client.c", "tlm_xdr.o", "tlm_client.o", "-ltirpc")


def is_healthy(port):
    with open(f"{ROOT}/docs/administration.md") as manual:
        command = re.search(r"^    (rpcinfo -a .*)", manual.read(), re.M)[1]
    for shown, meant in (("79.93", f"{port >> 8}.{port & 255}"), ("192.0.2.1", "127.0.0.1")):
        assert shown in command, command
        command = command.replace(shown, meant)
    check = subprocess.run(command.split(), capture_output=True, text=True, timeout=60)
    assert ("ready and waiting" in check.stdout) == (check.returncode == 0), check
    return check.returncode == 0


build_client()
with server.Server(SERVER) as job_manager:
    run("./rpc_client", str(job_manager.port), job_manager.home)
    assert is_healthy(job_manager.port)
    assert not is_healthy(server.free_port()), "a server that is not there is healthy"
