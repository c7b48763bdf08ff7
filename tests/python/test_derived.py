#!/usr/bin/env python3
"""Arrays as volumes and as derived DICOM series: read by pydicom, dcm2niix, DCMTK and GDCM.

usage: test_derived.py FOLDER_OF_THE_PACKAGE
"""

import gc
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, sys.argv[1])

import nibabel
import numpy
import pydicom

import korvane

CT, MR, PET, SC = (f"1.2.840.10008.5.1.4.1.1.{end}" for end in ("2", "4", "128", "7"))


def read(folder):
    return [pydicom.dcmread(path) for path in sorted(pathlib.Path(folder).iterdir())]


def real(images):
    return numpy.array([i.pixel_array * float(i.get("RescaleSlope", 1)) + float(i.get("RescaleIntercept", 0)) for i in images])


class Derived(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.temporary = tempfile.TemporaryDirectory(prefix="korvane-derived-")
        cls.folder = pathlib.Path(cls.temporary.name)
        korvane.phantom(cls.folder / "ct", slices=6, size=32, oblique=True)
        cls.ct = korvane.find(cls.folder / "ct").only().load()

    @classmethod
    def tearDownClass(cls):
        cls.temporary.cleanup()

    def of_other_modality(self, name, sop_class, **elements):
        """The phantom as another modality has it, by pydicom."""
        target = self.folder / name
        target.mkdir()
        for number, path in enumerate(sorted((self.folder / "ct").iterdir())):
            image = pydicom.dcmread(path)
            image.SOPClassUID = image.file_meta.MediaStorageSOPClassUID = sop_class
            for keyword, value in elements.items():
                setattr(image, keyword, value(image) if callable(value) else value)
            pydicom.filewriter.correct_ambiguous_vr(image, True).save_as(target / f"{number}.dcm")
        return korvane.find(target).only().load()

    def save(self, volume, name, **options):
        report = volume.save_dicom(self.folder / name, **options)
        if shutil.which("dciodvfy"):
            done = subprocess.run(["dciodvfy", report["files"][0]], capture_output=True, text=True)
            self.assertEqual([line for line in done.stderr.splitlines() if line.startswith("Error")], [], name)
        self.assertEqual(sorted(report["files"]), [str(p) for p in sorted((self.folder / name).iterdir())])
        return report, read(self.folder / name)

    def test_a_volume_of_an_array_is_the_array(self):
        random = numpy.random.default_rng(7)
        for dtype in ("i1", "u1", "i2", "u2", "i4", "u4", "f4", "f8", ">i2", "f2", "i8", "?"):
            array = (random.random((6, 32, 32)) * 100).astype(dtype)
            volume = korvane.from_array(array, like=self.ct)
            numpy.testing.assert_array_equal(volume.array, array, dtype)
            numpy.testing.assert_allclose(volume.affine_lps, self.ct.affine_lps, atol=1e-5)
        odd = korvane.from_array(numpy.full((3, 5, 7), numpy.nan), affine_ras=numpy.diag([2.0, 3, 4, 1]))
        self.assertTrue(numpy.isnan(odd.array).all())
        numpy.testing.assert_allclose(odd.spacing, (2, 3, 4))
        times = random.integers(0, 99, (2, 6, 32, 32), dtype="i2")
        numpy.testing.assert_array_equal(korvane.from_array(times, like=self.ct).array, times)
        colours = random.integers(0, 255, (6, 32, 32, 3), dtype="u1")
        numpy.testing.assert_array_equal(korvane.from_array(colours, like=self.ct, colour=True).array, colours)
        # It is good for all that volumes are good for, and its series outlives it.
        volume = korvane.from_array(self.ct.array, like=self.ct, rescale=self.ct.rescale(), unit="HU")
        numpy.testing.assert_array_equal(volume.slice("coronal", window=(40, 400)).array,
                                         self.ct.slice("coronal", window=(40, 400)).array)
        volume.export("nifti", self.folder / "made")
        self.ct.export("nifti", self.folder / "read")
        made, wanted = (nibabel.load(self.folder / f"{name}.nii") for name in ("made", "read"))
        numpy.testing.assert_array_equal(made.get_fdata(), wanted.get_fdata())
        series = volume.series
        del volume
        gc.collect()
        numpy.testing.assert_array_equal(series.load().array, self.ct.array)
        files = series.files
        del series
        gc.collect()
        self.assertFalse(os.path.exists(files[0]))

    def test_left_handed_and_flipped_stacks_keep_their_places(self):
        array = numpy.arange(4 * 3 * 5, dtype="f4").reshape(4, 3, 5)
        for signs in ((1, 1, 1), (1, 1, -1), (-1, 1, 1), (1, -1, -1)):
            affine = numpy.diag([*numpy.multiply(signs, (1.0, 2, 3)), 1])
            affine[:3, 3] = (10, 20, 30)
            volume = korvane.from_array(array, affine_lps=affine)
            back = numpy.linalg.inv(volume.affine_lps)
            for plane, row, column in ((0, 0, 0), (3, 2, 4), (1, 2, 3)):
                i, j, k = numpy.rint((back @ affine @ [column, row, plane, 1])[:3]).astype(int)
                self.assertEqual(volume.array[k, j, i], array[plane, row, column])

    def test_a_series_has_its_identity_and_its_sources(self):
        smooth = korvane.from_array(self.ct.real() * 0.37, like=self.ct, unit="HU", derivation="times 0.37")
        report, images = self.save(smooth, "smooth", description="smoothed", number=77)
        sources = {i.SOPInstanceUID: i for i in read(self.folder / "ct")}
        self.assertEqual(len({i.SOPInstanceUID for i in images} - set(sources)), 6)
        uids = {i.SeriesInstanceUID for i in images}
        self.assertEqual(uids, {report["series_uid"]})
        for image in images:
            source = image.SourceImageSequence[0]
            of = sources[source.ReferencedSOPInstanceUID]
            numpy.testing.assert_allclose(image.ImagePositionPatient, of.ImagePositionPatient, atol=1e-5)
            self.assertEqual((len(image.SourceImageSequence), source.SpatialLocationsPreserved), (1, "YES"))
            self.assertEqual(source.PurposeOfReferenceCodeSequence[0].CodeValue, "121322")
            self.assertEqual(image.ReferencedSeriesSequence[0].SeriesInstanceUID, of.SeriesInstanceUID)
            for same in ("PatientName", "PatientID", "StudyInstanceUID", "FrameOfReferenceUID", "Modality", "SOPClassUID"):
                self.assertEqual(image[same], of[same])
            self.assertNotEqual(image.SeriesInstanceUID, of.SeriesInstanceUID)
            self.assertEqual(list(image.ImageType)[:2], ["DERIVED", "SECONDARY"])
            self.assertEqual(image.WindowWidth, of.WindowWidth)  # of Hounsfield units, as these values are
            self.assertEqual((image.SeriesNumber, image.DerivationDescription), (77, "times 0.37"))
            self.assertEqual(image.ContributingEquipmentSequence[0].PurposeOfReferenceCodeSequence[0].CodeValue, "109101")
            self.assertEqual(image.file_meta.MediaStorageSOPInstanceUID, image.SOPInstanceUID)
        error = numpy.abs(real(images) - smooth.real()).max()
        self.assertLessEqual(error, report["error"] * 1.001)
        self.assertLess(report["error"], 0.02)
        self.assertEqual([f.kind for f in report["findings"]], ["values rounded"])
        # A volume that came from files is saved as it is stored, exactly.
        report, images = self.save(self.ct, "copy")
        numpy.testing.assert_array_equal([i.pixel_array for i in images], self.ct.array)
        self.assertEqual((report["error"], report["findings"], report["sop_class"]), (0, [], CT))
        # One more derivation of it refers to what was made, not to what lies in memory.
        with self.assertRaises(korvane.Disk):
            self.ct.save_dicom(self.folder / "copy")
        self.assertEqual(len(read(self.folder / "copy")), 6)
        self.assertEqual({i.SeriesInstanceUID for i in read(self.folder / "copy")}, {report["series_uid"]})

    def test_other_programs_read_it(self):
        array = self.ct.real() / 3
        volume = korvane.from_array(array, like=self.ct, unit="HU")
        report, images = self.save(volume, "read-by-others")
        subprocess.run(["dcm2niix", "-f", "theirs", "-o", self.folder, self.folder / "read-by-others"], check=True,
                       stdout=subprocess.DEVNULL)
        theirs = nibabel.load(self.folder / "theirs.nii")
        ours = volume.to_nibabel()
        points = numpy.array([[0, 0, 0, 1], [31, 5, 3, 1], [7, 30, 5, 1]]).T
        for point in points.T:
            where = ours.affine @ point
            i, j, k = numpy.rint((numpy.linalg.inv(theirs.affine) @ where)[:3]).astype(int)
            numpy.testing.assert_allclose((theirs.affine @ [i, j, k, 1])[:3], where[:3], atol=1e-2)
            self.assertAlmostEqual(theirs.get_fdata()[i, j, k], ours.get_fdata()[tuple(point[:3])], delta=report["error"] * 1.01 + 1e-3)
        for path in report["files"][:2]:
            for command in (["dcmdump", "-q", path], ["gdcminfo", path]):
                done = subprocess.run(command, capture_output=True, text=True)
                self.assertEqual((done.returncode, "error" in done.stderr.lower()), (0, False), done.stderr)

    def test_classes(self):
        mr = self.of_other_modality("mr", MR, Modality="MR", ScanningSequence="SE", SequenceVariant="NONE", ScanOptions="",
                                    MRAcquisitionType="2D", EchoTime=10, RepetitionTime=500, EchoTrainLength=1)
        _, images = self.save(korvane.from_array(mr.real(), like=mr), "mr-derived")
        self.assertEqual({(i.SOPClassUID, i.EchoTime, i.ScanningSequence) for i in images}, {(MR, 10, "SE")})
        pet = self.of_other_modality("pet", PET, Modality="PT", Units="BQML", RescaleIntercept=0, DecayCorrection="START",
                                     DecayFactor=lambda i: 1 + i.InstanceNumber / 64, FrameReferenceTime=500, RescaleSlope=2,
                                     SeriesDate="20240101", SeriesTime="12", AcquisitionDate="20240101", AcquisitionTime="12",
                                     CountsSource="EMISSION", SeriesType=["STATIC", "IMAGE"], NumberOfSlices=6, CollimatorType="NONE",
                                     CorrectedImage=["DECY", "ATTN"], ActualFrameDuration=9, ImageIndex=1, RescaleType="",
                                     RadiopharmaceuticalInformationSequence=[], PatientOrientationCodeSequence=[],
                                     PatientGantryRelationshipCodeSequence=[])
        _, images = self.save(korvane.from_array(pet.real() / 7, like=pet, unit="BQML"), "pet-derived")
        self.assertEqual({(i.SOPClassUID, i.RescaleIntercept, i.PixelRepresentation) for i in images}, {(PET, 0, 1)})
        by_place = {tuple(i.ImagePositionPatient): i.DecayFactor for i in read(self.folder / "pet")}
        for image in images:
            self.assertEqual(image.DecayFactor, by_place[tuple(image.ImagePositionPatient)])
        # Between the planes there is no image whose decay it could have.
        affine = pet.affine_lps
        affine[:3, 3] += affine[:3, 2] / 2
        report, images = self.save(korvane.from_array(pet.real(), affine_lps=affine, source=pet.series), "pet-between")
        self.assertEqual({(i.SOPClassUID, len(i.SourceImageSequence), "DecayFactor" in i) for i in images}, {(SC, 6, False)})
        self.assertEqual([f.kind for f in report["findings"]], ["class changed"])
        # Signed bytes become words, with which a padding of the bytes is not compared: that is told.
        padded = self.of_other_modality("padded", CT, PixelData=lambda i: bytes(i.Rows * i.Columns), BitsAllocated=8, BitsStored=8,
                                        HighBit=7, PixelRepresentation=1, PixelPaddingValue=-100)
        report, images = self.save(padded, "padded-derived")
        self.assertEqual([f.kind for f in report["findings"]], ["not applied"])
        self.assertNotIn("PixelPaddingValue", images[0])
        # A mask is no CT, and colours are none either.
        mask = korvane.from_array(self.ct.real() > 300, like=self.ct)
        _, images = self.save(mask, "mask", secondary_capture=True)
        self.assertEqual({(i.SOPClassUID, i.BitsAllocated, i.ConversionType, i.Modality) for i in images}, {(SC, 8, "WSD", "CT")})
        self.assertNotIn("WindowWidth", images[0])
        _, images = self.save(mask, "mask-as-ct")
        self.assertEqual({(i.SOPClassUID, i.BitsAllocated, i.RescaleType) for i in images}, {(CT, 16, "US")})
        colour = korvane.from_array(numpy.zeros((2, 3, 5, 3), "u1") + 9, affine_lps=numpy.eye(4), colour=True)
        _, images = self.save(colour, "colour")
        self.assertEqual({(i.SOPClassUID, i.PhotometricInterpretation, i.Modality) for i in images}, {(SC, "RGB", "OT")})
        self.assertTrue((images[0].pixel_array == 9).all())

    def test_what_cannot_be_said_is_refused(self):
        eye = numpy.eye(4)
        sheared, flat, nowhere, together = eye.copy(), eye.copy(), eye.copy(), numpy.diag([1, 1, 1e-9, 1])
        sheared[0, 1], flat[:3, 2], nowhere[0, 3] = 0.1, (1, 0, 0), numpy.inf
        array = numpy.zeros((3, 4, 5), "f4")
        for affine, error in ((sheared, korvane.Irregular), (flat, korvane.Irregular), (nowhere, korvane.WrongArgument),
                              (together, korvane.WrongArgument), (numpy.zeros((4, 4)), korvane.WrongArgument), (numpy.eye(3), korvane.WrongArgument)):
            self.assertRaises(error, korvane.from_array, array, affine_lps=affine)
        self.assertRaises(korvane.WrongArgument, korvane.from_array, array)
        self.assertRaises(korvane.WrongArgument, korvane.from_array, array, like=self.ct)
        self.assertRaises(korvane.WrongArgument, korvane.from_array, array[0], affine_lps=eye)
        self.assertRaises(korvane.WrongArgument, korvane.from_array, array[:0], affine_lps=eye)
        self.assertRaises(korvane.WrongArgument, korvane.from_array, array, affine_lps=eye, rescale=(0, 1))
        self.assertRaises(TypeError, korvane.from_array, array.astype("c8"), affine_lps=eye)
        self.assertRaises(korvane.WrongArgument, korvane.from_array, numpy.full((1, 2, 2), 2**40), affine_lps=eye)
        array[1, 2, 3], array[0, 0, 0] = numpy.nan, 0.5
        volume = korvane.from_array(array, affine_lps=eye)
        with self.assertRaisesRegex(korvane.Unsupported, "1 voxels are no finite numbers, the first in plane 1"):
            volume.save_dicom(self.folder / "nan")
        with self.assertRaisesRegex(korvane.Unsupported, "allowed"):
            volume.save_dicom(self.folder / "nan", nan=-1, max_error=1e-6)
        for options in ({"nan": numpy.nan}, {"nan": numpy.inf}, {"nan": 0, "max_error": numpy.nan}, {"nan": 0, "max_error": -1}):
            self.assertRaises(korvane.WrongArgument, volume.save_dicom, self.folder / "nan", **options)
        self.assertFalse((self.folder / "nan").exists())
        report, images = self.save(volume, "nan", nan=-1)
        self.assertEqual(report["replaced"], 1)
        self.assertAlmostEqual(real(images)[1, 2, 3], -1, delta=report["error"])
        for wide in (1e300, 1e-300):
            extreme = korvane.from_array(numpy.array([[[-wide, wide]]]), affine_lps=eye)
            self.assertRaises(korvane.Unsupported, extreme.save_dicom, self.folder / "wide")

        def breaks(label, done, total):
            raise RuntimeError("the callable's own")

        with self.assertRaisesRegex(RuntimeError, "own"):
            self.ct.save_dicom(self.folder / "broken", progress=breaks)
        self.assertFalse(any((self.folder / "broken").iterdir()) if (self.folder / "broken").exists() else False)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
