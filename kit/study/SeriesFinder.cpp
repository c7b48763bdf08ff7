#include "SeriesFinder.h"

#include "../core/Error.h"
#include "../core/Threads.h"
#include "../core/WorkGroups.h"
#include "../dataset/Inputs.h"
#include "SeriesFindings.h"
#include "SeriesLoader.h"
#include "SharedHeaders.h"
#include "VolumeSets.h"

#include <algorithm>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <tuple>
#include <unordered_set>
#include <utility>

namespace korvane {

namespace {

// Orientations of one UID are told apart with a tolerance, which takes comparing with each of those met; a series with
// more than these is compared with the last ones only.
constexpr std::size_t kOrientationsCompared = 64;

constexpr std::size_t kMostAtOnce = 64;  // headers that a thread reads in one go

/// What one file gave: a header, or why there is none.
struct ReadFile {
    std::optional<ImageHeader> header;
    std::optional<Finding> failure;
};

ReadFile ReadHeader(NamedFile& from, SharedHeaders& shared, const Watch& watch) {
    ReadFile result;
    try {
        const DataSetFile file = ReadDataSetFile(from, kStopBeforePixelData, watch);
        if (file.dataSet == nullptr) return result;
        result.header = ReadImageHeader(from.place, file);
        result.header->SetFile(std::move(from));
        shared.Share(*result.header);
    } catch (const Error& error) {
        if (error.GetKind() == ErrorKind::Stopped) throw;
        watch.StopIfAsked();
        result.failure = Finding{.kind = FindingKind::Unreadable, .files = {from.name}, .text = error.what()};
    }
    return result;
}

/// Reads headers of files on several threads, and takes them in the files' order.
class HeaderReading {
public:
    /// Names are taken out of `files` as they are read.
    HeaderReading(std::vector<NamedFile>& files, unsigned jobs, const Watch& watch, FoundFiles& found)
        : m_Files(files), m_Found(found), m_Watch(watch), m_nJobs(jobs), m_Groups(files.size(), jobs, kMostAtOnce),
          m_nAhead(2 * std::size_t{CountJobs(jobs)}), m_Ring(m_nAhead * m_Groups.GetSize()) {}

    void Run() {
        TaskProgress progress(m_Watch, "reading headers", static_cast<std::int64_t>(m_Files.size()));
        m_Found.files.reserve(m_Files.size());
        const auto take = [&](std::size_t group) {
            for (std::size_t i = m_Groups.BeginOf(group); i < m_Groups.EndOf(group); ++i) {
                TakeOne(i);
                progress.Step();
            }
        };
        ForEachInOrder(
            m_nJobs, m_Groups.GetCount(), m_nAhead, m_Watch, [&](std::size_t group) { Read(group); }, take);
    }

private:
    void Read(std::size_t group) {
        std::unique_ptr<SharedHeaders> shared = BorrowShared();
        for (std::size_t i = m_Groups.BeginOf(group); i < m_Groups.EndOf(group); ++i) {
            m_Watch.StopIfAsked();
            m_Ring[i % m_Ring.size()] = ReadHeader(m_Files[i], *shared, m_Watch);
        }
        const std::lock_guard lock(m_Mutex);
        m_Shared.push_back(std::move(shared));
    }

    /// As many of them come to be as threads work.
    std::unique_ptr<SharedHeaders> BorrowShared() {
        const std::lock_guard lock(m_Mutex);
        if (m_Shared.empty()) return std::make_unique<SharedHeaders>();
        std::unique_ptr<SharedHeaders> shared = std::move(m_Shared.back());
        m_Shared.pop_back();
        return shared;
    }

    void TakeOne(std::size_t i) {
        ReadFile& read = m_Ring[i % m_Ring.size()];
        if (read.header) {
            m_Found.files.push_back(std::move(*read.header));
        } else if (read.failure) {
            m_Found.unreadable.push_back(std::move(*read.failure));
        } else {
            ++m_Found.ignored;
            m_Found.leftOut.push_back({std::move(m_Files[i].name), "not a DICOM file"});
        }
        const NamedFile done = std::move(m_Files[i]);  // its memory is given back
    }

