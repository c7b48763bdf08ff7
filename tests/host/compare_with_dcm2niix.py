"""What `korvane export --all --format nifti` writes against what dcm2niix writes of the same files.

Both are taken to the closest canonical axes. Every volume of dcm2niix must be among ours: the same voxels in the same
order of times, the same affine within 0.001 mm at the corners, b-values and directions, and every field of the sidecar
that both write. Without dcm2niix or nibabel it is skipped. Called with a folder behind the program's path it prints a
table of that folder's sub-folders and fails at nothing: for those who want to see figures.
"""

import gzip
import json
import os
import pathlib
import shutil
import subprocess
import sys

TABLE = None
if len(sys.argv) > 2 and os.path.isdir(sys.argv[-1]):
    TABLE = pathlib.Path(sys.argv.pop())

from host_test import SAMPLES, SKIPPED, WORK, edited, korvane, numpy, phantom, run  # noqa: E402

try:
    import nibabel
except ImportError:
    print("skipped: python3-nibabel is not installed")
    sys.exit(SKIPPED)
if shutil.which("dcm2niix") is None:
    print("skipped: dcm2niix is not installed")
    sys.exit(SKIPPED)

# Its resampled copies and overlay masks.
NOT_COUNTED = ("_Tilt", "_Eq", "_ROI")
# Where the positions in the files say otherwise: tilted and unevenly spaced stacks.
AFFINE_BY_POSITIONS = ("philips-ct-tilted", "2_Routine_Brain.nii")
# Volumes of its own that are not ours, on purpose; the documentation says why.
NOT_OURS = {
    "1_a.nii": "two patients' colour images as one volume",
    "1_b.nii": "two images of one place as one volume",
    "1_c.nii": "dose without its scale",
    "1_d.nii": "two dose grids as times of one, without their scale",
    "1_g.nii": "lossy JPEG of 12 bits, which the toolkits that we compare codecs with decode as we do",
    "1_h.nii": "a palette's indices in place of its colours",
    "2_Transesophageal_Echocardiogram.nii": "the first of two frames",
    "4_Scout.nii": "two orientations as one volume",
}
# Fields in which it takes another slice's value, drops an empty one, or makes one up where there is none.
FIELDS_NOT_OURS = {"2_Routine_Brain.nii": ["AcquisitionNumber"], "18_marked_lesion_MPR_Collection_.nii": ["ImageType"],
                   "60502235_.nii": ["SeriesNumber"], "843266141_.nii": ["SeriesNumber"]}


class Reading:
    """A NIfTI file in its closest canonical axes, and what lies beside it."""

    def __init__(self, path):
        self.path = path
        self.plain = nibabel.load(path)
        image = nibabel.as_closest_canonical(self.plain)
        self.shape = image.shape if image.ndim > 3 else (*image.shape, 1)
        self.affine = image.affine
        data = numpy.asanyarray(image.dataobj)
        if data.dtype.names:  # colours: one number for each
            data = sum(data[name].astype(int) << 8 * i for i, name in enumerate(data.dtype.names))
        self.voxels = data.reshape(self.shape)
        base = str(path).removesuffix(".gz").removesuffix(".nii")
        self.sidecar = json.loads(pathlib.Path(base + ".json").read_text()) if os.path.exists(base + ".json") else {}
        self.bvals = numpy.loadtxt(base + ".bval", ndmin=1) if os.path.exists(base + ".bval") else None
        self.bvecs = numpy.loadtxt(base + ".bvec", ndmin=2) if os.path.exists(base + ".bvec") else None

    def patient_vectors(self):
        """Directions in patient axes, from FSL's: x is negated where the file's determinant is positive."""
        vectors = self.bvecs.copy()
        rotation = self.plain.affine[:3, :3] / numpy.linalg.norm(self.plain.affine[:3, :3], axis=0)
        if numpy.linalg.det(rotation) > 0:
            vectors[0] = -vectors[0]
        return rotation @ vectors

    def is_placed(self):
        return int(self.plain.header["sform_code"]) > 0

    def holds(self, other):
        if self.shape != other.shape or self.voxels is None or other.voxels is None:
            return False
        # Without positions, which way an axis runs is a guess.
        turns = [()] if self.is_placed() else [(), (0,), (1,), (2,), (0, 1), (0, 2), (1, 2), (0, 1, 2)]
        return any(numpy.array_equal(numpy.flip(self.voxels, turn), other.voxels) for turn in turns)


