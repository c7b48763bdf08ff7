#!/usr/bin/env python3
"""How time and memory grow with the number of files, slices and frames: both for each of them, which should stay flat.

usage: growth.py KORVANE [--plot PATH.svg] [--most FILES] [--folder FOLDER]

Makes its own data, from a thousand files to a hundred thousand in 2,000 series, from 500 slices of one series to 50,000, and
from 200 frames of one object to 20,000 in 8 GB, most of which is holes that take no room. Prints a table and writes the plot.
Exits with 1 where a file, slice or frame of the largest takes more than twice the time of the cheapest smaller size. Linux
alone; wants pydicom, and at most 3 GB in the folder (/dev/shm where there is one).
"""

import argparse
import io
import os
import pathlib
import shutil
import struct
import subprocess
import sys
import tempfile

import pydicom
from pydicom.uid import ExplicitVRLittleEndian, RLELossless

# The peak of a child counts what its parent had when it was made, so a small process stands in between.
LAUNCHER = """
import os, sys
child = os.posix_spawn(sys.argv[1], sys.argv[1:], os.environ, file_actions=[
    (os.POSIX_SPAWN_OPEN, 1, os.devnull, os.O_WRONLY, 0), (os.POSIX_SPAWN_OPEN, 2, os.devnull, os.O_WRONLY, 0)])
_, status, usage = os.wait4(child, 0)
print(usage.ru_utime + usage.ru_stime, usage.ru_maxrss)
sys.exit(os.waitstatus_to_exitcode(status) != 0)
"""
MOST = 2.0  # times the cheapest smaller size
CLOCK = 0.02  # seconds: less is not measured well enough to be compared
RUNS = 3


def run(*command):
    """Processor seconds and peak bytes of a run."""
    done = subprocess.run([sys.executable, "-IS", "-c", LAUNCHER, *map(str, command)], capture_output=True,
                          encoding="utf-8", check=False)
    if done.returncode != 0:
        raise SystemExit(f"failed: {' '.join(map(str, command))}")
    seconds, kilobytes = done.stdout.split()
    return float(seconds), int(kilobytes) * 1024


def data_set(sop_class):
    ds = pydicom.Dataset()
    ds.file_meta = pydicom.dataset.FileMetaDataset()
    ds.file_meta.TransferSyntaxUID = ExplicitVRLittleEndian
    ds.SOPClassUID = ds.file_meta.MediaStorageSOPClassUID = sop_class
    ds.SOPInstanceUID = ds.file_meta.MediaStorageSOPInstanceUID = "1.2.3.90000000"
    ds.SeriesInstanceUID, ds.StudyInstanceUID = "1.2.4.9000000", "1.2.5.9000000"
    ds.Modality, ds.PatientName, ds.PatientID, ds.StudyDate = "CT", "GROWTH", "9000000", "20260101"
    ds.SeriesNumber, ds.InstanceNumber, ds.StudyTime, ds.StudyID = 1, "9000000", "120000", "1"
    ds.SamplesPerPixel, ds.PhotometricInterpretation = 1, "MONOCHROME2"
    ds.BitsAllocated, ds.BitsStored, ds.HighBit, ds.PixelRepresentation = 16, 16, 15, 0
    ds.is_little_endian, ds.is_implicit_VR = True, False
    return ds


def bytes_of(ds):
    out = io.BytesIO()
    ds.save_as(out, write_like_original=False)
    return out.getvalue()


def write_series(folder, files, in_series, side):
    """Files that differ by what tells them apart alone; `in_series` of them make a series."""
    ds = data_set("1.2.840.10008.5.1.4.1.1.2")
    ds.ImagePositionPatient, ds.ImageOrientationPatient = [0, 0, "+9000000.0"], [1, 0, 0, 0, 1, 0]
    ds.PixelSpacing, ds.SliceThickness, ds.Rows, ds.Columns = [1, 1], 1, side, side
    ds.PixelData = bytes(i * 37 % 251 for i in range(2 * side * side))
    whole = bytes_of(ds)
    header, pixels = whole[: -len(ds.PixelData)], ds.PixelData
    for number in range(files):
        series, slice_number = divmod(number, in_series)
        if slice_number == 0:
            place = folder / f"{series:05}"
            place.mkdir(parents=True)
            uid = b"%07d" % (1000000 + series)
            own = header.replace(b"1.2.4.9000000", b"1.2.4." + uid).replace(b"1.2.5.9000000", b"1.2.5." + uid)
        head = own.replace(b"1.2.3.90000000", b"1.2.3.%08d" % (10000000 + number))
        head = head.replace(b"9000000 ", b"%07d " % (slice_number + 1))
        head = head.replace(b"+9000000.0", b"%+010.1f" % slice_number)
        (place / f"{slice_number:05}").write_bytes(head + pixels)


