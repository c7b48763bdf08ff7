#!/usr/bin/env python3
"""Series that are irregular in one way each: what is made of them is right, refused, or told."""

import numpy
import pydicom
from pydicom.uid import RLELossless

import host_test
from host_test import WORK, edited, info, korvane, phantom

SMALL = ("--size", 16, "--slices", 6)


def found(folder):
    """The only series with its findings by kind."""
    (series,) = info(folder)
    return series, {finding["kind"]: finding for finding in series["findings"]}


def heights(folder):
    return sorted(float(pydicom.dcmread(path, stop_before_pixels=True).ImagePositionPatient[2])
                  for path in folder.iterdir())


def keys():
    """Two things that differ at each position are both the key; what varies with the slice is none, and is told."""
    source = phantom("source", *SMALL, "--volumes", 4)  # volume after volume

    def crossed(ds, n):
        ds.EchoNumbers, ds.TemporalPositionIdentifier = n // 6 % 2 + 1, n // 12 + 1
        ds.InstanceNumber, ds.AcquisitionNumber = n % 6 * 4 + n // 6 + 1, 1
        ds.TriggerTime = str(n * 13.5)  # another one for each image

    folder = edited(source, "crossed", crossed)
    for volume in range(4):
        (exported, *_) = host_test.export(folder, "--volume", volume + 1)
        expected = numpy.concatenate([host_test.stored_values(pydicom.dcmread(path)) for n, path
                                      in enumerate(sorted(folder.iterdir())) if n // 6 == volume])
        assert (exported.voxels == expected - 32767).all(), volume

    def timed(ds, n):
        crossed(ds, n)
        ds.EchoNumbers = ds.TemporalPositionIdentifier = 1

    _, kinds = found(edited(source, "timed", timed))
    assert "trigger time (24 values)" in kinds["key rejected"]["text"] and "volumes guessed" in kinds, kinds
    _, kinds = found(edited(phantom("one", *SMALL), "mixed", lambda ds, n: setattr(ds, "EchoNumbers", n % 2 + 1)))
    assert "echo number (2 values)" in kinds["keys mixed"]["text"]


def positions():
    source = phantom("far", *SMALL)

    def far(ds, n):
        if n == 5:
            ds.ImagePositionPatient[2] = 10000

    folder = edited(source, "away", far)
    series, kinds = found(folder)
    assert series["positions"] == 6 and series["volumes"] == 1, series
    gaps = numpy.diff(heights(folder))
    assert abs(kinds["uneven gaps" if "uneven gaps" in kinds else "missing slices"]["lengths"][1] - gaps.max()) < 1e-6

    def aside(ds, n):
        ds.ImagePositionPatient[0] += 3 * (n == 2)

    _, kinds = found(edited(source, "aside", aside))
    assert abs(kinds["shifted sideways"]["lengths"][0] - 3) < 1e-6 and "0002.dcm" in kinds["shifted sideways"]["text"]


def pixels():
    source = phantom("bits", *SMALL)

    def narrow(ds, n):
        values = numpy.full(256, 100 + n, "<u2")
        ds.PixelRepresentation, ds.BitsStored = 0, 16 if n % 2 else 12
        ds.HighBit = ds.BitsStored - 1
        ds.PixelData = (values if n % 2 else values | 0xF000).tobytes()  # dirt above the stored bits

    exported = host_test.export(edited(source, "narrow", narrow))[0].voxels
    assert sorted(numpy.unique(exported)) == [100 + n - 32767 for n in range(6)], numpy.unique(exported)

    for value, kind in (([0.5, 0.875], "spacing differs"), ([0, 0], "spacing unknown"), ([-1, 1], "spacing unknown")):
        folder = edited(source, f"spacing{value}", lambda ds, n: setattr(ds, "PixelSpacing", value) if n == 3 else None)
        _, kinds = found(folder)
        assert kinds[kind]["slices"] == [3] and "0003.dcm" in kinds[kind]["text"], kinds

    one = phantom("twice", "--size", 16, "--slices", 1)
    (path,) = one.iterdir()
    ds = pydicom.dcmread(path)
    ds.save_as(one / "same.dcm")
    ds.PixelData = bytes(len(ds.PixelData))
    ds.save_as(one / "other.dcm")
    series, kinds = found(one)
    assert series["slices"] == 2 and len(kinds["same UID"]["files"]) == 2, series


def claims():
    """A few bytes that claim gigabytes are refused before memory is taken for them."""
    (path,) = phantom("claim", "--size", 16, "--slices", 1).iterdir()
    for frames, rows in ((1, 65535), (100000, 16)):
        ds = pydicom.dcmread(path)
        ds.Rows = ds.Columns = rows
        ds.NumberOfFrames = frames
        ds.PixelData = pydicom.encaps.encapsulate([bytes(64)])
        ds["PixelData"].VR, ds["PixelData"].is_undefined_length = "OB", True
        ds.file_meta.TransferSyntaxUID = RLELossless
        ds.save_as(WORK / "claim.dcm")
        err = korvane("export", WORK / "claim.dcm", "--format", "analyze", "--to", f"file:{WORK}/c", status=1)[1]
        assert "compressed pixel data of" in err, err


host_test.run(keys, positions, pixels, claims)
