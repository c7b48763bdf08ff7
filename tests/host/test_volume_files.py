#!/usr/bin/env python3
"""NIfTI, NRRD and MetaImage: the same voxels at the same places as the data sets say and as dcm2niix writes."""

import gzip
import json
import pathlib
import shutil
import subprocess
import sys

import host_test
import numpy
import pydicom
from host_test import SAMPLES, WORK, edited, korvane, phantom, read_volume

try:
    import nibabel
except ImportError:
    print("skipped: python3-nibabel is not installed")
    sys.exit(77)

SMALL = ("--size", 24, "--slices", 7)


def run_export(source, form, name, *options, **more):
    return korvane("export", source, "--format", form, "--to", WORK / name, *options, **more)


def canonical(path):
    """Real values along right, front, head, and the affine of them."""
    image = nibabel.as_closest_canonical(nibabel.load(path))
    return numpy.asarray(image.dataobj, "f8"), image.affine


def corners(affine, shape):
    ends = numpy.array(numpy.meshgrid(*[(0, n - 1) for n in shape[:3]])).reshape(3, -1)
    return affine[:3, :3] @ ends + affine[:3, 3:]


def expected_places(sets):
    """Patient positions (RAS) of the first and last voxel of each slice."""
    places = []
    for ds in sets:
        row, column = numpy.reshape([float(x) for x in ds.ImageOrientationPatient], (2, 3))
        down, along = (float(x) for x in ds.PixelSpacing)
        first = numpy.array([float(x) for x in ds.ImagePositionPatient])
        last = first + row * along * (ds.Columns - 1) + column * down * (ds.Rows - 1)
        places.append([first * (-1, -1, 1), last * (-1, -1, 1)])
    return numpy.array(places)


def same_places(affine, shape, sets):
    """Whether each slice's ends lie where its data set says, in one order of the planes or the other."""
    ends = numpy.array([[affine @ (0, 0, k, 1), affine @ (shape[0] - 1, shape[1] - 1, k, 1)] for k in range(shape[2])])
    ends, expected = ends[:, :, :3], expected_places(sets)
    return min(abs(ends - expected).max(), abs(ends - expected[::-1]).max()) < 1e-3


def real_values(source):
    values, sets = read_volume(source)
    slope, intercept = float(sets[0].get("RescaleSlope", 1)), float(sets[0].get("RescaleIntercept", 0))
    return values * slope + intercept, sets


def formats():
    for source in (phantom("plain", *SMALL), phantom("signed", *SMALL, "--signed", "--oblique")):
        values, sets = real_values(source)
        for name, options in (("a/vol.nii", ()), ("vol.nii.gz", ()), ("vol", ("--gzip", "--jobs", 3))):
            out, _ = run_export(source, "nifti", name, *options)
            path = WORK / (name if "nii" in name else name + ".nii.gz")
            assert str(path) in out, out
            image = nibabel.load(path)
            voxels = numpy.asarray(image.dataobj, "f8").transpose(2, 1, 0)
            assert (voxels == values).all() or (voxels == values[::-1]).all(), (source, name)
            assert same_places(image.affine, image.shape, sets), image.affine
            assert abs(image.get_qform() - image.affine).max() < 1e-3
            assert int(image.header["sform_code"]) == 1 == int(image.header["qform_code"])
            if shutil.which("nifti_tool"):
                said = subprocess.run(["nifti_tool", "-check_hdr", "-infiles", str(path)], capture_output=True, check=True)
                assert b"is good" in said.stdout + said.stderr or b"GOOD" in said.stdout + said.stderr, said
        stored = numpy.asarray(nibabel.load(path).dataobj.get_unscaled())
        assert gzip.decompress(path.read_bytes())[352:] == stored.tobytes("F")  # one member, whole
        assert path.read_bytes()[3:8] == bytes(5)  # no name, no time
        run_export(source, "nrrd", "vol.nrrd", "--gzip")
        header, packed = (WORK / "vol.nrrd").read_bytes().split(b"\n\n", 1)
        assert gzip.decompress(packed) == stored.tobytes("F") and b"sizes: 24 24 7" in header, header
        run_export(source, "metaimage", "vol")
        data = (WORK / "vol.mha").read_bytes()
        assert data.endswith(b"ElementDataFile = LOCAL\n" + stored.tobytes("F")), data[:500]