    std::vector<NamedFile>& m_Files;
    FoundFiles& m_Found;
    Watch m_Watch;
    unsigned m_nJobs;
    WorkGroups m_Groups;
    std::size_t m_nAhead;  // groups
    std::vector<ReadFile> m_Ring;
    std::mutex m_Mutex;
    std::vector<std::unique_ptr<SharedHeaders>> m_Shared;
};

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
    if (a.common->transferSyntax != b.common->transferSyntax &&
        (IsLossyTransferSyntax(a.common->transferSyntax) || IsLossyTransferSyntax(b.common->transferSyntax))) {
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
    CopyFinder(FoundFiles& found, const Watch& watch)
        : m_Found(found), m_Watch(watch), m_Seen(found.files.size(), ByUid{found.files}, ByUid{found.files}) {}

    void DropCopies() {
        std::vector<ImageHeader>& files = m_Found.files;
        for (std::size_t i = 0; i < files.size(); ++i) {
            if (i != m_nKept) files[m_nKept] = std::move(files[i]);
            if (!IsCopy(m_nKept)) ++m_nKept;
        }
        files.erase(files.begin() + static_cast<std::ptrdiff_t>(m_nKept), files.end());
    }

private:
    using Identity = std::tuple<std::string, std::string, int, int, std::array<double, 3>>;

    static Identity IdentityOf(const ImageHeader& header) {
        return {header.sopInstance, header.common->seriesUid, header.instance, header.frames,
                header.places.GetPosition(0)};
    }

    static int DamageOf(const ImageHeader& header) { return header.truncated ? 2 : (header.encapsulated ? 1 : 0); }

    /// Nearly all files are the only ones with their UID.
    bool IsCopy(std::size_t place) {
        ImageHeader& header = m_Found.files[place];
        if (header.sopInstance.empty()) return false;
        const auto [first, isNew] = m_Seen.insert(place);
        if (isNew) return false;
        if (m_Listed.insert(*first).second) List(m_Found.files[*first], *first);
        const auto same = m_Known.find(IdentityOf(header));
        if (same != m_Known.end()) {
            for (const std::size_t other : same->second) {
                if (HaveSamePixels(m_Found.files[other], header, m_Watch)) {
                    Drop(m_Found.files[other], header);
                    return true;
                }
            }
        }
        List(header, place);
        return false;
    }

    void List(ImageHeader& header, std::size_t place) {
        const auto [other, isNew] = m_First.try_emplace({header.common->seriesUid, header.sopInstance}, place);
        if (!isNew) m_Found.files[other->second].sharesUid = header.sharesUid = true;
        m_Known[IdentityOf(header)].push_back(place);
    }

    void Drop(ImageHeader& present, ImageHeader& header) {
        ++m_Found.copies;
        if (DamageOf(header) < DamageOf(present)) std::swap(present, header);
        m_Found.leftOut.push_back({header.path, "the same image as " + present.path});
    }

    /// Places are known by the UIDs of the images there.
    struct ByUid {
        const std::vector<ImageHeader>& files;
        std::size_t operator()(std::size_t place) const {
            return std::hash<std::string_view>()(files[place].sopInstance);
        }
        bool operator()(std::size_t a, std::size_t b) const { return files[a].sopInstance == files[b].sopInstance; }
    };

    FoundFiles& m_Found;
    Watch m_Watch;
    std::size_t m_nKept = 0;
    std::unordered_set<std::size_t, ByUid, ByUid> m_Seen;  // of each UID the first place
    std::set<std::size_t> m_Listed;                        // those of them that are not the only ones
    // Of those that are listed:
    std::map<std::pair<std::string, std::string>, std::size_t> m_First;  // of each UID within its series
    std::map<Identity, std::vector<std::size_t>> m_Known;
};

/// Groups slices as they come.
class Grouping {
public:
    explicit Grouping(FoundFiles& found) : m_Found(found) {}

