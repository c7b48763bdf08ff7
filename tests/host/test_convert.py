#!/usr/bin/env python3
"""korvane convert: nothing of a data set is lost in any syntax, compression without loss gives every bit back, and
what is compressed is read like anything else."""

import os
import pathlib
import re
import shutil
import subprocess

import host_test
import numpy
import pydicom
from host_test import KORVANE, WINDOWS, WORK, export, info, korvane, phantom, wait_for
from images import encapsulate, image
from pydicom.uid import DeflatedExplicitVRLittleEndian

UNCOMPRESSED = ("implicit", "explicit", "big")
COMPRESSED = ("rle", "jpegll")


def elements(ds, private):
    """Tag paths to values; of private elements, whose type implicit streams lose, only whether they are there."""
    found = {}
    for element in ds:
        if element.VR == "SQ" and not element.tag.is_private:
            for number, item in enumerate(element.value):
                found |= {(element.tag, number, *path): value for path, value in elements(item, private).items()}
        if element.tag.is_private and not private:
            found[(element.tag,)] = "there"
        else:
            value = element.value
            unknown = isinstance(value, bytes) and element.VR == "UN"
            found[(element.tag,)] = value.rstrip(b"\0") if unknown else str(value)
    return found


def convert(source, name, syntax):
    korvane("convert", source, WORK / name, "--syntax", syntax)
    return WORK / name


def forms():
    ramp = numpy.random.default_rng(7)
    for dtype, shape, stored in (("u1", (1, 3, 5), None), ("u1", (3, 5, 7), None), ("<u2", (1, 9, 8), 12),
                                 ("<i2", (3, 4, 5), 12), ("<i2", (1, 7, 3), 16), ("<u4", (2, 3, 3), None),
                                 ("u1", (2, 5, 3, 3), None), ("<u2", (1, 4, 4, 3), None)):
        bits = stored or numpy.dtype(dtype).itemsize * 8
        low = -(1 << bits - 1) if "i" in dtype else 0
        values = ramp.integers(low, low + (1 << bits), shape, dtype=numpy.int64).astype(dtype)
        for planar in (0, 1) if len(shape) == 4 else (0,):
            yield image(values, stored, planar)
    yield image(ramp.integers(0, 1 << 16, (2, 4, 6)).astype("<u2"), 12)  # overlays in the bits above


def lossless_round_trips():
    for number, ds in enumerate(forms()):
        source = WORK / f"{number}.dcm"
        ds.save_as(source)
        original = pydicom.dcmread(source)
        chain = source
        for syntax in (*UNCOMPRESSED, *COMPRESSED, "big", "rle", "explicit", "implicit", "explicit"):
            if syntax == "jpegll" and ds.BitsAllocated == 32:
                continue
            chain = convert(chain, f"{number}-{syntax}.dcm", syntax)
            read = pydicom.dcmread(chain)
            expected, found = (elements(one, private=False) for one in (original, read))
            changed = {0x7FE00010, 0x00280006}
            assert {k: v for k, v in found.items() if k[0] not in changed} == \
                   {k: v for k, v in expected.items() if k[0] not in changed}, (number, syntax)
            assert list(read.keys()) == sorted(read.keys()), syntax
            if syntax in ("explicit", "rle"):
                assert (read.pixel_array == original.pixel_array).all(), (number, syntax)
            if syntax == "explicit":
                assert len(read.PixelData) == len(original.PixelData)
        direct = pydicom.dcmread(convert(source, f"{number}-again.dcm", "explicit"))
        assert elements(direct, private=True) == elements(original, private=True)
        assert [e.VR for e in direct.iterall()] == [e.VR for e in original.iterall()]


