#!/usr/bin/env python3
"""Voxels are what the files say: floats, colours, signs, palettes, doses, with their units; judged by numpy and pydicom."""

import json
import sys

import host_test
import numpy
import PIL.Image
import pydicom
from host_test import WORK, edited, info, korvane, phantom
from pydicom.dataset import Dataset
from pydicom.sequence import Sequence
from pydicom.uid import RLELossless

try:
    import nibabel
except ImportError:
    print("skipped: python3-nibabel is not installed")
    sys.exit(host_test.SKIPPED)

SMALL = ("--size", 16, "--slices", 4)
RANDOM = numpy.random.default_rng(15)


def set_pixels(ds, values, **more):
    """`values`: rows x columns (x 3), integers, with the attributes that say so."""
    colour = values.ndim == 3
    bits = values.dtype.itemsize * 8
    ds.Rows, ds.Columns, ds.SamplesPerPixel = *values.shape[:2], 3 if colour else 1
    ds.PhotometricInterpretation = "RGB" if colour else "MONOCHROME2"
    if colour:
        ds.PlanarConfiguration = 0
    ds.BitsAllocated, ds.BitsStored, ds.HighBit = bits, bits, bits - 1
    ds.PixelRepresentation = int(values.dtype.kind == "i")
    for name in ("WindowCenter", "WindowWidth", "RescaleSlope", "RescaleIntercept", "RescaleType"):
        if name in ds:
            del ds[name]
    ds.PixelData = values.tobytes() + bytes(values.nbytes % 2)
    ds["PixelData"].VR = "OB" if bits == 8 else "OW"
    for name, value in more.items():
        setattr(ds, name, value)


def floats(ds, values):
    set_pixels(ds, numpy.zeros((16, 16), "u2"))
    del ds.PixelData
    name = "FloatPixelData" if values.dtype.itemsize == 4 else "DoubleFloatPixelData"
    setattr(ds, name, values.tobytes())
    ds.BitsAllocated = values.dtype.itemsize * 8
    for element in ("BitsStored", "HighBit", "PixelRepresentation"):
        del ds[element]


def nifti(source, *options):
    """Voxels of the file as slices x rows x columns, ascending along z, and the image."""
    korvane("export", source, "--format", "nifti", "--to", WORK / "out", *options)
    image = nibabel.load(WORK / "out.nii")
    voxels = numpy.asarray(image.dataobj)
    voxels = numpy.moveaxis(voxels, (0, 1, 2), (2, 1, 0))
    return (voxels if image.affine[2, 2] > 0 else voxels[::-1]), image


def made(name, make, dtype=None):
    """A series of `make(ds, n)`, which returns the values that are expected, and these, ascending along z."""
    expected = {}

    def change(ds, n):
        expected[float(ds.ImagePositionPatient[2])] = make(ds, n)

    folder = edited(phantom(f"{name}-source", *SMALL), name, change)
    return folder, numpy.array([expected[z] for z in sorted(expected)], dtype)


def integers():
    for name, dtype in (("int8", "i1"), ("uint8", "u1"), ("int16", "<i2"), ("int32", "<i4"), ("uint32", "<u4")):
        ends = numpy.iinfo(dtype)

        def make(ds, _):
            values = RANDOM.integers(ends.min, ends.max, (16, 16), dtype, endpoint=True)
            set_pixels(ds, values)
            return values

        folder, expected = made(name, make, dtype)
        voxels, image = nifti(folder)
        assert image.get_data_dtype() == expected.dtype and (voxels == expected).all(), name

    def narrow(ds, _):  # 20 of 32 bits at the top but two, dirt in the others
        values = RANDOM.integers(-(1 << 19), (1 << 19) - 1, (16, 16), "<i4")
        words = (((values.astype("i8") & 0xFFFFF) << 10) | 3 | (RANDOM.integers(0, 4, (16, 16)) << 30)).astype("<u4")
        set_pixels(ds, words, BitsStored=20, HighBit=29, PixelRepresentation=1)
        return values

    folder, expected = made("narrow", narrow)
    assert (nifti(folder)[0] == expected).all()
    err = korvane("export", folder, "--format", "nifti", "--to", WORK / "dirt")[1]
    assert "bits above the stored ones are set" in err and "4 of 4 files" in err, err
    # A sign that is repeated above is no dirt.
    clean = made("clean", lambda ds, _: set_pixels(ds, RANDOM.integers(-2048, 2047, (16, 16), "<i2"), BitsStored=12,
                                                   HighBit=11))[0]
    assert "above the stored" not in korvane("export", clean, "--format", "nifti", "--to", WORK / "clean-out")[1]


