#include "SeriesVolume.h"

#include "../core/Error.h"
#include "CommonScale.h"
#include "PlaceRescale.h"
#include "PlaneStream.h"
#include "SeriesFindings.h"
#include "SeriesText.h"
#include "StoredPixels.h"
#include "Uptake.h"

#include "base/Number.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

namespace korvane {

namespace {

/// The library's range is a starting value; the true one is what Update finds from an empty one.
void SetTrueRange(CVolume& volume) {
    volume.SetMin(std::numeric_limits<long long>::max());
    volume.SetMax(std::numeric_limits<long long>::min());
    volume.Update();
}

/// Colours have the range of their samples; where no voxel is a number, 0 to 0.
MeasuredRange RangeOf(VoxelType type, std::span<const std::byte> voxels) {
    const VoxelType sample = type == VoxelType::Rgb24 ? VoxelType::UInt8 : type;
    const MeasuredRange range = RangeOutside(sample, voxels, kNoPadding);
    return range.IsEmpty() ? MeasuredRange{0, 0} : range;
}

std::string DescribePadding(const std::optional<double>& padding, std::uint64_t voxels) {
    if (!padding) return "";
    return ", and the " + std::to_string(voxels) + " voxels of padding have the value " +
           platform::FormatReal(*padding) + ", which no other has";
}

/// The windows of a data set are over activity, and would show uptake all black.
void PutUptake(DICOMDataObject& dataSet, const FramePlace& place) {
    PutText(dataSet, tags::RescaleSlope, place.slope);
    PutText(dataSet, tags::RescaleIntercept, place.intercept);
    PutText(dataSet, tags::Units, "GML");
    for (const Tag tag : {tags::WindowCenter, tags::WindowWidth, tags::VOILUTSequence}) DropElement(dataSet, tag);
}

void DropScale(DICOMDataObject& dataSet) {
    for (const Tag tag :
         {tags::RescaleSlope, tags::RescaleIntercept, tags::PixelPaddingValue, tags::PixelPaddingRangeLimit})
        DropElement(dataSet, tag);
}

/// Planes in memory that is the caller's, with the places that the volume's planes have.
void PutPlanes(CVolume& volume, CVolume::PixelType type, const std::vector<std::byte*>& planes) {
    int dim[4];
    volume.GetDimensions(dim);
    std::vector<std::array<float, 3>> origins;
    for (int plane = 0; plane < dim[2]; ++plane) {
        const float* const org = volume.GetPlane(plane)->m_Org;
        origins.push_back({org[0], org[1], org[2]});
    }
    volume.Init(type, dim[0], dim[1], dim[2], dim[3]);
    for (int plane = 0; plane < dim[2]; ++plane) {
        const auto number = static_cast<std::size_t>(plane);
        CImagePlane& to = *volume.GetPlane(plane);
        to.Alloc(planes[number]);
        std::copy(origins[number].begin(), origins[number].end(), to.m_Org);
    }
    volume.UpdateZInterpArray();
}

/// One behind the other.
void PutPlanes(CVolume& volume, CVolume::PixelType type, std::span<std::byte> voxels) {
    int dim[4];
    volume.GetDimensions(dim);
    std::vector<std::byte*> planes;
    const std::size_t bytes = voxels.size() / static_cast<std::size_t>(dim[2]);
    for (std::size_t at = 0; at + bytes <= voxels.size(); at += bytes) planes.push_back(voxels.data() + at);
    PutPlanes(volume, type, planes);
}

/// Brings planes, of which `from` says for each place where the one that belongs there lies, to their places. A second
/// volume's memory is not wanted: they go round in circles, each of which begins with a plane that is kept aside.
void PutInOrder(std::span<std::byte> voxels, std::vector<int> from) {
    const std::size_t bytes = voxels.size() / std::max<std::size_t>(from.size(), 1);
    std::vector<std::byte> aside;
    for (std::size_t begin = 0; begin < from.size(); ++begin) {
        if (static_cast<std::size_t>(from[begin]) == begin) continue;
        const auto plane = [&](std::size_t k) { return voxels.subspan(k * bytes, bytes); };
        aside.assign(plane(begin).begin(), plane(begin).end());
        std::size_t place = begin;
        for (std::size_t next; (next = static_cast<std::size_t>(from[place])) != begin; place = next) {
            std::memcpy(plane(place).data(), plane(next).data(), bytes);
            from[place] = static_cast<int>(place);
        }
        std::memcpy(plane(place).data(), aside.data(), bytes);
        from[place] = static_cast<int>(place);
    }
}

}  // namespace

VoxelType TypeOf(CVolume::PixelType type) {
    switch (type) {
    case CVolume::PT_SHORT: return VoxelType::Int16;
    case CVolume::PT_USHORT: return VoxelType::UInt16;
    case CVolume::PT_BYTE: return VoxelType::UInt8;
    case CVolume::PT_FLOAT: return VoxelType::Float32;
    case CVolume::PT_LONG: return VoxelType::Int32;
    case CVolume::PT_ULONG: return VoxelType::UInt32;
    }
    return VoxelType::UInt8;
}

CVolume::PixelType ModuleTypeOf(VoxelType type) {
    switch (type) {
    case VoxelType::Int16: return CVolume::PT_SHORT;
    case VoxelType::UInt16: return CVolume::PT_USHORT;
    case VoxelType::Float32: return CVolume::PT_FLOAT;
    case VoxelType::Int32: return CVolume::PT_LONG;
    case VoxelType::UInt32: return CVolume::PT_ULONG;
    default: return CVolume::PT_BYTE;
    }
}

SeriesVolume::SeriesVolume(const SeriesChoice& choice) : SeriesVolume(Choose(choice), choice.volume, choice.watcher) {}

SeriesVolume::SeriesVolume(const Series& series, int volume, const Watch& watch)
    : m_Series(series), m_Watch(watch), m_nVolume(volume) {
    CheckAssembly(GetFound(), GetSeries());
    const auto number = static_cast<std::size_t>(GetVolumeNumber());
    if (number > GetSets().volumes.size()) {
        throw Error(ErrorKind::WrongArgument, "there is no volume " + std::to_string(number) + ": the series makes " +
                                                  std::to_string(GetSets().volumes.size()));
    }
    TakeSlices(GetSets().volumes[number - 1]);
}

void SeriesVolume::TakeSlices(const std::vector<SliceRef>& slices) {
    m_Slices = slices;
    m_Place = GetFound().PlaceOf(m_Slices.front());
    const FramePlace& sized = GetFound().SizedPlaceOf(m_Slices);
    m_Place.hasSpacing = sized.hasSpacing;
    m_Place.sizeOf = sized.sizeOf;
    m_Place.spacing = sized.spacing;
}

SeriesVolume::~SeriesVolume() = default;

std::size_t SeriesVolume::GetSliceCount() const {
    return GetSeries().geometry.volumes > 1 ? m_Slices.size() : CountImages(GetFound(), GetSeries());
}

bool SeriesVolume::IsGrey() const {
    const PixelForm& form = GetHeader().form;
    return form.samples == 1 && form.photometric.starts_with("MONOCHROME");
}

std::string SeriesVolume::DescribeColours() const {
    const std::string& photometric = GetHeader().form.photometric;
    return photometric.empty() ? "pixels without a photometric interpretation" : photometric + " pixels";
}

void SeriesVolume::TellChoice() const {
    TellWarnings();
    if (GetSets().volumes.size() > 1 && !IsVolumeChosen()) {
        m_Watch.Tell({.kind = FindingKind::FirstOfSeveral,
                      .count = GetSets().volumes.size(),
                      .text = "taking volume 1; choose with --volume"});
    }
}

void SeriesVolume::TellWarnings() const {
    for (const Finding& finding : GetSeries().findings) m_Watch.Tell(finding);
}

void SeriesVolume::Load(const std::vector<SliceRef>& slices) {
    using Pixels = LoadedSlices::Pixels;
    const bool isInPlace = LoadedSlices::CanReadInPlace(GetFound(), slices, m_Watch);
    Begin(slices, isInPlace ? Pixels::InPlace : CanReadFrames(slices) ? Pixels::Frames : Pixels::Now);
    if (m_bUptake) ApplyUptake();
    Assemble();
    const std::vector<Padding> paddings = GetPlanePaddings();
    if (std::adjacent_find(paddings.begin(), paddings.end(), std::not_equal_to<>()) != paddings.end())
        TellOtherPadding(GetPadding());
}

void SeriesVolume::Begin(const std::vector<SliceRef>& slices, LoadedSlices::Pixels pixels) {
    m_Assembled = CDicomVolume();  // its memory is wanted for the next one
    m_OwnVoxels = {};
    m_Pixels = pixels;
    KeepCodecOf(GetFound().files[slices.front().file]);
    m_Loaded.emplace(GetFound(), slices, pixels, m_nJobs, m_Watch);
    m_OwnType = m_Loaded->GetOwnType();
    m_Scale.reset();
    m_ScaleError.reset();
    m_ScaledPadding.reset();
    m_pScaling.reset();
    const auto hasTable = [](const auto& file) { return FindItem(*file.second, tags::ModalityLUTSequence) != nullptr; };
    m_bTables = m_bTables || std::any_of(GetFiles().begin(), GetFiles().end(), hasTable);
    for (const Finding& finding : m_Loaded->GetFindings()) Tell(finding);
    TakeSlices(slices);
}

// Its module would be loaded anew for each slice that is read alone, by one thread after the other, and for each volume.
void SeriesVolume::KeepCodecOf(const ImageHeader& header) {
    if (!header.encapsulated || header.common->transferSyntax == m_KeptSyntax) return;
    m_KeptSyntax = header.common->transferSyntax;
    m_Codecs.GetCodec(m_KeptSyntax);
}

void SeriesVolume::FitForModule() {
    CVolume& volume = GetVolume();
    volume.SetType(ModuleTypeOf(GetType()));
    volume.SetMin(m_WholeRange.smallest);
    volume.SetMax(m_WholeRange.largest);
    const std::vector<DICOMDataObject*> thicknesses = m_Loaded->MakeThicknesses(m_Thicknesses);
    std::vector<DICOMDataObject*>& list = m_Assembled.GetDDOList();
    for (std::size_t plane = 0; plane < list.size(); ++plane)
        list[plane] = thicknesses[static_cast<std::size_t>(m_Assembled.m_SliceToIndex[plane])];
    const auto first = static_cast<std::size_t>(m_Assembled.m_SliceToIndex.front());
    DICOMDataObject& header = m_Loaded->ReadHeader(GetFound(), first);
    if (m_bUptake) PutUptake(header, m_Loaded->GetPlaces().Get(first));
    if (m_pScaling) DropScale(header);
    list.front() = &header;
}

double SeriesVolume::FindUptakeFactor() {
    UptakeFactor factor;
    const auto add = [&](const std::string& path, const DICOMDataObject& dataSet) { factor.Add(path, dataSet); };
    if (IsStreamed()) {
        m_Loaded->ReadFileHeaders(GetFound(), add);
    } else {
        for (const auto& [path, dataSet] : GetFiles()) add(path, *dataSet);
    }
    return factor.Get();
}

void SeriesVolume::ApplyUptake() {
    const double factor = FindUptakeFactor();
    const auto apply = [factor](FramePlace& place) {
        const Rescale rescale = RealRescaleOf(place);
        place.slope = platform::FormatReal(rescale.slope * factor);
        place.intercept = platform::FormatReal(rescale.intercept * factor);
        place.unit = "g/ml";
    };
    apply(m_Place);
    FramePlaces& places = m_Loaded->GetPlaces();
    for (std::size_t i = 0; i < places.GetCount(); ++i) {
        FramePlace place = places.Get(i);
        apply(place);
        places.Set(i, place);
        if (i < m_Loaded->GetDataSets().size()) PutUptake(*m_Loaded->GetDataSets()[i], place);
    }
    Tell({.kind = FindingKind::UptakeValues,
          .lengths = {factor},
          .text = "values are standardized uptake values by body weight, in g/ml: activity times " +
                  platform::FormatReal(factor)});
}

VoxelType SeriesVolume::GetType() const {
    return m_OwnType.value_or(TypeOf(m_Assembled.GetVolume()->GetType()));
}

/// Each kind once, whatever the number of volumes that are read.
void SeriesVolume::Tell(Finding finding) {
    const bool known =
        std::any_of(m_Read.begin(), m_Read.end(), [&](const Finding& told) { return told.kind == finding.kind; });
    if (known) return;
    m_Watch.Tell(finding);
    m_Read.push_back(std::move(finding));
}

bool SeriesVolume::RescalesDiffer() const {
    if (GetType() == VoxelType::Rgb24 || m_Scale) return false;
    const FramePlaces& places = m_Loaded->GetPlaces();
    const Rescale first = RealRescaleOf(places.GetPlane(0));
    const FramePlace* last = nullptr;  // most slices share it
    for (std::size_t i = 0; i < places.GetCount(); ++i) {
        const FramePlace& plane = places.GetPlane(i);
        if (std::exchange(last, &plane) != &plane && RealRescaleOf(plane) != first) return true;
    }
    return false;
}

void SeriesVolume::BringToOneScale(bool integers, bool tell) {
    const bool differ = RescalesDiffer();
    std::vector<Rescale> rescales;
    const FramePlaces places = GetPlanePlaces();
    for (std::size_t k = 0; k < places.GetCount(); ++k) rescales.push_back(RealRescaleOf(places.GetPlane(k)));
    const std::vector<Padding> paddings = GetPlanePaddings();
    const ScaledPlanes planes{GetType(), GetVoxels(), rescales, paddings};
    CommonScale common = integers ? ToCommonIntegers(planes) : ToCommonScale(planes);
    m_OwnType = common.type;
    m_Scale = common.rescale;
    m_ScaleError = common.error;
    m_ScaledPadding = common.padding;
    m_Loaded->DropPixels();
    m_OwnVoxels = std::move(common.voxels);
    for (const auto& [type, kind] : {std::pair(VoxelType::Int16, CVolume::PT_SHORT),
                                     {VoxelType::UInt16, CVolume::PT_USHORT},
                                     {VoxelType::UInt8, CVolume::PT_BYTE},
                                     {VoxelType::Float32, CVolume::PT_FLOAT}}) {
        if (type == common.type) PutPlanes(GetVolume(), kind, m_OwnVoxels.GetBytes());
    }
    SetTrueRange(GetVolume());
    // Exporters of integers undo the rescale of the data sets. These integers go into the file as they are, so there is none.
    for (DICOMDataObject* const dataSet : m_Loaded->GetDataSets()) {
        DropScale(*dataSet);
        if (integers) continue;
        PutReals(*dataSet, tags::RescaleSlope, &common.rescale.slope, 1);
        PutReals(*dataSet, tags::RescaleIntercept, &common.rescale.intercept, 1);
    }
    m_Place.slope = platform::FormatReal(common.rescale.slope);
    m_Place.intercept = platform::FormatReal(common.rescale.intercept);
    if (tell) TellOneScale(differ, common.error, common.paddingVoxels);
}

void SeriesVolume::TellOneScale(bool differ, double error, std::uint64_t paddingVoxels) {
    Tell({.kind = FindingKind::OneScale,
          .lengths = {m_Scale->slope, error},
          .text = std::string(differ ? "slices have rescales of their own: " : "") +
                  "values are brought to one scale, " + std::string(WordOf(GetType())) + " with slope " +
                  m_Place.slope + " and intercept " + m_Place.intercept + ", rounded by at most " +
                  platform::FormatReal(error) + DescribePadding(m_ScaledPadding, paddingVoxels)});
}

/// Of each plane, in plane order; nothing where no slice has any.
std::vector<Padding> SeriesVolume::GetPlanePaddings() const {
    std::vector<Padding> paddings;
    bool isAny = false;
    for (const int index : m_Assembled.m_SliceToIndex) {
        const DICOMDataObject& dataSet = *m_Loaded->GetDataSets()[static_cast<std::size_t>(index)];
        const std::optional<Padding> padding = ReadPadding(dataSet, GetHeader().form);
        isAny = isAny || padding;
        paddings.push_back(padding.value_or(kNoPadding));
    }
    if (!isAny) paddings.clear();
    return paddings;
}

void SeriesVolume::TellOtherPadding(const std::optional<Padding>& first) {
    Tell({.kind = FindingKind::PaddingDiffers,
          .text =
              "slices name different values for padding: " +
              (first ? "that of the first one, " + ShortNumber(first->first) + " to " + ShortNumber(first->second) + ","
                     : std::string("what the first one names, none,")) +
              " counts for all"});
}

std::optional<double> SeriesVolume::GetPaddingValue() {
    return m_Scale ? m_ScaledPadding : ReadPaddingValue(GetFirstDataSet(), GetHeader().form);
}

std::optional<Padding> SeriesVolume::GetPadding() const {
    if (m_Scale) return m_ScaledPadding ? std::optional(Padding{*m_ScaledPadding, *m_ScaledPadding}) : std::nullopt;
    std::optional<Padding> padding = ReadPadding(GetFirstDataSet(), GetHeader().form);
    if (padding && GetType() == VoxelType::Float32) {  // 64 bits may have become 32
        const auto rounded = [](double end) { return static_cast<double>(static_cast<float>(end)); };
        padding = {rounded(padding->first), rounded(padding->second)};
    }
    return padding;
}

MeasuredRange SeriesVolume::GetMeasuredRange() {
    if (IsStreamed()) return m_StreamedRange;
    CVolume& volume = GetVolume();
    const MeasuredRange all{volume.GetMin(), volume.GetMax()};
    const std::optional<Padding> padding = GetPadding();
    if (!padding) return all;
    int dim[4];
    volume.GetDimensions(dim);
    if (volume.GetPlane(0)->m_pData == nullptr) {
        const MeasuredRange range = RangeOutside(GetType(), GetVoxels(), *padding);
        return range.IsEmpty() ? all : range;
    }
    const std::size_t bytes = static_cast<std::size_t>(dim[0]) * static_cast<std::size_t>(dim[1]) *
                              static_cast<std::size_t>(volume.GetTypeSize());
    MeasuredRange range;
    for (int k = 0; k < dim[2]; ++k) {
        const auto* const plane = static_cast<const std::byte*>(volume.GetPlane(k)->m_pData);
        range.Add(RangeOutside(TypeOf(volume.GetType()), {plane, bytes}, *padding));
    }
    return range.IsEmpty() ? all : range;
}

void SeriesVolume::MakeSliceable() {
    if (GetType() == VoxelType::Float64) {
        PutVoxelsAs<double, float>(VoxelType::Float32);
        PutPlanes(GetVolume(), CVolume::PT_FLOAT, m_OwnVoxels.GetBytes());
    } else if (GetType() == VoxelType::Int8) {
        PutVoxelsAs<std::int8_t, std::int16_t>(VoxelType::Int16);
        PutPlanes(GetVolume(), CVolume::PT_SHORT, m_OwnVoxels.GetBytes());
        SetTrueRange(GetVolume());
    }
}

void SeriesVolume::ShowPlanes(VoxelType type, const std::vector<std::byte*>& planes, const MeasuredRange& range) {
    m_OwnType = type;
    PutPlanes(GetVolume(), ModuleTypeOf(type), planes);
    GetVolume().SetMin(range.smallest);
    GetVolume().SetMax(range.largest);
}

template <class From, class To>
void SeriesVolume::PutVoxelsAs(VoxelType type) {
    const std::span<const std::byte> stored = m_OwnVoxels.GetBytes();
    const std::size_t count = stored.size() / sizeof(From);
    VoxelBlock voxels(count * sizeof(To));
    for (std::size_t i = 0; i < count; ++i) {
        From from;
        std::memcpy(&from, stored.data() + i * sizeof from, sizeof from);
        const auto to = static_cast<To>(static_cast<double>(from));
        std::memcpy(voxels.GetBytes().data() + i * sizeof to, &to, sizeof to);
    }
    m_OwnVoxels = std::move(voxels);
    m_OwnType = type;
}

std::span<const std::byte> SeriesVolume::GetVoxels() const {
    if (!m_OwnVoxels.IsEmpty()) return m_OwnVoxels.GetBytes();
    CVolume& volume = *m_Assembled.GetVolume();
    int dim[4];
    volume.GetDimensions(dim);
    const auto* const first = static_cast<const std::byte*>(volume.GetPlane(0)->m_pData);
    return {first, static_cast<std::size_t>(dim[0]) * static_cast<std::size_t>(dim[1]) *
                       static_cast<std::size_t>(dim[2]) * static_cast<std::size_t>(volume.GetTypeSize())};
}

std::vector<std::pair<std::string, const DICOMDataObject*>> SeriesVolume::ListDataSets() const {
    std::vector<std::pair<std::string, const DICOMDataObject*>> list;
    for (const DICOMDataObject* const dataSet : m_Loaded->GetDataSets())
        list.emplace_back(m_Loaded->PathOf(list.size()), dataSet);
    return list;
}

FramePlaces SeriesVolume::GetPlanePlaces() const {
    const FramePlaces& loaded = m_Loaded->GetPlaces();
    FramePlaces places;
    places.Reserve(m_Assembled.m_SliceToIndex.size());
    for (const int index : m_Assembled.m_SliceToIndex) {
        const auto slice = static_cast<std::size_t>(index);
        if (!m_Scale) {
            places.Add(loaded, slice);
            continue;
        }
        FramePlace place = loaded.Get(slice);
        place.slope = m_Place.slope;
        place.intercept = m_Place.intercept;
        places.Add(place);
    }
    return places;
}

/// The module takes the first value of Pixel Spacing, the distance of rows, for x. In the patient x runs along a row.
void SeriesVolume::SetTrueSpacing() {
    float space[4];
    GetVolume().GetSpacing(space);
    space[0] = static_cast<float>(m_Place.spacing[1]);
    space[1] = static_cast<float>(m_Place.spacing[0]);
    GetVolume().SetSpacing(space);
    GetVolume().UpdateZInterpArray();
}

/// The module's table of heights has a record for each pixel's width from the first slice to the last.
void SeriesVolume::CheckExtent() const {
    constexpr double kMostSteps = 1e6;
    const auto [low, high] = [this] {
        const std::array<double, 3> normal = StudyGeometry({m_Place}).normal;
        double lowest = HUGE_VAL;
        double highest = -HUGE_VAL;
        for (std::size_t i = 0; i < m_Loaded->GetPlaces().GetCount(); ++i) {
            const std::array<double, 3>& at = m_Loaded->GetPlaces().GetPosition(i);
            const double height = at[0] * normal[0] + at[1] * normal[1] + at[2] * normal[2];
            lowest = std::min(lowest, height);
            highest = std::max(highest, height);
        }
        return std::pair(lowest, highest);
    }();
    if (high - low <= kMostSteps * (m_Place.spacing[0] + m_Place.spacing[1]) / 2) return;
    throw Error(ErrorKind::Irregular, "the slices reach over " + platform::FormatReal(high - low) +
                                          " mm, which makes no volume of pixels of " +
                                          platform::FormatReal(m_Place.spacing[0]) + " mm");
}

void SeriesVolume::Assemble() {
    CheckExtent();
    std::vector<DICOMDataObject*>& list = m_Loaded->GetDataSets();
    if (IsStreamed()) {
        m_Assembled.SetAlikeSlices(*list.front(), m_Loaded->ListPositions());
    } else {
        m_Assembled.SetIODList(list, nullptr);
    }
    int dim[4];
    GetVolume().GetDimensions(dim);
    if (static_cast<std::size_t>(dim[2]) != m_Loaded->GetPlaces().GetCount()) {
        throw Error(ErrorKind::Irregular, "the slices do not make a volume");
    }
    SetTrueSpacing();
    if (IsStreamed()) return;
    if (m_Loaded->GetOwnType()) {
        PutOwnVoxels();
        return;
    }
    if (m_Pixels == LoadedSlices::Pixels::InPlace) {
        ReadInPlace();
        return;
    }
    if (m_Pixels == LoadedSlices::Pixels::Frames) {
        ReadFramesInPlace();
        return;
    }
    TaskProgress progress(m_Watch, "assembling", dim[2]);
    m_Assembled.SetCallback(&progress);
    m_Assembled.Alloc(true);
    m_Assembled.SetCallback(nullptr);
    if (progress.GetThrown() != nullptr) std::rethrow_exception(progress.GetThrown());
    m_Watch.StopIfAsked();
    SetTrueRange(GetVolume());
}

void SeriesVolume::ReadInPlace() {
    CVolume& volume = GetVolume();
    volume.Alloc(true);
    int dim[4];
    volume.GetDimensions(dim);
    const std::size_t bytes = static_cast<std::size_t>(dim[0]) * static_cast<std::size_t>(dim[1]) *
                              static_cast<std::size_t>(volume.GetTypeSize());
    const MeasuredRange range = m_Loaded->ReadPlanes([&](std::size_t slice) {
        void* const plane = volume.GetPlane(m_Assembled.m_IndexToSlice[slice])->m_pData;
        return std::span(static_cast<std::byte*>(plane), bytes);
    });
    volume.SetMin(range.smallest);
    volume.SetMax(range.largest);
    for (const Finding& finding : m_Loaded->GetFindings()) Tell(finding);
}

bool SeriesVolume::CanReadFrames(const std::vector<SliceRef>& slices) const {
    const auto isFrame = [this](const SliceRef& slice) {
        const ImageHeader& header = GetFound().files[slice.file];
        return header.frames > 1 && !header.IsTiled();
    };
    return LoadedSlices::FillsWords(GetFound().files[slices.front().file].form) &&
           std::all_of(slices.begin(), slices.end(), isFrame) && CanStream(slices);
}

void SeriesVolume::ReadFramesInPlace() {
    CVolume& volume = GetVolume();
    volume.Alloc(true);
    const std::unique_ptr<PlaneStream> stream = StreamPlanes(false);
    TaskProgress progress(m_Watch, "reading", volume.GetPlaneCount());
    for (int plane = 0; plane < volume.GetPlaneCount(); ++plane) {
        const std::span<const std::byte> voxels = stream->ReadNext();
        auto* const to = static_cast<std::byte*>(volume.GetPlane(plane)->m_pData);
        std::copy(voxels.begin(), voxels.end(), to);
        const int slice = m_Assembled.m_SliceToIndex[static_cast<std::size_t>(plane)];
        m_Loaded->PutPixels(static_cast<std::size_t>(slice), {to, voxels.size()});
        progress.Step();
    }
    volume.SetMin(stream->GetWholeRange().smallest);
    volume.SetMax(stream->GetWholeRange().largest);
    const std::vector<std::string> dirty = stream->ListBitsAbove();
    if (!dirty.empty()) Tell(DescribeBitsAbove(dirty, stream->CountFiles()));
}

/// Voxels come in list order; planes have one of their own.
void SeriesVolume::PutOwnVoxels() {
    m_OwnVoxels = m_Loaded->TakeVoxels();
    PutInOrder(m_OwnVoxels.GetBytes(), m_Assembled.m_SliceToIndex);
    CVolume& volume = GetVolume();
    const MeasuredRange range = RangeOf(GetType(), m_OwnVoxels.GetBytes());
    if (GetType() == VoxelType::Float32) PutPlanes(volume, CVolume::PT_FLOAT, m_OwnVoxels.GetBytes());
    if (GetType() == VoxelType::Int32) PutPlanes(volume, CVolume::PT_LONG, m_OwnVoxels.GetBytes());
    volume.SetMin(range.smallest);
    volume.SetMax(range.largest);
}

}  // namespace korvane