def streams_and_refusals():
    source = WORK / "a.dcm"
    image(numpy.ones((1, 4, 4), "u1")).save_as(source)
    before = source.read_bytes()
    expected = convert(source, "b.dcm", "rle").read_bytes()
    for arguments in (("-", "-"), (source, "-")):
        command = [*KORVANE, "convert", *map(str, arguments), "--syntax", "rle"]
        done = subprocess.run(command, input=before, capture_output=True, check=True, timeout=60)
        assert done.stdout == expected
    os.link(source, WORK / "link.dcm")
    (WORK / "folder").mkdir()
    (WORK / "text").write_text("not DICOM")
    (WORK / "cut.dcm").write_bytes(before[:-9])
    nested = pydicom.dcmread(source)
    for tag in [tag for tag in nested.keys() if tag > 0x00880200]:
        del nested[tag]
    nested.IconImageSequence = [pydicom.Dataset()]
    nested["IconImageSequence"].is_undefined_length = True
    nested.save_as(WORK / "nested.dcm")
    (WORK / "nested.dcm").write_bytes((WORK / "nested.dcm").read_bytes()[:-8])  # without the sequence's end
    film = encapsulate(image(numpy.ones((1, 4, 4), "u1")), "1.2.840.10008.1.2.4.100", [b"film"])
    film.save_as(WORK / "film.dcm")
    for source_name, target, words in (("a.dcm", "a.dcm", "overwrite"), ("a.dcm", "link.dcm", "overwrite"),
                                       ("text", "x", "not a DICOM"), ("cut.dcm", "x", "ends early"),
                                       ("nested.dcm", "x", "nested.dcm: the data ends early"),
                                       ("gone", "x", "gone"),
                                       ("a.dcm", "no/such/x", "no/such/x"), (".", "folder/x", "neither"),
                                       ("folder", ".", "neither"), ("folder", "x", "no DICOM files"),
                                       ("film.dcm", "x", "MPEG2 Main Profile (1.2.840.10008.1.2.4.100)")):
        assert words in korvane("convert", source_name, target, status=1, cwd=WORK)[1], (source_name, target)
    assert "MPEG2" in export(WORK / "film.dcm", status=1)[2]
    assert source.read_bytes() == before and not list(WORK.rglob("*.part"))
    korvane("convert", source, WORK / "folder")
    assert (WORK / "folder" / "a.dcm").is_file()
    korvane("convert", WORK / "folder", "-", status=2)
    korvane("convert", "-", WORK / "folder", status=2, input="")
    plain = (WORK / "folder" / "a.dcm").read_bytes()
    for name in ("c.dcm.part", "c.dcm.1.part"):  # a user's own
        shutil.copy(WORK / "b.dcm", WORK / name)
    korvane("convert", WORK / "c.dcm.part", WORK / "c.dcm")
    assert (WORK / "c.dcm").read_bytes() == plain
    assert all((WORK / name).read_bytes() == expected for name in ("c.dcm.part", "c.dcm.1.part"))


def special_files():
    """What is no regular file stays what it is, and a link stays a link."""
    image(numpy.ones((1, 4, 4), "u1")).save_as(WORK / "a.dcm")
    expected = convert(WORK / "a.dcm", "b.dcm", "rle").read_bytes()
    (WORK / "c.dcm").touch()
    os.symlink("c.dcm", WORK / "link")
    os.mkfifo(WORK / "pipe")
    with subprocess.Popen(["cat", WORK / "pipe"], stdout=subprocess.PIPE) as reader:
        for name in ("link", "pipe"):
            convert(WORK / "a.dcm", name, "rle")
        assert reader.communicate(timeout=60)[0] == expected == (WORK / "c.dcm").read_bytes()
    assert (WORK / "link").is_symlink() and (WORK / "pipe").is_fifo()
    os.symlink("/dev/full", WORK / "full")
    assert "No space left" in korvane("convert", WORK / "a.dcm", WORK / "full", status=1)[1]
    with open("/dev/zero", "rb") as endless:  # nothing is read of what does not begin as a data set
        assert "not a DICOM" in korvane("convert", "-", WORK / "x", status=1, stdin=endless)[1]
    assert sorted(path.name for path in WORK.iterdir()) == ["a.dcm", "b.dcm", "c.dcm", "full", "link", "pipe"]


def folders_and_mixed_series():
    plain = phantom("plain", "--size", 16, "--slices", 8)
    (plain / "deep" / "er").mkdir(parents=True)
    files = sorted(plain.glob("*.dcm"))
    files[0].rename(plain / "deep" / "er" / "strange name")
    (plain / "notes.txt").write_text("not DICOM")
    directory = image(numpy.ones((1, 4, 4), "u1"))
    directory.file_meta.MediaStorageSOPClassUID = "1.2.840.10008.1.3.10"
    directory.save_as(plain / "DICOMDIR")
    out, err = korvane("convert", plain, WORK / "packed", "--syntax", "rle", status=1)
    assert "8 files written" in out and "1 files are not DICOM" in out and "DICOMDIR" in err
    (plain / "DICOMDIR").unlink()
    names = {path.relative_to(plain) for path in plain.rglob("*") if path.is_file()} - {pathlib.Path("notes.txt")}
    assert names == {path.relative_to(WORK / "packed") for path in (WORK / "packed").rglob("*") if path.is_file()}
    for number, name in enumerate(sorted(names)):
        if number % 4 == 0:
            (WORK / "packed" / name).unlink()
            korvane("convert", plain / name, WORK / "packed" / name, "--syntax", "jpegll")
        elif number % 4 == 1:
            shutil.copy(plain / name, WORK / "packed" / name)
        elif number % 4 == 2:
            ds = pydicom.dcmread(plain / name)
            ds.file_meta.TransferSyntaxUID = DeflatedExplicitVRLittleEndian
            ds.is_little_endian, ds.is_implicit_VR = True, False
            ds.save_as(WORK / "packed" / name)
    (series,) = info(WORK / "packed")
    assert len(series["transferSyntaxes"]) == 4 and series["warnings"] == [] and series["slices"] == 8, series
    assert (export(plain)[0].voxels == export(WORK / "packed", name="packed-volume")[0].voxels).all()
    korvane("slice", WORK / "packed", "--view", "axial", "--index", 3, "-o", WORK / "slice.png")


