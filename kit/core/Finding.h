// What is odd about a file, a series or a job: facts to branch on, and their words.
#pragma once

#include "KitExport.h"

#include <cstddef>
#include <string>
#include <vector>

namespace korvane {

/// Kinds that a program may branch on. The words of `WordOf` are stable; kinds are added at the end.
enum class FindingKind {
    MixedOrientations,  ///< one series UID, several orientations; `count` of them, each a series of its own here
    MixedFormats,       ///< the same for matrix or pixel format
    NoCodec,            ///< compressed pixel data that nothing here decodes; `files`
    EndsEarly,          ///< data cut short; `files`
    FramesMissing,      ///< more frames claimed than the pixel data holds; `files`
    FramesUnplaced,     ///< frames without positions, taken in stored order; `files`
    NoPositions,        ///< no slice has a position: ordered by instance number
    PositionMissing,    ///< some slices have no position; `slices`
    NoOrientation,      ///< taken as axial
    RepeatedPositions,  ///< several images at a position: several volumes; `count` volumes
    IncompleteVolumes,  ///< some positions have fewer images than others
    MissingSlices,      ///< a gap that whole slices would fill; `slices` before it, `lengths`, `count` missing
    UnevenGaps,         ///< distances of neighbouring planes differ; `lengths`: smallest, largest, usual
    Tilt,               ///< positions run off the normal; `angles`: degrees, `lengths`: sideways
    RescaleDiffers,     ///< slope or intercept differ from slice to slice
    PixelsNotSquare,    ///< `lengths`: between rows, between columns
    Repeats,            ///< a file repeats another one's image and was left out; `files`
    NotDicom,           ///< a file is something else and was left out; `files`
    Unreadable,         ///< a file or folder could not be read; `files`
    Lossy,              ///< pixels were compressed with loss; `files`
    FirstOfSeveral,     ///< the first of several volumes was taken; `count` volumes
    IrregularTaken,     ///< what an irregularity policy made of the series
    FileFailed,         ///< one file of many failed, the job goes on; `files`
    PeerWarned,         ///< another program accepted, with a remark; `files`
    OtherEncoding,      ///< data is not encoded as its transfer syntax says, or nobody knows that; `files`
    MixedEncoding,      ///< some elements name their types, others do not; `files`
    WrongLengths,       ///< sequences or items that do not end where they should; `files`
    TrailingBytes,      ///< bytes behind a data set that are no elements; `files`
    NoMeta,             ///< no preamble or no group 0002; `files`
    UndecodedText,      ///< texts with bytes that are not in their character set; `files`, `count` texts
    KeyRejected,        ///< differs among images at a position, and makes no volumes
    VolumesGuessed,     ///< volumes told apart by the order at each position alone
    KeysMixed,          ///< slices of one volume differ in echo, time or the like
    SpacingDiffers,     ///< Pixel Spacing differs; `slices`, `lengths` between rows and columns: what is used
    SpacingUnknown,     ///< Pixel Spacing missing, empty or not positive; `slices`
    SpacingAtDetector,  ///< only Imager Pixel Spacing is there; `lengths` between rows, between columns
    AxesNotSquare,      ///< row and column direction are no unit vectors at right angles, and are made so; `angles`
                        ///< between them, `lengths`: how far that moves voxels
    ShiftedSideways,    ///< a slice lies beside the line of the others; `slices`, `lengths`: how far
    SameUid,            ///< different pixels under one SOP Instance UID, all kept; `files`
    BitsAboveStored,    ///< bits above Bits Stored are set, in an overlay or as dirt; left out of values; `files`
    RealWorldValues,    ///< a real world value mapping is there and not applied, since the file has a rescale
    UnitsDiffer,        ///< real values of the slices have different units
    OneScale,  ///< values of slices with rescales of their own were brought to one; `lengths`: slope, largest error
    FramesAreTimes,     ///< frames without positions follow each other in time: volumes of one slice; `count`
    FrameOffsetsWrong,  ///< a Grid Frame Offset Vector that is neither relative nor absolute; `files`
    OrderedByTime,      ///< images at one position are told apart by the order of their times; `count` volumes
    TilesUnread,        ///< an image says that it is a mosaic, and nothing tells its tiles: one slice; `files`
    NotApplied,         ///< what a data set asks of its pictures, and they do not show; `files`
    OddPalette,         ///< a palette that contradicts its descriptor; `files`
    SpacingCalibrated,  ///< Pixel Spacing holds at one depth alone, or comes from elsewhere; `lengths` between rows, columns
    FileSheared,        ///< a file whose rows are not where its planes lie in the patient; `lengths`: by how much
    PlanesMoved,        ///< a file with one distance for uneven planes; `lengths`: how far one lies beside its place
    VoxelsFilled,       ///< voxels of a straightened volume for which no plane has data; `count`
    DistanceGuessed,   ///< the distance of planes comes of no positions; `lengths`: what is used
    PaddingLeftOut,    ///< values that stand for no measurement count for no minimum, maximum or slab; `count` voxels
    ThicknessUnknown,  ///< a single slice of which nothing says how thick it is; `lengths`: what is used
    UptakeValues,      ///< values are standardized uptake values; `lengths`: the factor from activity to them
    SeveralNumbers,    ///< one series UID, several series numbers; `count` of them, each a series of its own here
    PaddingDiffers,    ///< slices name different values for padding, or some name none
    RescaleUnusable,   ///< a slope of 0, or one without an intercept: values are as stored; `slices`
    CommandFailed,     ///< a program that the job ran for its caller could not be started, or failed
    ProcessEnded,      ///< a process of the job was ended, and another one goes on with its work
    ValuesRounded,     ///< what was computed is stored in integers; `lengths`: the most that changes a real value
    ValuesReplaced,    ///< voxels that are no finite numbers were given another value; `count`
    ClassChanged,      ///< derived images are of another class than their source
};

/// The stable word of a kind, such as "uneven gaps"; schemas list them all.
KORVANE_KIT const char* WordOf(FindingKind kind);

/// One odd thing. Which members say something is told beside the kind; the others are empty.
struct Finding {
    FindingKind kind;
    std::vector<std::size_t> slices{};  ///< indices in the series' list of slices
    std::vector<std::string> files{};   ///< paths
    std::vector<double> lengths{};      ///< millimetres
    std::vector<double> angles{};       ///< degrees
    std::size_t count = 0;
    std::string text{};  ///< the sentence for people, without a full stop; not escaped for printing
};

}  // namespace korvane