def real_numbers():
    for dtype in ("<f4", "<f8"):
        def make(ds, n):
            values = (RANDOM.standard_normal((16, 16)) * 10.0 ** n).astype(dtype)
            values[0, :3] = numpy.nan, numpy.inf, -1e30
            floats(ds, values)
            ds.InstanceNumber = (2, 4, 1, 3)[n]  # the order of files is not that of planes
            return values

        folder, expected = made(f"float{dtype[1:]}", make)
        voxels, image = nifti(folder)
        assert image.get_data_dtype() == numpy.dtype(dtype) and numpy.array_equal(voxels, expected, equal_nan=True)
        for form in ("analyze", "bob", "vox"):
            err = korvane("export", folder, "--format", form, "--to", WORK / "no", status=1)[1]
            assert "floating-point pixels have no form in" in err and "nifti, nrrd, metaimage" in err, err


def colours():
    def rgb(planar, compress):
        def make(ds, _):
            values = RANDOM.integers(0, 256, (16, 16, 3), "u1")
            set_pixels(ds, numpy.moveaxis(values, 2, 0).copy() if planar else values)
            ds.Rows, ds.Columns, ds.PlanarConfiguration, ds.SamplesPerPixel = 16, 16, planar, 3
            if compress:
                ds.compress(RLELossless)
            return values
        return make

    for planar, compress in ((0, False), (1, False), (0, True)):
        folder, expected = made(f"rgb{planar}{compress}", rgb(planar, compress))
        voxels = nifti(folder)[0]
        voxels = numpy.stack([voxels[name] for name in "RGB"], -1)
        assert (voxels == expected).all(), (planar, compress)
    korvane("export", folder, "--format", "nrrd", "--to", WORK / "colour")
    header, data = (WORK / "colour.nrrd").read_bytes().split(b"\n\n", 1)
    assert b"sizes: 3 16 16 4" in header and b"kinds: RGB-color" in header
    planes = numpy.frombuffer(data, "u1").reshape(4, 16, 16, 3)
    assert (planes == expected).all() or (planes == expected[::-1]).all()
    err = korvane("export", folder, "--format", "analyze", "--to", WORK / "no", status=1)[1]
    assert "RGB pixels have no form in analyze" in err, err

    table = RANDOM.integers(0, 65536, (3, 200), "<u2")

    def palette(ds, _):
        values = RANDOM.integers(0, 256, (16, 16), "u1")
        set_pixels(ds, values, PhotometricInterpretation="PALETTE COLOR")
        for colour, entries in zip(("Red", "Green", "Blue"), table):
            ds.add_new(f"{colour}PaletteColorLookupTableDescriptor", "US", [200, 10, 16])
            ds.add_new(f"{colour}PaletteColorLookupTableData", "OW", entries.tobytes())
        return (table[:, numpy.clip(values.astype(int) - 10, 0, 199)] >> 8).transpose(1, 2, 0)

    folder, expected = made("palette", palette)
    voxels = nifti(folder)[0]
    assert (numpy.stack([voxels[name] for name in "RGB"], -1) == expected).all()

    def ybr(ds, _):
        values = RANDOM.integers(0, 256, (16, 16, 3), "u1")
        set_pixels(ds, values, PhotometricInterpretation="YBR_FULL")
        return pydicom.pixel_data_handlers.util.convert_color_space(values, "YBR_FULL", "RGB").astype(int)

    folder, expected = made("ybr", ybr)
    voxels = nifti(folder)[0]
    assert abs(numpy.stack([voxels[name] for name in "RGB"], -1).astype(int) - expected).max() <= 1
    deep = made("deep", lambda ds, _: set_pixels(ds, RANDOM.integers(0, 65536, (16, 16, 3), "<u2")))[0]
    err = korvane("export", deep, "--format", "nifti", "--to", WORK / "no", status=1)[1]
    assert "no voxels are of this form" in err, err


