#!/usr/bin/env python3
"""Sending to peers that refuse, break off or are slow: what was acknowledged is known, nothing is lost, nothing sent twice silently."""

import collections
import contextlib
import json
import signal
import socket
import subprocess
import threading
import time

import host_test
import numpy
import pydicom
from host_test import KORVANE, WORK, korvane, phantom
from network_peers import HERE, PEERS, free_port, receiver, storescp


def pixels(folder):
    return {ds.SOPInstanceUID: ds.pixel_array for ds in map(pydicom.dcmread, map(str, folder.iterdir()))}


@contextlib.contextmanager
def cutting(port, cuts):
    """A way to a port that breaks off connections: each after as many bytes of the sender as `cuts` says; then no more."""
    listener = socket.create_server((HERE, 0))

    def pump(source, target, limit):
        with contextlib.suppress(OSError):
            while limit > 0 and (data := source.recv(min(limit, 65536))):
                target.sendall(data)
                limit -= len(data)
        for end in (source, target):
            with contextlib.suppress(OSError):
                end.shutdown(socket.SHUT_RDWR)

    def serve():
        with contextlib.suppress(OSError):
            while True:
                near, far = listener.accept()[0], socket.create_connection((HERE, port))
                limit = cuts.pop(0) if cuts else 1 << 60
                threading.Thread(target=pump, args=(near, far, limit), daemon=True).start()
                threading.Thread(target=pump, args=(far, near, 1 << 60), daemon=True).start()

    threading.Thread(target=serve, daemon=True).start()
    with listener:
        yield listener.getsockname()[1]


def decoded_where_refused():
    """A peer that takes no compression gets the same pixels without it, and is told of; lossy data only on request."""
    source = phantom("ct", "--slices", 30, "--size", 32)
    for syntax in ("jpegll", "rle"):
        korvane("convert", source, WORK / syntax, "--syntax", syntax)
    for options in ((), ("+xi",)):
        with storescp(*options) as (port, folder):
            report = json.loads(korvane("send", HERE, port, WORK / "jpegll", "--jobs", 2, "--json")[0])
            assert (report["stored"], len(report["decoded"])) == (30, 30), report
            assert "JPEG Lossless" in report["decoded"][0]["why"], report
            sent, arrived = pixels(source), pixels(folder)
            assert sent.keys() == arrived.keys()
            assert all(numpy.array_equal(sent[uid], arrived[uid]) for uid in sent)
    with storescp("+xa") as (port, folder):
        assert json.loads(korvane("send", HERE, port, WORK / "rle", "--json")[0])["decoded"] == []
    first = next((WORK / "jpegll").iterdir())
    lossy = pydicom.dcmread(first)
    if subprocess.run(["dcmcjpeg", "+eb", next(source.iterdir()), WORK / "lossy"], check=False, capture_output=True).returncode:
        lossy = None
    with storescp() as (port, folder):
        if lossy is not None:
            assert "with loss" in korvane("send", HERE, port, WORK / "lossy", status=1)[1]
            korvane("send", HERE, port, WORK / "lossy", "--decode-lossy")
            (arrived,) = map(pydicom.dcmread, map(str, folder.iterdir()))
            assert arrived.LossyImageCompression == "01" and not arrived.file_meta.TransferSyntaxUID.is_compressed
        (WORK / "broken").write_bytes(first.read_bytes().replace(b"\xff\xd8\xff", bytes(3), 1))
        assert "1 file was not stored" in korvane("send", HERE, port, WORK / "broken", status=1)[1]


def tried_again():
    source = phantom("retried", "--slices", 12, "--size", 64)
    with receiver(WORK / "in", "--no-sync", status=None) as (port, said, process):
        with cutting(port, [100, 30000, 50000]) as way:
            report = json.loads(korvane("send", HERE, way, source, "--retry", 3, "--retry-wait", 0, "--json")[0])
        with cutting(port, [30000]) as way:
            err = korvane("send", HERE, way, source, status=1)[1]
        assert "1 file was not stored" in err, err
        process.send_signal(signal.SIGINT)
    assert (report["stored"], report["failed"]) == (12, []) and 1 <= len(report["again"]) <= 3, report
    assert pixels(WORK / "in").keys() == pixels(source).keys()
    port = free_port()
    start = time.monotonic()
    korvane("send", HERE, port, source, "--retry", 2, status=1)  # waits a second, then two
    assert 3 <= time.monotonic() - start < 20
    with storescp("--refuse") as (port, _):  # final
        start = time.monotonic()
        korvane("send", HERE, port, source, "--retry", 9, status=1)
        assert time.monotonic() - start < 20


def goes_on():
    """Killed at many moments, each run goes on where the one before was: all is stored, and what came twice was told."""
    source, queue = phantom("many", "--slices", 60, "--size", 64), WORK / "queue"
    said, again, killed = [], [], 0
    with receiver(WORK / "here", "--no-sync", status=None) as (port, said, process):
        command = ["send", HERE, port, source, "--queue", queue, "--jobs", 3, "--json"]
        for attempt in range(0 if host_test.WINDOWS else 12):  # there, what is killed is the emulator's command
            with subprocess.Popen([*KORVANE, *map(str, command)], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as run:
                while run.poll() is None and not (queue.exists() and queue.read_text().count("stored") > 5 * attempt):
                    time.sleep(0.001)
                killed += run.poll() is None
                run.kill()
        if host_test.WINDOWS:
            korvane("send", HERE, port, *sorted(source.iterdir())[:9], "--queue", queue)
        before = queue.read_text().count('"stored"')
        with open(queue, "a", encoding="utf-8") as cut:
            cut.write('{"stored":')  # as the system leaves it that loses power
        report = json.loads(korvane(*command)[0])
        assert report["stored"] + report["earlier"] == 60 and report["earlier"] >= before - 1, (report, before)
        again = [entry["path"] for entry in report["again"]]
        assert json.loads(korvane(*command)[0])["earlier"] == 60  # and once more: nothing
        assert json.loads(korvane("send", HERE, port, "--queue", queue, "--json")[0])["stored"] == 0
        assert "another peer" in korvane("send", HERE, port, source, "--queue", queue, "--aec", "X", status=2)[1]
        (WORK / "text").write_text("mine")
        assert "not a queue" in korvane("send", HERE, port, source, "--queue", WORK / "text", status=2)[1]
        assert (WORK / "text").read_text() == "mine"
        process.send_signal(signal.SIGINT)
    came = collections.Counter(line["sopInstance"] for line in said[:-1] if line["event"] == "file" and line["status"] == 0)
    print(f"killed {killed} times; came twice: {[n for n in came.values() if n > 1]}, told at the end: {len(again)}")
    assert (killed > 3 or host_test.WINDOWS) and len(came) == 60 and max(came.values()) <= 1 + killed
    recorded = queue.read_text()
    repeats = sum(came.values()) - 60
    stored = recorded.count('"stored"') - 1  # but for the line that was cut off
    assert repeats <= recorded.count('"begun"') - stored, (repeats, recorded)


if not PEERS:
    print("skipped: dcmtk is not installed")
    raise SystemExit(host_test.SKIPPED)
host_test.run(decoded_where_refused, tried_again, goes_on)
