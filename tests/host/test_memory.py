#!/usr/bin/env python3
"""How much memory jobs take at their peak: of a large file or object they hold a little at a time."""

import base64
import json
import resource
import struct

import measured_runs
import numpy
import PIL.Image
from host_test import WORK, korvane
from measured_runs import FORMATS, MEGABYTE, data_set, enhanced, own, peak
from pydicom.encaps import encapsulate


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


def frames():
    """The same of one object with many frames, and of colours: neither its pixels nor the volume is in memory."""
    for name, count, side, samples in (("grey", 120, 512, 1), ("colour", 60, 512, 3)):
        expected = enhanced(WORK / f"{name}.dcm", count, side, samples)
        korvane("convert", WORK / f"{name}.dcm", WORK / f"{name}-rle.dcm", "--syntax", "rle")
        frame = side * side * (3 if samples == 3 else 2)
        limit = 32 * MEGABYTE + 4 * 2 * frame
        for source in (name, f"{name}-rle"):
            few = samples == 3 or source.endswith("rle")
            for form in ("nifti", "metaimage") if few else FORMATS:
                took = peak("export", WORK / f"{source}.dcm", "--format", form, "--to", WORK / f"{form}-{source}",
                            "--jobs", 2)
                assert took < limit, (source, form, took, limit)
            assert (WORK / f"nifti-{source}.nii").read_bytes()[352:] == expected, source


def pictures():
    """A frame is drawn alone where all of them, decoded, are more than a value can have."""
    side, count = 1024, 4100
    ds = data_set()
    ds.Rows = ds.Columns = side
    ds.NumberOfFrames, ds.SamplesPerPixel, ds.PhotometricInterpretation = count, 1, "MONOCHROME2"
    ds.BitsAllocated, ds.BitsStored, ds.HighBit, ds.PixelRepresentation = 8, 8, 7, 0

    def frame(value):  # run-length encoded
        return struct.pack("<16I", 1, 64, *[0] * 14) + bytes([129, value]) * (side * side // 128)

    ds.file_meta.TransferSyntaxUID = "1.2.840.10008.1.2.5"
    ds.PixelData = encapsulate([frame(77 if number == 4000 else 5) for number in range(count)])
    ds["PixelData"].VR, ds["PixelData"].is_undefined_length = "OB", True
    ds.save_as(WORK / "huge.dcm", write_like_original=False)
    took = own("slice", WORK / "huge.dcm", "--frame", 4000, "--raw16", "-o", WORK / "huge.png")
    with PIL.Image.open(WORK / "huge.png") as picture:
        assert picture.size == (side, side) and picture.getextrema() == (77, 77), picture.getextrema()
    assert took < 32 * MEGABYTE, took


def volumes():
    """Where a whole volume is needed, the object's own pixels are not in memory beside it."""
    volume = len(enhanced(WORK / "grey.dcm", 120, 512, 1))
    korvane("convert", WORK / "grey.dcm", WORK / "grey-rle.dcm", "--syntax", "rle")
    for source in ("grey", "grey-rle"):
        took = own("slice", WORK / f"{source}.dcm", "--view", "coronal", "-o", WORK / f"{source}.png", "--jobs", 2)
        assert took < 1.1 * volume + 8 * MEGABYTE, (source, took, volume)


def shortage():
    """Where memory runs out the program says so: it does not take a sound file for a damaged one, or leave one out."""
    measured_runs.SeriesMaker(512).write(WORK / "sound", 24)
    said = set()
    for megabytes in range(64, 480, 4):
        limit = lambda most=megabytes * MEGABYTE: resource.setrlimit(resource.RLIMIT_AS, (most, most))
        # The loader and the C library end the program by themselves where they have no memory.
        _, err = korvane("export", WORK / "sound", "--format", "nifti", "--preview", "--to", WORK / "limited", "--jobs", 1,
                         status=None, preexec_fn=limit)
        said.add(err.removesuffix("\n") if err.startswith("korvane:") else "")
        if (WORK / "limited.nii").exists():
            break
    assert said == {"", "korvane: out of memory"}, said


measured_runs.run(dumps, frames, pictures, volumes, shortage)
