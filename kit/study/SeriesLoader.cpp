#include "SeriesLoader.h"

#include "../core/Error.h"
#include "../core/Threads.h"
#include "../core/WorkGroups.h"
#include "FrameGroups.h"
#include "PlaneReader.h"
#include "SeriesText.h"
#include "SliceFile.h"
#include "StoredPixels.h"
#include "Tiles.h"

#include "base/Bytes.h"
#include "base/Number.h"

#include <algorithm>
#include <map>

namespace korvane {

namespace {

// What claims more than this is no image: its memory would be taken for nothing. Two bytes of run lengths stand for at most
// 128; other compressions do better on empty images.
constexpr std::uint64_t kRunLengthRatio = 64;
constexpr std::uint64_t kLargestRatio = 16384;
constexpr std::size_t kMostAtOnce = 8;  // slices that a thread reads in one go

constexpr std::uint64_t kAnySize = 1024;  // bytes: so little may be claimed by any file

// An empty value is none; the library would take it for 0.
constexpr Tag kNoneWhenEmpty[] = {tags::SliceThickness, tags::SpacingBetweenSlices, tags::PatientOrientation,
                                  tags::PixelSpacing};

void CheckCodec(const ImageHeader& header) {
    if (header.encapsulated && !CodecManager::CanDecode(header.common->transferSyntax)) {
        RefuseFile(header, ErrorKind::Unsupported,
                   "compressed pixel data, no codec for " + DescribeSyntax(header.common->transferSyntax));
    }
}

void CheckForm(const ImageHeader& header) {
    const PixelForm& form = header.form;
    const bool isInteger = form.kind == PixelForm::Kind::Integer;
    if (form.rows == 0 || form.columns == 0 || (isInteger && (form.allocated == 0 || form.stored == 0))) {
        RefuseFile(header, ErrorKind::Damaged, "an image without rows, columns or bits");
    }
    if (isInteger &&
        (form.stored > form.allocated || form.highBit >= form.allocated || form.highBit + 1 < form.stored)) {
        RefuseFile(header, ErrorKind::Damaged,
                   "bits stored " + std::to_string(form.stored) + " and high bit " + std::to_string(form.highBit) +
                       " do not fit into " + std::to_string(form.allocated) + " bits");
    }
    if (!VoxelTypeOf(form)) {
        RefuseFile(header, ErrorKind::Unsupported, "no voxels are of this form: " + DescribePixels(form));
    }
    const bool isSubsampled = form.photometric.ends_with("_422") || form.photometric.ends_with("_420");
    if (isSubsampled && !header.encapsulated) {
        RefuseFile(header, ErrorKind::Unsupported, form.photometric + " pixels that are not compressed");
    }
}

void CheckPixels(const ImageHeader& header) {
    const PixelForm& form = header.form;
    if (form.kind == PixelForm::Kind::None) RefuseFile(header, ErrorKind::Unsupported, "no pixel data");
    CheckCodec(header);
    CheckForm(header);
    if (header.offsetsWrong) {
        RefuseFile(header, ErrorKind::Irregular,
                   "frame offsets (3004,000C) that neither begin with 0 nor with the first frame's z place no frames");
    }
    if (header.encapsulated) {
        CheckClaims(header);
        return;
    }
    const std::uint64_t present = header.FramesPresent();
    if (present < static_cast<std::uint64_t>(header.frames)) {
        const std::uint64_t needed = header.PixelBytes();
        RefuseFile(header, ErrorKind::Damaged,
                   "pixel data ends early: " + std::to_string(header.pixelsPresent) + " of " + std::to_string(needed) +
                       " bytes" + (header.frames > 1 ? " for " + std::to_string(header.frames) + " frames" : ""));
    }
}

void DropEmpty(DICOMDataObject& dataSet) {
    for (const Tag tag : kNoneWhenEmpty) {
        if (FindText(dataSet, tag).empty()) DropElement(dataSet, tag);
    }
}

std::unique_ptr<DICOMDataObject> ReadSliceHeader(const ImageHeader& header, const Watch& watch) {
    auto dataSet = ReadDataSetFile(header.GetFile(), kStopBeforePixelData, watch).dataSet;
    if (dataSet == nullptr) RefuseFile(header, ErrorKind::Damaged, "the pixel data cannot be read");
    CheckUnchanged(header, *dataSet);
    DropEmpty(*dataSet);
    DropElement(*dataSet, tags::NumberOfFrames);
    if (header.IsTiled()) PutTileSize(header, *dataSet);
    return dataSet;
}

/// The library reads numbers in its own way, which takes a blank before a backslash for their end: where it would read
/// others, the values are written anew.
void FitReals(DICOMDataObject& dataSet, Tag tag, const double* values, std::size_t count) {
    std::vector<float> read(count);
    const bool all = platform::ScanReals(TextOf(dataSet, tag), read.data(), count) == count;
    const bool same = all && std::equal(read.begin(), read.end(), values,
                                        [](float a, double b) { return a == static_cast<float>(b); });
    if (!same) PutReals(dataSet, tag, values, count);
}

void FitReal(DICOMDataObject& dataSet, Tag tag) {
    if (double value = 0; FindReals(dataSet, tag, &value, 1)) FitReals(dataSet, tag, &value, 1);
}

/// A slice of the library's lies where the Kit says.
void FitPlace(DICOMDataObject& dataSet, const FramePlace& place) {
    if (place.hasPosition) FitReals(dataSet, tags::ImagePositionPatient, place.position.data(), 3);
    if (place.hasOrientation || place.axesChanged) {
        FitReals(dataSet, tags::ImageOrientationPatient, place.orientation.data(), 6);
    }
    if (place.hasSpacing) {
        FitReals(dataSet, tags::PixelSpacing, place.spacing.data(), 2);
    } else {
        DropElement(dataSet, tags::PixelSpacing);
    }
    FitReal(dataSet, tags::SpacingBetweenSlices);
    FitReal(dataSet, tags::SliceThickness);
}

}  // namespace

void CheckClaims(const ImageHeader& header) {
    CheckCodec(header);
    if (!header.HoldsFrames()) {
        RefuseFile(header, ErrorKind::Damaged,
                   "compressed pixel data of " + std::to_string(header.encapsulatedRoom) + " bytes for " +
                       std::to_string(header.frames) + " frames");
    }
    const std::uint64_t needed = header.PixelBytes();
    const bool isRunLength = header.common->transferSyntax == kRleUid;
    if (needed / (isRunLength ? kRunLengthRatio : kLargestRatio) > header.encapsulatedRoom + kAnySize) {
        RefuseFile(header, ErrorKind::Damaged,
                   "compressed pixel data of " + std::to_string(header.encapsulatedRoom) + " bytes cannot hold the " +
                       std::to_string(needed) + " bytes that it stands for");
    }
}

void CheckAssembly(const FoundFiles& found, const FoundSeries& series) {
    for (const SliceRef& slice : series.slices) CheckPixels(found.files[slice.file]);
    const SeriesGeometry& geometry = series.geometry;
    if (!geometry.unplaced.empty() && !geometry.stacks.empty()) {
        const SliceRef& slice = series.slices[geometry.unplaced.front()];
        throw Error(ErrorKind::Irregular,
                    found.NameOf(slice) + ": no Image Position (Patient), which other slices of the series have")
            .InFile(found.files[slice.file].path);
    }
}

Finding DescribeBitsAbove(const std::vector<std::string>& dirty, std::size_t files) {
    constexpr std::size_t kNamed = 3;
    Finding finding{.kind = FindingKind::BitsAboveStored, .files = dirty, .count = dirty.size()};
    finding.text = "bits above the stored ones are set, an overlay or dirt, and left out of the values, in " +
                   std::to_string(dirty.size()) + " of " + std::to_string(files) + (files == 1 ? " file:" : " files:");
    for (std::size_t i = 0; i < std::min(kNamed, dirty.size()); ++i) {
        finding.text += (i == 0 ? " " : ", ") + dirty[i];
    }
    if (dirty.size() > kNamed) finding.text += " and " + std::to_string(dirty.size() - kNamed) + " more";
    return finding;
}

LoadedSlices::LoadedSlices(const FoundFiles& found, const std::vector<SliceRef>& slices, Pixels pixels, unsigned jobs,
                           const Watch& watch)
    : m_Watch(watch), m_nJobs(jobs) {
    m_Codecs.SetStopQuestion(watch.GetStopQuestion());
    if (slices.empty()) return;
    const PixelForm& form = found.files[slices.front().file].form;
    if (pixels == Pixels::Later || !HasModuleForm(form)) {
        m_OwnType = VoxelTypeOf(form);
        m_StandIn.resize(static_cast<std::size_t>(form.rows) * static_cast<std::size_t>(form.columns));
    }
    if (pixels == Pixels::Later) {
        AddPlaces(found, slices);
    } else if (pixels == Pixels::InPlace) {
        ReadHeaders(found, slices);
    } else if (pixels == Pixels::Frames) {
        ReadFrameHeaders(found, slices);
    } else {
        LoadFiles(found, slices);
    }
    PlaceInOrder(found.files[slices.front().file]);
    for (std::size_t i = 0; i < m_List.size(); ++i) FitPlace(*m_List[i], m_Places.Get(i));
}

void LoadedSlices::LoadFiles(const FoundFiles& found, const std::vector<SliceRef>& slices) {
    const PixelForm& form = found.files[slices.front().file].form;
    m_bStoredDiffer = std::any_of(slices.begin(), slices.end(), [&](const SliceRef& slice) {
        return found.files[slice.file].form.stored != form.stored;
    });
    if (m_OwnType) {
        std::size_t planes = 0;
        for (const SliceRef& slice : slices) {
            planes += slice.frame < 0 ? static_cast<std::size_t>(found.files[slice.file].frames) : 1;
        }
        m_Voxels = VoxelBlock(planes * m_StandIn.size() * SizeOf(*m_OwnType));
    }
    TaskProgress progress(m_Watch, "reading", static_cast<std::int64_t>(slices.size()));
    std::size_t files = 0;
    for (std::size_t i = 0; i < slices.size(); ++files) {
        const ImageHeader& header = found.files[slices[i].file];
        std::vector<int> frames;
        if (slices[i].frame < 0 && header.frames > 1) {
            for (int frame = 0; frame < header.frames; ++frame) frames.push_back(frame);
        }
        std::size_t next = i;
        for (; next < slices.size() && slices[next].file == slices[i].file; ++next) {
            if (slices[next].frame >= 0) frames.push_back(slices[next].frame);
            m_Places.Add(found.PlaceOf(slices[next]));
            progress.Step();
        }
        LoadFile(header, frames);
        m_FileOf.resize(m_List.size(), m_Read.size() - 1);
        while (m_Places.GetCount() < m_List.size()) m_Places.Add(m_Places, m_Places.GetCount() - 1);
        i = next;
    }
    if (!m_BitsAbove.empty()) m_Findings.push_back(DescribeBitsAbove(m_BitsAbove, files));
}

bool LoadedSlices::FillsWords(const PixelForm& form) {
    return HasModuleForm(form) && form.highBit + 1 == form.stored && (form.allocated != 32 || form.stored == 32);
}

bool LoadedSlices::CanReadInPlace(const FoundFiles& found, const std::vector<SliceRef>& slices, const Watch& watch) {
    const ImageHeader& first = found.files[slices.front().file];
    const PixelForm& form = first.form;
    if (!FillsWords(form)) return false;
    const bool alike = std::all_of(slices.begin(), slices.end(), [&](const SliceRef& slice) {
        const ImageHeader& header = found.files[slice.file];
        return slice.frame < 0 && header.frames == 1 && !header.IsTiled() && header.form == form;
    });
    // To see what decoding makes of one alone would cost as much as all of it.
    return alike && (!first.encapsulated || (slices.size() > 1 && PlaneReader(watch).KeepsForm(first)));
}

void LoadedSlices::ReadHeaders(const FoundFiles& found, const std::vector<SliceRef>& slices) {
    m_bInPlace = true;
    m_StandIn.resize(static_cast<std::size_t>(found.files[slices.front().file].form.FrameBytes()));
    m_Delayed.resize(slices.size());
    ForEach(m_nJobs, slices.size(), m_Watch, [&](std::size_t i) {
        m_Delayed[i] = std::make_unique<DelayedSlice>(found.files[slices[i].file], m_StandIn, m_Watch);
        DICOMDataObject& dataSet = m_Delayed[i]->GetDataSet();
        DropEmpty(dataSet);
        DropElement(dataSet, tags::NumberOfFrames);
    });
    for (std::size_t i = 0; i < slices.size(); ++i) {
        DICOMDataObject& dataSet = m_Delayed[i]->GetDataSet();
        m_List.push_back(&dataSet);
        m_Places.Add(found.PlaceOf(slices[i]));
        m_Read.emplace_back(found.files[slices[i].file].path, &dataSet);
        m_FileOf.push_back(i);
    }
}

void LoadedSlices::ReadFrameHeaders(const FoundFiles& found, const std::vector<SliceRef>& slices) {
    m_bInPlace = true;
    m_StandIn.resize(static_cast<std::size_t>(found.files[slices.front().file].form.FrameBytes()));
    for (std::size_t i = 0; i < slices.size(); ++i) {
        const ImageHeader& header = found.files[slices[i].file];
        if (i == 0 || slices[i].file != slices[i - 1].file) {
            m_Files.push_back(ReadSliceHeader(header, m_Watch));
            m_Read.emplace_back(header.path, m_Files.back().get());
        }
        const bool isAll = slices[i].frame < 0;
        for (int frame = 0; frame < (isAll ? header.frames : 1); ++frame) {
            const int number = isAll ? frame : slices[i].frame;
            m_Frames.push_back(std::move(SplitFrames(*m_Files.back(), header, {number}).front()));
            m_List.push_back(m_Frames.back().get());
            m_Images.push_back({slices[i].file, number});
            m_Places.Add(found.PlaceOf(slices[i]));
            m_FileOf.push_back(m_Read.size() - 1);
            PutPixels(m_List.size() - 1, std::as_writable_bytes(std::span(m_StandIn)));
        }
        m_Watch.StopIfAsked();
    }
}

void LoadedSlices::PutPixels(std::size_t dataSet, std::span<std::byte> voxels) {
    const bool isBytes = FindInteger(*m_List[dataSet], tags::BitsAllocated, 0) <= 8;
    auto pixels = std::make_unique<VR>(tags::PixelData, 0U, 0);
    pixels->m_TypeCode = TypeCode(isBytes ? "OB" : "OW");
    pixels->m_Length = static_cast<std::uint32_t>(voxels.size());
    pixels->m_pData = reinterpret_cast<unsigned char*>(voxels.data());
    pixels->m_bOwnsData = 0;
    DropElement(*m_List[dataSet], tags::PixelData);
    m_List[dataSet]->Push(pixels.release());
}

MeasuredRange LoadedSlices::ReadPlanes(const std::function<std::span<std::byte>(std::size_t slice)>& placeOf) {
    const std::size_t count = m_Delayed.size();
    TaskProgress progress(m_Watch, "reading", static_cast<std::int64_t>(count));
    std::vector<std::string> bitsAbove;
    MeasuredRange range;
    const auto take = [&](std::size_t i) {
        range.Add(m_Delayed[i]->GetRange());
        if (m_Delayed[i]->HadBitsAbove()) bitsAbove.push_back(m_Read[i].first);
        m_Files.push_back(m_Delayed[i]->TakeDataSet());
        progress.Step();
    };
    const unsigned jobs = CountJobs(m_nJobs);
    const WorkGroups groups(count, m_nJobs, kMostAtOnce);
    const auto inGroup = [&](std::size_t group, const auto& body) {
        for (std::size_t i = groups.BeginOf(group); i < groups.EndOf(group); ++i) body(i);
    };
    ForEachInOrder(
        m_nJobs, groups.GetCount(), 2 * std::size_t{jobs}, m_Watch,
        [&](std::size_t group) { inGroup(group, [&](std::size_t i) { m_Delayed[i]->ReadInto(placeOf(i), m_Watch); }); },
        [&](std::size_t group) { inGroup(group, take); });
    if (!bitsAbove.empty()) m_Findings.push_back(DescribeBitsAbove(bitsAbove, m_Delayed.size()));
    m_Delayed.clear();
    m_StandIn = std::vector<unsigned char>();  // no data set points to it any more
    return range;
}

void LoadedSlices::DropPixels() {
    if (!std::exchange(m_bInPlace, false)) return;
    for (DICOMDataObject* const dataSet : m_List) DropElement(*dataSet, tags::PixelData);
}

std::vector<DICOMDataObject*> LoadedSlices::MakeThicknesses(const std::vector<std::optional<std::string>>& texts) {
    std::vector<DICOMDataObject*> sets(m_Images.size());
    std::map<std::optional<std::string>, DICOMDataObject*> made;
    for (std::size_t i = 0; i < sets.size(); ++i) {
        std::optional<std::string> text;
        if (m_Images[i].frame < 0) {
            text = texts[i];
        } else if (m_FrameThicknesses[i] != nullptr) {
            text = *m_FrameThicknesses[i];
        }
        DICOMDataObject*& dataSet = made[text];
        if (dataSet == nullptr) {
            m_Files.push_back(std::make_unique<DICOMDataObject>());
            dataSet = m_Files.back().get();
            if (text) PutText(*dataSet, tags::SliceThickness, *text);
            FitReal(*dataSet, tags::SliceThickness);
        }
        sets[i] = dataSet;
    }
    return sets;
}

/// By way of the texts that data sets of their own would have.
std::vector<std::array<float, 3>> LoadedSlices::ListPositions() const {
    std::vector<std::array<float, 3>> positions(m_Places.GetCount());
    for (std::size_t i = 0; i < positions.size(); ++i) {
        std::string text = i == 0 ? TextOf(*m_List.front(), tags::ImagePositionPatient) : std::string();
        for (std::size_t axis = 0; axis < 3 && i > 0; ++axis)
            text += (axis == 0 ? "" : "\\") + platform::FormatReal(m_Places.GetPosition(i)[axis]);
        platform::ScanReals(text, positions[i].data(), positions[i].size());
    }
    return positions;
}

DICOMDataObject& LoadedSlices::ReadHeader(const FoundFiles& found, std::size_t dataSet) {
    const SliceRef& image = m_Images[dataSet];
    const ImageHeader& header = found.files[image.file];
    const auto whole = ReadSliceHeader(header, m_Watch);
    m_Files.push_back(MakeHeader(header, image, whole.get()));
    FitPlace(*m_Files.back(), m_Places.Get(dataSet));
    return *m_Files.back();
}

std::vector<std::size_t> LoadedSlices::ListFiles() const {
    std::vector<std::size_t> files;
    for (const SliceRef& image : m_Images) {
        if (files.empty() || files.back() != image.file) files.push_back(image.file);
    }
    return files;
}

void LoadedSlices::ReadFileHeaders(
    const FoundFiles& found,
    const std::function<void(const std::string& path, const DICOMDataObject& header)>& take) const {
    const std::vector<std::size_t> files = ListFiles();
    std::vector<std::unique_ptr<DICOMDataObject>> ahead(2 * std::size_t{CountJobs(m_nJobs)});
    const auto headerOf = [&](std::size_t i) -> auto& {
        return ahead[i % ahead.size()];
    };
    ForEachInOrder(
        m_nJobs, files.size(), ahead.size() - 1, m_Watch,
        [&](std::size_t i) { headerOf(i) = ReadSliceHeader(found.files[files[i]], m_Watch); },
        [&](std::size_t i) { take(found.files[files[i]].path, *headerOf(i)); });
}

void LoadedSlices::AddPlaces(const FoundFiles& found, const std::vector<SliceRef>& slices) {
    std::unique_ptr<DICOMDataObject> whole;
    m_Places.Reserve(slices.size());
    m_Images.reserve(slices.size());
    for (std::size_t i = 0; i < slices.size(); ++i) {
        const ImageHeader& header = found.files[slices[i].file];
        const bool isNew = i == 0 || slices[i].file != slices[i - 1].file;
        if (isNew) whole = i == 0 || header.frames > 1 ? ReadSliceHeader(header, m_Watch) : nullptr;
        const bool isAll = slices[i].frame < 0 && header.frames > 1;
        for (int frame = 0; frame < (isAll ? header.frames : 1); ++frame) {
            m_Places.Add(found.PlaceOf(slices[i]));
            const SliceRef image{slices[i].file, isAll ? frame : slices[i].frame};
            m_Images.push_back(image);
            if (m_List.empty()) AddFirst(header, image, whole.get());
            if (image.frame < 0) continue;
            const DICOMObject* const holder =
                FindHolder(*whole, image.frame, tags::PixelMeasuresSequence, tags::SliceThickness);
            AddFrameThickness(holder != nullptr ? TextOf(*holder, tags::SliceThickness) : std::optional<std::string>());
        }
    }
}

/// Of the image added last. Neighbours mostly have the same, and share it.
void LoadedSlices::AddFrameThickness(const std::optional<std::string>& text) {
    const auto before = m_FrameThicknesses.empty() ? nullptr : m_FrameThicknesses.back();
    m_FrameThicknesses.resize(m_Images.size());
    if (!text) return;
    const bool isSame = before != nullptr && *before == *text;
    m_FrameThicknesses.back() = isSame ? before : std::make_shared<const std::string>(*text);
}

/// Of a frame, its own data set; `whole` is that of the file.
std::unique_ptr<DICOMDataObject> LoadedSlices::MakeHeader(const ImageHeader& header, const SliceRef& image,
                                                          const DICOMDataObject* whole) const {
    const auto frame = image.frame < 0 ? nullptr : std::move(SplitFrames(*whole, header, {image.frame}).front());
    const DICOMDataObject& from = frame ? *frame : *whole;
    auto copy = std::make_unique<DICOMDataObject>();
    for (const VR* element = from.GetFirst(); element != nullptr; element = from.GetNext(element)) {
        PushInto(*copy, std::unique_ptr<VR>(element->Clone(true)));
    }
    return copy;
}

/// The data set that stands for all.
void LoadedSlices::AddFirst(const ImageHeader& header, const SliceRef& image, const DICOMDataObject* whole) {
    std::unique_ptr<DICOMDataObject> dataSet = MakeHeader(header, image, whole);
    if (image.frame >= 0) {
        const DICOMObject* const holder =
            FindHolder(*whole, image.frame, tags::PixelMeasuresSequence, tags::SliceThickness);
        if (holder != nullptr) PutText(*dataSet, tags::SliceThickness, TextOf(*holder, tags::SliceThickness));
    }
    StandIn(header, *dataSet);
    m_List.push_back(dataSet.get());
    m_Files.push_back(std::move(dataSet));
}

/// Slices with an orientation and no positions: the library would lay them out along the patient's z axis, whatever way
/// they face, so they get positions along their normal.
void LoadedSlices::PlaceInOrder(const ImageHeader& header) {
    const FramePlace first = m_Places.Get(0);
    const bool oneForAll = header.frames > 1 && !header.framesPlaced;
    if (first.hasPosition && !oneForAll) return;
    const std::array<double, 3> normal = StudyGeometry({first}).normal;
    const double known = header.sliceSpacing != 0 ? header.sliceSpacing : header.sliceThickness;
    const double distance = known != 0 ? known : first.spacing[0];
    for (std::size_t i = 0; i < m_Places.GetCount(); ++i) {
        std::array<double, 3> position{};
        for (std::size_t axis = 0; axis < 3; ++axis)
            position[axis] = first.position[axis] + distance * static_cast<double>(i) * normal[axis];
        m_Places.SetPosition(i, position);
        if (first.hasOrientation && i < m_List.size())
            PutReals(*m_List[i], tags::ImagePositionPatient, position.data(), position.size());
    }
}

/// Slices of a volume may differ in Bits Stored: values are masked or sign-extended to all bits here, and the element says
/// so. The library would want one value in all, and takes words of four bytes whole.
void LoadedSlices::UnifyStoredBits(const ImageHeader& header, DICOMDataObject& dataSet) {
    const PixelForm& form = header.form;
    if (!m_bStoredDiffer && (form.allocated != 32 || form.stored == 32)) return;
    VR& pixels = *FindElement(dataSet, tags::PixelData);
    FillWords({pixels.m_pData, pixels.m_Length}, form);
    PutNumber(dataSet, tags::BitsStored, static_cast<unsigned>(form.allocated));
    PutNumber(dataSet, tags::HighBit, static_cast<unsigned>(form.allocated - 1));
}

/// Voxels of a form that the module does not have; the data set is without pixels afterwards.
void LoadedSlices::TakeOwnVoxels(const ImageHeader& header, DICOMDataObject& dataSet, const std::vector<int>& frames) {
    try {
        ReadVoxels(header, dataSet, frames);
    } catch (const Error& error) {
        if (error.GetKind() == ErrorKind::Stopped) throw;
        RefuseFile(header, error.GetKind(), error.what());
    }
    for (const Tag tag : {tags::PixelData, tags::FloatPixelData, tags::DoubleFloatPixelData}) DropElement(dataSet, tag);
}

void LoadedSlices::ReadVoxels(const ImageHeader& header, const DICOMDataObject& dataSet,
                              const std::vector<int>& frames) {
    const std::size_t plane = m_StandIn.size() * SizeOf(*m_OwnType);
    const StoredPixels pixels(dataSet, header.form);
    const std::size_t count = std::max<std::size_t>(frames.size(), 1);
    for (std::size_t i = 0; i < count; ++i, m_nVoxelBytes += plane) {
        pixels.Read(frames.empty() ? 0 : frames[i], m_Voxels.GetBytes().subspan(m_nVoxelBytes, plane));
        m_Watch.StopIfAsked();
    }
}

void LoadedSlices::StandIn(const ImageHeader& header, DICOMDataObject& dataSet) {
    constexpr unsigned kByte = 8;
    PutNumber(dataSet, tags::SamplesPerPixel, 1);
    PutNumber(dataSet, tags::BitsAllocated, kByte);
    PutNumber(dataSet, tags::BitsStored, kByte);
    PutNumber(dataSet, tags::HighBit, kByte - 1);
    PutNumber(dataSet, tags::PixelRepresentation, 0);
    PutText(dataSet, tags::PhotometricInterpretation,
            header.form.photometric == "MONOCHROME1" ? "MONOCHROME1" : "MONOCHROME2");
    auto pixels = std::make_unique<VR>(tags::PixelData, 0U, 0);
    pixels->m_TypeCode = TypeCode("OB");
    pixels->m_Length = static_cast<std::uint32_t>(m_StandIn.size());
    pixels->m_pData = m_StandIn.data();
    pixels->m_bOwnsData = 0;
    dataSet.Push(pixels.release());
}

void LoadedSlices::LoadFile(const ImageHeader& header, const std::vector<int>& frames) {
    DataSetFile file = ReadSliceFile(header, m_Codecs, m_Watch);
    DropEmpty(*file.dataSet);
    if (HasFileBitsAbove(header, *file.dataSet, m_Watch)) m_BitsAbove.push_back(header.path);
    if (header.IsTiled()) Untile(header, *file.dataSet);
    if (m_OwnType) {
        TakeOwnVoxels(header, *file.dataSet, frames);
    } else {
        UnifyStoredBits(header, *file.dataSet);
    }
    m_Files.push_back(std::move(file.dataSet));
    m_Read.emplace_back(header.path, m_Files.back().get());
    if (frames.empty()) {
        // Many writers put "1" here, which would make the first slice a multi-frame object.
        DropElement(*m_Files.back(), tags::NumberOfFrames);
        if (m_OwnType) StandIn(header, *m_Files.back());
        m_List.push_back(m_Files.back().get());
        return;
    }
    for (auto& frame : SplitFrames(*m_Files.back(), header, frames)) {
        if (m_OwnType) StandIn(header, *frame);
        m_List.push_back(frame.get());
        m_Frames.push_back(std::move(frame));
    }
}

}  // namespace korvane
