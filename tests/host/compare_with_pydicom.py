#!/usr/bin/env python3
"""Exported voxels against an independent reading of the same files, sample by sample."""

import shutil
import subprocess

import host_test
import numpy
import pydicom
from host_test import SAMPLES, WORK, edited, export, info, korvane, phantom, read_volume, stored_values
from pydicom.dataset import Dataset
from pydicom.sequence import Sequence

SMALL = ("--size", 37, "--rows", 22, "--slices", 9)


def check(volume, values, unsigned_shift, spacing):
    """Voxels, type and range of an exported volume against stored values."""
    numpy.testing.assert_array_equal(volume.voxels.astype(int), values - 32767 if unsigned_shift else values)
    assert volume.maximum == values.max(), (volume.maximum, values.max())
    numpy.testing.assert_allclose(volume.spacing[:len(spacing)], spacing, atol=1e-4)


def check_series(folder, number=1):
    """Exports a series and compares; the unsigned shift must be reported exactly where it was made."""
    values, sets = read_volume(folder, number)
    volume, out, _ = export(folder, *(["--volume", number] if number > 1 else []))
    shifted = sets[0].BitsAllocated == 16 and not sets[0].PixelRepresentation
    check(volume, values, shifted, spacing_of(sets))
    assert ("less 32767" in out) == shifted
    assert volume.bitpix == sets[0].BitsStored


def spacing_of(sets):
    """Along columns and rows, and where there are several slices between them on average."""
    gaps = numpy.diff([host_test.height(ds) for ds in sets])
    return [*map(float, sets[0].PixelSpacing), *([gaps.mean()] if len(gaps) else [])]


def made_variants():
    for name, *options in (("plain",), ("uneven", "--uneven", "--descending"),
                           ("oblique", "--oblique", "--signed", "--seed", 7)):
        check_series(phantom(name, *SMALL, *options))
    check_series(phantom("single", "--size", 16, "--slices", 1))
    times = phantom("times", *SMALL, "--volumes", 3)
    for number in (2, 3):
        check_series(times, number)


def transfer_syntaxes():
    source = phantom("explicit", *SMALL, "--signed")
    if shutil.which("dcmconv") is None:
        print("skipped: dcmconv (dcmtk) is not installed")
        return
    for flag in ("+ti", "+tb"):
        folder, bare = WORK / flag, WORK / f"{flag}-bare"
        folder.mkdir(), bare.mkdir()
        for path in source.iterdir():
            subprocess.run(["dcmconv", flag, path, folder / path.name], check=True)
            subprocess.run(["dcmconv", "-F", flag, path, bare / path.name], check=True)
        check_series(folder)
        assert [series["slices"] for series in info(bare)] == [9]
        values, sets = read_volume(folder)
        check(export(bare)[0], values, False, spacing_of(sets))


def pixel_layouts():
    source = phantom("source", *SMALL)

    def high_bits(ds, _):  # 12 bits at the top of the word
        words = numpy.frombuffer(ds.PixelData, "<u2")
        ds.HighBit, ds.PixelData, ds.NumberOfFrames = 15, (words << 4 | 5).astype("<u2").tobytes(), "1"

    def overlay_bits(ds, _):  # rubbish above the stored bits, signed
        words = numpy.frombuffer(ds.PixelData, "<u2")
        ds.PixelRepresentation, ds.PixelData = 1, (words | 0xA000).astype("<u2").tobytes()

    def bytes_of_odd_size(ds, _):
        values = (numpy.frombuffer(ds.PixelData, "<u2") >> 4).astype("u1")[: 37 * 21]
        ds.Rows, ds.BitsAllocated, ds.BitsStored, ds.HighBit = 21, 8, 8, 7
        ds.PixelData = values.tobytes() + b"\0"
        ds["PixelData"].VR = "OB"

    for change in (high_bits, overlay_bits, bytes_of_odd_size):
        check_series(edited(source, change.__name__, change))


def other_numbering():
    """Instance numbers that do not follow the positions, and one below 1."""
    source = phantom("source", *SMALL)
    check_series(edited(source, "zero", lambda ds, n: setattr(ds, "InstanceNumber", (n * 4) % 9)))
    values, _ = read_volume(source)

    def drop(ds, _):
        del ds.ImagePositionPatient, ds.SliceLocation

    check(export(edited(source, "nowhere", drop))[0], values, True, [])


