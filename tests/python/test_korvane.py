#!/usr/bin/env python3
"""The Python module beside pydicom and numpy, on series that it makes itself.

usage: test_korvane.py FOLDER_OF_THE_PACKAGE
"""

import gc
import multiprocessing
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import weakref

sys.path.insert(0, sys.argv[1])

import nibabel
import numpy
import pydicom

import korvane


def lattice(files):
    """(positions, voxels) as pydicom reads them, in the order of the files."""
    sets = [pydicom.dcmread(file) for file in files]
    return numpy.array([s.ImagePositionPatient for s in sets], float), numpy.array([s.pixel_array for s in sets]), sets[0]


def sum_of(folder):
    return int(korvane.find(folder, jobs=2).only().load(jobs=2).array.sum())


class Module(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.temporary = tempfile.TemporaryDirectory(prefix="korvane-python-")
        cls.folder = pathlib.Path(cls.temporary.name)
        korvane.phantom(cls.folder / "ct", slices=12, size=40, oblique=True)

    @classmethod
    def tearDownClass(cls):
        cls.temporary.cleanup()

    def load(self, **options):
        return korvane.find(self.folder / "ct").only().load(**options)

    def test_voxels_and_affine_are_those_of_the_files(self):
        series = korvane.find([self.folder / "ct"])[0]
        positions, pixels, first = lattice(series.files)
        volume = series.load()
        self.assertEqual(volume.array.shape, (12, 40, 40))
        for plane, position in enumerate(volume.positions):
            nearest = numpy.linalg.norm(positions - position, axis=1).argmin()
            numpy.testing.assert_allclose(positions[nearest], position, atol=1e-4)
            numpy.testing.assert_array_equal(pixels[nearest], volume.array[plane])
            wanted = position + 3 * first.PixelSpacing[1] * numpy.array(first.ImageOrientationPatient[:3], float)
            numpy.testing.assert_allclose((volume.affine_lps @ [3, 0, plane, 1])[:3], wanted, atol=1e-3)
        numpy.testing.assert_array_equal(volume.affine_ras, numpy.diag([-1.0, -1, 1, 1]) @ volume.affine_lps)
        self.assertTrue(numpy.shares_memory(volume.array, volume.array))
        slope, intercept = volume.rescale()
        numpy.testing.assert_array_equal(volume.real(), volume.array * numpy.float32(slope) + numpy.float32(intercept))

    def test_views_live_as_long_as_they_are_used(self):
        view = self.load().array[3:5, ::2]
        wanted = view.copy()
        gc.collect()
        junk = [self.load().array.copy() for _ in range(5)]
        numpy.testing.assert_array_equal(view, wanted)
        self.assertFalse(view.flags.writeable)
        self.assertEqual(len(junk), 5)

    def test_exported_files_and_nibabel_images_agree(self):
        volume = self.load()
        report = volume.export("nifti", self.folder / "out" / "head")
        self.assertEqual(report["status"], "done")
        file = nibabel.load(self.folder / "out" / "head.nii")
        image = volume.to_nibabel()
        numpy.testing.assert_allclose(file.get_fdata(), image.get_fdata(), atol=1e-3)
        numpy.testing.assert_allclose(file.affine, image.affine, atol=1e-3)

    def test_uneven_planes_have_positions_and_no_affine(self):
        korvane.phantom(self.folder / "uneven", slices=8, size=16, uneven=True)
        series = korvane.find(self.folder / "uneven").only()
        self.assertIn("uneven gaps", [finding.kind for finding in series.findings])
        with self.assertRaises(korvane.Irregular):
            series.load(irregular="reject")
        volume = series.load()
        self.assertEqual(volume.positions.shape, (8, 3))
        with self.assertRaisesRegex(korvane.Irregular, "positions"):
            print(volume.affine_ras)

    def test_what_files_do_not_tell_is_not_made_up(self):
        folder = self.folder / "bare"
        folder.mkdir()
        for number, path in enumerate(korvane.find(self.folder / "ct")[0].files):
            ds = korvane.read(path)
            del ds["PixelSpacing"]
            ds.ImageType = "ORIGINAL\\PRIMARY\\M\\MOSAIC"
            ds.save(folder / f"{number}.dcm")
        series = korvane.find(folder).only()
        kinds = [finding.kind for finding in series.findings]
        self.assertIn("tiles unread", kinds)
        self.assertIn("spacing unknown", kinds)
        with self.assertRaisesRegex(korvane.Irregular, "where the voxels lie"):
            print(series.load().affine_lps)

    def test_pictures(self):
        volume = self.load()
        picture = volume.slice("sagittal", window=(40, 400), pixel_size=2)
        self.assertEqual(picture.array.dtype, numpy.uint8)
        self.assertTrue(picture._repr_png_().startswith(b"\x89PNG"))
        oblique = volume.slice(normal=(0, -1, 1), point=(0, 0, 0), interpolation="nearest")
        self.assertGreater(numpy.unique(oblique.array).size, 20)
        with self.assertRaises(ValueError):
            volume.slice("upwards")

    def test_slicer(self):
        volume = self.load()
        slicer = volume.slicer()
        for arguments in ({"view": "coronal"}, {"normal": (0.2, -1, 1), "point": (3, 4, 5), "slab": 20, "window": (40, 400)}):
            numpy.testing.assert_array_equal(slicer.slice(**arguments).array, volume.slice(**arguments).array)
        values = slicer.values(index=3, interpolation="nearest")
        self.assertEqual(values.dtype, numpy.float32)
        real = volume.real()[3] if callable(volume.real) else volume.real[3]
        views = (real, real[::-1], real[:, ::-1], real[::-1, ::-1])
        self.assertTrue(any(values.shape == view.shape and (values == view).all() for view in views))
        oblique = {"normal": (0, -1, 1), "frame": (40, 30), "slab": 12, "window": (40, 400)}
        slicer.slice(**oblique)
        self.assertGreater(slicer.layer_bytes, 0)
        moved = slicer.slice(shift=slicer.slab_step, **oblique).array
        self.assertEqual(moved.shape, (30, 40))
        del volume
        numpy.testing.assert_array_equal(moved, self.load().slicer(slab_memory=0).slice(shift=slicer.slab_step, **oblique).array)
        with self.assertRaises(ValueError):
            slicer.slice("coronal", shift=1)

    def test_data_sets(self):
        path = korvane.find(self.folder / "ct")[0].files[0]
        ours, theirs = korvane.read(path), pydicom.dcmread(path)
        self.assertEqual(ours.PatientName, str(theirs.PatientName))
        self.assertEqual(ours.Rows, theirs.Rows)
        self.assertEqual(ours["0020,0032"], [float(v) for v in theirs.ImagePositionPatient])
        self.assertEqual(ours[0x7FE0, 0x0010], theirs.PixelData)
        self.assertRaises(AttributeError, lambda: ours.PatientNam)
        self.assertRaises(AttributeError, lambda: ours.EchoTime)
        self.assertRaises(KeyError, lambda: ours["EchoTime"])
        ours.SpecificCharacterSet = "ISO_IR 192"
        ours.PatientName = "Grün^Jürgen"
        ours.PixelSpacing = [0.5, 0.25]
        ours.add_item("ReferencedSeriesSequence")
        item = ours.ReferencedSeriesSequence[0]
        item.SeriesInstanceUID = "1.2.3"
        del ours.StudyDescription
        self.assertEqual(ours["ReferencedSeriesSequence[0].SeriesInstanceUID"], "1.2.3")
        ours.save(self.folder / "edited.dcm", syntax="implicit")
        back = pydicom.dcmread(self.folder / "edited.dcm")
        self.assertEqual(str(back.PatientName), "Grün^Jürgen")
        self.assertEqual(list(back.PixelSpacing), [0.5, 0.25])
        self.assertEqual(back.ReferencedSeriesSequence[0].SeriesInstanceUID, "1.2.3")
        self.assertNotIn("StudyDescription", back)
        self.assertEqual(ours.to_pydicom().PatientName, back.PatientName)
        kept = ours.ReferencedSeriesSequence[0]
        del ours["ReferencedSeriesSequence"]
        self.assertNotIn("SeriesInstanceUID", kept)

    def test_failures_tell_kind_and_file(self):
        with self.assertRaises(FileNotFoundError) as caught:
            korvane.find(self.folder / "nowhere")
        self.assertEqual(caught.exception.kind, "not found")
        self.assertTrue(caught.exception.file.endswith("nowhere"))
        (self.folder / "text.dcm").write_text("no data set\n" * 20)
        self.assertRaises(korvane.NotDicom, korvane.read, self.folder / "text.dcm")
        self.assertRaises(ValueError, lambda: self.load(volume=7))
        with self.assertRaisesRegex(ValueError, "utf-8"):
            korvane.find(os.fsdecode(b"/no\xffname"))

        def breaks(label, done, total):
            raise RuntimeError("the callable's own")

        with self.assertRaisesRegex(RuntimeError, "own"):
            korvane.find(self.folder / "ct", progress=breaks)

    def test_threads_and_progress(self):
        seen, failures = [], []
        korvane.find(self.folder / "ct", progress=lambda *step: seen.append(step))
        self.assertTrue(seen and seen[-1][1] == seen[-1][2])
        wanted = self.load().array.sum()

        def work():
            for _ in range(5):
                if self.load().array.sum() != wanted:
                    failures.append("other voxels")

        threads = [threading.Thread(target=work) for _ in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(failures, [])

    def test_processes_that_fork_and_spawn(self):
        folder, wanted = str(self.folder / "ct"), sum_of(self.folder / "ct")
        kept, stop = self.load(), threading.Event()
        busy = threading.Thread(target=lambda: [sum_of(folder) for _ in iter(stop.is_set, True)])
        if "libasan" in os.environ.get("LD_PRELOAD", ""):
            stop.set()  # its heap, unlike the C library's and ours, stays locked in a child when another thread was in it
        busy.start()  # a fork in the middle of another thread's call
        try:
            for _ in range(5):
                child = os.fork()
                if child == 0:
                    os._exit(42 if sum_of(folder) == wanted == kept.array.sum() else 1)
                self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), 42)
        finally:
            stop.set()
            busy.join()
        made = korvane.from_array(kept.array, like=kept)
        child = os.fork()
        if child == 0:
            del made  # whose files are the parent's
            gc.collect()
            os._exit(0)
        os.waitpid(child, 0)
        self.assertEqual(made.series.load().array.sum(), wanted)
        with multiprocessing.get_context("spawn").Pool(2) as pool:
            self.assertEqual(pool.map(sum_of, [folder] * 4), [wanted] * 4)

    def test_cycles_are_collected_and_views_keep_their_volume(self):
        class Holder:
            pass

        holder = Holder()
        holder.itself, holder.volume = holder, self.load()
        holder.progress = lambda *_: holder
        korvane.find(self.folder / "ct", progress=holder.progress)
        view, gone, volume = holder.volume.array[1:2], weakref.ref(holder), weakref.ref(holder.volume)
        wanted = view.copy()
        del holder
        gc.collect()
        self.assertIsNone(gone())
        self.assertIsNotNone(volume())
        numpy.testing.assert_array_equal(view, wanted)
        del view
        gc.collect()
        self.assertIsNone(volume())

    def test_an_interrupt_ends_a_long_call(self):
        """In a process of its own: a long job, a signal in its middle, the time until KeyboardInterrupt."""
        target = self.folder / "stopped"
        code = (
            "import korvane, sys, time\n"
            "try:\n"
            f"    korvane.phantom({str(target)!r}, slices=3000, size=512)\n"
            "except KeyboardInterrupt:\n"
            "    print('stopped', time.monotonic())\n"
        )
        process = subprocess.Popen([sys.executable, "-c", code], stdout=subprocess.PIPE, text=True,
                                   env={**os.environ, "PYTHONPATH": sys.argv[1]})
        while not target.is_dir() or not any(target.iterdir()):
            self.assertIsNone(process.poll())
            time.sleep(0.01)
        process.send_signal(signal.SIGINT)
        sent = time.monotonic()
        words = process.communicate(timeout=60)[0].split()
        self.assertEqual(words[:1], ["stopped"])
        self.assertLess(float(words[1]) - sent, 1.5)  # 0.2 s on a machine with nothing else to do
        self.assertEqual(list(target.iterdir()) if target.is_dir() else [], [])


    def test_an_interrupt_ends_a_picture(self):
        """Of a slab of many layers; the slicer goes on afterwards, in a child that was forked off too."""
        code = (
            "import korvane, os, sys\n"
            f"slicer = korvane.load(korvane.find({str(self.folder / 'ct')!r})[0]).slicer(slab_memory=0)\n"
            "plane = dict(normal=(0, -1, 1), window=(40, 400))\n"
            "before = slicer.slice(frame=(400, 400), **plane).array\n"
            "print('begins', flush=True)\n"
            "try:\n"
            "    while True: slicer.slice(frame=(2000, 2000), pixel_size=0.02, slab=40, **plane)\n"
            "except KeyboardInterrupt:\n"
            "    print('stopped', flush=True)\n"
            "same = lambda: (slicer.slice(frame=(400, 400), **plane).array == before).all()\n"
            "assert same()\n"
            "if hasattr(os, 'fork') and os.fork() == 0:\n"
            "    whole = same()\n"
            "    del slicer\n"
            "    os._exit(0 if whole else 1)\n"
            "assert not hasattr(os, 'fork') or os.wait()[1] == 0\n"
            "print('whole')\n"
        )
        process = subprocess.Popen([sys.executable, "-c", code], stdout=subprocess.PIPE, text=True,
                                   env={**os.environ, "PYTHONPATH": sys.argv[1]})
        self.assertEqual(process.stdout.readline().strip(), "begins")
        time.sleep(0.1)  # into a picture; between two of them an interrupt is one as well
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.communicate(timeout=60)[0].split(), ["stopped", "whole"])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
