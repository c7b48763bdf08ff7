#include "BidsNames.h"

#include "../core/Error.h"
#include "../core/SafeName.h"
#include "../study/Find.h"
#include "../study/FoundFiles.h"

#include <Korvane/Version.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>

namespace korvane {

namespace {

// Entries of `FrameKeys`.
constexpr std::size_t kKind = 0;
constexpr std::size_t kEchoTime = 9;  // milliseconds
constexpr std::size_t kBValue = 12;

constexpr double kPhase = 2;         // kinds of image
constexpr double kFirstDerived = 5;  // ADC and the like

bool IsLabel(const std::string& text) {
    return !text.empty() && text.size() <= 64 &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) { return c < 128 && std::isalnum(c) != 0; });
}

/// The words of what people called a series, in lower case.
std::vector<std::string> WordsOf(const Series& series) {
    std::vector<std::string> words(1);
    for (const unsigned char c : series.GetDescription() + " " + series.GetProtocol()) {
        if (c < 128 && (std::isalnum(c) != 0 || c == '*')) {
            words.back() += static_cast<char>(std::tolower(c));
        } else if (!words.back().empty()) {
            words.emplace_back();
        }
    }
    return words;
}

class Classifier {
public:
    Classifier(const Series& series, const Found& found) : m_Series(series), m_Found(found), m_Words(WordsOf(series)) {
        m_Set.insert(m_Words.begin(), m_Words.end());
    }

    BidsPlace Classify() {
        const ImageHeader& first = m_Series.GetFiles().FirstFile(m_Series.GetFound());
        if (first.common->modality != "MR") return Unclear("no MR images");
        if (Has({"localizer", "localiser", "scout", "survey", "aahscout"})) return Unclear("a localizer");
        if (KindOf(m_Series) >= kFirstDerived) return Unclear("derived images");
        if (IsWeighted()) return ClassifyDiffusion();
        if (IsFieldMap()) return ClassifyFieldMap();
        if (Has({"topup", "fmap", "sefm", "distortion"})) return ClassifyReversed();
        if (Has({"asl", "pasl", "pcasl", "pcasl3d"})) return Unclear("perfusion needs a context that no element tells");
        const bool isFunctional = Has({"bold", "fmri", "func", "rsfmri", "sbref"}) || !FindTask().empty();
        return isFunctional ? ClassifyFunctional() : ClassifyAnatomy();
    }

private:
    static BidsPlace Unclear(const std::string& why) { return {.why = why}; }

    bool Has(std::initializer_list<const char*> words) const {
        return std::any_of(words.begin(), words.end(), [this](const char* word) { return m_Set.contains(word); });
    }

    static FrameKeys FirstKeys(const Series& series) {
        return series.GetFiles().KeysOf(series.GetFound().slices.front());
    }
    static double KindOf(const Series& series) {
        const double kind = FirstKeys(series).values[kKind];
        return std::isnan(kind) ? 0 : kind;
    }

    bool IsWeighted() const {
        const auto& slices = m_Series.GetFound().slices;
        return std::any_of(slices.begin(), slices.end(), [this](const SliceRef& slice) {
            return m_Series.GetFiles().KeysOf(slice).values[kBValue] > 0;
        });
    }

    /// "_dir-AP", where the name has one such word.
    std::string FindWay() const {
        std::string way;
        for (const char* const one : {"ap", "pa", "lr", "rl", "si", "is"}) {
            if (!m_Set.contains(one)) continue;
            if (!way.empty()) return {};
            way = one;
        }
        if (way.empty()) return {};
        for (char& c : way) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        return "_dir-" + way;
    }

    /// The label behind "task"; "rest" of a resting state; "" for none.
    std::string FindTask() const {
        for (std::size_t i = 0; i < m_Words.size(); ++i) {
            const std::string& word = m_Words[i];
            if (word == "task" && i + 1 < m_Words.size() && IsLabel(m_Words[i + 1])) return m_Words[i + 1];
            if (word.starts_with("task") && IsLabel(word) && word.size() > 4) return word.substr(4);
        }
        return Has({"rest", "resting", "restingstate", "rsfmri"}) ? "rest" : "";
    }

    BidsPlace ClassifyDiffusion() const { return {.type = "dwi", .suffix = "dwi", .entities = FindWay()}; }

    BidsPlace ClassifyFunctional() const {
        const std::string task = FindTask();
        if (task.empty()) return Unclear("no task in its name");
        const bool isReference = Has({"sbref"});
        if (!isReference && m_Series.GetVolumes().size() < 2) return Unclear("one volume is no time series");
        BidsPlace place{.type = "func", .suffix = isReference ? "sbref" : "bold"};
        place.entities = "_task-" + task + FindWay();
        place.extras.taskName = task;
        return place;
    }

    static bool IsFieldMapName(const std::vector<std::string>& words) {
        for (std::size_t i = 0; i < words.size(); ++i) {
            if (words[i] == "fieldmap" || words[i] == "fieldmapping" || words[i] == "b0map") return true;
            if (words[i] == "field" && i + 1 < words.size() && words[i + 1].starts_with("map")) return true;
        }
        return false;
    }
    bool IsFieldMap() const { return IsFieldMapName(m_Words); }

    static std::set<double> EchoTimesOf(const Series& series) {
        std::set<double> times;
        for (const SliceRef& slice : series.GetFound().slices) {
            const double time = series.GetFiles().KeysOf(slice).values[kEchoTime];
            if (time > 0) times.insert(time / 1000);
        }
        return times;
    }

