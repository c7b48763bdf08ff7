"""What independent tools compress is decoded as they decode it, and they read what `korvane convert` compresses."""

import concurrent.futures
import pathlib
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "host"))
import host_test  # pylint: disable=wrong-import-position
from host_test import WINDOWS, WORK, korvane, numpy, pydicom, stored_values  # pylint: disable=wrong-import-position
from images import encapsulate, image  # pylint: disable=wrong-import-position
import lossless_jpeg  # pylint: disable=wrong-import-position

RLE, BASELINE, EXTENDED, ANY_SELECTION, LOSSLESS = (f"1.2.840.10008.1.2.{end}" for end in
                                                    ("5", "4.50", "4.51", "4.57", "4.70"))
# Encoders, and whether they keep every pixel. The codecs of the others' libraries are not in the build for Windows.
TOOLS = {"rle": ("dcmcrle", True), "sv1": ("dcmcjpeg +e1", True), "grle": ("gdcmconv --rle", True),
         "gjpeg": ("gdcmconv --jpeg", True)}
TOOLS |= {f"sel{k}": (f"dcmcjpeg +el +sv {k}", True) for k in range(1, 8)}
if not WINDOWS:
    TOOLS |= {"base": ("dcmcjpeg +eb +q 90", False), "base444": ("dcmcjpeg +eb +s4", False),
              "baseRgb": ("dcmcjpeg +eb +cr", False), "ext": ("dcmcjpeg +ee", False),
              "ls": ("dcmcjpls +el +il", True), "lsPlanes": ("dcmcjpls +el +in", True),
              "near": ("dcmcjpls +en +md 3", False), "gls": ("gdcmconv --jpegls", True),
              "j2k": ("gdcmconv --j2k", True), "j2kLossy": ("gdcmconv --j2k --lossy -q 40", False)}
SOURCES = {  # shape without frames, bits, signed, planes, encoders
    "grey8": ((45, 67), 8, False, False, [*TOOLS]),
    "grey12": ((33, 50), 12, False, False, ["ext12", "rle", "sv1", "sel7", "gjpeg", "ls", "near", "j2k", "j2kLossy"]),
    "signed": ((31, 66), 16, True, False, ["rle", "grle", "sv1", "sel4", "sel5", "sel6", "gjpeg", "ls", "gls", "j2k"]),
    "signed12": ((30, 30), 12, True, False, ["ext12", "rle", "sv1", "gjpeg", "ls", "j2k"]),
    "grey32": ((20, 31), 32, False, False, ["rle"]),
    "rgb": ((41, 53, 3), 8, False, False, [*TOOLS]),
    "planes": ((40, 52, 3), 8, False, True, ["rle", "grle", "ls"]),
    "rgb16": ((24, 26, 3), 16, False, False, ["rle", "sv1", "gjpeg", "ls"]),
}
TOOLS["ext12"] = ("dcmcjpeg +ee", False)  # of 12 bits, own code in every build


def smooth(shape, bits, signed):
    """Two frames of waves with a little noise over most of what the bits hold, both extremes among them."""
    noise = numpy.random.default_rng(len(shape) + bits)
    y, x = numpy.mgrid[0:shape[0], 0:shape[1]]
    wave = (numpy.sin(x / 9) + numpy.cos(y / 7) + 2.2) / 4.4
    wave = wave[..., None] * [1, 0.8, 0.5] if len(shape) == 3 else wave
    values = (wave[None] * 0.9 + noise.random((2, *shape)) * 0.03) * (2 ** bits - 1)
    values = values.astype(numpy.int64)
    values.flat[1], values.flat[2] = 0, 2 ** bits - 1
    return values - (2 ** (bits - 1) if signed else 0)


def data_set(values, bits, signed=False, planes=False):
    size = 1 if bits <= 8 else 2 if bits <= 16 else 4
    return image(values.astype(f"<{'i' if signed else 'u'}{size}"), bits, int(planes))


