#!/usr/bin/env python3
"""Stored images as pictures: every kind of pixel, in the standard's order, judged by numpy and by DCMTK's dcmj2pnm."""

import shutil
import subprocess

import PIL.Image
from host_test import SAMPLES, WINDOWS, WORK, edited, korvane, numpy, phantom, pydicom, run
from images import image
from pydicom.dataset import Dataset
from pydicom.sequence import Sequence

PEER = shutil.which("dcmj2pnm")
RANDOM = numpy.random.default_rng(11)


def save(ds):
    path = WORK / "image.dcm"
    pydicom.dcmwrite(path, ds, write_like_original=False)
    return path


def draw(path, *options, name="picture.png"):
    """The picture of a file: pixels, standard output, standard error."""
    out, err = korvane("slice", path, *options, "-o", WORK / name)
    with PIL.Image.open(WORK / name) as picture:
        return numpy.array(picture).astype(float if picture.mode == "F" else int), out, err


def peer(path, *options, frame=0):
    """The same by dcmj2pnm; None where it draws nothing."""
    result = WORK / "peer.ppm"
    result.unlink(missing_ok=True)
    subprocess.run([PEER, "-q", "+op", "-O", "+F", str(frame + 1), *map(str, options), str(path), str(result)], check=False,
                   capture_output=True, timeout=60)
    if not result.exists() or not result.stat().st_size:
        return None
    with PIL.Image.open(result) as picture:
        return numpy.array(picture, int)


def line(values, low, high):
    return numpy.clip((values - low) / (high - low), 0, 1) if high > low else (values > low) * 1.0


def window(values, centre, width):
    return line(values, centre - 0.5 - (width - 1) / 2, centre - 0.5 + (width - 1) / 2)


def grey(part):
    return numpy.floor(numpy.clip(part, 0, 1) * 255 + 0.5).astype(int)


def table(first, entries, bits=16):
    item = Dataset()
    item.LUTDescriptor = [len(entries) % 65536, first, bits]
    item["LUTDescriptor"].VR = "US"
    item.LUTData = numpy.array(entries, "<u2").tobytes()
    item["LUTData"].VR = "OW"
    return Sequence([item])


def any_values(low, high, dtype, rows=23, columns=37):
    return RANDOM.integers(low, high, (1, rows, columns), endpoint=True).astype(dtype)


