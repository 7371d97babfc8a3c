#!/usr/bin/env python3
"""The Python module calls all operations of a server, in what they are for and in what goes wrong.

    client_test.py SERVER SOURCE_TREE
"""
import os
import socket
import subprocess
import sys
import time

sys.path.insert(0, f"{sys.argv[2]}/tools/python")
import server  # noqa: E402
import tlm  # noqa: E402

TOKEN, HOST = "plm300", "workstation"
called = set()


class Counted(tlm.JobManager):
    def _call(self, number, *arguments, **receiver):
        called.add(number)
        return super()._call(number, *arguments, **receiver)


def eventually(holds):
    limit = time.monotonic() + 20
    while not (value := holds()):
        assert time.monotonic() < limit, "it does not come to that"
        time.sleep(0.02)
    return value


def ended(manager, handle):
    return eventually(lambda: (task := manager.get_job(handle)[0]).status not in tlm.UNFINISHED and task)


def fails(kind, call, *arguments, **named):
    try:
        call(*arguments, **named)
    except kind as failure:
        return failure
    raise AssertionError(f"{call} goes through")


def write(path, content):
    with open(path, "wb") as file:
        file.write(content)
    return path


def read(path):
    with open(path, "rb") as file:
        return file.read()


def a_job_with_files(manager, home):
    client, content = f"{home}/client/", os.urandom(70_001)
    assert fails(tlm.Refused, manager.submit_job, tlm.Submission()).status == 5, "a job before Hello"
    assert fails(tlm.Refused, manager.hello, "no digits", HOST, 0).status == 5 and manager.hello(TOKEN, HOST, 0)
    directory, mapped = manager.map_client_directory(client, "")
    assert mapped and os.path.isdir(directory)
    items = [tlm.FileItem(f"{directory}/{name}", write(client + name, data)) for name, data in (
        ("in.dat", content), ("empty", b""), (os.fsdecode(b"\xff.dat"), b"123"))]
    assert manager.put_files(items) and manager.put_files([])
    assert [read(item.destination) for item in items] == [content, b"", b"123"]
    assert manager.client_file_exists(client + "in.dat") and not manager.client_file_exists(client + "none")
    assert manager.client_file_matches(client + "in.dat", 70_001, 0)
    assert not manager.client_file_matches(client + "in.dat", 70_000, 0)
    assert manager.check_client_files([f"70001:0:{client}in.dat"]) == ([], True)
    assert manager.check_client_files([f"9:0:{client}in.dat", f"9:0:{client}none"]) == (
        [f"70001:0:{client}in.dat", f"0:0:{client}none"], False)
    write(f"{directory}/in.dat.tmp", b"came before")
    rest = tlm.FileItem(f"{directory}/in.dat", write(client + "rest", b"came before and later"), offset=11)
    assert manager.update_client_files([f"{directory}/empty"], [rest])
    assert not os.path.exists(f"{directory}/empty") and read(f"{directory}/in.dat") == b"came before and later"
    manager.put_files(items[:1])

    manager.set_environment([("TLM_TEST_A", "ä"), ("TLM_TEST_B", "2")])
    manager.set_listening(True)
    manager.refresh_jobs()
    job = tlm.Submission(work_dir=client, command='do "cp in.dat plate.res; echo $TLM_TEST_A$TLM_TEST_B"',
                         input_file="in.dat", result_stem="plate", client_note="a note", complete_on_failure=True)
    handle = manager.submit_job(job)
    task = ended(manager, handle)
    assert (task.status, task.client_note, task.client_host) == (tlm.Status.FINISHED, "a note", HOST), task
    assert manager.get_job(handle, task) == (task, False) and manager.get_job(handle + 99)[1] is False
    assert manager.read_output(handle, 0, "before ") == "before ä2\n" and manager.read_output(handle, 2) == "2\n"
    manager.watch_output(handle, 0)
    assert manager.get_job(handle)[0].update_timestamp > task.update_timestamp
    assert manager.take_ownership(handle) and not manager.take_ownership(handle + 99)

    results = f"{home}/results"
    os.mkdir(results)
    files, sent = manager.request_results(handle, into=results)
    assert sent and [os.path.basename(item.path) for item in files] == ["plate.res", "plate.crc"], files
    assert read(f"{results}/plate.res") == content and not os.path.exists(f"{results}/plate.res.tmp")
    manager.results_incomplete(handle, ["plate.res"])
    assert manager.results_not_sent(handle)
    files, sent = manager.request_results(handle, into=lambda item: None)
    assert sent and [item.path for item in files] == [None, None]
    manager.release_job(handle)
    manager.results_received(handle)
    eventually(lambda: handle not in manager.list_jobs())
    assert manager.list_removed_jobs([3])[0] == 3


