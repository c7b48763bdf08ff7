#!/usr/bin/env python3
"""`korvane batch`: plans, shards that are killed and go on, series that end the process, the table of what came of them."""

import csv
import io
import json
import os
import pathlib
import signal
import subprocess
import time

from host_test import KORVANE, WINDOWS, WORK, edited, korvane, phantom, run, wait_for


def archive(name, series):
    """Series of different sizes in one folder, and something without images."""
    (WORK / name).mkdir()
    for number in range(1, series + 1):
        phantom(f"{name}/{number}", "--slices", 2 + number, "--size", 16, "--seed", number)
    def report(ds, _):
        ds.Modality, ds.SeriesInstanceUID = "SR", "2.25.5"
        del ds.PixelData
    edited(phantom(f"{name}-report", "--slices", 1, "--size", 8), f"{name}-sr", report).rename(WORK / name / "sr")
    return WORK / name


def plan(name, series=6, shards=3, *options):
    where = WORK / f"{name}.plan"
    out, _ = korvane("batch", "plan", archive(name, series), where, "--to", WORK / f"{name}.out", "--shards", shards, *options)
    assert f"{series} series in {shards} shards" in out and "1 without images" in out, out
    return where


def shard(where, number, *options, status=0):
    return korvane("batch", "run", where, "--shard", number, *options, status=status)


def report(where, status):
    return json.loads(korvane("batch", "report", where, "--json", status=status)[0])


def here(path):
    """A path of the program's, which under an emulator begins with a drive."""
    return path[2:] if path[1:2] == ":" else path


def volumes(folder):
    return {file.name: file.read_bytes() for file in pathlib.Path(folder).iterdir() if file.suffix == ".nii"}


def test_shards_make_what_one_export_makes():
    where = plan("whole")
    shares = [[task["bytes"] for task in json.loads((where / f"shard-{n:04}.json").read_text())["tasks"]] for n in (1, 2, 3)]
    assert max(map(sum, shares)) - min(map(sum, shares)) <= max(map(max, shares)), shares
    korvane("batch", "plan", WORK / "whole", where, status=2)  # nobody's plan is replaced
    assert report(where, 1)["open"] == 6
    for number in (3, 1, 2):
        shard(where, number)
    korvane("export", WORK / "whole", "--all", "--format", "nifti", "--to", WORK / "at-once")
    assert volumes(WORK / "whole.out") == volumes(WORK / "at-once")
    rows = list(csv.DictReader(io.StringIO(korvane("batch", "report", where, "--csv")[0])))
    assert [row["status"] for row in rows] == ["written"] * 6
    assert {pathlib.PurePath(row["files"]).name for row in rows} == set(volumes(WORK / "at-once"))
    # What was done is not done again, but for files that are gone.
    before = {file: file.stat().st_mtime_ns for file in (WORK / "whole.out").iterdir()}
    gone = min(before)
    gone.unlink()
    for number in (1, 2, 3):
        shard(where, number)
    after = {file: file.stat().st_mtime_ns for file in (WORK / "whole.out").iterdir()}
    assert {file for file in before if before[file] != after[file]} == {gone}
    shard(where, 4, status=1)


def test_what_fails_is_told_and_the_others_go_on():
    where = plan("failing", 4, 1)
    tasks = json.loads((where / "shard-0001.json").read_text())["tasks"]
    os.remove(here(tasks[0]["files"][0]))  # one slice less than planned
    (WORK / "failing.out").mkdir()
    strangers = WORK / "failing.out" / f"{tasks[1]['name']}.nii"
    strangers.write_text("somebody's own")
    shard(where, 1, status=1)
    told = report(where, 1)
    why = {task["name"]: task.get("why", "") for task in told["tasks"]}
    assert told["written"] == 2 and told["refused"] == 2, told
    assert "images" in why[tasks[0]["name"]] or "cannot" in why[tasks[0]["name"]], why
    assert strangers.read_text() == "somebody's own", why
    shard(where, 1, "--retry", status=1)
    assert strangers.read_text() == "somebody's own"
    strangers.unlink()
    shard(where, 1, "--retry", status=1)
    assert report(where, 1)["written"] == 3


