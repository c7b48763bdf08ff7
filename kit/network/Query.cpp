#include "Query.h"

#include "../core/Error.h"
#include "../dataset/Toolkit.h"
#include "QueryJob.h"
#include "QueryUser.h"
#include "WebQuery.h"
#include "WebService.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

namespace korvane {

namespace {

constexpr const char* kWords[] = {"patient", "study", "series", "image", "worklist"};
constexpr const char* kLevelNames[] = {"PATIENT", "STUDY", "SERIES", "IMAGE"};  // (0008,0052)
constexpr int kWorklist = static_cast<int>(QueryLevel::Worklist);

// Attributes of each level that are asked for beside the caller's keys.
const std::vector<std::string> kUsual[] = {
    {"PatientName", "PatientID", "PatientBirthDate", "PatientSex"},
    {"PatientName", "PatientID", "StudyDate", "StudyTime", "AccessionNumber", "ModalitiesInStudy", "StudyDescription",
     "StudyInstanceUID"},
    {"Modality", "SeriesNumber", "SeriesDescription", "SeriesInstanceUID"},
    {"InstanceNumber", "SOPClassUID", "SOPInstanceUID"},
    {"PatientName", "PatientID", "AccessionNumber", "RequestedProcedureID", "RequestedProcedureDescription",
     "StudyInstanceUID", "ScheduledProcedureStepSequence[0].Modality",
     "ScheduledProcedureStepSequence[0].ScheduledStationAETitle",
     "ScheduledProcedureStepSequence[0].ScheduledProcedureStepStartDate",
     "ScheduledProcedureStepSequence[0].ScheduledProcedureStepStartTime",
     "ScheduledProcedureStepSequence[0].ScheduledProcedureStepDescription",
     "ScheduledProcedureStepSequence[0].ScheduledProcedureStepID"},
};

// The levels of further attributes. One that is named neither here nor above belongs to the level that is asked for.
struct LevelKeys {
    int level;
    std::vector<const char*> keywords;
};
const LevelKeys kBelongs[] = {
    {0, {"PatientName", "PatientID", "PatientBirthDate", "PatientSex", "IssuerOfPatientID", "OtherPatientNames"}},
    {1,
     {"StudyInstanceUID", "StudyDate", "StudyTime", "AccessionNumber", "StudyID", "StudyDescription",
      "ModalitiesInStudy", "ReferringPhysicianName", "PatientAge", "PatientSize", "PatientWeight",
      "NumberOfStudyRelatedSeries", "NumberOfStudyRelatedInstances"}},
    {2,
     {"SeriesInstanceUID", "SeriesNumber", "SeriesDescription", "SeriesDate", "SeriesTime", "Modality",
      "BodyPartExamined", "ProtocolName", "NumberOfSeriesRelatedInstances"}},
    {3, {"SOPInstanceUID", "SOPClassUID", "InstanceNumber"}},
};

}  // namespace

const char* WordOf(QueryLevel level) {
    return kWords[static_cast<int>(level)];
}

QueryLevel QueryLevelOf(const std::string& word) {
    const auto* const found = std::find(std::begin(kWords), std::end(kWords), word);
    if (found != std::end(kWords)) return static_cast<QueryLevel>(found - std::begin(kWords));
    throw Error(ErrorKind::WrongArgument, word + ": a level is patient, study, series, image or worklist");
}

QueryKey QueryKeyOf(const std::string& text) {
    const std::size_t end = std::min(text.find('='), text.size());
    return {ElementPath(text.substr(0, end)), end < text.size() ? text.substr(end + 1) : ""};
}

bool IsSingleValue(const std::string& value) {
    return !value.empty() && value.find_first_of("*?\\") == std::string::npos;
}

QueryJob::QueryJob(const Peer& peer, const QueryOptions& options)
    : m_Peer(peer), m_Options(options), m_Watch(options.watcher),
      m_Top(options.patientRoot || options.level == QueryLevel::Patient ? 0 : 1) {
    m_Report.level = options.level;
    m_Report.columns = kUsual[static_cast<int>(options.level)];
    for (const QueryKey& key : options.keys) {
        const std::string& text = key.path.GetText();
        const auto isSame = [&](const std::string& column) {
            const ElementPath path(column);
            return path.GetSteps().size() == key.path.GetSteps().size() && path.GetTag() == key.path.GetTag();
        };
        if (std::none_of(m_Report.columns.begin(), m_Report.columns.end(), isSame)) m_Report.columns.push_back(text);
    }
}

QueryReport QueryJob::Run() {
    const auto start = std::chrono::steady_clock::now();
    Begin();
    if (m_Options.level == QueryLevel::Worklist) {
        m_Report.matches = Ask(kWorklist, {});
    } else {
        Unique above;
        Descend(m_Top, above, nullptr);
    }
    End();
    m_Report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (m_Report.ignoredKeys) {
        m_Watch.Tell({.kind = FindingKind::PeerWarned,
                      .text = "the peer left out a key that it cannot match: there may be too many answers"});
    }
    if (m_Report.isCut) {
        m_Watch.Tell({.kind = FindingKind::PeerWarned,
                      .text = "there may be more: these are the first " + std::to_string(m_Report.matches.size())});
    }
    return std::move(m_Report);
}

// In the study root model a study has its patient's attributes too.
int QueryJob::LevelOf(const ElementPath& path) const {
    const int asked = static_cast<int>(m_Options.level);
    if (path.GetSteps().size() > 1 || asked == kWorklist) return asked;
    for (const LevelKeys& row : kBelongs) {
        for (const char* const keyword : row.keywords) {
            if (ElementPath(keyword).GetTag() == path.GetTag()) return std::max(row.level, m_Top);
        }
    }
    return asked;
}

// Whether a level above the target must be asked itself: its unique key is not given with a single value, or other keys
// of that level are.
bool QueryJob::IsAskedAt(int level) const {
    const Tag unique = ElementPath(kUniqueKeys[static_cast<std::size_t>(level)]).GetTag();
    bool isOpen = true;
    for (const QueryKey& key : m_Options.keys) {
        if (LevelOf(key.path) != level) continue;
        if (key.path.GetTag() != unique || !IsSingleValue(key.value)) return true;
        isOpen = false;
    }
    return isOpen;
}

// Asks this level for what lies below the entities in `above`, and then the levels down to the target.
void QueryJob::Descend(int level, Unique& above, const DataSet* upper) {
    const int target = static_cast<int>(m_Options.level);
    const auto index = static_cast<std::size_t>(level);
    if (level < target && !IsAskedAt(level)) {
        const Tag unique = ElementPath(kUniqueKeys[index]).GetTag();
        for (const QueryKey& key : m_Options.keys) {
            if (key.path.GetTag() == unique) above[index] = key.value;
        }
        Descend(level + 1, above, upper);
        return;
    }
    for (DataSet& match : Ask(level, above)) {
        if (m_Options.limit > 0 && m_Report.matches.size() >= m_Options.limit) {
            m_Report.isCut = true;
            return;
        }
        Complete(match, above, upper);
        if (level == target) {
            m_Report.matches.push_back(std::move(match));
            continue;
        }
        above[index] = match.Text(kUniqueKeys[index]);
        if (above[index].empty()) {
            throw Error(ErrorKind::Refused,
                        m_Peer.Name() + ": an answer without its " + kUniqueKeys[index] + " leads nowhere");
        }
        Descend(level + 1, above, &match);
    }
}

// Copies keys that were asked for at levels above into an answer of the target level.
void QueryJob::Complete(DataSet& match, const Unique& above, const DataSet* upper) const {
    for (std::size_t i = 0; i < static_cast<std::size_t>(m_Options.level); ++i) {
        if (!above[i].empty() && !match.Has(kUniqueKeys[i])) match.SetUnchecked(kUniqueKeys[i], above[i]);
    }
    for (const QueryKey& key : m_Options.keys) {
        if (upper == nullptr || match.Has(key.path) || !upper->Has(key.path)) continue;
        const bool isFirstText = !match.Has(tags::SpecificCharacterSet) && upper->Has(tags::SpecificCharacterSet);
        if (isFirstText) match.Set(tags::SpecificCharacterSet, upper->Text(tags::SpecificCharacterSet));
        match.SetUnchecked(key.path, upper->Text(key.path));
    }
}

bool QueryJob::IsEnough(int level, std::size_t more) const {
    return level == GetTarget() && m_Options.limit > 0 && m_Report.matches.size() + more >= m_Options.limit;
}

std::vector<std::string> QueryJob::UsualKeys(int level) const {
    return level == GetTarget() ? kUsual[level] : std::vector<std::string>();
}

namespace {

// A query by C-FIND, on one association.
class DimseQuery : public QueryJob {
public:
    DimseQuery(const Peer& peer, const QueryOptions& options)
        : QueryJob(peer, options), m_Connection(peer, m_Watch), m_User(m_Connection, m_Watch) {}

protected:
    void Begin() override {
        m_User.Propose(ClassOf(QueryService::Find, m_Options.level, m_Options.patientRoot));
        m_Connection.Associate();
    }