def corner_distance(a, b):
    """The largest distance of two affines over the corners of a volume."""
    x, y, z = (side - 1 for side in a.shape[:3])
    corners = numpy.array([[i, j, k, 1] for i in (0, x) for j in (0, y) for k in (0, z)], float).T
    return float(numpy.abs((a.affine @ corners) - (b.affine @ corners)).max())


def in_canonical_axes(name, value, reading):
    """A field that speaks of the file's axes, in the closest canonical ones."""
    axes = nibabel.io_orientation(reading.plain.affine)  # for each axis: which canonical one, and whether it is reversed
    if name in ("PhaseEncodingDirection", "PhaseEncodingAxis"):
        axis, way = axes["ijk".index(value[0])]
        reversed_ = (len(value) > 1) != (way < 0)
        return "ijk"[int(axis)] + ("-" if reversed_ and name == "PhaseEncodingDirection" else "")
    if name == "SliceTiming" and axes[2][1] < 0:
        return value[::-1]
    return value


def same_field(name, ours, theirs):
    if name == "ImageType":  # it adds words of its own
        return ours == theirs[:len(ours)]
    if isinstance(theirs, (int, float)) or (isinstance(theirs, list) and theirs and isinstance(theirs[0], (int, float))):
        one, other = numpy.atleast_1d(numpy.array(ours, float)), numpy.atleast_1d(numpy.array(theirs, float))
        # It prints six digits; times of slices come from seconds of the day in 32 bits.
        tolerance = 2 / 128 if name == "SliceTiming" else 1e-9
        return one.shape == other.shape and bool(numpy.allclose(one, other, rtol=1e-5, atol=tolerance))
    return ours == theirs


class Comparison:
    def __init__(self):
        self.volumes = self.found = self.fields = self.equal = 0
        self.affine = self.bvalue = self.bvector = 0.0
        self.faults = []

    def take(self, theirs, ours, by_positions):
        self.volumes += 1
        matches = [one for one in ours if one.holds(theirs)]
        if not matches and theirs.path.name in NOT_OURS:
            return
        if not matches:
            self.faults.append(f"{theirs.path.name} {theirs.shape}: no such voxels")
            return
        self.found += 1
        match = min(matches, key=lambda one: (self.count_unequal(one, theirs), corner_distance(one, theirs)))
        if not by_positions and match.is_placed() and theirs.path.name not in AFFINE_BY_POSITIONS:
            self.affine = max(self.affine, corner_distance(match, theirs))
            if corner_distance(match, theirs) > 1e-3:
                self.faults.append(f"{theirs.path.name}: affine differs by {corner_distance(match, theirs):.4f} mm")
        if theirs.bvals is not None:
            self.compare_diffusion(theirs, match)
        self.fields += len(self.common_fields(match, theirs))
        unequal = [name for name in self.common_fields(match, theirs) if not self.is_equal(name, match, theirs)]
        self.equal += len(self.common_fields(match, theirs)) - len(unequal)
        self.faults += [f"{theirs.path.name}: {name} {match.sidecar[name]} instead of {theirs.sidecar[name]}"
                        for name in unequal]

    @staticmethod
    def common_fields(ours, theirs):
        return sorted((theirs.sidecar.keys() & ours.sidecar.keys()) - {"ConversionSoftware", "ConversionSoftwareVersion"}
                      - set(FIELDS_NOT_OURS.get(theirs.path.name, [])))

    @staticmethod
    def is_equal(name, ours, theirs):
        return same_field(name, in_canonical_axes(name, ours.sidecar[name], ours),
                          in_canonical_axes(name, theirs.sidecar[name], theirs))

    def count_unequal(self, ours, theirs):
        return sum(not self.is_equal(name, ours, theirs) for name in self.common_fields(ours, theirs))

    def compare_diffusion(self, theirs, match):
        if match.bvals is None:
            self.faults.append(f"{theirs.path.name}: no b-values")
            return
        self.bvalue = max(self.bvalue, float(numpy.abs(match.bvals - theirs.bvals).max()))
        one, other = match.patient_vectors(), theirs.patient_vectors()
        # A direction and its opposite weight alike; those of b = 0 say nothing.
        weighted = theirs.bvals > 50
        apart = numpy.minimum(numpy.abs(one - other).max(axis=0), numpy.abs(one + other).max(axis=0))
        self.bvector = max(self.bvector, float(apart[weighted].max(initial=0)))
        if not numpy.allclose(match.bvals, theirs.bvals, rtol=5e-6, atol=1e-4) or self.bvector > 1e-4:
            self.faults.append(f"{theirs.path.name}: b-values {self.bvalue}, directions {self.bvector}")

    def __str__(self):
        return (f"{self.found} of {self.volumes} volumes, affine {self.affine:.1e} mm, b {self.bvalue:.1e}, directions "
                f"{self.bvector:.1e}, {self.equal} of {self.fields} fields")


