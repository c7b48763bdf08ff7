#!/usr/bin/env python3
"""Every series of the sample files, and some made ones that tilt: each voxel of its exports, in every format and by every
policy, and each pixel of its three views, is what pydicom and numpy make of the files, or a finding tells why not. The
figure at the end counts differences without a word.

Each series is exported in one format by one policy, another one than the series before it; in all of them where
KORVANE_CHECK_ALL is set."""

import itertools
import json
import os
import re
import sys

import host_test
import numpy
import pydicom
from host_test import SAMPLES, SKIPPED, WORK, edited, korvane, phantom

try:
    import nibabel
    import PIL.Image
except ImportError:
    print("skipped: python3-nibabel or python3-pil is not installed")
    sys.exit(SKIPPED)

EVERYTHING = "KORVANE_CHECK_ALL" in os.environ
CASES = list(itertools.product(("nifti", "analyze", "bob", "vox", "nrrd", "metaimage"), ("keep", "resample", "split", "reject")))
UNPLACED = {"no positions", "frames unplaced", "distance guessed", "frames are times", "no orientation", "axes not square"}
OTHER_PLACES = UNPLACED | {"spacing differs", "position missing", "tiles unread"}
VIEWS = {"axial": (0, 1, 2), "coronal": (0, 2, 1), "sagittal": (1, 2, 0)}  # patient axes: to the right, down, across
KINDS = {"short": "<i2", "unsigned short": "<u2", "int16": "<i2", "uint16": "<u2", "uchar": "u1", "unsigned char": "u1", "uint8": "u1",
         "int8": "i1", "signed char": "i1", "float": "<f4", "double": "<f8", "int": "<i4", "int32": "<i4", "uint32": "<u4",
         "unsigned int": "<u4", "MET_SHORT": "<i2", "MET_USHORT": "<u2", "MET_UCHAR": "u1", "MET_CHAR": "i1", "MET_FLOAT": "<f4",
         "MET_DOUBLE": "<f8", "MET_INT": "<i4", "MET_UINT": "<u4"}
sets = {}


def read(path):
    """The data set and its stored values by frame; None where no library here decodes them."""
    if path not in sets:
        ds = pydicom.dcmread(path, force=True)
        try:
            if ds.file_meta.TransferSyntaxUID.is_compressed:
                ds.decompress()
            values = host_test.stored_values(ds) if ds.BitsAllocated in (8, 16, 32) else None
        except Exception:  # pylint: disable=broad-except
            values = None
        sets[path] = ds, values
    return sets[path]


def group(ds, frame, sequence, keyword):
    for groups, at in ((ds.get("PerFrameFunctionalGroupsSequence"), frame), (ds.get("SharedFunctionalGroupsSequence"), 0)):
        if groups and len(groups) > at and groups[at].get(sequence) and groups[at].get(sequence)[0].get(keyword) is not None:
            return groups[at].get(sequence)[0].get(keyword)
    return ds.get(keyword)


class Plane:
    """A slice: where it lies, its stored values, its rescale, and which of its values are padding."""

    def __init__(self, ds, values, frame):
        where = [group(ds, frame, *what) for what in (
            ("PlanePositionSequence", "ImagePositionPatient"), ("PlaneOrientationSequence", "ImageOrientationPatient"),
            ("PixelMeasuresSequence", "PixelSpacing"))]
        slope, intercept = (group(ds, frame, "PixelValueTransformationSequence", what) for what in ("RescaleSlope", "RescaleIntercept"))
        if "DoseGridScaling" in ds:
            slope, intercept = ds.DoseGridScaling, 0
        self.placed = all(where)
        if "GridFrameOffsetVector" in ds or (slope in (None, "") and "RealWorldValueMappingSequence" in ds):
            raise LookupError
        nowhere = [0, 0, 0], [1, 0, 0, 0, 1, 0], [1, 1]
        self.position, cosines, self.spacing = (numpy.array(part or other, float) for part, other in zip(where, nowhere))
        self.row, self.column = cosines[:3], cosines[3:]
        self.normal = numpy.cross(self.row, self.column)
        usable = slope not in (None, "") and intercept not in (None, "") and float(slope) != 0
        self.slope, self.intercept = (float(slope), float(intercept)) if usable else (1.0, 0.0)
        self.stored = values[frame]
        ends = [ds.get("PixelPaddingValue"), ds.get("PixelPaddingRangeLimit", ds.get("PixelPaddingValue"))]
        self.padding = numpy.zeros(self.stored.shape, bool)
        if ends[0] is not None:
            self.padding = (self.stored >= min(ends)) & (self.stored <= max(ends))

    def real(self):
        return self.stored * self.slope + self.intercept


