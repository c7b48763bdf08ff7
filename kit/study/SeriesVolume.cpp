#include "SeriesVolume.h"

#include "../core/Error.h"
#include "SeriesText.h"

#include <limits>

namespace korvane {

namespace {

/// The library's range is a starting value; the true one is what Update finds from an empty one.
void SetTrueRange(CVolume& volume) {
    volume.SetMin(std::numeric_limits<long long>::max());
    volume.SetMax(std::numeric_limits<long long>::min());
    volume.Update();
}

}  // namespace

SeriesVolume::SeriesVolume(const SeriesChoice& choice)
    : SeriesVolume(Find(choice.paths, {choice.jobs, choice.watcher}).Choose(choice.series), choice.volume,
                   choice.watcher) {}

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

void SeriesVolume::Load() {
    TellWarnings();
    if (GetSets().volumes.size() > 1 && !IsVolumeChosen()) {
        m_Watch.Tell({.kind = FindingKind::FirstOfSeveral,
                      .count = GetSets().volumes.size(),
                      .text = "taking volume 1; choose with --volume"});
    }
    Load(m_Slices);
}

void SeriesVolume::TellWarnings() const {
    for (const Finding& finding : GetSeries().findings) m_Watch.Tell(finding);
}

void SeriesVolume::Load(const std::vector<SliceRef>& slices) {
    m_Assembled = CDicomVolume();  // its memory is wanted for the next one
    m_Loaded.emplace(GetFound(), slices, m_Watch);
    TakeSlices(slices);
    Assemble();
}

std::vector<FramePlace> SeriesVolume::GetPlanePlaces() const {
    std::vector<FramePlace> places;
    for (const int index : m_Assembled.m_SliceToIndex) {
        places.push_back(m_Loaded->GetPlaces()[static_cast<std::size_t>(index)]);
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

void SeriesVolume::Assemble() {
    std::vector<DICOMDataObject*>& list = m_Loaded->GetDataSets();
    m_Assembled.SetIODList(list, nullptr);
    int dim[4];
    GetVolume().GetDimensions(dim);
    if (static_cast<std::size_t>(dim[2]) != list.size()) {
        throw Error(ErrorKind::Irregular, "the slices do not make a volume");
    }
    SetTrueSpacing();
    TaskProgress progress(m_Watch, "assembling", dim[2]);
    m_Assembled.SetCallback(&progress);
    m_Assembled.Alloc(true);
    m_Assembled.SetCallback(nullptr);
    m_Watch.StopIfAsked();
    SetTrueRange(GetVolume());
}

}  // namespace korvane
