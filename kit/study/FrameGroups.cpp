#include "FrameGroups.h"

#include "NuclearFrames.h"
#include "PixelSize.h"

#include "base/Bytes.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace korvane {

namespace {

// Far more than any volume has; a place takes more memory than the smallest of frames.
constexpr int kMostFrames = 65535;

constexpr double kCosine = 1e-2;  // what the direction cosines may be off

struct GroupedElement {
    Tag group;
    Tag element;
};

/// The elements of functional groups that a slice of the library's has on its top level.
constexpr GroupedElement kGrouped[] = {
    {tags::PlanePositionSequence, tags::ImagePositionPatient},
    {tags::PlaneOrientationSequence, tags::ImageOrientationPatient},
    {tags::PixelMeasuresSequence, tags::PixelSpacing},
    {tags::PixelMeasuresSequence, tags::SliceThickness},
    {tags::PixelMeasuresSequence, tags::SpacingBetweenSlices},
    {tags::PixelValueTransformationSequence, tags::RescaleIntercept},
    {tags::PixelValueTransformationSequence, tags::RescaleSlope},
};

/// What is read of a slice beside those.
constexpr Tag kOfImage[] = {
    tags::SOPClassUID,
    tags::SOPInstanceUID,
    tags::StudyDate,
    tags::SeriesDate,
    tags::Modality,
    tags::Manufacturer,
    tags::InstitutionName,
    tags::PatientName,
    tags::PatientID,
    tags::PatientPosition,
    tags::SeriesInstanceUID,
    tags::SamplesPerPixel,
    tags::PhotometricInterpretation,
    tags::PlanarConfiguration,
    tags::Rows,
    tags::Columns,
    tags::BitsAllocated,
    tags::BitsStored,
    tags::HighBit,
    tags::PixelRepresentation,
    tags::PixelPaddingValue,
    tags::PixelPaddingRangeLimit,
    tags::FloatPixelPaddingValue,
    tags::FloatPixelPaddingRangeLimit,
    tags::DoubleFloatPixelPaddingValue,
    tags::DoubleFloatPixelPaddingRangeLimit,
    tags::ModalityLUTSequence,
    tags::PresentationLUTShape,
};

/// What goes together: of one place all of them, or none.
constexpr Tag kOfWindow[] = {
    tags::WindowCenter,   tags::WindowWidth,    tags::WindowCenterWidthExplanation,
    tags::VOILUTFunction, tags::VOILUTSequence,
};

/// The functional groups of one frame.
class Frame {
public:
    Frame(const DICOMDataObject& dataSet, std::uint32_t number) : m_DataSet(dataSet) {
        const VR* const groups = FindElement(dataSet, tags::PerFrameFunctionalGroupsSequence);
        if (groups != nullptr && number < groups->GetItemCount()) m_pOwn = groups->GetItem(number);
        m_pShared = FindItem(dataSet, tags::SharedFunctionalGroupsSequence);
        m_pDetector = NuclearFrames::FindDetector(dataSet, number);
    }

    /// The data set that holds the element for this frame; null when nothing does.
    const DICOMObject* Holder(const GroupedElement& wanted) const {
        for (const DICOMObject* const groups : {m_pOwn, m_pShared}) {
            const DICOMObject* const item = groups != nullptr ? FindItem(*groups, wanted.group) : nullptr;
            if (item != nullptr && FindElement(*item, wanted.element) != nullptr) return item;
        }
        if (FindElement(m_DataSet, wanted.element) != nullptr) return &m_DataSet;
        const bool isOfDetector = m_pDetector != nullptr && FindElement(*m_pDetector, wanted.element) != nullptr;
        return isOfDetector ? m_pDetector : nullptr;
    }

    /// The place of the frame's window, or of its table.
    const DICOMObject* HolderOfWindow() const {
        for (const DICOMObject* const groups : {m_pOwn, m_pShared}) {
            const DICOMObject* const item = groups != nullptr ? FindItem(*groups, tags::FrameVOILUTSequence) : nullptr;
            if (item != nullptr && HasWindow(*item)) return item;
        }
        return HasWindow(m_DataSet) ? &m_DataSet : nullptr;
    }

