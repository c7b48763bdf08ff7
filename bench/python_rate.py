#!/usr/bin/env python3
"""The Python module beside pydicom with numpy, python3-gdcm and the same call of C++; two threads beside one; the memory of
views; and batches on two workers beside one.

Called with the package's folder and the program find_and_load. Prints a ratio to each limit, and exits with 1 when one is
missed. What goes by is measured in turn; the best of each counts. Wants 600 MB in memory.
"""

import gc
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import threading
import time

sys.path.insert(0, sys.argv[1])

import numpy
import pydicom

import korvane
import korvane.batch

LOADER = sys.argv[2]
PAIRS = 5
BATCH = int(os.environ.get("KORVANE_BENCH_SERIES", "2000"))


def timed(call):
    """Without giving back what the call made, which the program beside it does not count either."""
    start = time.monotonic()
    kept = call()
    seconds = time.monotonic() - start
    del kept
    return seconds


def by_korvane(folder, jobs=0):
    return korvane.find(folder, jobs=jobs).only().load(jobs=jobs).array


def by_pydicom(folder):
    """What people write: all files read, sorted along the normal, stacked."""
    images = [pydicom.dcmread(path) for path in pathlib.Path(folder).iterdir()]
    axes = numpy.array(images[0].ImageOrientationPatient, float)
    normal = numpy.cross(axes[:3], axes[3:])
    images.sort(key=lambda image: numpy.dot(normal, image.ImagePositionPatient))
    return numpy.stack([image.pixel_array for image in images])


def by_gdcm(folder):
    """Sorted by the peer's own sorter, read by its image reader."""
    import gdcm

    sorter = gdcm.IPPSorter()
    sorter.SetComputeZSpacing(True)
    sorter.SetZSpacingTolerance(1e-3)
    if not sorter.Sort([str(path) for path in pathlib.Path(folder).iterdir()]):
        raise RuntimeError("gdcm sorts them not")
    planes = []
    for path in sorter.GetFilenames():
        reader = gdcm.ImageReader()
        reader.SetFileName(path)
        if not reader.Read():
            raise RuntimeError(path)
        image = reader.GetImage()
        bytes_ = image.GetBuffer().encode("utf-8", errors="surrogateescape")
        planes.append(numpy.frombuffer(bytes_, numpy.uint16).reshape(image.GetDimension(1), image.GetDimension(0)))
    return numpy.stack(planes)


def beside_others(series):
    """Ratios of the best times to pydicom's, gdcm's and C++'s."""
    ways = {"korvane": lambda: by_korvane(series), "pydicom": lambda: by_pydicom(series)}
    try:
        import gdcm  # noqa: F401
        ways["gdcm"] = lambda: by_gdcm(series)
    except ImportError:
        print("skipped: no python3-gdcm")
    best = dict.fromkeys([*ways, "c++"], float("inf"))
    wanted = by_pydicom(series)
    if not numpy.array_equal(numpy.sort(wanted.sum((1, 2))), numpy.sort(by_korvane(series).sum((1, 2), dtype=wanted.sum().dtype))):
        raise RuntimeError("other voxels")
    del wanted
    for _ in range(2 * PAIRS):
        for name, way in ways.items():
            gc.collect()
            best[name] = min(best[name], timed(way))
        # Its second time, as a process that has read before.
        lines = subprocess.run([LOADER, series, "2"], check=True, capture_output=True, text=True).stdout.splitlines()
        best["c++"] = min(best["c++"], float(lines[-1].split()[0]))
    print(", ".join(f"{name} {seconds:.3f} s" for name, seconds in best.items()), flush=True)
    return {name: best["korvane"] / best[name] for name in best if name != "korvane"}


def two_threads(series, other):
    """How much faster two threads load two series than one loads them; one core each."""
    alone, together = float("inf"), float("inf")
    for _ in range(PAIRS):
        alone = min(alone, timed(lambda: (by_korvane(series, 1), by_korvane(other, 1))))
        threads = [threading.Thread(target=by_korvane, args=(folder, 1)) for folder in (series, other)]
        together = min(together, timed(lambda: ([t.start() for t in threads], [t.join() for t in threads])))
    return alone / together