def convert(folder, name):
    """The readings of both programs' files, and a check of ours by nifti_tool."""
    theirs, ours = WORK / f"{name}-theirs", WORK / f"{name}-ours"
    theirs.mkdir()
    # Crops, lossless scaling and the like are off; -p n: Philips' own scale is not applied, as the standard says.
    subprocess.run(["dcm2niix", "-x", "i", "-p", "n", "-b", "y", "-z", "n", "-f", "%s_%d", "-o", theirs, folder],
                   capture_output=True, check=False, timeout=120)
    korvane("export", folder, "--all", "--format", "nifti", "--sidecar", "--to", ours, "-q", status=None)
    files = sorted(ours.rglob("*.nii")) if ours.exists() else []
    if shutil.which("nifti_tool") and files:
        checked = subprocess.run(["nifti_tool", "-check_hdr", "-infiles", *files], capture_output=True, text=True, check=False)
        assert checked.stdout.count("GOOD") == len(files), checked.stdout
    counted = [path for path in sorted(theirs.glob("*.nii")) if not any(word in path.name for word in NOT_COUNTED)]
    return [Reading(path) for path in counted], [Reading(path) for path in files]


def compare(folder, name):
    comparison = Comparison()
    theirs, ours = convert(folder, name)
    for reading in theirs:
        comparison.take(reading, ours, name in AFFINE_BY_POSITIONS)
    return comparison


def compare_all(cases):
    faults = []
    for case in cases:
        comparison = compare(case, case.name)
        print(f"{case.name}: {comparison}")
        faults += [f"{case.name}: {fault}" for fault in comparison.faults]
    assert not faults, "\n".join(faults)


def samples():
    if not (SAMPLES / "vendors").exists():
        print("skipped: no samples")
        return
    compare_all(sorted(path for folder in (SAMPLES, SAMPLES / "vendors") for path in folder.iterdir()
                       if path.is_dir() and path.name != "vendors"))


