#include "Commit.h"

#include "../core/Error.h"
#include "../core/JsonText.h"
#include "CommitJob.h"
#include "SendList.h"

#include <nlohmann/json.hpp>

namespace korvane {

const char* WordOf(CommitReport::Outcome outcome) {
    switch (outcome) {
    case CommitReport::Outcome::Committed: return "committed";
    case CommitReport::Outcome::Failed: return "failed";
    default: return "unanswered";
    }
}

CommitReport Commit(const Peer& peer, const std::vector<std::string>& sources, const CommitOptions& options) {
    if (sources.empty()) throw Error(ErrorKind::WrongArgument, "nothing to ask for");
    const SendList list = ListFilesToSend(sources, options.watcher);
    CommitReport report = CommitFiles(peer, list.files, options);
    for (const auto& file : list.failed) report.failed.push_back({file.path, file.why});
    for (const auto& file : list.leftOut) report.leftOut.push_back({file.path, file.why});
    return report;
}

std::string ToJson(const CommitReport& report) {
    nlohmann::ordered_json json;
    json["schema"] = "korvane.commit";
    json["version"] = 1;
    json["committed"] = report.committed;
    json["instances"] = nlohmann::ordered_json::array();
    for (const CommitReport::Instance& instance : report.instances) {
        nlohmann::ordered_json one = {{"path", JsonText(instance.path)},
                                      {"sopClass", JsonText(instance.sopClass)},
                                      {"sopInstance", JsonText(instance.sopInstance)},
                                      {"outcome", WordOf(instance.outcome)}};
        if (instance.status != 0) one["status"] = instance.status;
        if (!instance.why.empty()) one["why"] = JsonText(instance.why);
        json["instances"].push_back(std::move(one));
    }
    json["failed"] = FilesJson(report.failed);
    json["leftOut"] = FilesJson(report.leftOut);
    json["seconds"] = report.seconds;
    return json.dump(2);
}

}  // namespace korvane
