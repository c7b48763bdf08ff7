#!/usr/bin/env python3
"""Whole runs of `korvane export --format nifti` beside dcm2niix's of the same files, in turn; the best of each counts.

Called with the program's path. Prints a ratio to each limit, and exits with 1 when one is missed. Wants dcm2niix and pigz,
and 600 MB in memory.
"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

PROGRAM = sys.argv[1]
PAIRS = 5


def timed(*command):
    start = time.monotonic()
    subprocess.run([str(part) for part in command], check=True, capture_output=True)
    return time.monotonic() - start


def fresh(folder):
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    return folder


def beside(work, series, ours, theirs, name):
    """The ratio of the best times, and that of the sizes."""
    best = [float("inf"), float("inf")]
    for _ in range(PAIRS):
        ours_out, theirs_out = fresh(work / "ours"), fresh(work / "theirs")
        best[0] = min(best[0], timed(PROGRAM, "export", series, "--format", "nifti", "--sidecar", *ours(ours_out)))
        best[1] = min(best[1], timed("dcm2niix", "-x", "i", "-f", "v", "-o", theirs_out, *theirs, series))
    sizes = [max(path.stat().st_size for path in folder.rglob("*.nii*")) for folder in (work / "ours", work / "theirs")]
    print(f"{name}: {best[0]:.3f} s beside {best[1]:.3f} s, {sizes[0]} beside {sizes[1]} bytes", flush=True)
    return best[0] / best[1], sizes[0] / sizes[1]


def main():
    if shutil.which("dcm2niix") is None or shutil.which("pigz") is None:
        print("skipped: no dcm2niix or no pigz")
        return 0
    missed = 0
    memory = "/dev/shm" if os.path.isdir("/dev/shm") else None  # the speed of disks varies from run to run
    with tempfile.TemporaryDirectory(prefix="korvane-bench-", dir=memory) as folder:
        work = pathlib.Path(folder)
        large, small = work / "large", work / "small"
        timed(PROGRAM, "phantom", large, "--slices", 300, "--size", 512)
        timed(PROGRAM, "phantom", small, "--slices", 600, "--size", 64)
        plain = lambda out: ("--to", out / "v.nii")  # noqa: E731
        packed = lambda out: ("--to", out / "v.nii.gz")  # noqa: E731
        every = lambda out: ("--all", "--to", out)  # noqa: E731
        for name, series, ours, theirs, limit in (
                ("300 x 512 x 512 to .nii", large, plain, ("-z", "n"), 0.5),
                ("300 x 512 x 512 to .nii.gz, its own compressor", large, packed, ("-z", "i"), 0.4),
                ("300 x 512 x 512 to .nii.gz, pigz", large, packed, ("-z", "y"), 0.4),
                ("600 small files", small, every, ("-z", "n"), 0.5)):
            ratio, size = beside(work, series, ours, theirs, name)
            bad = ratio > limit or size > 1.03
            print(f"{'MISSED' if bad else 'ok'}  {name}: {ratio:.2f} times its time, at most {limit}; {size:.3f} times its size")
            missed += bad
    return 1 if missed else 0


sys.exit(main())