def write_frames(path, frames, side, fragment):
    """One enhanced object, run-length encoded: fragments of `fragment` bytes, of which all but the first few are a hole."""
    def item(**sequences):
        outer = pydicom.Dataset()
        for keyword, values in sequences.items():
            inner = pydicom.Dataset()
            for name, value in values.items():
                setattr(inner, name, value)
            setattr(outer, keyword, [inner])
        return outer

    ds = data_set("1.2.840.10008.5.1.4.1.1.2.1")
    ds.file_meta.TransferSyntaxUID = RLELossless
    ds.Rows = ds.Columns = side
    ds.NumberOfFrames = frames
    ds.SharedFunctionalGroupsSequence = [item(PlaneOrientationSequence={"ImageOrientationPatient": [1, 0, 0, 0, 1, 0]},
                                              PixelMeasuresSequence={"PixelSpacing": [1, 1], "SliceThickness": 1})]
    ds.PerFrameFunctionalGroupsSequence = [item(PlanePositionSequence={"ImagePositionPatient": [0, 0, number]})
                                           for number in range(frames)]
    # Each byte plane is runs of 128 bytes of one value.
    segment = bytes([129, 0]) * (side * side // 128)
    pixels = struct.pack("<16I", 2, 64, 64 + len(segment), *[0] * 13) + segment + bytes([129, 5]) * (side * side // 128)
    with open(path, "wb") as out:
        out.write(bytes_of(ds))
        out.write(struct.pack("<HH2sHI", 0x7FE0, 0x0010, b"OB", 0, 0xFFFFFFFF) + struct.pack("<HHI", 0xFFFE, 0xE000, 0))
        for _ in range(frames):
            out.write(struct.pack("<HHI", 0xFFFE, 0xE000, fragment) + pixels)
            out.seek(fragment - len(pixels), os.SEEK_CUR)
        out.write(struct.pack("<HHI", 0xFFFE, 0xE0DD, 0))


def sizes(most):
    """A hundredth, a thirtieth ... of the most."""
    return [most // part for part in (100, 30, 10, 3, 1)]


class Growth:
    def __init__(self, program, folder):
        self.program, self.folder = program, folder
        self.rows = {}  # of each job: (count, processor seconds, peak bytes)
        self.idle = min(run(program, "--version") for _ in range(5))

    def measure(self, job, count, *arguments, out=None):
        best, peak = float("inf"), 0
        for _ in range(RUNS if count <= 10000 else 1):
            shutil.rmtree(self.folder / "out", ignore_errors=True)
            (self.folder / "out").mkdir()
            seconds, peak = run(self.program, *arguments)
            best = min(best, max(seconds - self.idle[0], 1e-4))  # what the clock tells at all
        peak -= self.idle[1]
        self.rows.setdefault(job, []).append((count, best, peak))
        print(f"{job:34} {count:7}  {best * 1e6 / count:9.1f} us  {peak / count / 1024:8.2f} KB each  "
              f"{peak / 2**20:8.1f} MB in all", flush=True)

    def many_series(self, most):
        for files in sizes(most):
            write_series(self.folder / "many", files, 50, 8)
            self.measure("find, 50 files a series", files, "info", "--json", self.folder / "many")
            self.measure("medium", files, "media", self.folder / "out" / "m", self.folder / "many", "--link")
            shutil.rmtree(self.folder / "many")

    def one_series(self, most):
        for slices in sizes(most):
            write_series(self.folder / "one", slices, slices, 64)
            self.measure("find, one series", slices, "info", "--json", self.folder / "one")
            for form in ("nifti", "vox"):
                self.measure(f"export as {form}, one series", slices, "export", self.folder / "one", "--format", form,
                             "--to", self.folder / "out" / "v")
            shutil.rmtree(self.folder / "one")

    def one_object(self, most):
        for frames in sizes(most):
            path = self.folder / "frames.dcm"
            write_frames(path, frames, 128, 430000)
            self.measure("find, one object", frames, "info", "--json", path)
            self.measure("export as nifti, one object", frames, "export", path, "--format", "nifti", "--to",
                         self.folder / "out" / "v")
            path.unlink()

    def check(self):
        """False, told, where the largest is dearer than what a smaller one took."""
        flat = True
        for job, rows in self.rows.items():
            each = [seconds / count for count, seconds, _ in rows if seconds > CLOCK] or [1]
            ratio = each[-1] / min(each)
            flat = flat and ratio <= MOST
            print(f"{job:34} largest beside cheapest: {ratio:.2f} (at most {MOST}){'' if ratio <= MOST else ' MISSED'}")
        return flat


COLOURS = ("#1f77b4", "#d62728", "#2ca02c", "#9467bd", "#ff7f0e", "#8c564b", "#17becf")


def panel(rows_of, value, title, left):
    """Lines over the counts, both axes in powers of ten."""
    from math import ceil, floor, log10  # pylint: disable=import-outside-toplevel
    width, height, top = 420, 320, 40
    points = {job: [(log10(row[0]), log10(max(value(row), 1e-3))) for row in rows] for job, rows in rows_of.items()}
    xs = [x for line in points.values() for x, _ in line]
    ys = [y for line in points.values() for _, y in line]
    x0, x1, y0, y1 = floor(min(xs)), ceil(max(xs)), floor(min(ys)), ceil(max(ys))
    x1, y1 = max(x1, x0 + 1), max(y1, y0 + 1)

    def place(x, y):
        return left + (x - x0) / (x1 - x0) * width, top + height - (y - y0) / (y1 - y0) * height

    svg = [f'<text x="{left}" y="{top - 14}" font-weight="bold">{title}</text>']
    for power in range(x0, x1 + 1):
        x, bottom = place(power, y0)
        svg.append(f'<path d="M{x:.1f} {top}V{bottom:.1f}" stroke="#ddd"/>'
                   f'<text x="{x:.1f}" y="{bottom + 16:.1f}" text-anchor="middle">{10 ** power:,}</text>')
    for power in range(y0, y1 + 1):
        x, y = place(x0, power)
        svg.append(f'<path d="M{x:.1f} {y:.1f}h{width}" stroke="#ddd"/>'
                   f'<text x="{x - 6:.1f}" y="{y + 4:.1f}" text-anchor="end">{10.0 ** power:g}</text>')
    for colour, line in zip(COLOURS, points.values()):
        ends = [place(*point) for point in line]
        svg.append(f'<polyline fill="none" stroke="{colour}" stroke-width="2" points="'
                   + " ".join(f"{x:.1f},{y:.1f}" for x, y in ends) + '"/>')
        svg += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3" fill="{colour}"/>' for x, y in ends]
    return svg


def plot(growth, path):
    svg = panel(growth.rows, lambda row: row[1] / row[0] * 1e6, "processor time, microseconds each", 70)
    svg += panel(growth.rows, lambda row: row[2] / row[0] / 1024, "peak memory above the idle program, KB each", 590)
    for number, (colour, job) in enumerate(zip(COLOURS, growth.rows)):
        x, y = 70 + 330 * (number % 3), 410 + 20 * (number // 3)
        svg.append(f'<path d="M{x} {y - 4}h20" stroke="{colour}" stroke-width="3"/><text x="{x + 26}" y="{y}">{job}</text>')
    path.write_text('<svg xmlns="http://www.w3.org/2000/svg" width="1060" height="480" font-family="sans-serif" '
                    'font-size="12"><rect width="100%" height="100%" fill="white"/>' + "\n".join(svg) + "</svg>\n")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("korvane")
    parser.add_argument("--plot", type=pathlib.Path)
    parser.add_argument("--most", type=int, default=100000, help="files of many series; half and a fifth of the others")
    parser.add_argument("--folder", default="/dev/shm" if os.path.isdir("/dev/shm") else None)
    options = parser.parse_args()
    folder = pathlib.Path(tempfile.mkdtemp(prefix="korvane-growth-", dir=options.folder))
    try:
        growth = Growth(os.path.abspath(options.korvane), folder)
        growth.many_series(options.most)
        growth.one_series(options.most // 2)
        growth.one_object(options.most // 5)
        if options.plot:
            plot(growth, options.plot)
    finally:
        shutil.rmtree(folder, ignore_errors=True)
    sys.exit(0 if growth.check() else 1)


if __name__ == "__main__":
    main()