def the_queue(manager, home):
    assert manager.start_queue(0) and manager.stop_queue() and not manager.is_queue_running()
    assert manager.set_queue_limit(3) and not manager.set_queue_limit(0) and manager.get_queue_limit() == 3
    assert manager.set_local_limit(7) and not manager.set_local_limit(0) and manager.get_local_limit() == 7
    assert manager.set_default_priority(4) and manager.get_default_priority() == 4
    count = manager.get_job_count()
    command = f"do 'until rm {home}/go; do sleep 0.02; done'"
    waiting = manager.submit_job(tlm.Submission(work_dir=f"{home}/client/", command=command, result_stem="w",
                                                run_class=tlm.RUN_QUEUED))
    task = manager.get_job(waiting)[0]
    assert (task.status, task.priority) == (tlm.Status.QUEUED, 4) and manager.get_job_count() == count
    assert manager.set_job_priority(waiting, 1) and manager.get_job(waiting)[0].priority == 1
    assert manager.start_queue(3600) and manager.get_queue_start_time() > time.time() + 3000
    assert manager.start_queue(2**64 - 1) and manager.get_queue_start_time() == 0 and not manager.is_queue_running()
    assert manager.start_queue(0) and manager.is_queue_running()
    write(f"{home}/go", b"")
    ended(manager, waiting)
    assert manager.remove_job(waiting) and not manager.remove_job(waiting + 99)
    assert waiting in manager.list_removed_jobs()
    manager.set_server_pool(["peer1", "peer2"])
    assert manager.get_server_pool() == ["peer1", "peer2"]
    manager.set_server_pool([])
    assert manager.get_temp_root()[0] == f"{home}/tmp" and manager.set_temp_root(f"{home}/tmp", 4000)
    assert manager.get_temp_root() == (f"{home}/tmp", 4000)


def a_process(manager, home):
    with subprocess.Popen(["sleep", "1000"], cwd=f"{home}/client") as process:
        handle = manager.attach_process(process.pid, "sleep 1000", f"{home}/client")
        assert manager.set_progress(process.pid, 40) and manager.get_job(handle)[0].status == tlm.Status.PROGRESS_NOTICE
        manager.required_level(process.pid, 5, 6)
        task = manager.get_job(handle)[0]
        assert (task.progress, task.task_type, task.task_level, task.status) == (40, 5, 6, tlm.Status.RUNNING), task
        assert manager.results_available(process.pid) and manager.request_retry(process.pid)
        assert manager.get_job(handle)[0].result_flags & tlm.RESULTS_AVAILABLE
        assert manager.set_progress(process.pid, 2**32 - 5) and manager.get_job(handle)[0].progress == -5
        assert manager.job_succeeded(process.pid) and not manager.job_succeeded(1)
        assert manager.abort_all_jobs()
        assert process.wait(20) != 0
    assert manager.reserved16(2**64 - 1) is False
    manager.reserved34(1, 2)


def what_goes_wrong(manager, home):
    assert "No such file" in str(fails(OSError, manager.put_files, [tlm.FileItem("there", f"{home}/none")]))
    assert "too long" in str(fails(ValueError, manager.client_file_exists, "x" * (tlm.STRING_LIMIT + 1)))
    fails(OverflowError, manager.set_queue_limit, 2**32)
    manager.ping()  # it is as it was
    assert fails(tlm.Refused, manager._exchange, 50, "none", (), (), (), None).status == 3
    manager.ping()


def a_server_that_is_none():
    """Each answer to a call of Hello, and what the module says of it."""
    header = bytes(3) + b"\1" + bytes(3) + b"\1" + bytes(16)
    for answer, kind in ((b"", ConnectionError), (b"\x80\0\0\x1c" + header[:9], ConnectionError),
                         (b"\x80\0\0\x18" + bytes(24), tlm.ProtocolError), (None, socket.timeout),
                         (b"\x80\0\0\x20" + header + b"\x7f\xff\xff\xff" * 2, tlm.ProtocolError)):
        with socket.create_server(("127.0.0.1", 0)) as listener:
            client = tlm.JobManager(port=listener.getsockname()[1], timeout=0.2 if answer is None else 20)
            peer = listener.accept()[0]
            peer.sendall(answer or b"")
            peer.shutdown(socket.SHUT_WR) if answer is not None else None
            fails(kind, client.get_temp_root)
            fails((OSError, ValueError), client.ping)
            peer.close()


def all_but_shutdown(port, home):
    with Counted(port=port) as client:
        a_job_with_files(client, home)
        the_queue(client, home)
        a_process(client, home)
        what_goes_wrong(client, home)
    subprocess.run(["rm", "-r", f"{home}/results"], check=True)


def main():
    with server.Server(sys.argv[1], ORPC_PACKET_SIZE="4096") as job_manager:
        for tlm._PACKET_SIZE in (0x200000, 64):
            all_but_shutdown(job_manager.port, job_manager.home)
        a_server_that_is_none()
        with Counted(port=job_manager.port) as client:
            client.shutdown()
        assert job_manager.process.wait(20) == 0
    assert called == set(tlm.OPERATIONS), f"not called: {set(tlm.OPERATIONS) - called}"


if __name__ == "__main__":
    main()
