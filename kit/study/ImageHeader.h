// What the header of an image tells, small enough to be kept for each of many thousand files.
#pragma once

#include "../dataset/DataSetFile.h"
#include "FrameKeyList.h"
#include "FramePlaces.h"
#include "PixelForm.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace korvane {

/// What the files of a series mostly have in common, and then share. Texts are UTF-8.
struct CommonHeader {
    std::string transferSyntax;
    std::string modality;
    std::string sopClass;
    std::string seriesUid;
    int seriesNumber = 0;
    std::string description;
    std::string protocol;
    std::string patientName;
    std::string patientId;
    std::string studyUid;
    std::string studyDate;
    std::string studyDescription;
    std::string calibration;         ///< Pixel Spacing Calibration Type: GEOMETRY or FIDUCIAL
    std::string corrected;           ///< Corrected Image (0028,0051), as written
    std::string decayCorrection;     ///< (0054,1102): NONE, START, ADMIN
    std::string patientOrientation;  ///< Patient Orientation, such as "L\\P": where rows and columns lead to

    bool operator==(const CommonHeader&) const = default;
};

struct ImageHeader {
    std::string path;      ///< as people know it
    std::string unpacked;  ///< where its bytes lie, if elsewhere
    std::string sopInstance;
    std::shared_ptr<const CommonHeader> common;  ///< never null
    int instance = 0;
    int acquisition = 0;
    /// Instance Number as the module reads it, but at most 1: it begins with the lowest below that (`SeriesVolume::CanStream`).
    int numberToBeginWith = 1;

    bool encapsulated = false;
    bool sharesUid = false;  ///< another file has the same SOP Instance UID and other pixels
    bool truncated = false;  ///< the data set ends early, or the pixel data does
    std::uint64_t pixelsPresent = 0;
    std::uint64_t encapsulatedRoom = 0;       ///< bytes of the file, for compressed pixel data
    std::array<double, 2> detectorSpacing{};  ///< Imager Pixel Spacing, zeros without
    PixelForm form;
    double sliceSpacing = 0;  ///< Spacing Between Slices; 0 without it
    double sliceThickness = 0;
    int frames = 1;       ///< Number of Frames, at least 1: a claim, see `FramesPresent`
    int tileColumns = 1;  ///< of an image whose frames are tiles: how many lie in a row
    int tileRows = 1;
    bool tilesUnread = false;     ///< it says that it has tiles, and not which: one slice
    bool framesPlaced = false;    ///< `places` has one for each frame, else one for the whole file
    bool framesAreTimes = false;  ///< all at one place, which may not be known
    bool offsetsWrong = false;    ///< frame offsets (3004,000C) that place no frames
    FramePlaces places;
    FrameKeyList keys;  ///< one for each frame with a functional group of its own, else one

    bool IsTiled() const { return tileColumns > 1 || tileRows > 1; }
    /// What the pixel data should have, not compressed: all frames, or all tiles, those without a slice among them.
    std::uint64_t PixelBytes() const;
    /// Frames that the pixel data holds; 0 for encapsulated data.
    std::uint64_t FramesPresent() const;
    /// Whether there are bytes for as many frames as are claimed; compressed ones take 8 each at least.
    bool HoldsFrames() const;
    void SetFile(NamedFile file);
    NamedFile GetFile() const { return {path, unpacked.empty() ? path : unpacked}; }
};

PixelForm ReadPixelForm(const DataSetFile& file);

/// Takes from a data set, which may have been read without its pixels, what the header keeps. `place`: where its file lies.
/// The names are the caller's to give (`SetFile`).
ImageHeader ReadImageHeader(const std::string& place, const DataSetFile& file);

}  // namespace korvane
