#!/usr/bin/env python3
"""The same work by this machine's programs and by the Windows ones: all that they write must be identical.

usage: compare_builds.py NATIVE_BIN [EMULATOR...] KORVANE.EXE    exit status 77: there are no native programs

Only storage addresses in dumps of volumes, and time stamps and line ends of trace logs, may differ.
"""

import difflib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

SKIPPED = 77
PROGRAMS = ("korvane", "describe_volume", "automation_conversions")
NATIVE = pathlib.Path(sys.argv[1]).resolve()
EMULATOR, WINDOWS = sys.argv[2:-1], pathlib.Path(sys.argv[-1]).resolve().parent
SAMPLES = pathlib.Path(__file__).resolve().parents[3] / "shared" / "samples"
TRACE = {**os.environ, "DCM_DUMP_FLAGS": "0xFF", "DCM_DUMP_PATH": "trace.log"}

PHANTOMS = {
    "tiny": ("--size", 5, "--slices", 1),
    "odd": ("--size", 37, "--rows", 22, "--slices", 9, "--oblique", "--uneven"),
    "signed": ("--size", 64, "--slices", 20, "--signed", "--descending", "--seed", 7),
    "times": ("--size", 16, "--slices", 6, "--volumes", 3),
    "oblique": ("--size", 200, "--slices", 31, "--oblique", "--signed"),
    "large": ("--size", 512, "--slices", 40),
}


class Side:
    """One build's programs, and the folder that they work in. All paths are relative to it, so that texts are alike."""

    def __init__(self, folder, command, suffix):
        self.folder, self.command, self.suffix = folder, command, suffix
        folder.mkdir()
        if SAMPLES.is_dir():
            shutil.copytree(SAMPLES, folder / "samples")

    def run(self, program, *arguments, env=None):
        """(exit status in digits, standard output, standard error)"""
        command = [*self.command[:-1], f"{self.command[-1]}/{program}{self.suffix}", *map(str, arguments)]
        done = subprocess.run(command, cwd=self.folder, env=env, capture_output=True, timeout=300, check=False)
        return b"%d" % done.returncode, done.stdout, done.stderr


class Comparison:
    def __init__(self, folder):
        self.native = Side(folder / "native", [NATIVE], "")
        self.windows = Side(folder / "windows", [*EMULATOR, WINDOWS], ".exe")
        self.runs = self.files = self.differences = 0

    def run(self, program, *arguments, env=None):
        """Runs a program on both sides: exit status and standard output, which were the same unless told otherwise."""
        native, windows = (side.run(program, *arguments, env=env) for side in (self.native, self.windows))
        self.runs += 1
        for what, a, b in zip(("exit status", "standard output", "standard error"), native, windows):
            if a != b:
                self.differ(f"{what} of {program} {' '.join(map(str, arguments))}", a, b)
        return int(native[0]), native[1]

    def differ(self, what, a, b):
        self.differences += 1
        print(f"DIFFERENT: {what}, {len(a)} and {len(b)} bytes")
        if b"\0" in a:
            print(f"  from byte {len(os.path.commonprefix([a, b]))}")
            return
        lines = [data.decode("latin-1").splitlines() for data in (a, b)]
        for line in list(difflib.unified_diff(*lines, "native", "windows", lineterm="", n=0))[:12]:
            print("  " + line[:300])

    def compare_files(self):
        """Everything that both sides have written."""
        trees = [{path.relative_to(side.folder): path for path in side.folder.rglob("*") if path.is_file()}
                 for side in (self.native, self.windows)]
        for path in sorted(trees[0].keys() ^ trees[1].keys()):
            self.differ(f"only one side has {path}", b"", b"")
        for path in sorted(trees[0].keys() & trees[1].keys()):
            if path.parts[0] == "samples":
                continue
            self.files += 1
            a, b = (comparable(path.name, tree[path].read_bytes()) for tree in trees)
            if a != b:
                self.differ(str(path), a, b)