def own_rescales():
    """Slices with rescales of their own become real values."""
    source = edited(phantom("plain", *SMALL), "own", lambda ds, n: setattr(ds, "RescaleSlope", str(n + 1)))
    values, sets = read_volume(source)
    expected = numpy.array([v * float(ds.RescaleSlope) + float(ds.RescaleIntercept) for v, ds in zip(values, sets)])
    run_export(source, "nifti", "own")
    image = nibabel.load(WORK / "own.nii")
    voxels = numpy.asarray(image.dataobj).transpose(2, 1, 0)
    assert voxels.dtype == numpy.float32 and ((voxels == expected).all() or (voxels == expected[::-1]).all())


def tilted():
    """The sheared matrix is exact, and no quaternion claims right angles."""
    def shift(ds, n):
        ds.ImagePositionPatient[1] = float(ds.ImagePositionPatient[1]) + n * 1.5

    source = edited(phantom("plain", *SMALL), "tilted", shift)
    run_export(source, "nifti", "tilted")
    image = nibabel.load(WORK / "tilted.nii")
    assert same_places(image.affine, image.shape, real_values(source)[1])
    assert (int(image.header["qform_code"]), int(image.header["sform_code"])) == (0, 1)


def streamed():
    """Planes that are read one after the other make the files, reports and previews that whole volumes make."""
    def numbered(ds, n):  # slices without a number are in the order of these
        ds.SOPInstanceUID = ds.file_meta.MediaStorageSOPInstanceUID = f"2.25.{n + 1000}"

    source = edited(phantom("streamed", *SMALL, "--signed", "--volumes", 2), "in order", numbered)
    many = edited(phantom("many", "--size", 64, "--slices", 300), "many in order", numbered)

    def raw(change):
        def edit(ds, n):
            ds.PixelData = change(numpy.frombuffer(ds.PixelData, "<u2"), n).astype("<u2").tobytes()
        return edit

    def padded(low, high):
        def edit(ds, _):
            ds.add_new("PixelPaddingValue", "SS", low)
            ds.add_new("PixelPaddingRangeLimit", "SS", high)
        return edit

    def left_justified(ds, n):
        raw(lambda words, _: words << 4)(ds, n)
        ds.HighBit = 15

    def other_padding(ds, n):
        padded(-900 if n % 2 else -901, -1024)(ds, n)

    sources = [source, many] + [edited(source, name, change) for name, change in (
        ("dirty", raw(lambda words, n: words & 0xFFF | (0x5000 if n % 5 == 1 else 0))),
        ("padded", padded(-900, -1024)), ("padding alone", padded(-2048, 2047)), ("paddings", other_padding), ("left", left_justified),
        ("scales", lambda ds, n: setattr(ds, "RescaleSlope", str(n % 3 + 1))),
        ("unnumbered", lambda ds, n: ds.__delattr__("InstanceNumber")))]
    for syntax in ("big", "rle", "jpegll"):
        korvane("convert", "--syntax", syntax, source, WORK / syntax)
        sources.append(WORK / syntax)
    for path in sources:
        made = []
        alone = [("one by one", ("--jobs", 1))] if path in sources[:2] else []
        for name, options in (*alone, ("ahead", ("--jobs", 3)), ("whole", ())):
            if name == "whole":  # the module begins with a slice that has 0, which is not the first
                first, second = sorted(path.iterdir(), key=lambda file: pydicom.dcmread(file).SOPInstanceUID)[:2]
                for file in (first, second):
                    ds = pydicom.dcmread(file)
                    ds.InstanceNumber = 0
                    if file == first:
                        del ds.InstanceNumber
                    ds.save_as(file)
            report = WORK / "report.json"
            _, err = run_export(path, "nifti", "streamed", "--report", report, "--sidecar", "--preview", *options)
            facts = json.loads(report.read_text("utf-8"))
            for volume in facts["volumes"]:
                volume["outputs"] = [output for output in volume["outputs"] if not output["file"].endswith(".png")]
            told = ["bits above the stored ones" in err, "different values for padding" in err]
            assert told == [path.name == "dirty", path.name == "paddings"] and "one scale" not in err, (path, name, err)
            made.append((name, facts["volumes"], told, *((WORK / f"streamed{end}").read_bytes() for end in (".nii", ".png"))))
        (_, *first), *rest = made
        for name, *others in rest:
            assert others == first, (path, name)


