#include "Finding.h"

namespace korvane {

const char* WordOf(FindingKind kind) {
    switch (kind) {
    case FindingKind::MixedOrientations: return "mixed orientations";
    case FindingKind::MixedFormats: return "mixed formats";
    case FindingKind::NoCodec: return "no codec";
    case FindingKind::EndsEarly: return "ends early";
    case FindingKind::FramesMissing: return "frames missing";
    case FindingKind::FramesUnplaced: return "frames unplaced";
    case FindingKind::NoPositions: return "no positions";
    case FindingKind::PositionMissing: return "position missing";
    case FindingKind::NoOrientation: return "no orientation";
    case FindingKind::RepeatedPositions: return "repeated positions";
    case FindingKind::IncompleteVolumes: return "incomplete volumes";
    case FindingKind::MissingSlices: return "missing slices";
    case FindingKind::UnevenGaps: return "uneven gaps";
    case FindingKind::Tilt: return "tilt";
    case FindingKind::RescaleDiffers: return "rescale differs";
    case FindingKind::PixelsNotSquare: return "pixels not square";
    case FindingKind::Repeats: return "repeats";
    case FindingKind::NotDicom: return "not DICOM";
    case FindingKind::Unreadable: return "unreadable";
    case FindingKind::Lossy: return "lossy";
    case FindingKind::FirstOfSeveral: return "first of several";
    case FindingKind::IrregularTaken: return "irregular taken";
    case FindingKind::FileFailed: return "file failed";
    case FindingKind::PeerWarned: return "peer warned";
    case FindingKind::OtherEncoding: return "other encoding";
    case FindingKind::MixedEncoding: return "mixed encoding";
    case FindingKind::WrongLengths: return "wrong lengths";
    case FindingKind::TrailingBytes: return "trailing bytes";
    case FindingKind::NoMeta: return "no meta information";
    case FindingKind::UndecodedText: return "undecoded text";
    case FindingKind::KeyRejected: return "key rejected";
    case FindingKind::VolumesGuessed: return "volumes guessed";
    case FindingKind::KeysMixed: return "keys mixed";
    case FindingKind::SpacingDiffers: return "spacing differs";
    case FindingKind::SpacingUnknown: return "spacing unknown";
    case FindingKind::SpacingAtDetector: return "spacing at detector";
    case FindingKind::AxesNotSquare: return "axes not square";
    case FindingKind::ShiftedSideways: return "shifted sideways";
    case FindingKind::SameUid: return "same UID";
    case FindingKind::BitsAboveStored: return "bits above stored";
    case FindingKind::RealWorldValues: return "real world values";
    case FindingKind::UnitsDiffer: return "units differ";
    case FindingKind::OneScale: return "one scale";
    case FindingKind::FramesAreTimes: return "frames are times";
    case FindingKind::FrameOffsetsWrong: return "frame offsets wrong";
    case FindingKind::OrderedByTime: return "ordered by time";
    case FindingKind::TilesUnread: return "tiles unread";
    case FindingKind::NotApplied: return "not applied";
    case FindingKind::OddPalette: return "odd palette";
    case FindingKind::SpacingCalibrated: return "spacing calibrated";
    case FindingKind::FileSheared: return "file sheared";
    case FindingKind::PlanesMoved: return "planes moved";
    case FindingKind::VoxelsFilled: return "voxels filled";
    case FindingKind::DistanceGuessed: return "distance guessed";
    case FindingKind::PaddingLeftOut: return "padding left out";
    case FindingKind::ThicknessUnknown: return "thickness unknown";
    case FindingKind::UptakeValues: return "uptake values";
    case FindingKind::SeveralNumbers: return "several numbers";
    case FindingKind::PaddingDiffers: return "padding differs";
    case FindingKind::RescaleUnusable: return "rescale unusable";
    case FindingKind::CommandFailed: return "command failed";
    case FindingKind::ProcessEnded: return "process ended";
    case FindingKind::ValuesRounded: return "values rounded";
    case FindingKind::ValuesReplaced: return "values replaced";
    case FindingKind::ClassChanged: return "class changed";
    }
    return "unknown";
}

}  // namespace korvane
