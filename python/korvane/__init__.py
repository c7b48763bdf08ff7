"""DICOM series as arrays with their patient geometry.

    import korvane

    series = korvane.find("/data/study").only()
    volume = series.load()
    volume.array[plane, row, column]          # stored voxels, shared, not copied
    volume.real()                             # Hounsfield units, Bq/ml ...
    volume.affine_ras                         # 4 x 4, as NiBabel has it
    volume.slice("coronal").save("coronal.png")
    volume.export("nifti", "out/head")
    korvane.read("image.dcm").PatientName

Failures are `korvane.Error` and its subclasses, with kind, file and element. Long calls take `progress`, let other Python
threads run meanwhile, and end by Ctrl-C within 0.2 seconds, leaving nothing half-written.
"""

from ._errors import (
    Damaged,
    Disk,
    Error,
    Irregular,
    NotDicom,
    NotFound,
    Refused,
    Stopped,
    Unsupported,
    WrongArgument,
)
from ._korvane import (
    DataSet,
    Finding,
    Found,
    Picture,
    Series,
    Volume,
    __version__,
    build_medium,
    convert,
    draw,
    echo,
    find,
    formats,
    load,
    phantom,
    read,
    send,
)
from . import _extras

_extras.install()

__all__ = [name for name in dir() if not name.startswith("_")] + ["__version__"]
