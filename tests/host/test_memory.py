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
from host_test import KORVANE, SKIPPED, WINDOWS, WORK, korvane
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


class SeriesMaker:
    """Many slices quickly: all have the bytes of one, but for what tells them apart."""

    def __init__(self, side):
        ds = data_set()
        ds.SOPClassUID = ds.file_meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.2"
        ds.SOPInstanceUID = ds.file_meta.MediaStorageSOPInstanceUID = "1.2.3.9000000"
        ds.SeriesInstanceUID, ds.StudyInstanceUID = "1.2.4", "1.2.5"
        ds.Modality, ds.InstanceNumber = "CT", "9000000"
        ds.ImagePositionPatient, ds.ImageOrientationPatient = [0, 0, "+9000000.0"], [1, 0, 0, 0, 1, 0]
        ds.PixelSpacing, ds.SliceThickness = [1, 1], 1
        ds.Rows = ds.Columns = side
        ds.SamplesPerPixel, ds.PhotometricInterpretation = 1, "MONOCHROME2"
        ds.BitsAllocated, ds.BitsStored, ds.HighBit, ds.PixelRepresentation = 16, 12, 11, 0
        ds.ImageComments = "x" * 2000  # real headers have some kilobytes
        ds.PixelData = (numpy.arange(side * side, dtype="<u2") % 4000 & 0xFF0).tobytes()
        ds.save_as(WORK / "one.dcm", write_like_original=False)
        whole = (WORK / "one.dcm").read_bytes()
        (WORK / "one.dcm").unlink()
        self.header = len(whole) - len(ds.PixelData)
        self.frame = len(ds.PixelData)
        self.whole = whole

    def write(self, folder, count):
        folder.mkdir()
        for number in range(1, count + 1):
            head = self.whole[: self.header].replace(b"1.2.3.9000000", b"1.2.3.%07d" % (1000000 + number))
            head = head.replace(b"9000000 ", b"%07d " % number).replace(b"+9000000.0", b"%+010.1f" % number)
            (folder / f"{number}.dcm").write_bytes(head + self.whole[self.header :])
        return folder


def exports():
    """Of a series that is exported as it is, a few slices are in memory, whatever the format and the compression."""
    for name, side, count in (("few", 512, 120), ("many", 32, 2000)):
        maker = SeriesMaker(side)
        native = maker.write(WORK / name, count)
        korvane("convert", native, WORK / f"{name}-rle", "--syntax", "rle")
        jobs = 2
        limit = 32 * MEGABYTE + 4 * jobs * maker.frame + 2 * count * maker.header
        for folder in (native, WORK / f"{name}-rle"):
            forms = ("vox", "nifti") if folder.name == "many-rle" else ("analyze", "vox", "bob", "nifti", "nrrd", "metaimage")
            for form in forms:
                took = peak("export", folder, "--format", form, "--to", WORK / f"{form}-{folder.name}", "--jobs", jobs)
                assert took < limit, (folder.name, form, took, limit)
        for path in WORK.glob(f"*-{name}-rle.*"):
            assert path.read_bytes() == path.with_name(path.name.replace("-rle.", ".")).read_bytes(), path


def enhanced(path, frames, side, samples):
    """One object with all slices, from the top down; returns the planes as they ascend."""
    ds = data_set()
    ds.SOPClassUID = ds.file_meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.2.1"
    ds.SeriesInstanceUID, ds.StudyInstanceUID, ds.Modality = generate_uid(), "1.2.5", "CT"
    ds.Rows = ds.Columns = side
    ds.NumberOfFrames, ds.InstanceNumber, ds.SamplesPerPixel = frames, 1, samples
    ds.PhotometricInterpretation = "RGB" if samples == 3 else "MONOCHROME2"
    ds.BitsAllocated, ds.PixelRepresentation = 8 if samples == 3 else 16, 0
    ds.BitsStored, ds.HighBit = ds.BitsAllocated, ds.BitsAllocated - 1
    if samples == 3:
        ds.PlanarConfiguration = 0

    def item(keyword, **values):
        inner, outer = pydicom.Dataset(), pydicom.Dataset()
        for name, value in values.items():
            setattr(inner, name, value)
        setattr(outer, keyword, [inner])
        return outer

    ds.SharedFunctionalGroupsSequence = [item("PlaneOrientationSequence", ImageOrientationPatient=[1, 0, 0, 0, 1, 0])]
    ds.SharedFunctionalGroupsSequence[0].update(item("PixelMeasuresSequence", PixelSpacing=[1, 1], SliceThickness=2))
    ds.PerFrameFunctionalGroupsSequence = [item("PlanePositionSequence", ImagePositionPatient=[0, 0, -2 * number])
                                           for number in range(frames)]
    values = numpy.arange(frames * side * side * samples, dtype="<u2") // 7
    pixels = (values % 251).astype("u1") if samples == 3 else values
    ds.add_new(0x7FE00010, "OB" if samples == 3 else "OW", pixels.tobytes())
    ds.save_as(path, write_like_original=False)
    return pixels.reshape(frames, -1)[::-1].tobytes()


def frames():
    """The same of one object with many frames, and of colours: neither its pixels nor the volume is in memory."""
    for name, count, side, samples in (("grey", 120, 512, 1), ("colour", 60, 512, 3)):
        expected = enhanced(WORK / f"{name}.dcm", count, side, samples)
        korvane("convert", WORK / f"{name}.dcm", WORK / f"{name}-rle.dcm", "--syntax", "rle")
        frame = side * side * (3 if samples == 3 else 2)
        limit = 32 * MEGABYTE + 4 * 2 * frame
        for source in (name, f"{name}-rle"):
            few = samples == 3 or source.endswith("rle")
            for form in ("nifti", "metaimage") if few else ("analyze", "vox", "bob", "nifti", "nrrd", "metaimage"):
                took = peak("export", WORK / f"{source}.dcm", "--format", form, "--to", WORK / f"{form}-{source}",
                            "--jobs", 2)
                assert took < limit, (source, form, took, limit)
            assert (WORK / f"nifti-{source}.nii").read_bytes()[352:] == expected, source


program = pathlib.Path(KORVANE[-1]).read_bytes()
if WINDOWS or not sys.platform.startswith("linux") or b"__asan_init" in program or b"__tsan_init" in program:
    print("skipped: memory is measured where the system tells it, of programs without a sanitizer's")
    sys.exit(SKIPPED)
own.idle = peak("--version")
host_test.run(dumps, exports, frames)