def dose(name, change=lambda ds: None):
    """An RT dose of four frames, upwards, with 32 bits; its values in grays."""
    (path, *_) = sorted(phantom(f"{name}-source", *SMALL).iterdir())
    ds = pydicom.dcmread(path)
    values = RANDOM.integers(0, 1 << 32, (4, 16, 16), "<u4")
    set_pixels(ds, values[0])
    ds.PixelData, ds.NumberOfFrames, ds.Modality = values.tobytes(), 4, "RTDOSE"
    ds.SOPClassUID = ds.file_meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.481.2"
    ds.DoseGridScaling, ds.DoseUnits, ds.FrameIncrementPointer = "1.5e-8", "GY", (0x3004, 0x000C)
    ds.ImagePositionPatient, ds.GridFrameOffsetVector = [0, 0, 20], [0, 2, 4, 6]
    change(ds)
    folder = WORK / name
    folder.mkdir()
    ds.save_as(folder / "dose.dcm")
    return folder, values * 1.5e-8


def doses():
    folder, expected = dose("relative")
    voxels, image = nifti(folder)
    assert numpy.allclose(voxels, expected, rtol=1e-6) and abs(image.affine[2, 2]) == 2
    assert min(image.affine[2, 3], image.affine[2, 3] + 3 * image.affine[2, 2]) == 20
    (series,) = info(folder)
    assert series["values"] == {"unit": "GY"}, series["values"]
    folder, expected = dose("absolute", lambda ds: setattr(ds, "GridFrameOffsetVector", [20, 22, 24, 26]))
    assert numpy.allclose(nifti(folder)[0], expected, rtol=1e-6) and nifti(folder)[1].affine[2, 2] ** 2 == 4
    folder, _ = dose("neither", lambda ds: setattr(ds, "GridFrameOffsetVector", [3, 5, 7, 9]))
    err = korvane("export", folder, "--format", "nifti", "--to", WORK / "no", status=1)[1]
    assert "neither begin with 0 nor with the first frame's z" in err, err


def units():
    def real_world(ds, _):
        values = RANDOM.integers(0, 4096, (16, 16), "<u2")
        set_pixels(ds, values)
        unit = Dataset()
        unit.CodeValue, unit.CodingSchemeDesignator, unit.CodeMeaning = "um2/s", "UCUM", "um2/s"
        item = Dataset()
        item.RealWorldValueSlope, item.RealWorldValueIntercept = 0.25, -3.5
        item.MeasurementUnitsCodeSequence = Sequence([unit])
        ds.RealWorldValueMappingSequence = Sequence([item])
        return values * 0.25 - 3.5

    folder, expected = made("mapped", real_world)
    assert numpy.allclose(nifti(folder)[0], expected) and info(folder)[0]["values"]["unit"] == "um2/s"
    assert "for some of the stored values" not in str(info(folder))

    def partly(ds, n):
        real_world(ds, n)
        for tag, end in ((0x00409216, 0), (0x00409211, 4000)):
            ds.RealWorldValueMappingSequence[0].add_new(tag, "US", end)
        return 0

    (series,) = info(made("partly", partly)[0])
    assert "for some of the stored values" in str(series["findings"]), series
    (series,) = info(phantom("ct", *SMALL))
    assert series["values"]["unit"] == "HU", series


def slopes():
    """Slices with slopes of their own: real values agree, whatever a file can hold."""
    def pet(ds, n):
        values = RANDOM.integers(0, 30000, (16, 16), "<i2")
        values[0, 0] = 30000
        set_pixels(ds, values)
        ds.Modality, ds.Units, ds.CorrectedImage, ds.DecayCorrection = "PT", "BQML", ["DECY", "ATTN"], "START"
        ds.RescaleSlope, ds.RescaleIntercept = str(1 + 0.9 * n), "0"
        return values * (1 + 0.9 * n)

    folder, expected = made("pet", pet)
    voxels, image = nifti(folder)
    assert image.get_data_dtype() == numpy.float32 and numpy.allclose(voxels, expected, rtol=1e-6)
    slope = expected.max() / 32767
    for form in ("analyze", "bob"):
        out, err = korvane("export", folder, "--format", form, "--to", f"file:{WORK}/{form}")
        said = float(out.split("one slope for all, ")[1].split(",")[0])
        error = float(out.split("rounded by at most ")[1].split()[0])
        assert abs(said / slope - 1) < 1e-6 and "slices have rescales of their own" in err, (said, slope, err)
        data = host_test.Analyze(WORK / form).voxels if form == "analyze" else numpy.fromfile(
            next(WORK.glob("bob*.img")), ">i2").reshape(4, 16, 16)
        real = data * said
        off = min(abs(real - expected).max(), abs(real - expected[::-1]).max())
        assert error <= said / 2 * 1.0001 and off <= error * 1.0001, (form, off, error)
    (series,) = info(folder)
    assert series["values"] == {"unit": "BQML", "corrected": "DECY\\ATTN", "decayCorrection": "START"}, series["values"]
    korvane("slice", folder, "--view", "coronal", "--output", WORK / "coronal.png")


