#!/usr/bin/python3
"""How `korvane media --link` grows with the number of files, in time and memory, beside `dcmmkdir`, which copies nothing.

usage: media_growth.py KORVANE

Needs dcmmkdir (dcmtk) and takes two minutes, nearly all of them dcmmkdir's. Times are those of whole processes, user and
system together, the least of some rounds, since other load on the machine only adds to them. Fails when an aim is missed.
"""

import os
import pathlib
import shutil
import struct
import subprocess
import sys
import tempfile

ROUNDS = 7  # dcmmkdir: 2, and 1 where it is quadratic
CT, EXPLICIT = "1.2.840.10008.5.1.4.1.1.2", "1.2.840.10008.1.2.1"


def element(tag, kind, value):
    value = value.encode() if isinstance(value, str) else value
    value += (b"\0" if kind == "UI" else b" ") * (len(value) % 2)
    return struct.pack("<HH2sH", tag >> 16, tag & 0xFFFF, kind.encode(), len(value)) + value


# A slice as a scanner writes it, apart from what tells one from another: tag, type, value.
COMMON = (
    (0x00080005, "CS", "ISO_IR 100"), (0x00080008, "CS", "ORIGINAL\\PRIMARY\\AXIAL"), (0x00080016, "UI", CT),
    (0x00080020, "DA", "20200101"), (0x00080021, "DA", "20200101"), (0x00080022, "DA", "20200101"),
    (0x00080023, "DA", "20200101"), (0x00080030, "TM", "120000"), (0x00080031, "TM", "120500"),
    (0x00080032, "TM", "120501"), (0x00080033, "TM", "120502"), (0x00080050, "SH", "1"), (0x00080060, "CS", "CT"),
    (0x00080070, "LO", "Maker"), (0x00080080, "LO", "Hospital"), (0x00080090, "PN", "Referring^Doctor"),
    (0x00081010, "SH", "CT1"), (0x00081030, "LO", "Chest"), (0x0008103E, "LO", "Thin slices"),
    (0x00081090, "LO", "Model"), (0x00100030, "DA", "19500101"), (0x00100040, "CS", "O"), (0x00101010, "AS", "070Y"),
    (0x00180015, "CS", "CHEST"), (0x00180022, "CS", "HELICAL MODE"), (0x00180050, "DS", "1.25"), (0x00180060, "DS", "120"),
    (0x00180090, "DS", "350"), (0x00181000, "LO", "4711"), (0x00181020, "LO", "1.0"), (0x00181030, "LO", "Chest thin"),
    (0x00181100, "DS", "350"), (0x00181120, "DS", "0"), (0x00181130, "DS", "120"), (0x00181140, "CS", "CW"),
    (0x00181150, "IS", "500"), (0x00181151, "IS", "250"), (0x00181152, "IS", "125"), (0x00181160, "SH", "BODY"),
    (0x00181190, "DS", "1.2"), (0x00181210, "SH", "STANDARD"), (0x00185100, "CS", "FFS"), (0x00200010, "SH", "1"),
    (0x00200032, "DS", "-175\\-175\\10"), (0x00200037, "DS", "1\\0\\0\\0\\1\\0"), (0x00200052, "UI", "1.2.3.9"),
    (0x00201040, "LO", ""), (0x00201041, "DS", "10"), (0x00280002, "US", b"\1\0"), (0x00280004, "CS", "MONOCHROME2"),
    (0x00280010, "US", b"\x08\0"), (0x00280011, "US", b"\x08\0"), (0x00280030, "DS", "0.7\\0.7"),
    (0x00280100, "US", b"\x10\0"), (0x00280101, "US", b"\x0C\0"), (0x00280102, "US", b"\x0B\0"),
    (0x00280103, "US", b"\0\0"), (0x00281050, "DS", "40"), (0x00281051, "DS", "400"), (0x00281052, "DS", "-1024"),
    (0x00281053, "DS", "1"))
PIXELS = struct.pack("<HH2sHI", 0x7FE0, 0x0010, b"OW", 0, 128) + bytes(128)


def image(series, number):
    """A Part 10 file; each series is a patient's of its own."""
    uid = f"1.2.3.{series}.{number}"
    own = ((0x00080018, "UI", uid), (0x00100010, "PN", f"NAME^{series}"), (0x00100020, "LO", f"ID{series}"),
           (0x0020000D, "UI", f"1.2.3.{series}"), (0x0020000E, "UI", f"1.2.3.{series}.0"),
           (0x00200011, "IS", str(series)), (0x00200013, "IS", str(number)))
    meta = b"".join(element(*e) for e in ((0x00020002, "UI", CT), (0x00020003, "UI", uid), (0x00020010, "UI", EXPLICIT),
                                          (0x00020012, "UI", "1.2.3")))
    body = b"".join(element(*e) for e in sorted(COMMON + own, key=lambda e: e[0]))
    return (bytes(128) + b"DICM" + element(0x00020000, "UL", struct.pack("<I", len(meta))) + meta + body + PIXELS)


def make(folder, files, series):
    for s in range(series):
        (folder / f"S{s}").mkdir(parents=True)
        for n in range(files // series):
            (folder / f"S{s}" / f"I{n}").write_bytes(image(s, n + 1))
    return folder


def run(*command, cwd=None):
    """Processor seconds, and the peak of memory in bytes."""
    process = subprocess.Popen([*map(str, command)], cwd=cwd, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"{command[0]} failed")
    return usage.ru_utime + usage.ru_stime, usage.ru_maxrss * 1024


def korvane(program, work, source):
    # Nothing is removed between the rounds: file systems are slow for a while after many files were removed.
    media = [work / f"{source.name}-medium{n}" for n in range(ROUNDS)]
    results = [run(program, "media", medium, source, "--link") for medium in media]
    return min(results)


def dcmmkdir(work, source, rounds):
    return min(run("dcmmkdir", "-q", "+r", "+id", source, "+D", work / f"DICOMDIR{n}", cwd=work)[0] for n in range(rounds))


def main():
    program = pathlib.Path(sys.argv[1]).resolve()
    work = pathlib.Path(tempfile.mkdtemp(prefix="korvane-media-growth-"))
    try:
        few, many, one = (make(work / f"in{files}", files, series)
                          for files, series in ((2000, 200), (20000, 200), (5000, 1)))
        (few_time, few_peak), (many_time, many_peak), (one_time, _) = (korvane(program, work, s) for s in (few, many, one))
        missed = 0
        for what, value, aim, holds in (
                ("20,000 files beside 2,000, time", many_time / few_time, 11, float.__le__),
                ("20,000 files in 200 series, dcmmkdir beside korvane", dcmmkdir(work, many, 2) / many_time, 8, float.__ge__),
                ("5,000 files of one series, dcmmkdir beside korvane", dcmmkdir(work, one, 1) / one_time, 20, float.__ge__)):
            missed += not holds(value, float(aim))
            print(f"{what}: {value:.1f} x (aim: {aim})")
        print(f"korvane: {few_time:.2f} s, {many_time:.2f} s, {one_time:.2f} s; peak {few_peak >> 20} and {many_peak >> 20} "
              f"MB, {(many_peak - few_peak) / 18000:.0f} bytes per file")
        return missed
    finally:
        shutil.rmtree(work, ignore_errors=True)


sys.exit(main())
