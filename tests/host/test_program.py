#!/usr/bin/env python3
"""The korvane program as its users meet it: usage, warnings, refusals, and how it stops."""

import os
import re
import resource
import shutil
import signal
import subprocess
import time

import host_test
import numpy
import pydicom
from host_test import (KORVANE, WINDOWS, WORK, edited, export, info, interrupted, korvane, leftovers, on_terminal,
                       phantom, wait_for)

SMALL = ("--size", 16, "--slices", 6)


def files_of(folder):
    """Paths of a series in the order of its instance numbers."""
    return sorted(folder.iterdir(), key=lambda path: int(pydicom.dcmread(path, stop_before_pixels=True).InstanceNumber))


def warnings(folder):
    (series,) = info(folder)
    return series["warnings"]


def usage():
    for arguments in ((), ("nonsense",), ("export",), ("slice",), ("info",), ("phantom", "x", "--slices", "0"), ("dump", "a", "--nonsense")):
        out, err = korvane(*arguments, status=2)
        assert not out and err.startswith("korvane: "), (arguments, out, err)
    for arguments in ((), ("phantom",), ("info",), ("dump",), ("export",), ("slice",)):
        assert korvane(*arguments, "--version")[0].startswith("korvane 0.")
        assert "Usage" in korvane(*arguments, "--help")[0]
    series = phantom("one", *SMALL)
    for url in ("file:", "file:a/", "ftp:user@host/x", "ftp:u%p@host", "ftp:u%secret/x", "http:x"):
        err = korvane("export", series, "--format", "analyze", "--to", url, status=2)[1]
        assert "file:path/name" in err and "secret" not in err, err
    korvane("export", series, "--format", "nothing", "--to", "file:x", status=2)
    for wrong, near in (("exprot", "export"), ("info --jsn", "--json")):
        err = korvane(*wrong.split(), series, status=2)[1]
        assert f"did you mean {near}?" in err and "--help" in err, err
    err = korvane("dump", series, "--only", "PatientNme", status=2)[1]
    assert "did you mean PatientName?" in err, err
    assert "did you mean" not in korvane("dump", series, "--only", "NothingLikeIt", status=2)[1]


def libraries_when_needed():
    """Libraries that few runs need are not there at the start; one that cannot be opened is told by name."""
    if WINDOWS:
        return
    series = phantom("plain", *SMALL)
    err = korvane("info", series, env={**os.environ, "LD_DEBUG": "libs"})[1]
    opened = re.findall(r"calling init: (\S+)", err)
    assert 5 < len(opened) < 20, opened  # a sanitizer's own among them
    assert not re.search("lib(curl|ssl|crypto|archive|tiff|gnutls|icudata)", err), opened
    broken = WORK / "broken-libraries"
    broken.mkdir()
    for name in ("libcurl.so.4", "libssl.so.3", "libarchive.so.13", "libtiff.so.5", "libtiff.so.6"):
        (broken / name).write_text("no library")
    packed = shutil.make_archive(str(WORK / "packed"), "zip", series)
    for arguments, library in ((("info", packed), "libarchive"),
                               (("slice", series, "--values", "-o", WORK / "x.tif"), "libtiff"),
                               (("echo", "127.0.0.1", "1", "--tls"), "libssl"),
                               (("find", "http://127.0.0.1:1/", "PatientID=x"), "libcurl")):
        err = korvane(*arguments, status=1, env={**os.environ, "LD_LIBRARY_PATH": str(broken)})[1]
        assert re.fullmatch(rf"korvane: .*the library {library}\.so\.\d+ cannot be opened: is it installed\?\n", err), err


def several_series():
    folder = phantom("both", *SMALL)
    korvane("phantom", folder, *SMALL, "--seed", 2, "--signed")
    _, out, err = export(folder, status=2)
    assert not out and "2 series found" in err and err.count("UID 2.25.") == 2, err
    listed = info(folder)
    volumes = [export(folder, "--series", choice)[0].voxels for choice in ("#1", "#2", listed[0]["uid"])]
    assert (volumes[0] == volumes[2]).all() and (volumes[0] != volumes[1]).any()
    # Both have the number 1 that the scanner gave: "1" is no series, and "2" can only be the row.
    assert "--series-number" in export(folder, "--series", "1", status=2)[2]
    assert "2 series have this number" in export(folder, "--series-number", 1, status=2)[2]
    assert (export(folder, "--series", "2")[0].voxels == volumes[1]).all()
    assert "no series 3" in export(folder, "--series", "3", status=2)[2]
    # Under several paths, and copies: each image counts once.
    edited(folder, "copy", lambda ds, n: None)
    assert [series["slices"] for series in info(folder, WORK / "copy", folder)] == [6, 6]


