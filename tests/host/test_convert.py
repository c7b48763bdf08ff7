#!/usr/bin/env python3
"""korvane convert: nothing of a data set is lost in any syntax, compression without loss gives every bit back, and
what is compressed is read like anything else."""

import os
import pathlib
import shutil
import signal
import subprocess
import time

import host_test
import numpy
import pydicom
from host_test import KORVANE, WINDOWS, WORK, export, info, korvane, phantom
from pydicom.dataset import Dataset, FileDataset, FileMetaDataset
from pydicom.sequence import Sequence
from pydicom.uid import DeflatedExplicitVRLittleEndian, ExplicitVRLittleEndian

UNCOMPRESSED = ("implicit", "explicit", "big")
COMPRESSED = ("rle", "jpegll")


def image(values, stored=None, planar=0, **attributes):
    """A data set of frames x rows x columns (x 3) values, with elements that are easily lost."""
    meta = FileMetaDataset()
    meta.TransferSyntaxUID = ExplicitVRLittleEndian
    meta.MediaStorageSOPClassUID, meta.MediaStorageSOPInstanceUID = "1.2.840.10008.5.1.4.1.1.7", "1.2.3.4"
    ds = FileDataset(None, {}, file_meta=meta, preamble=bytes(128))
    ds.is_little_endian, ds.is_implicit_VR = True, False
    ds.SOPClassUID, ds.SOPInstanceUID, ds.PatientName = meta.MediaStorageSOPClassUID, "1.2.3.4", "Doe^J"
    bits = values.dtype.itemsize * 8
    colour = values.ndim == 4
    ds.NumberOfFrames, ds.Rows, ds.Columns = values.shape[:3]
    ds.SamplesPerPixel, ds.PhotometricInterpretation = (3, "RGB") if colour else (1, "MONOCHROME2")
    if colour:
        ds.PlanarConfiguration = planar
    ds.BitsAllocated, ds.BitsStored, ds.HighBit = bits, stored or bits, (stored or bits) - 1
    ds.PixelRepresentation = int(values.dtype.kind == "i")
    raw = (numpy.moveaxis(values, 3, 1) if planar else values).tobytes()
    ds.PixelData = raw + bytes(len(raw) % 2)
    ds["PixelData"].VR = "OB" if bits == 8 else "OW"
    for group in (0x0009, 0x9001):  # the second sorts in front of all others in the library
        ds.add_new((group, 0x0010), "LO", "KORVANE TEST")
        for element, vr, value in ((1, "FD", [1.5, -2.5]), (2, "SS", -7), (3, "OB", b"\1\2\3\4"), (4, "LT", "x" * 9001),
                                   (5, "UN", b"\0\1\2\3"), (6, "OF", b"\0\0\x80\x3f"), (7, "SH", "")):
            ds.add_new((group, 0x1000 + element), vr, value)
    item = Dataset()
    item.add_new((0x0009, 0x0010), "LO", "KORVANE TEST")
    item.add_new((0x0009, 0x1002), "SS", 5)
    item.CodeValue = "odd"
    ds.add_new((0x0009, 0x1008), "SQ", Sequence([item, Dataset()]))
    ds[0x0009, 0x1008].is_undefined_length = True
    ds.RequestAttributesSequence = Sequence([])
    ds.add_new((0x0018, 0xFFFF), "UN", b"unknown!")
    for name, value in attributes.items():
        setattr(ds, name, value)
    return ds


def elements(ds, private):
    """Tag paths to values; of private elements, whose type implicit streams lose, only whether they are there."""
    found = {}
    for element in ds:
        if element.VR == "SQ" and not element.tag.is_private:
            for number, item in enumerate(element.value):
                found |= {(element.tag, number, *path): value for path, value in elements(item, private).items()}
        if element.tag.is_private and not private:
            found[(element.tag,)] = "there"
        else:
            value = element.value
            unknown = isinstance(value, bytes) and element.VR == "UN"
            found[(element.tag,)] = value.rstrip(b"\0") if unknown else str(value)
    return found


def convert(source, name, syntax):
    korvane("convert", source, WORK / name, "--syntax", syntax)
    return WORK / name