def save(ds, folder, name):
    (WORK / folder).mkdir(exist_ok=True)
    ds.save_as(WORK / folder / f"{name}.dcm", write_like_original=False)


def pixels(path):
    """The stored values of an uncompressed file, and its data set."""
    ds = pydicom.dcmread(path)
    assert not ds.file_meta.TransferSyntaxUID.is_compressed, path
    return stored_values(ds), ds


def tool(command, source, target):
    """Whether a peer turned one file into another."""
    subprocess.run([*command.split(), source, target], capture_output=True, timeout=60, check=False)
    return target.exists() and target.stat().st_size > 0


def decoded_by_peer(path, uid, folder):
    """The stored values, by the first tool that knows the syntax. Colours as RGB only where dcmtk makes them so."""
    command = {RLE: "dcmdrle", BASELINE: "dcmdjpeg +cp", EXTENDED: "dcmdjpeg +cp", ANY_SELECTION: "dcmdjpeg +cn",
               LOSSLESS: "dcmdjpeg +cn"}.get(uid, "dcmdjpls" if uid.startswith("1.2.840.10008.1.2.4.8") else "gdcmconv --raw")
    target = WORK / folder / path.name
    assert tool(command, path, target), (command, path.name)
    return pixels(target)[0]


def native_sources():
    for name, (shape, bits, signed, planes, _) in SOURCES.items():
        save(data_set(smooth(shape, bits, signed), bits, signed, planes), "native", name)


def peers_streams():
    """Each encoder's file is decoded as the encoder's own tools do it, and lossless ones as they were."""
    native_sources()
    jobs = [(source, name) for source, row in SOURCES.items() for name in row[4] if name in TOOLS]
    for folder in ("packed", "peer"):
        (WORK / folder).mkdir()
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        made = list(pool.map(lambda job: tool(TOOLS[job[1]][0], WORK / "native" / f"{job[0]}.dcm",
                                              WORK / "packed" / f"{job[0]}-{job[1]}.dcm"), jobs))
    assert all(made), [job for job, done in zip(jobs, made) if not done]
    korvane("convert", WORK / "packed", WORK / "decoded")
    for source, name in jobs:
        packed = WORK / "packed" / f"{source}-{name}.dcm"
        ours, ds = pixels(WORK / "decoded" / packed.name)
        uid = pydicom.dcmread(packed, stop_before_pixels=True).file_meta.TransferSyntaxUID
        expected = pixels(WORK / "native" / f"{source}.dcm")[0] if TOOLS[name][1] else decoded_by_peer(packed, uid, "peer")
        tolerance = 1 if name == "ext12" else 0  # dcmtk's transform is in integers
        assert (abs(ours - expected) <= tolerance).all(), (source, name, uid)
        assert ds.PhotometricInterpretation == ("RGB" if ds.SamplesPerPixel == 3 else "MONOCHROME2"), (source, name)
        assert TOOLS[name][1] or name == "j2kLossy" or ds.LossyImageCompression == "01", (source, name)


