#!/usr/bin/env python3
"""`korvane export --all --bids`: what goes where, and sidecars as BIDS defines their fields. Pictures beside volumes."""

import json
import pathlib
import shutil

import jsonschema
import numpy
from PIL import Image

from host_test import SAMPLES, WORK, edited, korvane, phantom, run

SMALL = ("--slices", 3, "--size", 16)
METADATA = SAMPLES.parent / "reference/bids/metadata.yaml"


def scan(number, description, volumes=1, change=None):
    """An MR series in the folder of the study."""
    def edit(ds, n):
        ds.StudyInstanceUID = "2.25.99"
        ds.Modality, ds.SeriesNumber, ds.SeriesDescription = "MR", number, description
        ds.ImageType = ["ORIGINAL", "PRIMARY", "M", "ND"]
        ds.RepetitionTime, ds.EchoTime, ds.FlipAngle, ds.MagneticFieldStrength = 2000, 30, 90, 3
        if change:
            change(ds, n)

    made = phantom(f"made{number}", *SMALL, "--seed", number, "--volumes", volumes)
    edited(made, f"edited{number}", edit).rename(WORK / "study" / str(number))


def echo(number):
    return lambda ds, n: ds.update({"EchoNumbers": n // 3 + 1, "EchoTime": (4.92, 7.38)[n // 3], "AcquisitionNumber": number})


def difference(ds, _):
    ds.ImageType, ds.EchoTime = ["ORIGINAL", "PRIMARY", "P", "ND"], 7.38


def weighted(ds, n):
    ds.add_new(0x00189087, "FD", (0.0, 1000.0)[n // 3])
    if n >= 3:
        ds.add_new(0x00189089, "FD", [1.0, 0.0, 0.0])


def study():
    (WORK / "study").mkdir()
    scan(1, "localizer")
    scan(2, "t1_mprage_sag")
    scan(3, "T1w again")
    scan(4, "t2_flair_tra")
    scan(5, "t1 t2 both")
    scan(6, "bold_task-Faces_AP", 3)
    scan(7, "bold without", 3)
    scan(8, "gre_field_mapping", 2, echo(1))
    scan(9, "gre_field_mapping", 1, difference)
    scan(10, "ep2d", 2, weighted)
    phantom("study/11", *SMALL, "--seed", 11)
    return WORK / "study"


def files(folder):
    return sorted(path.relative_to(folder).as_posix() for path in folder.rglob("*.nii.gz"))


def tree():
    source, out = study(), WORK / "bids"
    text, _ = korvane("export", source, "--all", "--format", "nifti", "--bids", "--subject", "01", "--session", "A",
                      "--to", out)
    stem = "sub-01/ses-A/{}/sub-01_ses-A_"
    expected = [stem.format("anat") + "FLAIR", stem.format("anat") + "run-1_T1w", stem.format("anat") + "run-2_T1w",
                stem.format("dwi") + "dwi", stem.format("fmap") + "magnitude1", stem.format("fmap") + "magnitude2",
                stem.format("fmap") + "phasediff", stem.format("func") + "task-faces_dir-AP_bold"]
    found = files(out)
    assert [name[:-7] for name in found if name.startswith("sub-")] == expected, found
    other = [name for name in found if not name.startswith("sub-")]
    assert len(other) == 4 and all(name.startswith("sourcedata/sub-01/ses-A/") for name in other), found
    for why in ("a localizer", "several contrasts", "no task in its name", "no MR images"):
        assert f"({why})" in text or why in text, text
    read = {name: json.loads((out / (name + ".json")).read_text()) for name in expected}
    assert read[expected[-1]]["TaskName"] == "faces"
    assert [read[expected[6]][name] for name in ("EchoTime1", "EchoTime2")] == [0.00492, 0.00738]
    assert [read[name]["EchoTime"] for name in expected[4:6]] == [0.00492, 0.00738]
    assert (out / (expected[3] + ".bval")).read_text().split() == ["0", "1000"]
    description = out / "dataset_description.json"
    assert json.loads(description.read_text())["BIDSVersion"]
    # A second subject keeps what is there; the same one again is refused.
    description.write_text('{"Name": "mine", "BIDSVersion": "1.10.0"}')
    korvane("export", source / "2", "--all", "--format", "nifti", "--bids", "--subject", "02", "--to", out)
    assert "mine" in description.read_text() and (out / "sub-02/anat/sub-02_T1w.nii.gz").exists()
    korvane("export", source / "2", "--all", "--format", "nifti", "--bids", "--subject", "02", "--to", out, status=1)
    for wrong in (["--subject", "../x"], ["--subject", "a-b"], []):
        korvane("export", source, "--all", "--format", "nifti", "--bids", *wrong, "--to", WORK / "none", status=2)
    korvane("export", source, "--all", "--format", "vox", "--bids", "--subject", "1", "--to", WORK / "none", status=2)
    assert not (WORK / "none").exists()


def schema_of(field):
    """What BIDS says of a field, as a JSON schema: the same words."""
    words = ("type", "enum", "items", "minimum", "maximum", "exclusiveMinimum", "exclusiveMaximum", "anyOf", "minItems", "maxItems")
    return {word: field[word] for word in words if word in field and not (word == "items" and "$ref" in str(field))}


def fields():
    """Every field that BIDS knows has the type and range that it defines."""
    try:
        import yaml
        metadata = yaml.safe_load(METADATA.read_text())
    except (ImportError, OSError):
        print("skipped: no definitions of BIDS, or no python3-yaml")
        return
    sources = [study()] + [path for path in (SAMPLES / "vendors").glob("*") if path.is_dir()]
    known, units = 0, {"s": 60, "T": 20}
    for number, source in enumerate(sources):
        korvane("export", source, "--all", "--format", "nifti", "--bids", "--subject", str(number), "--to", WORK / "all",
                "-q", status=None)
    for path in (WORK / "all").rglob("*.json"):
        for name, value in json.loads(path.read_text()).items():
            if name not in metadata:
                continue
            schema = schema_of(metadata[name])
            if "$ref" in str(schema):
                continue
            try:
                jsonschema.validate(value, schema)
            except jsonschema.ValidationError as error:
                raise AssertionError(f"{path}: {name}: {error.message}") from error
            most = units.get(metadata[name].get("unit"))
            assert most is None or numpy.max(numpy.abs(value)) < most, (path, name, value)
            known += 1
    assert known > 50, known


def previews():
    series = phantom("seen", *SMALL)
    korvane("export", series, "--format", "nifti", "--preview", "--to", WORK / "one.nii")
    picture = numpy.array(Image.open(WORK / "one.png"))
    assert picture.shape[1] > 3 * 64 and picture.std() > 10, picture.shape
    korvane("export", series, "--format", "nifti", "--preview", "--dry-run", "--to", WORK / "two.nii")
    assert not (WORK / "two.png").exists()
    korvane("export", series, "--format", "vox", "--preview", "--to", WORK / "three", status=2)
    korvane("export", series, "--all", "--format", "nrrd", "--preview", "--to", WORK / "many", "--report", WORK / "r.json")
    names = sorted(path.name for path in (WORK / "many").iterdir())
    assert [pathlib.Path(name).suffix for name in names] == [".nrrd", ".png"], names
    # An earlier run is whole by its bytes, not by its sizes.
    again = ("export", series, "--all", "--format", "nrrd", "--preview", "--to", WORK / "many", "--resume", WORK / "r.json",
             "--overwrite")
    assert "1 done before" in korvane(*again)[0]
    damaged = bytearray((WORK / "many" / names[0]).read_bytes())
    damaged[-1] ^= 1
    (WORK / "many" / names[0]).write_bytes(damaged)
    assert "1 written" in korvane(*again)[0]
    shutil.rmtree(WORK / "many")


run(tree, fields, previews)
