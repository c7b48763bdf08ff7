#include "SeriesVolume.h"

#include "../core/HostError.h"
#include "../core/Progress.h"
#include "SeriesText.h"

#include <limits>

namespace korvane {

namespace {

FoundFiles Find(const std::vector<std::string>& paths) {
    FoundFiles found = FindSeries(paths);
    if (!found.unreadable.empty()) throw HostError(found.unreadable.front());
    if (found.files.empty()) throw HostError(paths.front() + ": no DICOM files");
    return found;
}

/// The library's range is a starting value; the true one is what Update finds from an empty one.
void SetTrueRange(CVolume& volume) {
    volume.SetMin(std::numeric_limits<long long>::max());
    volume.SetMax(std::numeric_limits<long long>::min());
    volume.Update();
}

}  // namespace

SeriesVolume::SeriesVolume(const SeriesChoice& choice)
    : m_Found(Find(choice.paths)), m_pSeries(&ChooseSeries(m_Found, choice.series)), m_nVolume(choice.volume) {
    CheckAssembly(m_Found, *m_pSeries);
    m_Sets = FindVolumes(m_Found, *m_pSeries);
    const auto number = static_cast<std::size_t>(GetVolumeNumber());
    if (number > m_Sets.volumes.size()) {
        throw UsageError("there is no volume " + std::to_string(number) + ": the series makes " +
                         std::to_string(m_Sets.volumes.size()));
    }
    m_Slices = m_Sets.volumes[number - 1];
}

std::size_t SeriesVolume::GetSliceCount() const {
    return m_pSeries->geometry.volumes > 1 ? m_Slices.size() : CountImages(m_Found, *m_pSeries);
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
    if (m_Sets.volumes.size() > 1 && !IsVolumeChosen()) Warn("taking volume 1; choose with --volume");
    Load(m_Slices);
}

void SeriesVolume::TellWarnings() const {
    for (const std::string& warning : m_pSeries->warnings) Warn("warning: " + warning);
}

void SeriesVolume::Load(const std::vector<SliceRef>& slices) {
    m_Assembled = CDicomVolume();  // its memory is wanted for the next one
    m_Loaded.emplace(m_Found, slices);
    m_Slices = slices;
    Assemble();
}

void SeriesVolume::Assemble() {
    std::vector<DICOMDataObject*>& list = m_Loaded->GetDataSets();
    m_Assembled.SetIODList(list, nullptr);
    int dim[4];
    GetVolume().GetDimensions(dim);
    if (static_cast<std::size_t>(dim[2]) != list.size()) throw HostError("the slices do not make a volume");
    ProgressBar progress("assembling", dim[2]);
    m_Assembled.SetCallback(&progress);
    m_Assembled.Alloc(true);
    m_Assembled.SetCallback(nullptr);
    StopIfInterrupted();
    SetTrueRange(GetVolume());
}

}  // namespace korvane
