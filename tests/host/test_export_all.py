#!/usr/bin/env python3
"""A messy folder in one call: `korvane export FOLDER --all`."""

import json
import subprocess

import pydicom

from host_test import KORVANE, WINDOWS, WORK, edited, korvane, phantom, run, wait_for

SMALL = ("--slices", 3, "--size", 16)


def numbered(name, number, description, *options, seed=1):
    """A series with this number and description, of a scanner's own texts."""
    def change(ds, _):
        ds.SpecificCharacterSet = "ISO_IR 100"
        ds.SeriesNumber = number
        ds.SeriesDescription = description
        ds.ProtocolName = "p:1"

    return edited(phantom(name + "-made", *SMALL, "--seed", seed, *options), name, change)


def names(folder):
    return sorted(path.relative_to(folder).as_posix() for path in folder.rglob("*") if path.is_file())


def mess():
    """Two series of one name, one that fails, an object without pixels, a file that is none."""
    study = WORK / "study"
    study.mkdir()
    numbered("a", 5, "head/../CON").rename(study / "a")
    numbered("b", 5, "HEAD/../con", seed=2).rename(study / "b")
    short = numbered("c", 7, "cut short", seed=3)
    whole = sorted(short.iterdir())[0].read_bytes()
    sorted(short.iterdir())[0].write_bytes(whole[:-100])
    short.rename(study / "c")
    report = pydicom.Dataset()
    report.update({"SOPClassUID": "1.2.840.10008.5.1.4.1.1.88.11", "SOPInstanceUID": "2.25.1", "Modality": "SR",
                   "SeriesInstanceUID": "2.25.2", "SeriesNumber": 9})
    report.is_little_endian, report.is_implicit_VR = True, False
    report.file_meta = pydicom.dataset.FileMetaDataset()
    report.file_meta.TransferSyntaxUID = pydicom.uid.ExplicitVRLittleEndian
    pydicom.dcmwrite(study / "sr.dcm", report, write_like_original=False)
    (study / "notes.txt").write_text("no image")
    return study


def whole_folder():
    study, out, report = mess(), WORK / "out/deep", WORK / "report.json"
    text, err = korvane("export", study, "--all", "--format", "nifti", "--to", out, "--report", report, status=1)
    assert names(out) == ["5_HEAD_.._cona.nii", "5_head_.._CON.nii"], names(out)
    assert "refused" in text and "4 series: 2 written, 1 refused, 0 done before, 1 without image" in text, text
    assert "1 of 4 series refused" in err, err
    first = {path: (out / path).read_bytes() for path in names(out)}
    # What is there stays, unless it may go; an earlier report lets it be passed over.
    text, _ = korvane("export", study, "--all", "--format", "nifti", "--to", out, status=1)
    assert "0 written, 3 refused" in text, text
    text, _ = korvane("export", study, "--all", "--format", "nifti", "--to", out, "--resume", report, status=1)
    assert "0 written, 1 refused, 2 done before" in text, text
    (out / "5_head_.._CON.nii").unlink()
    text, _ = korvane("export", study, "--all", "--format", "nifti", "--to", out, "--resume", report, "--report", report,
                      status=1)
    assert "1 written, 1 refused, 1 done before" in text, text
    text, _ = korvane("export", study, "--all", "--format", "nifti", "--to", out, "--overwrite", "--jobs", 1, status=1)
    assert "2 written, 1 refused" in text, text
    assert first == {path: (out / path).read_bytes() for path in names(out)}
    assert [series["status"] for series in json.loads(report.read_text())["series"]].count("whole") == 1
    assert "no report" in korvane("export", study, "--all", "--format", "nifti", "--to", out, "--resume", study / "notes.txt",
                                  status=1)[1]


def patterns():
    study = numbered("d", 4, "caf\u00e9.nii", "--volumes", 2)
    for pattern, expected in (("%m/%s_%p", ["CT/4_p_1.nii"]), ("%d", ["caf\u00e9.nii.nii"]), ("50%%_%e", ["50.nii"])):
        out = WORK / f"out{len(pattern)}"
        korvane("export", study, "--all", "--format", "nifti", "--name", pattern, "--to", out)
        assert names(out) == expected, names(out)
    for pattern in ("%x", "a/../b", "/a", "%"):
        korvane("export", study, "--all", "--format", "nifti", "--name", pattern, "--to", WORK / "none", status=2)
    korvane("export", study, "--format", "nifti", "--overwrite", "--to", WORK / "none", status=2)
    assert not (WORK / "none").exists()


def echoes():
    """Volumes that mean different things become files, and of a format without times each volume does."""
    folder = edited(phantom("made", *SMALL, "--volumes", 4), "echoes",
                    lambda ds, n: ds.update({"EchoNumbers": 1 + n // 3 % 2, "TemporalPositionIdentifier": 1 + n // 6}))
    korvane("export", folder, "--all", "--format", "nifti", "--name", "v", "--to", WORK / "n")
    assert names(WORK / "n") == ["v_e1.nii", "v_e2.nii"], names(WORK / "n")
    korvane("export", folder, "--all", "--format", "vox", "--name", "v", "--to", WORK / "r")
    assert len(names(WORK / "r")) == 4 and {"v_e1.vox", "v_e2.vox"} < set(names(WORK / "r")), names(WORK / "r")
    single = korvane("export", folder, "--format", "nrrd", "--to", WORK / "vol.nrrd")[0]
    assert "vol.nrrd" in single and (WORK / "vol.nrrd").exists()


def killed():
    """What a run had written is in its report before it ends, and is not written again."""
    if WINDOWS:
        print("skipped: an emulator is killed, not the program")
        return
    folder = WORK / "long"
    folder.mkdir()
    for number in range(6):
        phantom(f"long/{number}", "--slices", 40, "--size", 256, "--seed", number + 1)
    report = WORK / "killed.json"
    command = ("export", folder, "--all", "--format", "nifti", "--gzip", "--jobs", 1, "--to", WORK / "killed", "--report", report)
    with subprocess.Popen([*KORVANE, *map(str, command)], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as process:
        wait_for(report.exists)
        process.kill()
    whole = [series["status"] for series in json.loads(report.read_text("utf-8"))["series"]].count("written")
    assert whole >= 1, report.read_text("utf-8")
    out, _ = korvane(*command, "--resume", report, "--overwrite")
    assert f"6 series: {6 - whole} written, 0 refused, {whole} done before" in out, (whole, out)


run(whole_folder, patterns, echoes, killed)
