"""The jobs of the program that table.py measures: inputs, our command on so many threads, floor and peers of each."""

import contextlib
import dataclasses
import os
import pathlib
import shutil
import socket
import subprocess
import sys
import time
import typing

FILES = 300  # slices of 512 x 512 of the large series
QUIET = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL, "env": {**os.environ, "TCP_NODELAY": "1"}}

# What Python users write: whole processes, with the start of Python.
PYDICOM_HEADERS = """
import pathlib, sys, pydicom
for path in pathlib.Path(sys.argv[1]).rglob("*.dcm"): pydicom.dcmread(path, stop_before_pixels=True).SeriesInstanceUID
"""
PYDICOM_VOLUME = """
import pathlib, sys, numpy, pydicom
images = [pydicom.dcmread(path) for path in pathlib.Path(sys.argv[1]).iterdir()]
images.sort(key=lambda image: image.ImagePositionPatient[2])
numpy.stack([image.pixel_array for image in images])
"""
PYDICOM_DECODED = """
import pathlib, sys, pydicom
for path in pathlib.Path(sys.argv[1]).iterdir():
    image = pydicom.dcmread(path)
    image.decompress()
    image.save_as(pathlib.Path(sys.argv[2]) / path.name)
"""


@dataclasses.dataclass
class Peer:
    name: str
    needs: str  # a program, or a module of Python as "python3 MODULE"
    command: list


@dataclasses.dataclass
class Job:
    """Commands are lists; those that write do so to `out`, which is removed before each run."""

    name: str
    ours: typing.Callable[[int], list]  # of the number of threads
    floor: list
    floor_text: str
    peers: list = dataclasses.field(default_factory=list)
    out: pathlib.Path | None = None
    is_folder: bool = False  # of `out`: whether peers want it made
    around: typing.Callable = contextlib.nullcontext

    def floor_on_two(self):
        """The same work on two threads."""
        program, what, *words = self.floor
        return [program, what + "2", *words]


def is_there(peer):
    program, _, module = peer.needs.partition(" ")
    return bool(shutil.which(program)) and (
        not module or subprocess.run([sys.executable, "-c", f"import {module}"], **QUIET).returncode == 0)


def each_file(folder, *command):
    """A process for each file, as scripts call programs that take one; IN and OUT stand for the paths."""
    words = " ".join(str(word) for word in command).replace("IN", '"$file"').replace("OUT", '"$2/${file##*/}"')
    return ["sh", "-c", f'for file in "$1"/*; do {words}; done', "sh", folder]


