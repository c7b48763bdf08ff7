#include "SeriesFinder.h"

#include "../core/Error.h"
#include "../core/Threads.h"
#include "../dataset/Inputs.h"
#include "SeriesFindings.h"
#include "SeriesLoader.h"
#include "VolumeSets.h"

#include <algorithm>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <tuple>
#include <unordered_map>
#include <utility>

namespace korvane {

namespace {

// Orientations of one UID are told apart with a tolerance, which takes comparing with each of those met; a series with
// more than these is compared with the last ones only.
constexpr std::size_t kOrientationsCompared = 64;

constexpr std::size_t kAtOnce = 16;     // headers that a thread reads in one go
constexpr std::size_t kReadAhead = 16;  // of those

/// What one file gave: a header, or why there is none.
struct ReadFile {
    std::optional<ImageHeader> header;
    std::optional<Finding> failure;
};

ReadFile ReadHeader(const NamedFile& from, const Watch& watch) {
    ReadFile result;
    try {
        const DataSetFile file = ReadDataSetFile(from, kStopBeforePixelData, watch);
        if (file.dataSet != nullptr) result.header = ReadImageHeader(from, file);
    } catch (const Error& error) {
        if (error.GetKind() == ErrorKind::Stopped) throw;
        watch.StopIfAsked();
        result.failure = Finding{.kind = FindingKind::Unreadable, .files = {from.name}, .text = error.what()};
    }
    return result;
}

/// Files of one study share its texts; they mostly come one behind the other.
void ShareStudy(ImageHeader& header, const std::shared_ptr<const StudyTexts>& before) {
    if (before != nullptr && *before == *header.study) header.study = before;
}

void ReadHeaders(const std::vector<NamedFile>& files, unsigned jobs, const Watch& watch, FoundFiles& found) {
    TaskProgress progress(watch, "reading headers", static_cast<std::int64_t>(files.size()));
    std::vector<ReadFile> ring(kReadAhead * kAtOnce);
    const auto endOf = [&](std::size_t group) { return std::min((group + 1) * kAtOnce, files.size()); };
    const auto make = [&](std::size_t group) {
        std::shared_ptr<const StudyTexts> study;
        for (std::size_t i = group * kAtOnce; i < endOf(group); ++i) {
            watch.StopIfAsked();
            ReadFile& read = ring[i % ring.size()];
            read = ReadHeader(files[i], watch);
            if (!read.header) continue;
            ShareStudy(*read.header, study);
            study = read.header->study;
        }
    };
    const auto takeOne = [&](std::size_t i) {
        ReadFile& read = ring[i % ring.size()];
        if (read.header) {
            if (!found.files.empty()) ShareStudy(*read.header, found.files.back().study);
            found.files.push_back(std::move(*read.header));
        } else if (read.failure) {
            found.unreadable.push_back(std::move(*read.failure));
        } else {
            ++found.ignored;
            found.leftOut.push_back({files[i].name, "not a DICOM file"});
        }
        progress.Step();
    };
    const auto take = [&](std::size_t group) {
        for (std::size_t i = group * kAtOnce; i < endOf(group); ++i) takeOne(i);
    };
    ForEachInOrder(jobs, (files.size() + kAtOnce - 1) / kAtOnce, kReadAhead, watch, make, take);
}

/// The pixel data of a file as it would be loaded; null where that cannot be had.
std::unique_ptr<DICOMDataObject> ReadPixels(const ImageHeader& header, const Watch& watch) {
    if (header.truncated || !header.HoldsFrames()) return nullptr;
    try {
        if (header.encapsulated) CheckClaims(header);
    } catch (const Error&) {
        return nullptr;
    }
    DataSetFile file = ReadDataSetFile(header.GetFile(), kParseAll, watch);
    CodecManager codecs;
    codecs.SetStopQuestion(watch.GetStopQuestion());
    if (file.encapsulated && codecs.Decode(file.dataSet.get()) == 0) return nullptr;
    watch.StopIfAsked();
    return std::move(file.dataSet);
}

/// Whether two files with one SOP Instance UID hold the same image; what cannot be compared counts as the same.
bool HaveSamePixels(const ImageHeader& a, const ImageHeader& b, const Watch& watch) {
    if (a.form.kind != PixelForm::Kind::Integer || b.form.kind != PixelForm::Kind::Integer) return true;
    if (a.form.FrameBytes() != b.form.FrameBytes()) return false;
    // Lossy compression changes every value: that is the same image all the same.
    if (a.transferSyntax != b.transferSyntax &&
        (IsLossyTransferSyntax(a.transferSyntax) || IsLossyTransferSyntax(b.transferSyntax))) {
        return true;
    }
    const auto first = ReadPixels(a, watch);
    const auto second = ReadPixels(b, watch);
    const VR* const one = first != nullptr ? FindElement(*first, tags::PixelData) : nullptr;
    const VR* const other = second != nullptr ? FindElement(*second, tags::PixelData) : nullptr;
    // A pad behind the last frame is no pixel.
    const auto bytes = static_cast<std::size_t>(a.PixelBytes());
    return one == nullptr || other == nullptr || one->GetText().substr(0, bytes) == other->GetText().substr(0, bytes);
}

/// Files under other names that hold the same image. Of two the one that is whole and not compressed stays.
class CopyFinder {
public:
    CopyFinder(FoundFiles& found, const Watch& watch) : m_Found(found), m_Watch(watch) {}