    template <std::size_t kCount>
    bool Reals(const GroupedElement& wanted, std::array<double, kCount>& values) const {
        const DICOMObject* const holder = Holder(wanted);
        return holder != nullptr && FindReals(*holder, wanted.element, values.data(), kCount);
    }

    const DICOMDataObject& GetDataSet() const { return m_DataSet; }

    /// A sequence for this frame, with items; null where there is none.
    const VR* Sequence(Tag group) const {
        for (const DICOMObject* const groups : {m_pOwn, m_pShared, static_cast<const DICOMObject*>(&m_DataSet)}) {
            const VR* const sequence = groups != nullptr ? FindElement(*groups, group) : nullptr;
            if (sequence != nullptr && sequence->GetItemCount() > 0) return sequence;
        }
        return nullptr;
    }

    FrameKeys Keys() const { return ReadFrameKeys(m_DataSet, m_pOwn, m_pShared); }

    std::string Text(const GroupedElement& wanted) const {
        const DICOMObject* const holder = Holder(wanted);
        return holder != nullptr ? FindText(*holder, wanted.element) : std::string();
    }

private:
    static bool HasWindow(const DICOMObject& item) {
        return FindElement(item, tags::WindowCenter) != nullptr || FindElement(item, tags::VOILUTSequence) != nullptr;
    }

