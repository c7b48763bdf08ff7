#include "SeriesVolume.h"

#include "HostError.h"
#include "Progress.h"
#include "SeriesText.h"

#include <limits>

namespace {

Findings Find(const std::vector<std::string>& paths) {
    Findings findings = FindSeries(paths);
    if (!findings.unreadable.empty()) throw HostError(findings.unreadable.front());
    if (findings.files.empty()) throw HostError(paths.front() + ": no DICOM files");
    return findings;
}

/// The library's range is a starting value; the true one is what Update finds from an empty one.
void SetTrueRange(CVolume& volume) {
    volume.SetMin(std::numeric_limits<long long>::max());
    volume.SetMax(std::numeric_limits<long long>::min());
    volume.Update();
}

}  // namespace

SeriesVolume::SeriesVolume(const SeriesChoice& choice)
    : m_Findings(Find(choice.paths)), m_pSeries(&ChooseSeries(m_Findings, choice.series)),
      m_bVolumeChosen(choice.volume != 0) {
    CheckAssembly(m_Findings, *m_pSeries);
    m_Slices = ChooseVolume(*m_pSeries, m_bVolumeChosen ? choice.volume : 1);
}

std::size_t SeriesVolume::GetSliceCount() const {
    return m_pSeries->geometry.volumes > 1 ? m_Slices.size() : CountImages(m_Findings, *m_pSeries);
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
    for (const std::string& warning : m_pSeries->warnings) Warn("warning: " + warning);
    if (m_pSeries->geometry.volumes > 1 && !m_bVolumeChosen) Warn("taking volume 1; choose with --volume");
    m_Loaded.emplace(m_Findings, m_Slices);
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
