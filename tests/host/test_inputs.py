#!/usr/bin/env python3
"""What the paths of a job may be: a DICOMDIR, archives, standard input, lists of paths."""

import gzip
import io
import os
import shutil
import subprocess
import tarfile
import tempfile
import zipfile

import numpy
import pydicom

from host_test import KORVANE, WINDOWS, WORK, info, korvane, phantom, read_volume, run

SMALL = ("--slices", 4, "--size", 16)


def piped(data, *arguments, status=0):
    done = subprocess.run([*KORVANE, *map(str, arguments)], input=data, capture_output=True, timeout=60, check=False)
    assert done.returncode == status, (done.returncode, done.stdout, done.stderr)
    return done.stdout.decode(), done.stderr.decode()


def voxels(path):
    """Of a NIfTI file of 16 x 16 planes: behind its header of 352 bytes. The made series descends."""
    return numpy.frombuffer(path.read_bytes()[352:], "<i2").reshape(-1, 16, 16)[::-1]


def unpacked_folders():
    return [name for name in os.listdir(tempfile.gettempdir()) if name.startswith("korvane-") and name[8:].isdigit()]


def archives():
    series = phantom("series", *SMALL)
    files = sorted(series.iterdir())
    expected = read_volume(series)[0]
    before = unpacked_folders()
    packed = []
    with zipfile.ZipFile(WORK / "a.zip", "w", zipfile.ZIP_DEFLATED) as archive:
        # Names that would lead elsewhere, if they were used.
        for number, path in enumerate(files):
            archive.writestr(("../../up%d", "/root%d", "c:\\x%d", "same")[number] % ((number,) if number < 3 else ()),
                             path.read_bytes())
        archive.writestr("notes.txt", b"no image")
        archive.writestr("same", b"no image either")
    packed.append("a.zip")
    for suffix in ("", ".gz", ".bz2", ".xz"):
        with tarfile.open(WORK / f"a.tar{suffix}", "w:" + suffix[1:]) as archive:
            archive.add(series, "study")
        packed.append(f"a.tar{suffix}")
    for name in packed:
        if WINDOWS:
            assert "an archive; this build reads none" in korvane("info", WORK / name, status=1)[1]
            continue
        found = info(WORK / name)
        assert len(found) == 1 and found[0]["slices"] == 4, found
        korvane("export", WORK / name, "--format", "nifti", "--sidecar", "--to", WORK / f"{name}.nii")
        assert numpy.array_equal(voxels(WORK / f"{name}.nii"), expected), name
        korvane("slice", WORK / name, "--view", "axial", "-o", WORK / "p.png")
        korvane("slice", WORK / name, "-o", WORK / "q.png")
    if not WINDOWS:
        assert "2 files are not DICOM" in korvane("info", WORK / "a.zip")[0]
        assert piped((WORK / "a.tar.gz").read_bytes(), "info", "-") [0] == korvane("info", WORK / "a.tar.gz")[0]
    assert unpacked_folders() == before, "temporary folders were left"


def faulty_archives():
    if WINDOWS:
        return
    series = phantom("more", *SMALL)
    with tarfile.open(WORK / "b.tar.gz", "w:gz") as archive:
        archive.add(series, "study")
    whole = (WORK / "b.tar.gz").read_bytes()
    (WORK / "cut.tar.gz").write_bytes(whole[:len(whole) * 2 // 3])
    (WORK / "text.gz").write_bytes(gzip.compress(b"no archive" * 100))
    for name, words in (("cut.tar.gz", "cut.tar.gz: "), ("text.gz", "Unrecognized archive format")):
        assert words in korvane("info", WORK / name, status=1)[1], name
        out, err = korvane("export", WORK / name, "--format", "nifti", "--to", WORK / "none.nii", status=1)
        assert name in err and not out, err
    # One data set in a loop of hard links and links, and an encrypted one.
    with tarfile.open(WORK / "links.tar", "w") as archive:
        archive.add(sorted(series.iterdir())[0], "one")
        for kind, target in ((tarfile.LNKTYPE, "one"), (tarfile.SYMTYPE, "/etc/passwd"), (tarfile.CHRTYPE, "")):
            entry = tarfile.TarInfo("link")
            entry.type, entry.linkname = kind, target
            archive.addfile(entry)
    assert len(info(WORK / "links.tar")) == 1
    data = io.BytesIO()
    with zipfile.ZipFile(data, "w") as archive:
        archive.writestr("secret", sorted(series.iterdir())[0].read_bytes())
    marked = bytearray(data.getvalue())
    marked[6] |= 1
    marked[marked.rindex(b"PK\1\2") + 8] |= 1
    (WORK / "secret.zip").write_bytes(marked)
    assert "1 encrypted entries were not read" in korvane("info", WORK / "secret.zip", status=1)[1]


def directories():
    series = phantom("disk", *SMALL)
    korvane("media", WORK / "medium", series)
    directory = WORK / "medium/DICOMDIR"
    files = sorted(path for path in (WORK / "medium").rglob("*") if path.is_file() and path != directory)
    assert len(info(directory)) == 1 and info(directory)[0]["modality"] == "CT"
    korvane("export", directory, "--format", "nifti", "--to", WORK / "medium.nii")
    assert numpy.array_equal(voxels(WORK / "medium.nii"), read_volume(series)[0])
    # Names in lower case, as some systems copy them; one file is gone; one record leads out of the medium.
    lower = WORK / "lower"
    for path in files[1:]:
        target = lower / path.relative_to(WORK / "medium").as_posix().lower()
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(path, target)
    ds = pydicom.dcmread(directory)
    ds.DirectoryRecordSequence[-2].ReferencedFileID = ["..", "series"]
    ds.save_as(lower / "dicomdir")
    out, err = korvane("info", lower / "dicomdir", status=1)
    assert "is no file ID" in err and "is not there" in err, err
    assert err.count("dicomdir: ") == 2 and "2 slices" in out, (out, err)


def lists():
    series = phantom("listed", *SMALL)
    files = sorted(series.iterdir())
    listed = "\r\n".join(map(str, files[:3])) + "\n\n"
    (WORK / "list").write_text(listed)
    by_paths = korvane("info", *files[:3])[0]
    assert korvane("info", "--files-from", WORK / "list")[0] == by_paths
    assert piped(listed.encode(), "info", "--files-from", "-")[0] == by_paths
    assert korvane("info", files[2], "--files-from", WORK / "list")[0] == by_paths
    korvane("info", "--files-from", WORK / "none", status=1)
    korvane("info", status=2)
    korvane("export", "-", "--files-from", "-", "--format", "nifti", "--to", WORK / "x", status=2)
    one = files[0].read_bytes()
    assert piped(one, "info", "-")[0].replace("standard input", str(files[0])) == korvane("info", files[0])[0]
    assert piped(one, "dump", "-")[0] == korvane("dump", files[0])[0]
    assert "standard input: not a DICOM file" in piped(b"text", "dump", "-", status=1)[1]
    assert "standard input: the data ends early" in piped(one[:-10], "dump", "-", status=1)[1]
    piped(b"", "info", "-", status=1)
    piped(one, "export", "-", "--format", "nifti", "--to", WORK / "piped.nii")
    assert numpy.array_equal(voxels(WORK / "piped.nii"), pydicom.dcmread(files[0]).pixel_array[None])


run(archives, faulty_archives, directories, lists)