def grey_values():
    """Bits, modality, values of interest, inversion: each alone and with the others."""
    wide = any_values(0, 4095, "<u2")
    values = wide[0].astype(float)
    own = {"WindowCenter": 1500, "WindowWidth": 1000}
    shifted = any_values(0, 65535, "<u2")
    signed = any_values(-128, 127, "i1")
    ramp = numpy.arange(0, 4096)[::-1]
    lut = numpy.floor(1000 * numpy.log1p(numpy.arange(4096)))  # up to 8318

    def check(expected, ds, *options, words="", tells="", alike=True):
        path = save(ds)
        pixels, out, err = draw(path, *options)
        assert (pixels == grey(expected)).all() and words in out and tells in err and bool(tells) == bool(err), (
            abs(pixels - grey(expected)).max(), out, err)
        if PEER and alike:  # which cuts off where ours rounds
            chosen = ("+Ww", *options[-1].split("=")[-1].split(",")) if options else ("+Wi", 1)
            if not options and "WindowCenter" not in ds:
                chosen = ("+Wl", 1)
            difference = pixels - peer(path, *chosen)
            assert ((difference >= 0) & (difference <= 1)).all() or (abs(difference) <= 1).all(), difference

    check(window(values, 1500, 1000), image(wide, 12, **own), words="1500,1000 of the image")
    check(window(values, 700.5, 201), image(wide, 12, **own), "--window=700.5,201", words="as asked for")
    check(window(values, 700, 1), image(wide, 12), "--window=700,1", alike=False)
    check(line(values, 1000, 2000), image(wide, 12, VOILUTFunction="LINEAR_EXACT", **own), words="exact", alike=False)
    check(line(values, 0, 0.5), image(wide, 12, VOILUTFunction="LINEAR_EXACT", WindowCenter=0.25, WindowWidth=0.5), alike=False)
    check(1 / (1 + numpy.exp(-4 * (values - 1500) / 1000)), image(wide, 12, VOILUTFunction="SIGMOID", **own), words="sigmoid",
          alike=False)
    check(1 - window(values, 1500, 1000) - 1e-9, image(wide, 12, PhotometricInterpretation="MONOCHROME1", **own),
          words="low values bright")
    check(1 - window(values, 1500, 1000) - 1e-9, image(wide, 12, PresentationLUTShape="INVERSE", **own), alike=False)
    check(window(-0.5 * values + 100, -400, 600),
          image(wide, 12, RescaleSlope=-0.5, RescaleIntercept=100, WindowCenter=-400, WindowWidth=600))
    check(window(lut[wide[0]], 7000, 3000), image(wide, 12, ModalityLUTSequence=table(0, lut), WindowCenter=7000,
                                                 WindowWidth=3000))
    check(ramp[wide[0]] / 65535, image(wide, 12, VOILUTSequence=table(0, ramp)), words="table", alike=False)
    check(1 - numpy.clip(ramp[numpy.clip(wide[0].astype(int) - 5, 0, 4095)] / 4095, 0, 1) - 1e-9,
          image(wide, 12, VOILUTSequence=table(5, ramp, 12), PhotometricInterpretation="MONOCHROME1"))
    check(window((shifted[0] >> 3) & 0xFF, 128, 256), image(shifted, 8, HighBit=10), "--window=128,256",
          tells="bits above the stored ones are set")
    check(window(signed[0], 0, 256), image(signed), "--window=0,256")
    dirty = (any_values(-2048, 2047, "<i2") & 0x0FFF) | 0x5000
    twelve = numpy.where(dirty[0] & 0x800, (dirty[0] & 0xFFF) - 4096, dirty[0] & 0xFFF)
    check(window(twelve, 0, 3000), image(dirty.astype("<i2"), 12), "--window=0,3000", tells="bits above")
    check(window(any_bits := any_values(0, 2**32 - 1, "<u4"), 2**31, 2**32)[0], image(any_bits), f"--window={2**31},{2**32}",
          alike=False)