def rss():
    """Megabytes of this process in memory."""
    fields = pathlib.Path("/proc/self/statm").read_text().split()
    return int(fields[1]) * os.sysconf("SC_PAGE_SIZE") / 1e6


def memory_of_views(series):
    """What a volume with a hundred views costs beside its voxels, whose slices' data sets it holds too, and what is left when all
    have gone."""
    by_korvane(series)  # what is allocated once
    gc.collect()
    before = rss()
    volume = korvane.find(series).only().load()
    views = [volume.array[k::3, ::2] for k in range(100)]
    held, voxels = rss() - before, volume.array.nbytes / 1e6
    del volume
    gc.collect()
    kept = rss() - before
    print(f"voxels {voxels:.0f} MB; volume and 100 views {held:.0f} MB, the views alone {kept:.0f} MB", end="")
    del views
    gc.collect()
    print(f", nothing of them {rss() - before:.0f} MB", flush=True)
    return held / voxels


def batch(work, archive, workers):
    """Seconds of all tasks, with as many workers; the plan is not among them."""
    out = work / f"out-{workers}"
    shutil.rmtree(out, ignore_errors=True)
    korvane.batch.plan(archive, out / "plan", out, shards=8 * 2)
    seconds = timed(lambda: korvane.batch.convert(archive, out, workers=workers))
    report = korvane.batch.report(out / "plan")
    if report["written"] != len(report["tasks"]):
        raise RuntimeError("not all series were written")
    return seconds


def batches(work):
    """The speed of two workers beside one, and milliseconds a task takes beside its work on one."""
    archive = work / "archive"
    for number in range(BATCH):
        korvane.phantom(archive / f"{number % 50:02}" / str(number), slices=24, size=128, seed=number + 1)
    one, two, plain = (float("inf"),) * 3
    for _ in range(2):
        one, two = min(one, batch(work, archive, 1)), min(two, batch(work, archive, 2))
        plain = min(plain, timed(lambda: work_alone(archive, work / "plain")))
    overhead = (one - plain) / BATCH * 1000
    print(f"{BATCH} series of 24 x 128 x 128: {one:.2f} s by one worker, {two:.2f} s by two; {plain:.2f} s without tasks")
    return one / two, overhead


def work_alone(archive, out):
    """The same conversions in one thread of this process: found and written, no plan and no report."""
    shutil.rmtree(out, ignore_errors=True)
    for folder in archive.glob("*/*"):
        series = korvane.find(folder, jobs=1).only()
        series.export("nifti", out / series.uid, jobs=1)


def main():
    memory = "/dev/shm" if os.path.isdir("/dev/shm") else None  # the speed of disks varies from run to run
    missed = 0

    def tell(name, ratio, limit, most=True):
        nonlocal missed
        held = ratio <= limit if most else ratio >= limit
        missed += not held
        print(f"{name}: {ratio:.3f}, limit {limit} {'held' if held else 'MISSED'}", flush=True)

    with tempfile.TemporaryDirectory(prefix="korvane-bench-", dir=memory) as folder:
        work = pathlib.Path(folder)
        korvane.phantom(work / "a", slices=300, size=512)
        ratios = beside_others(work / "a")
        for name, limit in (("pydicom", 0.2), ("gdcm", 0.4), ("c++", 1.05)):
            if name in ratios:
                tell(f"find and load of 300 x 512 x 512 beside {name}", ratios[name], limit)
        korvane.phantom(work / "b", slices=300, size=512, seed=2)
        tell("two threads beside one", two_threads(work / "a", work / "b"), 1.8, most=False)
        tell("memory of a volume and its views beside its voxels", memory_of_views(work / "a"), 2)
        shutil.rmtree(work / "a"), shutil.rmtree(work / "b")
        faster, overhead = batches(work)
        tell("two workers beside one", faster, 1.8, most=False)
        tell("milliseconds of a task beside its work", overhead, 5)
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
