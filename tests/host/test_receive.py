#!/usr/bin/env python3
"""What a receiver does beyond storing: folders by patient, study and series; a program for each study; a log."""

import datetime
import json
import os
import signal
import stat
import subprocess
import time

import host_test
import pydicom
from host_test import KORVANE, WINDOWS, WORK, korvane, phantom
from network_peers import HERE, receiver, running

PATIENTS = ("P1", "../../out", "a/b", "a_b", "CON", "", "x" * 60, "Ä ö", "..", "-rf")


def sources():
    """A study of two files for each patient."""
    files = []
    slices = sorted(phantom("ct", "--slices", len(PATIENTS) * 2, "--size", 8).iterdir())
    for number, path in enumerate(slices):
        ds = pydicom.dcmread(path)
        ds.SpecificCharacterSet = "ISO_IR 192"
        ds.PatientID = PATIENTS[number // 2]
        ds.StudyInstanceUID = f"1.2.{number // 2}"
        ds.SeriesInstanceUID = f"1.2.{number // 2}.{number}"
        files.append(WORK / f"file{number}")
        ds.save_as(files[-1])
    return files


def layouts():
    """Whatever the peers say, files stay in the folder, and patients stay apart."""
    files = sources()
    for layout, depth in (("patient", 1), ("study", 2), ("series", 3)):
        folder = WORK / "in" / layout
        with receiver(folder, "--layout", layout, "--count", 2) as (port, said, _):
            for _ in range(2):  # the second time nothing is stored twice
                korvane("send", HERE, port, *files)
        stored = {}
        for path in (path for path in folder.rglob("*") if path.is_file()):
            ds = pydicom.dcmread(path)
            parts = path.relative_to(folder).parts
            assert len(parts) == depth + 1 and parts[-1] == f"{ds.SOPInstanceUID}.dcm", path
            assert parts[1:-1] == (ds.StudyInstanceUID, ds.SeriesInstanceUID)[:depth - 1], path
            stored.setdefault(parts[0], set()).add(ds.PatientID)
        assert sorted(next(iter(ids)) for ids in stored.values() if len(ids) == 1) == sorted(PATIENTS), stored
        assert all(line["path"].startswith(str(folder).replace("\\", "/")) for line in said[:-1] if line["event"] == "file")
    assert {path.name for path in (WORK / "in").iterdir()} == {"patient", "study", "series"}
    assert {path.name for path in WORK.iterdir()} >= {"in", "ct"} and not (WORK / "out").exists()
    (WORK / "taken").mkdir()
    (WORK / "taken/P1").write_text("a file where the folder should be")
    with receiver(WORK / "taken", "--layout", "patient", "--once", status=1) as (port, said, _):
        assert "0xA700" in korvane("send", HERE, port, files[0], status=1)[1]
    assert sorted(path.name for path in (WORK / "taken").iterdir()) == ["P1"]


def program_for_each_study():
    if WINDOWS:  # scripts are of another kind there
        return
    files = sources()[:6]
    script = WORK / "done.sh"
    script.write_text('#!/bin/sh\nenv | grep ^KORVANE_ | sort > "%s/$KORVANE_STUDY.env"\necho told\n[ "$KORVANE_STUDY" != 1.2.2 ]\n' % WORK)
    script.chmod(script.stat().st_mode | stat.S_IXUSR)
    log = WORK / "log"
    with receiver(WORK / "in", "--on-study", script, "--quiet-study", 1, "--log", log, "--count", 2, status=1) as (port, said, _):
        start = time.monotonic()
        korvane("send", HERE, port, *files[:2])
        while not (WORK / "1.2.0.env").exists():
            assert time.monotonic() - start < 20
            time.sleep(0.02)
        assert time.monotonic() - start >= 1, "not quiet for a second"
        korvane("send", HERE, port, *files[2:], "--aet", "OTHER")  # told of at the end
    values = dict(line.split("=", 1) for line in (WORK / "1.2.1.env").read_text().splitlines())
    assert values == {"KORVANE_STUDY": "1.2.1", "KORVANE_PATIENT": "../../out", "KORVANE_CALLING": "OTHER",
                      "KORVANE_FOLDER": str(WORK / "in"), "KORVANE_FILES": "2"}, values
    assert "1.2.2: exit status 1" in said[-1] and "told" in said[-1], said[-1]  # its output is not among ours
    assert sorted(line["study"] for line in said[:-1] if line["event"] == "study") == ["1.2.0", "1.2.1", "1.2.2"]
    lines = [json.loads(line) for line in log.read_text().splitlines()]
    assert [(line["calling"], line["stored"]) for line in lines] == [("KORVANE", 2), ("OTHER", 4)], lines
    for line in lines:
        begin, end = (datetime.datetime.fromisoformat(line[name].replace("Z", "+00:00")) for name in ("begin", "time"))
        now = datetime.datetime.now(datetime.timezone.utc)
        assert begin <= end <= now and now - begin < datetime.timedelta(minutes=5), line
    slow = WORK / "slow.sh"
    slow.write_text("#!/bin/sh\nexec sleep 30\n")
    slow.chmod(0o700)
    with running(*KORVANE, "receive", "0", WORK / "in2", "--on-study", slow, "--once", stdout=subprocess.PIPE,
                 stderr=subprocess.PIPE) as process:
        port = int(process.stdout.readline().split("port ")[1].split(",")[0])
        korvane("send", HERE, port, *files)
        line = process.stdout.readline()
        assert "KORVANE (127.0.0.1): 6 files stored" in line and line.startswith(str(datetime.date.today().year)), line
        time.sleep(0.3)
        process.send_signal(signal.SIGINT)
        start = time.monotonic()
        process.wait(timeout=10)
        assert time.monotonic() - start < host_test.SOON, "slow to stop"
    with receiver(WORK / "in3", "--on-study", WORK / "none", "--once", status=1) as (port, said, _):
        korvane("send", HERE, port, files[0])
    assert "No such file" in said[-1], said
    assert os.path.getsize(log) > 0


host_test.run(layouts, program_for_each_study)