    const DICOMDataObject& m_DataSet;
    const DICOMObject* m_pOwn = nullptr;
    const DICOMObject* m_pShared = nullptr;
    const DICOMObject* m_pDetector = nullptr;  // of nuclear medicine
};

/// Cosines that are rounded stay as they are.
void MakeSquare(FramePlace& place) {
    auto& o = place.orientation;
    const double row = std::hypot(o[0], o[1], o[2]);
    const double column = std::hypot(o[3], o[4], o[5]);
    const double cosine = (o[0] * o[3] + o[1] * o[4] + o[2] * o[5]) / (row * column);
    if (std::fabs(row - 1) < kCosine && std::fabs(column - 1) < kCosine && std::fabs(cosine) < kCosine) return;
    place.statedAxes = o;
    place.axesChanged = true;
    if (!(row > kCosine && column > kCosine && std::fabs(cosine) < 1 - kCosine)) {
        o = FramePlace().orientation;
        place.hasOrientation = false;
        return;
    }
    const double sine = std::sqrt(1 - cosine * cosine);
    for (std::size_t i = 0; i < 3; ++i) {
        o[i] /= row;
        o[i + 3] = (o[i + 3] / column - cosine * o[i]) / sine;
    }
}

/// FD, or DS where a writer took that.
bool ReadReal(const DICOMObject& item, Tag tag, double& value) {
    const VR* const element = FindElement(item, tag);
    if (element == nullptr) return false;
    if (element->m_TypeCode != TypeCode("FD")) return FindReals(item, tag, &value, 1);
    if (element->m_Length < sizeof value) return false;
    value = platform::LoadLittle<double>(element->m_pData);
    return std::isfinite(value);
}

/// Whether a mapping names an end of its range that the stored bits can go beyond.
bool IsPartOfValues(const DICOMObject& mapping, const DICOMDataObject& dataSet) {
    const bool isSigned = FindInteger(dataSet, tags::PixelRepresentation, 0) == 1;
    const int bits = std::clamp(FindInteger(dataSet, tags::BitsStored, 16), 1, 16);
    const double lowest = isSigned ? -std::ldexp(1, bits - 1) : 0;
    const auto end = [&](Tag tag, double otherwise) {
        const VR* const element = FindElement(mapping, tag);
        if (element == nullptr || element->m_Length < 2) return otherwise;
        const auto word = platform::LoadLittle<std::uint16_t>(element->m_pData);
        return isSigned ? static_cast<double>(static_cast<std::int16_t>(word)) : word;
    };
    const double highest = lowest + std::ldexp(1, bits) - 1;
    return end(tags::RealWorldValueFirstValueMapped, lowest) > lowest ||
           end(tags::RealWorldValueLastValueMapped, highest) < highest;
}

/// Of stored values (PS3.3 C.7.6.16.2.11); a table of values is none of these. The unit's code is UCUM's.
void ReadRealWorld(const Frame& frame, const DICOMDataObject& dataSet, FramePlace& place) {
    const VR* const mappings = frame.Sequence(tags::RealWorldValueMappingSequence);
    if (mappings == nullptr) return;
    const DICOMObject* const item = mappings->GetItem(0);
    place.hasRealWorld = ReadReal(*item, tags::RealWorldValueSlope, place.realSlope) &&
                         ReadReal(*item, tags::RealWorldValueIntercept, place.realIntercept) && place.realSlope != 0;
    place.hasOtherRealWorld = mappings->GetItemCount() > 1 || !place.hasRealWorld;
    if (!place.hasRealWorld || !place.slope.empty()) return;
    place.isRealWorldPart = IsPartOfValues(*item, dataSet);
    const DICOMObject* const unit = FindItem(*item, tags::MeasurementUnitsCodeSequence);
    if (unit != nullptr) place.unit = FindText(*unit, tags::CodeValue);
}

/// A dose grid has a factor of its own in place of a rescale (PS3.3 C.8.8.3).
void ReadDose(const DICOMDataObject& dataSet, FramePlace& place) {
    const std::string scaling = FindText(dataSet, tags::DoseGridScaling);
    if (scaling.empty()) return;
    place.slope = scaling;
    place.intercept = std::string(1, '0');
    place.unit = FindText(dataSet, tags::DoseUnits);
}

/// What real values are measured in: "US" is a type that says nothing.
std::string ReadUnit(const Frame& frame, const DICOMDataObject& dataSet, bool isRescaled) {
    const std::string modality = FindText(dataSet, tags::Modality);
    std::string ofPet = FindText(dataSet, tags::Units);
    if (modality == "PT" && !ofPet.empty()) return ofPet;
    std::string type = frame.Text({tags::PixelValueTransformationSequence, tags::RescaleType});
    if (isRescaled && !type.empty() && type != "US") return type;
    return isRescaled && modality == "CT" && type.empty() ? "HU" : "";
}

FramePlace ReadPlace(const Frame& frame) {
    const DICOMDataObject& dataSet = frame.GetDataSet();
    FramePlace place;
    place.hasPosition = frame.Reals({tags::PlanePositionSequence, tags::ImagePositionPatient}, place.position);
    place.hasOrientation =
        frame.Reals({tags::PlaneOrientationSequence, tags::ImageOrientationPatient}, place.orientation);
    if (place.hasOrientation) MakeSquare(place);
    ReadPixelSize(frame.GetDataSet(), frame.Holder({tags::PixelMeasuresSequence, tags::PixelSpacing}), place);
    place.slope = frame.Text({tags::PixelValueTransformationSequence, tags::RescaleSlope});
    place.intercept = frame.Text({tags::PixelValueTransformationSequence, tags::RescaleIntercept});
    place.unit = ReadUnit(frame, dataSet, !place.slope.empty() && !place.intercept.empty());
    ReadRealWorld(frame, dataSet, place);
    ReadDose(dataSet, place);
    return place;
}

constexpr double kSameHeight = 0.01;  // millimetres: positions are rounded in files

bool IsTransverse(const std::array<double, 6>& o) {
    return std::hypot(o[2], o[5]) < kCosine;
}

/// Whether offsets are what PS3.3 C.8.8.3.2 knows: from the first frame, or z coordinates of transverse frames.
bool AreOffsets(const std::vector<double>& offsets, const FramePlace& first) {
    if (offsets.empty()) return false;
    return offsets[0] == 0 ||
           (IsTransverse(first.orientation) && std::fabs(offsets[0] - first.position[2]) < kSameHeight);
}

/// One place for each offset, the first frame's alone without any.
FramePlaces PlaceByOffsets(const FramePlace& first, const std::vector<double>& offsets) {
    const auto& o = first.orientation;
    const double normal[] = {o[1] * o[5] - o[2] * o[4], o[2] * o[3] - o[0] * o[5], o[0] * o[4] - o[1] * o[3]};
    FramePlaces places(first, std::max<std::size_t>(offsets.size(), 1));
    for (std::size_t i = 0; i < offsets.size(); ++i) {
        std::array<double, 3> position = first.position;
        if (offsets[0] != 0) {
            position[2] = offsets[i];
        } else {
            for (std::size_t axis = 0; axis < 3; ++axis) position[axis] += offsets[i] * normal[axis];
        }
        places.SetPosition(i, position);
    }
    return places;
}

/// None when nothing tells, or when the data cannot hold as many frames as it claims.
std::vector<double> ReadFrameOffsets(const DICOMDataObject& dataSet, const ImageHeader& header,
                                     const FramePlace& first) {
    if (!header.HoldsFrames()) return {};
    std::vector<double> offsets(static_cast<std::size_t>(header.frames));
    if (FindElement(dataSet, tags::GridFrameOffsetVector) != nullptr) {
        const bool read = FindReals(dataSet, tags::GridFrameOffsetVector, offsets.data(), offsets.size());
        return read && AreOffsets(offsets, first) ? offsets : std::vector<double>();
    }
    // Slice Thickness says nothing of the distance: such frames have no place, and findings tell how they were laid out.
    if (header.sliceSpacing == 0) return {};
    for (std::size_t i = 0; i < offsets.size(); ++i) offsets[i] = header.sliceSpacing * static_cast<double>(i);
    return offsets;
}

/// A copy that shares the bytes of its source.
void PushShared(DICOMObject& dataSet, const VR& source) {
    dataSet.Push(new VR(source, false));
}

std::unique_ptr<DICOMDataObject> MakeFrame(const DICOMDataObject& source, const ImageHeader& header, int number) {
    auto frame = std::make_unique<DICOMDataObject>();
    for (const Tag tag : kOfImage) {
        if (const VR* const element = FindElement(source, tag); element != nullptr) PushShared(*frame, *element);
    }
    const Frame groups(source, static_cast<std::uint32_t>(number));
    for (const GroupedElement& wanted : kGrouped) {
        // A position on the top level cannot be that of each frame.
        if (wanted.element == tags::ImagePositionPatient && !header.framesPlaced) continue;
        if (const DICOMObject* const holder = groups.Holder(wanted); holder != nullptr) {
            PushShared(*frame, *FindElement(*holder, wanted.element));
        }
    }
    if (const DICOMObject* const window = groups.HolderOfWindow(); window != nullptr) {
        for (const Tag tag : kOfWindow) {
            if (const VR* const element = FindElement(*window, tag); element != nullptr) PushShared(*frame, *element);
        }
    }
    if (header.framesPlaced && header.places.GetPlane(0).hasPosition && !HasFrameGroups(source)) {
        const auto& position = header.places.GetPosition(static_cast<std::size_t>(number));
        PutReals(*frame, tags::ImagePositionPatient, position.data(), position.size());
    }
    PutText(*frame, tags::InstanceNumber, std::to_string(number + 1));

    const VR* const whole = FindElement(source, tags::PixelData);
    if (whole == nullptr) return frame;
    const VR& all = *whole;
    auto pixels = std::make_unique<VR>(all.m_Group, all.m_Element, 0U, 0);
    const std::uint64_t bytes = header.form.FrameBytes();
    pixels->m_TypeCode = all.m_TypeCode;
    pixels->m_Length = static_cast<std::uint32_t>(bytes);
    pixels->m_pData = all.m_pData + bytes * static_cast<std::uint64_t>(number);
    pixels->m_bOwnsData = 0;
    frame->Push(pixels.release());
    return frame;
}

/// Milliseconds from the first frame; numbers of frames where nothing tells how long each takes.
FrameKeyList TimesOfFrames(const DICOMDataObject& dataSet, const ImageHeader& header, FrameKeys own) {
    std::vector<double> steps(header.places.GetCount(), 1);
    double step = 0;
    const VR* const vector = FindElement(dataSet, tags::FrameTimeVector);
    if (vector != nullptr && FindReals(dataSet, tags::FrameTimeVector, steps.data(), steps.size())) {
        steps[0] = 0;
    } else if (FindReals(dataSet, tags::FrameTime, &step, 1) && step > 0) {
        steps.assign(steps.size(), step);
    }
    FrameKeyList keys;
    double time = 0;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        if (i > 0) time += std::max(steps[i], 1e-3);
        own.values[FrameKeys::kFrameTime] = time;
        keys.Add(own);
    }
    return keys;
}

}  // namespace