def where_a_volume_may_be_wrong():
    source = phantom("source", *SMALL)
    assert warnings(source) == []
    paths = files_of(source)
    paths[3].unlink()
    (gap,) = warnings(source)
    assert "10 mm between" in gap and "(1 slice missing?)" in gap and paths[2].name in gap and paths[4].name in gap, gap

    def lean(ds, n):
        ds.ImagePositionPatient[1] += 1.0 * n

    tilt = warnings(edited(source, "lean", lean))[-1]  # 4 slices further on, 25 mm higher and 4 mm to the back
    assert tilt.startswith("tilt: the positions run 9.09"), tilt
    (turned,) = {line for series in info(edited(source, "turned", lambda ds, n: setattr(
        ds, "ImageOrientationPatient", [1, 0, 0, 0, 1, 0] if n % 2 else [0, 1, 0, 0, 0, -1])))
        for line in series["warnings"] if line.startswith("mixed")}
    assert "2 orientations" in turned

    def crop(ds, n):
        if n == 2:
            ds.Rows, ds.PixelData = 8, ds.PixelData[:256]

    assert sorted(series["rows"] for series in info(edited(source, "crop", crop))) == [8, 16]
    (rescale,) = warnings(edited(phantom("pet", *SMALL), "pet2", lambda ds, n: setattr(ds, "RescaleSlope", str(n + 1))))
    assert "rescale slope" in rescale
    times = phantom("times", *SMALL, "--volumes", 4)
    assert "makes 4 volumes" in warnings(times)[0]
    files_of(times)[-1].unlink()
    assert "fewer at" in warnings(times)[0]
    assert export(times, "--volume", 4)[0].voxels.shape[0] == 5
    assert "makes 4" in export(times, "--volume", 5, status=2)[2]


def refusals():
    source = phantom("source", *SMALL)

    def refused(change, *words, only=None):
        def one(ds, n):
            if only is None or n == only:
                change(ds)

        folder = edited(source, f"case{len(list(WORK.iterdir()))}", one)
        _, out, err = export(folder, status=1)
        lines = [line for line in err.splitlines() if "warning" not in line]
        assert not out and len(lines) == 1, (out, err)
        assert all(word in lines[0] for word in words), lines
        if only is not None:
            assert f"{only:04}.dcm" in lines[0], lines
        assert leftovers() == []

    def delete(*words):
        return lambda ds: [delattr(ds, word) for word in words]

    refused(delete("ImagePositionPatient"), "Image Position", only=3)
    refused(delete("ImagePositionPatient"), "Image Position", only=0)
    refused(lambda ds: setattr(ds, "PixelData", ds.PixelData[:-20]), "ends early", "492 of 512", only=4)
    refused(delete("PixelData"), "no pixel data")
    refused(lambda ds: setattr(ds, "PhotometricInterpretation", "RGB"), "RGB")
    refused(lambda ds: setattr(ds, "HighBit", 3), "high bit 3")
    refused(lambda ds: (setattr(ds, "BitsAllocated", 32), setattr(ds, "PixelData", 2 * ds.PixelData)), "32-bit")
    refused(lambda ds: (setattr(ds, "BitsAllocated", 8), setattr(ds, "BitsStored", 8), setattr(ds, "HighBit", 7),
                        setattr(ds, "PixelRepresentation", 1)), "signed 8-bit")
    one = phantom("one", "--size", 16, "--slices", 1)
    frames = edited(one, "frames", lambda ds, n: setattr(ds, "NumberOfFrames", "2147483647"))
    assert "ends early: 512 of" in export(frames, status=1)[2]

    def floats(ds):
        del ds.PixelData
        ds.add_new(0x7FE00008, "OF", b"\0" * 1024)

    refused(floats, "floating-point")

    def full_range(ds, n):
        ds.BitsStored, ds.HighBit = 16, 15
        ds.PixelData = b"\xff\xff" + ds.PixelData[2:]

    volume, out, _ = export(edited(source, "wide", full_range))
    assert "65535 wraps" in out and volume.voxels[0, 0, 0] == -32768


