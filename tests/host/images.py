"""Images for tests of compression and conversion."""

import numpy
import pydicom
from pydicom.dataset import Dataset, FileDataset, FileMetaDataset
from pydicom.sequence import Sequence
from pydicom.uid import ExplicitVRLittleEndian


def image(values, stored=None, planar=0, **attributes):
    """A data set of frames x rows x columns (x 3) values, with elements that are easily lost, of a class for which gdcmconv
    asks no further attributes."""
    meta = FileMetaDataset()
    meta.TransferSyntaxUID = ExplicitVRLittleEndian
    meta.MediaStorageSOPClassUID, meta.MediaStorageSOPInstanceUID = "1.2.840.10008.5.1.4.1.1.20", "1.2.3.4"
    ds = FileDataset(None, {}, file_meta=meta, preamble=bytes(128))
    ds.is_little_endian, ds.is_implicit_VR = True, False
    ds.SOPClassUID, ds.SOPInstanceUID, ds.PatientName = meta.MediaStorageSOPClassUID, "1.2.3.4", "Doe^J"
    ds.StudyInstanceUID, ds.SeriesInstanceUID = "1.2.3.5", "1.2.3.6"
    bits = values.dtype.itemsize * 8
    colour = values.ndim == 4
    ds.NumberOfFrames, ds.Rows, ds.Columns = values.shape[:3]
    ds.SamplesPerPixel, ds.PhotometricInterpretation = (3, "RGB") if colour else (1, "MONOCHROME2")
    if colour:
        ds.PlanarConfiguration = planar
    ds.BitsAllocated, ds.BitsStored, ds.HighBit = bits, stored or bits, (stored or bits) - 1
    ds.PixelRepresentation = int(values.dtype.kind == "i")
    raw = (numpy.moveaxis(values, 3, 1) if planar else values).tobytes()
    ds.PixelData = raw + bytes(len(raw) % 2)
    ds["PixelData"].VR = "OB" if bits == 8 else "OW"
    for group in (0x0009, 0x9001):  # the second sorts in front of all others in the library
        ds.add_new((group, 0x0010), "LO", "KORVANE TEST")
        for element, vr, value in ((1, "FD", [1.5, -2.5]), (2, "SS", -7), (3, "OB", b"\1\2\3\4"), (4, "LT", "x" * 9001),
                                   (5, "UN", b"\0\1\2\3"), (6, "OF", b"\0\0\x80\x3f"), (7, "SH", "")):
            ds.add_new((group, 0x1000 + element), vr, value)
    item = Dataset()
    item.add_new((0x0009, 0x0010), "LO", "KORVANE TEST")
    item.add_new((0x0009, 0x1002), "SS", 5)
    item.CodeValue = "odd"
    ds.add_new((0x0009, 0x1008), "SQ", Sequence([item, Dataset()]))
    ds[0x0009, 0x1008].is_undefined_length = True
    ds.RequestAttributesSequence = Sequence([])
    ds.add_new((0x0018, 0xFFFF), "UN", b"unknown!")
    for name, value in attributes.items():
        setattr(ds, name, value)
    return ds


def encapsulate(ds, uid, frames):
    """Puts the streams of frames into a data set; returns it."""
    ds.PixelData = pydicom.encaps.encapsulate(frames)
    ds["PixelData"].VR, ds["PixelData"].is_undefined_length = "OB", True
    ds.file_meta.TransferSyntaxUID = uid
    return ds