def enhanced(source, order, shared_position=False):
    """The slices of a series as frames of one enhanced object, with the geometry in functional groups."""
    sets = sorted((pydicom.dcmread(path) for path in source.iterdir()), key=lambda ds: int(ds.InstanceNumber))
    whole = sets[0]
    measures, orientation, window = Dataset(), Dataset(), Dataset()
    window.WindowCenter, window.WindowWidth = "41", "401"
    measures.PixelSpacing, measures.SliceThickness = whole.PixelSpacing, whole.SliceThickness
    orientation.ImageOrientationPatient = whole.ImageOrientationPatient
    shared = Dataset()
    shared.PixelMeasuresSequence, shared.PlaneOrientationSequence = Sequence([measures]), Sequence([orientation])
    shared.FrameVOILUTSequence = Sequence([window])
    frames, pixels = [], b""
    for number in order:
        position, rescale, frame = Dataset(), Dataset(), Dataset()
        position.ImagePositionPatient = sets[number].ImagePositionPatient
        rescale.RescaleIntercept, rescale.RescaleSlope, rescale.RescaleType = "-1024", "1", "HU"
        frame.PlanePositionSequence = Sequence([position])
        frame.PixelValueTransformationSequence = Sequence([rescale])
        frames.append(frame)
        pixels += sets[number].PixelData
    for word in ("ImagePositionPatient", "ImageOrientationPatient", "PixelSpacing", "SliceThickness",
                 "RescaleIntercept", "RescaleSlope", "SliceLocation", "WindowCenter", "WindowWidth"):
        delattr(whole, word)
    whole.SOPClassUID = whole.file_meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.2.1"
    whole.SharedFunctionalGroupsSequence = Sequence([shared])
    whole.PerFrameFunctionalGroupsSequence = Sequence(frames)
    whole.NumberOfFrames, whole.PixelData = str(len(frames)), pixels
    return whole


def multi_frame_objects():
    source = phantom("source", *SMALL, "--oblique", "--uneven", "--signed")
    values, sets = read_volume(source)
    folder = WORK / "enhanced"
    folder.mkdir()
    whole = enhanced(source, [4, 0, 8, 2, 6, 1, 3, 5, 7])
    whole.save_as(folder / "all.dcm")
    volume, out, _ = export(folder)
    check(volume, values, False, spacing_of(sets))
    assert "stored * 1 + -1024" in out
    assert "41,401 of the series" in korvane("slice", folder, "--view", "axial", "-o", WORK / "picture.png")[0]
    (series,) = info(folder)
    assert series["directions"] == {"rows": "LP", "columns": "PHR", "slices": "HA"}, series["directions"]
    assert numpy.allclose(series["origin"], [float(value) for value in sets[0].ImagePositionPatient])

    whole.NumberOfFrames = "1000000"  # more than there are
    whole.save_as(folder / "all.dcm")
    assert "pixel data ends early" in export(folder, status=1)[2]

    # A dose grid: offsets from the first frame along the normal. Without them, and without a position, stored order.
    dose = enhanced(source, range(9))
    del dose.SharedFunctionalGroupsSequence, dose.PerFrameFunctionalGroupsSequence
    dose.ImagePositionPatient = sets[0].ImagePositionPatient
    dose.ImageOrientationPatient, dose.PixelSpacing = sets[0].ImageOrientationPatient, sets[0].PixelSpacing
    dose.FrameIncrementPointer = 0x3004000C
    dose.GridFrameOffsetVector = [f"{host_test.height(ds) - host_test.height(sets[0]):.4f}" for ds in sets]
    dose.save_as(folder / "all.dcm")
    check(export(folder)[0], values, False, spacing_of(sets))
    assert abs(info(folder)[0]["gaps"]["largest"] - 10) < 1e-3
    del dose.GridFrameOffsetVector, dose.FrameIncrementPointer
    for distance in ("2.5", None, "4"):
        dose.SpacingBetweenSlices = distance
        if distance == "4":
            del dose.ImagePositionPatient, dose.ImageOrientationPatient
        dose.save_as(folder / "all.dcm")
        volume, _, err = export(folder)
        # Without a distance or a slice thickness the library takes the pixel spacing.
        expected = float(distance or sets[0].PixelSpacing[0])
        check(volume, values, False, [*map(float, sets[0].PixelSpacing), expected])
        assert ("frames without positions" in err) == (distance != "2.5"), (distance, err)


def real_files():
    if not SAMPLES.is_dir():
        print("skipped: there are no sample files here")
        return
    for number in range(1, 11):
        check_series(SAMPLES / "mr-epi-5x30", number)
    for name in ("CT_small", "MR_small", "MR_small_implicit", "MR_small_bigendian", "MR_small_padded", "emri_small",
                 "examples_overlay"):
        ds = pydicom.dcmread(SAMPLES / "files" / f"{name}.dcm")
        check(export(SAMPLES / "files" / f"{name}.dcm")[0], stored_values(ds), not ds.PixelRepresentation, [])
    check_series(SAMPLES / "dicomdir" / "98892001" / "CT5N")


host_test.run(made_variants, transfer_syntaxes, pixel_layouts, other_numbering, multi_frame_objects, real_files)