def scanned(name, maker, cosines, change):
    """Three volumes of a made MR series: b = 0, and two of b = 1000 along (1, 2, 3) and (1, -2, 0.5)."""
    def edit(ds, n):
        time, plane = divmod(n, 4)
        ds.Modality, ds.Manufacturer, ds.ScanningSequence, ds.MRAcquisitionType = "MR", maker, "EP", "2D"
        ds.SOPClassUID = ds.file_meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.4"
        ds.ImageType = ["ORIGINAL", "PRIMARY", "OTHER"]
        ds.RepetitionTime, ds.EchoTime, ds.AcquisitionNumber, ds.AcquisitionMatrix = 3000, 80, 1, [16, 0, 0, 16]
        ds.ImageOrientationPatient = cosines
        ds.ImagePositionPatient = [f"{value:.6f}" for value in 5.0 * plane * numpy.cross(cosines[:3], cosines[3:])]
        direction = numpy.array(((0, 0, 0), (1, 2, 3), (1, -2, 0.5))[time], float)
        change(ds, 1000 if time else 0, direction / max(numpy.linalg.norm(direction), 1))

    return edited(phantom(name + "-made", "--slices", 4, "--size", 16, "--volumes", 3), name, edit)


def ge(axis, order):
    def change(ds, b, direction):
        ds.InPlanePhaseEncodingDirection = axis
        ds.AcquisitionMatrix = [16, 0, 0, 16] if axis == "COL" else [0, 16, 16, 0]
        if order.isdigit():  # as software says it that does not use the standard's element
            text = gzip.compress(f'TR "3000.0"\nVIEWORDER "{order}"\n'.encode())
            ds.private_block(0x0025, "GEMS_SERS_01", create=True).add_new(0x1B, "OB", len(text).to_bytes(4, "little") + text)
        else:
            ds.add_new(0x00189034, "CS", order)
        block = ds.private_block(0x0043, "GEMS_PARM_01", create=True)
        for element, kind, value in ((0x39, "IS", [b, 8, 0, 0]), (0x2C, "SS", 600), (0x83, "DS", [0.5, 1])):
            block.add_new(element, kind, value)
        block = ds.private_block(0x0019, "GEMS_ACQU_01", create=True)
        for i, value in enumerate(direction):
            block.add_new(0xBB + i, "DS", f"{value:.6f}")

    return change


def philips(ds, b, direction):
    imaging = ds.private_block(0x2001, "Philips Imaging DD 001", create=True)
    imaging.add_new(0x03, "FL", float(b))
    imaging.add_new(0x04, "CS", "O" if b else "N")
    mr = ds.private_block(0x2005, "Philips MR Imaging DD 001", create=True)
    for i, value in enumerate(direction):
        mr.add_new(0xB0 + i, "FL", float(value))


def canon(ds, b, direction):
    ds.InPlanePhaseEncodingDirection = "COL"
    ds.add_new(0x00189087, "FD", float(b))
    if b:
        ds.ImageComments = f"b={b}({','.join(f'{value:.6f}' for value in direction)})"


def made():
    """Makers' elements as published, in planes of every kind."""
    cases = [scanned("philips", "Philips Medical Systems", [1, 0, 0, 0, 0.8, 0.6], philips),
             scanned("canon", "CANON_MEC", [1, 0, 0, 0, 1, 0], canon),
             scanned("canon-coronal", "CANON_MEC", [1, 0, 0, 0, 0, -1], canon)]
    planes = {"axial": [1, 0, 0, 0, 1, 0], "sagittal": [0, 1, 0, 0, 0, -1], "coronal": [1, 0, 0, 0, 0, -1],
              "oblique": [1, 0, 0, 0, 0.8, 0.6]}
    for name, cosines in planes.items():
        for axis, order in (("COL", "LINEAR"), ("ROW", "REVERSE_LINEAR")):
            cases.append(scanned(f"ge-{name}-{axis}", "GE MEDICAL SYSTEMS", cosines, ge(axis, order)))
    for order in "01":
        cases.append(scanned(f"ge-protocol-{order}", "GE MEDICAL SYSTEMS", planes["axial"], ge("COL", order)))
    compare_all(cases)


def print_table():
    for case in sorted(path for path in TABLE.iterdir() if path.is_dir()):
        comparison = compare(case, case.name)
        print(f"| {case.name} | {comparison} |")
        for fault in comparison.faults:
            print(f"    {fault}")


if TABLE is not None:
    print_table()
    shutil.rmtree(WORK)
else:
    run(samples, made)