const DICOMObject* FindHolder(const DICOMDataObject& dataSet, int frame, Tag group, Tag element) {
    return Frame(dataSet, static_cast<std::uint32_t>(frame)).Holder({group, element});
}

const DICOMObject* FindHolderOfWindow(const DICOMDataObject& dataSet, int frame) {
    return Frame(dataSet, static_cast<std::uint32_t>(frame)).HolderOfWindow();
}

bool HasFrameGroups(const DICOMDataObject& dataSet) {
    return FindElement(dataSet, tags::PerFrameFunctionalGroupsSequence) != nullptr ||
           FindElement(dataSet, tags::SharedFunctionalGroupsSequence) != nullptr;
}

FramePlaces ReadFramePlaces(const DICOMDataObject& dataSet, const ImageHeader& header) {
    const FramePlace first = ReadPlace(Frame(dataSet, 0));
    if (header.frames > kMostFrames) return FramePlaces(first, 1);
    const auto frames = static_cast<std::uint32_t>(header.frames);
    const VR* const groups = FindElement(dataSet, tags::PerFrameFunctionalGroupsSequence);
    const bool isEach = groups != nullptr && groups->GetItemCount() == frames;
    const auto nuclear = isEach || frames == 1 ? std::nullopt : NuclearFrames::Read(dataSet, header);
    if (isEach || nuclear) {
        FramePlaces places;
        places.Reserve(frames);
        for (std::uint32_t i = 0; i < frames; ++i) places.Add(ReadPlace(Frame(dataSet, i)));
        return isEach ? places : nuclear->PlacesOf(places, header.sliceSpacing);
    }
    if (frames == 1) return FramePlaces(first, 1);
    if (AreTimes(dataSet, header)) return FramePlaces(first, frames);
    if (!first.hasPosition || !first.hasOrientation) return FramePlaces(first, 1);
    return PlaceByOffsets(first, ReadFrameOffsets(dataSet, header, first));
}