    void DropCopies() {
        std::vector<ImageHeader>& files = m_Found.files;
        for (std::size_t i = 0; i < files.size(); ++i) {
            if (IsCopy(files[i])) continue;
            if (i != m_nKept) files[m_nKept] = std::move(files[i]);
            ++m_nKept;
        }
        files.erase(files.begin() + static_cast<std::ptrdiff_t>(m_nKept), files.end());
    }

private:
    using Identity = std::tuple<std::string, std::string, int, int, std::array<double, 3>>;

    static Identity IdentityOf(const ImageHeader& header) {
        return {header.sopInstance, header.seriesUid, header.instance, header.frames, header.places.front().position};
    }

    static int DamageOf(const ImageHeader& header) { return header.truncated ? 2 : (header.encapsulated ? 1 : 0); }

    /// What is no copy goes to place `m_nKept`. Nearly all files are the only ones with their UID.
    bool IsCopy(ImageHeader& header) {
        if (header.sopInstance.empty()) return false;
        const auto [seen, isNew] = m_Seen.try_emplace(header.sopInstance, m_nKept);
        if (isNew) return false;
        if (const std::size_t first = std::exchange(seen->second, kListed); first != kListed) {
            List(m_Found.files[first], first);
        }
        const auto same = m_Known.find(IdentityOf(header));
        if (same != m_Known.end()) {
            for (const std::size_t other : same->second) {
                if (HaveSamePixels(m_Found.files[other], header, m_Watch)) {
                    Drop(m_Found.files[other], header);
                    return true;
                }
            }
        }
        List(header, m_nKept);
        return false;
    }

    void List(ImageHeader& header, std::size_t place) {
        const auto [other, isNew] = m_First.try_emplace({header.seriesUid, header.sopInstance}, place);
        if (!isNew) m_Found.files[other->second].sharesUid = header.sharesUid = true;
        m_Known[IdentityOf(header)].push_back(place);
    }

    void Drop(ImageHeader& present, ImageHeader& header) {
        ++m_Found.copies;
        if (DamageOf(header) < DamageOf(present)) std::swap(present, header);
        m_Found.leftOut.push_back({header.path, "the same image as " + present.path});
    }

    static constexpr std::size_t kListed = std::numeric_limits<std::size_t>::max();

    FoundFiles& m_Found;
    Watch m_Watch;
    std::size_t m_nKept = 0;
    std::unordered_map<std::string, std::size_t> m_Seen;  // of each image's UID the first place, or that it is listed
    // Of those that are listed:
    std::map<std::pair<std::string, std::string>, std::size_t> m_First;  // of each UID within its series
    std::map<Identity, std::vector<std::size_t>> m_Known;
};

/// Groups slices as they come.
class Grouping {
public:
    explicit Grouping(FoundFiles& found) : m_Found(found) {}

    void Add(const SliceRef& slice) {
        const ImageHeader& header = m_Found.files[slice.file];
        const FramePlace& place = m_Found.PlaceOf(slice);
        const bool alone = header.frames > 1 && !(header.framesPlaced && place.hasPosition);
        PixelForm form = header.form;
        if (form.highBit + 1 == form.stored)
            form.stored = form.highBit = 0;  // how many of the bits may be set is no format
        const Key key{header.seriesUid, header.seriesNumber, form, alone ? slice.file + 1 : 0};
        std::vector<std::size_t>& candidates = m_Series[key];
        const std::size_t from = candidates.size() - std::min(candidates.size(), kOrientationsCompared);
        for (std::size_t i = from; i < candidates.size(); ++i) {
            FoundSeries& series = m_Found.series[candidates[i]];
            if (SameOrientation(m_Found.PlaceOf(series.slices.front()), place)) {
                series.slices.push_back(slice);
                return;
            }
        }
        candidates.push_back(m_Found.series.size());
        m_Found.series.push_back(FoundSeries{.slices = {slice}});
    }