    void End() override {
        DcmService& service = m_Connection.GetService();
        if (service.GetState() == DcmService::State::Established) service.Release();
    }

    // All answers to one request. When more come than are wanted the request is cancelled, and the peer's last response
    // awaited.
    std::vector<DataSet> Ask(int level, const Unique& above) override {
        m_User.Request(kFindRQ, ClassOf(QueryService::Find, m_Options.level, m_Options.patientRoot),
                       MakeIdentifier(level, above));
        std::vector<DataSet> matches;
        bool isCancelled = false;
        for (;;) {
            const DimseCommand response = m_User.Receive();
            if (!response.IsResponse()) {
                m_Connection.GetService().Abort();
                throw Error(ErrorKind::Refused, m_Peer.Name() + ": a request in the middle of a query");
            }
            std::size_t bytes = 0;
            DataSet match;
            if (response.HasDataSet()) match = m_User.ReadIdentifier(bytes);
            if (!IsPending(response.status)) {
                if (response.status == kStatusSuccess || (isCancelled && response.status == kStatusCancelled)) break;
                throw m_User.MakeError(response);
            }
            if (response.status != kStatusPending) m_Report.ignoredKeys = true;
            if (isCancelled) continue;
            m_Bytes += bytes;
            if (!IsEnough(level, matches.size()) && m_Bytes <= kMostQueryBytes) {
                matches.push_back(std::move(match));
                continue;
            }
            m_Report.isCut = isCancelled = true;
            m_User.Cancel();
        }
        return matches;
    }

private:
    void SetCharacterSet(DataSet& identifier) const {
        const auto isAscii = [](const QueryKey& key) {
            return std::all_of(key.value.begin(), key.value.end(),
                               [](char c) { return static_cast<signed char>(c) > 0; });
        };
        if (std::all_of(m_Options.keys.begin(), m_Options.keys.end(), isAscii)) return;
        identifier.SetUnchecked(tags::SpecificCharacterSet, m_Options.characterSet);
    }

