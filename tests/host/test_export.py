#!/usr/bin/env python3
"""Exports in every format: voxels, irregular series, reports, full disks, servers, stops."""

import json
import os
import pathlib
import shutil
import socket
import subprocess
import sys
import threading
import time
import zlib

import host_test
import numpy
import pydicom
from host_test import (SAMPLES, WINDOWS, WORK, Analyze, edited, interrupted, korvane, leftovers, on_terminal, phantom,
                       read_volume, stored_values)

SMALL = ("--size", 16, "--slices", 6)
FILES = {"analyze": ["vol.hdr", "vol.img"], "bob": ["vol.ImageInfo", "vol.header", "vol.img"], "vox": ["vol.vox"]}


def run_export(source, form, *options, to=None, status=0, **more):
    return korvane("export", source, "--format", form, "--to", to or f"file:{WORK}/vol", *options, status=status, **more)


def report_of(source, form, *options, **more):
    path = WORK / "report.json"
    path.unlink(missing_ok=True)
    out, err = run_export(source, form, *options, "--report", path, **more)
    return json.loads(path.read_text("utf-8")), out, err


def byte_pixels(ds, _):
    values = (numpy.frombuffer(ds.PixelData, "<u2") >> 4).astype("u1")
    ds.BitsAllocated, ds.BitsStored, ds.HighBit, ds.PixelData = 8, 8, 7, values.tobytes()
    ds["PixelData"].VR = "OB"


def read_by_others(base, is_bytes, shape):
    """A pair as programs read it that know nothing of ours: voxels by the program's name."""
    read = {}
    try:
        import nibabel
        read["nibabel"] = numpy.asarray(nibabel.AnalyzeImage.load(f"{base}.hdr").dataobj).reshape(shape[::-1]).transpose()
    except ImportError:
        print("without nibabel, which is not installed")
    if shutil.which("medcon"):
        subprocess.run(["medcon", "-f", f"{base}.hdr", "-n", "-c", "bin", "-o", "out", "-w"], cwd=WORK, timeout=20,
                       capture_output=True, check=True)
        read["xmedcon"] = numpy.fromfile(WORK / "out.bin", "u1" if is_bytes else "<i2").reshape(shape)
    return read


