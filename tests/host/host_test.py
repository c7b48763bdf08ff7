"""What the tests of the korvane program share: running it, making series, independent readings of both ends.

Each test is called with the program's path, behind the words of an emulator's command where it is a Windows program. It
exits with 77 (skipped) where pydicom is missing.
"""

import json
import os
import pathlib
import pty
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import time
import traceback

SKIPPED = 77

try:
    import numpy
    import pydicom
except ImportError:  # Debian's packages belong to Debian's interpreter, which may not be the first one found
    if os.path.realpath(sys.executable) != os.path.realpath("/usr/bin/python3") and os.path.exists("/usr/bin/python3"):
        os.execv("/usr/bin/python3", ["/usr/bin/python3", *sys.argv])
    print("skipped: python3-pydicom and python3-numpy are not installed")
    sys.exit(SKIPPED)

KORVANE = [*sys.argv[1:-1], os.path.abspath(sys.argv[-1])]
WINDOWS = KORVANE[-1].endswith(".exe")
SOON = 4  # seconds, under a sanitizer on a machine that is busy: whoever waits for a peer waits for longer
STOPPED = 1 if WINDOWS else -signal.SIGINT  # exit status after Ctrl-C
SAMPLES = pathlib.Path(__file__).resolve().parents[3] / "shared" / "samples"
WORK = pathlib.Path(tempfile.mkdtemp(prefix="korvane-host-test-"))


def korvane(*arguments, status=0, **options):
    """Runs the program; returns (standard output, standard error). Fails when it exits with another status; None is any."""
    command = [*KORVANE, *map(str, arguments)]
    done = subprocess.run(command, capture_output=True, encoding="utf-8", errors="replace", timeout=120, check=False,
                          **options)
    assert status in (None, done.returncode), f"{command}: exit status {done.returncode}\n{done.stdout}\n{done.stderr}"
    return done.stdout, done.stderr


def info(*paths):
    """The series that `korvane info --json` finds."""
    return json.loads(korvane("info", "--json", *paths)[0])["series"]


def phantom(name, *options):
    """A made series: its folder."""
    korvane("phantom", WORK / name, *options)
    return WORK / name


def edited(source, name, change):
    """A copy of a series with `change(data_set, number)` made to each file, in the order of instance numbers."""
    folder = WORK / name
    folder.mkdir()
    sets = sorted((pydicom.dcmread(path) for path in source.iterdir()), key=lambda ds: int(ds.InstanceNumber))
    for number, ds in enumerate(sets):
        change(ds, number)
        ds.save_as(folder / f"{number:04}.dcm")
    return folder


def stored_values(ds):
    """The stored values of every frame: frames x rows x columns (x samples), computed from the bytes alone."""
    big = ds.file_meta.TransferSyntaxUID == pydicom.uid.ExplicitVRBigEndian
    size = ds.BitsAllocated // 8
    word = numpy.dtype(f"{'>' if big and size > 1 else '<'}u{size}")
    data = ds.PixelData
    if big and size == 1 and ds["PixelData"].VR == "OW":
        data = numpy.frombuffer(data, ">u2").astype("<u2").tobytes()
    count = int(ds.get("NumberOfFrames", 1) or 1)
    samples = ds.get("SamplesPerPixel", 1)
    words = numpy.frombuffer(data, word)[: count * ds.Rows * ds.Columns * samples].astype(numpy.int64)
    values = (words >> (ds.HighBit - ds.BitsStored + 1)) & ((1 << ds.BitsStored) - 1)
    if ds.PixelRepresentation:
        values = numpy.where(values >= 1 << (ds.BitsStored - 1), values - (1 << ds.BitsStored), values)
    if ds.get("PlanarConfiguration"):
        return numpy.moveaxis(values.reshape(count, samples, ds.Rows, ds.Columns), 1, 3)
    return values.reshape(count, ds.Rows, ds.Columns, *([samples] if samples > 1 else []))


def height(ds):
    """Where a slice lies along the normal of its series."""
    cosines = numpy.array(ds.ImageOrientationPatient, float)
    return float(numpy.dot(numpy.cross(cosines[:3], cosines[3:]), numpy.array(ds.ImagePositionPatient, float)))