def planes_of(inputs):
    """The slices that a volume was made of; None where nothing here reads them."""
    planes = []
    for name in inputs:
        path, _, frame = name.partition(" frame ")
        ds, values = read(path)
        frame = int(frame or 1) - 1
        if values is None or values.ndim != 3 or frame >= len(values) or "ModalityLUTSequence" in ds or not ds.PhotometricInterpretation.startswith("MONOCHROME"):
            return None
        try:
            planes.append(Plane(ds, values, frame))
        except LookupError:
            return None
    # A single image needs no place for its voxels to be compared.
    return planes if len(planes) == 1 or all(plane.placed for plane in planes) else None


class Lattice:
    """Planes that may lie sideways of each other: what is between two of them is at the mean of their offsets."""

    def __init__(self, planes):
        self.planes = sorted(planes, key=lambda plane: plane.position @ planes[0].normal)
        first = self.planes[0]
        self.normal, self.axes, self.steps = first.normal, (first.row, first.column), (first.spacing[1], first.spacing[0])
        self.places = numpy.array([plane.position for plane in self.planes])
        self.heights = self.places @ self.normal
        self.shape = first.stored.shape[::-1]

    def locate(self, points):
        """(column, row, lower plane, part of the way to the next one) of points in the patient."""
        heights = points @ self.normal
        low = numpy.clip(numpy.searchsorted(self.heights, heights, "right") - 1, 0, max(len(self.heights) - 2, 0))
        high = numpy.minimum(low + 1, len(self.heights) - 1)
        gap = self.heights[high] - self.heights[low]
        part = numpy.where(gap > 0, (heights - self.heights[low]) / numpy.where(gap > 0, gap, 1), heights - self.heights[low])
        on = abs(part - part.round()) * numpy.maximum(gap, 1e-3) < 2e-3
        part = numpy.where(on, part.round(), part)
        origin = self.places[low] * (1 - part[..., None]) + self.places[high] * part[..., None]
        x, y = ((points - origin) @ axis / step for axis, step in zip(self.axes, self.steps))
        return x, y, low, part

    def sample(self, points, values, weigh=lambda t: t):
        """(samples, where they are inside, how far a thousandth of a voxel moves them); `values` of each plane."""
        x, y, low, part = self.locate(points)
        high = numpy.minimum(low + 1, len(self.planes) - 1)
        x, y = (numpy.where(abs(at - at.round()) < 2e-3, at.round(), at) for at in (x, y))
        inside = (x >= 0) & (x <= self.shape[0] - 1) & (y >= 0) & (y <= self.shape[1] - 1) & (part >= 0) & (part <= 1)
        x0, y0 = (numpy.clip(numpy.floor(at).astype(int), 0, n - 1) for at, n in zip((x, y), self.shape))
        x1, y1 = numpy.minimum(x0 + 1, self.shape[0] - 1), numpy.minimum(y0 + 1, self.shape[1] - 1)
        total, least, most = 0, numpy.inf, -numpy.inf
        for k, wz in ((low, 1 - weigh(part)), (high, weigh(part))):
            for j, wy in ((y0, 1 - (y - y0)), (y1, y - y0)):
                for i, wx in ((x0, 1 - (x - x0)), (x1, x - x0)):
                    one = values[k, j, i]
                    weight = wx * wy * wz
                    total = total + numpy.where(weight != 0, one * weight, 0)
                    least, most = numpy.minimum(least, one), numpy.maximum(most, one)
        return total, inside, (most - least) * 4e-3


def shaped(t):
    return 0.1 * t + 2.7 * t * t - 1.8 * t ** 3


def number_in(pattern, texts, default):
    for text in texts:
        if found := re.search(pattern, text):
            return [float(part) for part in found.groups()]
    return default