    /// Notes in each series what its UID was split into.
    void CountSplits() {
        std::map<std::pair<std::string, int>, std::size_t> forms;
        std::map<std::string, std::set<int>> numbers;
        for (const auto& [key, series] : m_Series) {
            if (key.form.kind != PixelForm::Kind::None) numbers[key.uid].insert(key.number);
            if (key.alone == 0 && key.form.kind != PixelForm::Kind::None) ++forms[{key.uid, key.number}];
        }
        for (const auto& [key, members] : m_Series) {
            for (const std::size_t index : members) {
                m_Found.series[index].orientations = members.size();
                m_Found.series[index].numbers = std::max<std::size_t>(numbers[key.uid].size(), 1);
                m_Found.series[index].forms = std::max<std::size_t>(forms[{key.uid, key.number}], 1);
            }
        }
    }

private:
    struct Key {
        std::string uid;
        int number;  // some scanners give several runs one UID
        PixelForm form;
        std::size_t alone;  // a number of its own for what mixes with nothing, else 0

        auto operator<=>(const Key&) const = default;
    };

    FoundFiles& m_Found;
    std::map<Key, std::vector<std::size_t>> m_Series;
};

void SortSlices(const FoundFiles& found, std::vector<SliceRef>& slices) {
    const auto key = [&](const SliceRef& slice) {
        const ImageHeader& header = found.files[slice.file];
        return std::tie(header.instance, header.acquisition, header.sopInstance, header.path, slice.frame);
    };
    std::sort(slices.begin(), slices.end(), [&](const SliceRef& a, const SliceRef& b) { return key(a) < key(b); });
}

void GroupFiles(FoundFiles& found) {
    Grouping grouping(found);
    for (std::size_t i = 0; i < found.files.size(); ++i) {
        const ImageHeader& header = found.files[i];
        if (header.framesPlaced) {
            for (int frame = 0; frame < header.frames; ++frame) grouping.Add({i, frame});
        } else {
            grouping.Add({i, -1});  // several frames too: their number is a claim until the pixels are there
        }
    }
    grouping.CountSplits();
}

void StudySeries(const FoundFiles& found, FoundSeries& series) {
    SortSlices(found, series.slices);
    std::vector<FramePlace> places;
    places.reserve(series.slices.size());
    for (const SliceRef& slice : series.slices) places.push_back(found.PlaceOf(slice));
    series.geometry = StudyGeometry(places);
    if (found.AreTimesAlone(series)) series.geometry.volumes = series.slices.size();
    series.sets = FindVolumes(found, series);
    series.findings = StudyFindings(found, series);
}

}  // namespace

const FramePlace& FoundFiles::PlaceOf(const SliceRef& slice) const {
    const ImageHeader& header = files[slice.file];
    return header.framesPlaced && slice.frame >= 0 ? header.places[static_cast<std::size_t>(slice.frame)]
                                                   : header.places.front();
}

const FramePlace& FoundFiles::SizedPlaceOf(const std::vector<SliceRef>& slices) const {
    const auto sized =
        std::find_if(slices.begin(), slices.end(), [this](const SliceRef& slice) { return PlaceOf(slice).hasSpacing; });
    return PlaceOf(sized != slices.end() ? *sized : slices.front());
}

bool FoundFiles::AreTimesAlone(const FoundSeries& of) const {
    return of.geometry.stacks.empty() && FirstFile(of).framesAreTimes;
}

const FrameKeys& FoundFiles::KeysOf(const SliceRef& slice) const {
    const std::vector<FrameKeys>& keys = files[slice.file].keys;
    return keys.size() > 1 && slice.frame >= 0 ? keys[static_cast<std::size_t>(slice.frame)] : keys.front();
}

std::string FoundFiles::NameOf(const SliceRef& slice) const {
    const ImageHeader& header = files[slice.file];
    return slice.frame < 0 ? header.path : header.path + " frame " + std::to_string(slice.frame + 1);
}

FoundFiles FindSeries(const std::vector<std::string>& paths, const InputOptions& input, unsigned jobs,
                      const Watch& watch) {
    FoundFiles found;
    found.paths = paths;
    Inputs inputs = FindInputs(paths, input, watch);
    found.unpacked = inputs.unpacked;
    found.unreadable = std::move(inputs.unreadable);
    for (Inputs::PassedOver& entry : inputs.passedOver)
        found.leftOut.push_back({std::move(entry.name), std::move(entry.why)});
    found.ignored = found.leftOut.size();
    ReadHeaders(inputs.files, jobs, watch, found);
    CopyFinder(found, watch).DropCopies();
    GroupFiles(found);
    const auto key = [&](const FoundSeries& series) {
        const ImageHeader& header = found.FirstFile(series);
        return std::tie(header.seriesNumber, header.seriesUid, header.path);
    };
    ForEach(jobs, found.series.size(), watch, [&](std::size_t i) { StudySeries(found, found.series[i]); });
    std::sort(found.series.begin(), found.series.end(),
              [&](const FoundSeries& a, const FoundSeries& b) { return key(a) < key(b); });
    return found;
}

}  // namespace korvane