    void Add(const SliceRef& slice) {
        const FramePlace& plane = m_Found.PlaneOf(slice);
        std::vector<std::size_t>& candidates = CandidatesFor(slice);
        const std::size_t from = candidates.size() - std::min(candidates.size(), kOrientationsCompared);
        for (std::size_t i = from; i < candidates.size(); ++i) {
            FoundSeries& series = m_Found.series[candidates[i]];
            if (SameOrientation(m_Found.PlaneOf(series.slices.front()), plane)) {
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
    /// The series of the slice's UID, number and form.
    std::vector<std::size_t>& CandidatesFor(const SliceRef& slice) {
        const ImageHeader& header = m_Found.files[slice.file];
        const bool alone = header.frames > 1 && !(header.framesPlaced && m_Found.PlaneOf(slice).hasPosition);
        // Most files have what the one before them has.
        if (m_pLast != nullptr && !alone && m_pLast->common == header.common && m_pLast->form == header.form)
            return *m_pCandidates;
        PixelForm form = header.form;
        if (form.highBit + 1 == form.stored)
            form.stored = form.highBit = 0;  // how many of the bits may be set is no format
        m_pCandidates =
            &m_Series[{header.common->seriesUid, header.common->seriesNumber, form, alone ? slice.file + 1 : 0}];
        m_pLast = alone ? nullptr : &header;
        return *m_pCandidates;
    }

    struct Key {
        std::string uid;
        int number;  // some scanners give several runs one UID
        PixelForm form;
        std::size_t alone;  // a number of its own for what mixes with nothing, else 0

        auto operator<=>(const Key&) const = default;
    };

    FoundFiles& m_Found;
    std::map<Key, std::vector<std::size_t>> m_Series;
    const ImageHeader* m_pLast = nullptr;  // what `m_pCandidates` were found for
    std::vector<std::size_t>* m_pCandidates = nullptr;
};

void SortSlices(const FoundFiles& found, std::vector<SliceRef>& slices) {
    const auto key = [&](const SliceRef& slice) {
        const ImageHeader& header = found.files[slice.file];
        return std::tie(header.instance, header.acquisition, header.sopInstance, header.path, slice.file, slice.frame);
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
    series.geometry = found.GeometryOf(series.slices);
    if (found.AreTimesAlone(series)) series.geometry.volumes = series.slices.size();
    series.sets = FindVolumes(found, series);
    series.findings = StudyFindings(found, series);
}

}  // namespace

namespace {

std::size_t EntryOf(const ImageHeader& header, const SliceRef& slice) {
    return header.framesPlaced && slice.frame >= 0 ? static_cast<std::size_t>(slice.frame) : 0;
}

}  // namespace

FramePlace FoundFiles::PlaceOf(const SliceRef& slice) const {
    return files[slice.file].places.Get(EntryOf(files[slice.file], slice));
}

const FramePlace& FoundFiles::PlaneOf(const SliceRef& slice) const {
    return files[slice.file].places.GetPlane(EntryOf(files[slice.file], slice));
}

const std::array<double, 3>& FoundFiles::PositionOf(const SliceRef& slice) const {
    return files[slice.file].places.GetPosition(EntryOf(files[slice.file], slice));
}

FramePlace FoundFiles::SizedPlaceOf(const std::vector<SliceRef>& slices) const {
    const auto sized =
        std::find_if(slices.begin(), slices.end(), [this](const SliceRef& slice) { return PlaneOf(slice).hasSpacing; });
    return PlaceOf(sized != slices.end() ? *sized : slices.front());
}

SeriesGeometry FoundFiles::GeometryOf(const std::vector<SliceRef>& slices) const {
    if (slices.empty()) return {};
    std::vector<std::optional<std::array<double, 3>>> positions;
    positions.reserve(slices.size());
    for (const SliceRef& slice : slices) {
        positions.emplace_back();
        if (PlaneOf(slice).hasPosition) positions.back() = PositionOf(slice);
    }
    return StudyGeometry(PlaneOf(slices.front()).orientation, positions);
}

bool FoundFiles::AreTimesAlone(const FoundSeries& of) const {
    return of.geometry.stacks.empty() && FirstFile(of).framesAreTimes;
}

FrameKeys FoundFiles::KeysOf(const SliceRef& slice) const {
    const FrameKeyList& keys = files[slice.file].keys;
    return keys.Get(keys.GetCount() > 1 && slice.frame >= 0 ? static_cast<std::size_t>(slice.frame) : 0);
}

std::string FoundFiles::NameOf(const SliceRef& slice) const {
    const ImageHeader& header = files[slice.file];
    return slice.frame < 0 ? header.path : header.path + " frame " + std::to_string(slice.frame + 1);
}

FoundFiles FindSeries(const std::vector<std::string>& paths, const InputOptions& input, unsigned jobs,
                      const Watch& watch) {
    FoundFiles found;
    found.paths = paths;
    Inputs inputs = FindInputs(paths, input, jobs, watch);
    found.unpacked = inputs.unpacked;
    found.unreadable = std::move(inputs.unreadable);
    for (Inputs::PassedOver& entry : inputs.passedOver)
        found.leftOut.push_back({std::move(entry.name), std::move(entry.why)});
    found.ignored = found.leftOut.size();
    HeaderReading(inputs.files, jobs, watch, found).Run();
    inputs.files = {};
    CopyFinder(found, watch).DropCopies();
    GroupFiles(found);
    const auto key = [&](const FoundSeries& series) {
        const ImageHeader& header = found.FirstFile(series);
        return std::tie(header.common->seriesNumber, header.common->seriesUid, header.path);
    };
    ForEach(jobs, found.series.size(), watch, [&](std::size_t i) { StudySeries(found, found.series[i]); });
    std::sort(found.series.begin(), found.series.end(),
              [&](const FoundSeries& a, const FoundSeries& b) { return key(a) < key(b); });
    return found;
}

}  // namespace korvane
