#include "Series.h"

#include "FoundFiles.h"
#include "SeriesText.h"

#include <cmath>
#include <set>
#include <utility>

namespace korvane {

namespace {

const ImageHeader& FirstOf(const Series& series) {
    return series.GetFiles().FirstFile(series.GetFound());
}

}  // namespace

Series::Series(std::shared_ptr<const FoundFiles> found, std::size_t index)
    : m_pFound(std::move(found)), m_Index(index) {}
Series::Series(const Series& other) = default;
Series::Series(Series&& other) noexcept = default;
Series& Series::operator=(const Series& other) = default;
Series& Series::operator=(Series&& other) noexcept = default;
Series::~Series() = default;

const FoundSeries& Series::GetFound() const {
    return m_pFound->series[m_Index];
}

const std::string& Series::GetUid() const {
    return FirstOf(*this).common->seriesUid;
}
int Series::GetNumber() const {
    return FirstOf(*this).common->seriesNumber;
}
const std::string& Series::GetModality() const {
    return FirstOf(*this).common->modality;
}
const std::string& Series::GetDescription() const {
    return FirstOf(*this).common->description;
}
const std::string& Series::GetProtocol() const {
    return FirstOf(*this).common->protocol;
}

std::vector<int> Series::GetEchoNumbers() const {
    constexpr std::size_t kEchoNumber = 8;  // entry of `FrameKeys`
    std::set<int> numbers;
    for (const SliceRef& slice : GetFound().slices) {
        const double number = m_pFound->KeysOf(slice).values[kEchoNumber];
        if (std::fabs(number) < 1e6) numbers.insert(static_cast<int>(number));
    }
    return {numbers.begin(), numbers.end()};
}

const std::string& Series::GetSopClass() const {
    return FirstOf(*this).common->sopClass;
}
const std::string& Series::GetPatientName() const {
    return FirstOf(*this).common->patientName;
}
const std::string& Series::GetPatientId() const {
    return FirstOf(*this).common->patientId;
}
const std::string& Series::GetStudyUid() const {
    return FirstOf(*this).common->studyUid;
}
const std::string& Series::GetStudyDate() const {
    return FirstOf(*this).common->studyDate;
}
const std::string& Series::GetStudyDescription() const {
    return FirstOf(*this).common->studyDescription;
}

bool Series::HasPixels() const {
    return GetPixelForm().kind != PixelForm::Kind::None;
}

const PixelForm& Series::GetPixelForm() const {
    return FirstOf(*this).form;
}

std::size_t Series::CountImages() const {
    return korvane::CountImages(*m_pFound, GetFound());
}

std::vector<SeriesSlice> Series::GetSlices() const {
    std::vector<SeriesSlice> slices;
    for (const SliceRef& slice : GetFound().slices) {
        slices.push_back({m_pFound->files[slice.file].path, slice.frame, m_pFound->PlaceOf(slice)});
    }
    return slices;
}

const SeriesGeometry& Series::GetGeometry() const {
    return GetFound().geometry;
}

std::vector<VolumeInfo> Series::GetVolumes() const {
    const VolumeSets& sets = GetFound().sets;
    std::vector<VolumeInfo> volumes;
    for (std::size_t i = 0; i < sets.members.size(); ++i) volumes.push_back({sets.keys[i], sets.members[i]});
    return volumes;
}

const std::string& Series::GetVolumeOrder() const {
    return GetFound().sets.order;
}

const std::vector<Finding>& Series::GetFindings() const {
    return GetFound().findings;
}

}  // namespace korvane
