#!/usr/bin/env python3
"""The receiver is killed at random moments while eight senders work: nothing that was acknowledged is lost, and no file has
its name before it is whole. KORVANE_CHAOS_SECONDS says for how long (5)."""

import json
import os
import random
import signal
import subprocess
import threading
import time

import host_test
import pydicom
from host_test import KORVANE, WINDOWS, WORK, phantom
from network_peers import HERE, free_port

SECONDS = float(os.environ.get("KORVANE_CHAOS_SECONDS", "5"))
SENDERS, FILES = 8, 25
MARK = b"1.2.910000000000"


def template():
    """A file whose instance is MARK, and where its data set begins."""
    ds = pydicom.dcmread(next(phantom("ct", "--slices", 1, "--size", 16).iterdir()))
    ds.SOPInstanceUID = ds.file_meta.MediaStorageSOPInstanceUID = MARK.decode()
    ds.PixelData = b""
    del ds[0x7FE00010]
    ds.save_as(WORK / "template")
    with open(WORK / "template", "rb") as file:
        pydicom.filereader.read_partial(file, lambda tag, *_: tag.group > 2)
        begin = file.tell()
    return (WORK / "template").read_bytes(), begin


class Receiver:
    """A receiver that is started again whenever it was killed."""

    def __init__(self):
        self.port, self.kills, self.ended = free_port(), 0, False
        self.life = 1.0  # seconds at most
        self.thread = threading.Thread(target=self.run)
        self.thread.start()

    def run(self):
        while not self.ended:
            with subprocess.Popen([*KORVANE, "receive", str(self.port), WORK / "in", "--local", "-q"], stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL) as process:
                end = time.monotonic() + random.uniform(0.02, self.life)
                while time.monotonic() < end and not self.ended:
                    time.sleep(0.005)
                self.kills += process.poll() is None
                process.send_signal(signal.SIGKILL)

    def end(self):
        self.ended = True
        self.thread.join()


def made(whole, begin, number):
    """A file with an instance and values of its own, and its data set."""
    body = whole.replace(MARK, b"1.2.91%010d" % number)
    value = random.Random(number).randbytes(random.Random(number).choice((100, 5000, 300_000, 2_000_000)))
    body += b"\xe0\x7f\x10\0OW\0\0" + len(value).to_bytes(4, "little") + value
    return body, body[begin:]


def acknowledged(process, files):
    """The files that a sender reports as stored."""
    out = process.communicate(timeout=120)[0]
    report = json.loads(out) if out.startswith("{") else {"failed": [{"path": str(path)} for path in files]}
    failed = {line["path"] for line in report["failed"]}
    return [path for path in files if str(path) not in failed]


def killed():
    if WINDOWS:  # where killing the emulator is another thing
        return
    whole, begin = template()
    stored = number = unheard = 0
    receiver = Receiver()
    end = time.monotonic() + SECONDS
    try:
        while time.monotonic() < end or (not stored and time.monotonic() < end + 60):
            (WORK / "out").mkdir()
            sent = {}
            senders = []
            for _ in range(SENDERS):
                files = []
                for _ in range(FILES):
                    number += 1
                    files.append(WORK / "out" / str(number))
                    body, sent[f"1.2.91{number:010}.dcm"] = made(whole, begin, number)
                    files[-1].write_bytes(body)
                options = ["--retry", "5", "--retry-wait", "0"] if random.random() < 0.7 else []
                senders.append((files, [*KORVANE, "send", HERE, str(receiver.port), *map(str, files), "--json", *options]))
            running = [(files, subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True))
                       for files, command in senders]
            names = {f"1.2.91{int(path.name):010}.dcm" for files, process in running for path in acknowledged(process, files)}
            there = {path.name for path in (WORK / "in").iterdir() if not path.name.startswith(".")}
            assert names <= there, f"acknowledged, and lost: {sorted(names - there)[:5]}"
            for name in there:
                data = (WORK / "in" / name).read_bytes()
                assert name in sent and data.endswith(sent[name]) and data[128:132] == b"DICM", f"{name} is not what was sent"
                (WORK / "in" / name).unlink()
            stored += len(names)
            unheard += len(there - names)
            # On a slow machine a receiver hardly begins to listen in its life.
            receiver.life = 1.0 if names else receiver.life * 2
            for path in (WORK / "out").iterdir():
                path.unlink()
            (WORK / "out").rmdir()
    finally:
        receiver.end()
    print(f"{receiver.kills} kills in {SECONDS:.0f} s: {stored} acknowledged and there, {unheard} there unheard, none lost")
    assert stored > 0 and receiver.kills > 0


host_test.run(killed)
