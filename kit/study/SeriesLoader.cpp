#include "SeriesLoader.h"

#include "../core/HostError.h"
#include "../core/Progress.h"
#include "FrameGroups.h"
#include "SeriesText.h"

#include <algorithm>

namespace korvane {

namespace {

constexpr Tag kNumberOfFrames = MakeTag(0x0028, 0x0008);
constexpr Tag kPixelData = MakeTag(0x7FE0, 0x0010);

[[noreturn]] void AskForSeries(const FoundFiles& found, const std::string& why) {
    throw UsageError(why + "; choose with --series:", ListSeries(found));
}

[[noreturn]] void Refuse(const ImageHeader& header, const std::string& why) {
    throw HostError(header.path + ": " + why);
}

void CheckPixels(const ImageHeader& header) {
    const PixelForm& form = header.form;
    if (form.kind == PixelForm::Kind::None) Refuse(header, "no pixel data");
    if (form.kind != PixelForm::Kind::Integer) Refuse(header, "floating-point pixel data");
    if (header.encapsulated && !CodecManager::CanDecode(header.transferSyntax)) {
        Refuse(header, "compressed pixel data, no codec for " + DescribeSyntax(header.transferSyntax));
    }
    if (form.rows == 0 || form.columns == 0 || form.allocated == 0 || form.stored == 0) {
        Refuse(header, "an image without rows, columns or bits");
    }
    if (form.stored > form.allocated || form.highBit >= form.allocated || form.highBit + 1 < form.stored) {
        Refuse(header, "bits stored " + std::to_string(form.stored) + " and high bit " + std::to_string(form.highBit) +
                           " do not fit into " + std::to_string(form.allocated) + " bits");
    }
    if (header.encapsulated) return;  // decoding tells
    const std::uint64_t present = header.FramesPresent();
    if (present < static_cast<std::uint64_t>(header.frames)) {
        const std::uint64_t needed = form.FrameBytes() * static_cast<std::uint64_t>(header.frames);
        Refuse(header, "pixel data ends early: " + std::to_string(header.pixelsPresent) + " of " +
                           std::to_string(needed) + " bytes" +
                           (header.frames > 1 ? " for " + std::to_string(header.frames) + " frames" : ""));
    }
}

}  // namespace

const FoundSeries& ChooseSeries(const FoundFiles& found, const std::string& choice) {
    std::vector<const FoundSeries*> matches;
    for (std::size_t i = 0; i < found.series.size(); ++i) {
        const FoundSeries& series = found.series[i];
        const ImageHeader& first = found.FirstFile(series);
        const bool chosen = choice.empty() ? first.form.kind != PixelForm::Kind::None
                                           : choice == std::to_string(i + 1) || choice == first.seriesUid;
        if (chosen) matches.push_back(&series);
    }
    if (matches.size() == 1) return *matches.front();
    if (matches.empty() && !choice.empty()) AskForSeries(found, "no series " + choice);
    if (found.series.size() == 1) return found.series.front();  // refused further on, with its reason
    if (matches.empty()) throw HostError("none of the series found has pixels");
    const std::string count = std::to_string(matches.size());
    AskForSeries(found, count + (choice.empty() ? " series found" : " series have this UID"));
}

void CheckAssembly(const FoundFiles& found, const FoundSeries& series) {
    for (const SliceRef& slice : series.slices) CheckPixels(found.files[slice.file]);
    const SeriesGeometry& geometry = series.geometry;
    if (!geometry.unplaced.empty() && !geometry.stacks.empty()) {
        throw HostError(found.NameOf(series.slices[geometry.unplaced.front()]) +
                        ": no Image Position (Patient), which other slices of the series have");
    }
}

LoadedSlices::LoadedSlices(const FoundFiles& found, const std::vector<SliceRef>& slices) {
    ProgressBar progress("reading", static_cast<long>(slices.size()));
    for (std::size_t i = 0; i < slices.size();) {
        const ImageHeader& header = found.files[slices[i].file];
        std::vector<int> frames;
        if (slices[i].frame < 0 && header.frames > 1) {
            for (int frame = 0; frame < header.frames; ++frame) frames.push_back(frame);
        }
        std::size_t next = i;
        for (; next < slices.size() && slices[next].file == slices[i].file; ++next) {
            if (slices[next].frame >= 0) frames.push_back(slices[next].frame);
            progress.Step();
        }
        LoadFile(header, frames);
        i = next;
    }
    PlaceInOrder(found, slices.front());
}

/// Slices with an orientation and no positions: the library would lay them out along the patient's z axis, whatever way
/// they face, so they get positions along their normal.
void LoadedSlices::PlaceInOrder(const FoundFiles& found, const SliceRef& first) {
    const ImageHeader& header = found.files[first.file];
    const FramePlace& place = found.PlaceOf(first);
    const bool oneForAll = first.frame < 0 && header.frames > 1;
    if (!place.hasOrientation || (place.hasPosition && !oneForAll)) return;
    const std::array<double, 3> normal = StudyGeometry({place}).normal;
    const double known = header.sliceSpacing != 0 ? header.sliceSpacing : header.sliceThickness;
    const double distance = known != 0 ? known : place.spacing[0];
    for (std::size_t i = 0; i < m_List.size(); ++i) {
        std::array<double, 3> position = place.position;
        for (std::size_t axis = 0; axis < 3; ++axis) position[axis] += distance * static_cast<double>(i) * normal[axis];
        PutReals(*m_List[i], MakeTag(0x0020, 0x0032), position.data(), position.size());
    }
}

void LoadedSlices::Decode(const ImageHeader& header, DataSetFile& file) {
    if (!file.complete) Refuse(header, "the data ends early or is damaged");
    if (m_Codecs.Decode(file.dataSet.get()) != 0) return;
    StopIfInterrupted();
    Refuse(header, "cannot decode " + DescribeSyntax(header.transferSyntax) + ": " + m_Codecs.GetError());
}

void LoadedSlices::LoadFile(const ImageHeader& header, const std::vector<int>& frames) {
    DataSetFile file = ReadDataSetFile(header.path, kParseAll);
    if (file.encapsulated) Decode(header, file);
    const VR* const pixels = file.dataSet != nullptr ? FindElement(*file.dataSet, kPixelData) : nullptr;
    const std::uint64_t needed = header.form.FrameBytes() * static_cast<std::uint64_t>(header.frames);
    if (pixels == nullptr || pixels->m_pData == nullptr || pixels->m_Length < needed) {
        Refuse(header, "the pixel data cannot be read");
    }
    m_Files.push_back(std::move(file.dataSet));
    if (frames.empty()) {
        // Many writers put "1" here, which would make the first slice a multi-frame object.
        DropElement(*m_Files.back(), kNumberOfFrames);
        m_List.push_back(m_Files.back().get());
        return;
    }
    for (auto& frame : SplitFrames(*m_Files.back(), header, frames)) {
        m_List.push_back(frame.get());
        m_Frames.push_back(std::move(frame));
    }
}

}  // namespace korvane