def comparable(name, data):
    """What of a file must be the same on both sides."""
    if name.endswith(".dump.txt"):
        return re.sub(rb"\b0x[0-9a-f]+\b", b"ADDRESS", data)
    if name.endswith(".log"):
        return re.sub(rb"(?m)^[^\n]*?\d\d:\d\d:\d\d[^\n]*? : ", b"TIME : ", data.replace(b"\r\n", b"\n"))
    return data


def describe_series(both, folder, name):
    """Each series below a folder: exported, and described bit for bit. How many could be exported."""
    both.run("korvane", "info", folder)
    series = json.loads(both.run("korvane", "info", "--json", folder)[1])["series"]
    exported = 0
    for number, one in enumerate(series, 1):
        for form, options in (("bob", ()), ("vox", ("--irregular", "resample")), ("analyze", ())):
            status, _ = both.run("korvane", "export", folder, "--series", number, "--format", form, *options, "--to",
                                 f"file:{name}-{number}-{form}", "--report", f"{name}-{number}-{form}.json")
        exported += status == 0
        if "pixels" in one:
            both.run("describe_volume", f"{name}-{number}.dump.txt", *one["files"])
    return exported


def dump_file(both, path):
    for option in ((), ("--whole",), ("--json", "--meta")):
        both.run("korvane", "dump", *option, path)


def phantoms(both):
    for name, options in PHANTOMS.items():
        both.run("korvane", "phantom", f"{name}/größe-Ω-日本", *options)
        assert describe_series(both, name, name) == 1, name
        dump_file(both, f"{name}/größe-Ω-日本/" + sorted(os.listdir(both.native.folder / name / "größe-Ω-日本"))[0])


def traces(both):
    # One file: those of several are read side by side, and their blocks of lines come in any order.
    both.run("korvane", "phantom", "traced", "--size", 8, "--slices", 1, env=TRACE)
    both.run("korvane", "info", "traced", env=TRACE)
    both.run("korvane", "export", "traced", "--format", "analyze", "--to", "file:traced-volume", env=TRACE)
    for path in ("reportsi.dcm", "MR_small_bigendian.dcm", "MR_small_implicit.dcm", "JPEG2000.dcm"):
        both.run("korvane", "dump", f"samples/files/{path}", env=TRACE)
    assert (both.native.folder / "trace.log").stat().st_size > 10000


def set_aside(both):
    """Moves the samples away that one build cannot decode for want of a library."""
    refusal = (rb"korvane: (samples/[^:]*): no codec for [^:]* \(1\.2\.840\.10008\.1\.2\.4\.(?:5[01]|8\d|9\d)\)\s")
    sides = (both.native, both.windows)
    lacking = {os.fsdecode(path) for side in sides
               for path in re.findall(refusal, side.run("korvane", "convert", "samples", "tried")[2])}
    for side in sides:
        shutil.rmtree(side.folder / "tried")
        (side.folder / "aside").mkdir()
        for path in lacking:
            (side.folder / path).rename(side.folder / "aside" / os.path.basename(path))
    print(f"{len(lacking)} sample files for which only one build has a codec: {sorted(lacking)}")


def samples(both):
    if not (both.native.folder / "samples").is_dir():
        print("there are no sample files here")
        return
    set_aside(both)
    both.run("korvane", "convert", "samples", "converted")
    assert describe_series(both, "samples", "sample") > 10
    for path in sorted(path for folder in ("samples", "aside") for path in (both.native.folder / folder).rglob("*")):
        if path.is_file():
            dump_file(both, path.relative_to(both.native.folder))


def main():
    if not all((NATIVE / program).exists() for program in PROGRAMS):
        print(f"skipped: there is no native build at {NATIVE}")
        sys.exit(SKIPPED)
    folder = pathlib.Path(tempfile.mkdtemp(prefix="korvane-compare-builds-"))
    try:
        both = Comparison(folder)
        for work in (phantoms, traces, samples):
            work(both)
        both.run("automation_conversions", "conversions.txt")  # by Windows' own automation library there
        both.compare_files()
        assert both.files > 100, both.files
    finally:
        shutil.rmtree(folder)
    print(f"{both.runs} runs of each program, {both.files} files: {both.differences} differences")
    sys.exit(1 if both.differences else 0)


if __name__ == "__main__":
    main()
