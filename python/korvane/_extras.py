"""Ways to other libraries, which are imported only when asked for."""

import os
import tempfile

from ._korvane import Picture, Volume


def _to_nibabel(self):
    """The stored voxels and the affine as a nibabel.Nifti1Image; real values where slope and intercept are the same everywhere.

    Raises Irregular where no affine describes the planes.
    """
    import nibabel
    import numpy

    planes = self.array.shape[-3]
    rescales = {self.rescale(plane, time) for time in range(len(self.times)) for plane in range(planes)}
    data = self.array if rescales == {(1.0, 0.0)} else self.real()
    axes = (3, 2, 1, 0) if data.ndim == 4 else (2, 1, 0)
    image = nibabel.Nifti1Image(numpy.transpose(data, axes), self.affine_ras)
    image.header.set_xyzt_units("mm")
    return image


def _to_sitk(self):
    """Real values as a SimpleITK.Image with origin, spacing and direction (LPS). Raises Irregular where planes are not
    evenly spaced along their normal."""
    import numpy
    import SimpleITK

    affine = self.affine_lps
    steps = numpy.linalg.norm(affine[:3, :3], axis=0)
    direction = affine[:3, :3] / steps
    if not numpy.allclose(direction.T @ direction, numpy.eye(3), atol=1e-3):
        from ._errors import Irregular

        raise Irregular("the stack is tilted, which an image with orthogonal axes cannot hold", kind="irregular")
    image = SimpleITK.GetImageFromArray(self.real())
    image.SetOrigin(tuple(affine[:3, 3]))
    image.SetSpacing(tuple(steps))
    image.SetDirection(tuple(direction.ravel()))
    return image


def _repr_png_(self):
    folder = tempfile.mkdtemp(prefix="korvane-")
    path = os.path.join(folder, "picture.png")
    try:
        self.save(path)
        with open(path, "rb") as file:
            return file.read()
    finally:
        if os.path.exists(path):
            os.remove(path)
        os.rmdir(folder)


def _array(self, dtype=None):
    return self.array if dtype is None else self.array.astype(dtype)


def install():
    """Adds them to the compiled classes."""
    Volume.to_nibabel = _to_nibabel
    Volume.to_sitk = _to_sitk
    Volume.__array__ = _array
    Picture.__array__ = _array
    Picture._repr_png_ = _repr_png_