    DataSet MakeIdentifier(int level, const Unique& above) const {
        DataSet identifier;
        SetCharacterSet(identifier);
        if (level != kWorklist) {
            identifier.Set("QueryRetrieveLevel", kLevelNames[level]);
            identifier.SetUnchecked(kUniqueKeys[static_cast<std::size_t>(level)], "");
        }
        for (const std::string& keyword : UsualKeys(level)) identifier.SetUnchecked(keyword, "");
        for (const QueryKey& key : m_Options.keys) {
            if (LevelOf(key.path) == level) identifier.SetUnchecked(key.path, key.value);
        }
        for (std::size_t i = 0; level != kWorklist && i < static_cast<std::size_t>(level); ++i) {
            if (!above[i].empty()) identifier.SetUnchecked(kUniqueKeys[i], above[i]);
        }
        return identifier;
    }

    PeerConnection m_Connection;
    QueryUser m_User;
};

}  // namespace

QueryReport Query(const Peer& peer, const QueryOptions& options) {
    if (IsWebService(peer)) return WebQuery(peer, options);
    return DimseQuery(peer, options).Run();
}

std::string ToJson(const QueryReport& report) {
    nlohmann::ordered_json json;
    json["schema"] = "korvane.find";
    json["version"] = 1;
    json["level"] = WordOf(report.level);
    json["cut"] = report.isCut;
    json["ignoredKeys"] = report.ignoredKeys;
    json["seconds"] = report.seconds;
    json["matches"] = nlohmann::ordered_json::array();
    for (const DataSet& match : report.matches) {
        json["matches"].push_back(nlohmann::ordered_json::parse(match.ToJson()));
    }
    return json.dump(2);
}

}  // namespace korvane
