"""What goes wrong, a step each, as those of the clients. Each fault is over when its step is."""
import re, signal

from soaking.clients import Kind
from soaking.system import processes_in, signal_job

KEY = re.compile(r"\bk\d+n\d+\b")  # of a job; stands in its command


def kill_client(worker, client):
    worker.soak.killed.add(client)
    client.kill()
    worker.soak.count("killed clients")


def stop_client(worker, client):
    client.send_signal(signal.SIGSTOP)
    worker.soak.count("stopped clients")
    worker.rest(0.5, 5)
    client.send_signal(signal.SIGCONT)


def trouble_client(worker):
    if running := list(worker.soak.running):
        worker.rng.choice((kill_client, stop_client))(worker, worker.rng.choice(running))


def kill_job(worker, job, process):
    job.hurt = True
    if signal_job(*process, signal.SIGKILL):
        worker.soak.count("killed jobs")


def stop_job(worker, job, process):
    if signal_job(*process, signal.SIGSTOP):
        worker.soak.count("stopped jobs")
        worker.rest(0.5, 5)
        signal_job(*process, signal.SIGCONT)


def trouble_job(worker):
    root = worker.rng.choice((worker.soak.main.root, worker.soak.peer.root))
    found = [(job, (root, pid, command)) for pid, command in processes_in(root)
             if (key := KEY.search(command)) and (job := worker.soak.jobs.get(key[0]))]
    if found:
        worker.rng.choice((kill_job, stop_job))(worker, *worker.rng.choice(found))


def expect_peer(worker):
    if (code := worker.soak.peer.process.poll()) is not None:
        worker.soak.broken(f"the peer has ended by itself with {code}")


def stop_peer(worker):
    expect_peer(worker)
    worker.soak.peer.process.send_signal(signal.SIGSTOP)
    worker.soak.count("stopped peer")
    worker.rest(1, 8)
    worker.soak.peer.process.send_signal(signal.SIGCONT)


def kill_peer(worker):
    expect_peer(worker)
    worker.soak.peer.kill()
    worker.soak.count("killed peer")
    worker.rest(0, 5)
    worker.soak.start_peer()


def trouble_peer(worker):
    worker.rng.choice((stop_peer, stop_peer, kill_peer))(worker)


FAULTS = [Kind("trouble of clients", 2, trouble_client, 2), Kind("trouble of jobs", 1, trouble_job, 4),
          Kind("trouble of the peer", 1, trouble_peer, 12)]
