#!/usr/bin/env python3
"""How much memory jobs take at their peak: of a series they hold a few slices, and of each file a few kilobytes."""

import shutil

import measured_runs
from host_test import WORK, korvane
from measured_runs import FORMATS, MEGABYTE, SeriesMaker, enhanced, peak


def exports():
    """Of a series that is exported as it is, a few slices are in memory, whatever the format and the compression."""
    for name, side, count in (("few", 512, 120), ("many", 32, 1500)):
        maker = SeriesMaker(side)
        native = maker.write(WORK / name, count)
        korvane("convert", native, WORK / f"{name}-rle", "--syntax", "rle")
        jobs = 2
        limit = 32 * MEGABYTE + 4 * jobs * maker.frame + 2 * count * maker.header
        for folder in (native, WORK / f"{name}-rle"):
            forms = ("vox", "nifti") if folder.name == "many-rle" else FORMATS[: 7 if name == "few" else 6]
            for form in forms:
                took = peak("export", folder, "--format", form, "--to", WORK / f"{form}-{folder.name}", "--jobs", jobs)
                assert took < limit, (folder.name, form, took, limit)
        for path in WORK.glob(f"[!d]*-{name}-rle.*"):  # derived images have UIDs of their own
            assert path.read_bytes() == path.with_name(path.name.replace("-rle.", ".")).read_bytes(), path


def scales():
    """So it is where slices have rescales of their own, with uptake values, with a preview beside the file, and where no slice
    has a number."""
    maker = SeriesMaker(512, pet=True)
    folder = maker.write(WORK / "pet", 120)
    limit = 32 * MEGABYTE + 4 * 2 * maker.frame + 2 * 120 * maker.header
    for form, *options in (("vox",), ("bob", "--suv"), ("nifti", "--suv"), ("dicom", "--suv")):
        took = peak("export", folder, "--format", form, "--to", WORK / f"pet-{form}", "--jobs", 2, *options)
        assert took < limit, (form, took, limit)
    for name, numbered, *options in (("previewed", True, "--preview"), ("unnumbered", False)):
        native = SeriesMaker(512).write(WORK / name, 120, numbered=numbered)
        took = peak("export", native, "--format", "nifti", "--to", WORK / f"{name} file", "--jobs", 2, *options)
        assert took < limit, (name, took, limit)


def small_headers():
    """The bound holds where headers are as small as they can be: what is kept of a slice is less than its header twice."""
    count, jobs = 12000, 2
    maker = SeriesMaker(16, comments=0)
    folder = maker.write(WORK / "small", count)
    for form in ("nifti", "bob"):
        took = peak("export", folder, "--format", form, "--to", WORK / f"{form}-small", "--jobs", jobs)
        limit = 32 * MEGABYTE + 4 * jobs * maker.frame + 2 * count * maker.header
        assert maker.header < 800 and took < limit, (form, took, limit, maker.header)
        # Of the bound, most is there for what does not grow.
        assert took - peak("--version") < 8 * MEGABYTE + 2 * count * maker.header, (form, took)


def small_frames():
    """And for one object of very many frames, whose functional groups are read and not kept."""
    count, jobs, source = 12000, 2, WORK / "frames"
    pixels = len(enhanced(source, count, 16, 1))
    header = source.stat().st_size - pixels
    for form in ("nrrd", "vox"):
        took = peak("export", source, "--format", form, "--to", WORK / f"{form}-frames", "--jobs", jobs)
        assert took < 32 * MEGABYTE + 2 * header, (form, took)
        assert took - peak("--version") < 17 * MEGABYTE + 2 * header, (form, took)


def growth():
    """What each file, slice or frame more takes is no more than a few kilobytes: nothing is kept of it but what it tells."""
    few, many = 300, 2300
    maker = SeriesMaker(16)  # so small that what is read ahead counts for little
    for name, in_series in (("series", 1000000), ("archive", 50)):
        for count in (few, many):
            maker.write(WORK / f"{name}{count}", count, in_series)
    for count in (few, many):
        enhanced(WORK / f"object{count}", count, 16, 1)
    jobs = {"find": (1500, "info", "--json", WORK / "archive"),
            "medium": (11000, "media", "--link", WORK / "medium", WORK / "archive"),
            "export": (2500, "export", "--jobs", 2, "--format", "nifti", "--to", WORK / "v", WORK / "series"),
            "export of frames": (2500, "export", "--jobs", 2, "--format", "vox", "--to", WORK / "v", WORK / "object")}
    for job, (limit, *arguments, source) in jobs.items():
        took = {}
        for count in (few, many):
            shutil.rmtree(WORK / "medium", ignore_errors=True)
            took[count] = peak(*arguments, f"{source}{count}") / (many - few)  # bytes each
        assert took[many] - took[few] < limit, (job, took, limit)


measured_runs.run(exports, small_headers, small_frames, scales, growth)
