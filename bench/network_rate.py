#!/usr/bin/python3
"""How fast data sets are stored over the loopback interface, beside dcmtk and Orthanc in the same rounds.

usage: network_rate.py KORVANE [SLICES]

Needs dcmtk; Orthanc where it is installed. Two tables:

- 1,000 CT slices from one sender to one receiver, for each pair of dcmtk and korvane: the median seconds of five rounds, and
  the rate as a share of that of storescu with storescp. Fails where ours takes part and is slower.
- Receivers of many peers, `storescp --fork`, Orthanc and `korvane receive`, none of which waits for the disk: 1, 4 and 16
  senders at once, 8 slow ones, 200 associations with an echo each. Fails where korvane is more than 10 % behind the better of
  the others. Beside it what waiting for the disk costs: `korvane receive` in a folder on the disk, without and with it.

dcmtk's own delay for small packets is off (TCP_NODELAY=1 in its environment), or it would take forty times as long.
"""

import contextlib
import json
import os
import pathlib
import shutil
import socket
import statistics
import struct
import subprocess
import sys
import tempfile
import threading
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
        await_port(port, server)
        start = time.monotonic()
        subprocess.run([*send, HERE, port, *files], check=True, **QUIET)
        taken = time.monotonic() - start
    finally:
        server.terminate()
        server.wait(10)
    assert len(list(target.iterdir())) == len(files), "files are missing"
    shutil.rmtree(target)
    return taken


def await_port(port, server):
    while True:
        time.sleep(0.1)
        try:
            socket.create_connection((HERE, port)).close()
            return
        except ConnectionRefusedError:
            assert server.poll() is None, "the receiver does not start"


def orthanc(folder, port):
    """The command of an Orthanc that stores into the folder."""
    settings = folder.parent / "orthanc.json"
    settings.write_text(json.dumps({
        "StorageDirectory": str(folder), "IndexDirectory": str(folder), "DicomPort": int(port), "HttpServerEnabled": False,
        "Plugins": [], "SyncStorageArea": False, "SaveJobs": False, "DicomAlwaysAllowStore": True, "DicomAlwaysAllowEcho": True,
        "MaximumStorageSize": 0, "OverwriteInstances": True, "DicomCheckCalledAet": False}))
    return ["Orthanc", settings]


@contextlib.contextmanager
def receiving(kind, program, folder):
    """A receiver with an empty folder: its port; afterwards the processor seconds that it took, in a list."""
    port, target, used = free_port(), folder / "in", []
    target.mkdir()
    command = {"storescp": ["storescp", "--fork", "-od", target, port], "Orthanc": orthanc(target, port),
               "korvane": [program, "receive", port, target, "--local", "--no-sync", "-q"],
               "korvane, synced": [program, "receive", port, target, "--local", "-q"]}[kind]
    server = subprocess.Popen(command, **QUIET)
    try:
        await_port(port, server)
        yield port, used
    finally:
        server.terminate()
        used.append(sum(os.wait4(server.pid, 0)[2][:2]))
        server.returncode = 0
        shutil.rmtree(target)


def senders(count, program, port, files):
    """So many senders at once, each with its part of the files."""
    running = [subprocess.Popen([program, "send", HERE, port, *files[n::count]], **QUIET) for n in range(count)]
    assert [process.wait(300) for process in running] == [0] * count


def read_pdu(peer):
    with peer.makefile("rb", 0) as stream:
        head = stream.read(6)
        left = struct.unpack(">I", head[2:])[0]
        while left > 0:
            left -= len(stream.read(left))
    return head[0]


def request(sop_class):
    def item(kind, data):
        return struct.pack(">BBH", kind, 0, len(data)) + data

    context = item(0x20, b"\1\0\0\0" + item(0x30, sop_class) + item(0x40, b"1.2.840.10008.1.2.1"))
    body = struct.pack(">HH", 1, 0) + b"ANY-SCP".ljust(16) + b"BENCH".ljust(16) + bytes(32)
    body += item(0x10, b"1.2.840.10008.3.1.1.1") + context + item(0x50, item(0x51, struct.pack(">I", 131072)))
    return struct.pack(">BBI", 1, 0, len(body)) + body


def pdv(data, control):
    return struct.pack(">BBIIBB", 4, 0, len(data) + 6, len(data) + 2, 1, control) + data


