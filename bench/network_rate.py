#!/usr/bin/python3
"""How fast 1,000 CT slices are stored over the loopback interface, beside dcmtk with itself in the same rounds.

usage: network_rate.py KORVANE [SLICES]

Needs dcmtk. Prints for each pair of sender and receiver the median seconds of five rounds, and its rate as a share of that
of storescu with storescp; fails where ours takes part and is slower. dcmtk's own delay for small packets is off
(TCP_NODELAY=1 in its environment), or it would take forty times as long.
"""

import os
import pathlib
import shutil
import socket
import statistics
import subprocess
import sys
import tempfile
import time

ROUNDS = 5
HERE = "127.0.0.1"
QUIET = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL, "env": {**os.environ, "TCP_NODELAY": "1"}}


def free_port():
    with socket.socket() as probe:
        probe.bind((HERE, 0))
        return str(probe.getsockname()[1])


def seconds(folder, files, send, receive):
    """Seconds from the sender's start to its end; by then the receiver has confirmed each file."""
    port, target = free_port(), folder / "in"
    target.mkdir()
    command = [*receive, "-od", target, port] if receive[0] == "storescp" else [*receive, port, target]
    server = subprocess.Popen(command, **QUIET)
    try:
        while True:
            time.sleep(0.1)
            try:
                socket.create_connection((HERE, port)).close()
                break
            except ConnectionRefusedError:
                assert server.poll() is None, "the receiver does not start"
        start = time.monotonic()
        subprocess.run([*send, HERE, port, *files], check=True, **QUIET)
        taken = time.monotonic() - start
    finally:
        server.terminate()
        server.wait(10)
    assert len(list(target.iterdir())) == len(files), "files are missing"
    shutil.rmtree(target)
    return taken


def main():
    program, slices = sys.argv[1], int((sys.argv[2:] or ["1000"])[0])
    memory = "/dev/shm" if os.path.isdir("/dev/shm") else None  # in memory: the speed of disks varies from round to round
    folder = pathlib.Path(tempfile.mkdtemp(prefix="korvane-network-rate-", dir=memory))
    try:
        subprocess.run([program, "phantom", folder / "ct", "--slices", str(slices), "--size", "512"], check=True, **QUIET)
        files = sorted((folder / "ct").iterdir())
        users, providers = (["storescu"], [program, "send"]), (["storescp"], [program, "receive", "--local"])
        pairs = [(user, provider) for user in users for provider in providers]
        rounds = [[seconds(folder, files, *pair) for pair in pairs] for _ in range(ROUNDS)]
        megabytes = sum(path.stat().st_size for path in files) / 1e6
        print(f"{slices} CT slices, {megabytes:.0f} MB, medians of {ROUNDS} rounds")
        slower = False
        for n, (user, provider) in enumerate(pairs):
            taken = statistics.median(times[n] for times in rounds)
            ratio = statistics.median(times[0] / times[n] for times in rounds)
            slower = slower or ratio < 1
            names = [pathlib.Path(" ".join(command[:2])).name for command in (user, provider)]
            print(f"  {names[0]:12} -> {names[1]:15} {taken:6.2f} s  {megabytes / taken:5.0f} MB/s  {ratio:5.2f}")
        return 1 if slower else 0
    finally:
        shutil.rmtree(folder, ignore_errors=True)


sys.exit(main())
