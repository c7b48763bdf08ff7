#!/usr/bin/env python3
"""How much memory jobs take at their peak: what they hold of a series or a file does not grow with it."""

import base64
import json
import pathlib
import subprocess
import sys

import host_test
import numpy
import pydicom
from host_test import KORVANE, SKIPPED, WINDOWS, WORK
from pydicom.uid import ExplicitVRLittleEndian, generate_uid

# The peak of a child counts what its parent had when it was made, so a small process stands in between.
LAUNCHER = """
import os, sys
child = os.posix_spawn(sys.argv[1], sys.argv[1:], os.environ, file_actions=[
    (os.POSIX_SPAWN_OPEN, 1, "out", os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600)])
_, status, usage = os.wait4(child, 0)
print(usage.ru_maxrss)
sys.exit(os.waitstatus_to_exitcode(status) != 0)
"""
MEGABYTE = 1 << 20


def peak(*arguments):
    """Bytes that a run took at its peak; its standard output is in the file "out"."""
    done = subprocess.run([sys.executable, "-IS", "-c", LAUNCHER, KORVANE[-1], *map(str, arguments)], cwd=WORK,
                          capture_output=True, encoding="utf-8", timeout=120, check=False)
    assert done.returncode == 0, f"{arguments}\n{done.stderr}"
    return int(done.stdout) * 1024


def own(*arguments):
    """The same without what the program takes for doing nothing."""
    return peak(*arguments) - own.idle


def data_set():
    ds = pydicom.Dataset()
    ds.file_meta = pydicom.dataset.FileMetaDataset()
    ds.file_meta.TransferSyntaxUID = ExplicitVRLittleEndian
    ds.SOPClassUID = ds.file_meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.66"
    ds.SOPInstanceUID = ds.file_meta.MediaStorageSOPInstanceUID = generate_uid()
    ds.is_little_endian, ds.is_implicit_VR = True, False
    return ds


def dumps():
    """JSON is written while it is made: neither a large value is in memory, nor the text of many elements."""
    bytes_of = numpy.random.default_rng(1).integers(0, 256, 48 * MEGABYTE + 2, "u1").tobytes()
    ds = data_set()
    ds.add_new(0x7FE00010, "OW", bytes_of)
    ds.save_as(WORK / "large.dcm", write_like_original=False)
    for form, key in (("--json", b'"InlineBinary": "'), ("--xml", b"<InlineBinary>")):
        assert (took := own("dump", form, WORK / "large.dcm")) < 8 * MEGABYTE, (form, took)
        text = (WORK / "out").read_bytes().split(key)[1][: (len(bytes_of) + 2) // 3 * 4]
        assert base64.b64decode(text) == bytes_of, form
    ds = data_set()
    for number in range(0x1000, 0x1000 + 40000):
        ds.add_new(0x00090000 + number, "US", number)
        ds.add_new(0x000B0000 + number, "US", [7, number])
    ds.add_new(0x00090010, "LO", "MADE")
    ds.save_as(WORK / "many.dcm", write_like_original=False)
    lines = own("dump", WORK / "many.dcm")
    assert (took := own("dump", "--json", WORK / "many.dcm")) < lines + 2 * MEGABYTE, (took, lines)
    read = json.loads((WORK / "out").read_bytes())
    assert len(read) == 80003 and read["000B1001"] == {"vr": "US", "Value": [7, 0x1001]}, len(read)


program = pathlib.Path(KORVANE[-1]).read_bytes()
if WINDOWS or not sys.platform.startswith("linux") or b"__asan_init" in program or b"__tsan_init" in program:
    print("skipped: memory is measured where the system tells it, of programs without a sanitizer's")
    sys.exit(SKIPPED)
own.idle = peak("--version")
host_test.run(dumps)
