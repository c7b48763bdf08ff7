#include "FrameGroups.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace korvane {

namespace {

constexpr Tag kSharedGroups = MakeTag(0x5200, 0x9229);
constexpr Tag kPerFrameGroups = MakeTag(0x5200, 0x9230);
constexpr Tag kPixelMeasures = MakeTag(0x0028, 0x9110);
constexpr Tag kPlanePosition = MakeTag(0x0020, 0x9113);
constexpr Tag kPlaneOrientation = MakeTag(0x0020, 0x9116);
constexpr Tag kPixelValueTransformation = MakeTag(0x0028, 0x9145);
constexpr Tag kFrameWindow = MakeTag(0x0028, 0x9132);

constexpr Tag kPosition = MakeTag(0x0020, 0x0032);
constexpr Tag kOrientation = MakeTag(0x0020, 0x0037);
constexpr Tag kPixelSpacing = MakeTag(0x0028, 0x0030);
constexpr Tag kSliceThickness = MakeTag(0x0018, 0x0050);
constexpr Tag kSliceSpacing = MakeTag(0x0018, 0x0088);
constexpr Tag kIntercept = MakeTag(0x0028, 0x1052);
constexpr Tag kSlope = MakeTag(0x0028, 0x1053);
constexpr Tag kWindowCentre = MakeTag(0x0028, 0x1050);
constexpr Tag kWindowWidth = MakeTag(0x0028, 0x1051);
constexpr Tag kGridFrameOffsets = MakeTag(0x3004, 0x000C);

// Far more than any volume has; a place takes more memory than the smallest of frames.
constexpr int kMostFrames = 65535;

struct GroupedElement {
    Tag group;
    Tag element;
};

/// The elements of functional groups that a slice of the library's has on its top level.
constexpr GroupedElement kGrouped[] = {
    {kPlanePosition, kPosition},         {kPlaneOrientation, kOrientation}, {kPixelMeasures, kPixelSpacing},
    {kPixelMeasures, kSliceThickness},   {kPixelMeasures, kSliceSpacing},   {kPixelValueTransformation, kIntercept},
    {kPixelValueTransformation, kSlope}, {kFrameWindow, kWindowCentre},     {kFrameWindow, kWindowWidth},
};

/// What is read of a slice beside those.
constexpr Tag kOfImage[] = {
    MakeTag(0x0008, 0x0016),
    MakeTag(0x0008, 0x0018),
    MakeTag(0x0008, 0x0060),
    MakeTag(0x0010, 0x0010),
    MakeTag(0x0010, 0x0020),
    MakeTag(0x0020, 0x000E),
    MakeTag(0x0028, 0x0002),
    MakeTag(0x0028, 0x0004),
    MakeTag(0x0028, 0x0006),
    MakeTag(0x0028, 0x0010),
    MakeTag(0x0028, 0x0011),
    MakeTag(0x0028, 0x0100),
    MakeTag(0x0028, 0x0101),
    MakeTag(0x0028, 0x0102),
    MakeTag(0x0028, 0x0103),
    kWindowCentre,
    kWindowWidth,
};

/// The functional groups of one frame.
class Frame {
public:
    Frame(const DICOMDataObject& dataSet, std::uint32_t number) : m_DataSet(dataSet) {
        const VR* const groups = FindElement(dataSet, kPerFrameGroups);
        if (groups != nullptr && number < groups->GetItemCount()) m_pOwn = groups->GetItem(number);
        m_pShared = FindItem(dataSet, kSharedGroups);
    }

    /// The data set that holds the element for this frame; null when nothing does.
    const DICOMObject* Holder(const GroupedElement& wanted) const {
        for (const DICOMObject* const groups : {m_pOwn, m_pShared}) {
            const DICOMObject* const item = groups != nullptr ? FindItem(*groups, wanted.group) : nullptr;
            if (item != nullptr && FindElement(*item, wanted.element) != nullptr) return item;
        }
        return FindElement(m_DataSet, wanted.element) != nullptr ? &m_DataSet : nullptr;
    }

    template <std::size_t kCount>
    bool Reals(const GroupedElement& wanted, std::array<double, kCount>& values) const {
        const DICOMObject* const holder = Holder(wanted);
        return holder != nullptr && FindReals(*holder, wanted.element, values.data(), kCount);
    }