def file_voxels(form, volume):
    """Times x planes x rows x columns as they are in the file, and the rescale that its header has."""
    written = [re.split(r"[\\/]", out["file"])[-1] for out in volume["outputs"]]
    names = {os.path.splitext(name)[1]: WORK / name for name in written}
    columns, rows, planes = volume["size"]
    shape = (-1, planes, rows, columns)
    if form == "nifti":
        image = nibabel.load(names[".nii"])
        slope, intercept = image.header.get_slope_inter()
        return numpy.asarray(image.dataobj.get_unscaled()).T.reshape(shape), (slope or 1, intercept or 0)
    if form == "analyze":
        header = open(names[".hdr"], "rb").read()
        kind = {2: "u1", 4: ">i2"}[int.from_bytes(header[70:72], "big")]
        return numpy.fromfile(names[".img"], kind).reshape(shape), None
    if form == "bob":
        return numpy.fromfile(names[".img"], ">i2").reshape(shape), None
    data = open(next(iter(names.values())), "rb").read()
    if form == "vox":
        data = data.split(b"##\f\n")[-1]
        return numpy.frombuffer(data, "u1" if len(data) == rows * columns * planes else "<u2").reshape(shape), None
    if form == "nrrd":
        header, _, data = data.partition(b"\n\n")
        kind = re.search(r"^type: (.*)$", header.decode(), re.M)[1]
        slope, intercept = (number_in(rf"rescale {word}:=(\S+)", header.decode().splitlines(), [plain])[0]
                            for word, plain in (("slope", 1), ("intercept", 0)))
        return numpy.frombuffer(data, KINDS[kind]).reshape(shape), (slope, intercept)
    header, _, data = data.partition(b"ElementDataFile = LOCAL\n")
    kind = re.search(r"ElementType = (\S+)", header.decode())[1]
    return (numpy.frombuffer(data, KINDS[kind]).reshape(shape),
            number_in(r"the real value is stored \* (\S+) \+ (\S+)", volume["values"]["remarks"], (1, 0)))


