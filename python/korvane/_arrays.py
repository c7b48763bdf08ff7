"""Arrays as volumes."""

import numpy

from . import _korvane
from ._errors import WrongArgument

_TYPES = {"b1": "u1", "f2": "f4"}


def _voxels(array, colour):
    """A contiguous array in a type that voxels have, with an axis for times."""
    array = numpy.asarray(array)
    kind = f"{array.dtype.kind}{array.dtype.itemsize}"
    if kind in ("i8", "u8"):
        target = numpy.dtype("u4" if array.size and array.min() >= 0 else "i4")
        limits = numpy.iinfo(target)
        if array.size and (array.min() < limits.min or array.max() > limits.max):
            raise WrongArgument("the array has integers of more than 32 bits", kind="wrong argument")
    elif kind in ("i1", "u1", "i2", "u2", "i4", "u4", "f4", "f8", *_TYPES):
        target = numpy.dtype(_TYPES.get(kind, kind))
    else:
        raise TypeError(f"no voxels are of type {array.dtype}")
    if colour and (target != numpy.uint8 or array.ndim not in (4, 5) or array.shape[-1] != 3):
        raise WrongArgument("colours are bytes with a last axis of 3", kind="wrong argument")
    axes = array.ndim - (1 if colour else 0)
    if axes not in (3, 4):
        raise WrongArgument(f"an array of {array.ndim} axes: (planes, rows, columns), with times or colour one more",
                            kind="wrong argument")
    if axes == 3:
        array = array[None]
    return numpy.ascontiguousarray(array, target)


def from_array(array, *, like=None, affine_lps=None, affine_ras=None, source=None, rescale=(1.0, 0.0), unit="", colour=False,
               description="", derivation="", progress=None):
    """A Volume of an array of one's own, for all that volumes are good for: pictures, exports, DICOM files.

    array: (planes, rows, columns), with times in front (times, planes, rows, columns), with colour=True bytes with a last axis
    of 3; integers of up to 32 bits, floating-point numbers, or booleans. It is copied, exactly as it is. Where its voxels lie:
    like, a Volume of the same planes, rows and columns; or affine_lps or affine_ras, 4 x 4, from (column, row, plane, 1) to
    millimetres. source: the Series it was computed from, for save_dicom; that of `like` by itself. rescale: (slope, intercept)
    to real values, volume.rescale() for stored ones; unit: of real values. description, derivation: for save_dicom.

    Planes may come in the opposite order, as `positions` and the affines tell. Raises Irregular where rows and columns are not
    at right angles, WrongArgument where shapes do not go together.

        volume = korvane.find("/data/ct").only().load()
        bone = korvane.from_array(volume.real() > 300, like=volume, description="bone")
        bone.save_dicom("bone", secondary_capture=True)
    """
    if sum(where is not None for where in (like, affine_lps, affine_ras)) != 1:
        raise WrongArgument("say where the voxels lie: by like, affine_lps or affine_ras", kind="wrong argument")
    affine = affine_lps
    if affine_ras is not None:
        affine = numpy.diag([-1.0, -1.0, 1.0, 1.0]) @ numpy.asarray(affine_ras, float)
    if affine is not None:
        affine = numpy.asarray(affine, float)
        if affine.shape != (4, 4) or not numpy.array_equal(affine[3], [0, 0, 0, 1]):
            raise WrongArgument("an affine is 4 x 4, with 0 0 0 1 for its last row", kind="wrong argument")
        affine = affine.tolist()
    if like is not None and source is None:
        source = like.source
    return _korvane._from_array(_voxels(array, colour), colour, like, affine, source, tuple(rescale), unit, description,
                                derivation, progress)
