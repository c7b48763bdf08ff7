"""Other programs on the loopback interface, as peers of the program under test."""

import contextlib
import json
import shutil
import socket
import struct
import subprocess
import time

from free_port import HERE, free_port
from host_test import KORVANE, WORK

PEERS = all(map(shutil.which, ("storescp", "storescu", "echoscu", "dcmsend")))
ORTHANC = shutil.which("Orthanc")


@contextlib.contextmanager
def running(*command, **options):
    with subprocess.Popen([str(word) for word in command], text=True, **options) as process:
        try:
            yield process
        finally:
            if process.poll() is None:
                process.terminate()
            process.wait(timeout=10)


@contextlib.contextmanager
def storescp(*options):
    """A peer that stores: its port, its folder."""
    port, folder = free_port(), WORK / f"scp{time.monotonic_ns()}"
    folder.mkdir()
    with running("storescp", "-od", folder, *options, port, stderr=subprocess.DEVNULL):
        for _ in range(100):
            with contextlib.suppress(OSError), socket.create_connection((HERE, port), 1):
                break
            time.sleep(0.05)
        yield port, folder


@contextlib.contextmanager
def receiver(folder, *options, status=0, **more):
    """The program as provider: its port, and the lines that it said once it has ended."""
    said = []
    command = [*KORVANE, "receive", "0", folder, "--local", "--json", *options]
    with running(*command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **more) as process:
        yield json.loads(process.stdout.readline())["port"], said, process
        out, err = process.communicate(timeout=20)
        said += [*map(json.loads, (out or "").splitlines()), err]
    assert status in (None, process.returncode), (process.returncode, said)


def request_then(*messages):
    """A peer that asks for CT storage, and what it then says: both as bytes."""
    def item(kind, data):
        return struct.pack(">BBH", kind, 0, len(data)) + data

    context = b"\1\0\0\0" + item(0x30, b"1.2.840.10008.5.1.4.1.1.2") + item(0x40, b"1.2.840.10008.1.2")
    body = (struct.pack(">HH", 1, 0) + b"A".ljust(16) + b"B".ljust(16) + bytes(32) + item(0x10, b"1.2.840.10008.3.1.1.1") +
            item(0x20, context) + item(0x50, item(0x51, struct.pack(">I", 16384))))
    command = struct.pack("<HHIH", 0, 0x100, 2, 1) + struct.pack("<HHIH", 0, 0x110, 2, 1) + \
        struct.pack("<HHIH", 0, 0x800, 2, 1)
    for tag, uid in ((0x2, b"1.2.840.10008.5.1.4.1.1.2\0"), (0x1000, b"1.2.3.4\0")):
        command += struct.pack("<HHI", 0, tag, len(uid)) + uid
    pdvs = b"".join(struct.pack(">BBIIBB", 4, 0, len(m) + 6, len(m) + 2, 1, c) + m for c, m in ((3, command), *messages))
    return struct.pack(">BBI", 1, 0, len(body)) + body, pdvs