class Jobs:
    def __init__(self, build, work):
        self.bin, self.work = pathlib.Path(build) / "bin", work
        self.korvane, self.floors = self.bin / "korvane", self.bin / "bench_floor"
        self.out = work / "out"
        self.made = {}

    def floor(self, *words):
        return [self.floors, *words]

    def series(self, name, *options, syntax=None, of=None):
        """The folder with a series made by the program, or with another one converted."""
        if name not in self.made:
            folder = self.work / name
            command = ["convert", of, folder, "--syntax", syntax, "-q"] if syntax else ["phantom", folder, *options]
            subprocess.run([str(word) for word in (self.korvane, *command)], check=True, **QUIET)
            self.made[name] = folder
        return self.made[name]

    def ct(self):
        return self.series("ct", "--slices", FILES, "--size", 512)

    def many(self, count):
        """So many small files in series of 200."""
        if ("many", count) not in self.made:
            for n in range(count // 200):
                self.series(f"many{count}/{n}", "--slices", 200, "--size", 16, "--seed", n + 1)
            self.made["many", count] = self.work / f"many{count}"
        return self.made["many", count]

    def itk(self, *words):
        return Peer("ITK", str(self.bin / "bench_itk"), [self.bin / "bench_itk", *words])

    def find(self, count):
        files = self.many(count)
        return Job(f"find {count:,} files", lambda n: [self.korvane, "info", files, "--json", "--jobs", n],
                   self.floor("heads", files), "first 4 KB of each",
                   [Peer("pydicom", f"{sys.executable} pydicom", [sys.executable, "-c", PYDICOM_HEADERS, files]),
                    Peer("GDCM", "gdcmscanner", ["gdcmscanner", "-r", "-d", files, "-t", "0020,000e"])])

    def load(self):
        ct = self.ct()
        return Job(f"load {FILES} slices", lambda n: [self.bin / "find_and_load", ct, 1, n],
                   self.floor("load", ct), "read into fresh huge pages",
                   [Peer("pydicom", f"{sys.executable} pydicom", [sys.executable, "-c", PYDICOM_VOLUME, ct]),
                    self.itk("load", ct)])

    def export(self, name, source, kind, size=FILES * 512 * 512 * 2, suffix="", peers=(), itk=False):
        """`size`: bytes of its voxels."""
        target = self.out / f"v{suffix}"
        # Elsewhere a folder stands for the set of files; only NIfTI and the like are told their name.
        return Job(name, lambda n: [self.korvane, "export", source, "--format", kind, "--to", target, "--jobs", n, "-q"],
                   self.floor("join", source, target, size), "read, write as many bytes plainly",
                   [Peer(peer, needs, ["dcm2niix", *words, "-x", "i", "-f", "v", "-o", self.out, source])
                    for peer, needs, words in peers] + ([self.itk("export", source, self.out / f"itk{suffix}")] if itk else []),
                   out=self.out, is_folder=True)

    def exports(self):
        ct = self.ct()
        plain = [("dcm2niix", "dcm2niix", ("-z", "n"))]
        packed = [("dcm2niix", "dcm2niix", ("-z", "i")), ("dcm2niix with pigz", "pigz", ("-z", "y"))]
        rle, jll = self.series("rle", syntax="rle", of=ct), self.series("jll", syntax="jpegll", of=ct)
        yield self.export(f"export {FILES} slices to .nii", ct, "nifti", suffix=".nii", peers=plain, itk=True)
        yield self.export(f"export {FILES} slices to .nii.gz", ct, "nifti", suffix=".nii.gz", peers=packed, itk=True)
        yield self.export(f"export {FILES} RLE slices to .nii", rle, "nifti", suffix=".nii", peers=plain, itk=True)
        yield self.export(f"export {FILES} lossless JPEG slices to .nii", jll, "nifti", suffix=".nii", peers=plain, itk=True)
        times = self.series("times", "--slices", 30, "--size", 64, "--volumes", 200)
        packed_times = self.series("times jll", syntax="jpegll", of=times)
        for text, source in (("", times), ("lossless JPEG ", packed_times)):
            yield self.export(f"export 200 {text}volumes of 30 x 64 x 64 to .nii", source, "nifti", 200 * 30 * 64 * 64 * 2, ".nii", plain)
        for kind in ("analyze", "vox"):
            yield self.export(f"export {FILES} slices to {kind}", ct, kind, suffix=".vox" if kind == "vox" else "")

    def convert(self, name, source, syntax, peers=()):
        return Job(name, lambda n: [self.korvane, "convert", source, self.out, "--syntax", syntax, "--jobs", n, "-q"],
                   self.floor("copy", source, self.out), "copy the files",
                   [Peer(peer, needs, command) for peer, needs, command in peers], out=self.out, is_folder=bool(peers))

    def converts(self, count=500):
        native = self.series(f"native{count}", "--slices", count, "--size", 512)
        for text, syntax, packing, unpacking in (("RLE", "rle", "dcmcrle", "dcmdrle"),
                                                 ("lossless JPEG", "jpegll", "dcmcjpeg", "dcmdjpeg")):
            packed = self.series(f"{syntax}{count}", syntax=syntax, of=native)
            yield self.convert(f"convert {count} files to {text}", native, syntax,
                               [("DCMTK, a process a file", packing, [*each_file(native, packing, "IN", "OUT"), self.out])])
            unpacked = [("DCMTK, a process a file", unpacking, [*each_file(packed, unpacking, "IN", "OUT"), self.out])]
            if syntax == "rle":
                unpacked.append(("pydicom", f"{sys.executable} pydicom", [sys.executable, "-c", PYDICOM_DECODED, packed, self.out]))
            yield self.convert(f"convert {count} files from {text}", packed, "explicit", unpacked)

    def pictures(self):
        ct = self.ct()
        for text, words in (("one oblique picture", ("--normal", "1,-0.58,1.03")), ("512 coronal pictures", ("--view", "coronal", "--all"))):
            target = self.out / "p" if "--all" in words else self.out / "p.png"
            yield Job(f"load and draw {text}", lambda n, words=words, target=target: [
                self.korvane, "slice", ct, *words, "-o", target, "--jobs", n, "-q"],
                self.floor("load", ct), "load plainly", out=self.out, is_folder=True)

    def media(self, count=2000):
        files = self.work / f"medium{count}"  # with names that a medium may have, which dcmmkdir wants
        for n, path in enumerate(sorted(self.many(count).rglob("*.dcm"))):
            target = files / f"S{n // 200}" / f"I{n}"
            target.parent.mkdir(parents=True, exist_ok=True)
            if not target.exists():
                os.link(path, target)
        peer = [Peer("dcmmkdir, index alone", "dcmmkdir", ["dcmmkdir", "-q", "+r", "+id", files, "+D", self.out / "DICOMDIR"])]
        for text, words in (("copies", ()), ("links", ("--link",))):
            yield Job(f"medium of {count:,} small files, {text}", lambda n, words=words: [
                self.korvane, "media", self.out, files, "--jobs", n, "-q", *words],
                self.floor("read" if words else "copy", files, *(() if words else (self.out,))),
                "read the files" if words else "copy the files", peer, out=self.out)
        ct = self.ct()
        yield Job(f"medium of {FILES} slices, copies", lambda n: [self.korvane, "media", self.out, ct, "--jobs", n, "-q"],
                  self.floor("copy", ct, self.out), "copy the files", out=self.out)
        jll = self.series("jll", syntax="jpegll", of=ct)
        yield Job(f"medium of {FILES} lossless JPEG slices, decoded", lambda n: [
            self.korvane, "media", self.out, jll, "--transcode", "--jobs", n, "-q"],
            self.floor("copy", ct, self.out), "copy the decoded files", out=self.out)

    def dumps(self, count=2000):
        files = self.many(count)
        listed = sorted(files.rglob("*.dcm"))
        yield Job(f"dump {count:,} files", lambda n: [self.korvane, "dump", *listed] if n == 1 else None, self.floor("read", files),
                  "read the files", [Peer("dcmdump", "dcmdump", ["dcmdump", *listed])])
        yield Job(f"dump {count:,} files as JSON", lambda n: [self.korvane, "dump", "--json", *listed] if n == 1 else None,
                  self.floor("read", files), "read the files",
                  [Peer("dcm2json, a process a file", "dcm2json", ["sh", "-c", 'for file; do dcm2json "$file"; done', "sh", *listed])])

    def send(self):
        ct, port = self.ct(), free_port()
        return Job(f"send {FILES} slices to storescp", lambda n: [self.korvane, "send", "127.0.0.1", port, ct, "--jobs", n, "-q"],
                   self.floor("read", ct), "read the files",
                   [Peer("storescu", "storescu", ["storescu", "+sd", "127.0.0.1", port, ct])], around=lambda: listening(port))

    def all(self):
        yield self.find(20000)
        yield self.load()
        yield from self.exports()
        yield from self.converts()
        yield from self.pictures()
        yield from self.media()
        yield from self.dumps()
        if shutil.which("storescp"):
            yield self.send()

    def quick(self):
        """Those whose processor time beside the floor's is steady."""
        yield self.find(2000)
        yield self.load()
        yield from self.exports()
        yield from self.converts(100)
        yield from self.media(1000)
        yield from self.dumps(1000)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return str(probe.getsockname()[1])


@contextlib.contextmanager
def listening(port):
    server = subprocess.Popen(["storescp", "--ignore", "--fork", port], **QUIET)
    try:
        for _ in range(100):
            with contextlib.suppress(ConnectionRefusedError), socket.create_connection(("127.0.0.1", int(port))):
                break
            time.sleep(0.05)
        yield
    finally:
        server.terminate()
        server.wait()
