"""Analyze pairs read back by programs that know nothing of ours: nibabel and xmedcon, voxel by voxel.

Called with the path of save_url, behind the words of an emulator's command where it is a Windows program. Exits with 77
(skipped) where neither reader is installed.
"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

try:
    import nibabel
    import numpy
except ImportError:  # Debian's packages belong to Debian's interpreter, which may not be the first one found
    if os.path.realpath(sys.executable) != os.path.realpath("/usr/bin/python3") and os.path.exists("/usr/bin/python3"):
        os.execv("/usr/bin/python3", ["/usr/bin/python3", *sys.argv])
    print("skipped: python3-nibabel is not installed")
    sys.exit(77)

PROGRAM = [*sys.argv[1:-1], os.path.abspath(sys.argv[-1])]
SHAPE = (3, 4, 5)  # slices, rows, columns
CASES = [  # bits, signed, first voxel, modality, what the file holds of voxel v
    ("signed", 16, 1, -30000, "MR", lambda v: v), ("signed, through 0", 16, 1, -30, "CT", lambda v: v),
    ("unsigned, less 32767", 16, 0, 32740, "CT", lambda v: v - 32767),
    ("unsigned, 65535 wraps", 16, 0, 65476, "MR", lambda v: (v - 32767 + 32768) % 65536 - 32768),
    ("XA, halved", 16, 0, 65476, "XA", lambda v: v // 2), ("8 bits", 8, 0, 196, "MR", lambda v: v)]


def read_with_nibabel(folder, _):
    image = nibabel.AnalyzeImage.load(folder / "local/vol.hdr")
    assert numpy.allclose(image.header.get_zooms()[:3], (0.5, 0.75, 2)), image.header.get_zooms()
    return numpy.asarray(image.dataobj).reshape(SHAPE[::-1]).transpose()


def read_with_medcon(folder, bits):
    subprocess.run(["medcon", "-f", "local/vol.hdr", "-n", "-c", "bin", "-o", "out", "-w"], cwd=folder, timeout=20,
                   capture_output=True, check=True)
    return numpy.fromfile(folder / "out.bin", "u1" if bits == 8 else "<i2").reshape(SHAPE)


readers = {"nibabel": read_with_nibabel, "xmedcon": read_with_medcon}
if shutil.which("medcon") is None:
    print("xmedcon is not installed: without it")
    del readers["xmedcon"]
for name, bits, signed, first, modality, stored in CASES:
    with tempfile.TemporaryDirectory(prefix="korvane-readers-test-") as work:
        folder = pathlib.Path(work)
        (folder / "local").mkdir()
        subprocess.run([*PROGRAM, "pair", *map(str, (bits, signed, first, modality))], cwd=work, timeout=60, check=True)
        voxels = stored(numpy.arange(first, first + 60).reshape(SHAPE))
        for reader, read in readers.items():
            numpy.testing.assert_array_equal(read(folder, bits), voxels[::-1], f"{reader}, {name}")  # last slice first
            print(f"{reader} reads what was stored ({name}): {voxels.min()} to {voxels.max()}, last slice first")