def padding():
    """Padding stays known: one value that no measured voxel has after slices came to one scale, and that of real pixels."""
    def pet(ds, n):
        values = RANDOM.integers(-30, 30000, (16, 16), "<i2")
        values[:, 3] = -5 * (1 + n)  # as real values what padding is in other slices
        values[:, 4] = numpy.where(values[:, 4] == -5, 0, values[:, 4])
        values[values == -5] = -5 if n == 0 else 7
        values[2:9, 7:9] = -5
        set_pixels(ds, values)
        ds.Modality, ds.Units, ds.RescaleSlope, ds.RescaleIntercept = "PT", "BQML", str(1 / (1 + n)), "0"
        ds.add_new(0x00280120, "SS", -5)
        return numpy.where(values == -5, numpy.nan, values / (1 + n))

    folder, expected = made("padded-pet", pet, "f8")
    empty = numpy.isnan(expected)
    assert empty[0].sum() > empty[1:].sum() / 3 and (expected == -5).any()
    korvane("export", folder, "--format", "analyze", "--to", f"file:{WORK}/vol", "--report", WORK / "report.json")
    report = json.loads((WORK / "report.json").read_text())
    kinds = {finding["kind"]: finding for finding in report["findings"]}
    slope, _ = kinds["one scale"]["lengths"]
    value = int(kinds["one scale"]["text"].split("have the value ")[1].split(",")[0])
    data = host_test.Analyze(WORK / "vol").voxels.astype(float)
    data = data if (numpy.isnan(expected) == (data == value)).all() else data[::-1]
    assert (empty == (data == value)).all() and kinds["padding left out"]["count"] == empty.sum(), value
    assert numpy.nanmax(abs(data * slope - expected)[~empty]) <= slope / 2 * 1.001
    values = report["volumes"][0]["values"]
    assert [values["smallest"], values["largest"]] == [data[~empty].min(), data[~empty].max()], values

    def real(ds, n):
        values = RANDOM.standard_normal((16, 16)).astype("<f4")
        values[n:9, :5] = -1e30
        floats(ds, values)
        ds.add_new(0x00280122, "FL", -1e30)
        ds.add_new(0x00280124, "FL", -9e29)
        return values

    folder, expected = made("padded-real", real, "f4")
    voxels, _ = nifti(folder, "--report", WORK / "report.json")
    measured = expected[expected > -1e29]
    report = json.loads((WORK / "report.json").read_text())
    values = report["volumes"][0]["values"]
    assert (voxels == expected).all() and values["smallest"] == numpy.floor(measured.min()), values
    assert "padding differs" not in [finding["kind"] for finding in report["findings"]]
    out = korvane("slice", folder, "--view", "axial", "--output", WORK / "real.png")[0]
    width = float(out.split("window ")[1].split(" ")[0].split(",")[1])
    assert width < 2 + numpy.ptp(measured), out
    same = edited(phantom("plain", *SMALL), "same", lambda ds, n: (ds.add_new(0x00280120, "US", 0), ds.add_new(0x00280121, "US", 400)))
    err = korvane("export", same, "--format", "nrrd", "--to", WORK / "same-out")[1]
    assert "voxels of padding" in err and "different values" not in err, err
    other = edited(same, "other", lambda ds, n: n == 2 and ds.add_new(0x00280121, "US", 9))
    assert "different values for padding" in korvane("export", other, "--format", "nrrd", "--to", WORK / "other-out")[1]
    mixed = edited(folder, "mixed", lambda ds, n: n == 2 and ds.add_new(0x00280122, "FL", 3.5))
    assert "different values for padding" in korvane("export", mixed, "--format", "nrrd", "--to", WORK / "mixed-out")[1]
    unusable = edited(folder, "unusable", lambda ds, n: (setattr(ds, "RescaleSlope", "0"), setattr(ds, "RescaleIntercept", "3")))
    def written(ds, n):  # as pydicom would not
        ds[0x0028, 0x1053] = pydicom.dataelem.RawDataElement(pydicom.tag.Tag(0x0028, 0x1053), "DS", 4, b"1,5 ", 0, False, True)

    comma = edited(same, "comma", written)
    out, err = korvane("export", comma, "--format", "nifti", "--to", WORK / "out")
    assert "Rescale Slope is \"1,5\"" in err and "as stored" in err and nibabel.load(WORK / "out.nii").get_fdata().min() >= 0, err
    assert "Rescale Slope is \"0\"" in korvane("info", unusable)[0] + korvane("info", unusable)[1]


