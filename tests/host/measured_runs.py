"""Memory that runs of the program take at their peak, and large data to run it on, made quickly."""

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
FORMATS = ("analyze", "vox", "bob", "nifti", "nrrd", "metaimage", "dicom")


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


class SeriesMaker:
    """Many slices quickly: all have the bytes of one, but for what tells them apart."""

    def __init__(self, side, pet=False, comments=2000):
        ds = data_set()
        ds.SOPClassUID = ds.file_meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.2"
        ds.SOPInstanceUID = ds.file_meta.MediaStorageSOPInstanceUID = "1.2.3.9000000"
        ds.SeriesInstanceUID, ds.StudyInstanceUID = "1.2.4.9000000", "1.2.5"
        ds.Modality, ds.InstanceNumber = "CT", "9000000"
        ds.PatientID, ds.PatientName, ds.StudyID, ds.SeriesNumber = "1", "A", "1", 1
        ds.StudyDate, ds.StudyTime = "20260101", "120000"
        ds.ImagePositionPatient, ds.ImageOrientationPatient = [0, 0, "+9000000.0"], [1, 0, 0, 0, 1, 0]
        ds.PixelSpacing, ds.SliceThickness = [1, 1], 1
        ds.Rows = ds.Columns = side
        ds.SamplesPerPixel, ds.PhotometricInterpretation = 1, "MONOCHROME2"
        ds.BitsAllocated, ds.BitsStored, ds.HighBit, ds.PixelRepresentation = 16, 12, 11, 0
        if pet:  # with another slope in each slice
            ds.Units, ds.CorrectedImage, ds.DecayCorrection = "BQML", ["ATTN", "DECY"], "ADMIN"
            drug = pydicom.Dataset()
            drug.RadionuclideTotalDose = ds.PatientWeight = "70"
            ds.RadiopharmaceuticalInformationSequence = [drug]
            ds.RescaleSlope, ds.RescaleIntercept = "9.000000", "0"
        ds.ImageComments = "x" * comments  # real headers have some kilobytes
        ds.PixelData = (numpy.arange(side * side, dtype="<u2") % 4000 & 0xFF0).tobytes()
        ds.save_as(WORK / "one.dcm", write_like_original=False)
        whole = (WORK / "one.dcm").read_bytes()
        (WORK / "one.dcm").unlink()
        self.header = len(whole) - len(ds.PixelData)
        self.frame = len(ds.PixelData)
        self.whole = whole

    def write(self, folder, count, in_series=1000000, numbered=True):
        folder.mkdir()
        for number in range(1, count + 1):
            series = b"1.2.4.%07d" % (1000000 + number // in_series)
            head = self.whole[: self.header].replace(b"1.2.4.9000000", series)
            head = head.replace(b"1.2.3.9000000", b"1.2.3.%07d" % (1000000 + number))
            head = head.replace(b"9000000 ", b"%07d " % (number if numbered else 0)).replace(b"+9000000.0", b"%+010.1f" % number)
            head = head.replace(b"9.000000", b"%.6f" % (1 + number % 8))
            (folder / f"{number}.dcm").write_bytes(head + self.whole[self.header :])
        return folder


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


def run(*tests):
    program = pathlib.Path(KORVANE[-1]).read_bytes()
    if WINDOWS or not sys.platform.startswith("linux") or b"__asan_init" in program or b"__tsan_init" in program:
        print("skipped: memory is measured where the system tells it, of programs without a sanitizer's")
        sys.exit(SKIPPED)
    own.idle = peak("--version")
    host_test.run(*tests)
