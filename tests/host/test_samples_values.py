#!/usr/bin/env python3
"""Every series of the sample files: each voxel of its export, and each pixel of its three views, is what pydicom and numpy make
of the files, or a finding tells why not. The figure at the end counts differences without a word."""

import json
import sys

import host_test
import numpy
import pydicom
from host_test import SAMPLES, SKIPPED, WORK, korvane

try:
    import nibabel
    import PIL.Image
except ImportError:
    print("skipped: python3-nibabel or python3-pil is not installed")
    sys.exit(SKIPPED)
if not SAMPLES.is_dir():
    print("skipped: there are no sample files here")
    sys.exit(SKIPPED)

PLACED = {"no positions", "frames unplaced", "distance guessed", "frames are times", "tilt", "shifted sideways",
          "no orientation", "axes not square", "spacing differs"}
VIEWS = {"axial": (0, 1, 2), "coronal": (0, 2, 1), "sagittal": (1, 2, 0)}  # patient axes: to the right, down, across
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


def real_planes(inputs):
    """(positions, cosines, spacing, real values) of the slices that a volume was made of; None where nothing here reads them."""
    planes = []
    for name in inputs:
        path, _, frame = name.partition(" frame ")
        ds, values = read(path)
        frame = int(frame or 1) - 1
        if values is None or values.ndim != 3 or frame >= len(values) or "ModalityLUTSequence" in ds or ds.SamplesPerPixel != 1:
            return None
        where = [group(ds, frame, *what) for what in (
            ("PlanePositionSequence", "ImagePositionPatient"), ("PlaneOrientationSequence", "ImageOrientationPatient"),
            ("PixelMeasuresSequence", "PixelSpacing"))]
        slope, intercept = (group(ds, frame, "PixelValueTransformationSequence", what) for what in ("RescaleSlope", "RescaleIntercept"))
        if "DoseGridScaling" in ds:
            slope, intercept = ds.DoseGridScaling, 0
        if any(not part for part in where) or "GridFrameOffsetVector" in ds or (slope in (None, "") and "RealWorldValueMappingSequence" in ds):
            return None
        slope, intercept = (1.0, 0.0) if slope in (None, "") or intercept in (None, "") or float(slope) == 0 else (float(slope), float(intercept))
        planes.append((*[numpy.array(part, float) for part in where], values[frame] * slope + intercept))
    return planes


def exported(series):
    """How far the file's voxels are off, and the volume's inputs; None where it was refused."""
    for old in WORK.iterdir():
        old.unlink()
    err = korvane("export", *series["files"], "--format", "nifti", "--to", WORK / "vol", "--report", WORK / "report.json", status=None)[1]
    report = json.loads((WORK / "report.json").read_text()) if (WORK / "report.json").is_file() else {}
    if not report.get("volumes"):
        assert "korvane: " in err
        return None
    volume = report["volumes"][0]
    told = {finding["kind"] for finding in report["findings"]}
    planes = real_planes(volume["inputs"])
    if planes is None or told & {"frames unplaced", "no positions", "no orientation", "tiles unread"}:
        return volume["inputs"], told, planes, None
    image = nibabel.load(WORK / "vol.nii")
    data = image.get_fdata().reshape(*image.shape[:3], -1)[..., 0]
    places = numpy.array(volume["slicePositions"])
    planes = planes[:len(places)]  # of the first time
    worst = 0.0
    for k, place in enumerate(places):
        nearest = min(planes, key=lambda plane: numpy.linalg.norm(plane[0] - place))
        scale = max(1.0, abs(nearest[3]).max())
        worst = max(worst, abs(data[:, :, k].T - nearest[3]).max() / scale)
    return volume["inputs"], told, planes, worst


def sampled(planes, view):
    """The middle picture of a view by trilinear sampling, one for each place that its index could name."""
    row, column = planes[0][1][:3], planes[0][1][3:]
    axes = numpy.array([row, column, numpy.cross(row, column)])
    planes = sorted(planes, key=lambda plane: plane[0] @ axes[2])
    voxels = numpy.array([plane[3] for plane in planes]).transpose(2, 1, 0)  # column, row, plane
    heights = numpy.array([plane[0] @ axes[2] for plane in planes]) - planes[0][0] @ axes[2]
    grid = [numpy.arange(voxels.shape[0]) * planes[0][2][1], numpy.arange(voxels.shape[1]) * planes[0][2][0], heights]
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


def viewed(series, planes):
    """Differences of the views from numpy's, in steps of the stored values."""
    slope = max(numpy.diff(numpy.unique(planes[0][3])).min(initial=1e9), 1e-9)
    one = min(slope, 1e8)
    for view in VIEWS:
        err = korvane("slice", *series["files"], "--view", view, "--values", "-o", WORK / "view.tif", status=None)[1]
        if not (WORK / "view.tif").is_file():
            assert "korvane: " in err
            continue
        with PIL.Image.open(WORK / "view.tif") as picture:
            ours = numpy.asarray(picture, float)
        (WORK / "view.tif").unlink()
        worst = 1e9
        for theirs in sampled(planes, view):
            if theirs.shape == ours.shape:
                # Steep places move with the last digit of a position: a thousandth of a voxel.
                worst = min(worst, abs(ours - theirs).max() / one - 1e-3 * numpy.ptp(theirs) / one)
        yield view, worst


def everything():
    done = {"exports": 0, "views": 0, "refused": 0, "not judged here": 0}
    silent = 0
    folders = [SAMPLES / "files", SAMPLES / "mr-epi-5x30", SAMPLES / "dicomdir", *sorted((SAMPLES / "vendors").iterdir())]
    for folder in folders[:1] if host_test.WINDOWS else folders:
        if not folder.is_dir():
            continue
        for series in json.loads(korvane("info", "--json", folder, status=None)[0])["series"]:
            if "columns" not in series:
                continue
            sets.clear()
            result = exported(series)
            if result is None:
                done["refused"] += 1
                continue
            _, told, planes, worst = result
            done["exports" if worst is not None else "not judged here"] += 1
            if worst is not None and worst > 1e-6:
                silent += 1
                print(f"{series['files'][0]} series {series['number']}: voxels of the export are {worst} off")
            if planes is None or PLACED & told or host_test.WINDOWS:  # which has no library for TIFF
                continue
            for view, difference in viewed(series, planes):
                done["views"] += 1
                if difference > 0.53:
                    silent += 1
                    print(f"{series['files'][0]} series {series['number']}, {view}: {difference} steps off")
    print(done, f"{silent} silent differences")
    assert done["exports"] > 0 and silent == 0


host_test.run(everything)
