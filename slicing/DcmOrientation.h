// Patient orientation of a DICOM image as letters, and the raw view of an orthogonal one.
#pragma once

#include "../base/Export.h"
#include "../volume/VolumePlane.h"

#include <string>

class DICOMObject;

/// Works on orientation texts as in Patient Orientation (0020,0020), PS3.3 C.7.6.1.1.1: the directions that an image's
/// rows and columns run to, each as up to three of the letters L, R, A, P, H, F, most important first, and each closed by
/// a backslash: "L\P\" for an axial image.
///
/// Static members only, without state: any thread may call them. Nothing is reported; what cannot be read gives an empty
/// text or the default planes.
class KORVANE_API DcmOrientation {
public:
    /// The view asked for.
    enum OrthoPlane : int {
        OP_AXIAL = 0,
        OP_CORONAL = 1,
        OP_SAGITTAL = 2,
    };

    DcmOrientation();
    DcmOrientation(const DcmOrientation& other);
    DcmOrientation& operator=(const DcmOrientation& other);
    virtual ~DcmOrientation();

    /// Patient Orientation (0020,0020), its bytes as they are; else the letters of Image Orientation (Patient)
    /// (0020,0037). A letter stands for a cosine above 0.0001, the largest first; two equal largest ones end their group
    /// at once, so that 0.7071\0.7071\0 has no letter. Empty for a null object, without either element, or with fewer than six
    /// numbers. A value ends at its first zero byte.
    static std::string GetOrientation(DICOMObject* obj);

    /// Turns every direction round, in place, and returns `s`: A and P, F and H, L and R change places, in upper case
    /// afterwards; backslashes stay, all other characters go.
    static std::string& InvertOrientation(std::string& s);

    /// The raw plane and the flips for a view of a series with this orientation; only the first letter and the one behind
    /// the first backslash count. A table, kept as callers know it, asymmetries included: it does not ask which way the
    /// planes of the volume run, and a row along F or H never gives a flip. Unknown letters and views give the default
    /// planes without flips. For a picture that is right in every case see `RadiologicalView`.
    static VolumePlane TranslateToRawPlane(const std::string& orientation, OrthoPlane view, bool& flip1, bool& flip2);
    /// The same for `GetOrientation(obj)`.
    static VolumePlane TranslateToRawPlane(DICOMObject* obj, OrthoPlane view, bool& flip1, bool& flip2);
};