def not_dicom():
    folder = WORK / "texts"
    folder.mkdir()
    assert "no DICOM files" in korvane("info", folder, status=1)[1]
    odd, shown = ("a b.txt", "a b.txt") if WINDOWS else ("a\nb.txt", "a\\nb.txt")  # no line ends in names there
    (folder / odd).write_text("DICM is mentioned here, but not at byte 128")
    (folder / "empty").touch()
    out, err = korvane("info", folder, status=1)
    assert "2 files are not DICOM" in out and "no DICOM files" in err
    assert f"{shown}: not a DICOM file" in korvane("dump", folder / odd, status=1)[1]
    for verb in ("info", "dump"):
        assert "missing" in korvane(verb, folder / "missing", status=1)[1]
    whole = phantom("one", "--size", 8, "--slices", 1)
    (path,) = whole.iterdir()
    data = path.read_bytes()
    for length in range(0, len(data), 35 if WINDOWS else 7):  # cut anywhere: a result, never a crash
        path.write_bytes(data[:length])
        for arguments in (("info", whole), ("dump", path)):
            done = subprocess.run([*KORVANE, *map(str, arguments)], capture_output=True, timeout=20, check=False)
            assert done.returncode in (0, 1), (length, arguments, done)


def nested():
    """Sequences as deep as they may be do not exhaust the stack (1 MB on Windows); deeper ones are damage."""
    (path,) = phantom("one", "--size", 8, "--slices", 1).iterdir()
    data = path.read_bytes()
    begin, end = b"\x08\x00\x40\x11SQ\0\0\xff\xff\xff\xff\xfe\xff\x00\xe0\xff\xff\xff\xff", bytes.fromhex(
        "fe ff 0d e0 00000000 fe ff dd e0 00000000")
    at = data.index(b"\x20\x00\x0d\x00UI")  # behind group 0008
    for levels in (256, 257, 100000):
        path.write_bytes(data[:at] + begin * levels + end * levels + data[at:])
        status = 0 if levels == 256 else 1
        for option in ((), ("--json",), ("--whole",)):
            out, err = korvane("dump", path, *option, status=status)
            assert ("damaged" in err) == (status == 1), err
            assert out.count("00081140" if option == ("--json",) else "(0008,1140)") == 256 or status, out[:1000]
        assert info(path)[0]["slices"] == 1 or status
        if status == 0:
            export(path)


def overwritten():
    """An export replaces files of its name, and leaves them as they are when it fails."""
    first, second = phantom("first", *SMALL), phantom("second", *SMALL, "--signed")
    export(first, name="kept")
    before = export(second, name="kept")[0].voxels
    assert leftovers() == ["kept.hdr", "kept.img"] and (before == export(second)[0].voxels).all()
    for name in ("volume.hdr", "volume.img"):
        (WORK / name).unlink()
    (WORK / "kept.img.part").write_text("somebody's own")
    export(second, name="kept")
    assert (WORK / "kept.img.part").read_text() == "somebody's own"
    (WORK / "kept.img.part").unlink()
    assert leftovers() == ["kept.hdr", "kept.img"] and (host_test.Analyze(WORK / "kept").voxels == before).all()


def names_beyond_ascii():
    """Texts are UTF-8 on every system, whatever its code page can say."""
    name = "größe-Ω-日本-\U0001f9e0"
    folder = phantom(name, *SMALL)
    assert "6 slices" in korvane("info", folder)[0]
    (series,) = info(WORK)
    assert sorted(series["files"]) == sorted(f"{folder}/{path.name}" for path in folder.iterdir())
    _, out, _ = export(folder, name=f"{name}/vol-{name}")
    assert f"wrote {folder}/vol-{name}.hdr and" in out, out
    (folder / f"{name}.dcm").write_bytes(next(folder.glob("CT*.dcm")).read_bytes())
    assert korvane("dump", folder / f"{name}.dcm")[0].startswith("(0002,0000)")
    for verb in ("info", "dump"):
        assert f"{folder}/missing" in korvane(verb, folder / "missing", status=1)[1]
    for long in ("x" * 300, "/".join(["y" * 90] * 50)):
        err = korvane("phantom", WORK / long, *SMALL, status=1)[1]
        assert "name too long" in err, err