def children(pid):
    listed = subprocess.run(["ps", "-o", "pid=", "--ppid", str(pid)], capture_output=True, text=True).stdout
    return [int(child) for child in listed.split()]


def child_of(parent, where, task, attempt):
    """The process that works for `parent`, once it has begun with a task for that many times."""
    begun = f'{{"task":{task},"status":"begun"}}'
    for _ in range(3000):
        results = where / "results-0001.jsonl"
        if results.exists() and results.read_text().count(begun) == attempt:
            return children(parent.pid)[0]
        time.sleep(0.02)
    parent.terminate()
    raise AssertionError(f"task {task} was not begun {attempt} times")


def test_a_series_that_ends_processes_is_left_out():
    if WINDOWS:  # has no such pipes
        return
    where = plan("crashing", 4, 1)
    first = json.loads((where / "shard-0001.json").read_text())["tasks"][0]
    os.remove(first["files"][1])
    os.mkfifo(first["files"][1])  # who reads it waits for ever
    working = subprocess.Popen([*KORVANE, "batch", "run", str(where), "--shard", "1"], stderr=subprocess.PIPE, text=True)
    for attempt in (1, 2):
        pid = child_of(working, where, first["task"], attempt)
        time.sleep(0.1)
        again = subprocess.run([*KORVANE, "batch", "run", str(where), "--shard", "1", "--inside"], capture_output=True, text=True)
        assert again.returncode == 1 and "another process works on shard 1" in again.stderr, again
        os.kill(pid, signal.SIGKILL)
    _, said = working.communicate(timeout=60)
    assert working.returncode == 1 and said.count("another one goes on") == 2, said
    told = report(where, 1)
    assert told["written"] == 3 and told["crashed"] == 1 and told["tasks"][first["task"] - 1]["status"] == "crashed", told


def test_all_shards_at_once_and_stopped():
    where = plan("at-work", 4, 3)
    if not WINDOWS:  # has no such pipes
        first = json.loads((where / "shard-0001.json").read_text())["tasks"][0]["files"][1]
        os.rename(first, where / "aside")
        os.mkfifo(first)  # who reads it waits for ever
        working = subprocess.Popen([*KORVANE, "batch", "run", str(where), "--workers", "2"], stderr=subprocess.PIPE, text=True)
        wait_for(lambda: report(where, 1)["begun"] == 1 and report(where, 1)["open"] == 0)
        wait_for(lambda: len(children(working.pid)) == 1)  # the others have ended
        workers = children(working.pid)
        working.send_signal(signal.SIGINT)
        _, said = working.communicate(timeout=30)
        assert working.returncode == -signal.SIGINT and said.endswith("korvane: stopped\n"), said
        assert len(workers) == 1 and not pathlib.Path(f"/proc/{workers[0]}").exists(), workers
        os.remove(first)
        os.rename(where / "aside", first)
    korvane("batch", "run", where)
    assert report(where, 0)["written"] == 4
    korvane("export", WORK / "at-work", "--all", "--format", "nifti", "--to", WORK / "at-work-once")
    assert volumes(WORK / "at-work.out") == volumes(WORK / "at-work-once")
    err = korvane("batch", "run", where, "--shard", 9, status=1)[1]
    assert "there is no shard 9: the plan has 1 to 3" in err, err


def test_killed_and_stopped_at_any_moment():
    where = plan("killed", 8, 1)
    for delay in () if WINDOWS else (0.01, 0.03, 0.05, 0.07):  # an emulator's process is not the program's
        working = subprocess.Popen([*KORVANE, "batch", "run", str(where), "--shard", "1", "--inside"],
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        time.sleep(delay)
        working.kill()
        working.wait()
    with open(where / "results-0001.jsonl", "a", encoding="utf-8") as results:
        results.write('{"task": 3, "status": "wri')  # as a full disk would leave it
    shard(where, 1)
    assert report(where, 0)["written"] == 8
    korvane("export", WORK / "killed", "--all", "--format", "nifti", "--to", WORK / "unkilled")
    assert volumes(WORK / "killed.out") == volumes(WORK / "unkilled")


run(test_shards_make_what_one_export_makes, test_what_fails_is_told_and_the_others_go_on,
    test_a_series_that_ends_processes_is_left_out, test_all_shards_at_once_and_stopped, test_killed_and_stopped_at_any_moment)
