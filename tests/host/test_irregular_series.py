#!/usr/bin/env python3
"""Series that are irregular in one way each: what is made of them is right, refused, or told."""

import json
import pathlib
import shutil
import subprocess

try:
    import resource
except ImportError:  # which Windows lacks
    resource = None

import numpy
import pydicom
from pydicom.uid import RLELossless

import host_test
from host_test import SAMPLES, WORK, edited, info, korvane, phantom

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
    assert "order of trigger time" in kinds["ordered by time"]["text"] and "volumes guessed" not in kinds, kinds
    _, kinds = found(edited(phantom("one", *SMALL), "mixed", lambda ds, n: setattr(ds, "EchoNumbers", n % 2 + 1)))
    assert "echo number (2 values)" in kinds["keys mixed"]["text"]


def assigned(folder, wanted):
    """Each volume that is exported has the slices that `wanted` (file number -> volume) says, missing ones left out."""
    paths = sorted(folder.iterdir())
    for volume in sorted(set(wanted.values())):
        (exported, *_) = host_test.export(folder, "--volume", volume + 1)
        expected = [host_test.stored_values(pydicom.dcmread(path))[0] for path in paths
                    if wanted[int(path.stem)] == volume]
        assert exported.voxels.shape[0] == len(expected), (folder.name, volume, exported.voxels.shape)
        assert (exported.voxels == numpy.array(expected) - 32767).all(), (folder, volume)