def automatic():
    """Without a window: from the 1st to the 99th percentile, padding left out."""
    values = any_values(0, 999, "<i2", 40, 50)
    padded = values.copy()
    padded[:, :, :10] = -2000
    padded[:, :, 10:15] = -1990
    low, high = numpy.sort(values[:, :, 15:].ravel())[[13, 1385]]
    pixels, out, _ = draw(save(image(padded, PixelPaddingValue=-2000, PixelPaddingRangeLimit=-1990)))
    assert (pixels == grey(line(padded[0], low, high))).all() and "percentile" in out, out
    sparse = numpy.zeros((1, 40, 50), "u1")
    sparse[0, 5, 5:9] = 7
    assert (draw(save(image(sparse)))[0] == sparse[0] // 7 * 255).all(), "too few to be a hundredth"
    assert (draw(save(image(numpy.full((1, 8, 9), 5, "u1"))))[0] == 128).all()
    small = image(any_values(0, 1, "<u2"))
    reals = RANDOM.normal(0, 1e-6, (1, 23, 37)).astype("<f4")
    del small.PixelData
    small.BitsAllocated = 32
    small.add_new((0x7FE0, 0x0008), "OF", reals.tobytes())
    low, high = numpy.sort(reals.ravel())[[8, 842]]
    pixels, out, _ = draw(save(small))
    assert abs(pixels - grey(line(reals[0], low, high))).max() <= 1 and "exact" in out, out
    if not WINDOWS:
        assert (draw(WORK / "image.dcm", "--values", name="picture.tif")[0] == reals[0]).all()


def bits():
    plane = RANDOM.integers(0, 2, (3, 11, 13)).astype("u1")
    ds = image(plane)
    ds.BitsAllocated, ds.BitsStored, ds.HighBit = 1, 1, 0
    packed = numpy.packbits(plane.ravel(), bitorder="little").tobytes()
    ds.PixelData = packed + bytes(len(packed) % 2)
    for frame in range(3):
        assert (draw(save(ds), "--frame", frame)[0] == plane[frame] * 255).all()
    assert "0 to 2" in korvane("slice", save(ds), "--frame", 3, "-o", WORK / "x.png", status=2)[1]
    korvane("slice", save(ds), "--all", "-o", WORK / "all")
    assert len(list((WORK / "all").iterdir())) == 3


def ybr(rgb):
    matrix = numpy.array([[0.299, 0.587, 0.114], [-0.168736, -0.331264, 0.5], [0.5, -0.418688, -0.081312]])
    return numpy.clip(numpy.round(rgb @ matrix.T + [0, 128, 128]), 0, 255).astype("u1")


def colours():
    smooth = numpy.stack(numpy.meshgrid(numpy.arange(24) * 10, numpy.arange(16) * 15, [0]), -1)[:, :, 0]
    smooth[:, :, 2] = smooth[:, :, 0] // 2 + 60
    rgb = smooth[None].astype("u1")
    for ds, expected, off in (
            (image(rgb), rgb, 0), (image(rgb, planar=1), rgb, 0),
            (image((rgb * 257).astype("<u2")), rgb, 0),
            (image(ybr(rgb), PhotometricInterpretation="YBR_FULL"), rgb, 2)):
        path = save(ds)
        pixels, out, err = draw(path)
        assert abs(pixels - expected[0]).max() <= off and "colours" in out and not err, (ds.PhotometricInterpretation, pixels)
        if PEER:
            assert abs(pixels - peer(path)).max() <= off, "the peer has no colour at 127.5, the standard at 128"
    half = ybr(rgb)[0].astype(int)
    pairs = numpy.concatenate([half[:, 0::2, :1], half[:, 1::2, :1], (half[:, 0::2, 1:] + half[:, 1::2, 1:]) // 2], axis=2)
    ds = image(rgb, PhotometricInterpretation="YBR_FULL_422")
    ds.PixelData = pairs.astype("u1").tobytes()
    pixels = draw(save(ds))[0]
    assert abs(pixels - rgb[0]).max() <= 11, "neighbours share their colour"
    if PEER:
        assert abs(pixels - peer(WORK / "image.dcm")).max() <= 2
    assert (draw(WORK / "image.dcm", name="picture.jpg")[0].shape == pixels.shape
            and abs(draw(WORK / "image.dcm", name="picture.jpg")[0] - pixels).max() < 25)
    err = korvane("slice", WORK / "image.dcm", "-o", WORK / "picture.BMP", status=2)[1]
    assert "as .png .jpg .jpeg" in err and not (WORK / "picture.BMP").exists(), err
    for words, ds in (("HSV", image(rgb, PhotometricInterpretation="HSV")), ("window", image(rgb)),
                      ("1 sample", image(rgb[..., 0], PhotometricInterpretation="RGB"))):
        err = korvane("slice", save(ds), *(("--window=1,2",) if words == "window" else ()), "-o", WORK / "x.png", status=None)[1]
        assert words in err and not (WORK / "x.png").exists(), err


def palette(ds, first, tables, bits, segmented=False, dtype="<u2"):
    for name, entries in zip(("Red", "Green", "Blue"), tables):
        count = 256 if segmented else len(entries)
        setattr(ds, f"{name}PaletteColorLookupTableDescriptor", [count, first, bits])
        ds[f"{name}PaletteColorLookupTableDescriptor"].VR = "US"
        keyword = ("Segmented" if segmented else "") + f"{name}PaletteColorLookupTableData"
        data = numpy.array(entries, dtype).tobytes()
        setattr(ds, keyword, data + bytes(len(data) % 2))
        ds[keyword].VR = "OW"
    return ds


def palettes():
    def make(**fields):
        return image(any_values(0, 255, "u1"), PhotometricInterpretation="PALETTE COLOR", **fields)

    curve = numpy.arange(256)
    high = [curve * 257, (255 - curve) * 257, (curve // 2) * 257]
    low = [part // 257 for part in high]
    # Segments: 3 discrete values, a ramp, those again, a ramp to the end.
    segments = [0, 3, 10 * 256, 40 * 256, 20 * 256, 1, 100, 250 * 256, 2, 1, 0, 0, 1, 150, 5 * 256]
    ramp = numpy.concatenate([[10, 40, 20], 20 + 2.3 * numpy.arange(1, 101), [10, 40, 20], 20 - 0.1 * numpy.arange(1, 151)])
    for tables, first, bits, tells, more, expected in (
            (high, 0, 16, "", {}, low), (low, 0, 8, "", {}, low), (low, 0, 8, "", {"dtype": "u1"}, low),
            (low, 0, 16, "16 bits and has 8", {}, low), (high, 0, 8, "8 bits and has 16", {}, low),
            ([part[:100] for part in high], 20, 16, "", {}, [part[numpy.clip(curve - 20, 0, 99)] for part in low]),
            ([segments] * 3, 0, 16, "", {"segmented": True}, [numpy.floor(ramp)] * 3)):
        ds = palette(make(), first, tables, bits, **more)
        pixels, _, err = draw(save(ds))
        wanted = numpy.stack([part[ds.pixel_array.astype(int).reshape(pixels.shape[:2])] for part in expected], -1)
        assert abs(pixels - wanted).max() <= (1 if more.get("segmented") else 0), (bits, more, pixels, wanted)
        assert tells in err and bool(tells) == bool(err), err
        if PEER and not more.get("segmented") and not tells and peer(WORK / "image.dcm") is not None:
            assert abs(pixels - peer(WORK / "image.dcm")).max() <= 1, (bits, more)
    short = palette(make(), 0, high, 16)
    short.GreenPaletteColorLookupTableData = short.GreenPaletteColorLookupTableData[:100]
    pixels, _, err = draw(save(short))
    assert "50 of 256" in err and (pixels[..., 1] == low[1][numpy.minimum(pixels[..., 0], 49)]).all(), err
    del short.BluePaletteColorLookupTableData
    assert "no blue" in korvane("slice", save(short), "-o", WORK / "x.png", status=1)[1]


def damaged():
    """Palettes in segments that end anywhere make a picture, and say so, or none; windows without a width are none."""
    segments = [0, 3, 2560, 10240, 5120, 1, 100, 64000, 2, 1, 0, 0, 1, 150, 1280]
    whole = numpy.concatenate([[10, 40, 20], 20 + 2.3 * numpy.arange(1, 101), [10, 40, 20], 20 - 0.1 * numpy.arange(1, 151)])
    shown = any_values(0, 255, "u1")
    for end in range(len(segments)):
        ds = palette(image(shown, PhotometricInterpretation="PALETTE COLOR"), 0, [segments[:end]] * 3, 16, segmented=True)
        _, err = korvane("slice", save(ds), "-o", WORK / "picture.png", status=None)
        if not (WORK / "picture.png").exists():
            assert "palette" in err.lower() or "no red" in err, (end, err)
            continue
        with PIL.Image.open(WORK / "picture.png") as picture:
            pixels = numpy.array(picture, int)[..., 0]
        (WORK / "picture.png").unlink()
        have = int(err.split(" of 256")[0].split()[-1])  # of the table's entries
        assert have < 256 and abs(pixels - numpy.floor(whole[numpy.minimum(shown[0], have - 1)])).max() <= 1, (end, err)
    for bomb in ([2, 65535, 0, 0], [2, 1, 0, 0] * 50, [0, 65535, 1], [1, 65535, 9], [2, 3, 65535, 65535], [7, 7, 7]):
        ds = palette(image(shown, PhotometricInterpretation="PALETTE COLOR"), 0, [bomb] * 3, 16, segmented=True)
        assert "palette" in korvane("slice", save(ds), "-o", WORK / "picture.png", status=None)[1].lower(), bomb
    values = any_values(0, 999, "<u2")
    for width in (0, -5, 0.5):
        out = draw(save(image(values, WindowCenter=40, WindowWidth=width)))[1]
        assert "percentile" in out, (width, out)
    exact = draw(save(image(values, WindowCenter=400, WindowWidth=0.5, VOILUTFunction="LINEAR_EXACT")))[0]
    assert (exact == numpy.where(values[0] > 400, 255, numpy.where(values[0] < 400, 0, 128))).all()


def told():
    """What a picture does not show is named."""
    shown = any_values(0, 255, "u1")
    overlay = image(shown)
    overlay.add_new((0x6000, 0x0010), "US", 23)
    overlay.add_new((0x6000, 0x3000), "OW", bytes(108))
    for ds, words in ((overlay, "overlay"), (image(shown, PresentationLUTSequence=table(0, range(256))), "Presentation LUT"),
                      (image(shown, ShutterShape="CIRCULAR"), "shutter"),
                      (image(shown, VOILUTSequence=Sequence([Dataset()])), "VOI LUT is damaged")):
        assert words in draw(save(ds))[2], words


def volumes():
    """What views of a volume do not show is named too, and windows go by their names."""
    shown = any_values(0, 4095, "<u2")
    overlay = image(shown, 12, ShutterShape="CIRCULAR", WindowCenter=[2000, 300], WindowWidth=[4000, 50],
                    WindowCenterWidthExplanation=["WIDE", "Narrow"], PixelSpacing=[1, 1], ImagePositionPatient=[0, 0, 0],
                    ImageOrientationPatient=[1, 0, 0, 0, 1, 0])
    overlay.add_new((0x6000, 0x0010), "US", 23)
    overlay.add_new((0x6000, 0x3000), "OW", bytes(108))
    path = save(overlay)
    for view in ((), ("--view", "axial")):
        pixels, out, err = draw(path, *view, "--window", "narrow")
        assert "overlay" in err and "shutter" in err and "300,50 of the" in out and "Narrow" in out, (view, out, err)
        assert abs(pixels - grey(window(shown[0], 300, 50))).max() <= 1, view
        refused = korvane("slice", path, *view, "--window", "bone", "-o", WORK / "x.png", status=2)[1]
        assert "\"bone\"" in refused and "WIDE\nNarrow\n" in refused, refused
    assert (draw(path)[0] == grey(window(shown[0], 2000, 4000))).all(), "the first of several"


def frames():
    """Per-frame windows, with their functions, win; frames of a volume keep shape, tables and padding."""
    values = any_values(0, 4095, "<u2", 6, 8)
    values = numpy.concatenate([values, values[:, ::-1]])

    def item(**fields):
        ds = Dataset()
        for name, value in fields.items():
            setattr(ds, name, value)
        return ds

    def frame(n, **voi):
        return item(PlanePositionSequence=Sequence([item(ImagePositionPatient=[0, 0, 2 * n])]),
                    FrameVOILUTSequence=Sequence([item(**voi)]))

    shared = item(PlaneOrientationSequence=Sequence([item(ImageOrientationPatient=[1, 0, 0, 0, 1, 0])]),
                  PixelMeasuresSequence=Sequence([item(PixelSpacing=[1, 1])]))
    ds = image(values, 12, SharedFunctionalGroupsSequence=Sequence([shared]), PerFrameFunctionalGroupsSequence=Sequence([
        frame(0, WindowCenter=1000, WindowWidth=600, VOILUTFunction="LINEAR_EXACT"),
        frame(1, WindowCenter=3000, WindowWidth=900, VOILUTFunction="SIGMOID")]),
               WindowCenter=5, WindowWidth=3, VOILUTFunction="LINEAR", PresentationLUTShape="INVERSE")
    path = save(ds)
    exact = 255 - grey(((values[0] - 1000.) / 600 + 0.5).clip(0, 1))
    bent = 255 - grey(1 / (1 + numpy.exp(-4 * (values[1] - 3000.) / 900)))
    assert abs(draw(path, "--frame", 0)[0] - exact).max() <= 1 and abs(draw(path, "--frame", 1)[0] - bent).max() <= 1
    for index, own in ((1, values[0]), (0, values[1])):  # a volume has one window, that of its first frame
        pixels, out, err = draw(path, "--view", "axial", "--index", index)
        assert "has another window than the first slice" in err, err
        expected = 255 - grey(((own - 1000.) / 600 + 0.5).clip(0, 1))
        assert abs(pixels - expected).max() <= 1 and "low values bright" in out, (index, out)

    tables = [numpy.sort(RANDOM.integers(0, 4096, 4096)) for _ in range(2)]
    both = save(image(values, 12, SharedFunctionalGroupsSequence=Sequence([shared]), WindowCenter=5, WindowWidth=3,
                      PixelPaddingValue=0, PerFrameFunctionalGroupsSequence=Sequence([
                          frame(n, VOILUTSequence=table(0, entries, 12)) for n, entries in enumerate(tables)])))
    for n, entries in enumerate(tables):  # a table of the frame counts before a window of all of them
        assert (draw(both, "--frame", n)[0] == grey(entries[values[n]] / 4095)).all(), n
    pixels, _, err = draw(both, "--view", "axial", "--index", 1)
    assert (pixels == grey(tables[0][values[0]] / 4095)).all() and "has another window than" in err, err
    shared.FrameVOILUTSequence = Sequence([item(WindowCenter=1000, WindowWidth=600)])
    one = save(image(values, 12, SharedFunctionalGroupsSequence=Sequence([shared]), PerFrameFunctionalGroupsSequence=Sequence([
        item(PlanePositionSequence=Sequence([item(ImagePositionPatient=[0, 0, 2 * n])])) for n in range(2)])))
    _, out, err = draw(one, "--view", "axial")
    assert "window 1000,600" in out and "another window" not in err, (out, err)


def modality():
    """A Modality LUT is in pictures of images and of planes, and in their values; a file of voxels says that it is not."""
    stored = any_values(0, 4095, "<u2", 12, 14)
    lut = numpy.floor(1000 * numpy.log1p(numpy.arange(4096)))
    place = {"PixelSpacing": [1, 1], "ImageOrientationPatient": [1, 0, 0, 0, 1, 0], "ImagePositionPatient": [0, 0, 0]}
    path = save(image(stored, 12, ModalityLUTSequence=table(0, lut), WindowCenter=7000, WindowWidth=3000, **place))
    expected = grey(window(lut[stored[0]], 7000, 3000))
    for view in ((), ("--view", "axial")):
        assert (draw(path, *view)[0] == expected).all(), view
        if not WINDOWS:
            assert (draw(path, *view, "--values", name="picture.tif")[0] == lut[stored[0]]).all(), view
    def early(ds, n):  # in the first of two volumes alone
        if n == 1:
            ds.ModalityLUTSequence = table(0, lut)

    times = edited(phantom("times", "--slices", 3, "--size", 16, "--volumes", 2), "early", early)
    for source, options in ((path, ()), (times, ()), (times, ("--preview",))):
        err = korvane("export", source, "--format", "nrrd", *options, "--to", WORK / "vol")[1]
        assert err.count("Modality LUT is not applied") == 1, (source, err)


def names():
    """A name that no picture may have is refused before anything is read."""
    path = save(image(any_values(0, 255, "u1")))
    path.write_bytes(path.read_bytes()[:-40])  # which nothing can draw
    for options in ((), ("--view", "axial"), ("--sheet",), ("--raw16", "--view", "axial")):
        name = "x.jpg" if "--raw16" in options else "x.bmp"
        err = korvane("slice", path, *options, "-o", WORK / name, status=2)[1]
        assert ("not written as .bmp" in err or "has no 16 bits" in err) and "ends early" not in err.split("korvane: ")[-1], err


def sizes():
    ds = image(any_values(0, 255, "u1", 20, 40), PixelSpacing=[2, 1])
    assert draw(save(ds))[0].shape == (40, 40), "square pixels"
    with PIL.Image.open(WORK / "picture.png") as picture:
        assert round(picture.info["dpi"][0] / 0.0254) == 1000
    del ds.PixelSpacing
    plain = draw(save(ds))
    assert plain[0].shape == (20, 40) and "unknown size" in plain[1] and "dpi" not in PIL.Image.open(WORK / "picture.png").info
    small, _, _ = draw(WORK / "image.dcm", "--size", 20)
    assert small.shape == (10, 20)
    means = plain[0].reshape(10, 2, 20, 2).mean(axis=(1, 3))
    assert abs(small - means).max() <= 0.51
    large = draw(WORK / "image.dcm", "--zoom", 3)[0]
    assert large.shape == (60, 120) and (large[1::3, 1::3] == plain[0]).all()
    ds.PatientOrientation = ["L", "F"]
    assert draw(save(ds), "--annotate")[0].shape == (140, 280) and "is L, its lower edge F" in draw(WORK / "image.dcm")[1]


def values():
    stored = any_values(-1000, 1000, "<i2")
    path = save(image(stored, RescaleSlope=0.25, RescaleIntercept=-3))
    assert (draw(path, "--raw16")[0] == stored[0] + 32768).all()
    if WINDOWS:  # which has no library for TIFF
        assert "libtiff" in korvane("slice", path, "--values", "-o", WORK / "x.tif", status=1)[1]
        return
    assert (draw(path, "--values", name="picture.tif")[0] == stored[0] * 0.25 - 3).all()


def samples():
    """What dcmj2pnm draws of the samples is drawn, alike."""
    if PEER is None or not SAMPLES.is_dir():
        print("left out: samples, or dcmj2pnm, are not there")
        return
    paths = sorted(path for part in ("files", "dicomdir") for path in (SAMPLES / part).rglob("*") if path.is_file())
    counts = {}
    for path in paths:
        colour = peer(path)
        if colour is None:
            continue
        is_grey = colour.ndim == 2
        theirs = peer(path, "+Ww", 300, 500) if is_grey else colour
        ds = pydicom.dcmread(path, force=True)
        for shape in ("PixelSpacing", "PixelAspectRatio"):  # theirs stays pixel for pixel
            if len(set(ds.get(shape) or [1])) > 1:
                delattr(ds, shape)
                pydicom.dcmwrite(path := WORK / "square.dcm", ds, write_like_original=False)
        ours, out, _ = draw(path, "--frame", 0, *(("--window=300,500",) if is_grey else ()))
        assert ours.shape == theirs.shape, (path, ours.shape, theirs.shape)
        worst = abs(ours - theirs).max()
        counts[int(worst)] = counts.get(int(worst), 0) + 1
        assert worst <= 1, (path, worst, out)
    print("samples: largest difference of grey or colour, and how many images:", counts)


run(grey_values, automatic, bits, colours, palettes, damaged, told, volumes, frames, modality, names, sizes, values, samples)