/// A pointer to what counts up from frame to frame (PS3.3 C.7.6.6.1.1) that names a time.
bool AreTimes(const DICOMDataObject& dataSet, const ImageHeader& header) {
    if (HasFrameGroups(dataSet) || header.frames < 2 || header.frames > kMostFrames || !header.HoldsFrames())
        return false;
    if (const auto nuclear = NuclearFrames::Read(dataSet, header)) return !nuclear->HasSlices();
    const VR* const pointer = FindElement(dataSet, tags::FrameIncrementPointer);
    for (std::uint32_t at = 0; pointer != nullptr && at + 4 <= pointer->m_Length; at += 4) {
        const Tag tag = MakeTag(platform::LoadLittle<std::uint16_t>(pointer->m_pData + at),
                                platform::LoadLittle<std::uint16_t>(pointer->m_pData + at + 2));
        if (tag == tags::FrameTime || tag == tags::FrameTimeVector) return true;
    }
    return false;
}

bool HasWrongOffsets(const DICOMDataObject& dataSet, const ImageHeader& header) {
    return header.frames > 1 && header.places.GetCount() == 1 && header.HoldsFrames() &&
           FindElement(dataSet, tags::GridFrameOffsetVector) != nullptr;
}

FrameKeyList ReadKeysOfFrames(const DICOMDataObject& dataSet, const ImageHeader& header) {
    const VR* const groups = FindElement(dataSet, tags::PerFrameFunctionalGroupsSequence);
    const bool each = groups != nullptr && groups->GetItemCount() == header.places.GetCount();
    const auto nuclear = NuclearFrames::Read(dataSet, header);
    if (nuclear && header.places.GetCount() > 1) return nuclear->KeysOf(Frame(dataSet, 0).Keys());
    if (header.framesAreTimes) return TimesOfFrames(dataSet, header, Frame(dataSet, 0).Keys());
    FrameKeyList keys;
    for (std::uint32_t i = 0; i < (each ? groups->GetItemCount() : 1); ++i) keys.Add(Frame(dataSet, i).Keys());
    return keys;
}

std::vector<std::unique_ptr<DICOMDataObject>> SplitFrames(const DICOMDataObject& source, const ImageHeader& header,
                                                          const std::vector<int>& frames) {
    std::vector<std::unique_ptr<DICOMDataObject>> sets;
    for (const int number : frames) sets.push_back(MakeFrame(source, header, number));
    return sets;
}

}  // namespace korvane