class Judge:
    """How far the voxels of one volume of an export are off, in steps of the file's values."""

    def __init__(self, form, policy, report, volume):
        self.form, self.values, self.volume = form, volume["values"], volume
        self.resampled = policy == "resample" and bool(report["irregular"]["done"])
        self.scaled = number_in(r"with slope (\S+) and intercept ([^,\s]+)",
                                [f["text"] for f in report["findings"] if f["kind"] == "one scale"], None)
        self.padded = number_in(r"voxels of padding have the value ([^,\s]+)",
                                [f["text"] for f in report["findings"] if f["kind"] == "one scale"], None)
        self.data, self.rescale = file_voxels(form, volume)

    def stored(self, planes):
        """Of each plane, what the volume in memory has; whether those are real values; how far they may be rounded."""
        if self.values["inFile"] == "real values":
            return [plane.real() for plane in planes], True, 0
        if not self.scaled:
            return [plane.stored.astype(float) for plane in planes], False, 0
        slope, intercept = self.scaled
        stored = [(plane.real() - intercept) / slope for plane in planes]
        if self.padded:
            stored = [numpy.where(plane.padding, self.padded[0], values) for plane, values in zip(planes, stored)]
        return stored, False, 0.5

    def worst(self):
        inputs = self.volume["inputs"]
        count = len(inputs) // self.volume.get("times", 1)
        worst = 0.0
        for time, voxels in enumerate(self.data):
            planes = planes_of(inputs[time * count:(time + 1) * count])
            if planes is None or len(planes) != len(voxels) and not self.resampled:
                return None
            worst = max(worst, self.worst_of(voxels, planes))
        return worst

    def worst_of(self, voxels, planes):
        stored, real, rounded = self.stored(planes)
        places = numpy.array(self.volume["slicePositions"])
        if not self.resampled:
            nearest = [0] if len(planes) == 1 else [int(numpy.argmin([numpy.linalg.norm(plane.position - place) for plane in planes])) for place in places]
            if len(set(nearest)) < len(nearest):
                return numpy.inf
            return self.difference(voxels, numpy.array([stored[n] for n in nearest]), rounded, real)
        by_height = sorted(range(len(planes)), key=lambda n: planes[n].position @ planes[0].normal)
        lattice = Lattice(planes)
        values = numpy.array([stored[n] for n in by_height])
        padding = numpy.array([planes[n].padding for n in by_height]).astype(float)
        columns, rows, _ = self.volume["size"]
        j, i = numpy.mgrid[:rows, :columns]
        first = planes[0]
        worst = 0.0
        for plane, place in zip(voxels, places):
            points = place + i[..., None] * first.spacing[1] * first.row + j[..., None] * first.spacing[0] * first.column
            expected, inside, moved = lattice.sample(points, values, shaped)
            spoiled = lattice.sample(points, padding, shaped)[0]
            fill = self.volume.get("filled", {}).get("value", 0)
            near = ~inside | (spoiled > 0)
            off = self.difference(plane, numpy.where(near, fill, expected), rounded + 0.53 + moved, real)
            clean = inside & (spoiled == 0)
            # On the edge of the data a rounded position decides.
            edge = ~clean & (plane != plane[~clean].min() if (~clean).any() else False)
            worst = max(worst, self.difference(plane[clean], expected[clean], rounded + 0.53 + moved[clean], real) if clean.any() else 0,
                        0 if edge.sum() <= 2 * (rows + columns) else off)
        return worst

    def difference(self, voxels, expected, tolerance, real):
        """Beyond what rounding allows, as a part of the largest value."""
        tolerance = tolerance + 1e-6
        if self.rescale is not None:
            size = max(1.0, abs(expected).max())
            return float((abs(voxels - expected) - tolerance - (1e-6 * size if real or self.scaled else 0)).max().clip(0) / size)
        scale, shift = self.values["scale"], self.values["shift"]
        wanted = expected * scale + shift
        remarks = " ".join(self.values["remarks"])
        counts = numpy.ones(wanted.shape, bool)
        if "below 0 become 0" in remarks:
            wanted = numpy.maximum(wanted, 0)
        if "32767 become 32767" in remarks:
            wanted = numpy.minimum(wanted, 32767)
        if "above 32767 do not fit" in remarks:
            counts &= wanted < 32767
        if "wraps around" in remarks:
            counts &= expected != 65535
        steps = 1 if scale != 1 or shift % 1 or self.form == "bob" else 0
        off = abs(voxels - wanted) - tolerance * scale - steps
        return float(off[counts].max(initial=0).clip(0) / max(1.0, abs(wanted).max()))


def exported(files, form, policy):
    """The differences of each volume's voxels, and its report; no report where it was refused."""
    for old in WORK.iterdir():
        if old.is_file():
            old.unlink()
    err = korvane("export", *files, "--format", form, "--irregular", policy, "--to", f"file:{WORK}/vol", "--report", WORK / "report.json",
                  status=None)[1]
    report = json.loads((WORK / "report.json").read_text()) if (WORK / "report.json").is_file() else {}
    if not report.get("volumes"):
        assert "korvane: " in err, (files, form, policy)
        return None, None
    told = {finding["kind"] for finding in report["findings"]}
    if OTHER_PLACES & told and any(volume["size"][2] > 1 or volume.get("times", 1) > 1 for volume in report["volumes"]):
        return [], report
    return [Judge(form, policy, report, volume).worst() for volume in report["volumes"]], report