def frames_and_lies():
    """Frames of one compressed file are slices too; a header that promises more than the file holds is refused."""
    ds = image(numpy.arange(4 * 6 * 6, dtype="<u2").reshape(4, 6, 6))
    ds.save_as(WORK / "frames.dcm")
    packed = convert(WORK / "frames.dcm", "packed.dcm", "rle")
    assert (export(packed)[0].voxels == export(WORK / "frames.dcm", name="plain")[0].voxels).all()
    for change, words in (({"NumberOfFrames": "60000"}, "60000 frames"), ({"Rows": 7}, "frame 1"),
                          ({"Rows": 60000, "Columns": 60000}, "a frame of")):
        lie = pydicom.dcmread(packed)
        for name, value in change.items():
            setattr(lie, name, value)
        lie.save_as(WORK / "lie.dcm")
        err = korvane("convert", WORK / "lie.dcm", WORK / "x.dcm", status=1)[1]
        assert words in err and "RLE Lossless" in err and not (WORK / "x.dcm").exists(), err
    streams = list(pydicom.encaps.generate_pixel_data_frame(pydicom.dcmread(packed).PixelData, 4))
    encapsulate(ds, "1.2.840.10008.1.2.5", [*streams[:3], streams[3][:66]]).save_as(WORK / "cut.dcm")
    for target in ("-", "x.dcm"):  # a file is under way when the damage shows
        out, err = korvane("convert", WORK / "cut.dcm", WORK / target if target != "-" else target, status=1)
        assert "frame 4" in err and not out and not list(WORK.glob("x.dcm*")), err


def one_after_the_other():
    """What is kept from file to file, codecs and buffers, changes none: each is what it is when converted alone, the failing ones
    and those with loss are told, and no others."""
    folder = WORK / "in"
    folder.mkdir()
    ds = image(numpy.arange(4 * 16 * 16, dtype="<u2").reshape(4, 16, 16))
    ds.save_as(folder / "native")
    packed = convert(folder / "native", "rle", "rle")
    streams = list(pydicom.encaps.generate_pixel_data_frame(pydicom.dcmread(packed).PixelData, 4))
    encapsulate(ds, "1.2.840.10008.1.2.5", [*streams[:3], streams[3][:66]]).save_as(WORK / "cut")
    image(numpy.arange(256, dtype="u1").reshape(1, 16, 16)).save_as(WORK / "grey")
    lossy = subprocess.run(["dcmcjpeg", "+eb", WORK / "grey", WORK / "lossy"], check=False, capture_output=True).returncode == 0
    rounds = 36  # so many that threads take several at a time
    for round_ in range(rounds):
        for kind in ("rle", "cut", "grey", *(["lossy"] if lossy else [])):
            shutil.copy(WORK / kind, folder / f"{round_:02} {kind}")
    for syntax in ("explicit", "jpegll"):
        for jobs in (1, 3):
            out = WORK / f"{syntax}{jobs}"
            err = korvane("convert", folder, out, "--syntax", syntax, "--jobs", jobs, status=1)[1]
            cuts = [f"{n:02} cut" for n in range(rounds)]
            assert re.findall(r"\d\d cut(?=:)", err) == cuts and err.count("with loss") == rounds * lossy, err
            assert {path.name for path in folder.iterdir()} == {path.name for path in out.iterdir()} | set(cuts)
            alone = {kind: convert(WORK / kind, "alone", syntax).read_bytes() for kind in ("rle", "grey", *(["lossy"] if lossy else []))}
            alone["native"] = convert(folder / "native", "alone", syntax).read_bytes()
            for path in out.iterdir():
                assert path.read_bytes() == alone[path.name.split()[-1]], path


def interrupted():
    source = phantom("source", "--size", 512, "--slices", 60)
    host_test.interrupted(("convert", source, WORK / "out", "--syntax", "jpegll"), lambda: wait_for((WORK / "out").exists))
    assert not list((WORK / "out").glob("*.part"))


host_test.run(lossless_round_trips, streams_and_refusals, folders_and_mixed_series, frames_and_lies, one_after_the_other,
              *(() if WINDOWS else (special_files, interrupted)))
