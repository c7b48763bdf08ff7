#!/usr/bin/env python3
"""korvane.batch on processes of this machine and on Dask: the same files, whatever is killed on the way.

usage: test_batch.py FOLDER_OF_THE_PACKAGE
"""

import csv
import io
import json
import os
import pathlib
import signal
import sys
import tempfile
import threading
import time
import unittest

sys.path.insert(0, sys.argv[1])

import korvane
import korvane.batch

SERIES = 12


def files(folder):
    return {file.name: file.read_bytes() for file in pathlib.Path(folder).glob("*.nii")}


class Batch(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.temporary = tempfile.TemporaryDirectory(prefix="korvane-batch-")
        cls.folder = pathlib.Path(cls.temporary.name)
        for number in range(SERIES):
            korvane.phantom(cls.folder / "archive" / str(number), slices=3 + number, size=32, seed=number + 1)
        cls.expected = cls.folder / "expected"
        korvane.batch.plan(cls.folder / "archive", cls.folder / "one", cls.expected)
        korvane.batch.run(cls.folder / "one", 1)

    @classmethod
    def tearDownClass(cls):
        cls.temporary.cleanup()

    def test_processes(self):
        steps = []
        out = self.folder / "processes"
        report = korvane.batch.convert(self.folder / "archive", out, workers=2, progress=lambda *step: steps.append(step))
        self.assertEqual((report["written"], len(report["tasks"])), (SERIES, SERIES))
        self.assertEqual(files(out), files(self.expected))
        self.assertEqual(steps[-1][1], steps[-1][2])
        rows = list(csv.DictReader(io.StringIO(korvane.batch.table(out / "plan"))))
        self.assertEqual({row["status"] for row in rows}, {"written"})
        with self.assertRaises(korvane.WrongArgument):
            korvane.batch.plan(self.folder / "archive", out / "plan", out)
        # Once more: all is there, and nothing is written again.
        before = {file: file.stat().st_mtime_ns for file in out.glob("*.nii")}
        korvane.batch.convert("/nowhere", out, workers=2)
        self.assertEqual(before, {file: file.stat().st_mtime_ns for file in out.glob("*.nii")})

    def test_a_series_that_kills_its_process(self):
        archive = self.folder / "deadly"
        for number in range(3):
            korvane.phantom(archive / str(number), slices=3, size=16, seed=number + 1)
        out = self.folder / "deadly-out"
        korvane.batch.plan(archive, out / "plan", out, shards=1)
        victim = next(iter((archive / "1").iterdir()))
        victim.unlink()
        os.mkfifo(victim)  # who reads it waits until somebody kills it
        tasks = json.loads((out / "plan" / "shard-0001.json").read_text())["tasks"]
        deadly = next(task["task"] for task in tasks if str(victim) in task["files"])
        report = []
        working = threading.Thread(target=lambda: report.append(korvane.batch.convert(archive, out, workers=1)))
        working.start()
        begun = 0
        while working.is_alive():
            time.sleep(0.05)
            results = out / "plan" / "results-0001.jsonl"
            lines = results.read_text().split() if results.exists() else []
            if lines and lines[-1] == f'{{"task":{deadly},"status":"begun"}}' and lines.count(lines[-1]) > begun:
                begun += 1
                os.system(f"pkill -KILL -f 'korvane.batch run {out}/plan'")
        working.join()
        self.assertEqual((report[0]["written"], report[0]["crashed"]), (2, 1))

    def test_dask(self):
        try:
            from dask.distributed import Client, LocalCluster
        except ImportError:
            self.skipTest("python3-distributed is not installed")
        os.environ["PYTHONPATH"] = sys.argv[1]
        out = self.folder / "dask"
        with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None) as cluster, \
                Client(cluster) as client:
            pids = list(client.run(os.getpid).values())
            self.assertEqual(len(set(pids)), 2)

            def kill(_, done, __):
                if done == 2:
                    os.kill(pids[0], signal.SIGKILL)

            report = korvane.batch.convert(self.folder / "archive", out, client=client, progress=kill)
        self.assertEqual(report["written"], SERIES, report)
        self.assertEqual(files(out), files(self.expected))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