def extremes():
    """Slopes that a file's 32-bit header or floats do not hold are not written there, and none is lost beside a larger one."""
    for slope in ("1e300", "1e-45"):
        folder = edited(phantom(f"one-{slope}", *SMALL), slope, lambda ds, n, slope=slope: setattr(ds, "RescaleSlope", slope))
        voxels, image = nifti(folder, "--report", WORK / "report.json")
        remarks = json.loads((WORK / "report.json").read_text())["volumes"][0]["values"]["remarks"]
        assert image.get_data_dtype() == numpy.uint16 and "as stored: the real value is stored * " in remarks[0], remarks
        assert voxels.max() > 0 and (voxels == voxels.astype(int)).all()
    folder = edited(phantom("wide", *SMALL), "wide-slopes", lambda ds, n: setattr(ds, "RescaleSlope", f"1e{n * 20}"))
    assert "do not fit into 32-bit floats" in korvane("export", folder, "--format", "nifti", "--to", WORK / "wide-out", status=1)[1]
    assert not list(WORK.glob("wide-out*"))
    folder = edited(folder, "far-slopes", lambda ds, n: setattr(ds, "RescaleSlope", "1e-6" if n == 0 else "1e6"))
    out, err = korvane("slice", folder, "--view", "axial", "--index", 3, "-o", WORK / "low.png")
    assert "32-bit float" in err, err  # integers of a million would lose the first slice