def command(field, sop_class, data, instance=b""):
    rows = [(0x2, sop_class), (0x100, field), (0x110, 1), *([(0x700, 0)] if instance else []), (0x800, 1 if data else 0x101), (0x1000, instance)]
    body = b""
    for tag, value in rows:
        value = value + bytes(len(value) % 2) if isinstance(value, bytes) else struct.pack("<H", value)
        body += struct.pack("<HHI", 0, tag, len(value)) + value if value else b""
    return pdv(struct.pack("<HHII", 0, 0, 4, len(body)) + body, 3)


def associate(port, sop_class):
    peer = socket.create_connection((HERE, port), 60)
    peer.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    peer.sendall(request(sop_class))
    assert read_pdu(peer) == 2
    return peer


def release(peer):
    peer.sendall(b"\5\0\0\0\0\4" + bytes(4))
    assert read_pdu(peer) == 6
    peer.close()


def echoes(_program, port, _files):
    for _ in range(200):
        peer = associate(port, b"1.2.840.10008.1.1")
        peer.sendall(command(0x30, b"1.2.840.10008.1.1", False))
        assert read_pdu(peer) == 4
        release(peer)


def slowly(_program, port, files):
    """Eight that send 16 slices each in pieces of 16,000 bytes, 5 ms after each other."""
    sop_class, done = b"1.2.840.10008.5.1.4.1.1.2", []

    def send(part):
        peer = associate(port, sop_class)
        for path in part:
            whole = path.read_bytes()
            (length,) = struct.unpack("<I", whole[140:144])
            meta, data = whole[144:144 + length], whole[144 + length:]
            at = meta.index(b"\2\0\3\0UI") + 8
            uid = meta[at:at + struct.unpack("<H", meta[at - 2:at])[0]]
            peer.sendall(command(1, sop_class, True, uid))
            for place in range(0, len(data), 16000):
                piece = data[place:place + 16000]
                peer.sendall(pdv(piece, 2 if place + 16000 >= len(data) else 0))
                time.sleep(0.005)
            assert read_pdu(peer) == 4
        release(peer)
        done.append(part)

    threads = [threading.Thread(target=send, args=(files[n::8][:16],)) for n in range(8)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert len(done) == 8, "a sender failed"


LOADS = [(f"{n} sender{'s' if n > 1 else ''}", lambda *run, n=n: senders(n, *run)) for n in (1, 4, 16)] + [
    ("8 slow senders", slowly), ("200 echoes", echoes)]


def measured(kind, program, folder, load, files):
    """Seconds of the load, and processor seconds of the receiver."""
    with receiving(kind, program, folder) as (port, used):
        start = time.monotonic()
        load(program, port, files)
        taken = time.monotonic() - start
    return taken, used[0]


def many_peers(program, folder, disk, files):
    """Prints the second table; whether korvane was behind."""
    kinds = [kind for kind, needs in (("storescp", "storescp"), ("Orthanc", "Orthanc"), ("korvane", program)) if shutil.which(needs)]
    synced = [(kind, disk) for kind in ("korvane", "korvane, synced")]
    behind = False
    print(f"\nreceivers of many peers, {len(files)} slices in all, medians of {ROUNDS} rounds: seconds (processor seconds)")
    print(f"  {'':15}" + "".join(f"{kind:>17}" for kind in kinds) + f"{'to the better':>15}{'on the disk':>13}{'synced':>9}")
    for name, load in LOADS:
        places = [(kind, folder) for kind in kinds] + synced
        rounds = [[measured(kind, program, place, load, files) for kind, place in places] for _ in range(ROUNDS)]
        times = [statistics.median(run[n][0] for run in rounds) for n in range(len(places))]
        used = [statistics.median(run[n][1] for run in rounds) for n in range(len(places))]
        ours = len(kinds) - 1
        ratio = statistics.median(min(run[n][0] for n in range(ours)) / run[ours][0] for run in rounds)
        behind = behind or ratio < 0.9
        print(f"  {name:15}" + "".join(f"{times[n]:9.2f} ({used[n]:5.2f})" for n in range(len(kinds))) +
              f"{ratio:15.2f}{times[-2]:13.2f}{times[-1]:9.2f}", flush=True)
    return behind


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
        with tempfile.TemporaryDirectory(prefix="korvane-network-rate-") as disk:
            behind = many_peers(program, folder, pathlib.Path(disk), files[:400])
        return 1 if slower or behind else 0
    finally:
        shutil.rmtree(folder, ignore_errors=True)


sys.exit(main())