def sampled(planes, view):
    """The middle picture of a view by trilinear sampling, one for each place that its index could name."""
    row, column = planes[0].row, planes[0].column
    axes = numpy.array([row, column, numpy.cross(row, column)])
    planes = sorted(planes, key=lambda plane: plane.position @ axes[2])
    voxels = numpy.array([plane.real() for plane in planes]).transpose(2, 1, 0)  # column, row, plane
    heights = numpy.array([plane.position @ axes[2] for plane in planes]) - planes[0].position @ axes[2]
    grid = [numpy.arange(voxels.shape[0]) * planes[0].spacing[1], numpy.arange(voxels.shape[1]) * planes[0].spacing[0], heights]
    order = []
    for patient in VIEWS[view][::-1]:  # the axis across is chosen first
        size = [0 if axis in order else abs(axes[axis][patient]) for axis in range(3)]
        order.append(int(numpy.argmax(size)))
    order = order[::-1]
    voxels, grid = voxels.transpose(order), [grid[axis] for axis in order]
    for picture_axis, patient in enumerate(VIEWS[view][:2]):
        wanted = -1 if patient == 2 else 1  # to the left, the back, the feet
        if axes[order[picture_axis]][patient] * wanted < 0:
            voxels = numpy.flip(voxels, picture_axis)
            grid[picture_axis] = grid[picture_axis][-1] - grid[picture_axis][::-1]
    steps = [g[-1] / (len(g) - 1) for g in grid[:2] if len(g) > 1 and g[-1] > 0]
    pixel = min(steps) if steps else 1
    middle = voxels.shape[2] // 2
    for index in {middle, voxels.shape[2] - 1 - middle}:
        plane = voxels[:, :, index]
        for axis in (0, 1):
            steps = int(numpy.floor(grid[axis][-1] / pixel + 1e-4))  # what is left is on both sides
            at = (grid[axis][-1] - steps * pixel) / 2 + numpy.arange(steps + 1) * pixel
            low = numpy.clip(numpy.searchsorted(grid[axis], at, "right") - 1, 0, max(len(grid[axis]) - 2, 0))
            high = numpy.minimum(low + 1, len(grid[axis]) - 1)
            gap = grid[axis][high] - grid[axis][low]
            weight = numpy.where(gap > 0, (at - grid[axis][low]) / numpy.where(gap > 0, gap, 1), 0).clip(0, 1)
            plane = numpy.moveaxis(plane, axis, -1)
            plane = numpy.moveaxis(plane[..., low] * (1 - weight) + plane[..., high] * weight, -1, axis)
        yield plane.T


def picture(files, *options):
    """The values of a picture; nothing where it was refused."""
    (WORK / "view.tif").unlink(missing_ok=True)
    err = korvane("slice", *files, *options, "--values", "-o", WORK / "view.tif", status=None)[1]
    if not (WORK / "view.tif").is_file():
        assert "korvane: " in err
        return None
    with PIL.Image.open(WORK / "view.tif") as view:
        return numpy.asarray(view, float)


def step_of(planes):
    step = min(numpy.diff(numpy.unique(plane.real())).min(initial=1e8) for plane in planes)
    return min(max(step, 1e-9, *(abs(plane.slope) * 1e-3 for plane in planes)), 1e8)


def viewed(files, planes):
    """Differences of the views from numpy's, in steps of the stored values."""
    one = step_of(planes)
    for view in VIEWS:
        ours = picture(files, "--view", view)
        if ours is None:
            continue
        worst = 1e9
        for theirs in sampled(planes, view):
            if theirs.shape == ours.shape:
                # Steep places move with the last digit of a position: a thousandth of a voxel.
                worst = min(worst, abs(ours - theirs).max() / one - 1e-3 * numpy.ptp(theirs) / one)
        yield view, worst