def uptake():
    """Standardized uptake values on request, or the name of the element that is in the way."""
    def pet(ds, n):
        values = RANDOM.integers(0, 30000, (16, 16), "<i2")
        set_pixels(ds, values)
        ds.Modality, ds.Units, ds.CorrectedImage, ds.DecayCorrection = "PT", "BQML", ["DECY", "ATTN"], "START"
        ds.RescaleSlope, ds.RescaleIntercept, ds.PatientWeight = str(1.5 + n), "0", "72.5"
        ds.SeriesDate = ds.AcquisitionDate = "20240301"
        ds.SeriesTime, ds.AcquisitionTime = "003000.5", f"0031{n:02}"
        drug = Dataset()
        drug.RadionuclideTotalDose, drug.RadionuclideHalfLife = "370000000", "6586.2"
        drug.RadiopharmaceuticalStartDateTime, drug.RadiopharmaceuticalStartTime = "20240229233000.25", "233000.25"
        ds.RadiopharmaceuticalInformationSequence = Sequence([drug])
        return values * (1.5 + n)

    folder, activity = made("injected", pet)
    elapsed = 3600.25
    expected = activity * 72500 / (370e6 * 2 ** (-elapsed / 6586.2))
    voxels = nifti(folder, "--suv", "--sidecar")[0]
    assert json.loads((WORK / "out.json").read_text())["Units"] == "GML"
    assert numpy.allclose(voxels, expected, rtol=1e-5), (voxels.max(), expected.max())
    assert numpy.allclose(nifti(folder)[0], activity, rtol=1e-6), "only on request"
    out, err = korvane("export", folder, "--format", "analyze", "--to", f"file:{WORK}/vol", "--suv")
    said = float(out.split("one slope for all, ")[1].split(",")[0])
    data = host_test.Analyze(WORK / "vol").voxels * said
    assert min(abs(data - expected).max(), abs(data - expected[::-1]).max()) <= said * 0.51 and "uptake" in err, err
    out, err = korvane("slice", folder, "--view", "axial", "--index", 0, "--suv", "--window", "5,10", "-o", WORK / "p.png")
    grey = numpy.asarray(PIL.Image.open(WORK / "p.png"), int)
    top = ((expected[-1] - 4.5) / 9 + 0.5).clip(0, 1) * 255  # planes are counted from the top
    assert "uptake" in err and abs(grey - top).max() <= 1, (grey, top)

    one_dose = edited(folder, "admin", lambda ds, n: setattr(ds, "DecayCorrection", "ADMIN"))
    assert numpy.allclose(nifti(one_dose, "--suv")[0], activity * 72500 / 370e6, rtol=1e-5)

    def zoned(moment, zone, clock="233000.25"):
        def change(ds, n):
            item = ds.RadiopharmaceuticalInformationSequence[0]
            item.RadiopharmaceuticalStartDateTime, item.RadiopharmaceuticalStartTime = moment, clock
            if zone:
                ds.TimezoneOffsetFromUTC = zone
        return change

    for number, change in enumerate((  # all the same moment
            zoned("20240229223000.25+0000", "+0100", ""), zoned("20240301013000.25+0230", "+0030", "233000.25"),
            zoned("20240229233000.25-0500", "", "233000.25"), zoned("20240229233000.25", "-1100", ""))):
        assert numpy.allclose(nifti(edited(folder, f"zone{number}", change), "--suv")[0], expected, rtol=1e-5), number

    def midnight(ds, n):  # between the start of the scan and its images
        ds.SeriesDate, ds.SeriesTime, ds.AcquisitionDate, ds.AcquisitionTime = "20240229", "235930.25", "20240301", f"0001{n:02}"

    late = activity * 72500 / (370e6 * 2 ** (-1770 / 6586.2))
    assert numpy.allclose(nifti(edited(folder, "midnight", midnight), "--suv")[0], late, rtol=1e-5)

    def without(keyword):
        def change(ds, n):
            holder = ds if keyword in ds else ds.RadiopharmaceuticalInformationSequence[0]
            delattr(holder, keyword)
        return change

    def drug(keyword, value):
        return lambda ds, n: setattr(ds.RadiopharmaceuticalInformationSequence[0], keyword, value)

    for number, (words, change) in enumerate((
            ("(0010,1030)", without("PatientWeight")), ("(0018,1074)", without("RadionuclideTotalDose")),
            ("(0018,1075)", without("RadionuclideHalfLife")), ("(0054,1102)", without("DecayCorrection")),
            ("(0054,1001)", without("Units")), ("(0054,0016)", without("RadiopharmaceuticalInformationSequence")),
            ("not BQML", lambda ds, n: setattr(ds, "Units", "CNTS")), ("no DECY", lambda ds, n: setattr(ds, "CorrectedImage", "ATTN")),
            ("(0008,0201) is missing", zoned("20240229223000.25+0000", "")),
            ("(0008,0201) cannot be read", zoned("20240229223000.25+0000", "CET")),
            ("time zone that cannot", zoned("20240229223000.25+1", "+0100")),
            ("(0018,1072) cannot be read", zoned("", "", "23h30")), ("after the scan", zoned("", "", "233000")),
            ("(0018,1072) is missing", zoned("", "", "")), ("(0008,0031) cannot be read", lambda ds, n: setattr(ds, "SeriesTime", "0030.5")),
            ("(0008,0021) cannot be read", lambda ds, n: setattr(ds, "SeriesDate", "20240230")),
            ("above 0", drug("RadionuclideTotalDose", "0")), ("after the scan", drug("RadiopharmaceuticalStartDateTime", "20240301013000")),
            ("(0008,0031) is after", lambda ds, n: setattr(ds, "SeriesTime", "120000")),
            ("others than", lambda ds, n: n == 2 and setattr(ds, "PatientWeight", "73")))):
        err = korvane("export", edited(folder, f"wrong{number}", change), "--format", "nifti", "--to", WORK / "none", "--suv", status=1)[1]
        assert words in err and "no uptake values" in err and not list(WORK.glob("none*")), (words, err)


def frames_in_time():
    """Frames of an older object that a time counts are times of one plane, which a file of four dimensions holds."""
    (path, *_) = sorted(phantom("angio-source", *SMALL).iterdir())
    ds = pydicom.dcmread(path)
    values = RANDOM.integers(0, 1024, (5, 16, 16), "<u2")
    set_pixels(ds, values[0])
    ds.PixelData, ds.NumberOfFrames, ds.Modality = values.tobytes(), 5, "RF"
    ds.FrameIncrementPointer, ds.FrameTime = (0x0018, 0x1063), "33.3"
    del ds.ImagePositionPatient, ds.ImageOrientationPatient
    folder = WORK / "angio"
    folder.mkdir()
    ds.save_as(folder / "angio.dcm")
    (series,) = info(folder)
    assert "frames are times" in [finding["kind"] for finding in series["findings"]], series["findings"]
    voxels, image = nifti(folder)
    assert image.shape == (16, 16, 1, 5) and (voxels[0].transpose(2, 0, 1) == values).all(), image.shape
    err = korvane("export", folder, "--format", "analyze", "--to", f"file:{WORK}/one", "--volume", 3)[1]
    assert (host_test.Analyze(WORK / "one").voxels[0] == values[2].astype(int) - 32767).all(), err


host_test.run(integers, real_numbers, colours, doses, units, slopes, padding, extremes, uptake, frames_in_time)
