#include "RetrieveUnits.h"

#include "../core/Error.h"
#include "../core/JsonText.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

namespace korvane {

namespace {

constexpr const char* kLevelNames[] = {"PATIENT", "STUDY", "SERIES", "IMAGE"};
constexpr std::size_t kMostNamed = 1000;  // failed instances that a report lists

// An identifier of the unique keys from the top of the model to a level.
RetrieveUnit MakeUnit(int level, int top, const DataSet& match) {
    RetrieveUnit unit;
    unit.identifier.Set("QueryRetrieveLevel", kLevelNames[level]);
    for (int i = top; i <= level; ++i) {
        const std::string value = match.Text(kUniqueKeys[static_cast<std::size_t>(i)]);
        unit.identifier.SetUnchecked(kUniqueKeys[static_cast<std::size_t>(i)], value);
        unit.name = std::string(WordOf(static_cast<QueryLevel>(i))) + " " + value;
    }
    return unit;
}

int TopOf(const RetrieveOptions& options) {
    return options.patientRoot || options.level == QueryLevel::Patient ? 0 : 1;
}

QueryOptions ToQuery(const RetrieveOptions& options, QueryLevel level) {
    QueryOptions query;
    query.level = level;
    query.keys = options.keys;
    query.patientRoot = options.patientRoot || options.level == QueryLevel::Patient;
    query.characterSet = options.characterSet;
    query.watcher = options.watcher;
    return query;
}

QueryReport Ask(const Peer& peer, const QueryOptions& options) {
    QueryReport found = Query(peer, options);
    if (found.isCut) throw Error(ErrorKind::Unsupported, peer.Name() + ": more matches than can be taken at once");
    // The peer has ignored a key, so its answers are more than what was asked for.
    if (found.ignoredKeys) {
        throw Error(ErrorKind::Refused, peer.Name() + ": the peer does not support one of the keys for matching");
    }
    if (found.matches.empty()) throw Error(ErrorKind::NotFound, peer.Name() + ": nothing matches");
    return found;
}

// Whether unique keys are all that was given, and each has a single value; `keys` gets them.
bool AreUnique(const RetrieveOptions& options, DataSet& keys) {
    const int level = static_cast<int>(options.level);
    for (const QueryKey& key : options.keys) {
        if (!IsSingleValue(key.value)) return false;
        const auto isKey = [&](const char* keyword) { return ElementPath(keyword).GetTag() == key.path.GetTag(); };
        const auto* const end = kUniqueKeys.begin() + level + 1;
        if (std::none_of(kUniqueKeys.begin() + TopOf(options), end, isKey)) return false;
        keys.SetUnchecked(key.path, key.value);
    }
    for (int i = TopOf(options); i <= level; ++i) {
        if (!keys.Has(kUniqueKeys[static_cast<std::size_t>(i)])) return false;
    }
    return true;
}

}  // namespace

void CheckRetrieveKeys(const RetrieveOptions& options) {
    if (options.level == QueryLevel::Worklist) {
        throw Error(ErrorKind::WrongArgument, "worklists are queried, not retrieved");
    }
    const auto chooses = [](const QueryKey& key) { return key.value.find_first_not_of('*') != std::string::npos; };
    if (std::none_of(options.keys.begin(), options.keys.end(), chooses)) {
        throw Error(ErrorKind::WrongArgument, "no key with a value says what is to be fetched");
    }
}

std::vector<RetrieveUnit> FindUnits(const Peer& peer, const RetrieveOptions& options) {
    const int level = static_cast<int>(options.level);
    std::vector<RetrieveUnit> units;
    if (DataSet keys; AreUnique(options, keys)) {
        units.push_back(MakeUnit(level, TopOf(options), keys));
        return units;
    }
    for (const DataSet& match : Ask(peer, ToQuery(options, options.level)).matches) {
        units.push_back(MakeUnit(level, TopOf(options), match));
    }
    return units;
}

std::vector<RetrieveUnit> FindUnitsWithClasses(const Peer& peer, const RetrieveOptions& options) {
    const int level = options.level == QueryLevel::Image ? 3 : 2;
    std::vector<RetrieveUnit> units;
    std::map<std::string, std::size_t> known;
    for (const DataSet& match : Ask(peer, ToQuery(options, QueryLevel::Image)).matches) {
        const std::string uid = match.Text(kUniqueKeys[static_cast<std::size_t>(level)]);
        const auto [place, isNew] = known.try_emplace(uid, units.size());
        if (isNew) units.push_back(MakeUnit(level, TopOf(options), match));
        RetrieveUnit& unit = units[place->second];
        ++unit.instances;
        unit.uids.push_back(match.Text(kUniqueKeys[3]));
        const std::string sopClass = match.Text("SOPClassUID");
        if (sopClass.empty() || std::find(unit.classes.begin(), unit.classes.end(), sopClass) != unit.classes.end()) {
            continue;
        }
        unit.classes.push_back(sopClass);
    }
    return units;
}

void NoteEnd(RetrieveReport& report, const RetrieveUnit& unit, const DimseCommand& response, const DataSet& failed) {
    report.completed += std::size_t{response.completed} + response.warned;
    report.failed += response.failed;
    if (response.status == kStatusSuccess) return;
    report.status = response.status;
    std::string why = DimseStatusText(response.status);
    if (response.status == 0xB000) why = "sub-operations failed (0xB000)";
    if (!response.errorComment.empty()) why += ": " + response.errorComment;
    report.failures.push_back({unit.name, why});
    for (const std::string& uid : failed.Texts("FailedSOPInstanceUIDList")) {
        if (report.failures.size() < kMostNamed) report.failures.push_back({uid, "not sent"});
    }
}

std::string ToJson(const RetrieveReport& report) {
    nlohmann::ordered_json json;
    json["schema"] = "korvane.retrieve";
    json["version"] = 1;
    json["asked"] = report.asked;
    json["completed"] = report.completed;
    json["failed"] = report.failed;
    json["stored"] = report.stored;
    json["status"] = report.status;
    json["seconds"] = report.seconds;
    json["files"] = nlohmann::ordered_json::array();
    for (const ReceivedFile& file : report.files) {
        auto object = nlohmann::ordered_json::parse(ToJson(file));
        for (const char* const member : {"schema", "version", "event"}) object.erase(member);
        json["files"].push_back(object);
    }
    json["failures"] = nlohmann::ordered_json::array();
    for (const auto& failure : report.failures) {
        json["failures"].push_back({{"what", JsonText(failure.what)}, {"why", JsonText(failure.why)}});
    }
    return json.dump(2);
}

}  // namespace korvane