def forms():
    ramp = numpy.random.default_rng(7)
    for dtype, shape, stored in (("u1", (1, 3, 5), None), ("u1", (3, 5, 7), None), ("<u2", (1, 9, 8), 12),
                                 ("<i2", (3, 4, 5), 12), ("<i2", (1, 7, 3), 16), ("<u4", (2, 3, 3), None),
                                 ("u1", (2, 5, 3, 3), None), ("<u2", (1, 4, 4, 3), None)):
        bits = stored or numpy.dtype(dtype).itemsize * 8
        low = -(1 << bits - 1) if "i" in dtype else 0
        values = ramp.integers(low, low + (1 << bits), shape, dtype=numpy.int64).astype(dtype)
        for planar in (0, 1) if len(shape) == 4 else (0,):
            yield image(values, stored, planar)
    yield image(ramp.integers(0, 1 << 16, (2, 4, 6)).astype("<u2"), 12)  # overlays in the bits above


def lossless_round_trips():
    for number, ds in enumerate(forms()):
        source = WORK / f"{number}.dcm"
        ds.save_as(source)
        original = pydicom.dcmread(source)
        chain = source
        for syntax in (*UNCOMPRESSED, *COMPRESSED, "explicit", "big", "rle", "implicit", "explicit"):
            if syntax == "jpegll" and ds.BitsAllocated == 32:
                continue
            chain = convert(chain, f"{number}-{syntax}.dcm", syntax)
            read = pydicom.dcmread(chain)
            expected, found = (elements(one, private=False) for one in (original, read))
            changed = {0x7FE00010, 0x00280006}
            assert {k: v for k, v in found.items() if k[0] not in changed} == \
                   {k: v for k, v in expected.items() if k[0] not in changed}, (number, syntax)
            assert list(read.keys()) == sorted(read.keys()), syntax
            if syntax in ("explicit", "rle"):
                assert (read.pixel_array == original.pixel_array).all(), (number, syntax)
            if syntax == "explicit":
                assert len(read.PixelData) == len(original.PixelData)
        direct = pydicom.dcmread(convert(source, f"{number}-again.dcm", "explicit"))
        assert elements(direct, private=True) == elements(original, private=True)
        assert [e.VR for e in direct.iterall()] == [e.VR for e in original.iterall()]


def streams_and_refusals():
    source = WORK / "a.dcm"
    image(numpy.ones((1, 4, 4), "u1")).save_as(source)
    before = source.read_bytes()
    expected = convert(source, "b.dcm", "rle").read_bytes()
    for arguments in (("-", "-"), (source, "-")):
        command = [*KORVANE, "convert", *map(str, arguments), "--syntax", "rle"]
        done = subprocess.run(command, input=before, capture_output=True, check=True, timeout=60)
        assert done.stdout == expected
    os.link(source, WORK / "link.dcm")
    (WORK / "folder").mkdir()
    (WORK / "text").write_text("not DICOM")
    (WORK / "cut.dcm").write_bytes(before[:-9])
    film = image(numpy.ones((1, 4, 4), "u1"))
    film.file_meta.TransferSyntaxUID = "1.2.840.10008.1.2.4.100"
    film.PixelData = pydicom.encaps.encapsulate([b"film"])
    film["PixelData"].is_undefined_length = True
    film.save_as(WORK / "film.dcm")
    for source_name, target, words in (("a.dcm", "a.dcm", "overwrite"), ("a.dcm", "link.dcm", "overwrite"),
                                       ("text", "x", "not a DICOM"), ("cut.dcm", "x", "ends early"),
                                       ("gone", "x", "gone"),
                                       ("a.dcm", "no/such/x", "no/such/x"), (".", "folder/x", "neither"),
                                       ("folder", ".", "neither"), ("folder", "x", "no DICOM files"),
                                       ("film.dcm", "x", "MPEG2 Main Profile (1.2.840.10008.1.2.4.100)")):
        assert words in korvane("convert", source_name, target, status=1, cwd=WORK)[1], (source_name, target)
    assert "MPEG2" in export(WORK / "film.dcm", status=1)[2]
    assert source.read_bytes() == before and not list(WORK.rglob("*.part"))
    korvane("convert", source, WORK / "folder")
    assert (WORK / "folder" / "a.dcm").is_file()
    korvane("convert", WORK / "folder", "-", status=2)
    korvane("convert", "-", WORK / "folder", status=2, input="")