def streams_that_tools_do_not_write():
    """Lossless JPEG with restart intervals, point transforms, a scan for each component, all selections, 2 to 16 bits."""
    noise = numpy.random.default_rng(5)
    cases = [(precision, 1 + i % 7, (0, 1, 3)[i % 3], i % 2, 3 if i % 4 == 3 and precision <= 8 else 1)
             for i, precision in enumerate([2, 3, 5, 7, 8, 8, 8, 8, 9, 10, 12, 13, 14, 15, 16, 16, 16, 16, 16, 16, 16])]
    expected = {}
    for i, (precision, selection, restart, shift, samples) in enumerate(cases):
        values = noise.integers(0, 2 ** precision, (1, 10, 13, samples)) >> shift << shift
        values[0, :4] = values[0, 0, 0]  # some rows without differences
        values[0, 5, :, 0] = numpy.arange(13) % 2 << (precision - 1)  # and the greatest that there are
        for scans in (None, [[c] for c in range(samples)])[:samples]:
            ds = data_set(values if samples == 3 else values[..., 0], precision)
            rows = [values[0, :, :, c].tolist() for c in range(samples)]
            encapsulate(ds, ANY_SELECTION, [lossless_jpeg.encode(rows, precision, selection, restart, shift, scans)])
            if precision == 12:  # as scanners write them that keep pixels in the high bits: the stream's are low ones
                ds.HighBit = 15
            name = f"made{i}{'-scans' if scans else ''}"
            save(ds, "made", name)
            expected[name] = values if samples == 3 else values[..., 0]
    korvane("convert", WORK / "made", WORK / "decoded")
    (WORK / "peer").mkdir()
    for number, (name, values) in enumerate(expected.items()):
        ours, ds = pixels(WORK / "decoded" / f"{name}.dcm")
        assert numpy.array_equal(ours, values) and ds.HighBit == ds.BitsStored - 1, name
        if number in (0, 2, 7):  # the encoder here is right: a peer reads its streams so too
            assert numpy.array_equal(decoded_by_peer(WORK / "made" / f"{name}.dcm", ANY_SELECTION, "peer"), values), name


def our_streams():
    """Peers find every bit in what is compressed here, and it comes back bit for bit."""
    native_sources()
    stray = data_set(smooth((9, 9), 12, False) | 0x5000, 12)  # bits above those stored are kept as well
    save(stray, "native", "stray")
    for syntax, tools in (("rle", ["dcmdrle", "gdcmconv --raw"]), ("jpegll", ["dcmdjpeg", "gdcmconv --raw"])):
        korvane("convert", WORK / "native", WORK / syntax, "--syntax", syntax, status=0 if syntax == "rle" else 1)
        korvane("convert", WORK / syntax, WORK / f"{syntax}-back")
        (WORK / f"{syntax}-peer").mkdir()
        for packed in sorted((WORK / syntax).iterdir()):
            before, original = pixels(WORK / "native" / packed.name)
            back, ds = pixels(WORK / f"{syntax}-back" / packed.name)
            assert numpy.array_equal(back, before), packed
            same = ds.get("PlanarConfiguration") == original.get("PlanarConfiguration")
            assert not same or ds.PixelData == original.PixelData, packed
            for number, command in enumerate(tools[:1] if packed.stem == "rgb16" else tools):
                target = WORK / f"{syntax}-peer" / f"{number}{packed.name}"
                assert tool(command, packed, target) and numpy.array_equal(pixels(target)[0], before), (command, packed)
        assert (WORK / syntax / "grey32.dcm").exists() == (syntax == "rle")


def refusals():
    """What cannot be decoded is said, with the reason; streams that end early are not filled up with grey."""
    native_sources()
    (WORK / "packed").mkdir()
    commands = {"12": ("grey12", "dcmcjpeg +ee"), "base": ("rgb", "dcmcjpeg +eb"), "ls": ("grey8", "dcmcjpls +el"),
                "j2k": ("grey8", "gdcmconv --j2k"), "sv1": ("grey12", "dcmcjpeg +e1"), "rle": ("grey12", "dcmcrle")}
    for name, (source, command) in commands.items():
        packed = WORK / "packed" / f"{name}.dcm"
        assert tool(command, WORK / "native" / f"{source}.dcm", packed), command
        ds = pydicom.dcmread(packed)
        frames = list(pydicom.encaps.generate_pixel_data_frame(ds.PixelData, 2))
        ds.PixelData = pydicom.encaps.encapsulate([frames[0], frames[1][:len(frames[1]) * 2 // 3 & ~1]])
        ds.save_as(packed)
        _, err = korvane("convert", packed, WORK / "out.dcm", status=1)
        assert name in ("ls", "j2k", "base") and WINDOWS or "frame 2" in err, err
        assert not (WORK / "out.dcm").exists()


host_test.run(peers_streams, streams_that_tools_do_not_write, our_streams, refusals)