def damaged_behind():
    """A slice that cannot be decoded, found when others have been written: no file is left, and an old one stays."""
    source = phantom("plain rle", *SMALL)
    korvane("convert", "--syntax", "rle", source, WORK / "damaged rle")
    paths = sorted((WORK / "damaged rle").iterdir(), key=lambda path: pydicom.dcmread(path).InstanceNumber)
    ds = pydicom.dcmread(paths[-1])
    ds.PixelData = pydicom.encaps.encapsulate([b"\xFF" * 400])
    ds.save_as(paths[-1])
    folder = WORK / "kept"
    folder.mkdir()
    (folder / "v.nii").write_bytes(b"old")
    _, err = run_export(WORK / "damaged rle", "nifti", "kept/v.nii", status=1)
    assert paths[-1].name in err and "cannot decode" in err, err
    assert [path.read_bytes() for path in folder.iterdir()] == [b"old"], list(folder.iterdir())


def traces():
    """What is computed from several directions has none, and is a file of its own beside the weighted volumes."""
    def philips(ds, n):
        time = n // 7
        ds.Modality, ds.Manufacturer, ds.SOPClassUID = "MR", "Philips Medical Systems", "1.2.840.10008.5.1.4.1.1.4"
        imaging = ds.private_block(0x2001, "Philips Imaging DD 001", create=True)
        imaging.add_new(0x03, "FL", 1000.0 if time else 0.0)
        imaging.add_new(0x04, "CS", "NOI"[time])
        mr = ds.private_block(0x2005, "Philips MR Imaging DD 001", create=True)
        for i, value in enumerate((0.0, 0.6, 0.8)):
            mr.add_new(0xB0 + i, "FL", value if time else 0.0)

    source = edited(phantom("directions", *SMALL, "--volumes", 3), "traces", philips)
    korvane("export", source, "--all", "--format", "nifti", "--sidecar", "--to", WORK / "trace", "--name", "v")
    assert {path.name for path in (WORK / "trace").glob("*.nii")} == {"v.nii", "v_trace.nii"}, list((WORK / "trace").iterdir())
    assert (WORK / "trace" / "v.bval").read_text("utf-8") == "0 1000\n", (WORK / "trace" / "v.bval").read_bytes()
    values = numpy.array([pydicom.dcmread(source / f"{n:04}.dcm").pixel_array for n in range(14, 21)])
    trace = numpy.asarray(nibabel.load(WORK / "trace" / "v_trace.nii").dataobj.get_unscaled()).transpose(2, 1, 0)
    assert (trace == values).all() or (trace == values[::-1]).all()
    vectors = WORK / "trace" / "v_trace.bvec"
    assert not vectors.exists() or set(vectors.read_text("utf-8").split()) == {"0"}, vectors.read_text("utf-8")