def folders_and_mixed_series():
    plain = phantom("plain", "--size", 16, "--slices", 8)
    (plain / "deep" / "er").mkdir(parents=True)
    files = sorted(plain.glob("*.dcm"))
    files[0].rename(plain / "deep" / "er" / "strange name")
    (plain / "notes.txt").write_text("not DICOM")
    directory = image(numpy.ones((1, 4, 4), "u1"))
    directory.file_meta.MediaStorageSOPClassUID = "1.2.840.10008.1.3.10"
    directory.save_as(plain / "DICOMDIR")
    out, err = korvane("convert", plain, WORK / "packed", "--syntax", "rle", status=1)
    assert "8 files written" in out and "1 files are not DICOM" in out and "DICOMDIR" in err
    (plain / "DICOMDIR").unlink()
    names = {path.relative_to(plain) for path in plain.rglob("*") if path.is_file()} - {pathlib.Path("notes.txt")}
    assert names == {path.relative_to(WORK / "packed") for path in (WORK / "packed").rglob("*") if path.is_file()}
    for number, name in enumerate(sorted(names)):
        if number % 4 == 0:
            (WORK / "packed" / name).unlink()
            korvane("convert", plain / name, WORK / "packed" / name, "--syntax", "jpegll")
        elif number % 4 == 1:
            shutil.copy(plain / name, WORK / "packed" / name)
        elif number % 4 == 2:
            ds = pydicom.dcmread(plain / name)
            ds.file_meta.TransferSyntaxUID = DeflatedExplicitVRLittleEndian
            ds.is_little_endian, ds.is_implicit_VR = True, False
            ds.save_as(WORK / "packed" / name)
    (series,) = info(WORK / "packed")
    assert len(series["transferSyntaxes"]) == 4 and series["warnings"] == [] and series["slices"] == 8, series
    assert (export(plain)[0].voxels == export(WORK / "packed", name="packed-volume")[0].voxels).all()
    korvane("slice", WORK / "packed", "--view", "axial", "--index", 3, "-o", WORK / "slice.png")


def frames_and_lies():
    """Frames of one compressed file are slices too; a header that promises more than the file holds is refused."""
    ds = image(numpy.arange(4 * 6 * 6, dtype="<u2").reshape(4, 6, 6))
    ds.save_as(WORK / "frames.dcm")
    packed = convert(WORK / "frames.dcm", "packed.dcm", "rle")
    assert (export(packed)[0].voxels == export(WORK / "frames.dcm", name="plain")[0].voxels).all()
    for change, words in (({"NumberOfFrames": "60000"}, "60000 frames"), ({"Rows": 7}, "frame 1"),
                          ({"Rows": 60000, "Columns": 60000}, "a frame of")):
        lie = pydicom.dcmread(packed)
        for name, value in change.items():
            setattr(lie, name, value)
        lie.save_as(WORK / "lie.dcm")
        err = korvane("convert", WORK / "lie.dcm", WORK / "x.dcm", status=1)[1]
        assert words in err and "RLE Lossless" in err and not (WORK / "x.dcm").exists(), err


def interrupted():
    source = phantom("source", "--size", 512, "--slices", 60)
    command = [*KORVANE, "convert", source, WORK / "out", "--syntax", "jpegll"]
    with subprocess.Popen(command, stderr=subprocess.PIPE) as done:
        end = time.monotonic() + 20
        while not (WORK / "out").exists() and time.monotonic() < end:
            time.sleep(0.005)
        done.send_signal(signal.SIGINT)
        assert done.wait(20) == 1 and b"stopped" in done.stderr.read()
    assert not list((WORK / "out").glob("*.part"))


host_test.run(lossless_round_trips, streams_and_refusals, folders_and_mixed_series, frames_and_lies,
              *(() if WINDOWS else (interrupted,)))