    BidsPlace ClassifyFieldMap() const {
        const std::set<double> own = EchoTimesOf(m_Series);
        if (KindOf(m_Series) != kPhase) return {.type = "fmap", .suffix = "magnitude"};
        if (own.size() > 1) return {.type = "fmap", .suffix = "phase"};
        // A difference has the later time alone; its magnitudes have both.
        std::set<double> both;
        for (const Series& other : m_Found.GetSeries()) {
            if (!other.HasPixels() || other.GetStudyUid() != m_Series.GetStudyUid()) continue;
            if (!IsFieldMapName(WordsOf(other)) || KindOf(other) == kPhase) continue;
            both.merge(EchoTimesOf(other));
        }
        if (both.size() != 2) return Unclear("a phase difference whose two echo times nothing tells");
        BidsPlace place{.type = "fmap", .suffix = "phasediff"};
        place.extras.echoTimes = {*both.begin(), *both.rbegin()};
        return place;
    }

    BidsPlace ClassifyReversed() const {
        if (FindWay().empty()) return Unclear("no direction of phase encoding in its name");
        return {.type = "fmap", .suffix = "epi", .entities = FindWay()};
    }

    BidsPlace ClassifyAnatomy() const {
        std::vector<std::string> contrasts;
        if (Has({"t1", "t1w", "mprage"})) contrasts.emplace_back("T1w");
        if (Has({"flair"})) {
            contrasts.emplace_back("FLAIR");
        } else if (Has({"t2", "t2w"})) {
            contrasts.emplace_back("T2w");
        }
        if (Has({"t2star", "t2starw", "t2*"})) contrasts.emplace_back("T2starw");
        if (Has({"pd", "pdw"})) contrasts.emplace_back("PDw");
        if (contrasts.empty()) return Unclear("its name says nothing that is clear");
        if (contrasts.size() > 1) return Unclear("its name says several contrasts");
        if (Has({"map", "maps", "mpr", "mip"})) return Unclear("derived images");
        return {.type = "anat", .suffix = contrasts.front()};
    }

    const Series& m_Series;
    const Found& m_Found;
    std::vector<std::string> m_Words;
    std::set<std::string> m_Set;
};

/// What an ending of `GroupVolumes` says; nothing where BIDS has no word for it.
struct Ending {
    std::string echo;  // its number
    bool isPhase = false;
};

std::optional<Ending> ReadEnding(const std::string& text) {
    Ending ending;
    for (std::size_t begin = 0; begin < text.size();) {
        if (text[begin] != '_') return std::nullopt;
        const std::size_t end = std::min(text.find('_', begin + 1), text.size());
        const std::string word = text.substr(begin + 1, end - begin - 1);
        if (word == "ph" && !ending.isPhase) {
            ending.isPhase = true;
        } else if (word.size() > 1 && word[0] == 'e' && IsLabel(word) && ending.echo.empty() &&
                   word.find_first_not_of("0123456789", 1) == std::string::npos) {
            ending.echo = word.substr(1);
        } else {
            return std::nullopt;
        }
        begin = end;
    }
    return ending;
}

/// With the number of its echo, or the first where there is one.
std::string NumberedSuffix(const std::string& suffix, const Ending& ending) {
    return (ending.isPhase ? "phase" : suffix) + (ending.echo.empty() ? "1" : ending.echo);
}

}  // namespace

BidsNames::BidsNames(const std::string& subject, const std::string& session) {
    for (const std::string& label : {subject, session.empty() ? subject : session}) {
        if (IsLabel(label)) continue;
        throw Error(ErrorKind::WrongArgument,
                    "subjects and sessions of a BIDS tree have letters and digits alone, not \"" + label + "\"");
    }
    m_Folder = "sub-" + subject;
    m_Stem = m_Folder;
    if (session.empty()) return;
    m_Folder += "/ses-" + session;
    m_Stem += "_ses-" + session;
}

std::vector<BidsPlace> BidsNames::FindPlaces(const Found& found) const {
    std::vector<BidsPlace> places;
    std::map<std::string, std::vector<std::size_t>> same;
    for (const Series& series : found.GetSeries()) {
        places.push_back(series.HasPixels() ? Classifier(series, found).Classify() : BidsPlace{.why = "no image"});
        const BidsPlace& place = places.back();
        if (!place.type.empty()) same[FoldName(place.entities + "_" + place.suffix)].push_back(places.size() - 1);
    }
    for (const auto& [name, runs] : same) {
        for (std::size_t i = 0; i < runs.size() && runs.size() > 1; ++i)
            places[runs[i]].entities += "_run-" + std::to_string(i + 1);
    }
    return places;
}

std::string BidsNames::NameOf(const BidsPlace& place, const std::string& ending, const std::string& plain) const {
    const std::optional<Ending> told = ReadEnding(ending);
    if (place.type.empty() || !told) return "sourcedata/" + m_Folder + "/" + plain + ending;
    std::string name = m_Folder + "/" + place.type + "/" + m_Stem + place.entities;
    const std::string& suffix = place.suffix;
    if (suffix == "magnitude" || suffix == "phase") return name + "_" + NumberedSuffix(suffix, *told);
    if (!told->echo.empty()) name += "_echo-" + told->echo;
    if (told->isPhase) name += "_part-phase";
    return name + "_" + suffix;
}

std::string BidsNames::DescribeDataset() {
    nlohmann::ordered_json json;
    json["Name"] = "Converted from DICOM";
    json["BIDSVersion"] = "1.10.0";
    json["DatasetType"] = "raw";
    json["GeneratedBy"] = {{{"Name", "korvane"}, {"Version", KORVANE_VERSION}}};
    return json.dump(1) + "\n";
}

}  // namespace korvane