    std::string Text(const GroupedElement& wanted) const {
        const DICOMObject* const holder = Holder(wanted);
        return holder != nullptr ? FindText(*holder, wanted.element) : std::string();
    }

private:
    const DICOMDataObject& m_DataSet;
    const DICOMObject* m_pOwn = nullptr;
    const DICOMObject* m_pShared = nullptr;
};

FramePlace ReadPlace(const Frame& frame) {
    FramePlace place;
    place.hasPosition = frame.Reals({kPlanePosition, kPosition}, place.position);
    place.hasOrientation = frame.Reals({kPlaneOrientation, kOrientation}, place.orientation);
    place.hasSpacing = frame.Reals({kPixelMeasures, kPixelSpacing}, place.spacing);
    place.slope = frame.Text({kPixelValueTransformation, kSlope});
    place.intercept = frame.Text({kPixelValueTransformation, kIntercept});
    return place;
}

/// One place for each offset along the normal from the first frame's, which alone is there without offsets.
std::vector<FramePlace> PlaceByOffsets(const FramePlace& first, const std::vector<double>& offsets) {
    const auto& o = first.orientation;
    const double normal[] = {o[1] * o[5] - o[2] * o[4], o[2] * o[3] - o[0] * o[5], o[0] * o[4] - o[1] * o[3]};
    std::vector<FramePlace> places(std::max<std::size_t>(offsets.size(), 1), first);
    for (std::size_t i = 0; i < offsets.size(); ++i) {
        // The vector begins with 0, or holds patient z coordinates of transverse frames (PS3.3 C.8.8.3.2).
        const double along = offsets[0] == 0 ? offsets[i] : offsets[i] - first.position[2];
        for (std::size_t axis = 0; axis < 3; ++axis) places[i].position[axis] += along * normal[axis];
    }
    return places;
}

/// None when nothing tells, or when the data cannot hold as many frames as it claims.
std::vector<double> ReadFrameOffsets(const DICOMDataObject& dataSet, const ImageHeader& header) {
    if (header.FramesPresent() < static_cast<std::uint64_t>(header.frames)) return {};
    std::vector<double> offsets(static_cast<std::size_t>(header.frames));
    if (FindElement(dataSet, kGridFrameOffsets) != nullptr) {
        return FindReals(dataSet, kGridFrameOffsets, offsets.data(), offsets.size()) ? offsets : std::vector<double>();
    }
    const double distance = header.sliceSpacing != 0 ? header.sliceSpacing : header.sliceThickness;
    if (distance == 0) return {};
    for (std::size_t i = 0; i < offsets.size(); ++i) offsets[i] = distance * static_cast<double>(i);
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
        // One position for all frames is that of none.
        if (wanted.element == kPosition && !header.framesPlaced) continue;
        if (const DICOMObject* const holder = groups.Holder(wanted); holder != nullptr) {
            PushShared(*frame, *FindElement(*holder, wanted.element));
        }
    }
    if (header.framesPlaced && !HasFrameGroups(source)) {
        const auto& position = header.places[static_cast<std::size_t>(number)].position;
        PutReals(*frame, kPosition, position.data(), position.size());
    }
    PutText(*frame, MakeTag(0x0020, 0x0013), std::to_string(number + 1));

    const VR& all = *FindElement(source, MakeTag(0x7FE0, 0x0010));
    auto pixels = std::make_unique<VR>(all.m_Group, all.m_Element, 0U, 0);
    const std::uint64_t bytes = header.form.FrameBytes();
    pixels->m_TypeCode = all.m_TypeCode;
    pixels->m_Length = static_cast<std::uint32_t>(bytes);
    pixels->m_pData = all.m_pData + bytes * static_cast<std::uint64_t>(number);
    pixels->m_bOwnsData = 0;
    frame->Push(pixels.release());
    return frame;
}

}  // namespace

bool HasFrameGroups(const DICOMDataObject& dataSet) {
    return FindElement(dataSet, kPerFrameGroups) != nullptr || FindElement(dataSet, kSharedGroups) != nullptr;
}

std::vector<FramePlace> ReadFramePlaces(const DICOMDataObject& dataSet, const ImageHeader& header) {
    const FramePlace first = ReadPlace(Frame(dataSet, 0));
    if (header.frames > kMostFrames) return {first};
    const VR* const groups = FindElement(dataSet, kPerFrameGroups);
    if (groups != nullptr && groups->GetItemCount() == static_cast<std::uint32_t>(header.frames)) {
        std::vector<FramePlace> places;
        for (std::uint32_t i = 0; i < groups->GetItemCount(); ++i) places.push_back(ReadPlace(Frame(dataSet, i)));
        return places;
    }
    if (header.frames == 1 || !first.hasPosition || !first.hasOrientation) return {first};
    return PlaceByOffsets(first, ReadFrameOffsets(dataSet, header));
}

std::vector<std::unique_ptr<DICOMDataObject>> SplitFrames(const DICOMDataObject& source, const ImageHeader& header,
                                                          const std::vector<int>& frames) {
    std::vector<std::unique_ptr<DICOMDataObject>> sets;
    for (const int number : frames) sets.push_back(MakeFrame(source, header, number));
    return sets;
}

}  // namespace korvane
