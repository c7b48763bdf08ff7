"""DICOM series as arrays with their patient geometry.

    import korvane

    series = korvane.find("/data/study").only()
    volume = series.load()
    volume.array[plane, row, column]          # stored voxels, shared, not copied
    volume.real()                             # Hounsfield units, Bq/ml ...
    volume.affine_ras                         # 4 x 4, as NiBabel has it
    volume.slice("coronal").save("coronal.png")
    volume.export("nifti", "out/head")
    korvane.from_array(array, like=volume).save_dicom("derived")
    korvane.read("image.dcm").PatientName
    korvane.Peer("pacs", 104).find(PatientName="DOE*")

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
    Peer,
    Picture,
    Series,
    Slicer,
    Tls,
    Volume,
    __version__,
    build_medium,
    check_medium,
    convert,
    draw,
    find,
    formats,
    load,
    phantom,
    read,
    remove_from_medium,
)
from . import _extras, _network
from ._arrays import from_array
from ._network import Matches, Receiver, echo, send

_extras.install()
_network.install()

__all__ = [name for name in dir() if not name.startswith("_")] + ["__version__"]
