#!/usr/bin/env python3
"""Pictures: which voxel lands where, in which grey, and what happens when none can be made."""

import itertools
import json

import PIL.Image
from host_test import WINDOWS, WORK, edited, interrupted, korvane, leftovers, numpy, phantom, pydicom, run, wait_for
from images import image

AXES = numpy.eye(3, dtype=int)
VIEWS = ("axial", "coronal", "sagittal")


def read_png(path):
    """The pixels of a grey PNG, and its pixels per metre."""
    with PIL.Image.open(path) as image:
        assert image.format == "PNG" and image.mode in ("L", "I"), image
        return numpy.array(image, int), image.info["dpi"][0] / 0.0254


def picture(source, *options, name="picture.png"):
    """Runs `korvane slice`: (pixels, standard output)."""
    out, _ = korvane("slice", source, *options, "-o", WORK / name)
    assert out.startswith(f"wrote {WORK}/{name}\n") and leftovers() == [name], out
    pixels = read_png(WORK / name)[0]
    (WORK / name).unlink()
    return pixels, out


def series(name, voxels, row=(1, 0, 0), column=(0, 1, 0), origin=(0, 0, 0), spacing=(1, 1), heights=None, falling=False,
           **fields):
    """A series of planes x rows x columns; its first voxel at `origin`, its planes at `heights` along the normal."""
    folder = WORK / name
    folder.mkdir()
    normal = numpy.cross(row, column)
    heights = range(len(voxels)) if heights is None else heights
    uid = pydicom.uid.generate_uid()
    for plane, height in enumerate(heights):
        ds = image(voxels[plane:plane + 1], SOPInstanceUID=pydicom.uid.generate_uid(), SeriesInstanceUID=uid, Modality="CT",
                   InstanceNumber=len(voxels) - plane if falling else plane + 1, PixelSpacing=list(spacing),
                   ImageOrientationPatient=[round(float(c), 10) for c in (*row, *column)],
                   ImagePositionPatient=[round(float(c), 6) for c in origin + height * normal], **fields)
        pydicom.dcmwrite(folder / f"{plane:03}.dcm", ds, write_like_original=False)
    return folder


def any_voxels(*shape):
    return numpy.random.default_rng(7).permutation(numpy.prod(shape)).astype("<u2").reshape(shape)


def patient_plane(patient, view, at):
    """A plane of voxels by x, y, z (to the left, the back, the head) as radiologists look at it."""
    if view == "axial":
        return patient[:, :, at].T
    return (patient[:, at, :] if view == "coronal" else patient[at]).T[::-1]


def every_acquisition():
    """All 24 orientations and both orders of slices, upright and tilted: the same patient gives the same pictures."""
    patient = any_voxels(5, 6, 7)
    signed = [tuple(sign * axis) for axis in AXES for sign in (1, -1)]
    pairs = [(row, column) for row, column in itertools.product(signed, signed) if not numpy.dot(row, column)]
    assert len(pairs) == 24
    turn = numpy.linalg.qr(numpy.eye(3) * 4 + [[0, 1, -1], [-1, 0, 0.5], [1, -0.5, 0]])[0]  # some degrees
    turn *= numpy.sign(numpy.diag(turn))
    cases = list(itertools.product(pairs, (False, True)))
    for number, ((row, column), falling) in enumerate(cases[3::11] if WINDOWS else cases):
        directions = numpy.array([numpy.cross(row, column), column, row])  # of planes, rows, columns
        order = [int(numpy.flatnonzero(direction)[0]) for direction in directions]
        signs = directions.sum(axis=1)
        voxels = patient.transpose(order)[tuple(slice(None, None, int(sign)) for sign in signs)]
        first = [0 if directions[:, axis].sum() > 0 else patient.shape[axis] - 1 for axis in range(3)]
        tilted = (turn @ row, turn @ column) if number // 2 % 2 else (row, column)
        source = series(f"case{number}", voxels, *tilted, first, falling=falling)
        for view, across in zip(VIEWS, (2, 1, 0)):
            raw = order.index(across)
            grows = signs[raw] > 0 if raw > 0 else signs[raw] < 0  # planes are counted against the normal
            at = 1 if grows else patient.shape[across] - 2
            pixels, out = picture(source, "--view", view, "--index", 1, "--raw16")
            assert (pixels == patient_plane(patient, view, at)).all(), (row, column, falling, view, pixels)
            assert ("right of the picture is " + ("P" if view == "sagittal" else "L")) in out, out
            assert ("edge P" if view == "axial" else "edge F") in out, out