def tiled(source, name):
    """Each volume of a series as the tiles of one image, the way a maker writes it."""
    volumes = {}
    for path in source.iterdir():
        ds = pydicom.dcmread(path)
        volumes.setdefault(int(ds.AcquisitionNumber), []).append(ds)
    (WORK / name).mkdir()
    for time, sets in sorted(volumes.items()):
        sets.sort(key=lambda ds: float(ds.ImagePositionPatient[2]))
        image = numpy.zeros((3 * 24, 3 * 24), "<u2")
        items = []
        for n, ds in enumerate(sets):
            down, along = 24 * (n // 3), 24 * (n % 3)
            image[down:down + 24, along:along + 24] = numpy.frombuffer(ds.PixelData, "<u2").reshape(24, 24)
            items.append(pydicom.Dataset())
            items[-1].ImagePositionPatient = ds.ImagePositionPatient
        one = sets[0]
        one.Rows = one.Columns = 3 * 24
        one.ImageType = ["ORIGINAL", "PRIMARY", "M", "VFRAME"]
        one.InstanceNumber = time
        one.PixelData = image.tobytes()
        block = one.private_block(0x0065, "Image Private Header", create=True)
        block.add_new(0x50, "DS", str(len(sets)))
        block.add_new(0x51, "SQ", pydicom.Sequence(items))
        one.save_as(WORK / name / f"{time:02}.dcm")
    return WORK / name


def times():
    """Volumes, read side by side, lie in the file one behind the other: slices, compressed ones, and tiles of one image each."""
    source = phantom("series", *SMALL, "--volumes", 12)
    report = WORK / "report.json"
    out, err = run_export(source, "nifti", "times.nii.gz", "--report", report)
    image = nibabel.load(WORK / "times.nii.gz")
    assert image.shape == (24, 24, 7, 12) and "7 x 12 voxels" in out and "volume 1" not in err, (out, err)
    for volume in range(0, 12, 5):
        run_export(source, "nifti", "one", "--volume", volume + 1)
        alone = nibabel.load(WORK / "one.nii")
        assert (numpy.asarray(image.dataobj)[..., volume] == numpy.asarray(alone.dataobj)).all(), volume
    (volume,) = json.loads(report.read_text("utf-8"))["volumes"]
    assert volume["times"] == 12 and len(volume["inputs"]) == 84
    tiles = tiled(source, "tiles")
    for number, path in enumerate((source, tiles)):
        korvane("convert", "--syntax", "jpegll", path, WORK / f"jpegll{number}")
        for folder in (path, WORK / f"jpegll{number}"):
            for jobs in (1, 3):
                run_export(folder, "nifti", "again", "--jobs", jobs)
                again = nibabel.load(WORK / "again.nii")
                assert (numpy.asarray(again.dataobj) == numpy.asarray(image.dataobj)).all(), (folder, jobs)
                assert abs(again.affine - image.affine).max() < 1e-4, (folder, jobs)


def images():
    """A derived series: each plane with its values and in its place; resampled, one that is even."""
    source = edited(phantom("uneven", *SMALL, "--uneven"), "uneven-own", lambda ds, n: setattr(ds, "RescaleSlope", str(n + 1)))

    def derived(name):
        return sorted((pydicom.dcmread(path) for path in WORK.glob(name + "-0*.dcm")), key=lambda ds: float(ds.ImagePositionPatient[2]))

    report = WORK / "images.json"
    run_export(source, "dicom", "kept", "--report", report)
    files = {ds.SOPInstanceUID: ds for ds in map(pydicom.dcmread, source.iterdir())}
    for ds in derived("kept"):
        of = files[ds.SourceImageSequence[0].ReferencedSOPInstanceUID]
        assert (ds.pixel_array == of.pixel_array).all() and ds.RescaleSlope == of.RescaleSlope and ds.WindowCenter == of.WindowCenter
        assert ds.ImagePositionPatient == of.ImagePositionPatient and ds.SliceThickness == of.SliceThickness
        assert ds.StudyInstanceUID == of.StudyInstanceUID and ds.SeriesInstanceUID != of.SeriesInstanceUID
    told = json.loads(report.read_text())
    assert len(told["volumes"][0]["outputs"]) == len(files) and "each in its place" in told["irregular"]["done"], told
    run_export(source, "dicom", "even", "--irregular", "resample")
    even = derived("even")
    assert numpy.ptp(numpy.diff([float(ds.ImagePositionPatient[2]) for ds in even])) < 1e-3 and len(even) != len(files)
    assert {len(ds.SourceImageSequence) for ds in even} <= {1, len(files)}
    # Files that are there are images of somebody's: none is replaced, and none is left half-written.
    before = {path: path.read_bytes() for path in WORK.glob("*.dcm")}
    korvane("export", source, "--format", "dicom", "--to", f"file:{WORK / 'kept'}", status=1)
    korvane("export", source, "--format", "dicom", "--to", f"file:{WORK / 'no'}", "--sidecar", status=2)
    assert before == {path: path.read_bytes() for path in WORK.glob("*.dcm")} and not list(WORK.glob(".*.part"))


def beside_dcm2niix():
    """Both taken to the closest canonical axes: the same values, the same affine."""
    if not shutil.which("dcm2niix"):
        print("skipped: dcm2niix is not installed")
        return
    # Not of signed values in 12 bits, whose sign that program does not extend.
    sources = [phantom("plain", *SMALL), phantom("oblique", *SMALL, "--oblique"), phantom("times", *SMALL, "--volumes", 3)]
    if SAMPLES.is_dir():
        sources.append(SAMPLES / "mr-epi-5x30")
    for number, source in enumerate(sources):
        folder = WORK / f"peer{number}"
        folder.mkdir()
        subprocess.run(["dcm2niix", "-x", "i", "-p", "n", "-f", "peer", "-o", folder, source], capture_output=True, check=True)
        theirs = sorted(folder.glob("*.nii"))
        assert len(theirs) == 1, theirs
        run_export(source, "nifti", "ours")
        values, affine = canonical(WORK / "ours.nii")
        expected, reference = canonical(theirs[0])
        assert values.shape == expected.shape, (source, values.shape, expected.shape)
        assert numpy.array_equal(values, expected), (source, abs(values - expected).max())
        apart = abs(corners(affine, values.shape) - corners(reference, values.shape)).max()
        print(f"{pathlib.Path(source).name}: {values.shape}, corners {apart:.1e} mm apart")
        assert apart < 1e-3, (source, affine, reference)


host_test.run(formats, own_rescales, tilted, streamed, damaged_behind, traces, times, images, beside_dcm2niix)