def read_volume(folder, volume=1):
    """The stored values of a series, ascending along the normal; of a time series those of one volume."""
    positions = {}
    for path in sorted(pathlib.Path(folder).iterdir()):
        try:
            ds = pydicom.dcmread(path)
        except pydicom.errors.InvalidDicomError:
            continue
        positions.setdefault(round(height(ds), 3), []).append(ds)
    stacks = [sorted(positions[key], key=lambda ds: int(ds.InstanceNumber)) for key in sorted(positions)]
    chosen = [stack[volume - 1] for stack in stacks]
    return numpy.concatenate([stored_values(ds) for ds in chosen]), chosen


class Analyze:
    """An Analyze pair, read without any library."""

    def __init__(self, base):
        header = pathlib.Path(f"{base}.hdr").read_bytes()
        assert len(header) == 348 and header[:4] == b"\0\0\1\x5c", "not a big-endian Analyze header"
        dim = struct.unpack(">8h", header[40:56])
        self.datatype, self.bitpix = struct.unpack(">2h", header[70:74])
        self.spacing = struct.unpack(">3f", header[80:92])
        self.maximum = struct.unpack(">i", header[140:144])[0]
        data = pathlib.Path(f"{base}.img").read_bytes()
        self.voxels = numpy.frombuffer(data, {2: "u1", 4: ">i2"}[self.datatype]).reshape(dim[3], dim[2], dim[1])


def export(source, *options, status=0, name="volume"):
    """Exports to an Analyze pair; (its reading or None, standard output, standard error)."""
    base = WORK / name
    out, err = korvane("export", source, "--format", "analyze", "--to", f"file:{base}", *options, status=status)
    return (Analyze(base) if status == 0 else None), out, err


def leftovers():
    """Names of files that exports left in the working folder."""
    return sorted(path.name for path in WORK.iterdir() if path.is_file())


def interrupted(arguments, ready):
    """Starts the program, waits for `ready`, sends Ctrl-C: it must say so, nothing else, and end by the signal."""
    with subprocess.Popen([*KORVANE, *map(str, arguments)], stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
        ready()
        process.send_signal(signal.SIGINT)
        out, err = process.communicate(timeout=30)
    assert process.returncode == STOPPED and not out, (process.returncode, out, err)
    assert err == b"korvane: stopped\n", err


def wait_for(condition):
    for _ in range(3000):
        if condition():
            return
        time.sleep(0.01)
    raise AssertionError("waited for nothing")


def on_terminal(arguments, ready=None, key=b""):
    """Runs the program on a terminal, where `key` is pressed once `ready` has been shown: exit status, standard output,
    what was shown. Nothing where there are no terminals."""
    try:
        master, slave = pty.openpty()
    except OSError as error:  # a bare change root
        print(f"no terminal to be had here: {error}")
        return None
    shown = b""
    with subprocess.Popen([*KORVANE, *map(str, arguments)], stdin=slave, stdout=subprocess.PIPE, stderr=slave,
                          start_new_session=True) as process:
        os.close(slave)
        while part := read_or_end(master):
            shown += part
            if ready is not None and ready in shown:
                os.write(master, key)
                ready = None
        out = process.communicate(timeout=30)[0]
    os.close(master)
    return process.returncode, out, shown


def read_or_end(master):
    try:
        return os.read(master, 4096)
    except OSError:  # what a terminal says when its other end has gone
        return b""


def run(*tests):
    """Runs the tests; exit status 0, or 1 with each failure told."""
    failed = 0
    for test in tests:
        for path in WORK.iterdir():
            shutil.rmtree(path) if path.is_dir() and not path.is_symlink() else path.unlink()
        try:
            test()
        except Exception as error:  # pylint: disable=broad-except
            failed += 1
            line = traceback.extract_tb(error.__traceback__)[1].lineno
            print(f"FAILED {test.__name__}, line {line}: {type(error).__name__} {str(error)[:2000]}")
        else:
            print(f"passed {test.__name__}")
    shutil.rmtree(WORK, ignore_errors=True)
    sys.exit(1 if failed else 0)