def cut(files, planes):
    """The same of planes through the middle of a stack, each of its planes at its own offset."""
    lattice, one = Lattice(planes), step_of(planes)
    values = numpy.array([plane.real() for plane in lattice.planes])
    first = lattice.planes[0]
    across = sum(axis * step * (n - 1) / 2 for axis, step, n in zip(lattice.axes, lattice.steps, lattice.shape))
    middle = (lattice.places[0] + lattice.places[-1]) / 2 + across
    pixel = min(first.spacing)
    for normal, right, down in (((0, 0, 1), (1, 0, 0), (0, 1, 0)), ((0, 1, 0), (1, 0, 0), (0, 0, -1)), ((-1, 0, 0), (0, 1, 0), (0, 0, -1))):
        ours = picture(files, "--point=" + ",".join(map(str, middle)), "--normal=" + ",".join(map(str, normal)))
        if ours is None:
            continue
        y, x = numpy.indices(ours.shape)
        points = (middle + (x - ours.shape[1] // 2)[..., None] * pixel * numpy.array(right)
                  + (y - ours.shape[0] // 2)[..., None] * pixel * numpy.array(down))
        theirs, inside, moved = lattice.sample(points, values)
        # The edge of the data is where a rounded position decides.
        padding = numpy.array([plane.padding for plane in lattice.planes]).astype(float)
        inner = inside & (lattice.sample(points, padding)[0] == 0)  # that values beside padding are mixtures is told
        inside = inner.copy()
        for axis in (0, 1):
            for shift in (1, -1):
                inner &= numpy.roll(inside, shift, axis)
        if inner.any():
            yield f"across {normal}", ((abs(ours - theirs) - moved)[inner] / one).max()


def folders():
    names = [SAMPLES / "files", SAMPLES / "mr-epi-5x30", SAMPLES / "dicomdir", *sorted((SAMPLES / "vendors").iterdir())] if SAMPLES.is_dir() else []
    return [folder for folder in (names[:1] if host_test.WINDOWS else names) if folder.is_dir()]


def leaning(name, change=lambda ds, n: None):
    """A made series of random voxels that tilts."""
    generator = numpy.random.default_rng(3)

    def move(ds, n):
        ds.ImagePositionPatient = [0.2 * n, 1.9 * n, 4 * n]
        ds.PixelData = generator.integers(0, 3000, (24, 24)).astype("<i2").tobytes()
        change(ds, n)
    return edited(phantom(f"{name}-source", "--size", 24, "--slices", 9), name, move)


def made():
    def pet(ds, n):
        ds.RescaleSlope, ds.RescaleIntercept = str(1 + 0.25 * n), "-12"

    def padded(ds, n):
        values = numpy.frombuffer(ds.PixelData, "<i2").copy()
        values[values < 400] = -7
        ds.PixelRepresentation, ds.PixelData = 1, values.tobytes()
        ds.add_new(0x00280120, "SS", -7)

    def both(ds, n):
        pet(ds, n)
        padded(ds, n)

    def uneven(ds, n):
        ds.ImagePositionPatient[2] += 2 * (n > 4)
        padded(ds, n)

    changes = {"tilted": lambda ds, n: None, "slopes": pet, "padded": padded, "slopes-padded": both, "uneven-padded": uneven}
    return [leaning(name, change) for name, change in changes.items()]


def everything():
    done = {"volumes": 0, "views": 0, "refused": 0, "told": 0, "not judged here": 0}
    silent, number = 0, 0
    generated = made()
    for folder in [*generated, *folders()]:
        for series in json.loads(korvane("info", "--json", folder, status=None)[0])["series"]:
            if "columns" not in series:
                continue
            sets.clear()
            number += 1
            everywhere = EVERYTHING or folder in generated and not host_test.WINDOWS
            chosen = CASES if everywhere else [("nifti", "keep"), CASES[number * 5 % len(CASES)]]
            for form, policy in dict.fromkeys(chosen):
                worst, report = exported(series["files"], form, policy)
                if report is None:
                    done["refused"] += 1
                    continue
                done["told"] += not worst
                for difference in worst:
                    done["not judged here" if difference is None else "volumes"] += 1
                    if difference is not None and difference > 1e-6:
                        silent += 1
                        print(f"{series['files'][0]} series {series['number']}, {form}, {policy}: {difference} of the largest value off")
            silent += judged_views(series, done)
    print(done, f"{silent} silent differences")
    assert done["volumes"] > 0 and silent == 0


def judged_views(series, done):
    """How many views are silently wrong."""
    if host_test.WINDOWS:  # which has no library for TIFF
        return 0
    report = exported(series["files"], "nifti", "keep")[1]
    told = {finding["kind"] for finding in report["findings"]} if report else OTHER_PLACES
    planes = None if OTHER_PLACES & told else planes_of(report["volumes"][0]["inputs"][:report["volumes"][0]["size"][2]])
    if not planes or not planes[0].placed:
        return 0
    silent = 0
    straight = not told & {"tilt", "shifted sideways"}
    for view, difference in [*(viewed(series["files"], planes) if straight else ()), *(cut(series["files"], planes) if len(planes) > 2 else ())]:
        done["views"] += 1
        if difference > 0.53:
            silent += 1
            print(f"{series['files'][0]} series {series['number']}, {view}: {difference} steps off")
    return silent


host_test.run(everything)
