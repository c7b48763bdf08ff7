#!/usr/bin/env python3
"""What the program writes as JSON is what docs/schemas says: valid, and no member that is not described there."""

import json
import subprocess
import sys
from pathlib import Path

from host_test import KORVANE, SAMPLES, SKIPPED, WORK, korvane, phantom, run

try:
    import jsonschema
except ImportError:
    print("skipped: python3-jsonschema is not installed")
    sys.exit(SKIPPED)

FOLDER = Path(__file__).resolve().parents[2] / "docs/schemas"
SCHEMAS = {path.name.split(".")[0]: json.loads(path.read_text()) for path in FOLDER.glob("*.schema.json")}


def undescribed(value, schema, where):
    """Members that the schema says nothing about."""
    for choice in schema.get("oneOf", []):
        if choice["properties"]["event"]["const"] == value["event"]:
            schema = choice
    if isinstance(value, dict):
        for name, member in value.items():
            if name not in schema.get("properties", {}):
                yield f"{where}/{name}"
            else:
                yield from undescribed(member, schema["properties"][name], f"{where}/{name}")
    elif isinstance(value, list):
        for member in value:
            yield from undescribed(member, schema.get("items", {}), where)


def conforms(name, text):
    value = json.loads(text)
    jsonschema.Draft202012Validator(SCHEMAS[name]).validate(value)
    assert not list(undescribed(value, SCHEMAS[name], name)), sorted(set(undescribed(value, SCHEMAS[name], name)))
    return value


def series_and_exports():
    odd = phantom("odd", "--slices", 5, "--size", 16, "--uneven")
    times = phantom("times", "--slices", 4, "--size", 16, "--volumes", 2)
    kinds = {finding["kind"] for series in conforms("info", korvane("info", odd, times, "--json")[0])["series"]
             for finding in series["findings"]}
    assert {"uneven gaps", "repeated positions"} <= kinds, kinds
    if SAMPLES.is_dir():
        conforms("info", korvane("info", SAMPLES / "files", SAMPLES / "vendors", "--json", status=None)[0])
    for policy, status in (("split", 0), ("reject", 1)):
        report = WORK / f"{policy}.json"
        korvane("export", odd, "--format", "vox", "--to", f"file:{WORK}/{policy}", "--irregular", policy, "--report", report,
                status=status)
        conforms("export", report.read_text())
    report = WORK / "all.json"
    korvane("export", odd, times, "--all", "--format", "nifti", "--to", WORK / "all", "--report", report)
    all_of_them = json.loads(report.read_text())
    for series in all_of_them["series"]:
        conforms("export", json.dumps(series.pop("report")))
    conforms("export-all", json.dumps(all_of_them))


def batches():
    """Of a plan that nobody has begun, and of one in which a series is written and one refused."""
    for number in (1, 2):
        phantom(f"archive/{number}", "--slices", 2, "--size", 16, "--seed", number)
    korvane("batch", "plan", WORK / "archive", WORK / "plan")
    conforms("batch", korvane("batch", "report", WORK / "plan", "--json", status=1)[0])
    next((WORK / "archive/1").iterdir()).unlink()
    korvane("batch", "run", WORK / "plan", "--shard", 1, status=1)
    report = korvane("batch", "report", WORK / "plan", "--json", status=1)[0]
    conforms("batch", report)
    assert json.loads(report)["refused"] == 1, report


def media_and_network():
    source = phantom("source", "--slices", 2, "--size", 16)
    (source / "notes.txt").write_text("not meant")
    conforms("media", korvane("media", WORK / "medium", source, "--json")[0])
    conforms("media", korvane("media", "--verify", WORK / "medium", "--json")[0])
    with subprocess.Popen([*KORVANE, "receive", "0", str(WORK / "in"), "--count", "5", "--json"],
                          stdout=subprocess.PIPE, text=True) as receiver:
        port = conforms("receive", receiver.stdout.readline())["port"]
        conforms("echo", korvane("echo", "127.0.0.1", port, "--json")[0])
        conforms("send", korvane("send", "127.0.0.1", port, source, "--json")[0])
        conforms("send", korvane("send", "127.0.0.1", port, source, "--commit", "--json")[0])
        next((WORK / "in").iterdir()).unlink()
        conforms("commit", korvane("commit", "127.0.0.1", port, source, "--json", status=1)[0])
        events = [conforms("receive", line)["event"] for line in receiver.stdout]
    assert events.count("file") == 4 and events.count("association") == 5 and events.count("commitment") == 2, events


run(series_and_exports, batches, media_and_network)