def where_files_cannot_be_written():
    source = phantom("source", *SMALL)
    export(source, name="kept")
    for url, word in (("file:/proc/vol", "/proc/vol.hdr"), (f"file:{WORK}/kept.hdr/vol", "kept.hdr")):
        err = korvane("export", source, "--format", "analyze", "--to", url, status=1)[1]
        assert "cannot create" in err and word in err, err
    assert "kept.hdr" in korvane("phantom", WORK / "kept.hdr", status=1)[1]
    with open("/dev/full", "w", encoding="ascii") as full:
        done = subprocess.run([*KORVANE, "info", source], stdout=full, stderr=subprocess.PIPE, check=False)
    assert done.returncode == 1 and b"standard output" in done.stderr
    if WINDOWS:
        print("left out: full disks, which are made of a device and a limit of POSIX")
        return

    def small_disk():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (40000, 40000))

    err = korvane("phantom", WORK / "full", "--size", 256, "--slices", 3, status=1, preexec_fn=small_disk,
                  restore_signals=False)[1]
    assert "cannot write" in err and list((WORK / "full").iterdir()) == []


def stopped():
    if WINDOWS:
        stopped_on_a_console()
        return
    interrupted(("phantom", WORK / "long", "--slices", 5000), lambda: wait_for(lambda: any((WORK / "long").glob("*"))))
    assert list((WORK / "long").iterdir()) == []

    os.mkfifo(WORK / "pipe")
    interrupted(("info", WORK / "pipe"), lambda: time.sleep(0.5))


def stopped_on_a_console():
    """The emulator makes a console of a terminal, and Ctrl-C of the key."""
    source = phantom("source", "--size", 64, "--slices", 1500)
    before = export(phantom("small", *SMALL), name="kept")[0].voxels
    arguments = ("export", source, "--format", "analyze", "--to", f"file:{WORK}/kept")
    for ready in (b"reading headers", b"reading ["):
        status, out, shown = on_terminal(arguments, ready, b"\x03")
        assert status == 1 and not out and b"stopped" in shown, (ready, status, out, shown[-200:])
        assert leftovers() == ["kept.hdr", "kept.img"] and (host_test.Analyze(WORK / "kept").voxels == before).all()
    status, _, shown = on_terminal(("phantom", WORK / "long", "--slices", 5000), b" 1 %", b"\x03")
    assert status == 1 and b"stopped" in shown and list((WORK / "long").iterdir()) == []


def progress_on_terminals_only():
    source = phantom("source", *SMALL)
    _, _, err = export(source)
    assert err == "", err
    seen = on_terminal(("export", source, "--format", "analyze", "--to", f"file:{WORK}/x"))
    if seen is None:
        return
    status, out, shown = seen
    assert status == 0 and b"100 %" in shown and b" MB/s " in shown and b" 0:00 left" in shown and b"\r" not in out
    assert WINDOWS or re.search(rb"\r +\r$", shown), shown[-100:]  # the emulator's console draws blanks its own way


def balls_in_patient_space():
    """The phantom's three balls lie where its description says, whichever way the planes run."""
    for options in ((), ("--oblique",), ("--uneven", "--oblique"), ("--signed", "--descending")):
        folder = WORK / f"balls{len(list(WORK.iterdir()))}"
        korvane("phantom", folder, "--size", 120, "--rows", 100, "--slices", 80, *options)
        values, sets = host_test.read_volume(folder)
        row, column = (numpy.array(sets[0].ImageOrientationPatient[i:i + 3], float) for i in (0, 3))
        normal = numpy.cross(row, column)
        spacing = float(sets[0].PixelSpacing[0])
        for centre, hounsfield in (((58, 0, 10), 300), ((0, -64, 30), 600), ((6, 10, 66), 900)):
            heights = [abs(host_test.height(ds) - numpy.dot(normal, centre)) for ds in sets]
            nearest = int(numpy.argmin(heights))
            offset = numpy.array(centre) - numpy.array(sets[nearest].ImagePositionPatient, float)
            x, y = (int(round(numpy.dot(offset, axis) / spacing)) for axis in (row, column))
            value = values[nearest, y, x] + float(sets[nearest].RescaleIntercept)
            assert abs(value - hounsfield) <= 8, (options, centre, value)


host_test.run(usage, libraries_when_needed, several_series, where_a_volume_may_be_wrong, refusals, not_dicom, nested, overwritten,
              names_beyond_ascii, where_files_cannot_be_written, stopped,
              progress_on_terminals_only, balls_in_patient_space)