def formats():
    """Voxels as everybody reads them, and what report, dry run and summary say of every format's files."""
    unsigned = phantom("unsigned", *SMALL)
    for source in (unsigned, phantom("signed", *SMALL, "--signed", "--oblique"), edited(unsigned, "bytes", byte_pixels)):
        values, sets = read_volume(source)
        values = values[::-1]  # these two begin with the slice whose z is lowest, which is the one furthest along
        is_bytes = sets[0].BitsAllocated == 8
        for form, names in FILES.items():
            report, out, _ = report_of(source, form)
            (volume,) = report["volumes"]
            assert sorted(output["file"] for output in volume["outputs"]) == [f"{WORK}/{name}" for name in names]
            for output in volume["outputs"]:
                data = open(output["file"], "rb").read()
                assert (len(data), f"{zlib.crc32(data):08x}") == (output["size"], output["crc32"]), output
                assert output["file"] in out
            positions = [[float(x) for x in ds.ImagePositionPatient] for ds in (sets if form == "analyze" else sets[::-1])]
            assert numpy.allclose(volume["slicePositions"], positions, atol=1e-3), (form, volume["slicePositions"])
            assert report["status"] == "done" and len(volume["inputs"]) == 6 and report["leftOut"] == []
            if form == "bob":
                rescaled = values if is_bytes else numpy.clip(values + int(sets[0].RescaleIntercept) + 1024, 0, 32767)
                assert (numpy.fromfile(WORK / "vol.img", ">i2").reshape(values.shape) == rescaled).all()
            elif form == "vox":
                header, data = (WORK / "vol.vox").read_bytes().split(b")\n##\f\n")
                assert f"VolumeSize 16 16 6\nVoxelSize {8 if is_bytes else 16}\n".encode() in header
                expected = values if is_bytes else values - values.min()
                assert (numpy.frombuffer(data, "u1" if is_bytes else "<u2").reshape(values.shape) == expected).all()
            else:
                shift = 0 if is_bytes or sets[0].PixelRepresentation else -32767
                read = {"by hand": Analyze(WORK / "vol").voxels, **read_by_others(WORK / "vol", is_bytes, values.shape)}
                for reader, voxels in read.items():  # last slice first
                    assert volume["values"]["shift"] == shift and (voxels == values[::-1] + shift).all(), reader
            sizes = {output["file"]: output["size"] for output in volume["outputs"]}
            for name in leftovers():
                (WORK / name).unlink()
            out = run_export(source, form, "--dry-run")[0]
            assert all(f"{file} ({size} bytes)" in out for file, size in sizes.items()) and leftovers() == [], out
    xa = edited(unsigned, "xa", lambda ds, n: setattr(ds, "Modality", "xa"))  # XA for Analyze, whatever the letters' case
    (volume,) = report_of(xa, "analyze")[0]["volumes"]
    assert (Analyze(WORK / "vol").voxels == read_volume(xa)[0] // 2).all()
    assert (volume["values"]["scale"], volume["values"]["shift"], volume["values"]["inFile"]) == (0.5, 0, "stored / 2")
    assert "half" in volume["values"]["remarks"][0], volume["values"]
    (WORK / "vol.img").unlink()
    (volume,) = report_of(xa, "bob")[0]["volumes"]  # which knows XA in capitals alone
    assert volume["values"]["scale"] == 1
    assert (numpy.fromfile(WORK / "vol.img", ">i2") == numpy.clip(read_volume(xa)[0][::-1].ravel() - 1024, 0, 32767)).all()
    own = edited(unsigned, "own", lambda ds, n: setattr(ds, "RescaleSlope", str(n + 1)))
    report, out, _ = report_of(own, "bob")  # one slope for all, and its integers as they are
    (volume,) = report["volumes"]
    slope = float(out.split("one slope for all, ")[1].split(",")[0])
    first = stored_values(pydicom.dcmread(own / "0000.dcm")).ravel() - 1024
    written = numpy.fromfile(volume["outputs"][2]["file"], ">i2")[-256:].astype(int)
    off = (written - volume["values"]["shift"]) * slope - first
    assert (abs(off)[written > 0] <= slope / 2 * 1.0001).all() and (written > 0).any(), (out, slope)


def existing_files():
    """bob takes other names; the two others replace."""
    source = phantom("source", *SMALL)
    (WORK / "vol.img").write_bytes(b"mine")
    out = run_export(source, "bob")[0]
    assert f"{WORK}/vol.header, {WORK}/vol.ImageInfo and {WORK}/vol.01.img" in out, out
    assert (WORK / "vol.img").read_bytes() == b"mine"
    run_export(source, "analyze")
    pair = (WORK / "vol.img").read_bytes()
    assert pair != b"mine"
    (WORK / "vol.hdr").unlink()
    (WORK / "vol.hdr").mkdir()
    for option in ((), ("--dry-run",)):
        assert "vol.hdr: Is a directory" in run_export(source, "analyze", *option, status=1)[1]
    assert (WORK / "vol.img").read_bytes() == pair


def refused():
    source = phantom("source", "--size", 200, "--slices", 2)

    def wide(ds, _):
        ds.Rows, ds.Columns = 1, 40000

    err = run_export(edited(source, "wide", wide), "analyze", status=1)[1]
    assert "32767 voxels" in err and "bob, vox" in err, err
    colour = edited(source, "colour", lambda ds, n: setattr(ds, "PhotometricInterpretation", "PALETTE COLOR"))
    for form in FILES:
        report, out, err = report_of(colour, form, status=1)
        assert not out and "PALETTE" in err and "in those of: nifti" in err and report["status"] == "failed", (report, err)
        err = run_export(source, form, "--dry-run", to=f"file:{next(source.iterdir())}/vol", status=1)[1]
        assert "cannot create" in err, err
        run_export(source, form, "--report", WORK / "none" / "report", status=1)
        err = run_export(source, form, "--report", f"{WORK}/source/../{FILES[form][-1]}", status=1)[1]
        assert "to be the report" in err, err
        (WORK / FILES[form][-1]).unlink()  # the report of that
        (WORK / "report.json").unlink()
        assert leftovers() == []


def irregular():
    source = phantom("source", *SMALL)

    def tell_height(ds, n):  # 0, 5, 10, 25, 30, 60
        ds.ImagePositionPatient[2] = (0, 5, 10, 25, 30, 60)[n]
        ds.PixelData = numpy.full(256, 1000 + n, "<u2").tobytes()

    uneven = edited(source, "uneven", tell_height)
    report, _, err = report_of(uneven, "analyze")
    assert "kept the planes" in err and report["irregular"]["policy"] == "keep" and len(report["irregular"]["found"]) == 2
    assert [position[2] for position in report["volumes"][0]["slicePositions"]] == [0, 5, 10, 25, 30, 60]
    err = run_export(uneven, "analyze", "--irregular", "reject", status=1)[1]
    assert "0002.dcm" in err and "0003.dcm" in err and "15 mm" in err and "30 mm" in err, err
    report, _, _ = report_of(uneven, "bob", "--irregular", "resample")
    (volume,) = report["volumes"]
    heights = [position[2] for position in volume["slicePositions"]]
    gaps = numpy.diff(heights)
    assert len(gaps) > 2 and numpy.allclose(gaps, -volume["spacing"][2]) and heights[0] == 60 and heights[-1] == 0, heights
    voxels = numpy.fromfile(WORK / "vol.01.img", ">i2").reshape(-1, 256)[:, 0]  # that of the pair above is there
    between = numpy.interp(heights, (0, 5, 10, 25, 30, 60), range(1000, 1006))
    assert (abs(voxels - between) <= 0.6).all() and list(voxels[[0, -1]]) == [1005, 1000], voxels
    assert f"SliceThickness = {-gaps[0] / 10:.6f} ;" in (WORK / "vol.ImageInfo").read_text()
    report, out, _ = report_of(uneven, "analyze", "--irregular", "split")
    assert [[file[-8:] for file in volume["inputs"]] for volume in report["volumes"]] == [
        ["0000.dcm", "0001.dcm", "0002.dcm"], ["0003.dcm", "0004.dcm"], ["0005.dcm"]], report["volumes"]
    assert [int(Analyze(WORK / f"vol-{n}").voxels[0, 0, 0]) + 32767 for n in (1, 2, 3)] == [1000, 1003, 1005]
    assert "planes 4 to 5 of 6" in out
    report, _, err = report_of(source, "vox", "--irregular", "split")
    assert report["irregular"]["found"] == [] and not err and len(report["volumes"]) == 1


def repeated():
    """Volumes keep together whatever the numbering says and whichever slice is missing."""
    source = phantom("source", *SMALL, "--volumes", 3)  # volume after volume

    def numbering(name):
        def change(ds, n):
            volume, position = n // 6, n % 6
            ds.AcquisitionNumber = 1 if name != "acquisitions" else volume + 1
            if name == "position after position":
                ds.InstanceNumber = position * 3 + volume + 1
            elif name == "echoes":
                ds.InstanceNumber, ds.EchoNumbers = n % 4, volume + 1
            elif name == "times":
                ds.InstanceNumber, ds.TemporalPositionIdentifier = 18 - n, volume + 1
        return change

    for name, missing in (("acquisitions", (0, 9)), ("volumes", (0, 9)), ("position after position", ()), ("echoes", (2,)),
                          ("times", (8, 17))):
        folder = edited(source, name, numbering(name))
        ordered = sorted(folder.iterdir())
        expected = [[stored_values(pydicom.dcmread(path)) for n, path in enumerate(ordered)
                     if n // 6 == volume and n not in missing] for volume in range(3)]
        for n in missing:
            ordered[n].unlink()
        for volume in range(3):
            voxels = host_test.export(folder, "--volume", volume + 1)[0].voxels
            assert (voxels == numpy.concatenate(expected[volume]) - 32767).all(), (name, volume)
    assert "--irregular split" in run_export(source, "analyze")[1]
    err = run_export(source, "analyze", "--irregular", "reject", status=1)[1]
    assert "3 volumes" in err, err
    run_export(source, "analyze", "--irregular", "reject", "--volume", 2)
    report, _, _ = report_of(source, "analyze", "--irregular", "split", "--volume", 2)
    assert len(report["volumes"]) == 1 and len(report["leftOut"]) == 12 and "of volume 1" in str(report["leftOut"])


def time_series():
    if not SAMPLES.is_dir():
        print("skipped: there are no sample files here")
        return
    report, _, _ = report_of(SAMPLES / "mr-epi-5x30", "analyze", "--irregular", "split")
    assert len(report["volumes"]) == 10  # of 15 slices
    for number, volume in enumerate(report["volumes"], 1):
        values, sets = read_volume(SAMPLES / "mr-epi-5x30", number)
        assert (Analyze(WORK / f"vol-{number}").voxels == values).all(), number
        assert sorted(volume["inputs"]) == sorted(str(ds.filename) for ds in sets), number


def full_disks():
    if WINDOWS:
        print("left out: full disks, which are made of a device of POSIX")
        return
    source = phantom("source", "--size", 256, "--slices", 3)
    # Bob's exporter takes another name where there is one.
    for form, names in (("analyze", FILES["analyze"]), ("vox", FILES["vox"]), ("nifti", ["vol.nii"])):
        for name in names:
            os.symlink("/dev/full", WORK / name)
            err = run_export(source, form, status=1)[1]
            assert name in err and "No space left" in err and leftovers() == [], (form, name, err)
            (WORK / name).unlink()
    os.symlink("/dev/null", WORK / "null")
    run_export(source, "vox", "--report", WORK / "null")
    assert (WORK / "null").is_symlink()  # written, not replaced


def servers():
    sys.path.append(str(pathlib.Path(__file__).parents[1] / "export"))
    try:
        from ftp_server import Server
    except ImportError:
        print("skipped: python3-pyftpdlib is not installed")
        return
    source = phantom("source", *SMALL)
    secret = {**os.environ, "KORVANE_FTP_PASSWORD": "s3cret"}
    served = WORK / "served"
    (WORK / "sub").mkdir()
    for names in FILES.values():
        (WORK / "sub" / names[0]).touch()  # no business of the server's
    with Server(served) as server:
        for form, names in {**FILES, "nifti": ["vol.nii"]}.items():
            report, out, err = report_of(source, form, to=f"ftp:me%@{server.host}/sub/vol", env=secret, cwd=WORK)
            sent = {path.name: path.read_bytes() for path in (served / "sub").iterdir()}
            assert sorted(sent) == names and f"sub/{names[0]}" in out and not err, (sent.keys(), out, err)
            for output in report["volumes"][0]["outputs"]:
                data = sent[output["file"].removeprefix("sub/")]
                assert (len(data), f"{zlib.crc32(data):08x}") == (output["size"], output["crc32"])
            assert report["destination"] == f"ftp:me@{server.host}/sub/vol" and "s3cret" not in str(report)
            for name in names:
                (served / "sub" / name).unlink()
            run_export(source, form, "--dry-run", to=f"ftp:me%@{server.host}/sub/vol")
            for url, word in (("ftp:me%wr0ng@{}/vol", "cannot log in"), ("ftp:reader%s3cret@{}/vol", "cannot create vol."),
                              ("ftp:me%s3cret@{}/none/vol", "cannot create none/vol.")):
                report, out, err = report_of(source, form, to=url.format(server.host), status=1)
                assert word in err and not out and not any(secret in err + str(report) for secret in ("s3cret", "wr0ng")), err
        (served / "vol.img").mkdir()  # the header is there already
        err = run_export(source, "analyze", to=f"ftp:me%s3cret@{server.host}/vol", status=1)[1]
        assert "vol.img: 550" in err and "emptied" in err and (served / "vol.hdr").stat().st_size == 0, err
        environment = {name: value for name, value in os.environ.items() if name != "KORVANE_FTP_PASSWORD"}
        to = ("export", source, "--format", "vox", "--to", f"ftp:me%@{server.host}/vol")
        assert "KORVANE_FTP_PASSWORD" in korvane(*to, status=1, env=environment, stdin=-3)[1]
        if not WINDOWS and (seen := on_terminal(to, b"password of me at", b"s3cret\n")) is not None:
            status, out, shown = seen
            assert status == 0 and (served / "vol.vox").exists() and b"s3cret" not in shown + out, shown


def stopped():
    """Ctrl-C in the middle of a file, and while a server says nothing."""
    if WINDOWS:
        print("left out: signals")
        return
    source = phantom("source", "--size", 256, "--slices", 6)
    for form, name in (("analyze", "vol.img"), ("vox", "vol.vox"), ("nifti", "vol.nii")):
        os.mkfifo(WORK / name)
        reader = []

        def half_way(name=name, reader=reader):
            reader.append(open(WORK / name, "rb"))  # pylint: disable=consider-using-with
            reader[0].read(100000)
            threading.Timer(0.3, reader[0].read).start()  # what the signal found in the pipe goes through

        interrupted(("export", source, "--format", form, "--to", f"file:{WORK}/vol"), half_way)
        reader[0].close()
        (WORK / name).unlink()
        assert leftovers() == []
    with socket.create_server(("127.0.0.1", 0)) as silent:
        times = []

        def connected():
            times.append(silent.accept()[0])
            time.sleep(0.2)
            times.append(time.monotonic())

        to = f"ftp:me%s3cret@127.0.0.1:{silent.getsockname()[1]}/vol"
        interrupted(("export", source, "--format", "vox", "--to", to), connected)
        took = time.monotonic() - times[1]
        print(f"stopped {took:.2f} seconds after Ctrl-C")
        assert took < 1  # on a busy machine
        times[0].close()


host_test.run(formats, existing_files, refused, irregular, repeated, time_series, full_disks, servers, stopped)