def planes_in_the_patient():
    """An oblique acquisition of values that grow evenly in the patient, and planes through it in any direction."""
    turned = numpy.array([[0.8, 0.36, 0.48], [-0.6, 0.48, 0.64]])
    normal = numpy.cross(*turned)
    origin, gradient = numpy.array([-30.5, 12, 40]), numpy.array([11, -17, 23])
    plane, row, column = numpy.indices((25, 31, 35))
    places = origin + plane[..., None] * 1.5 * normal + row[..., None] * turned[1] + column[..., None] * turned[0]
    source = series("even", (places @ gradient).round().astype("<i2"), *turned, origin, heights=numpy.arange(25) * 1.5)
    middle = places[12, 15, 17]
    for n, up, right, down in (((0, 0, 1), None, (1, 0, 0), (0, 1, 0)), ((0, 0, -2), None, (1, 0, 0), (0, 1, 0)),
                               ((0, 1, 0), None, (1, 0, 0), (0, 0, -1)), ((-1, 0, 0), None, (0, 1, 0), (0, 0, -1)),
                               ((3, 0, 1), (0, 0, 1), (0, 1, 0), (0.1 ** 0.5, 0, -0.9 ** 0.5)),
                               ((0, 0, 1), (1, 0, 0), (0, 1, 0), (-1, 0, 0))):
        options = ("--point", ",".join(map(str, middle)), "--normal", ",".join(map(str, n)), "--raw16")
        pixels, _ = picture(source, *options, *(("--up", ",".join(map(str, up))) if up else ()))
        height, width = pixels.shape
        y, x = numpy.indices(pixels.shape)
        points = middle + (x - width // 2)[..., None] * numpy.array(right) + (y - height // 2)[..., None] * numpy.array(down)
        inside = pixels > 0
        assert width % 2 and height % 2 and inside.sum() > 300 and not inside.all(), pixels.shape
        assert abs(pixels - 32768 - points @ gradient)[inside].max() < 1.1, (n, up)
        assert all(edge.any() for edge in (inside[:6] | inside[-6:], inside[:, :6] | inside[:, -6:])), "larger than the cut"


def distances():
    """Pixels are square in the patient, whatever the distances of columns, rows and planes."""
    voxels = any_voxels(3, 4, 5) * 16
    source = series("uneven", voxels, spacing=(2, 0.5), heights=(0, 1, 3))
    axial, out = picture(source, "--view", "axial", "--index", 0, "--raw16")
    assert axial.shape == (13, 5) and "of 0.5 mm" in out and "0 to 2" in out
    assert (axial[::4] == voxels[2]).all()  # plane 0 is the highest
    assert abs(axial[2::4] - (voxels[2, 1:] + voxels[2, :-1]) / 2.0).max() <= 0.5
    coronal, _ = picture(source, "--view", "coronal", "--index", 3, "--raw16")
    assert coronal.shape == (7, 5) and (coronal[[6, 4, 0]] == voxels[:, 3]).all()
    assert abs(coronal[2] - (voxels[1, 3] + voxels[2, 3]) / 2.0).max() <= 0.5
    nearest, _ = picture(source, "--view", "sagittal", "--index", 2, "--raw16", "--interp", "nearest", "--pixel", 1)
    assert (nearest[:, ::2] == voxels[[2, 1, 1, 0]][:, :, 2]).all() or (nearest[:, ::2] == voxels[[2, 2, 1, 0]][:, :, 2]).all()
    most, _ = picture(source, "--view", "axial", "--index", 1, "--raw16", "--slab", 4.2, "--slab-mode", "max",
                      "--interp", "nearest")
    assert (most[::4] == voxels.max(axis=0)).all()
    korvane("slice", source, "--view", "axial", "-o", WORK / "größe-Ω.png")
    assert round(read_png(WORK / "größe-Ω.png")[1]) == 2000


def windowed(values, centre, width):
    grey = ((values - (centre - 0.5)) / max(width - 1, 1e-9) + 0.5) * 255
    return numpy.floor(numpy.clip(grey, 0, 255) + 0.5).astype(int)


def greys():
    voxels = any_voxels(2, 40, 50)
    plane = voxels[1].astype(int)

    def check(expected, *options, words="", data=voxels, **fields):
        source = series(f"case{len(list(WORK.iterdir()))}", data, **fields)
        pixels, out = picture(source, "--view", "axial", "--index", 0, *options)
        assert abs(pixels - expected).max() <= (0 if fields.get("RescaleSlope", 1) == 1 else 1) and words in out, (out, fields, pixels)

    own = {"WindowCenter": [1500, 40], "WindowWidth": [1000, 80]}
    check(windowed(plane, 1500, 1000), words="1500,1000 of the series", **own)
    check(windowed(plane, 700.5, 201), "--window", "700.5,201", words="as asked for", **own)
    check(windowed(plane, 700, 1), "--window=700,1")
    check(windowed(plane * 0.5 - 300, 40, 20), RescaleSlope=0.5, RescaleIntercept=-300, WindowCenter=40, WindowWidth=20)
    check(windowed(-2 * plane, -2000, 900), "--window=-2000,900", RescaleSlope=-2, RescaleIntercept=0)
    check(255 - windowed(plane, 1500, 1000), words="low values bright", PhotometricInterpretation="MONOCHROME1", **own)
    low, high = numpy.sort(voxels.ravel())[[39, 3959]].astype(int)  # of 0 to 3999
    check(windowed(plane, (low + high + 1) / 2, high - low + 1), words="percentile", WindowCenter=5, WindowWidth=0)
    flat = numpy.full((2, 8, 9), -7, "<i2")
    check(32761, "--raw16", words="+ 32768", data=flat)
    check(128, data=flat)
    check(200, "--raw16", data=numpy.full((2, 8, 9), 200, "u1"))


def many():
    source = phantom("source", "--size", 200, "--rows", 170, "--slices", 7)
    korvane("slice", source, "--view", "axial", "--all", "-o", WORK / "all")
    names = sorted(path.name for path in (WORK / "all").iterdir())
    assert names == [f"axial-{number:04}.png" for number in range(7)]
    tiles = [read_png(WORK / "all" / name)[0] for name in names]
    assert all((picture(source, "--view", "axial", "--index", number)[0] == tiles[number]).all() for number in (0, 5))
    sheet, out = picture(source, "--view", "axial", "--all", "--sheet")
    assert sheet.shape == (4 * 87 + 2, 2 * 102 + 2) and "in rows of 2, 100 x 85 pixels" in out, sheet.shape
    for number, tile in enumerate(tiles):
        y, x = 2 + number // 2 * 87, 2 + number % 2 * 102
        means = numpy.floor(tile.reshape(85, 2, 100, 2).mean(axis=(1, 3)) + 0.5)
        assert (sheet[y:y + 85, x:x + 100] == means).all() and (sheet[y - 2:y, x:x + 100] == 64).all()


def stack():
    """Parallel planes: picture n lies n steps along the normal as it was given, all of one size."""
    turned = numpy.array([[0.8, 0.36, 0.48], [-0.6, 0.48, 0.64]])
    origin, gradient = numpy.array([-30.5, 12, 40]), numpy.array([11, -17, 23])
    plane, row, column = numpy.indices((25, 31, 35))
    places = origin + plane[..., None] * 1.5 * numpy.cross(*turned) + row[..., None] * turned[1] + column[..., None] * turned[0]
    source = series("even", (places @ gradient).round().astype("<i2"), *turned, origin, heights=numpy.arange(25) * 1.5)
    middle = places[12, 15, 17]
    asked = ("--point", ",".join(map(str, middle)), "--normal")
    for n, right, down, step in (((0, 0, -2), (1, 0, 0), (0, 1, 0), 2.5), ((0, 3, 0), (1, 0, 0), (0, 0, -1), -4)):
        out, _ = korvane("slice", source, *asked, ",".join(map(str, n)), "--count", 5, "--step", step, "--raw16", "-o", WORK / "s")
        names = sorted(path.name for path in (WORK / "s").iterdir())
        assert names == [f"oblique-{k:04}.png" for k in range(5)] and "all 5 oblique planes" in out, (names, out)
        pictures = [read_png(WORK / "s" / name)[0] for name in names]
        assert len({picture.shape for picture in pictures}) == 1
        for k, pixels in enumerate(pictures):
            height, width = pixels.shape
            y, x = numpy.indices(pixels.shape)
            first = middle + k * step * numpy.array(n) / numpy.linalg.norm(n)
            points = first + (x - width // 2)[..., None] * numpy.array(right) + (y - height // 2)[..., None] * numpy.array(down)
            inside = pixels > 0
            assert inside.sum() > 300 and abs(pixels - 32768 - points @ gradient)[inside].max() < 1.1, (n, k)
        assert all((picture(source, *asked, ",".join(map(str, n)), "--raw16")[0] > 0).sum() == (p > 0).sum() for p in pictures[:1])
    sheet, out = picture(source, *asked, "0,0,1", "--count", 4, "--step", 3, "--sheet")
    assert "all 4 oblique planes in rows of 2" in out and sheet.shape[0] % 2 == 0, (out, sheet.shape)
    for words, *options in (("--step", "--count", 3), ("--count", "--step", 3), ("not 0", "--count", 3, "--step", 0)):
        assert words in korvane("slice", source, *asked, "0,0,1", *options, "-o", WORK / "x", status=2)[1], options
    far = korvane("slice", source, "--point", "0,0,900", "--normal", "0,0,1", "--count", 3, "--step", 3, "-o", WORK / "x", status=1)
    assert "no plane meets the volume" in far[1], far


def windows():
    """A view has one window: that others are left out is told, unless the user chose one."""
    folder = edited(phantom("alike", "--slices", 3, "--size", 16), "windows", lambda ds, n: ds.update({"WindowCenter": 40 + n, "WindowWidth": 400}))
    out = WORK / "window.png"
    told = "another window than the first slice"
    assert told in korvane("slice", folder, "--view", "axial", "-o", out)[1]
    assert told not in korvane("slice", folder, "--view", "axial", "--window", "40,400", "-o", out)[1]
    assert told not in korvane("slice", WORK / "alike", "--view", "axial", "-o", out)[1]


def padding():
    """Padding counts for no slab, and not for the smallest and the largest value; what has nothing else is black."""
    voxels = numpy.random.default_rng(4).integers(0, 900, (5, 12, 14)).astype("<i2")
    voxels[:, :, :4] = -2000
    voxels[:3, :, 4:8] = -1999
    source = series("padded", voxels, PixelPaddingValue=-2000, PixelPaddingRangeLimit=-1990, RescaleSlope=1, RescaleIntercept=0)
    measured = numpy.ma.masked_less(voxels.astype(float), -1000)
    for mode, expected in (("min", measured.min(axis=0)), ("max", measured.max(axis=0)), ("mean", measured.mean(axis=0))):
        wanted = ("--view", "axial", "--index", 2, "--slab", 4, "--slab-mode", mode)
        out, err = korvane("slice", source, *wanted, "--raw16", "-o", WORK / "slab.png")
        pixels = read_png(WORK / "slab.png")[0] - 32768
        assert abs(pixels - expected.filled(-2000)).max() <= 0.5, (mode, pixels)
        assert f"{measured.mask.sum()} voxels of padding" in err, err
        korvane("slice", source, *wanted, "--window", "450,900", "-o", WORK / "slab.png")
        assert (read_png(WORK / "slab.png")[0][:, :4] == 0).all()
    korvane("export", source, "--format", "nrrd", "--to", WORK / "vol", "--report", WORK / "report.json")
    report = json.loads((WORK / "report.json").read_text())
    values = report["volumes"][0]["values"]
    assert [values["smallest"], values["largest"]] == [measured.min(), measured.max()], values
    assert {f["kind"]: f for f in report["findings"]}["padding left out"]["count"] == measured.mask.sum()


def annotated():
    voxels = numpy.zeros((2, 120, 200), "<u2")
    lines, _ = picture(series("black", voxels, (1, 0, 0), (0, 0, -1), spacing=(0.5, 0.5)), "--view", "coronal",
                       "--annotate", "--window", "1000,10")
    white = lines == 255
    assert white[56:63, 3:8].astype(int).tolist() == [[1, 1, 1, 1, 0], [1, 0, 0, 0, 1], [1, 0, 0, 0, 1], [1, 1, 1, 1, 0],
                                                      [1, 0, 1, 0, 0], [1, 0, 0, 1, 0], [1, 0, 0, 0, 1]], "R"
    assert white[56:63, 192:197].sum() == 11 and white[56:63, 192].all() and white[62, 192:197].all(), "L"
    assert white[3:10, 97].all() and white[3:10, 101].all() and white[6, 97:102].all(), "H"
    assert white[110:117, 97].all() and white[110, 97:102].all() and not white[116, 98:102].any(), "F"
    assert white[116, 3:43].all() and not white[116, 43:90].any(), "a bar of 20 mm"


def refusals():
    source = phantom("source", "--size", 32, "--slices", 6)
    (WORK / "kept.png").write_text("kept")
    plane = ("--point", "0,0,0", "--normal")
    for status, words, *options in (
            (2, "0 to 5", "--view", "axial", "--index", 6), (2, "0 to 31", "--view", "sagittal", "--index", -1),
            (2, "tilted", "--view", "tilted"), (2, "--normal", "--point", "0,0,0"),
            (2, "--index", "--index", 1, *plane, "0,0,1"), (2, "length", *plane, "0,0,0"),
            (2, "parallel", *plane, "0,1,0", "--up", "0,-3,0"), (2, "3 numbers", *plane, "0,1"),
            (2, "3 numbers", *plane, "0,1,nan"), (2, "3 numbers", *plane, "0,1,2,3"),
            (2, "2 numbers", "--view", "axial", "--window", "40"), (2, "1 wide", "--view", "axial", "--window", "40,0"),
            (2, "above 0", "--view", "axial", "--pixel", "0"), (2, "cubic", "--view", "axial", "--interp", "cubic"),
            (2, "--raw16", "--view", "axial", "--raw16", "--annotate"), (2, "no volume 2", "--view", "axial", "--volume", 2),
            (1, "does not meet", "--point", "0,0,900", "--normal", "0,0,1"), (1, "slab", "--view", "axial", "--slab", "1e8"),
            (1, "--pixel", "--view", "axial", "--pixel", "0.0001"), (1, "--pixel", "--point", "1e7,0,0", "--normal", "0,0,1")):
        out, err = korvane("slice", source, *options, "-o", WORK / "kept.png", status=status)
        assert not out and words in err.splitlines()[0], (options, err)
    assert "none/x.png" in korvane("slice", source, "--view", "axial", "-o", WORK / "none" / "x.png", status=1)[1]
    colour = edited(source, "colour", lambda ds, n: setattr(ds, "PhotometricInterpretation", "PALETTE COLOR"))
    assert "PALETTE COLOR" in korvane("slice", colour, "--view", "axial", "-o", WORK / "kept.png", status=1)[1]
    for plain in (lambda ds, n: delattr(ds, "ImageOrientationPatient"), lambda ds, n: delattr(ds, "PixelSpacing")):
        folder = edited(source, f"plain{len(list(WORK.iterdir()))}", plain)
        korvane("slice", folder, "--view", "coronal", "--annotate", "-o", WORK / "plain.png")
    assert (WORK / "kept.png").read_text() == "kept" and leftovers() == ["kept.png", "plain.png"]


def stopped():
    if WINDOWS:
        print("left out: Ctrl-C, which is a key of a console there; test_program presses it")
        return
    source = phantom("source", "--size", 512, "--slices", 60)
    interrupted(("slice", source, "--view", "coronal", "--all", "-o", WORK / "all"),
                lambda: wait_for(lambda: any((WORK / "all").glob("*"))))
    assert not any((WORK / "all").iterdir())


run(every_acquisition, planes_in_the_patient, distances, greys, many, stack, windows, padding, annotated, refusals, stopped)
