#!/usr/bin/env python3
"""Every series of the sample files: where its exports say that voxels lie is what pydicom and numpy read, or the report
tells why not. The figure at the end counts differences without a word."""

import json
import sys

import numpy
import pydicom

import host_test
from host_test import SAMPLES, SKIPPED, WORK, korvane

if not SAMPLES.is_dir():
    print("skipped: there are no sample files here")
    sys.exit(SKIPPED)

GUESSED = {"no positions", "frames unplaced", "distance guessed", "frame offsets wrong", "frames are times"}
SIZES = {"spacing unknown", "spacing differs", "spacing at detector", "spacing calibrated"}
NEAR = 0.051  # millimetres: below it positions are rounding
sets = {}


def element(ds, frame, group, keyword):
    """As a functional group has it, else the top level."""
    for groups in (ds.get("PerFrameFunctionalGroupsSequence"), ds.get("SharedFunctionalGroupsSequence")):
        if groups:
            item = groups[frame if len(groups) > frame else 0].get(group)
            if item and item[0].get(keyword):
                return item[0].get(keyword)
    return ds.get(keyword)


def is_tiled(path):
    """Slices as tiles of one image, which the comparison with dcm2niix judges."""
    ds = pydicom.dcmread(path, force=True, stop_before_pixels=True)
    return "MOSAIC" in (ds.get("ImageType") or ()) or (0x0065, 0x1050) in ds


def places(volume):
    """Positions, cosines and spacings of what a volume was made of, as far as files say them."""
    found = []
    for name in volume["inputs"]:
        path, _, frame = name.partition(" frame ")
        if path not in sets:
            sets[path] = pydicom.dcmread(path, force=True, stop_before_pixels=True)
        ds, frame = sets[path], int(frame or 1) - 1
        found.append([element(ds, frame, *what) for what in (
            ("PlanePositionSequence", "ImagePositionPatient"), ("PlaneOrientationSequence", "ImageOrientationPatient"),
            ("PixelMeasuresSequence", "PixelSpacing"))])
        offsets, (position, cosines, _) = ds.get("GridFrameOffsetVector"), map(lambda value: value and list(map(float, value)), found[-1])
        if offsets and position and cosines:
            along = float(offsets[frame]) - (float(offsets[0]) and position[2])
            found[-1][0] = numpy.array(position) + along * numpy.cross(cosines[:3], cosines[3:])
    return found


def numbers(value, count):
    try:
        values = [float(part) for part in value]
    except (TypeError, ValueError):
        return None
    return numpy.array(values) if len(values) == count else None


def nifti_positions(base):
    """Of each plane's first voxel, and the steps from column to column and row to row: from the header's matrix."""
    header = base.with_suffix(".nii").read_bytes()[:348]
    lines = numpy.frombuffer(header[280:328], "<f4").reshape(3, 4).astype(float) * [[-1], [-1], [1]]
    planes = numpy.frombuffer(header[40:56], "<i2")[3]
    return numpy.array([lines[:, 3] + k * lines[:, 2] for k in range(planes)]), lines[:, 0], lines[:, 1]


def farthest(ours, theirs):
    """Of each of our positions from the nearest of theirs, and the other way round."""
    distances = numpy.linalg.norm(ours[:, None] - theirs[None], axis=2)
    return max(distances.min(axis=0).max(), distances.min(axis=1).max())


def faults(report, form, policy):
    """What differs from an independent reading and is not told."""
    told = {finding["kind"]: finding for finding in report["findings"]}
    for volume in report["volumes"]:
        read = places(volume)
        spacing, cosines = numbers(read[0][2], 2), numbers(read[0][1], 6)
        if spacing is None and not SIZES & set(told):
            yield "no size, and no word"
        if spacing is not None and not numpy.allclose(volume["spacing"][:2], spacing[::-1], atol=1e-4) and not SIZES & set(told):
            yield f"spacing {volume['spacing']} for {spacing}"
        if cosines is not None and "axes not square" not in told and not numpy.allclose(volume["orientation"], cosines, atol=1e-3):
            yield f"directions {volume['orientation']} for {cosines}"
        positions = [numbers(place[0], 3) for place in read]
        if cosines is None or any(position is None for position in positions):
            if len(read) > 1 and not GUESSED & set(told) and "no orientation" not in told:
                yield "no positions, and no word"
            continue
        if GUESSED & set(told):
            continue
        theirs, ours = numpy.array(positions), numpy.array(volume["slicePositions"])
        normal = numpy.cross(cosines[:3], cosines[3:])
        if policy == "resample" and ("file sheared" not in told) and len(ours) > 2:
            steps = numpy.diff(ours, axis=0)
            heights = numpy.sort(theirs @ normal)
            if abs(steps - steps[0]).max() > 2e-3 or abs(numpy.sort(ours @ normal)[[0, -1]] - heights[[0, -1]]).max() > 2e-3:
                yield f"uneven after resampling: {steps}"
            continue
        if farthest(ours, theirs) > 2e-3:
            yield f"positions are {farthest(ours, theirs)} mm off"
        if form == "nifti":
            in_file, along, down = nifti_positions(WORK / "vol")
            error = farthest(in_file, theirs)
            known = max([0] + [told[kind]["lengths"][-1] for kind in ("planes moved", "file sheared") if kind in told])
            if error > max(known * 1.01 + 2e-3, NEAR):
                yield f"the header puts planes {error} mm off, and {known} are told"
            if spacing is not None and not SIZES & set(told) and not (
                    numpy.allclose(along, cosines[:3] * spacing[1], atol=2e-4)
                    and numpy.allclose(down, cosines[3:] * spacing[0], atol=2e-4)):
                yield f"steps {along} and {down}"


def everything():
    count = silent = refused = 0
    folders = [SAMPLES / "files", SAMPLES / "mr-epi-5x30", SAMPLES / "dicomdir", *sorted((SAMPLES / "vendors").iterdir())]
    runs = [(form, "keep") for form in ("nifti", "nrrd", "metaimage", "analyze", "bob", "vox")]
    runs += [("nrrd", policy) for policy in ("reject", "resample", "split")]
    if host_test.WINDOWS:  # each run takes long under an emulator, and geometry knows no system
        runs = runs[:1]
    for folder in folders:
        if not folder.is_dir():
            continue
        out = korvane("info", "--json", folder, status=None)[0]
        for series in json.loads(out)["series"]:
            if "columns" not in series or is_tiled(series["files"][0]):
                continue
            for form, policy in runs:
                if form in ("metaimage", "bob") and len(series["files"]) > 40:
                    continue  # the same geometry as of the others, and slow
                for old in WORK.iterdir():
                    old.unlink()
                dry = [] if form == "nifti" else ["--dry-run"]
                err = korvane("export", *series["files"], "--format", form, "--irregular", policy, "--to", f"file:{WORK}/vol",
                              "--report", WORK / "report.json", *dry, status=None)[1]
                report = json.loads((WORK / "report.json").read_text()) if (WORK / "report.json").is_file() else {}
                count += 1
                if not report.get("volumes"):
                    refused += 1
                    silent += "korvane: " not in err
                    continue
                for fault in faults(report, form, policy):
                    silent += 1
                    print(f"{series['files'][0]} series {series['number']}, {form}, {policy}: {fault}")
    print(f"{count} exports, {refused} refused with a reason, {silent} silent differences")
    assert count > 0 and silent == 0


host_test.run(everything)