def times():
    """What tells volumes apart, each with some images missing, which must not shift the others."""
    source = phantom("source", *SMALL, "--volumes", 4)
    volumes = {n: n // 6 for n in range(24)}

    def plain(ds, _):
        for name in ("TemporalPositionIdentifier", "AcquisitionNumber", "AcquisitionTime", "ContentTime", "EchoNumbers"):
            if name in ds:
                delattr(ds, name)

    cases = {
        "echoes": lambda ds, n: setattr(ds, "EchoNumbers", n // 6 + 1),
        "echo times": lambda ds, n: setattr(ds, "EchoTime", 5.5 * (n // 6 + 1)),
        "b-values": lambda ds, n: ds.add_new(0x00189087, "FD", 500.0 * (n // 6)),
        "kinds": lambda ds, n: setattr(ds, "ImageType", ["ORIGINAL", "PRIMARY", "MPRI"[n // 6], f"STEP{n % 5}"]),
        "trigger times": lambda ds, n: setattr(ds, "TriggerTime", str(1000 * (n // 6) + 100 * (n * 5 % 6))),
        "clock": lambda ds, n: setattr(ds, "AcquisitionTime", f"1200{n // 6 * 10 + n * 5 % 6:02}.5"),
        "instance numbers": lambda ds, n: None,
        "by position": lambda ds, n: setattr(ds, "InstanceNumber", n % 6 * 4 + n // 6 + 1),
    }
    for name, change in cases.items():
        def both(ds, n, change=change):
            plain(ds, n)
            if name != "instance numbers":
                ds.InstanceNumber = 1 + n * 7 % 24
            change(ds, n)

        folder = edited(source, name, both)
        assigned(folder, volumes)
        for gone in (0, 9, 22):
            (folder / f"{gone:04}.dcm").unlink()
        assigned(folder, {n: volume for n, volume in volumes.items() if n not in (0, 9, 22)})
        series, kinds = found(folder)
        assert "volumes guessed" not in kinds, (name, kinds)
        text = kinds["incomplete volumes"]["text"]
        assert all(f"volume {n} lacks 1 of 6 positions" in text for n in (1, 2, 4)), text
    # Two echoes that share one position alone.
    def apart(ds, n):
        plain(ds, n)
        ds.EchoNumbers, ds.InstanceNumber = n // 6 % 2 + 1, n + 1
        ds.ImagePositionPatient[2] += 25 * (n // 6 % 2)

    two = edited(phantom("two", *SMALL, "--volumes", 2), "apart", apart)
    assigned(two, {n: n // 6 for n in range(12)})
    _, kinds = found(edited(source, "guess", lambda ds, n: (plain(ds, n), setattr(ds, "InstanceNumber", 1))))
    assert "a guess" in kinds["volumes guessed"]["text"]


def same_names():
    """Images that share a UID and differ are kept and named, at one position and at several."""
    for apart in (True, False):
        def share(ds, n, apart=apart):
            ds.SOPInstanceUID = "1.2.3" if n in (1, 4) else f"1.2.3.{n}"
            if not apart and n == 4:
                ds.ImagePositionPatient, ds.InstanceNumber = [*ds.ImagePositionPatient[:2], 5], 2
            ds.PixelData = numpy.random.default_rng(n).integers(0, 900, (16, 16)).astype("<u2").tobytes()
        series, kinds = found(edited(phantom(f"named{apart}", *SMALL), f"shared{apart}", share))
        assert len(series["files"]) == 6 and len(kinds["same UID"]["files"]) == 2, kinds


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
        if host_test.WINDOWS or b"__asan_init" in pathlib.Path(host_test.KORVANE[-1]).read_bytes():
            continue  # which has no such limit, or takes terabytes of addresses for itself
        limit = lambda: resource.setrlimit(resource.RLIMIT_AS, (600 << 20, 600 << 20))
        limited = korvane("export", WORK / "claim.dcm", "--format", "analyze", "--to", f"file:{WORK}/c", status=1, preexec_fn=limit)[1]
        assert limited == err, limited


def far():
    """A slice beyond any patient is refused with its distance; a single slice says that nothing tells its thickness."""
    def move(height):
        def change(ds, n):
            if n == 0:
                ds.ImagePositionPatient = [0, 0, height]
        return change

    source = phantom("near", *SMALL)
    for height in (-1e9, 1e25):
        err = korvane("export", edited(source, f"far{height}", move(height)), "--format", "nrrd", "--to", WORK / "v", status=1)[1]
        assert "the slices reach over" in err and not list(WORK.glob("v.*")), err
    (path,) = phantom("single", "--size", 16, "--slices", 1).iterdir()
    for thickness in ("5", None):
        ds = pydicom.dcmread(path)
        for keyword in ("SliceThickness", "SpacingBetweenSlices"):
            if keyword in ds:
                delattr(ds, keyword)
        if thickness:
            ds.SliceThickness = thickness
        ds.save_as(WORK / "single.dcm")
        report, _ = exported(WORK / "single.dcm", "nrrd")
        assert ("thickness unknown" in report["kinds"]) == (thickness is None), report["findings"]
        if thickness is None:
            assert report["kinds"]["thickness unknown"]["lengths"] == [report["volumes"][0]["spacing"][2]], report


def nuclear():
    """Frames of nuclear medicine are told apart by their vectors, and lie where their detector says."""
    (path,) = phantom("frames", "--size", 16, "--slices", 1).iterdir()
    values = numpy.random.default_rng(8).integers(0, 900, (6, 16, 16)).astype("<u2")

    def made(kind, vectors, spacing=-2.5, position=(5, 6, 7)):
        ds = pydicom.dcmread(path)
        ds.Modality, ds.NumberOfFrames, ds.PixelData, ds.ImageType = "NM", 6, values.tobytes(), ["ORIGINAL", "PRIMARY", kind]
        for keyword in ("ImagePositionPatient", "ImageOrientationPatient", "RescaleSlope", "RescaleIntercept"):
            delattr(ds, keyword)
        detector = pydicom.Dataset()
        detector.ImageOrientationPatient = [1, 0, 0, 0, 0, -1]
        if position:
            detector.ImagePositionPatient = list(position)
        ds.DetectorInformationSequence = pydicom.Sequence([detector])
        ds.SpacingBetweenSlices = spacing
        tags = {"slot": 0x00540070, "slice": 0x00540080, "view": 0x00540090, "window": 0x00540010, "phase": 0x00540030}
        ds.FrameIncrementPointer = [tags[name] for name in vectors]
        for name, numbers in vectors.items():
            ds.add_new(tags[name], "US", numbers)
        ds.save_as(WORK / "nm.dcm")
        return WORK / "nm.dcm"

    gated = made("RECON GATED TOMO", {"slice": [1, 2, 3, 1, 2, 3], "slot": [1, 1, 1, 2, 2, 2]})
    assert found(gated)[1]["repeated positions"]["count"] == 2
    for slot in (0, 1):
        report, _ = exported(gated, "nrrd", "--volume", slot + 1)
        places = numpy.array(report["volumes"][0]["slicePositions"])
        # The normal of these cosines is to the back; a negative distance goes to the front.
        assert numpy.allclose(sorted(places[:, 1]), [1, 3.5, 6], atol=1e-4) and numpy.allclose(places[:, [0, 2]], [5, 7], atol=1e-4), places
        order = [round((6 - y) / 2.5) + 3 * slot for y in places[:, 1]]
        assert (nrrd()[0] == values[order]).all(), order
    dual = made("DYNAMIC", {"window": [1, 1, 1, 2, 2, 2], "phase": [1, 2, 3] * 2}, position=None)
    told = found(dual)[1]["frames are times"]
    assert told["count"] == 6 and "by their vectors" in told["text"], told
    exported(dual, "nrrd", "--volume", 5)
    assert (nrrd()[0] == values[4]).all()
    for source in (made("TOMO", {"view": [1, 2, 3, 4, 5, 6]}), made("RECON TOMO", {"slice": [1, 2, 3, 4, 5, 6]}, position=None)):
        kinds = set(found(source)[1])
        assert kinds & {"frames are times", "frames unplaced"}, (source, kinds)


def enhanced(folder, name, compressed):
    """The same slices as frames of one object with functional groups, in an order of their own."""
    sets = [pydicom.dcmread(path) for path in sorted(folder.iterdir())]
    sets = sets[1::2] + sets[::2]

    def item(**fields):
        ds = pydicom.Dataset()
        for keyword, value in fields.items():
            setattr(ds, keyword, value)
        return pydicom.Sequence([ds])

    one = pydicom.dcmread(sorted(folder.iterdir())[0])
    groups = []
    for ds in sets:
        frame = pydicom.Dataset()
        frame.PlanePositionSequence = item(ImagePositionPatient=ds.ImagePositionPatient)
        frame.PlaneOrientationSequence = item(ImageOrientationPatient=ds.ImageOrientationPatient)
        frame.PixelMeasuresSequence = item(PixelSpacing=ds.PixelSpacing, SliceThickness=ds.SliceThickness)
        frame.PixelValueTransformationSequence = item(RescaleIntercept=ds.RescaleIntercept, RescaleSlope=ds.RescaleSlope)
        groups.append(frame)
    for keyword in ("ImagePositionPatient", "ImageOrientationPatient", "PixelSpacing", "SliceThickness", "RescaleSlope",
                    "RescaleIntercept", "SpacingBetweenSlices"):
        if keyword in one:
            delattr(one, keyword)
    one.SOPClassUID = one.file_meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.2.1"
    one.NumberOfFrames, one.PerFrameFunctionalGroupsSequence = len(sets), pydicom.Sequence(groups)
    one.PixelData = b"".join(ds.PixelData for ds in sets)
    if compressed:
        one.compress(RLELossless)
    (WORK / name).mkdir()
    one.save_as(WORK / name / "object.dcm")
    return WORK / name


def variants():
    """What is irregular about slices is so in one object of frames, native and compressed, and its voxels are where they are."""
    def moved(change):
        def make(ds, n):
            ds.PixelData = numpy.random.default_rng(n).integers(0, 900, (16, 16)).astype("<u2").tobytes()
            ds.ImagePositionPatient = [0, 0, 4 * n]
            change(ds, n)
        return make

    cases = {
        "tilt": lambda ds, n: setattr(ds, "ImagePositionPatient", [0, 1.5 * n, 4 * n]),
        "uneven gaps": lambda ds, n: setattr(ds, "ImagePositionPatient", [0, 0, 4 * n + (n > 3) * 1.7]),
        "missing slices": lambda ds, n: setattr(ds, "ImagePositionPatient", [0, 0, 4 * n + (n > 3) * 8]),
        "shifted sideways": lambda ds, n: setattr(ds, "ImagePositionPatient", [3 * (n == 2), 0, 4 * n]),
        "rescale differs": lambda ds, n: setattr(ds, "RescaleSlope", str(1 + 0.25 * n)),
        "pixels not square": lambda ds, n: setattr(ds, "PixelSpacing", [1.5, 0.5]),
    }
    for kind, change in cases.items():
        plain = edited(phantom(f"{kind}-source", *SMALL), kind, moved(change))
        truth = {}
        for path in plain.iterdir():
            ds = pydicom.dcmread(path)
            truth[tuple(map(float, ds.ImagePositionPatient))] = host_test.stored_values(ds)[0] * float(ds.RescaleSlope) + float(ds.RescaleIntercept)
        packed = edited(plain, f"{kind}-rle", lambda ds, n: ds.compress(RLELossless))
        for folder in (plain, packed, enhanced(plain, f"{kind}-frames", False), enhanced(plain, f"{kind}-frames-rle", True)):
            report, _ = exported(folder, "nifti")
            assert kind in report["kinds"], (folder, report["kinds"].keys())
            (volume,) = report["volumes"]
            raw = (WORK / "vol.nii").read_bytes()
            slope, intercept = numpy.frombuffer(raw[112:120], "<f4")
            dtype = {2: "u1", 4: "<i2", 512: "<u2", 16: "<f4"}[int(numpy.frombuffer(raw[70:72], "<i2")[0])]
            voxels = numpy.frombuffer(raw[352:], dtype).reshape(6, 16, 16) * (slope or 1) + intercept
            assert len(volume["slicePositions"]) == 6
            for plane, place in zip(voxels, volume["slicePositions"]):
                nearest = min(truth, key=lambda at: numpy.linalg.norm(numpy.array(at) - place))
                assert numpy.linalg.norm(numpy.array(nearest) - place) < 1e-3, (folder, place)
                assert numpy.allclose(plane, truth[nearest], rtol=1e-5), (folder, place)


def exported(folder, form, *options):
    """(the report, what was said) of an export to WORK/vol."""
    report = WORK / "report.json"
    err = korvane("export", folder, "--format", form, "--to", f"file:{WORK}/vol", "--report", report, *options)[1]
    report = json.loads(report.read_text())
    report["kinds"] = {finding["kind"]: finding for finding in report["findings"]}
    return report, err


def nrrd():
    """(voxels by plane, row, column; origin; the three steps): read without any library."""
    header, _, data = (WORK / "vol.nrrd").read_bytes().partition(b"\n\n")
    fields = dict(line.split(": ", 1) for line in header.decode().splitlines() if ": " in line)
    def vectors(text):
        return numpy.array([[float(x) for x in part.split(",")] for part in text.strip("() ").replace(") (", ")(").split(")(")])
    kind = {"short": "<i2", "unsigned short": "<u2", "int16": "<i2", "uint16": "<u2"}[fields["type"]]
    sizes = [int(size) for size in fields["sizes"].split()]
    return (numpy.frombuffer(data, kind).reshape(sizes[::-1]), vectors(fields["space origin"])[0],
            vectors(fields["space directions"]))


def expect_sampled(folder, fill, tolerance=0.53):
    """Each voxel of vol.nrrd is the bilinear sample of the plane at its height; how many there are without data."""
    sets = sorted((pydicom.dcmread(path, force=True) for path in folder.iterdir() if path.name != "DIRFILE"),
                  key=host_test.height)
    cosines = numpy.array(sets[0].ImageOrientationPatient, float)
    row, column, normal = cosines[:3], cosines[3:], numpy.cross(cosines[:3], cosines[3:])
    places = numpy.array([ds.ImagePositionPatient for ds in sets], float)
    between_rows, between_columns = map(float, sets[0].PixelSpacing)
    voxels, origin, steps = nrrd()
    empty = 0
    for k, plane in enumerate(voxels):
        j, i = numpy.mgrid[:plane.shape[0], :plane.shape[1]]
        points = origin + i[..., None] * steps[0] + j[..., None] * steps[1] + k * steps[2]
        off = (places - points[0, 0]) @ normal
        source = int(numpy.argmin(abs(off)))
        assert abs(off[source]) < 2e-3, off
        values = host_test.stored_values(sets[source])[0].astype(float)
        x, y = ((points - places[source]) @ axis / size for axis, size in ((row, between_columns), (column, between_rows)))
        x, y = (numpy.where(abs(at - at.round()) < 1e-3, at.round(), at) for at in (x, y))
        inside = (x >= 0) & (x <= values.shape[1] - 1) & (y >= 0) & (y <= values.shape[0] - 1)
        x0, y0 = (numpy.clip(numpy.floor(at).astype(int), 0, n - 2) for at, n in ((x, values.shape[1]), (y, values.shape[0])))
        across = [values[y0 + dy, x0] * (1 - x + x0) + values[y0 + dy, x0 + 1] * (x - x0) for dy in (0, 1)]
        error = abs(across[0] * (1 - y + y0) + across[1] * (y - y0) - plane)[inside]
        assert error.size == values.size or error.max() <= tolerance, error.max()
        assert (plane[~inside] == fill).all()
        empty += int((~inside).sum())
    return empty


def leaning(name, padding=None, heights=(0, 4, 8, 12, 16, 20), shift=2.2):
    """Random voxels, pixels three times as high as wide, each slice further to the back and, by less, to the left."""
    generator = numpy.random.default_rng(3)

    def change(ds, n):
        ds.PixelSpacing, ds.PixelRepresentation = [1.5, 0.5], 1
        ds.ImageOrientationPatient = [0.6, 0.8, 0, -0.8, 0.6, 0]
        ds.ImagePositionPatient = [-5 + 0.1 * heights[n], shift / 4 * heights[n], heights[n]]
        ds.PixelData = generator.integers(-900, 2000, (16, 16)).astype("<i2").tobytes()
        if padding is not None:
            ds.add_new(0x00280120, "SS", padding)
    return edited(phantom(name + "-source", *SMALL), name, change)


def tilts():
    folder = leaning("tilt", padding=-1500)
    size = float(numpy.hypot(0.1 * 20, 2.2 / 4 * 20))
    for form, error in (("vox", size), ("nrrd", 0)):
        report, err = exported(folder, form)
        assert err.count(f"the file is sheared by {size:.4f} mm") == 1, err
        assert numpy.allclose(report["kinds"]["file sheared"]["lengths"], [size, error]), report["findings"]
    err = korvane("export", folder, "--format", "vox", "--to", f"file:{WORK}/v", "--irregular", "reject", status=1)[1]
    assert "sideways" in err, err
    for folder, fill in ((folder, -1500), (leaning("lowest"), None)):
        report, err = exported(folder, "nrrd", "--irregular", "resample")
        (volume,) = report["volumes"]
        lowest = min(int(host_test.stored_values(pydicom.dcmread(path)).min()) for path in folder.iterdir())
        empty = expect_sampled(folder, lowest if fill is None else fill)
        assert volume["filled"] == {"voxels": empty, "value": lowest if fill is None else fill}, volume["filled"]
        assert f"{empty} voxels without data" in err and report["kinds"]["voxels filled"]["count"] == empty
        steps = numpy.diff(volume["slicePositions"], axis=0)
        assert numpy.allclose(steps[:, :2], 0, atol=1e-4) and "file sheared" not in report["kinds"], steps
    folder = leaning("both", heights=(0, 4, 8, 13, 17, 21))
    report, _ = exported(folder, "nrrd", "--irregular", "resample")
    steps = numpy.diff(report["volumes"][0]["slicePositions"], axis=0)
    assert numpy.allclose(steps, steps[0], atol=1e-3) and numpy.allclose(steps[:, :2], 0, atol=1e-4), steps
    voxels = nrrd()[0]
    for plane, path in ((0, "0005.dcm"), (-1, "0000.dcm")):  # the first has its voxels as they are
        lower, upper = numpy.percentile(host_test.stored_values(pydicom.dcmread(folder / path)), [0, 100])
        assert voxels[plane].min() >= min(lower, voxels.min()) and voxels[plane].max() <= upper
    values = set(map(bytes, host_test.stored_values(pydicom.dcmread(folder / "0005.dcm"))[0].astype("<i2")))
    assert values <= {bytes(line[x:x + 16]) for line in voxels[0] for x in range(len(line) - 15)}


def tilted_sample():
    folder, tool = SAMPLES / "vendors/philips-ct-tilted", shutil.which("dcm2niix")
    if not folder.is_dir():
        print("skipped: there are no sample files here")
        return
    report, _ = exported(folder, "nrrd", "--series", 2, "--irregular", "resample")
    empty = expect_sampled(folder, 0)
    assert report["volumes"][0]["filled"]["voxels"] == empty
    if tool is None:
        print("skipped: dcm2niix is not installed")
        return
    subprocess.run([tool, "-f", "peer", "-o", WORK, folder], check=True, capture_output=True)
    header = (WORK / "peer_Tilt_1.nii").read_bytes()
    own = nrrd()[0][::-1].astype(float)
    peer = numpy.frombuffer(header[352:], "<i2").reshape(own.shape)[:, ::-1]
    rows = abs(own - peer).max(axis=2)
    assert ((rows > 1).sum(axis=1) <= 1).all(), rows  # the row that lies on the edge of the data is filled in one of them


def oblong():
    """Pixels three times as high as wide are so in every format, and in memory."""
    folder = edited(phantom("plain", *SMALL), "oblong", lambda ds, n: setattr(ds, "PixelSpacing", [1.5, 0.5]))
    expected = [0.5, 1.5]
    for form in ("analyze", "bob", "vox", "nifti", "nrrd", "metaimage"):
        report, _ = exported(folder, form)
        assert report["volumes"][0]["spacing"][:2] == expected, form
    assert list(host_test.Analyze(WORK / "vol").spacing[:2]) == expected
    assert list(numpy.frombuffer((WORK / "vol.nii").read_bytes()[80:88], "<f4")) == expected
    assert numpy.allclose(numpy.linalg.norm(nrrd()[2], axis=1)[:2], expected)
    assert "ElementSpacing = 0.5 1.5 " in (WORK / "vol.mha").read_bytes().decode("latin1")
    assert b"0.500000  0.0 0.0 0.0\n0.0 1.500000" in (WORK / "vol.vox").read_bytes()
    text = (WORK / "vol.ImageInfo").read_text()
    assert "XPixelDim = 0.050000" in text and "YPixelDim = 0.150000" in text, text


def sizes():
    """What says how large pixels are; none is known where nothing does."""
    source = phantom("sized", *SMALL)

    def without(ds, n):
        del ds.PixelSpacing

    def detector(ds, n):
        ds.ImagerPixelSpacing = [0.4, 0.2]
        del ds.PixelSpacing

    def region(ds, n):
        item = pydicom.Dataset()
        item.RegionSpatialFormat, item.PhysicalUnitsXDirection, item.PhysicalUnitsYDirection = 1, 3, 3
        item.PhysicalDeltaX, item.PhysicalDeltaY = 0.025, -0.05
        ds.SequenceOfUltrasoundRegions = [item]
        del ds.PixelSpacing

    def calibrated(ds, n):
        ds.ImagerPixelSpacing, ds.PixelSpacingCalibrationType = [0.4, 0.4], "FIDUCIAL"

    def aspect(ds, n):
        ds.PixelAspectRatio = ["2", "1"]
        del ds.PixelSpacing

    for change, kind, spacing, used in (
            (without, "spacing unknown", None, [1, 1]), (detector, "spacing at detector", None, [1, 2]),
            (region, "spacing calibrated", [0.5, 0.25], [0.25, 0.5]), (aspect, "spacing unknown", None, [1, 2]),
            (calibrated, "spacing calibrated", [1.5625] * 2, [1.5625] * 2)):
        folder = edited(source, change.__name__, change)
        series, kinds = found(folder)
        if change is calibrated:
            spacing = series["pixelSpacing"]
            used = spacing[::-1]
        assert kind in kinds and series.get("pixelSpacing") == spacing, (change.__name__, series)
        assert ("pixel spacing   unknown" in korvane("info", folder)[0]) == (spacing is None)
        assert numpy.allclose(exported(folder, "vox")[0]["volumes"][0]["spacing"][:2], used), change.__name__

    def lowest(ds, n):  # of the slice that assembly takes no value from
        ds.PixelSpacing = [0.875, 0.875] if n == 5 else [0.5, 0.75]

    folder = edited(source, "differs", lowest)
    for path in folder.iterdir():  # a legal blank
        path.write_bytes(path.read_bytes().replace(b"0.5\\0.75", b"0.5 \\0.7"))
    series, kinds = found(folder)
    assert series["pixelSpacing"] == [0.5, 0.7] and kinds["spacing differs"]["lengths"] == [0.5, 0.7], series
    assert numpy.allclose(exported(folder, "vox")[0]["volumes"][0]["spacing"][:2], [0.7, 0.5])


def axes():
    """Crooked directions are told with what they move; the gaps are those of the normal that is used."""
    source = phantom("straight", *SMALL)

    def crooked(ds, n):
        ds.ImageOrientationPatient = [1, 0, 0, 0.5, 0.8660254, 0]

    folder = edited(source, "crooked", crooked)
    series, kinds = found(folder)
    report, _ = exported(folder, "nrrd")
    assert abs(kinds["axes not square"]["angles"][0] - 60) < 1e-3 and kinds["axes not square"]["lengths"][0] > 1
    assert numpy.allclose(numpy.diff([p[2] for p in report["volumes"][0]["slicePositions"]]), -series["gaps"]["usual"])
    assert abs(report["volumes"][0]["spacing"][2] - series["gaps"]["usual"]) < 1e-4
    folder = edited(source, "none", lambda ds, n: setattr(ds, "ImageOrientationPatient", [0] * 6))
    series, kinds = found(folder)
    assert "taken as axial" in kinds["axes not square"]["text"] and "orientation" not in series
    report, _ = exported(folder, "vox")
    assert abs(report["volumes"][0]["spacing"][2] - series["gaps"]["usual"]) < 1e-4


def pictures():
    """Oblique pictures of a tilted stack are as large as the cut through all of it."""
    folder = leaning("seen")
    ends = [pydicom.dcmread(folder / name) for name in ("0000.dcm", "0005.dcm")]
    across, down = numpy.array([0.6, 0.8, 0]), numpy.array([-0.8, 0.6, 0])
    corner = {(i, j, k): numpy.array(ds.ImagePositionPatient, float) + i * 15 * 0.5 * across + j * 15 * 1.5 * down
              for k, ds in enumerate(ends) for i in (0, 1) for j in (0, 1)}
    middle = numpy.mean(list(corner.values()), axis=0)
    for normal, right in ((down, across), (across, down)):
        cut = []
        for name, point in corner.items():
            for other, end in corner.items():
                near, far = (point - middle) @ normal, (end - middle) @ normal
                if sum(x != y for x, y in zip(name, other)) == 1 and near * far <= 0 and near != far:
                    cut.append(point + near / (near - far) * (end - point) - middle)
        reach = max(abs(point @ right) for point in cut)
        out = korvane("slice", folder, "--normal", ",".join(map(str, normal)), "--pixel", 0.25, "-o", WORK / "cut.png")[0]
        width = int(out.split(" x ")[0].split()[-1])
        assert -0.01 <= (width - 1) * 0.125 - reach < 0.26, (width, reach)


def frames():
    """A multi-frame object lies where its offsets say, native and compressed; a thickness is no distance."""
    (path,) = phantom("frames", "--size", 16, "--slices", 1).iterdir()
    folder = WORK / "objects"
    folder.mkdir()
    values = numpy.random.default_rng(5).integers(0, 900, (4, 16, 16)).astype("<u2")
    for name, spacing in (("native", -2.5), ("compressed", -2.5), ("thickness", None)):
        ds = pydicom.dcmread(path)
        ds.NumberOfFrames, ds.PixelData, ds.SliceThickness = 4, values.tobytes(), 3
        ds.ImageOrientationPatient, ds.ImagePositionPatient = [1, 0, 0, 0, 0, -1], [1, 2, 3]
        if spacing is not None:
            ds.SpacingBetweenSlices = spacing
        if name == "compressed":
            ds.compress(RLELossless)
        ds.save_as(WORK / "one.dcm")
        report, _ = exported(WORK / "one.dcm", "nrrd")
        assert ("distance guessed" in report["kinds"]) == (spacing is None), report["findings"]
        heights = [position[1] for position in report["volumes"][0]["slicePositions"]]
        assert numpy.allclose(sorted(heights), sorted(2 + (spacing or 3) * k for k in range(4)), atol=1e-4), (name, heights)
        order = [round((height - 2) / (spacing or 3)) for height in heights]
        assert (nrrd()[0] == values[order]).all(), (name, heights)


def letters():
    """Without direction cosines edges are named by Patient Orientation, and no size is claimed."""
    (path,) = phantom("projection", "--size", 16, "--slices", 1).iterdir()
    ds = pydicom.dcmread(path)
    for keyword in ("ImageOrientationPatient", "ImagePositionPatient", "PixelSpacing"):
        delattr(ds, keyword)
    ds.PatientOrientation = ["A", "F"]
    ds.save_as(WORK / "projection.dcm")
    out = korvane("slice", WORK / "projection.dcm", "--view", "axial", "-o", WORK / "p.png")[0]
    assert "right of the picture is A, its lower edge F" in out and "unknown size" in out, out
    assert b"pHYs" not in (WORK / "p.png").read_bytes()
    assert "pHYs" in (korvane("slice", path, "--view", "axial", "-o", WORK / "q.png") and
                      (WORK / "q.png").read_bytes().decode("latin1"))
    report, _ = exported(WORK / "projection.dcm", "vox")
    assert report["volumes"][0]["pixelSize"] == "unknown"


host_test.run(frames, letters, keys, same_names, times, positions, pixels, claims, far, nuclear, variants, tilts, tilted_sample, oblong, sizes, axes, pictures)
